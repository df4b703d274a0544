// Document load: every node from one handle, the recovery parser, the
// fall-back to the backup, libxml2's messages, load_all.

#include <libxml/parser.h>

#include "kavor_fixture.h"

using namespace kvtest;

namespace {

const char kHead[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

std::string doc(const std::string &root, const std::string &body)
{
    return kHead + ("<" + root + ">" + body + "</" + root + ">\n");
}

std::string child(const std::string &node, const std::string &label)
{
    return "<" + node + "><label>" + label + "</label><owner>o</owner></" + node + ">";
}

class KavorLoad : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (int32_t ugz : {1, 0}) {
            kavor_file_rgst_t ra = request(dir_.file("net"), "a", pair_table(), &a_, ugz), rb = request(dir_.file("net"), "b", pair_table(), &b_, ugz);
            f_[ugz] = kavor_register(mgr_.get(), &ra);
            ASSERT_NE(kavor_register(mgr_.get(), &rb), nullptr);
        }
    }
    void reset() { a_ = {"initial-a", ""}, b_ = {"initial-b", ""}; }
    TempDir dir_;
    Mgr mgr_;
    Pair a_ = {}, b_ = {};
    kavor_file_t *f_[2] = {};
    std::string main_ = dir_.file("net.xml"), bak_ = dir_.file("net.xml.bak");
};

TEST_F(KavorLoad, OneHandleFillsEveryNodeFromTheFirstChildOfItsName)
{
    for (bool gz : {false, true}) {
        reset();
        ASSERT_TRUE(write_file(gz ? main_ + ".gz" : main_,
                               doc("net", "<other/>" + child("b", "beta") + child("a", "alpha") + child("a", "second")), gz));
        TraceCapture cap(5);
        EXPECT_TRUE(kavor_load_one(f_[gz ? 0 : 1]) == 0 && std::string(a_.label) + a_.owner + b_.label == "alphaobeta");
        EXPECT_EQ(cap.count_at_most(5), 0u) << cap.dump();
    }
}

TEST_F(KavorLoad, FallBackToTheBackupWhenTheFileGivesNothingUsable)
{
    const std::string good_bak = doc("net", child("a", "from-bak")), good = doc("net", child("a", "from-main"));
    const struct { const char *what; std::string main, bak; int32_t result; const char *label; bool bak_read; } rows[] = {
        {"main missing", "-", good_bak, 0, "from-bak", true},
        {"both missing", "-", "-", -1, "initial-a", true},
        {"empty main", "", good_bak, 0, "from-bak", true},
        {"not XML at all", "this is \x01 not xml", good_bak, 0, "from-bak", true},
        {"wrong root", doc("cfg", child("a", "x")), good_bak, 0, "from-bak", true},
        {"truncated main: recovered", kHead + ("<net>" + child("a", "partial")) + "<b><label>be", good_bak, 1, "partial", false},
        {"good main", good, good_bak, 0, "from-main", false},
        {"a node without a child keeps its block", doc("net", child("b", "b")), good_bak, 0, "initial-a", false},
        {"both with a wrong root", doc("x", ""), doc("y", ""), -1, "initial-a", true},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        reset();
        remove(main_.c_str()), remove(bak_.c_str());
        ASSERT_TRUE((r.main == "-" || write_file(main_, r.main)) && (r.bak == "-" || write_file(bak_, r.bak)));
        TraceCapture cap(8);
        EXPECT_TRUE(kavor_load_one(f_[1]) == r.result && a_.label == std::string(r.label)) << cap.dump();
        EXPECT_TRUE((cap.count_containing(bak_) > 0) == r.bak_read &&
                    cap.has(5, "load_xml", "file (" + main_ + ") size is 0!") == (r.main == "-" || r.main.empty())) << cap.dump();
        EXPECT_EQ(file_exists(main_), r.main != "-") << "a load removes nothing";
    }
}

// libxml2's messages on a damaged file go to the trace at level 5 with file and line, never to standard error
// nor to the application's own handler; a thousand faults cost 16 records and a count.
int g_app_errors;
void app_errors(void *, xmlErrorPtr) { g_app_errors++; }

TEST_F(KavorLoad, Libxml2sMessagesOnADamagedFileGoToTheTraceNotToStandardError)
{
    ASSERT_TRUE(write_file(main_, kHead + ("<net>" + child("a", "partial")) + "<b><x>"));
    for (bool app_handler : {false, true}) {
        g_app_errors = 0;
        xmlSetStructuredErrorFunc(&g_app_errors, app_handler ? app_errors : nullptr);
        TraceCapture cap(8);
        testing::internal::CaptureStderr();
        EXPECT_EQ(kavor_load_one(f_[1]), 1);
        EXPECT_TRUE(testing::internal::GetCapturedStderr().empty() && g_app_errors == 0 && a_.label == std::string("partial"));
        EXPECT_GE(cap.count_containing("5 xmlParseParamFile: libxml2: " + main_ + ":2:"), 2u) << cap.dump();
        xmlFreeDoc(xmlReadMemory("<x>", 3, "app.xml", nullptr, 0));   // the application's own
        EXPECT_EQ(g_app_errors, app_handler ? 1 : 0);
        xmlSetStructuredErrorFunc(nullptr, nullptr);
    }
    ASSERT_TRUE(write_file(main_, kHead + ("<net>" + repeat("<" + std::string(200, 'a') + "></b>", 1000)) + "</net>"));
    TraceCapture cap(8);
    kavor_load_one(f_[1]);
    EXPECT_EQ(cap.count_containing("5 xmlParseParamFile: libxml2: " + main_ + ":"), 16u);
    EXPECT_EQ(cap.count_containing("more messages on " + main_ + " not shown."), 1u) << cap.dump();
    kavor_load_report_t rep;   // the report keeps the first error's message, cut to its buffer
    EXPECT_TRUE(kavor_load_report(f_[1], &rep) == 0 && strlen(rep.error_message) == sizeof rep.error_message - 1) << rep.error_message;
}

// kavor_load_all over three files, each good (0), recovered (1) or failed
// (-1): -1 if any failed, else 1 if any recovered, else 0; no files: 0.
TEST(KavorLoadAll, MergesTheResultsOfAllFiles)
{
    const int32_t rows[][4] = {
        {0, 0, 0, 0}, {0, 1, 0, 1}, {0, 0, -1, -1}, {1, 0, 0, 1}, {1, 1, 1, 1}, {1, -1, 1, -1},
        {-1, 0, 0, -1}, {-1, 1, 0, -1}, {0, 1, -1, -1}, {0, 1, 1, 1},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(::testing::Message() << r[0] << "," << r[1] << "," << r[2]);
        TempDir dir;
        Mgr mgr;
        Pair blk[3] = {};
        size_t failed = 0, traced = &r - rows < 5;   // the last rows untraced
        for (int i = 0; i < 3; i++) {
            std::string stem = "f" + std::to_string(i);
            kavor_file_rgst_t rg = request(dir.file(stem), "n", pair_table(), &blk[i], 1);
            ASSERT_NE(kavor_register(mgr.get(), &rg), nullptr);
            std::string body = r[i] == 0 ? doc(stem, child("n", "ok")) : kHead + ("<" + stem + ">") + child("n", "ok") + "<n><label>x";
            ASSERT_TRUE(r[i] < 0 || write_file(dir.file(stem + ".xml"), body));
            failed += r[i] < 0;
        }
        std::optional<TraceCapture> cap = traced_if(traced, 4);
        EXPECT_EQ(kavor_load_all(mgr.get()), r[3]);
        for (int i = 0; i < 3; i++)
            EXPECT_STREQ(blk[i].label, r[i] >= 0 ? "ok" : "") << i;
        EXPECT_TRUE(!cap || cap->count_containing("4 kavor_load_all: load file (") == failed) << cap->dump();
    }
    Mgr none;
    EXPECT_EQ(kavor_load_all(none.get()), 0);
}

}  // namespace
