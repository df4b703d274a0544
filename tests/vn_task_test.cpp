// Tests of engine tasks: record creation, the run loop, and a stop that waits
// for a running pf_process and guarantees none runs afterwards.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>

#include "vn_ipc.h"
#include "vn_mem_hook.h"
#include "vn_task.h"
#include "vn_time.h"

namespace {

struct counting_task {
    vn_task_t head;
    std::atomic<int> calls;
    std::atomic<int> inside;      // 1 while pf_process runs
    std::atomic<int> after_stop;  // calls that began after stop returned
    std::atomic<bool> stopped;
    VN_SEM_ID entered;            // given when pf_process starts
    VN_SEM_ID release;            // pf_process waits on it
};

int32_t blocking_process(vn_task_handle h)
{
    auto *t = static_cast<counting_task *>(h);
    if (t->stopped.load())
        t->after_stop++;
    t->inside = 1;
    t->calls++;
    vn_sem_give(t->entered);
    vn_sem_take(t->release, 5000);
    t->inside = 0;
    return 0;
}

int32_t quick_process(vn_task_handle h)
{
    auto *t = static_cast<counting_task *>(h);
    if (t->stopped.load())
        t->after_stop++;
    t->calls++;
    return 0;
}

counting_task *make_task(int32_t (*fn)(vn_task_handle))
{
    auto *t = static_cast<counting_task *>(vn_task_create("saver", sizeof(counting_task)));
    if (!t)
        return nullptr;
    t->entered = vn_semb_create("entered", 0);
    t->release = vn_semb_create("release", 0);
    t->head.pf_process = fn;
    return t;
}

void drop_task(counting_task *t)
{
    vn_sem_delete(t->entered);
    vn_sem_delete(t->release);
    vn_task_delete(t);
}

bool poll_until(const std::atomic<int> &v, int at_least, uint64_t limit_ms = 10000)
{
    uint64_t t0 = vn_uptime_ms();
    while (v.load() < at_least) {
        if (vn_delta_ms(t0) > limit_ms)
            return false;
        sched_yield();
    }
    return true;
}

TEST(VnTask, CreateGivesZeroFilledRecordWithNameAndNotStarted)
{
    auto *t = static_cast<unsigned char *>(vn_task_create("abc", sizeof(vn_task_t) + 64));
    ASSERT_NE(t, nullptr);
    auto *head = reinterpret_cast<vn_task_t *>(t);
    EXPECT_STREQ(head->task_name, "abc");
    EXPECT_EQ(head->not_started, 1u);
    EXPECT_EQ(head->tsk_id, nullptr);
    EXPECT_EQ(head->pf_process, nullptr);
    for (size_t i = sizeof(vn_task_t); i < sizeof(vn_task_t) + 64; ++i)
        ASSERT_EQ(t[i], 0) << "byte " << i;
    vn_task_delete(t);
}

TEST(VnTask, NamesAreTruncatedAndNullGivesEmpty)
{
    std::string longname(100, 'n');
    auto *a = static_cast<vn_task_t *>(vn_task_create(longname.c_str(), 0));
    ASSERT_NE(a, nullptr);   // a size below the head still gets the head
    EXPECT_EQ(std::strlen(a->task_name), sizeof a->task_name - 1);
    auto *b = static_cast<vn_task_t *>(vn_task_create(nullptr, sizeof(vn_task_t)));
    ASSERT_NE(b, nullptr);
    EXPECT_STREQ(b->task_name, "");
    vn_task_delete(a);
    vn_task_delete(b);
}

TEST(VnTask, CreateFailsWhenAllocationFails)
{
    long live = vn_mem_live();
    vn_mem_fail_nth(1);
    EXPECT_EQ(vn_task_create("x", sizeof(vn_task_t)), nullptr);
    EXPECT_EQ(vn_mem_live(), live);
}

TEST(VnTask, StartRefusesWithoutProcessTwiceOrNull)
{
    EXPECT_EQ(vn_task_start(nullptr, 50), -1);
    counting_task *t = make_task(nullptr);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(vn_task_start(t, 50), -1);
    EXPECT_EQ(t->head.not_started, 1u);
    t->head.pf_process = quick_process;
    EXPECT_EQ(vn_task_start(t, 50), 0);
    EXPECT_EQ(t->head.not_started, 0u);
    EXPECT_EQ(vn_task_start(t, 50), -1);
    EXPECT_EQ(vn_task_stop(t), 0);
    drop_task(t);
}

TEST(VnTask, StartFailureOfItsRecordLeavesTaskNotStarted)
{
    counting_task *t = make_task(quick_process);
    ASSERT_NE(t, nullptr);
    vn_mem_fail_nth(1);
    EXPECT_EQ(vn_task_start(t, 50), -1);
    EXPECT_EQ(t->head.not_started, 1u);
    EXPECT_EQ(t->head.tsk_id, nullptr);
    EXPECT_EQ(t->calls.load(), 0);
    drop_task(t);
}

TEST(VnTask, ProcessRunsAgainAndAgainUntilStop)
{
    counting_task *t = make_task(quick_process);
    ASSERT_NE(t, nullptr);
    ASSERT_EQ(vn_task_start(t, 50), 0);
    EXPECT_TRUE(poll_until(t->calls, 3));
    vn_task_stop(t);
    t->stopped = true;
    int calls = t->calls.load();
    EXPECT_EQ(t->head.exit_done_flg, 1u);
    for (int i = 0; i < 1000; ++i)
        sched_yield();
    EXPECT_EQ(t->calls.load(), calls);
    EXPECT_EQ(t->after_stop.load(), 0);
    drop_task(t);
}

TEST(VnTask, StopWaitsForRunningProcessAndNoneFollows)
{
    counting_task *t = make_task(blocking_process);
    ASSERT_NE(t, nullptr);
    t->head.stack_size = 4096;   // below the floor: raised, the thread still works
    ASSERT_EQ(vn_task_start(t, 50), 0);
    ASSERT_EQ(vn_sem_take(t->entered, 10000), 0);
    ASSERT_EQ(t->inside.load(), 1);

    std::atomic<int> stop_done{0};
    std::atomic<int> inside_at_return{-1};
    pthread_t stopper;
    struct args { counting_task *t; std::atomic<int> *done; std::atomic<int> *inside; } a{t, &stop_done, &inside_at_return};
    ASSERT_EQ(pthread_create(&stopper, nullptr, [](void *p) -> void * {
        auto *x = static_cast<args *>(p);
        vn_task_stop(x->t);
        x->inside->store(x->t->inside.load());
        x->t->stopped = true;
        x->done->store(1);
        return nullptr;
    }, &a), 0);

    // The stop cannot return while pf_process is blocked.
    uint64_t t0 = vn_uptime_ms();
    while (__atomic_load_n(&t->head.exit_ctl, __ATOMIC_ACQUIRE) == 0 && vn_delta_ms(t0) < 10000)
        sched_yield();
    EXPECT_EQ(stop_done.load(), 0);
    vn_sem_give(t->release);
    pthread_join(stopper, nullptr);
    EXPECT_EQ(stop_done.load(), 1);
    EXPECT_EQ(inside_at_return.load(), 0);
    EXPECT_EQ(t->calls.load(), 1);
    EXPECT_EQ(t->after_stop.load(), 0);
    drop_task(t);
}

TEST(VnTask, StopOfNeverStartedTaskAndStopTwiceAreHarmless)
{
    EXPECT_EQ(vn_task_stop(nullptr), -1);
    counting_task *t = make_task(quick_process);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(vn_task_stop(t), 0);
    EXPECT_EQ(vn_task_stop(t), 0);
    EXPECT_EQ(t->calls.load(), 0);
    drop_task(t);

    counting_task *u = make_task(quick_process);
    ASSERT_NE(u, nullptr);
    ASSERT_EQ(vn_task_start(u, 50), 0);
    EXPECT_EQ(vn_task_stop(u), 0);
    EXPECT_EQ(vn_task_stop(u), 0);
    drop_task(u);
}

TEST(VnTask, DeleteOfRunningTaskStopsItFirstAndReleasesEverything)
{
    long live = vn_mem_live();
    counting_task *t = make_task(quick_process);
    ASSERT_NE(t, nullptr);
    ASSERT_EQ(vn_task_start(t, 50), 0);
    EXPECT_TRUE(poll_until(t->calls, 1));
    drop_task(t);
    EXPECT_EQ(vn_mem_live(), live);
    EXPECT_EQ(vn_task_delete(nullptr), -1);
}

}  // namespace
