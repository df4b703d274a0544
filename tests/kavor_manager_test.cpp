// The manager and its task: creation failing at every allocation, teardown
// writing nothing, the tick's pacing, and a running task's writes.

#include "kavor_fixture.h"
#include "sweep.h"

using namespace kvtest;

namespace {

TEST(KavorManager, EveryFailedAllocationOfCreationEndsCleanlyAndATaskLessManagerStillAnswers)
{
    TempDir dir;
    SysRecorder sys;
    kavor_hdl h = nullptr;
    int taskless = 0;
    std::optional<TraceCapture> cap;
    for (bool traced : {true, false})
    sweep(Alloc::library, [&] { cap.reset(), traced ? void(cap.emplace(4)) : void(), h = kavor_create_v2("cfg", INT32_MAX); }, [&](bool refused) {
        EXPECT_TRUE(h != nullptr || refused);
        EXPECT_TRUE(!cap || cap->count_at_most(4) == (refused ? 1u : 0u)) << cap->dump();
        if (h != nullptr && h->task.tsk_id == nullptr) {
            taskless++;
            Blk b;
            xml_file_hdl f = reg(h, dir.file("net"), "blk", &b);
            fill(b, 3);
            // The largest delay is counted to its end without overflow, then swept.
            saving_set(f->fcom, 1);
            h->sv_dly = KAVOR_SAVE_DLY_MAX_MS - 500;
            EXPECT_TRUE(xml_save_process(h) == 0 && kavor_file_on_saving(f) == 1);
            EXPECT_TRUE(xml_save_process(h) == 0 && kavor_file_on_saving(f) == 0);
            EXPECT_EQ(parse_exact(dir.file("net"), 0, dir.file("net.xml.gz")).gen(), 3);
            EXPECT_TRUE(kavor_save_one(f) == 0 && kavor_save_all(h) == 0 && kavor_file_on_saving(f) == 1) << "marked, and nothing saves it";
            EXPECT_STREQ(kavor_any_on_saving(h), dir.file("net.xml.gz").c_str());
        } else if (h != nullptr) {   // destroying a running manager releases every record and writes nothing
            Blk b1, b2;
            for (const char *node : {"a", "b"})
                ASSERT_TRUE(reg(h, dir.file("t/one"), node, &b1, 0, dir.file("t/v/one")) && reg(h, dir.file("t/two"), node, &b2));
            ASSERT_EQ(kavor_save_all(h), 0);
        }
        kavor_destroy(h);
        EXPECT_TRUE(files_in(dir.file("t")).empty());
    });
    EXPECT_EQ(taskless, 2);
    kavor_destroy(nullptr);
}

// One tick driven by hand: the count on entry, whether a request came, the
// delay; then the count after and whether the marked file was written.
TEST(KavorManager, OneTickCountsTheQuietTimeInStepsOf500Ms)
{
    // A request restarts the count; no delay: a sweep in the same tick; idle
    // stays idle; 700 counts as 1000; 1 counts as 500.
    const struct { int32_t d; bool given; int32_t lmt, after; bool swept; } rows[] = {
        {-1, true, 1000, 500, false}, {700, true, 1000, 500, false}, {-1, true, 0, -1, true}, {-1, false, 1000, -1, false},
        {500, false, 700, 1000, false}, {1000, false, 700, -1, true}, {500, false, 1, -1, true},
    };
    TempDir dir;
    Mgr mgr;
    kavor_hdl h = mgr.get();
    Blk b;
    xml_file_hdl f = reg(h, dir.file("net"), "blk", &b);
    SysRecorder sys;
    for (const auto &r : rows) {
        SCOPED_TRACE(std::to_string(r.d) + (r.given ? " given " : " idle ") + std::to_string(r.lmt));
        h->sv_dly = r.d, h->sv_dly_lmt = r.lmt;
        saving_set(f->fcom, 1);
        mgr.given();
        if (r.given)
            vn_sem_give(h->sem_sav);
        size_t saves = sys.count("save ");
        EXPECT_TRUE(xml_save_process(h) == 0 && h->sv_dly == r.after && sys.count("save ") - saves == (r.swept ? 1u : 0u));
    }
}

TEST(KavorManager, ABurstOfRequestsInTheQuietTimeEndsInOneWrite)
{
    TempDir dir;
    SysRecorder sys;
    Blk b;
    kavor_hdl h = kavor_create_v2("burst", 500);
    xml_file_hdl f = reg(h, dir.file("net"), "blk", &b);
    // A new manager counts from its start; let that first sweep pass.
    ASSERT_TRUE(f && wait_for([&] { return __atomic_load_n(&h->sv_dly, __ATOMIC_RELAXED) < 0; }));
    for (int i = 1; i <= 6; i++, std::this_thread::sleep_for(std::chrono::milliseconds(40))) {
        set_locked(f, b, i);
        ASSERT_EQ(kavor_save_one(f), 0);
    }
    ASSERT_TRUE(wait_for([&] { return kavor_any_on_saving(h) == nullptr; }));
    EXPECT_TRUE(sys.count("save ") == 1u && parse_exact(dir.file("net"), 0, dir.file("net.xml.gz")).gen() == 6);
    std::this_thread::sleep_for(std::chrono::milliseconds(700));   // nothing left: no second write
    EXPECT_EQ(sys.count("save "), 1u);
    kavor_destroy(h);
}

}  // namespace
