// The engine and helper stand-ins as the library relies on them: a task's
// stop waits for a running process and none follows; semaphores are binary
// and time out on the monotonic clock; mutexes check errors; lists keep
// order and tail through every delete; trace records have one form and go
// to one sink; file sizes and directory making. NULL is refused everywhere
// and a failed allocation leaves nothing. (The allocator and the string
// copies are proven by every sweep of the other tests.)
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "othermisc.h"
#include "test_util.h"
#include "vn_ipc.h"
#include "vn_mem_hook.h"
#include "vn_task.h"
#include "vn_time.h"
#include "vn_trace.h"
#include "zlib_if.h"
#include "zlst.h"

namespace {

struct counting_task {
    vn_task_t head;
    std::atomic<int> calls, inside, after_stop;
    std::atomic<bool> stopped, hold;   // a held process waits for `release`
    VN_SEM_ID entered, release;
};

int32_t process(vn_task_handle h)
{
    auto *t = static_cast<counting_task *>(h);
    t->after_stop += t->stopped.load();
    t->inside = 1, t->calls++;
    vn_sem_give(t->entered);
    if (t->hold)
        vn_sem_take(t->release, 5000);
    t->inside = 0;
    return 0;
}

counting_task *make_task(int32_t (*fn)(vn_task_handle), bool hold = false)
{
    auto *t = static_cast<counting_task *>(vn_task_create("saver", sizeof(counting_task)));
    if (t != nullptr)
        t->entered = vn_semb_create("e", 0), t->release = vn_semb_create("r", 0), t->head.pf_process = fn, t->hold = hold;
    return t;
}

void drop_task(counting_task *t)
{
    vn_sem_delete(t->entered), vn_sem_delete(t->release), vn_task_delete(t);
}

TEST(VnTask, StopWaitsForARunningProcessAndNoneFollows)
{
    counting_task *t = make_task(process, true);
    ASSERT_NE(t, nullptr);
    t->head.stack_size = 4096;   // below the floor: raised, the thread still works
    ASSERT_EQ(vn_task_start(t, 50), 0);
    ASSERT_EQ(vn_sem_take(t->entered, 10000), 0);
    std::atomic<int> inside_at_return{-1};
    std::thread stopper([&] { vn_task_stop(t), inside_at_return = t->inside.load(), t->stopped = true; });
    for (uint64_t t0 = vn_uptime_ms(); !__atomic_load_n(&t->head.exit_ctl, __ATOMIC_ACQUIRE) && vn_delta_ms(t0) < 10000;)
        sched_yield();
    EXPECT_EQ(inside_at_return.load(), -1) << "the stop returned while the process ran";
    vn_sem_give(t->release);
    stopper.join();
    EXPECT_EQ(inside_at_return.load(), 0);
    EXPECT_EQ(t->calls.load(), 1);
    EXPECT_EQ(vn_task_stop(t), 0);   // twice: harmless
    EXPECT_EQ(t->after_stop.load(), 0);
    drop_task(t);
}

TEST(VnTask, StartRefusalsAndARunningTaskDeletedReleaseEverything)
{
    long live = vn_mem_live();
    EXPECT_TRUE(vn_task_start(nullptr, 50) == -1 && vn_task_stop(nullptr) == -1 && vn_task_delete(nullptr) == -1);
    counting_task *t = make_task(nullptr);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(vn_task_start(t, 50), -1) << "no process";
    t->head.pf_process = process;
    vn_mem_fail_nth(1);
    EXPECT_EQ(vn_task_start(t, 50), -1) << "its record can't be allocated";
    EXPECT_EQ(t->head.not_started, 1u);
    EXPECT_EQ(vn_task_stop(t), 0) << "never started: harmless";
    ASSERT_EQ(vn_task_start(t, 50), 0);
    EXPECT_EQ(vn_task_start(t, 50), -1) << "twice";
    for (int i = 0; i < 2; i++)
        ASSERT_EQ(vn_sem_take(t->entered, 10000), 0) << "the process runs again and again";
    drop_task(t);   // stops it first
    vn_mem_fail_nth(1);
    EXPECT_EQ(vn_task_create("x", 64), nullptr);
    EXPECT_EQ(vn_mem_live(), live);
}

TEST(VnSem, BinaryTimedAndWokenFromAnotherThread)
{
    VN_SEM_ID s = vn_semb_create("b", 0), given = vn_semb_create(nullptr, 1);
    ASSERT_TRUE(s && given);
    EXPECT_EQ(vn_sem_take(given, 0), 0);
    EXPECT_EQ(vn_sem_take(given, 0), -1);
    uint64_t t0 = vn_uptime_ms();
    EXPECT_EQ(vn_sem_take(s, 120), -1);
    EXPECT_GE(vn_delta_ms(t0), 115u);   // a little slack for millisecond rounding
    EXPECT_EQ(vn_sem_take(s, 0), -1) << "a take that timed out leaves nothing given";
    std::vector<std::thread> givers;   // however many gives, from however many threads: one take
    for (int i = 0; i < 6; i++)
        givers.emplace_back([s] { for (int k = 0; k < 200; k++) vn_sem_give(s); });
    for (auto &g : givers)
        g.join();
    EXPECT_EQ(vn_sem_take(s, 0), 0);
    EXPECT_EQ(vn_sem_take(s, 10), -1);
    std::thread late([s] { std::this_thread::sleep_for(std::chrono::milliseconds(20)), vn_sem_give(s); });
    EXPECT_EQ(vn_sem_take(s, 20000), 0);
    late.join();
    EXPECT_TRUE(vn_sem_take(nullptr, 10) == -1 && vn_sem_give(nullptr) == -1 && vn_sem_delete(nullptr) == -1);
    vn_sem_delete(s), vn_sem_delete(given);
    long live = vn_mem_live();
    vn_mem_fail_nth(1);
    EXPECT_EQ(vn_semb_create("x", 0), nullptr);
    EXPECT_EQ(vn_mem_live(), live);
}

TEST(VnMutex, ARelockByTheOwnerFailsAndNullIsRefused)
{
    VN_MUTEX_ID m = nullptr, none = nullptr;
    ASSERT_EQ(vn_mutex_init(&m), 0);
    EXPECT_EQ(vn_mutex_lock(&m), 0);
    EXPECT_EQ(vn_mutex_lock(&m), -1);   // error-checking: never hangs
    EXPECT_EQ(vn_mutex_unlock(&m), 0);
    EXPECT_EQ(vn_mutex_destroy(&m), 0);
    EXPECT_EQ(m, nullptr);
    EXPECT_EQ(vn_mutex_init(nullptr), -1);
    for (VN_MUTEX_ID *cell : {static_cast<VN_MUTEX_ID *>(nullptr), &none})
        EXPECT_TRUE(vn_mutex_lock(cell) == -1 && vn_mutex_unlock(cell) == -1 && vn_mutex_destroy(cell) == -1);
    m = reinterpret_cast<VN_MUTEX_ID>(0x1);
    vn_mem_fail_nth(1);
    EXPECT_EQ(vn_mutex_init(&m), -1);
    EXPECT_EQ(m, nullptr);
}

struct item {
    struct znode node;
    int value;
};

// The values from head to end, checking the links and the tail on the way.
std::string walk(zhead_t head)
{
    std::string out;
    struct znode *prev = nullptr;
    for (struct znode *n = head; n; prev = n, n = n->next) {
        EXPECT_EQ(n->prev, prev);
        EXPECT_EQ(n->tail == nullptr, n != head) << "tail kept only on the first node";
        out += std::to_string(reinterpret_cast<item *>(n)->value);
    }
    EXPECT_TRUE(head == nullptr || head->tail == prev) << "tail of the first node is the last node";
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
    EXPECT_EQ(zlst_set_name(&a, "wifi_ap"), 0);
    EXPECT_STREQ(a.node.name, "wifi_ap");
    EXPECT_TRUE(zlst_set_name(nullptr, "x") == -1 && zlst_push(nullptr, &a) == -1 && zlst_push(&head, nullptr) == -1 &&
                zlst_delete(nullptr, &a) == -1 && zlst_delete(&head, nullptr) == -1 && zlst_pop(nullptr) == nullptr);
}

std::mutex g_lock;
std::vector<std::string> g_seen;
int32_t collect(const char *record)
{
    std::lock_guard<std::mutex> hold(g_lock);
    g_seen.emplace_back(record);
    return 0;
}

// "<level> <function>: <message>", records above the module's level dropped,
// long messages whole; to the callback, else appended to the file, else to
// standard error; a NULL handle drops in silence.
TEST(VnTrace, OneRecordFormToOneSink)
{
    TempDir dir;
    const std::string path = dir.file("trace.log"), body = std::string(5000, 'q') + "END";
    ASSERT_TRUE(write_file(path, "old\n"));
    g_seen.clear();
    vorn_trace_handle cb = vorn_mod_trace_init("m", path.c_str(), 5, collect), file = vorn_mod_trace_init("m", path.c_str(), 8, nullptr);
    for (uint32_t level : {1u, 4u, 5u, 6u, 8u}) {
        EXPECT_EQ(vorn_trace_enabled(cb, level) != 0, level <= 5) << level;
        vorn_trace_log(cb, __FILE__, "node2uint", __LINE__, level, "value %d of %s", 7, "x");
    }
    vorn_trace_log(cb, __FILE__, "struM2xml", __LINE__, 4, "%s", body.c_str());
    vorn_trace_log(file, __FILE__, "f", __LINE__, 7, "n=%u", 3u);
    vorn_trace_log(nullptr, __FILE__, "f", __LINE__, 0, "never %s", "seen");
    EXPECT_EQ(vorn_trace_enabled(nullptr, 0), 0);
    EXPECT_EQ(g_seen, (std::vector<std::string>{"1 node2uint: value 7 of x", "4 node2uint: value 7 of x",
                                                "5 node2uint: value 7 of x", "4 struM2xml: " + body}));
    EXPECT_EQ(read_file(path), "old\n7 f: n=3\n");
    for (const char *none : {static_cast<const char *>(nullptr), ""}) {
        vorn_trace_handle err = vorn_mod_trace_init("m", none, 8, nullptr);
        testing::internal::CaptureStderr();
        vorn_trace_log(err, __FILE__, "xml2param", __LINE__, 4, "bad %s", "row");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "4 xml2param: bad row\n");
        vorn_mod_trace_free(err);
    }
    vorn_mod_trace_free(cb), vorn_mod_trace_free(file), vorn_mod_trace_free(nullptr);
}

// Text from a document or a name can't forge a record: control bytes, DEL
// and the backslash are written escaped, so a record stays one line and
// reads back unambiguously; other bytes (UTF-8 included) pass as they are.
// A module that can't be allocated is NULL; a long record whose block can't
// be had is delivered cut to 1023 bytes, never inside an escape.
TEST(VnTrace, ControlBytesAreEscapedAndAFailedAllocationCutsARecord)
{
    TempDir dir;
    vorn_trace_handle cb = vorn_mod_trace_init("m", nullptr, 8, collect), file = vorn_mod_trace_init("m", dir.file("t.log").c_str(), 8, nullptr);
    const struct { std::string text, shown; } rows[] = {
        {"v(x\n8 node2sint: forged)", "v(x\\n8 node2sint: forged)"}, {"tab\tcr\r", "tab\\tcr\\r"},
        {"\x01\x1b\x7f", "\\x01\\x1b\\x7f"}, {"a\\n is no line end", "a\\\\n is no line end"},
        {"utf-8 \xc3\xa9 stays", "utf-8 \xc3\xa9 stays"}, {std::string(2000, '\n'), repeat("\\n", 2000)},
    };
    g_seen.clear();
    std::string lines;
    for (const auto &r : rows) {
        vorn_trace_log(cb, __FILE__, "node2sint", __LINE__, 8, "%s", r.text.c_str());
        vorn_trace_log(file, __FILE__, "node2sint", __LINE__, 8, "%s", r.text.c_str());
        lines += "8 node2sint: " + r.shown + "\n";
    }
    EXPECT_EQ(read_file(dir.file("t.log")), lines);
    std::string seen;
    for (const auto &r : g_seen)
        seen += r + "\n";
    EXPECT_EQ(seen, lines);
    vn_mem_fail_nth(1);
    EXPECT_EQ(vorn_mod_trace_init("m", "x.log", 8, collect), nullptr);
    for (const auto &r : {std::make_pair(std::string(5000, 'q'), std::string(1018, 'q')),
                          std::make_pair(std::string(600, '\n'), repeat("\\n", 509))}) {   // only its escaped form is long
        g_seen.clear();
        vn_mem_fail_nth(1);
        vorn_trace_log(cb, __FILE__, "f", __LINE__, 4, "%s", r.first.c_str());
        vn_mem_fail_nth(0);
        EXPECT_EQ(g_seen, std::vector<std::string>{"4 f: " + r.second});
    }
    vorn_mod_trace_free(cb), vorn_mod_trace_free(file);
}

bool is_dir(const std::string &p, mode_t mode)
{
    struct stat st;
    return stat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && (st.st_mode & 0777) == mode;
}

TEST(FileHelpers, SizesAndDirectoriesMade)
{
    TempDir dir;
    ASSERT_TRUE(write_file(dir.file("a.xml"), "<a/>") && write_file(dir.file("empty.xml"), "") && write_file(dir.file("blocker"), "x"));
    EXPECT_EQ(get_gz_filesize(dir.file("a.xml").c_str()), 4);
    for (const std::string &p : {dir.file("empty.xml"), dir.file("missing.xml"), dir.path()})   // a directory: 0 too
        EXPECT_EQ(get_gz_filesize(p.c_str()), 0) << p;
    EXPECT_EQ(get_gz_filesize(nullptr), 0);
    mode_t old = umask(022);
    EXPECT_EQ(make_dir_from_filename(dir.file("a/b/c/file.xml").c_str(), 777), 0);
    EXPECT_TRUE(is_dir(dir.file("a/b"), 0755) && is_dir(dir.file("a/b/c"), 0755));   // 0777 limited by the umask
    EXPECT_FALSE(file_exists(dir.file("a/b/c/file.xml")));
    EXPECT_EQ(make_dir_from_filename(dir.file("m//n/f").c_str(), 700), 0);
    EXPECT_TRUE(is_dir(dir.file("m/n"), 0700));
    umask(old);
    for (const char *done : {"a/b/c/file.xml", "plain.xml", "/f.xml"})   // existing, or no directory part
        EXPECT_EQ(make_dir_from_filename(*done == '/' || *done == 'p' ? done : dir.file(done).c_str(), 777), 0) << done;
    EXPECT_FALSE(file_exists("plain.xml"));
    for (const std::string &p : {dir.file("blocker/f.xml"), dir.file("blocker/sub/f.xml")})
        EXPECT_EQ(make_dir_from_filename(p.c_str(), 777), -1) << p;
    EXPECT_EQ(read_file(dir.file("blocker")), "x");
    EXPECT_EQ(make_dir_from_filename(nullptr, 777), -1);
    EXPECT_EQ(make_dir_from_filename(dir.file("d/f").c_str(), 778), -1);   // 8 is no octal digit
    EXPECT_EQ(make_dir_from_filename(dir.file("d/f").c_str(), -1), -1);
    vn_mem_fail_nth(1);   // its copy of the path can't be had
    EXPECT_EQ(make_dir_from_filename(dir.file("d/f").c_str(), 777), -1);
    EXPECT_FALSE(file_exists(dir.file("d")));
}

}  // namespace
