// The manager and its save task: creation and its failure exits, teardown
// that writes nothing, a manager whose task didn't start, the tick's state
// table driven by hand, and the pacing of a running task (a burst ends in
// one write, a delay of 0 sweeps at once, a request during a sweep leads to
// another sweep, a failed save is retried once its cause has gone).
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "kavor_save_fixture.h"
#include "trace_capture.h"
#include "vn_mem_hook.h"

using namespace kvtest;

namespace {

const char kStartFail[] = "kavor task (cfg) start fail, files will not be saved!";

int32_t sv_dly(kavor_hdl h)
{
    return __atomic_load_n(&h->sv_dly, __ATOMIC_RELAXED);
}

// A whole manager whose task never started, found by failing each
// allocation of the creation in turn until only the task's start fails.
kavor_hdl create_without_task(int32_t dly)
{
    for (unsigned long n = 1; n < 32; n++) {
        TraceCapture cap(4);
        vn_mem_fail_nth(n);
        kavor_hdl h = kavor_create_v2("cfg", dly);
        vn_mem_fail_nth(0);
        if (h != nullptr && cap.has(4, "kavor_create_v2", kStartFail))
            return h;
        kavor_destroy(h);
    }
    return nullptr;
}

// A running task over one file "net" of the block: the recorder goes in
// first, so a test sets its failures and step hooks before the task runs.
struct Running {
    TempDir dir;
    SysRecorder sys;
    kavor_hdl h = nullptr;
    Blk b;
    xml_file_hdl f = nullptr;

    // A name of nullptr: a manager whose task didn't start.
    void start(const char *name, int32_t dly, int32_t gen = 0, int32_t ugz = 0)
    {
        fill(b, gen);
        h = name != nullptr ? kavor_create_v2(name, dly) : create_without_task(dly);
        ASSERT_NE(h, nullptr);
        f = reg(h, dir.file("net"), "blk", &b, ugz);
        ASSERT_NE(f, nullptr);
    }
    ~Running() { kavor_destroy(h); }
    // Changes the block as the application does: under the file's lock.
    void set(int32_t g)
    {
        kavor_file_lock(f);
        fill(b, g);
        kavor_file_unlock(f);
    }
    int32_t on_disk() const { return parse_exact(dir.file("net"), 0, dir.file("net.xml.gz")).gen(); }
};

TEST(KavorManager, CreateSetsUpTheTaskAndRefusesNullNames)
{
    long live = vn_mem_live();
    TraceCapture cap(8);
    kavor_hdl h = kavor_create("cfg");
    ASSERT_NE(h, nullptr);
    EXPECT_STREQ(h->task.task_name, "kavor_tsk_cfg");
    EXPECT_EQ(h->task.stack_size, 0x10000u);
    EXPECT_EQ(h->task.pf_process, &xml_save_process);
    EXPECT_EQ(h->sv_dly_lmt, 1000);
    EXPECT_TRUE(h->mtx_ld_valid == 1 && h->sem_sav_valid == 1 && h->fcom_rwlock_valid == 1);
    EXPECT_EQ(h->fcom_lst, nullptr);
    kavor_destroy(h);
    EXPECT_EQ(cap.count_at_most(7), 0u) << cap.dump();
    EXPECT_EQ(vn_mem_live(), live);
    h = kavor_create_v2("x", -20);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->sv_dly_lmt, -20);
    kavor_destroy(h);

    cap.clear();
    EXPECT_EQ(kavor_create(nullptr), nullptr);
    EXPECT_EQ(kavor_create_v2(nullptr, 5), nullptr);
    EXPECT_EQ(cap.count(4, "kavor_create_v2", "kavor module name NULL!"), 2u) << cap.dump();
    cap.clear();
    kavor_destroy(nullptr);
    EXPECT_TRUE(cap.records().empty()) << cap.dump();
}

TEST(KavorManager, EveryFailedAllocationOfCreationEndsCleanly)
{
    // The allocations of a creation, in order, and what a failure of each
    // does; past the last one, a failure to come changes nothing.
    struct Row {
        const char *msg;   // level-4 message, nullptr for none
        bool made;         // a manager is returned all the same
    } rows[] = {
        {"kavor task name (cfg) error!", true},  {"kavor object(cfg) create fail!", false},
        {"kavor object(cfg) mutex init fail!", false}, {"kavor sem name (cfg) error!", true},
        {"semphore cfg create fail!", false},    {kStartFail, true},
        {nullptr, true},
    };
    long live = vn_mem_live();
    for (size_t i = 0; i < sizeof(rows) / sizeof(rows[0]); i++) {
        SCOPED_TRACE(i + 1);
        TraceCapture cap(8);
        vn_mem_fail_nth(i + 1);
        kavor_hdl h = kavor_create_v2("cfg", 1000);
        vn_mem_fail_nth(0);
        EXPECT_EQ(h != nullptr, rows[i].made);
        EXPECT_TRUE(rows[i].msg == nullptr || cap.has(4, "kavor_create_v2", rows[i].msg))
            << cap.dump();
        EXPECT_EQ(cap.count_at_most(4), rows[i].msg != nullptr ? 1u : 0u) << cap.dump();
        EXPECT_TRUE(h == nullptr || h->sem_sav_valid == 1);
        kavor_destroy(h);
        EXPECT_EQ(vn_mem_live(), live);
    }
}

TEST(KavorManager, DestroyReleasesEveryRecordAndWritesNothing)
{
    TempDir dir;
    long live = vn_mem_live();
    kavor_hdl h = kavor_create_v2("d", 1000);
    ASSERT_NE(h, nullptr);
    Blk blks[6];
    const char *nodes[] = {"a", "b", "c"};
    for (int i = 0; i < 6; i++) {
        fill(blks[i], i);
        ASSERT_NE(reg(h, dir.file(i < 3 ? "one" : "two"), nodes[i % 3], &blks[i], 0,
                      i < 3 ? dir.file("v/one") : ""),
                  nullptr);
    }
    ASSERT_EQ(kavor_save_all(h), 0);
    EXPECT_NE(kavor_any_on_saving(h), nullptr);
    TraceCapture cap(7);   // the task may still take the request (level 8)
    kavor_destroy(h);
    EXPECT_TRUE(cap.records().empty()) << cap.dump();
    EXPECT_EQ(vn_mem_live(), live);
    for (const char *name : {"one.xml.gz", "two.xml.gz", "v"})
        EXPECT_FALSE(file_exists(dir.file(name))) << name;
}

TEST(KavorManager, AManagerWhoseTaskDidNotStartStillAnswersAndEnds)
{
    long live = vn_mem_live();
    Running r;
    ASSERT_NO_FATAL_FAILURE(r.start(nullptr, 0, 3));
    kavor_hdl h = r.h;
    xml_file_hdl f = r.f;
    const TempDir &dir = r.dir;
    EXPECT_EQ(kavor_save_one(f), 0);
    EXPECT_EQ(kavor_save_all(h), 0);
    EXPECT_EQ(kavor_file_on_saving(f), 1);
    EXPECT_EQ(str(kavor_any_on_saving(h)), dir.file("net.xml.gz"));
    EXPECT_EQ(kavor_load_one(f), -1);
    EXPECT_EQ(kavor_count_all_filename(h), 1u);
    auto t0 = std::chrono::steady_clock::now();
    kavor_destroy(h);
    r.h = nullptr;
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(30));
    EXPECT_FALSE(file_exists(dir.file("net.xml.gz")));
    EXPECT_EQ(vn_mem_live(), live);
}

// One tick driven by hand: sv_dly on entry, whether a request came, the
// delay; then sv_dly after and whether the marked file was written.
TEST(KavorManager, OneTickFollowsThePacingTable)
{
    struct Row {
        int32_t d;
        bool given;
        int32_t lmt, after;
        bool swept;
    } rows[] = {
        {-1, true, 1000, 500, false},  {700, true, 1000, 500, false},  // a request restarts the count
        {-1, true, 0, -1, true},       {-1, true, -5, -1, true},   // no delay: sweep in the same tick
        {-1, false, 1000, -1, false},                                  // idle stays idle
        {0, false, 1000, 500, false},  {500, false, 1000, 1000, false},  // counting
        {1000, false, 1000, -1, true},                                 // the count reached the delay
        {500, false, 700, 1000, false}, {1000, false, 700, -1, true},  // 700 behaves as 1000
        {500, false, 500, -1, true},
        {0, false, 1, 500, false},     {500, false, 1, -1, true},      // 1 behaves as 500
    };
    Running run;
    ASSERT_NO_FATAL_FAILURE(run.start(nullptr, 1000, 1));
    kavor_hdl h = run.h;
    xml_file_hdl f = run.f;
    SysRecorder &sys = run.sys;
    for (const Row &r : rows) {
        SCOPED_TRACE(std::to_string(r.d) + (r.given ? " given " : " idle ") + std::to_string(r.lmt));
        h->sv_dly = r.d;
        h->sv_dly_lmt = r.lmt;
        saving_set(f->fcom, 1);
        vn_sem_take(h->sem_sav, 0);
        if (r.given)
            vn_sem_give(h->sem_sav);
        size_t saves = sys.count("save ");
        TraceCapture cap(8);
        EXPECT_EQ(xml_save_process(h), 0);
        EXPECT_EQ(h->sv_dly, r.after);
        EXPECT_EQ(sys.count("save ") - saves, r.swept ? 1u : 0u);
        EXPECT_EQ(kavor_file_on_saving(f), r.swept ? 0 : 1);
        EXPECT_EQ(cap.has(8, "xml_save_process", "kavor_obj take semphore, delay save."), r.given)
            << cap.dump();
    }
}

// The largest delays: the count reaches the top multiple of the tick below
// INT32_MAX and then sweeps, where a longer delay would overflow the count.
TEST(KavorManager, ADelayNearInt32MaxCountsToASweepWithoutOverflow)
{
    const int32_t top = KAVOR_SAVE_DLY_MAX_MS;
    for (int32_t dly : {INT32_MAX, top}) {
        SCOPED_TRACE(dly);
        Running run;
        ASSERT_NO_FATAL_FAILURE(run.start(nullptr, dly, 1));
        saving_set(run.f->fcom, 1);
        vn_sem_take(run.h->sem_sav, 0);
        run.h->sv_dly = top - 500;
        EXPECT_EQ(xml_save_process(run.h), 0);
        EXPECT_EQ(run.h->sv_dly, top);
        EXPECT_EQ(xml_save_process(run.h), 0);
        EXPECT_EQ(run.h->sv_dly, -1);
        EXPECT_EQ(run.sys.count("save "), 1u);
        EXPECT_EQ(kavor_file_on_saving(run.f), 0);
    }
}

// A running task with a delay: a burst of requests in the quiet time is
// written once, after the delay.
class PacingTest : public ::testing::TestWithParam<int32_t> {};

TEST_P(PacingTest, ABurstOfRequestsEndsInOneWrite)
{
    Running r;
    ASSERT_NO_FATAL_FAILURE(r.start("burst", GetParam()));
    // A new manager counts from its start; let that first sweep pass.
    ASSERT_TRUE(wait_for([&] { return sv_dly(r.h) < 0; }));
    for (int i = 1; i <= 6; i++) {
        r.set(i);
        ASSERT_EQ(kavor_save_one(r.f), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
    }
    ASSERT_TRUE(wait_for([&] { return kavor_any_on_saving(r.h) == nullptr; }));
    EXPECT_EQ(r.sys.count("save "), 1u);
    EXPECT_EQ(r.on_disk(), 6);
    // Nothing is left to write: no second sweep writes anything.
    ASSERT_TRUE(wait_for([&] { return sv_dly(r.h) < 0; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(GetParam() + 600));
    EXPECT_EQ(r.sys.count("save "), 1u);
}

INSTANTIATE_TEST_SUITE_P(Delays, PacingTest, ::testing::Values(500, 1000));

TEST(KavorManager, WithoutDelayEveryRequestIsWritten)
{
    Running r;
    ASSERT_NO_FATAL_FAILURE(r.start("now", 0));
    for (int i = 1; i <= 3; i++) {
        r.set(i);
        ASSERT_EQ(kavor_save_one(r.f), 0);
        ASSERT_TRUE(wait_for([&] { return kavor_file_on_saving(r.f) == 0; }));
        EXPECT_EQ(r.sys.count("save "), (size_t)i);
        EXPECT_EQ(r.on_disk(), i);
    }
}

TEST(KavorManager, ARequestDuringASweepLeadsToASecondSweep)
{
    Running r;
    std::atomic<int> state{0};   // 1: the sweep waits in its sync step; 2: go on
    r.sys.on_step = [&](const std::string &step, const kavor_fcom_t *) {
        int first = 0;
        if (step == "sync" && state.compare_exchange_strong(first, 1))
            wait_for([&] { return state.load() == 2; }, 60);
    };
    ASSERT_NO_FATAL_FAILURE(r.start("again", 500, 1));
    ASSERT_EQ(kavor_save_one(r.f), 0);
    ASSERT_TRUE(wait_for([&] { return state.load() == 1; }));
    r.set(2);
    ASSERT_EQ(kavor_save_one(r.f), 0);
    state = 2;
    ASSERT_TRUE(
        wait_for([&] { return r.sys.count("save ") == 2 && kavor_file_on_saving(r.f) == 0; }));
    EXPECT_EQ(r.on_disk(), 2);
}

TEST(KavorManager, AFailedSaveIsRetriedUntilItsCauseHasGone)
{
    Running r;
    r.sys.fail_all(SysRecorder::SAVE, true);
    ASSERT_NO_FATAL_FAILURE(r.start("retry", 500, 9));
    TraceCapture cap(4);
    ASSERT_EQ(kavor_save_one(r.f), 0);
    ASSERT_TRUE(wait_for([&] { return r.sys.calls(SysRecorder::SAVE) >= 3; }));
    kavor_file_lock(r.f);   // no write is under way while the lock is held
    EXPECT_GE(kavor_file_on_saving(r.f), 1);
    EXPECT_FALSE(file_exists(r.dir.file("net.xml.gz")));
    EXPECT_FALSE(file_exists(r.dir.file("net.xml.gz.tmp.gz")));
    kavor_file_unlock(r.f);
    EXPECT_GE(cap.count(4, "xml_save_process",
                        "xml(" + r.dir.file("net.xml.gz") + ") save failed, try again later."),
              2u)
        << cap.dump();
    r.sys.fail_all(SysRecorder::SAVE, false);
    ASSERT_TRUE(wait_for([&] { return kavor_any_on_saving(r.h) == nullptr; }));
    EXPECT_EQ(r.on_disk(), 9);
}

TEST(KavorManager, RealSyncRunsAndTheFileReachesTheDisk)
{
    Running r;
    r.sys.real_sync = true;
    ASSERT_NO_FATAL_FAILURE(r.start("sync", 0, 4, 1));
    ASSERT_EQ(kavor_save_one(r.f), 0);
    ASSERT_TRUE(wait_for([&] { return kavor_file_on_saving(r.f) == 0; }, 120));
    EXPECT_EQ(r.sys.count("sync"), 2u);
    kavor_destroy(r.h);
    r.h = nullptr;
    Loaded back = load_as_restart(r.dir.file("net"), 1);
    EXPECT_EQ(back.ret, 0);
    EXPECT_EQ(back.gen(), 4);
}

}  // namespace
