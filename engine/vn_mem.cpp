// vn_mem.cpp - the engine's allocator, over malloc, with one failure hook
// (make the Nth allocation fail) and a count of live blocks, so that tests
// can walk every allocation failure path and check that nothing leaks.
#include "vn_mem.h"

#include <atomic>
#include <cstdlib>

#include "vn_mem_hook.h"

namespace {
std::atomic<unsigned long> g_calls{0};
std::atomic<unsigned long> g_fail_at{0};   // absolute call number to fail, 0: none
std::atomic<long> g_live{0};
std::atomic<unsigned long> g_refused{0};
}  // namespace

void vn_mem_fail_nth(unsigned long n)
{
    g_fail_at.store(n ? g_calls.load() + n : 0);
}

unsigned long vn_mem_calls()
{
    return g_calls.load();
}

unsigned long vn_mem_refused()
{
    return g_refused.load();
}

long vn_mem_live()
{
    return g_live.load();
}

extern "C" void *_vn_malloc(size_t size, const char *tag)
{
    (void)tag;
    unsigned long call = ++g_calls;
    unsigned long fail_at = g_fail_at.load();
    if (fail_at != 0 && call == fail_at) {
        g_fail_at.store(0);
        ++g_refused;
        return nullptr;
    }
    void *p = std::malloc(size ? size : 1);
    if (p)
        ++g_live;
    return p;
}

extern "C" void _vn_free(void *p, const char *tag)
{
    (void)tag;
    if (!p)
        return;
    --g_live;
    std::free(p);
}
