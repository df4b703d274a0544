// The engine and helper stand-ins as the library relies on them; the
// allocator and string copies are proven by every sweep of the other tests.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "othermisc.h"
#include "test_util.h"
#include "vn_ipc.h"
#include "vn_mem_hook.h"
#include "vn_task.h"
#include "vn_time.h"
#include "vn_trace.h"
#include "zlst.h"

namespace {

struct counting_task {
    vn_task_t head;
    std::atomic<int> calls, inside;
    VN_SEM_ID entered, release;   // given as the process starts; awaited by it
};

int32_t process(vn_task_handle h)
{
    auto *t = static_cast<counting_task *>(h);
    t->inside = 1, t->calls++;
    vn_sem_give(t->entered);
    vn_sem_take(t->release, 5000);
    t->inside = 0;
    return 0;
}

// A stop waits for a running process and none follows; stopping twice, or
// a task never started, is harmless; start refusals; a running task deleted
// releases everything.
TEST(VnTask, StopWaitsForARunningProcessAndNoneFollows)
{
    long live = vn_mem_live();
    auto *t = static_cast<counting_task *>(vn_task_create("saver", sizeof(counting_task)));
    ASSERT_NE(t, nullptr);
    t->entered = vn_semb_create("e", 0), t->release = vn_semb_create("r", 0), t->head.stack_size = 4096;
    EXPECT_TRUE(vn_task_start(nullptr, 50) == -1 && vn_task_stop(nullptr) == -1 && vn_task_delete(nullptr) == -1);
    EXPECT_EQ(vn_task_start(t, 50), -1) << "no process";
    t->head.pf_process = process;
    vn_mem_fail_nth(1);
    EXPECT_EQ(vn_task_start(t, 50), -1) << "its record can't be allocated";
    EXPECT_EQ(vn_task_stop(t), 0) << "never started";
    ASSERT_EQ(vn_task_start(t, 50), 0);
    EXPECT_EQ(vn_task_start(t, 50), -1) << "twice";
    ASSERT_EQ(vn_sem_take(t->entered, 10000), 0);
    std::atomic<int> inside_at_return{-1}, calls_at_return{0};
    std::thread stopper([&] { vn_task_stop(t), inside_at_return = t->inside.load(), calls_at_return = t->calls.load(); });
    for (uint64_t t0 = vn_uptime_ms(); !__atomic_load_n(&t->head.exit_ctl, __ATOMIC_ACQUIRE) && vn_delta_ms(t0) < 10000;)
        sched_yield();
    EXPECT_EQ(inside_at_return.load(), -1) << "the stop returned while the process ran";
    vn_sem_give(t->release);
    stopper.join();
    EXPECT_EQ(inside_at_return.load(), 0);
    EXPECT_EQ(t->calls.load(), calls_at_return.load()) << "a process ran after the stop";
    EXPECT_EQ(vn_task_stop(t), 0);
    vn_sem_delete(t->entered), vn_sem_delete(t->release), vn_task_delete(t);
    vn_mem_fail_nth(1);
    EXPECT_EQ(vn_task_create("x", 64), nullptr);
    EXPECT_EQ(vn_mem_live(), live);
}

// A semaphore is binary (however many gives, from however many threads,
// allow one take), and a take times out and leaves nothing given.
TEST(VnSem, BinaryAndTimed)
{
    VN_SEM_ID s = vn_semb_create("b", 0);
    uint64_t t0 = vn_uptime_ms();
    EXPECT_TRUE(vn_sem_take(s, 120) == -1 && vn_delta_ms(t0) >= 115u && vn_sem_take(s, 0) == -1);
    std::vector<std::thread> givers;
    for (int i = 0; i < 6; i++)
        givers.emplace_back([s] { for (int k = 0; k < 200; k++) vn_sem_give(s); });
    for (auto &g : givers)
        g.join();
    EXPECT_TRUE(vn_sem_take(s, 0) == 0 && vn_sem_take(s, 10) == -1);
    vn_sem_delete(s);
}

struct item { struct znode node; int value; };

// The values from head to end, checking the links and the tail on the way.
std::string walk(zhead_t head)
{
    std::string out;
    struct znode *prev = nullptr;
    for (struct znode *n = head; n; prev = n, n = n->next) {
        EXPECT_TRUE(n->prev == prev && (n->tail == nullptr) == (n != head)) << "links, and the tail on the first node only";
        out += std::to_string(reinterpret_cast<item *>(n)->value);
    }
    EXPECT_TRUE(head == nullptr || head->tail == prev) << "the tail is the last node";
    return out;
}

TEST(Zlst, OrderAndTailSurviveEveryDeleteAndPop)
{
    const struct { std::vector<int> victims; const char *want; } rows[] = {
        {{0}, "1234"}, {{2}, "0134"}, {{4}, "0123"}, {{3}, "0124"}, {{1}, "0234"}, {{4, 0, 2, 1, 3}, ""}};
    for (const auto &r : rows) {
        item it[5] = {}, extra = {{}, 9};
        zhead_t head = nullptr;
        for (int i = 0; i < 5; ++i)
            it[i].value = i, zlst_push(&head, &it[i]);
        for (int v : r.victims)
            EXPECT_TRUE(zlst_delete(&head, &it[v]) == 0 && !it[v].node.next && !it[v].node.prev);
        EXPECT_EQ(walk(head), r.want);
        EXPECT_EQ(zlst_delete(&head, &it[r.victims[0]]), -1) << "not on the list";
        zlst_push(&head, &extra);   // the tail must still be right for the next push
        EXPECT_EQ(walk(head), std::string(r.want) + "9");
        for (char c : std::string(r.want) + "9")
            EXPECT_EQ(reinterpret_cast<item *>(zlst_pop(&head))->value, c - '0');
        EXPECT_EQ(zlst_pop(&head), nullptr);
    }
    item a = {};
    zhead_t head = nullptr;
    EXPECT_TRUE(zlst_set_name(&a, "wifi_ap") == 0 && std::string(a.node.name) == "wifi_ap");
    EXPECT_TRUE(zlst_set_name(nullptr, "x") == -1 && zlst_push(nullptr, &a) == -1 && zlst_push(&head, nullptr) == -1 &&
                zlst_delete(nullptr, &a) == -1 && zlst_delete(&head, nullptr) == -1 && zlst_pop(nullptr) == nullptr);
}

std::mutex g_lock;
std::string g_seen;
int32_t collect(const char *record)
{
    std::lock_guard<std::mutex> hold(g_lock);
    return g_seen += record + std::string("\n"), 0;
}

// "<level> <function>: <message>", above the module's level dropped, long
// messages whole, control bytes, DEL and the backslash escaped (a record
// can't forge another); to the callback, else appended to the file, else to
// standard error; a NULL handle drops in silence. A module that can't be
// allocated is NULL; a long record whose block can't be had is cut to 1023
// bytes, never inside an escape.
TEST(VnTrace, OneEscapedRecordFormToOneSink)
{
    TempDir dir;
    const std::string path = dir.file("t.log"), body = std::string(5000, 'q') + "END";
    ASSERT_TRUE(write_file(path, "old\n"));
    vorn_trace_handle cb = vorn_mod_trace_init("m", path.c_str(), 5, collect), file = vorn_mod_trace_init("m", path.c_str(), 8, nullptr);
    const struct { uint32_t level; std::string text, shown; } rows[] = {
        {1, "v 7", "v 7"}, {6, "dropped", ""}, {4, body, body}, {5, "v(x\n8 f: forged)", "v(x\\n8 f: forged)"},
        {5, "tab\tcr\r\x01\x1b\x7f", "tab\\tcr\\r\\x01\\x1b\\x7f"}, {5, "a\\n, \xc3\xa9", "a\\\\n, \xc3\xa9"},
        {5, std::string(2000, '\n'), repeat("\\n", 2000)},
    };
    std::string want, lines = "old\n";
    g_seen.clear();
    for (const auto &r : rows) {
        EXPECT_EQ(vorn_trace_enabled(cb, r.level) != 0, r.level <= 5);
        vorn_trace_log(cb, __FILE__, "f", __LINE__, r.level, "%s", r.text.c_str());
        vorn_trace_log(file, __FILE__, "f", __LINE__, 8, "%s", r.text.c_str());
        want += r.level <= 5 ? std::to_string(r.level) + " f: " + r.shown + "\n" : "";
        lines += "8 f: " + (r.level <= 5 ? r.shown : r.text) + "\n";
    }
    vorn_trace_log(nullptr, __FILE__, "f", __LINE__, 0, "never %s", "seen");
    EXPECT_EQ(vorn_trace_enabled(nullptr, 0), 0);
    EXPECT_EQ(g_seen, want);
    EXPECT_EQ(read_file(path), lines);
    for (const char *none : {static_cast<const char *>(nullptr), ""}) {
        vorn_trace_handle err = vorn_mod_trace_init("m", none, 8, nullptr);
        testing::internal::CaptureStderr();
        vorn_trace_log(err, __FILE__, "xml2param", __LINE__, 4, "bad %s", "row");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "4 xml2param: bad row\n");
        vorn_mod_trace_free(err);
    }
    vn_mem_fail_nth(1);
    EXPECT_EQ(vorn_mod_trace_init("m", "x.log", 8, collect), nullptr);
    for (const auto &r : {std::make_pair(std::string(5000, 'q'), std::string(1018, 'q')),
                          std::make_pair(std::string(600, '\n'), repeat("\\n", 509))}) {   // only its escaped form is long
        g_seen.clear();
        vn_mem_fail_nth(1);
        vorn_trace_log(cb, __FILE__, "f", __LINE__, 4, "%s", r.first.c_str());
        vn_mem_fail_nth(0);
        EXPECT_EQ(g_seen, "4 f: " + r.second + "\n");
    }
    vorn_mod_trace_free(cb), vorn_mod_trace_free(file), vorn_mod_trace_free(nullptr);
}

bool is_dir(const std::string &p, mode_t mode)
{
    struct stat st;
    return stat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && (st.st_mode & 0777) == mode;
}

TEST(FileHelpers, TheDirectoriesMade)
{
    TempDir dir;
    ASSERT_TRUE(write_file(dir.file("blocker"), "x"));
    EXPECT_EQ(make_dir_from_filename(nullptr, 777), -1);
    const struct { std::string path; int32_t mode, ret; } rows[] = {
        {dir.file("a/b/c/file.xml"), 777, 0}, {dir.file("m//n/f"), 700, 0},
        {dir.file("a/b/c/file.xml"), 777, 0}, {"plain.xml", 777, 0}, {"/f.xml", 777, 0},   // made, or no directory part
        {dir.file("blocker/f.xml"), 777, -1}, {dir.file("blocker/sub/f.xml"), 777, -1},
        {dir.file("d/f"), 778, -1}, {dir.file("d/f"), -1, -1},   // 8 is no octal digit
    };
    mode_t old = umask(022);
    for (const auto &r : rows)
        EXPECT_EQ(make_dir_from_filename(r.path.c_str(), r.mode), r.ret) << r.path << " " << r.mode;
    umask(old);
    // 777 is 0755 under the umask
    EXPECT_TRUE(is_dir(dir.file("a/b"), 0755) && is_dir(dir.file("a/b/c"), 0755) && is_dir(dir.file("m/n"), 0700));
    EXPECT_EQ(read_file(dir.file("blocker")), "x");
    vn_mem_fail_nth(1);   // its copy of the path can't be had
    EXPECT_EQ(make_dir_from_filename(dir.file("d/f").c_str(), 777), -1);
    EXPECT_FALSE(file_exists(dir.file("a/b/c/file.xml")) || file_exists(dir.file("d")) || file_exists("plain.xml"));
}

}  // namespace
