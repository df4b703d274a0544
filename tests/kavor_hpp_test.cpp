// Tests of the C++ face: requests refuse names that don't fit, one-shot
// conversions, ownership of managers and registrations across moves and
// teardown, the refusal of a second owner of one node, the file lock, and a
// save through the manager's task read back by a new manager.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "kavor.hpp"
#include "test_util.h"
#include "trace_capture.h"

namespace {

struct settings {
    int32_t level;
    uint16_t ports[3];
    char owner[16];
};

struct pdesc settings_table[] = {
    PX_SINT(struct settings, level, "level"),
    PX_UINT_ARR(struct settings, ports, "port"),
    PX_STRI(struct settings, owner, "owner"),
    PX_END,
};

settings sample()
{
    settings s = {};
    s.level = 3;
    s.ports[0] = 22;
    s.ports[1] = 80;
    s.ports[2] = 443;
    strcpy(s.owner, "ops");
    return s;
}

bool same(const settings &a, const settings &b)
{
    return a.level == b.level && memcmp(a.ports, b.ports, sizeof(a.ports)) == 0 &&
           strcmp(a.owner, b.owner) == 0;
}

// Polls `done` every 10 ms for up to 10 s.
template <class F> bool eventually(F done)
{
    for (int i = 0; i < 1000; i++) {
        if (done())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return done();
}

TEST(KavorHppRequest, NamesThatDontFitAreRefusedNotCut)
{
    settings s = sample();
    struct Case {
        std::string file, node, virt;
        bool ok;
    };
    const Case cases[] = {
        { std::string(127, 'f'), "n", "", true },
        { std::string(128, 'f'), "n", "", false },
        { "f", std::string(63, 'n'), "", true },
        { "f", std::string(64, 'n'), "", false },
        { "f", "n", std::string(127, 'v'), true },
        { "f", "n", std::string(128, 'v'), false },
        { "", "n", "", false },
        { "f", "", "", false },
    };
    for (const Case &c : cases) {
        kavor::Request req(c.file.c_str(), c.node.c_str(), settings_table, &s,
                           kavor::Storage::gzip, c.virt.c_str());
        EXPECT_EQ(req.ok(), c.ok) << c.file.size() << "/" << c.node.size() << "/" << c.virt.size();
        if (c.ok) {
            EXPECT_EQ(std::string(req.get()->filename), c.file);
            EXPECT_EQ(std::string(req.get()->virtfile), c.virt);
        }
    }
    kavor::Request nulls(nullptr, "n", settings_table, &s);
    EXPECT_FALSE(nulls.ok());
    kavor::Request plain("f", "n", settings_table, &s, kavor::Storage::plain, nullptr);
    ASSERT_TRUE(plain.ok());
    EXPECT_EQ(plain.get()->ugz, 1);
    EXPECT_EQ(plain.get()->virtfile[0], '\0');
    EXPECT_EQ(plain.get()->mem, &s);
    EXPECT_EQ(plain.get()->param_desc, settings_table);
}

TEST(KavorHppOneShot, BlockGoesToAFileAndBack)
{
    TempDir dir;
    settings in = sample(), out = {};
    kavor::Request w(dir.file("net").c_str(), "settings", settings_table, &in, kavor::Storage::plain);
    kavor::Request r(dir.file("net").c_str(), "settings", settings_table, &out, kavor::Storage::plain);
    ASSERT_TRUE(kavor::param2file(w));
    EXPECT_TRUE(file_exists(dir.file("net.xml")));
    EXPECT_EQ(kavor::file2param(r), kavor::Load::ok);
    EXPECT_TRUE(same(in, out));
}

TEST(KavorHppOneShot, RefusedRequestTouchesNothing)
{
    TempDir dir;
    settings s = sample();
    std::string longname = dir.file(std::string(130, 'x'));
    kavor::Request req(longname.c_str(), "settings", settings_table, &s);
    TraceCapture cap(8);
    EXPECT_FALSE(kavor::param2file(req));
    EXPECT_EQ(kavor::file2param(req), kavor::Load::failed);
    EXPECT_EQ(cap.records().size(), 0u) << cap.dump();
}

TEST(KavorHppOneShot, MissingFileFails)
{
    TempDir dir;
    settings s = sample();
    kavor::Request req(dir.file("none").c_str(), "settings", settings_table, &s);
    EXPECT_EQ(kavor::file2param(req), kavor::Load::failed);
    EXPECT_EQ(s.level, 3);
}

TEST(KavorHppManager, RefusedCreationGivesAnEmptyManagerThatDoesNothing)
{
    TraceCapture cap(8);
    kavor::Manager m = kavor::Manager::create(nullptr);
    EXPECT_FALSE(m);
    EXPECT_TRUE(cap.has(4, "kavor_create_v2", "kavor module name NULL!")) << cap.dump();
    settings s = sample();
    kavor::Registration r = m.add("x", "n", settings_table, &s);
    EXPECT_FALSE(r);
    EXPECT_EQ(m.load_all(), kavor::Load::failed);
    EXPECT_FALSE(m.save_all());
    EXPECT_EQ(m.file_count(), 0u);
    EXPECT_TRUE(m.file_names().empty());
    EXPECT_EQ(r.load(), kavor::Load::failed);
    EXPECT_FALSE(r.save());
    EXPECT_EQ(r.saving(), kavor::Saving::done);
}

TEST(KavorHppManager, SecondOwnerOfOneNodeIsRefused)
{
    TempDir dir;
    settings a = sample(), b = sample();
    kavor::Manager m = kavor::Manager::create("hpp_dup", 0);
    ASSERT_TRUE(m);
    kavor::Registration first = m.add(dir.file("net").c_str(), "node", settings_table, &a);
    ASSERT_TRUE(first);
    TraceCapture cap(8);
    kavor::Registration second = m.add(dir.file("net").c_str(), "node", settings_table, &b);
    EXPECT_FALSE(second);
    EXPECT_TRUE(cap.has(4, "kavor_register", "file node(node) has exist!")) << cap.dump();
    second.reset();  // empty: must not end the first one's node
    EXPECT_EQ(m.file_count(), 1u);
    kavor::Registration other = m.add(dir.file("net").c_str(), "other", settings_table, &b);
    EXPECT_TRUE(other);
    EXPECT_EQ(m.file_count(), 1u);
    EXPECT_EQ(m.file_names(), std::vector<std::string>{ "net" });
}

TEST(KavorHppManager, RegistrationEndsItsNodeWhenItDiesInAnyOrder)
{
    TempDir dir;
    settings s = sample();
    kavor::Manager m = kavor::Manager::create("hpp_order", 0);
    ASSERT_TRUE(m);
    {
        kavor::Registration a = m.add(dir.file("a").c_str(), "n", settings_table, &s);
        kavor::Registration b = m.add(dir.file("b").c_str(), "n", settings_table, &s);
        kavor::Registration c = m.add(dir.file("c").c_str(), "n", settings_table, &s);
        ASSERT_TRUE(a && b && c);
        EXPECT_EQ(m.file_names(), (std::vector<std::string>{ "a", "b", "c" }));
        b.reset();  // from the middle of the manager's list of registrations
        EXPECT_EQ(m.file_names(), (std::vector<std::string>{ "a", "c" }));
    }
    EXPECT_EQ(m.file_count(), 0u);
}

TEST(KavorHppManager, MovesCarryOwnership)
{
    TempDir dir;
    settings s = sample();
    kavor::Manager m1 = kavor::Manager::create("hpp_move", 0);
    ASSERT_TRUE(m1);
    kavor::Registration r1 = m1.add(dir.file("a").c_str(), "n", settings_table, &s);
    xml_file_hdl h = r1.get();
    kavor::Registration r2 = std::move(r1);
    EXPECT_FALSE(r1);
    EXPECT_EQ(r2.get(), h);
    kavor::Manager m2 = std::move(m1);
    EXPECT_FALSE(m1);
    EXPECT_EQ(m2.file_count(), 1u);
    kavor::Registration r3;
    r3 = std::move(r2);
    EXPECT_EQ(r3.get(), h);
    r3.reset();
    EXPECT_EQ(m2.file_count(), 0u);
}

TEST(KavorHppManager, RegistrationsOutlivingTheirManagerAreEmptied)
{
    TempDir dir;
    settings s = sample();
    kavor::Registration kept;
    {
        kavor::Manager m = kavor::Manager::create("hpp_teardown", 0);
        ASSERT_TRUE(m);
        kept = m.add(dir.file("a").c_str(), "n", settings_table, &s);
        kavor::Registration moved = m.add(dir.file("b").c_str(), "n", settings_table, &s);
        ASSERT_TRUE(kept && moved);
        kavor::Registration again = std::move(moved);
        m.reset();  // kavor_destroy: every node of it is gone
        EXPECT_FALSE(kept);
        EXPECT_FALSE(again);
    }
    // Nothing of the manager is touched from here on (ASan would say so).
    EXPECT_FALSE(kept.save());
    EXPECT_EQ(kept.load(), kavor::Load::failed);
    kept.reset();
}

TEST(KavorHppFileLock, LockedRunsTheFunctionAndReturnsItsValue)
{
    TempDir dir;
    settings s = sample();
    kavor::Manager m = kavor::Manager::create("hpp_locked", 0);
    kavor::Registration r = m.add(dir.file("a").c_str(), "n", settings_table, &s);
    ASSERT_TRUE(r);
    int got = r.locked([&] { return s.level * 2; });
    EXPECT_EQ(got, 6);
    kavor::Registration empty;
    EXPECT_EQ(empty.locked([] { return 1; }), 1);  // locks nothing
}

TEST(KavorHppFileLock, SecondLockWaitsForTheFirst)
{
    TempDir dir;
    settings s = sample();
    kavor::Manager m = kavor::Manager::create("hpp_lock", 0);
    kavor::Registration r = m.add(dir.file("a").c_str(), "n", settings_table, &s);
    ASSERT_TRUE(r);
    std::atomic<bool> started{ false }, entered{ false };
    std::thread t;
    {
        kavor::FileLock hold(r);
        t = std::thread([&] {
            started = true;
            r.locked([&] { entered = true; });
        });
        ASSERT_TRUE(eventually([&] { return started.load(); }));
        // While we hold the file, the other thread must not get in.
        for (int i = 0; i < 20; i++) {
            ASSERT_FALSE(entered.load());
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    EXPECT_TRUE(eventually([&] { return entered.load(); }));
    t.join();
}

TEST(KavorHppSave, SaveByTheTaskIsReadBackByANewManager)
{
    TempDir dir;
    std::string path = dir.file("dev");
    settings in = sample();
    {
        kavor::Manager m = kavor::Manager::create("hpp_save", 0);
        kavor::Registration r = m.add(path.c_str(), "settings", settings_table, &in);
        ASSERT_TRUE(r);
        r.locked([&] { in.level = 9; });
        ASSERT_TRUE(r.save());
        ASSERT_TRUE(eventually([&] { return r.saving() == kavor::Saving::done; }));
        EXPECT_EQ(m.any_on_saving(), "");
    }
    ASSERT_TRUE(file_exists(path + ".xml.gz"));
    settings out = {};
    kavor::Manager m = kavor::Manager::create("hpp_load", 0);
    kavor::Registration r = m.add(path.c_str(), "settings", settings_table, &out);
    EXPECT_EQ(m.load_all(), kavor::Load::ok);
    EXPECT_TRUE(same(in, out));
    out.level = 0;
    EXPECT_EQ(r.load(), kavor::Load::ok);
    EXPECT_EQ(out.level, 9);
    r.delete_files();
    EXPECT_FALSE(file_exists(path + ".xml.gz"));
}

// A name asked for while another thread ends that file: the answer is
// copied under the manager's lock, so it is the whole name or nothing, and
// never read from a released record (ASan and TSan run this).
TEST(KavorHppConcurrency, AnyOnSavingWhileAnotherThreadUnregistersReadsNoFreedName)
{
    TempDir dir;
    settings s = sample();
    kavor::Manager m = kavor::Manager::create("hpp_race", 3600000);  // the task never writes
    ASSERT_TRUE(m);
    const std::string path = dir.file("race"), name = path + ".xml.gz";
    // Both threads on one processor: the reader's unlock wakes the waiting
    // writer, which may then run at once, before the reader's next step.
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    std::atomic<bool> stop{ false };
    std::thread churn([&] {
        pthread_setaffinity_np(pthread_self(), sizeof(one), &one);
        while (!stop) {
            kavor::Registration r = m.add(path.c_str(), "n", settings_table, &s);
            r.save();
        }  // the file and its name are released here
    });
    cpu_set_t before;
    pthread_getaffinity_np(pthread_self(), sizeof(before), &before);
    pthread_setaffinity_np(pthread_self(), sizeof(one), &one);
    int named = 0, wrong = 0;
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (std::chrono::steady_clock::now() < end) {
        std::string got = m.any_on_saving();
        named += !got.empty();
        wrong += !got.empty() && got != name;
    }
    stop = true;
    churn.join();
    pthread_setaffinity_np(pthread_self(), sizeof(before), &before);
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(named, 0) << "the race was never run";
}

TEST(KavorHppCheck, ForwardsToTheTableCheck)
{
    EXPECT_EQ(kavor::check(settings_table), 0);
    EXPECT_EQ(kavor::check(nullptr), -1);
}

} // namespace
