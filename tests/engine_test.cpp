// The engine and helper stand-ins as the library relies on them: a task's
// stop waits for a running process and none follows; semaphores are binary
// and time out on the monotonic clock; mutexes check errors; lists keep
// their order and their tail through every delete; NULL is refused
// everywhere and a failed allocation leaves nothing behind. (Allocation
// and string copies are proven by every sweep of the other tests.)
#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "vn_ipc.h"
#include "vn_mem_hook.h"
#include "vn_task.h"
#include "vn_time.h"
#include "zlst.h"

namespace {

struct counting_task {
    vn_task_t head;
    std::atomic<int> calls, inside, after_stop;
    std::atomic<bool> stopped, hold;
    VN_SEM_ID entered, release;   // given when the process starts; awaited by a held one
};

int32_t process(vn_task_handle h)
{
    auto *t = static_cast<counting_task *>(h);
    t->after_stop += t->stopped.load();
    t->inside = 1;
    t->calls++;
    vn_sem_give(t->entered);
    if (t->hold)
        vn_sem_take(t->release, 5000);
    t->inside = 0;
    return 0;
}

counting_task *make_task(int32_t (*fn)(vn_task_handle), bool hold = false)
{
    auto *t = static_cast<counting_task *>(vn_task_create("saver", sizeof(counting_task)));
    if (t != nullptr) {
        t->entered = vn_semb_create("entered", 0), t->release = vn_semb_create("release", 0);
        t->head.pf_process = fn, t->hold = hold;
    }
    return t;
}

void drop_task(counting_task *t)
{
    vn_sem_delete(t->entered);
    vn_sem_delete(t->release);
    vn_task_delete(t);
}

TEST(VnTask, StopWaitsForARunningProcessAndNoneFollows)
{
    counting_task *t = make_task(process, true);
    ASSERT_NE(t, nullptr);
    t->head.stack_size = 4096;   // below the floor: raised, the thread still works
    ASSERT_EQ(vn_task_start(t, 50), 0);
    ASSERT_EQ(vn_sem_take(t->entered, 10000), 0);
    std::atomic<int> inside_at_return{-1};
    std::thread stopper([&] {
        vn_task_stop(t);
        inside_at_return = t->inside.load();
        t->stopped = true;
    });
    uint64_t t0 = vn_uptime_ms();
    while (__atomic_load_n(&t->head.exit_ctl, __ATOMIC_ACQUIRE) == 0 && vn_delta_ms(t0) < 10000)
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
    EXPECT_EQ(vn_task_start(nullptr, 50), -1);
    EXPECT_EQ(vn_task_stop(nullptr), -1);
    EXPECT_EQ(vn_task_delete(nullptr), -1);
    counting_task *t = make_task(nullptr);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(vn_task_start(t, 50), -1) << "no process";
    t->head.pf_process = process;
    vn_mem_fail_nth(1);
    EXPECT_EQ(vn_task_start(t, 50), -1) << "its record can't be allocated";
    EXPECT_EQ(t->head.not_started, 1u);
    EXPECT_EQ(vn_task_stop(t), 0) << "never started: harmless";
    EXPECT_EQ(t->calls.load(), 0);
    ASSERT_EQ(vn_task_start(t, 50), 0);
    EXPECT_EQ(vn_task_start(t, 50), -1) << "twice";
    ASSERT_EQ(vn_sem_take(t->entered, 10000), 0);
    ASSERT_EQ(vn_sem_take(t->entered, 10000), 0) << "the process runs again and again";
    drop_task(t);   // stops it first
    EXPECT_EQ(vn_mem_live(), live);
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
    // However many gives, from however many threads, allow one take.
    std::vector<std::thread> givers;
    for (int i = 0; i < 6; i++)
        givers.emplace_back([s] { for (int k = 0; k < 200; k++) vn_sem_give(s); });
    for (auto &g : givers)
        g.join();
    EXPECT_EQ(vn_sem_take(s, 0), 0);
    EXPECT_EQ(vn_sem_take(s, 10), -1);
    std::thread late([s] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); vn_sem_give(s); });
    EXPECT_EQ(vn_sem_take(s, 20000), 0);
    late.join();
    EXPECT_EQ(vn_sem_take(nullptr, 10), -1);
    EXPECT_EQ(vn_sem_give(nullptr), -1);
    EXPECT_EQ(vn_sem_delete(nullptr), -1);
    vn_sem_delete(s);
    vn_sem_delete(given);
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
    for (VN_MUTEX_ID *cell : {static_cast<VN_MUTEX_ID *>(nullptr), &none}) {
        EXPECT_EQ(vn_mutex_lock(cell), -1);
        EXPECT_EQ(vn_mutex_unlock(cell), -1);
        EXPECT_EQ(vn_mutex_destroy(cell), -1);
    }
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
        for (int v : r.victims) {
            ASSERT_EQ(zlst_delete(&head, &it[v]), 0);
            EXPECT_TRUE(it[v].node.next == nullptr && it[v].node.prev == nullptr);
        }
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
    EXPECT_EQ(zlst_set_name(nullptr, "x"), -1);
    EXPECT_EQ(zlst_push(nullptr, &a), -1);
    EXPECT_EQ(zlst_push(&head, nullptr), -1);
    EXPECT_EQ(zlst_delete(nullptr, &a), -1);
    EXPECT_EQ(zlst_delete(&head, nullptr), -1);
    EXPECT_EQ(zlst_pop(nullptr), nullptr);
}

}  // namespace
