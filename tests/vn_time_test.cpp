// Tests of engine time: the uptime moves forward and deltas never wrap.
#include <gtest/gtest.h>

#include <time.h>

#include "vn_time.h"

namespace {

TEST(VnTime, UptimeFollowsTheMonotonicClock)
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    uint64_t expect = static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
    uint64_t got = vn_uptime_ms();
    EXPECT_GE(got, expect);
    EXPECT_LT(got - expect, 60000u);
}

TEST(VnTime, DeltaGrowsAndFutureGivesZero)
{
    uint64_t t0 = vn_uptime_ms();
    struct timespec pause = {0, 20 * 1000000L};
    nanosleep(&pause, nullptr);
    EXPECT_GE(vn_delta_ms(t0), 19u);
    EXPECT_EQ(vn_delta_ms(vn_uptime_ms() + 100000u), 0u);
    EXPECT_GE(vn_delta_ms(0), vn_uptime_ms() - 1);
}

}  // namespace
