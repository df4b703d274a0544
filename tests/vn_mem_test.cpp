// Tests of the engine allocator: the failure hook fails exactly the chosen
// call and only that one, and live blocks are counted for leak checks.
#include <gtest/gtest.h>

#include <vector>

#include "vn_mem.h"
#include "vn_mem_hook.h"

namespace {

TEST(VnMem, NthCallFailsOnlyThatOne)
{
    for (unsigned long n = 1; n <= 4; ++n) {
        unsigned long refused = vn_mem_refused();
        vn_mem_fail_nth(n);
        std::vector<void *> got;
        for (int i = 0; i < 6; ++i)
            got.push_back(_vn_malloc(16, "test"));
        for (size_t i = 0; i < got.size(); ++i)
            EXPECT_EQ(got[i] == nullptr, i + 1 == n) << "n=" << n << " call " << i + 1;
        EXPECT_EQ(vn_mem_refused(), refused + 1) << "one refusal counted";
        for (void *p : got)
            _vn_free(p, "test");
    }
}

TEST(VnMem, ZeroDisablesAndCallsAreCounted)
{
    vn_mem_fail_nth(2);
    vn_mem_fail_nth(0);
    unsigned long before = vn_mem_calls();
    void *a = _vn_malloc(1, nullptr);
    void *b = _vn_malloc(1, nullptr);
    EXPECT_NE(a, nullptr);
    EXPECT_NE(b, nullptr);
    EXPECT_EQ(vn_mem_calls(), before + 2);
    _vn_free(a, nullptr);
    _vn_free(b, nullptr);
}

TEST(VnMem, LiveBlocksTrackAllocAndFree)
{
    long live = vn_mem_live();
    void *a = _vn_malloc(0, "zero");     // a zero size still gives a block
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(vn_mem_live(), live + 1);
    _vn_free(a, "zero");
    _vn_free(nullptr, "null");          // ignored
    EXPECT_EQ(vn_mem_live(), live);
    vn_mem_fail_nth(1);
    EXPECT_EQ(_vn_malloc(8, "fail"), nullptr);
    EXPECT_EQ(vn_mem_live(), live);
}

}  // namespace
