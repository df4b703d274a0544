// Tests of heap string helpers: copies, joins, NULL inputs, and that the
// allocation-failure hook reaches them.
#include <gtest/gtest.h>

#include "strmisc.h"
#include "vn_mem.h"
#include "vn_mem_hook.h"

namespace {

TEST(StrMisc, DupAndJoinMakeIndependentCopies)
{
    char src[] = "abc";
    char *d = _string_dup(src, "t");
    ASSERT_NE(d, nullptr);
    src[0] = 'z';
    EXPECT_STREQ(d, "abc");
    struct { const char *a, *b, *want; } rows[] = {
        {"dir/", "file.xml", "dir/file.xml"}, {"", "x", "x"}, {"x", "", "x"}, {"", "", ""}};
    for (const auto &r : rows) {
        char *j = _string_join(r.a, r.b, "t");
        ASSERT_NE(j, nullptr);
        EXPECT_STREQ(j, r.want);
        _vn_free(j, "t");
    }
    _vn_free(d, "t");
}

TEST(StrMisc, NullInputsGiveNull)
{
    EXPECT_EQ(_string_dup(nullptr, "t"), nullptr);
    EXPECT_EQ(_string_join(nullptr, "b", "t"), nullptr);
    EXPECT_EQ(_string_join("a", nullptr, "t"), nullptr);
}

TEST(StrMisc, AllocationFailureReachesBoth)
{
    long live = vn_mem_live();
    vn_mem_fail_nth(1);
    EXPECT_EQ(_string_dup("abc", "t"), nullptr);
    vn_mem_fail_nth(1);
    EXPECT_EQ(_string_join("a", "b", "t"), nullptr);
    EXPECT_EQ(vn_mem_live(), live);
    char *ok = _string_join("a", "b", "t");   // the hook fired once only
    EXPECT_STREQ(ok, "ab");
    _vn_free(ok, "t");
}

}  // namespace
