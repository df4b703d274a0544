// Names of a parameter file: file, backup and root element names derived
// from a registered path, the compression test, and what a failed copy does.
#include <gtest/gtest.h>

#include <string>

#include "kavor_private.h"
#include "trace_capture.h"
#include "vn_mem.h"
#include "vn_mem_hook.h"

namespace {

std::string take(char *s)
{
    std::string out = s != nullptr ? s : "<NULL>";
    _vn_free(s, "test");
    return out;
}

struct PathRow {
    const char *path;
    const char *plain;     // ugz == 1
    const char *gz;        // any other ugz
    const char *root;
    const char *bak;       // backup of the plain name; the gz backup adds ".gz"
};

const PathRow kPaths[] = {
    {"net", "net.xml", "net.xml.gz", "net", "net.xml.bak"},
    {"net.xml", "net.xml", "net.xml.gz", "net", "net.xml.bak"},
    {"net.xml.gz", "net.xml", "net.xml.gz", "net", "net.xml.bak"},
    {"net.old.xml", "net.xml", "net.xml.gz", "net", "net.xml.bak"},
    {"net.", "net.xml", "net.xml.gz", "net", "net.xml.bak"},
    {"/etc/app/net.cfg", "/etc/app/net.xml", "/etc/app/net.xml.gz", "net", "/etc/app/net.xml.bak"},
    {"/mnt/a.b/net", "/mnt/a.b/net.xml", "/mnt/a.b/net.xml.gz", "net", "/mnt/a.b/net.xml.bak"},
    {"./net.xml", "./net.xml", "./net.xml.gz", "net", "./net.xml.bak"},
    {".net", ".net.xml", ".net.xml.gz", ".net", ".net.xml.bak"},
    {".net.xml", ".net.xml", ".net.xml.gz", ".net", ".net.xml.bak"},
    {"..", "..xml", "..xml.gz", ".", "..xml.bak"},
    {"a\\b.c/d.xml", "a\\b.xml", "a\\b.xml.gz", "b", "a\\b.xml.bak"},
    {"a/b\\c/d.xml", "a/b\\c/d.xml", "a/b\\c/d.xml.gz", "c/d", "a/b\\c/d.xml.bak"},
    {"dir/", "dir/.xml", "dir/.xml.gz", ".xml", "dir/.xml.xml.bak"},
};

TEST(KavorNames, EveryPathOfTheTableGivesItsFourNames)
{
    TraceCapture cap(8);
    for (const PathRow &r : kPaths) {
        SCOPED_TRACE(r.path);
        std::string plain = take(xml_file_name(r.path, 1));
        EXPECT_EQ(plain, r.plain);
        for (int32_t ugz : {0, 2, -1, 100}) {
            SCOPED_TRACE(ugz);
            EXPECT_EQ(take(xml_file_name(r.path, ugz)), r.gz);
        }
        std::string gz = r.gz;
        EXPECT_EQ(take(get_file_root_node(plain.c_str())), r.root);
        EXPECT_EQ(take(get_file_root_node(gz.c_str())), r.root);
        EXPECT_EQ(take(xml_file_bak_name(plain.c_str())), r.bak);
        EXPECT_EQ(take(xml_file_bak_name(gz.c_str())), std::string(r.bak) + ".gz");
    }
    // Every normalised name carries a dot, so isGzFile never complained.
    EXPECT_EQ(cap.count_at_most(7), 0u) << cap.dump();
}

TEST(KavorNames, PathsDifferingBehindTheFirstDotShareAFileName)
{
    EXPECT_EQ(take(xml_file_name("/d/net.old", 0)), take(xml_file_name("/d/net.new", 0)));
    EXPECT_EQ(take(xml_file_name("net.xml", 1)), take(xml_file_name("net.xml.gz", 1)));
    EXPECT_NE(take(xml_file_name("net", 1)), take(xml_file_name("net", 0)));
}

TEST(KavorNames, BaseNameSplitsAtLastBackslashElseLastSlash)
{
    struct {
        const char *path;
        const char *base;
    } rows[] = {
        {"net", "net"},         {"/a/b/net", "net"},   {"a\\b/c", "b/c"},
        {"a/b\\c", "c"},        {"dir/", ""},          {"", ""},
        {"\\x", "x"},           {"a\\b\\c/d", "c/d"},
    };
    for (const auto &r : rows) {
        std::string s = r.path;
        char *base = file_name_pt(&s[0]);
        ASSERT_NE(base, nullptr);
        EXPECT_STREQ(base, r.base) << r.path;
        EXPECT_GE(base, &s[0]);
    }
    TraceCapture cap(8);
    EXPECT_EQ(file_name_pt(nullptr), nullptr);
    EXPECT_TRUE(cap.has(4, "file_name_pt", "path or name is NULL!")) << cap.dump();
}

TEST(KavorNames, SuffixCutAtFirstDotNeverTheLeadingOne)
{
    struct {
        const char *in;
        const char *out;
    } rows[] = {
        {"net.xml.gz", "net"}, {".net.xml", ".net"}, {".", "."}, {"..", "."},
        {"", ""},              {"net", "net"},       {"n.", "n"}, {"...a", "."},
    };
    for (const auto &r : rows) {
        std::string s = r.in;
        cut_file_suffix(&s[0]);
        EXPECT_STREQ(s.c_str(), r.out) << r.in;
    }
}

TEST(KavorNames, CompressedOnlyWhenTheLastSuffixIsExactlyGz)
{
    struct {
        const char *path;
        int32_t gz;
        bool message;
    } rows[] = {
        {"x.xml.gz", 1, false},       {"x.xml", 0, false},       {"x.tmp", 0, false},
        {"x.xml.gz.tmp.gz", 1, false}, {"x.GZ", 0, false},       {"x.gz2", 0, false},
        {"x.gzip", 0, false},         {"/mnt/a.gz/net", 0, false}, {"noext", 0, true},
        {".gz", 1, false},
    };
    for (const auto &r : rows) {
        TraceCapture cap(8);
        EXPECT_EQ(isGzFile(r.path), r.gz) << r.path;
        std::string msg = std::string("Unknown type of file (") + r.path + ").";
        EXPECT_EQ(cap.has(4, "isGzFile", msg), r.message) << cap.dump();
        EXPECT_EQ(cap.records().size(), r.message ? 1u : 0u) << cap.dump();
    }
}

// Every allocation of a derivation fails in turn: NULL, the message of a
// missing copy where the first copy failed, and no block left behind.
TEST(KavorNames, FailedCopiesGiveNullAndLeakNothing)
{
    struct {
        const char *what;
        char *(*make)();
    } rows[] = {
        {"xml_file_name", [] { return xml_file_name("/a/net.cfg", 0); }},
        {"xml_file_bak_name", [] { return xml_file_bak_name("/a/net.xml.gz"); }},
        {"get_file_root_node", [] { return get_file_root_node("/a/net.xml"); }},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        for (unsigned long n = 1;; n++) {
            ASSERT_LT(n, 10u);
            long live = vn_mem_live();
            TraceCapture cap(8);
            vn_mem_fail_nth(n);
            char *s = r.make();
            vn_mem_fail_nth(0);
            if (s != nullptr) {
                EXPECT_EQ(n, 3u);  // a copy and a result made: the third call succeeds
                _vn_free(s, "test");
                EXPECT_EQ(vn_mem_live(), live);
                break;
            }
            EXPECT_EQ(vn_mem_live(), live) << "n=" << n;
            EXPECT_EQ(cap.has(4, "file_name_pt", "path or name is NULL!"), n == 1) << cap.dump();
        }
    }
}

}  // namespace
