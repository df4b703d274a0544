// vn_mem_hook.h - test-only controls of the engine's allocator: make one
// chosen allocation fail, and count allocations and live blocks. Internal to
// the library; never exported.
#ifndef VN_MEM_HOOK_H
#define VN_MEM_HOOK_H

#include <cstddef>

/// Makes the `n`th call of _vn_malloc() from now fail (1 is the next call);
/// 0 disables. Only that one call fails.
void vn_mem_fail_nth(unsigned long n);
/// Number of _vn_malloc() calls since the start of the process.
unsigned long vn_mem_calls();
/// Number of allocations refused by the hook since the start of the process.
unsigned long vn_mem_refused();
/// Number of blocks handed out by _vn_malloc() and not yet released.
long vn_mem_live();

#endif
