// Number texts: the reader's integer conversion (value, end position and
// the bits stored for each width equal strtoimax / strtoumax with base 0 for
// every text, the forms computed inline and those left to the C library
// alike) and the writer's index and count texts (equal to "%d", cut the same
// way and refused when they don't fit).
#include <gtest/gtest.h>

#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "param_xml_number.h"
#include "param_xml_private.h"

namespace {

template <bool Signed>
void expect_as_library(const std::string &text)
{
    char *want_end = nullptr;
    char *got_end = nullptr;
    uintmax_t want = Signed ? static_cast<uintmax_t>(std::strtoimax(text.c_str(), &want_end, 0))
                            : std::strtoumax(text.c_str(), &want_end, 0);
    uintmax_t got = param_xml_number::parse<Signed>(text.c_str(), &got_end);
    EXPECT_EQ(got, want) << (Signed ? "signed" : "unsigned") << " \"" << text << "\"";
    EXPECT_EQ(got_end - text.c_str(), want_end - text.c_str())
        << (Signed ? "signed" : "unsigned") << " \"" << text << "\"";
}

void expect_both(const std::string &text)
{
    expect_as_library<true>(text);
    expect_as_library<false>(text);
}

TEST(ParseNumber, EdgeFormsEqualTheLibrary)
{
    const std::vector<std::string> cases = {
        // the writer's forms
        "0", "-0", "7", "-7", "123 456", "0x0", "0xff", "0xFF", "-0x10", "0XaB",
        // limits of each width and of the inline ranges
        "127", "-128", "255", "32767", "-32768", "65535", "2147483647", "-2147483648",
        "4294967295", "999999999999999999", "-999999999999999999",
        "1000000000000000000", "9223372036854775807", "-9223372036854775808",
        "9223372036854775808", "-9223372036854775809", "9999999999999999999",
        "18446744073709551615", "18446744073709551616", "99999999999999999999",
        "0x7fffffffffffffff", "-0x7fffffffffffffff", "0x8000000000000000",
        "0xffffffffffffffff", "-0xffffffffffffffff", "0x10000000000000000",
        "0xfffffffffffffff", "-0xfffffffffffffff",
        // forms the library decides
        "010", "-010", "08", "00", "+5", "+0x5", "\t5", "\n 12", " \r9", "  -3",
        "0x", "0xg", "-", "- 5", "-x1", "x10", "", " ", "abc", "1e5", "12ab", "0x1g",
        "1.5", "--1", "0x-1", "00x10", "000000000000000000001",
    };
    for (const std::string &c : cases)
        expect_both(c);
}

TEST(ParseNumber, RandomValuesOfEveryWidthAndFormEqualTheLibrary)
{
    std::mt19937_64 rng(7);
    char buf[64];
    for (int i = 0; i < 20000; i++) {
        uint64_t v = rng() >> (rng() % 64);
        switch (i % 4) {
        case 0: std::snprintf(buf, sizeof buf, "%" PRIu64, v); break;
        case 1: std::snprintf(buf, sizeof buf, "-%" PRIu64, v); break;
        case 2: std::snprintf(buf, sizeof buf, "0x%" PRIx64, v); break;
        default: std::snprintf(buf, sizeof buf, "-0x%" PRIX64 " 1", v); break;
        }
        expect_both(buf);
    }
}

TEST(ParseNumber, StoredBitsOfEachWidthEqualTheLibrary)
{
    const char *texts[] = {"-1", "-129", "300", "70000", "-2147483649", "4294967296",
                           "0xfffffffff", "-0x8000000000000000", "18446744073709551615"};
    for (const char *t : texts) {
        char *e;
        uintmax_t s = param_xml_number::parse<true>(t, &e);
        uintmax_t u = param_xml_number::parse<false>(t, &e);
        EXPECT_EQ(static_cast<int8_t>(s), static_cast<int8_t>(std::strtoimax(t, &e, 0))) << t;
        EXPECT_EQ(static_cast<int16_t>(s), static_cast<int16_t>(std::strtoimax(t, &e, 0))) << t;
        EXPECT_EQ(static_cast<int32_t>(s), static_cast<int32_t>(std::strtoimax(t, &e, 0))) << t;
        EXPECT_EQ(static_cast<int64_t>(s), static_cast<int64_t>(std::strtoimax(t, &e, 0))) << t;
        EXPECT_EQ(static_cast<uint8_t>(u), static_cast<uint8_t>(std::strtoumax(t, &e, 0))) << t;
        EXPECT_EQ(static_cast<uint32_t>(u), static_cast<uint32_t>(std::strtoumax(t, &e, 0))) << t;
    }
}

TEST(NumberText, EqualsPrintfAndRefusesWhatDoesNotFit)
{
    const int values[] = {0, 1, 9, 10, 99, 12345, 99999999, 100000000, 999999999, 1000000000,
                          2147483647, -1, -9, -10, -99999999, -100000000, -999999999,
                          -2147483647 - 1};
    for (int v : values) {
        char want[kNumTextLen];
        int n = std::snprintf(want, sizeof want, "%d", v);
        char got[kNumTextLen];
        std::memset(got, 'x', sizeof got);
        bool fits = number_text(got, v);
        EXPECT_EQ(fits, n > 0 && static_cast<size_t>(n) < kNumTextLen) << v;
        EXPECT_STREQ(got, want) << v;
    }
}

}  // namespace
