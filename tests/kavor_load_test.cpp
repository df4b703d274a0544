// Document load: filling every node of a file, the recovery parser, the
// fall-back to the backup with the names it reports, the merged result of
// kavor_load_all, and refused handles.
#include <gtest/gtest.h>

#include <stddef.h>
#include <string.h>
#include <zlib.h>

#include <string>
#include <vector>

#include <libxml/parser.h>

#include "bare_manager.h"
#include "kavor_private.h"
#include "kavor_save_fixture.h"
#include "request.h"
#include "test_util.h"
#include "trace_capture.h"
#include "vn_mem_hook.h"

namespace {

struct Blk {
    char label[16];
    char owner[16];
};

pdesc g_desc[] = {
    {0, 0, 16, PT_STRI, offsetof(Blk, label), 0, 0, 16, "label", nullptr, 0},
    {0, 0, 16, PT_STRI, offsetof(Blk, owner), 0, 0, 16, "owner", nullptr, 0},
    {0, 0, 0, 0, 0, 0, 0, 0, nullptr, nullptr, 0},
};
const char kHead[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

std::string doc(const std::string &root, const std::string &body)
{
    return kHead + ("<" + root + ">" + body + "</" + root + ">\n");
}

std::string child(const std::string &node, const std::string &label)
{
    return "<" + node + "><label>" + label + "</label><owner>o</owner></" + node + ">";
}

bool write_gz(const std::string &path, const std::string &content)
{
    gzFile gz = gzopen(path.c_str(), "wb");
    if (gz == nullptr)
        return false;
    int n = gzwrite(gz, content.data(), static_cast<unsigned>(content.size()));
    return gzclose(gz) == Z_OK && n == static_cast<int>(content.size());
}

class KavorLoad : public ::testing::Test {
protected:
    void SetUp() override
    {
        memset(&a_, 0, sizeof(a_));
        memset(&b_, 0, sizeof(b_));
        strcpy(a_.label, "initial-a");
        strcpy(b_.label, "initial-b");
        main_ = dir_.file("net.xml");
        bak_ = dir_.file("net.xml.bak");
        kavor_file_rgst_t ra = make_request(dir_.file("net"), "a", g_desc, &a_, 1);
        kavor_file_rgst_t rb = make_request(dir_.file("net"), "b", g_desc, &b_, 1);
        fa_ = kavor_register(mgr_.get(), &ra);
        fb_ = kavor_register(mgr_.get(), &rb);
        ASSERT_NE(fa_, nullptr);
        ASSERT_NE(fb_, nullptr);
    }

    TempDir dir_;
    BareManager mgr_;
    Blk a_, b_;
    std::string main_, bak_;
    kavor_file_t *fa_ = nullptr, *fb_ = nullptr;
};

TEST_F(KavorLoad, OneHandleLoadsEveryNodeOfItsFile)
{
    ASSERT_TRUE(write_file(main_, doc("net", child("b", "beta") + child("a", "alpha"))));
    TraceCapture cap(8);
    EXPECT_EQ(kavor_load_one(fb_), 0);
    EXPECT_STREQ(a_.label, "alpha");
    EXPECT_STREQ(b_.label, "beta");
    EXPECT_STREQ(a_.owner, "o");
    EXPECT_TRUE(cap.has(7, "xmlParseParamFile", "parse xml file(" + main_ + ").")) << cap.dump();
    EXPECT_TRUE(cap.has(7, "load_xml", "succeed to load file (" + main_ + ").")) << cap.dump();
    EXPECT_EQ(cap.count_at_most(5), 0u) << cap.dump();
}

TEST_F(KavorLoad, CompressedFileLoadsThroughTheSameCalls)
{
    kavor_file_rgst_t rg = make_request(dir_.file("cfg"), "a", g_desc, &a_, 0);
    kavor_file_t *f = kavor_register(mgr_.get(), &rg);
    ASSERT_NE(f, nullptr);
    ASSERT_TRUE(write_gz(dir_.file("cfg.xml.gz"), doc("cfg", child("a", "zipped"))));
    EXPECT_EQ(kavor_load_one(f), 0);
    EXPECT_STREQ(a_.label, "zipped");
}

struct FallRow {
    const char *what;
    const char *main;      // content, or nullptr: missing
    const char *bak;       // content, or nullptr: missing
    int32_t result;
    const char *label_a;   // a's label afterwards
    std::vector<std::pair<int, std::string>> records;  // level, text with @M / @B for names
};

std::string names(std::string s, const std::string &m, const std::string &b)
{
    for (size_t p; (p = s.find("@M")) != std::string::npos;)
        s.replace(p, 2, m);
    for (size_t p; (p = s.find("@B")) != std::string::npos;)
        s.replace(p, 2, b);
    return s;
}

TEST_F(KavorLoad, FallBackToTheBackupWhenTheFileGivesNothingUsable)
{
    const std::string good_bak = doc("net", child("a", "from-bak"));
    const std::string good = doc("net", child("a", "from-main"));
    const std::string truncated =
        std::string(kHead) + "<net>" + child("a", "partial") + "<b><label>be";
    const std::string wrong_root = doc("cfg", child("a", "x"));
    const std::string root_x = doc("x", ""), root_y = doc("y", "");
    const FallRow rows[] = {
        {"main missing, good backup", nullptr, good_bak.c_str(), 0, "from-bak",
         {{5, "load_xml: file (@M) size is 0!"}, {7, "load_xml: succeed to load file (@B)."}}},
        {"both missing", nullptr, nullptr, -1, "initial-a",
         {{5, "load_xml: file (@M) size is 0!"}, {5, "load_xml: file (@B) size is 0!"}}},
        {"empty main, good backup", "", good_bak.c_str(), 0, "from-bak",
         {{5, "load_xml: file (@M) size is 0!"}, {7, "load_xml: succeed to load file (@B)."}}},
        {"wrong root", wrong_root.c_str(), good_bak.c_str(), 0, "from-bak",
         {{4, "xmlParseParamFile: parse xml file(@M) failed!"},
          {5, "load_xml: failed to load file (@M)."},
          {7, "load_xml: succeed to load file (@B)."}}},
        {"truncated main: recovered, no fall-back", truncated.c_str(), good_bak.c_str(), 1,
         "partial", {{7, "load_xml: succeed to load file (@M)."}}},
        {"good main", good.c_str(), good_bak.c_str(), 0, "from-main",
         {{7, "load_xml: succeed to load file (@M)."}}},
        {"both with a wrong root", root_x.c_str(), root_y.c_str(), -1, "initial-a",
         {{4, "xmlParseParamFile: parse xml file(@M) failed!"},
          {4, "xmlParseParamFile: parse xml file(@B) failed!"},
          {5, "load_xml: failed to load file (@B)."}}},
    };
    for (const FallRow &r : rows) {
        SCOPED_TRACE(r.what);
        strcpy(a_.label, "initial-a");
        remove(main_.c_str());
        remove(bak_.c_str());
        if (r.main != nullptr) {
            ASSERT_TRUE(write_file(main_, r.main));
        }
        if (r.bak != nullptr) {
            ASSERT_TRUE(write_file(bak_, r.bak));
        }
        char *name_before = fa_->fcom->filename, *bak_before = fa_->fcom->file_bak;
        TraceCapture cap(8);
        EXPECT_EQ(kavor_load_one(fa_), r.result) << cap.dump();
        EXPECT_STREQ(a_.label, r.label_a);
        for (const auto &rec : r.records)
            EXPECT_EQ(cap.count_containing(std::to_string(rec.first) + " " +
                                           names(rec.second, main_, bak_)),
                      1u)
                << names(rec.second, main_, bak_) << "\n" << cap.dump();
        if (r.result == 1 || std::string(r.what) == "good main") {
            EXPECT_EQ(cap.count_containing(bak_), 0u) << cap.dump();
        }
        EXPECT_EQ(fa_->fcom->filename, name_before);
        EXPECT_EQ(fa_->fcom->file_bak, bak_before);
        EXPECT_EQ(std::string(fa_->fcom->filename), main_);
        EXPECT_EQ(std::string(fa_->fcom->file_bak), bak_);
        if (r.main != nullptr) {
            EXPECT_TRUE(file_exists(main_));  // a load never removes a file
        }
    }
}

// What libxml2 says of a damaged file (twice: strict and recovery parser)
// goes into the trace at level 5 with the file and the line, and nothing
// reaches standard error, where the application may have no one to read it.
// An error handler that the application set on the thread gets none of it
// and is in place afterwards.
int g_app_errors;
void app_errors(void *, xmlErrorPtr) { g_app_errors++; }

TEST_F(KavorLoad, Libxml2sMessagesOnADamagedFileGoToTheTraceNotToStandardError)
{
    ASSERT_TRUE(write_file(main_, std::string(kHead) + "<net>" + child("a", "partial") + "<b><x>"));
    for (bool app_handler : {false, true}) {
        SCOPED_TRACE(app_handler);
        g_app_errors = 0;
        xmlSetStructuredErrorFunc(&g_app_errors, app_handler ? app_errors : nullptr);
        TraceCapture cap(8);
        kvtest::StderrCapture err;
        EXPECT_EQ(kavor_load_one(fa_), 1);
        EXPECT_EQ(err.text(), "");
        EXPECT_STREQ(a_.label, "partial");
        EXPECT_GE(cap.count_containing("5 xmlParseParamFile: libxml2: " + main_ + ":2:"), 2u)
            << cap.dump();
        EXPECT_EQ(g_app_errors, 0);
        if (app_handler) {
            xmlFreeDoc(xmlReadMemory("<x>", 3, "app.xml", nullptr, 0));   // the application's own
            EXPECT_EQ(g_app_errors, 1);
        }
        xmlSetStructuredErrorFunc(nullptr, nullptr);
    }
    // A document of a thousand faults costs the trace 16 records and a count.
    std::string faults;
    for (int i = 0; i < 1000; i++)
        faults += "<a></b>";
    ASSERT_TRUE(write_file(main_, std::string(kHead) + "<net>" + faults + "</net>"));
    TraceCapture cap(8);
    kavor_load_one(fa_);
    EXPECT_EQ(cap.count_containing("5 xmlParseParamFile: libxml2: " + main_ + ":"), 16u);
    EXPECT_EQ(cap.count_containing("more messages on " + main_ + " not shown."), 1u) << cap.dump();
}

TEST_F(KavorLoad, NotXmlAtAllFailsAndFallsBack)
{
    ASSERT_TRUE(write_file(main_, "this is \x01 not xml"));
    ASSERT_TRUE(write_file(bak_, doc("net", child("a", "from-bak"))));
    TraceCapture cap(8);
    EXPECT_EQ(kavor_load_one(fa_), 0);
    EXPECT_STREQ(a_.label, "from-bak");
    size_t refused = cap.count(4, "xmlParseParamFile", "xmlParseFile " + main_ + " failed!") +
                     cap.count(4, "xmlParseParamFile", main_ + " get root node failed!");
    EXPECT_EQ(refused, 1u) << cap.dump();
    EXPECT_TRUE(cap.has(5, "load_xml", "failed to load file (" + main_ + ").")) << cap.dump();
}

// While the backup is read, the record still holds its true pair of names:
// a reader without f_mutex (registration, the save road) never sees them
// swapped. Checked from inside the load, at the backup's trace records.
std::string g_seen;
kavor_fcom_t *g_watch;
int32_t watch_names(const char *record)
{
    if (strstr(record, ".bak") != nullptr)
        g_seen += std::string(g_watch->filename) + "|" + g_watch->file_bak + "\n";
    return 0;
}

TEST_F(KavorLoad, TheRecordKeepsItsTrueNamesDuringTheFallBack)
{
    ASSERT_TRUE(write_file(bak_, doc("net", child("a", "from-bak"))));
    g_seen.clear();
    g_watch = fa_->fcom;
    vorn_trace_handle saved = param_xml_trace_h;
    param_xml_trace_h = vorn_mod_trace_init("watch", nullptr, 8, watch_names);
    int32_t ret = kavor_load_one(fa_);
    vorn_mod_trace_free(param_xml_trace_h);
    param_xml_trace_h = saved;
    EXPECT_EQ(ret, 0);
    ASSERT_FALSE(g_seen.empty());
    std::string pair = main_ + "|" + bak_ + "\n";
    for (size_t p = 0; p < g_seen.size(); p += pair.size())
        EXPECT_EQ(g_seen.substr(p, pair.size()), pair);
}

TEST_F(KavorLoad, NodesTakeTheFirstChildOfTheirNameAndMissingOnesStayAsTheyWere)
{
    ASSERT_TRUE(write_file(
        main_, doc("net", "<other/>" + child("a", "first") + child("a", "second"))));
    TraceCapture cap(8);
    EXPECT_EQ(kavor_load_one(fa_), 0);
    EXPECT_STREQ(a_.label, "first");
    EXPECT_STREQ(b_.label, "initial-b");
    EXPECT_EQ(cap.count_at_most(5), 0u) << cap.dump();
}

TEST_F(KavorLoad, RefusedHandles)
{
    struct {
        const char *what;
        int32_t (*call)(kavor_file_t *);
        const char *func, *msg;
    } rows[] = {
        {"load_one NULL", [](kavor_file_t *) { return kavor_load_one(nullptr); },
         "kavor_load_one", "xml_file_hdl is NULL."},
        {"load_all NULL", [](kavor_file_t *) { return kavor_load_all(nullptr); },
         "kavor_load_all", "kavor hdl is NULL."},
        {"standalone node", [](kavor_file_t *f) { return kavor_load_one(f); }, "kavor_load_one",
         "file node (alone) has no manager!"},
    };
    ASSERT_TRUE(write_file(dir_.file("solo.xml"), doc("solo", child("alone", "x"))));
    kavor_file_rgst_t rs = make_request(dir_.file("solo"), "alone", g_desc, &a_, 1);
    kavor_file_t *solo = kavor_register(nullptr, &rs);
    ASSERT_NE(solo, nullptr);
    for (const auto &r : rows) {
        TraceCapture cap(8);
        EXPECT_EQ(r.call(solo), -1) << r.what;
        EXPECT_TRUE(cap.has(4, r.func, r.msg)) << cap.dump();
        EXPECT_EQ(cap.records().size(), 1u) << cap.dump();
    }
    EXPECT_STREQ(a_.label, "initial-a");
    kavor_unregister(solo);
}

// kavor_load_all over three files, each good (0), recovered (1) or failed
// (-1): the result is -1 if any failed, else 1 if any recovered, else 0.
TEST(KavorLoadAll, MergesTheResultsOfAllFiles)
{
    const int32_t rows[][4] = {
        // file1, file2, file3, merged
        {0, 0, 0, 0},   {0, 1, 0, 1},   {0, 0, -1, -1}, {1, 0, 0, 1},   {1, 1, 1, 1},
        {1, -1, 1, -1}, {-1, 0, 0, -1}, {-1, 1, 0, -1}, {0, 1, -1, -1}, {0, 1, 1, 1},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(::testing::Message() << r[0] << "," << r[1] << "," << r[2]);
        TempDir dir;
        BareManager mgr;
        Blk blk[3];
        memset(blk, 0, sizeof(blk));
        std::vector<std::string> failed;
        for (int i = 0; i < 3; i++) {
            std::string stem = "f" + std::to_string(i);
            kavor_file_rgst_t rg = make_request(dir.file(stem), "n", g_desc, &blk[i], 1);
            ASSERT_NE(kavor_register(mgr.get(), &rg), nullptr);
            std::string path = dir.file(stem + ".xml");
            if (r[i] == 0) {
                ASSERT_TRUE(write_file(path, doc(stem, child("n", "ok"))));
            } else if (r[i] == 1) {
                ASSERT_TRUE(write_file(path, std::string(kHead) + "<" + stem + ">" +
                                                 child("n", "ok") + "<n><label>x"));
            } else {
                failed.push_back(path);
            }
        }
        TraceCapture cap(8);
        EXPECT_EQ(kavor_load_all(mgr.get()), r[3]) << cap.dump();
        for (int i = 0; i < 3; i++)
            EXPECT_STREQ(blk[i].label, r[i] >= 0 ? "ok" : "") << i;
        EXPECT_EQ(cap.count_containing("kavor_load_all: load file ("), failed.size()) << cap.dump();
        for (const auto &p : failed)
            EXPECT_TRUE(cap.has(4, "kavor_load_all", "load file (" + p + ") fail!")) << cap.dump();
    }
}

TEST(KavorLoadAll, AManagerWithoutFilesLoadsNothingAndSaysNothing)
{
    BareManager mgr;
    TraceCapture cap(8);
    EXPECT_EQ(kavor_load_all(mgr.get()), 0);
    EXPECT_TRUE(cap.records().empty()) << cap.dump();
}

TEST(KavorLoadTables, TablesOfTheseTestsPassTheTableCheck) { EXPECT_EQ(param_xml_check(g_desc), 0); }

}  // namespace
