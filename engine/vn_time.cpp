// vn_time.cpp - milliseconds on the monotonic clock, so that a change of the
// wall clock never moves a time-out or a quiet period.
#include "vn_time.h"

#include <time.h>

extern "C" uint64_t vn_uptime_ms(void)
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
}

extern "C" uint64_t vn_delta_ms(uint64_t t0)
{
    uint64_t now = vn_uptime_ms();
    return now > t0 ? now - t0 : 0;
}
