// The C++ face: requests, empty objects, ownership across moves and
// teardown, a race on a name. (FileLock forwards to the file lock.)

#include <pthread.h>
#include <sched.h>

#include "kavor.hpp"
#include "kavor_fixture.h"

using kvtest::Pair;
using kvtest::pair_table;
using kvtest::wait_for;

namespace {

TEST(KavorHppRequest, NamesThatDontFitAreRefusedNotCut)
{
    Pair s = {};
    const struct { std::string file, node, virt; bool ok; } cases[] = {
        {std::string(127, 'f'), "n", "", true}, {std::string(128, 'f'), "n", "", false}, {"f", std::string(63, 'n'), "", true},
        {"f", std::string(64, 'n'), "", false}, {"f", "n", std::string(127, 'v'), true}, {"f", "n", std::string(128, 'v'), false},
        {"", "n", "", false}, {"f", "", "", false},
    };
    for (const auto &c : cases) {
        kavor::Request req(c.file.c_str(), c.node.c_str(), pair_table(), &s, kavor::Storage::gzip, c.virt.c_str());
        EXPECT_EQ(req.ok(), c.ok) << c.file.size() << "/" << c.node.size() << "/" << c.virt.size();
        EXPECT_TRUE(!c.ok || (req.get()->filename == c.file && req.get()->virtfile == c.virt));
    }
    kavor::Request plain("f", "n", pair_table(), &s, kavor::Storage::plain, nullptr);
    EXPECT_TRUE(plain.ok() && plain.get()->ugz == 1 && plain.get()->virtfile[0] == '\0' && plain.get()->mem == &s &&
                plain.get()->param_desc == pair_table() && !kavor::Request(nullptr, "n", pair_table(), &s).ok());
}

// An empty request, a refused manager and an empty registration do nothing
// and answer as failed. (The round trips are the examples' own runs.)
TEST(KavorHppManager, EmptyObjectsDoNothingAndAnswerFailed)
{
    TempDir dir;
    Pair s = {};
    kavor::Request refused(dir.file(std::string(130, 'x')).c_str(), "p", pair_table(), &s), broken(dir.file("p").c_str(), "p", pair_table(), &s),
        none(dir.file("none").c_str(), "p", pair_table(), &s);
    ASSERT_TRUE(write_file(dir.file("p.xml.gz"), "<?xml version=\"1.0\"?>\n<p><p><label>x</label></p><p><lab"));
    EXPECT_TRUE(kavor::file2param(broken) == kavor::Load::recovered && kavor::param2file(broken) && kavor::param2file(broken, 0));
    EXPECT_TRUE(kavor::file2param(broken, 0) == kavor::Load::ok && kavor::file2param(none) == kavor::Load::failed);
    EXPECT_FALSE(kavor::param2file(refused) || kavor::param2file(refused, 0));
    EXPECT_TRUE(kavor::file2param(refused) == kavor::Load::failed && kavor::file2param(refused, 0) == kavor::Load::failed);
    kavor::Manager m = kavor::Manager::create(nullptr);
    kavor::Registration r = m.add("x", "n", pair_table(), &s);
    EXPECT_FALSE(m || r || m.save_all() || m.flush(0) || m.set_policy(0) || r.save());
    EXPECT_TRUE(m.load_all() == kavor::Load::failed && r.load() == kavor::Load::failed && r.saving() == kavor::Saving::done);
    EXPECT_TRUE(m.file_count() == 0 && m.file_names().empty() && m.any_on_saving().empty());
    bool loaded = true;
    EXPECT_TRUE(r.report(&loaded).result == -1 && !loaded && r.save_status().saves == 0);
    m.delete_all(), r.delete_files();
    EXPECT_TRUE(r.locked([] { return 1; }) == 1 && files_in(dir.path()) == std::vector<std::string>{"p.xml.gz"});
}

TEST(KavorHppManager, OwnershipFollowsMovesResetsInAnyOrderAndTeardown)
{
    TempDir dir;
    Pair s = {};
    kavor::Registration kept;
    {
        kavor::Manager m1 = kavor::Manager::create("hpp_order", 0);
        ASSERT_TRUE(m1);
        auto add = [&](const char *stem) { return m1.add(dir.file(stem).c_str(), "n", pair_table(), &s); };
        kavor::Registration a = add("a"), b = add("b"), c = add("c");
        ASSERT_TRUE(a && b && c);
        kavor::Registration second = add("a");
        EXPECT_FALSE(second) << "a second owner of one node";
        second.reset();   // empty: must not end the first one's node
        b.reset();        // from the middle of the manager's list
        EXPECT_EQ(m1.file_names(), (std::vector<std::string>{"a", "c"}));
        xml_file_hdl h = a.get();
        kavor::Registration moved = std::move(a);
        EXPECT_TRUE(!a && moved.get() == h);
        kavor::Manager m2 = std::move(m1);
        EXPECT_FALSE(m1);
        kept = std::move(moved);
        kept.reset();
        EXPECT_EQ(m2.file_count(), 1u);
        EXPECT_TRUE(m2.set_policy(0) && !m2.set_policy(1u << 31) && m2.save_all() && m2.flush(20000) && file_exists(dir.file("c.xml.gz")));
        c.delete_files(), m2.delete_all();
        EXPECT_TRUE(files_in(dir.path()).empty());
        kept = m2.add(dir.file("d").c_str(), "n", pair_table(), &s);
        m2.reset();   // kavor_destroy: every node of it is gone
        EXPECT_FALSE(kept || c);
    }
    EXPECT_TRUE(!kept.save() && kept.load() == kavor::Load::failed);   // nothing of the manager is touched (ASan would say so)
}

// A name asked for while another thread ends that file: the whole name or
// nothing, never read from a released record (ASan and TSan run this).
TEST(KavorHppConcurrency, AnyOnSavingWhileAnotherThreadUnregistersReadsNoFreedName)
{
    TempDir dir;
    Pair s = {};
    kavor::Manager m = kavor::Manager::create("hpp_race", 3600000);  // the task never writes
    const std::string path = dir.file("race"), name = path + ".xml.gz";
    // Both threads on one processor: the reader's unlock wakes the waiting
    // writer, which may then run at once, before the reader's next step.
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    std::atomic<bool> stop{ false };
    std::thread churn([&] {
        pthread_setaffinity_np(pthread_self(), sizeof(one), &one);
        while (!stop)
            m.add(path.c_str(), "n", pair_table(), &s).save();   // the file and its name are released at once
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
    stop = true, churn.join();
    pthread_setaffinity_np(pthread_self(), sizeof(before), &before);
    EXPECT_TRUE(wrong == 0 && named > 0) << wrong << " wrong names; " << named << " names: the race must run";
}

}  // namespace
