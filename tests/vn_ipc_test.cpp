// Tests of engine mutexes and binary semaphores: exclusion, time-outs on the
// monotonic clock, the binary (not counting) nature of give, and NULL
// handles everywhere.
#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <vector>

#include "vn_ipc.h"
#include "vn_mem_hook.h"
#include "vn_time.h"

namespace {

TEST(VnMutex, InitLockUnlockDestroy)
{
    VN_MUTEX_ID m = nullptr;
    ASSERT_EQ(vn_mutex_init(&m), 0);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(vn_mutex_lock(&m), 0);
    EXPECT_EQ(vn_mutex_lock(&m), -1);   // error-checking: a relock by the owner fails, never hangs
    EXPECT_EQ(vn_mutex_unlock(&m), 0);
    EXPECT_EQ(vn_mutex_destroy(&m), 0);
    EXPECT_EQ(m, nullptr);
}

TEST(VnMutex, NullCellsAndHandlesAreRefused)
{
    VN_MUTEX_ID none = nullptr;
    EXPECT_EQ(vn_mutex_init(nullptr), -1);
    EXPECT_EQ(vn_mutex_lock(nullptr), -1);
    EXPECT_EQ(vn_mutex_lock(&none), -1);
    EXPECT_EQ(vn_mutex_unlock(&none), -1);
    EXPECT_EQ(vn_mutex_destroy(&none), -1);
    EXPECT_EQ(vn_mutex_destroy(nullptr), -1);
}

TEST(VnMutex, InitFailureLeavesCellNull)
{
    VN_MUTEX_ID m = reinterpret_cast<VN_MUTEX_ID>(0x1);
    vn_mem_fail_nth(1);
    EXPECT_EQ(vn_mutex_init(&m), -1);
    EXPECT_EQ(m, nullptr);
}

TEST(VnMutex, ExcludesConcurrentIncrements)
{
    struct shared { VN_MUTEX_ID m; long counter; } s{nullptr, 0};
    ASSERT_EQ(vn_mutex_init(&s.m), 0);
    auto work = [](void *p) -> void * {
        auto *x = static_cast<shared *>(p);
        for (int i = 0; i < 20000; ++i) {
            vn_mutex_lock(&x->m);
            long v = x->counter;
            x->counter = v + 1;
            vn_mutex_unlock(&x->m);
        }
        return nullptr;
    };
    pthread_t th[4];
    for (auto &t : th)
        ASSERT_EQ(pthread_create(&t, nullptr, work, &s), 0);
    for (auto &t : th)
        pthread_join(t, nullptr);
    EXPECT_EQ(s.counter, 4 * 20000);
    vn_mutex_destroy(&s.m);
}

TEST(VnSem, TakeTimesOutAfterAtLeastTheTime)
{
    VN_SEM_ID s = vn_semb_create("t", 0);
    ASSERT_NE(s, nullptr);
    uint64_t t0 = vn_uptime_ms();
    EXPECT_EQ(vn_sem_take(s, 120), -1);
    EXPECT_GE(vn_delta_ms(t0), 115u);   // a little slack for millisecond rounding
    EXPECT_EQ(vn_sem_take(s, 0), -1);
    vn_sem_delete(s);
}

TEST(VnSem, GiveBeforeTakeAndInitiallyGiven)
{
    VN_SEM_ID s = vn_semb_create(nullptr, 1);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(vn_sem_take(s, 0), 0);
    EXPECT_EQ(vn_sem_take(s, 0), -1);
    EXPECT_EQ(vn_sem_give(s), 0);
    EXPECT_EQ(vn_sem_take(s, 1000), 0);
    vn_sem_delete(s);
}

TEST(VnSem, GiveTwiceAllowsOneTakeOnly)
{
    VN_SEM_ID s = vn_semb_create("b", 0);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(vn_sem_give(s), 0);
    EXPECT_EQ(vn_sem_give(s), 0);
    EXPECT_EQ(vn_sem_take(s, 10), 0);
    EXPECT_EQ(vn_sem_take(s, 10), -1);
    vn_sem_delete(s);
}

TEST(VnSem, ManyGiversWakeOneTaker)
{
    VN_SEM_ID s = vn_semb_create("m", 0);
    ASSERT_NE(s, nullptr);
    struct ctx { VN_SEM_ID s; std::atomic<int> gives; } c{s, {0}};
    auto give = [](void *p) -> void * {
        auto *x = static_cast<ctx *>(p);
        for (int i = 0; i < 500; ++i) {
            vn_sem_give(x->s);
            x->gives++;
        }
        return nullptr;
    };
    std::vector<pthread_t> th(6);
    for (auto &t : th)
        ASSERT_EQ(pthread_create(&t, nullptr, give, &c), 0);
    int taken = 0;
    uint64_t t0 = vn_uptime_ms();
    while (c.gives.load() < 6 * 500 && vn_delta_ms(t0) < 20000)
        if (vn_sem_take(s, 50) == 0)
            ++taken;
    for (auto &t : th)
        pthread_join(t, nullptr);
    while (vn_sem_take(s, 0) == 0)   // the last give may still be pending
        ++taken;
    EXPECT_GE(taken, 1);
    EXPECT_LE(taken, 6 * 500);       // binary: never more takes than gives
    EXPECT_EQ(vn_sem_take(s, 0), -1);
    vn_sem_delete(s);
}

TEST(VnSem, WaitingTakerIsWokenByGiveFromAnotherThread)
{
    VN_SEM_ID s = vn_semb_create("w", 0);
    ASSERT_NE(s, nullptr);
    pthread_t th;
    ASSERT_EQ(pthread_create(&th, nullptr, [](void *p) -> void * {
        vn_sem_give(static_cast<VN_SEM_ID>(p));
        return nullptr;
    }, s), 0);
    EXPECT_EQ(vn_sem_take(s, 20000), 0);
    pthread_join(th, nullptr);
    vn_sem_delete(s);
}

TEST(VnSem, NullHandlesAndAllocationFailure)
{
    EXPECT_EQ(vn_sem_take(nullptr, 10), -1);
    EXPECT_EQ(vn_sem_give(nullptr), -1);
    EXPECT_EQ(vn_sem_delete(nullptr), -1);
    long live = vn_mem_live();
    vn_mem_fail_nth(1);
    EXPECT_EQ(vn_semb_create("x", 0), nullptr);
    EXPECT_EQ(vn_mem_live(), live);
}

}  // namespace
