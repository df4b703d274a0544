// Tests of engine trace modules: record form, level filter, the three sinks
// (callback, appended file, standard error), NULL handles, long messages.
#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "test_util.h"
#include "vn_mem_hook.h"
#include "vn_trace.h"

namespace {

std::mutex g_lock;
std::vector<std::string> g_seen;

int32_t collect(const char *record)
{
    std::lock_guard<std::mutex> hold(g_lock);
    g_seen.emplace_back(record);
    return 0;
}

class VnTrace : public ::testing::Test {
protected:
    void SetUp() override { g_seen.clear(); }
};

TEST_F(VnTrace, RecordFormAndLevelFilter)
{
    vorn_trace_handle h = vorn_mod_trace_init("mod", nullptr, 5, collect);
    ASSERT_NE(h, nullptr);
    struct { uint32_t level; bool kept; } rows[] = {{1, true}, {4, true}, {5, true}, {6, false}, {8, false}};
    for (const auto &r : rows) {
        EXPECT_EQ(vorn_trace_enabled(h, r.level) != 0, r.kept) << r.level;
        vorn_trace_log(h, __FILE__, "node2uint", __LINE__, r.level, "value %d of %s", 7, "x");
    }
    std::vector<std::string> want = {"1 node2uint: value 7 of x", "4 node2uint: value 7 of x",
                                     "5 node2uint: value 7 of x"};
    EXPECT_EQ(g_seen, want);
    vorn_mod_trace_free(h);
}

TEST_F(VnTrace, NullHandleDropsInSilence)
{
    EXPECT_EQ(vorn_trace_enabled(nullptr, 0), 0);
    vorn_trace_log(nullptr, __FILE__, "f", __LINE__, 0, "never %s", "seen");
    vorn_mod_trace_free(nullptr);
    EXPECT_TRUE(g_seen.empty());
}

TEST_F(VnTrace, LongMessagesAreNotCut)
{
    vorn_trace_handle h = vorn_mod_trace_init(nullptr, nullptr, 8, collect);
    ASSERT_NE(h, nullptr);
    std::string body(5000, 'q');
    body += "END";
    vorn_trace_log(h, __FILE__, "struM2xml", __LINE__, 4, "%s", body.c_str());
    ASSERT_EQ(g_seen.size(), 1u);
    EXPECT_EQ(g_seen[0], "4 struM2xml: " + body);
    vorn_mod_trace_free(h);
}

// Text from a document or a name can't forge a record: control bytes, DEL
// and the backslash itself are written escaped, so a record stays one line
// and reads back unambiguously; other bytes (UTF-8 included) pass as they are.
TEST_F(VnTrace, ControlCharactersAreEscapedSoAMessageCannotForgeARecord)
{
    TempDir dir;
    const std::string path = dir.file("trace.log");
    vorn_trace_handle cb = vorn_mod_trace_init("m", nullptr, 8, collect);
    vorn_trace_handle file = vorn_mod_trace_init("m", path.c_str(), 8, nullptr);
    ASSERT_TRUE(cb != nullptr && file != nullptr);
    std::string escaped_lines;
    for (int i = 0; i < 2000; i++)
        escaped_lines += "\\n";
    struct {
        std::string text, shown;
    } rows[] = {
        {"v(x\n8 node2sint: forged)", "v(x\\n8 node2sint: forged)"},
        {"tab\tcr\r", "tab\\tcr\\r"},
        {"\x01\x1b\x7f", "\\x01\\x1b\\x7f"},
        {"a\\n is no line end", "a\\\\n is no line end"},
        {"utf-8 \xc3\xa9 stays", "utf-8 \xc3\xa9 stays"},
        {std::string(2000, '\n'), escaped_lines},  // longer than a record's first buffer
    };
    std::string lines;
    for (const auto &r : rows) {
        vorn_trace_log(cb, __FILE__, "node2sint", __LINE__, 8, "%s", r.text.c_str());
        vorn_trace_log(file, __FILE__, "node2sint", __LINE__, 8, "%s", r.text.c_str());
        lines += "8 node2sint: " + r.shown + "\n";
    }
    ASSERT_EQ(g_seen.size(), sizeof(rows) / sizeof(rows[0]));
    for (size_t i = 0; i < g_seen.size(); i++)
        EXPECT_EQ(g_seen[i], "8 node2sint: " + rows[i].shown) << i;
    EXPECT_EQ(read_file(path), lines);
    vorn_mod_trace_free(cb);
    vorn_mod_trace_free(file);
}

// Memory comes from the library's allocator: a module that can't be had is
// NULL, and a long record whose block can't be had is delivered cut to the
// stack buffer (1023 bytes), never inside an escape, instead of aborting.
TEST_F(VnTrace, AFailedAllocationGivesNoModuleOrACutRecord)
{
    vn_mem_fail_nth(1);
    EXPECT_EQ(vorn_mod_trace_init("m", "x.log", 8, collect), nullptr);
    vorn_trace_handle h = vorn_mod_trace_init("m", nullptr, 8, collect);
    ASSERT_NE(h, nullptr);
    std::string cut_nl;
    for (int i = 0; i < 509; i++)
        cut_nl += "\\n";
    struct {
        std::string text, shown;
    } rows[] = {{std::string(5000, 'q'), std::string(1023 - 5, 'q')},
                {std::string(600, '\n'), cut_nl}};  // only its escaped form is long
    for (const auto &r : rows) {
        g_seen.clear();
        vn_mem_fail_nth(1);
        vorn_trace_log(h, __FILE__, "f", __LINE__, 4, "%s", r.text.c_str());
        vn_mem_fail_nth(0);
        ASSERT_EQ(g_seen.size(), 1u);
        EXPECT_EQ(g_seen[0], "4 f: " + r.shown);
    }
    vorn_mod_trace_free(h);
}

TEST_F(VnTrace, FileSinkAppendsLinesAndCallbackWins)
{
    TempDir dir;
    std::string path = dir.file("trace.log");
    ASSERT_TRUE(write_file(path, "old\n"));
    vorn_trace_handle h = vorn_mod_trace_init("m", path.c_str(), 8, nullptr);
    ASSERT_NE(h, nullptr);
    vorn_trace_log(h, __FILE__, "kavor_register", __LINE__, 4, "xml file name is empty!");
    vorn_trace_log(h, __FILE__, "f", __LINE__, 7, "n=%u", 3u);
    EXPECT_EQ(read_file(path), "old\n4 kavor_register: xml file name is empty!\n7 f: n=3\n");
    vorn_mod_trace_free(h);

    vorn_trace_handle both = vorn_mod_trace_init("m", path.c_str(), 8, collect);
    vorn_trace_log(both, __FILE__, "g", __LINE__, 5, "to the callback");
    EXPECT_EQ(read_file(path), "old\n4 kavor_register: xml file name is empty!\n7 f: n=3\n");
    ASSERT_EQ(g_seen.size(), 1u);
    EXPECT_EQ(g_seen[0], "5 g: to the callback");
    vorn_mod_trace_free(both);
}

TEST_F(VnTrace, WithoutCallbackOrFileRecordsGoToStandardError)
{
    for (const char *file : {static_cast<const char *>(nullptr), ""}) {
        vorn_trace_handle h = vorn_mod_trace_init("m", file, 8, nullptr);
        ASSERT_NE(h, nullptr);
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
        vorn_trace_log(h, __FILE__, "xml2param", __LINE__, 4, "bad %s", "row");
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "4 xml2param: bad row\n");
        vorn_mod_trace_free(h);
    }
}

}  // namespace
