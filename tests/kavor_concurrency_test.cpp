// Threads on one manager within the lock rules, under TSan too: workers register, change, save, load and
// unregister files of their own and share one that a loader keeps loading while a marker marks and queries;
// requests from many threads while the task sweeps lose no mark.

#include "kavor_fixture.h"
#include "vn_mem_hook.h"

using namespace kvtest;

namespace {

TEST(KavorConcurrency, ThreadsRegisterSaveLoadLockAndUnregisterOnOneManager)
{
    const int kWorkers = 4, kRounds = 30;
    TempDir dir;
    SysRecorder sys;   // sync does nothing: the file system is not under test
    TraceCapture cap(4);
    long live = vn_mem_live();
    kavor_hdl h = kavor_create_v2("conc", 0);
    ASSERT_NE(h, nullptr);
    xml_file_hdl shared[kWorkers];
    Blk shared_blk[kWorkers];
    for (int t = 0; t < kWorkers; t++)
        ASSERT_NE((fill(shared_blk[t], t), shared[t] = reg(h, dir.file("shared"), ("n" + std::to_string(t)).c_str(), &shared_blk[t])), nullptr);
    std::atomic<bool> stop{false};
    std::atomic<int> failures{0};
    auto worker = [&](int t) {
        Blk own;
        for (int round = 0; round < kRounds && failures == 0; round++) {
            const int32_t gen = t * 1000 + round;
            xml_file_hdl fo = reg(h, dir.file("own" + std::to_string(t)), "blk", &own, t % 2);   // plain and gzip
            if (fo == nullptr && ++failures)
                break;
            set_locked(fo, own, gen), set_locked(shared[t], shared_blk[t], gen);
            bool ok = kavor_save_one(fo) == 0 && kavor_save_one(shared[t]) == 0 &&
                      wait_for([&] { return kavor_file_on_saving(fo) == 0; }, 60) && kavor_load_one(fo) == 0;
            kavor_file_lock(fo);
            failures += !ok || whole_gen(own) != gen;   // the own file comes back as this thread left it
            kavor_file_unlock(fo);
            kavor_unregister(fo);
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < kWorkers; t++)
        threads.emplace_back(worker, t);
    std::thread marker([&] {
        uint8_t buf[512];
        for (; !stop; std::this_thread::sleep_for(std::chrono::milliseconds(3))) {
            kavor_save_all(h);
            failures += kavor_count_all_filename(h) < 1;   // the shared file is always there
            kavor_get_all_filename(h, buf, sizeof buf);
            (void)kavor_any_on_saving(h);   // a name that may go at once: not read
        }
    });
    std::thread loader([&] {   // only the shared file: an own file's load would race its thread's change
        for (; !stop; std::this_thread::sleep_for(std::chrono::milliseconds(2))) {
            bool existed = file_exists(dir.file("shared.xml.gz"));
            failures += kavor_load_one(shared[0]) == -1 && existed;
        }
    });
    for (auto &th : threads)
        th.join();
    stop = true, marker.join(), loader.join();
    ASSERT_EQ(failures.load(), 0) << cap.dump();
    // The shared file ends with each node's last block.
    for (int t = 0; t < kWorkers; t++)
        set_locked(shared[t], shared_blk[t], 5000 + t);
    ASSERT_TRUE(kavor_save_one(shared[0]) == 0 && wait_for([&] { return kavor_any_on_saving(h) == nullptr; }, 60));
    for (int t = 0; t < kWorkers; t++)
        set_locked(shared[t], shared_blk[t], 0);
    EXPECT_EQ(kavor_load_all(h), 0);
    for (int t = 0; t < kWorkers; t++)
        EXPECT_EQ(whole_gen(shared_blk[t]), 5000 + t);
    EXPECT_EQ(kavor_count_all_filename(h), 1u);
    kavor_destroy(h);
    EXPECT_TRUE(vn_mem_live() == live && cap.count_at_most(4) == 0u) << cap.dump();
}

TEST(KavorConcurrency, RequestsFromManyThreadsWhileTheTaskSweepsLoseNoMark)
{
    // Requests land in every state of the file; when all have ended, one
    // more wait must find the file saved with the last content.
    TempDir dir;
    SysRecorder sys;
    kavor_hdl h = kavor_create_v2("marks", 0);
    Blk b;
    fill(b, 0);
    xml_file_hdl f = reg(h, dir.file("net"), "blk", &b, 1);
    std::atomic<int> next{1};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++)
        threads.emplace_back([&] {
            for (int i = 0; i < 40; i++, std::this_thread::yield())
                set_locked(f, b, next++), kavor_save_one(f);
        });
    for (auto &th : threads)
        th.join();
    ASSERT_TRUE(wait_for([&] { return kavor_file_on_saving(f) == 0; }, 60));
    kavor_destroy(h);   // the task has ended: the block is still
    int32_t last = b.gen;
    Loaded back = load_as_restart(dir.file("net"), 1);
    EXPECT_TRUE(back.ret == 0 && back.gen() == last) << back.ret;
}

}  // namespace
