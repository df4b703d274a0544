/// @file vn_time.h
/// Monotonic time in milliseconds. A change of the wall clock moves neither.
#ifndef VN_TIME_H
#define VN_TIME_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Milliseconds since an arbitrary fixed point (the monotonic clock).
uint64_t vn_uptime_ms(void);

/// Milliseconds from `t0`, an earlier result of vn_uptime_ms(), to now.
/// Returns 0 if `t0` lies in the future.
uint64_t vn_delta_ms(uint64_t t0);

#ifdef __cplusplus
}
#endif

#endif
