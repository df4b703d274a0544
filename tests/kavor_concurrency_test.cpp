// Several threads on one manager, within the lock rules: each registers a
// file of its own per round, changes its blocks under the file lock, asks
// for saves, waits for them, loads the file back and unregisters it. All of
// them share one more file that another thread keeps loading, and one more
// thread marks every file and queries the manager. Every own file must come
// back as its thread left it; the shared file must end with a whole block
// per node. Run under ThreadSanitizer too.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "kavor_fixture.h"
#include "trace_capture.h"
#include "vn_mem_hook.h"

using namespace kvtest;

namespace {

const int kWorkers = 4;
const int kRounds = 30;

struct Shared {
    kavor_hdl h;
    TempDir *dir;
    xml_file_hdl shared[kWorkers];
    Blk shared_blk[kWorkers];
    std::atomic<int> failures{0};
    std::atomic<bool> stop{false};
};

void fail(Shared &s, const std::string &what)
{
    s.failures++;
    ADD_FAILURE() << what;
}

void worker(Shared &s, int t)
{
    Blk own;
    const std::string path = s.dir->file("own" + std::to_string(t));
    xml_file_hdl fs = s.shared[t];
    for (int round = 0; round < kRounds && s.failures == 0; round++) {
        const int32_t gen = t * 1000 + round;
        // Odd threads keep their files plain, even ones compressed.
        xml_file_hdl fo = reg(s.h, path, "blk", &own, t % 2);
        if (fo == nullptr)
            return fail(s, "registration refused");
        kavor_file_lock(fo);
        fill(own, gen);
        kavor_file_unlock(fo);
        kavor_file_lock(fs);
        fill(s.shared_blk[t], gen);
        kavor_file_unlock(fs);
        if (kavor_save_one(fo) != 0 || kavor_save_one(fs) != 0)
            return fail(s, "save request refused");
        if (!wait_for([&] { return kavor_file_on_saving(fo) == 0; }, 60))
            return fail(s, "own file never saved");
        if (kavor_load_one(fo) != 0)
            return fail(s, "own file did not load");
        kavor_file_lock(fo);
        int32_t back = whole_gen(own);
        kavor_file_unlock(fo);
        if (back != gen)
            return fail(s, "own file came back as " + std::to_string(back) + ", not " +
                               std::to_string(gen));
        kavor_unregister(fo);
    }
}

void marker(Shared &s)
{
    uint8_t buf[512];
    while (!s.stop) {
        kavor_save_all(s.h);
        if (kavor_count_all_filename(s.h) < 1)
            fail(s, "the shared file is missing from the manager");
        kavor_get_all_filename(s.h, buf, sizeof(buf));
        (void)kavor_any_on_saving(s.h);   // a name that may go at once: not read
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
    }
}

void loader(Shared &s)
{
    // Only the shared file: a load of a worker's own file would put an
    // older copy into its block between its change and its save.
    while (!s.stop) {
        bool existed = file_exists(s.dir->file("shared.xml.gz"));
        if (kavor_load_one(s.shared[0]) == -1 && existed)
            fail(s, "the shared file exists and did not load");
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

TEST(KavorConcurrency, ThreadsRegisterSaveLoadLockAndUnregisterOnOneManager)
{
    TempDir dir;
    SysRecorder sys;   // sync does nothing: the file system is not under test
    TraceCapture cap(5);
    long live = vn_mem_live();
    Shared s;
    s.dir = &dir;
    s.h = kavor_create_v2("conc", 0);
    ASSERT_NE(s.h, nullptr);
    for (int t = 0; t < kWorkers; t++) {
        fill(s.shared_blk[t], t);
        std::string node = "n" + std::to_string(t);
        s.shared[t] = reg(s.h, dir.file("shared"), node.c_str(), &s.shared_blk[t]);
        ASSERT_NE(s.shared[t], nullptr);
    }
    std::vector<std::thread> threads;
    for (int t = 0; t < kWorkers; t++)
        threads.emplace_back(worker, std::ref(s), t);
    std::thread mark(marker, std::ref(s));
    std::thread load(loader, std::ref(s));
    for (auto &th : threads)
        th.join();
    s.stop = true;
    mark.join();
    load.join();
    ASSERT_EQ(s.failures.load(), 0) << cap.dump();

    // The shared file ends with each node's last block.
    for (int t = 0; t < kWorkers; t++) {
        kavor_file_lock(s.shared[t]);
        fill(s.shared_blk[t], 5000 + t);
        kavor_file_unlock(s.shared[t]);
    }
    ASSERT_EQ(kavor_save_one(s.shared[0]), 0);
    ASSERT_TRUE(wait_for([&] { return kavor_any_on_saving(s.h) == nullptr; }, 60));
    for (int t = 0; t < kWorkers; t++) {
        kavor_file_lock(s.shared[t]);
        memset(&s.shared_blk[t], 0, sizeof(Blk));
        kavor_file_unlock(s.shared[t]);
    }
    EXPECT_EQ(kavor_load_all(s.h), 0);
    for (int t = 0; t < kWorkers; t++)
        EXPECT_EQ(whole_gen(s.shared_blk[t]), 5000 + t);
    EXPECT_EQ(kavor_count_all_filename(s.h), 1u);
    kavor_destroy(s.h);
    EXPECT_EQ(vn_mem_live(), live);
    EXPECT_EQ(cap.count_at_most(4), 0u) << cap.dump();
}

TEST(KavorConcurrency, RequestsFromManyThreadsWhileTheTaskSweepsLoseNoMark)
{
    // Requests land in every state of the file; when all requests have
    // ended, one more wait must find the file saved with the last content.
    TempDir dir;
    SysRecorder sys;
    kavor_hdl h = kavor_create_v2("marks", 0);
    ASSERT_NE(h, nullptr);
    Blk b;
    fill(b, 0);
    xml_file_hdl f = reg(h, dir.file("net"), "blk", &b, 1);
    std::atomic<int> next{1};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++)
        threads.emplace_back([&] {
            for (int i = 0; i < 40; i++) {
                kavor_file_lock(f);
                fill(b, next++);
                kavor_file_unlock(f);
                kavor_save_one(f);
                std::this_thread::yield();
            }
        });
    for (auto &th : threads)
        th.join();
    ASSERT_TRUE(wait_for([&] { return kavor_file_on_saving(f) == 0; }, 60));
    kavor_file_lock(f);
    int32_t last = b.gen;
    kavor_file_unlock(f);
    kavor_destroy(h);
    Loaded back = load_as_restart(dir.file("net"), 1);
    EXPECT_EQ(back.ret, 0);
    EXPECT_EQ(back.gen(), last);
}

}  // namespace
