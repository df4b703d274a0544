// sweep.h - the one allocation-failure sweep of the tests: an operation runs
// with its 1st, 2nd, ... allocation of one allocator refused, until it
// allocates no more than the round asks. Every round proves that the chosen
// allocation was refused exactly when the operation reached it, and that
// nothing of the library's allocator or of libxml2's is left live once the
// round's own checks have released what the operation handed out.
#ifndef KAVOR_TEST_SWEEP_H
#define KAVOR_TEST_SWEEP_H

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "vn_mem_hook.h"
#include "xml_alloc.h"

enum class Alloc { library, libxml2 };

/// Round 0 runs `op` without a failure (it also warms libxml2 up); round n
/// refuses the nth allocation of `alloc`. After each `op`, with failures
/// off, `after(refused)` checks the documented result and releases what the
/// operation handed out. Returns the number of rounds with a refusal.
inline long sweep(Alloc alloc, const std::function<void()> &op,
                  const std::function<void(bool refused)> &after)
{
    XmlAlloc xa;
    const bool lib = alloc == Alloc::library;
    const std::string what = lib ? "library allocator" : "libxml2 allocator";
    long n = 0;
    for (;; n++) {
        SCOPED_TRACE(what + ", allocation " + std::to_string(n));
        const long lib_live = vn_mem_live(), xml_live = xa.live();
        const unsigned long lib_calls = vn_mem_calls(), lib_refused = vn_mem_refused();
        const long xml_calls = xa.calls();
        lib ? vn_mem_fail_nth(static_cast<unsigned long>(n)) : xa.fail_nth(n);
        op();
        const bool refused = lib ? vn_mem_refused() > lib_refused : xa.failed();
        vn_mem_fail_nth(0);
        xa.stop();
        const bool reached = n > 0 && (lib ? vn_mem_calls() - lib_calls >= static_cast<unsigned long>(n)
                                           : xa.calls() - xml_calls >= n);
        EXPECT_EQ(refused, reached) << "the chosen allocation must be refused when reached";
        after(refused);
        if (n > 0) {
            EXPECT_EQ(vn_mem_live(), lib_live) << "library blocks leaked";
            EXPECT_EQ(xa.live(), xml_live) << "libxml2 blocks leaked";
        }
        if ((n > 0 && !reached) || ::testing::Test::HasFailure() || n > 100000)
            break;
    }
    EXPECT_GT(n, 1) << "the operation allocates nothing of the " << what;
    return n - 1;
}

#endif
