// Document build and the one-shot conversions: the form by the suffix,
// refusals, failed writes, the descriptor writer, an empty node list.

#include <fcntl.h>

#include "kavor_fixture.h"

using namespace kvtest;

namespace {

const char kFlat[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<net><n><label>alpha</label><owner>bob</owner></n><e/></net>\n";
const char kIndented[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                         "<net>\n  <n>\n    <label>alpha</label>\n    <owner>bob</owner>\n  </n>\n  <e/>\n</net>\n";

class KavorBuild : public ::testing::Test {
protected:
    TempDir dir_;
    Mgr mgr_;
    Pair blk_ = {"alpha", "bob"};
    kavor_file_rgst_t rg_ = request(dir_.file("net"), "n", pair_table(), &blk_, 1);
};

TEST_F(KavorBuild, TheTargetsLastSuffixDecidesTheFormAndNodesFollowInListOrder)
{
    struct pdesc empty[] = {PX_END};
    kavor_file_rgst_t re = request(dir_.file("net"), "e", empty, &blk_, 1);
    kavor_file_t *f = kavor_register(mgr_.get(), &rg_);
    ASSERT_NE(kavor_register(mgr_.get(), &re), nullptr);
    int i = 0;
    for (const char *target : {"net.xml", "net.xml.gz", "x.xml.tmp", "x.xml.gz.tmp.gz", "sub/deeper/nodot", "new/dirs/made/x.xml.gz"}) {
        std::string at = dir_.file(std::to_string(i++)), path = at + "/" + target;
        const bool gz = std::string(target).rfind(".gz") == strlen(target) - 3;
        EXPECT_TRUE(xmlMakeParamFile(f->fcom, &path[0]) == 0 && (read_file(path).substr(0, 2) == "\x1f\x8b") == gz) << target;
        EXPECT_EQ(gunzip(path), gz ? kIndented : kFlat) << target;
        EXPECT_EQ(files_in(at).size(), 1u) << "the target alone";
    }
    // The one-shot save writes in place: no backup, no temporary.
    for (int32_t ugz : {1, 0, 7}) {
        const std::string at = dir_.file("o" + std::to_string(ugz));
        kavor_file_rgst_t r = request(at + "/net.cfg", "n", pair_table(), &blk_, ugz);
        EXPECT_TRUE(kavor_param2file(&r) == 0 && files_in(at) == std::vector<std::string>{ugz == 1 ? "net.xml" : "net.xml.gz"});
    }
}

TEST_F(KavorBuild, OneShotFailuresLeaveTheBlockOrTheTargetAsTheyWere)
{
    const std::string head = "<?xml version=\"1.0\"?>\n", bak = head + "<net><n><label>backup</label></n></net>";
    ASSERT_TRUE(write_file(dir_.file("net.xml.bak"), bak));   // never read: no fall-back
    const struct { std::string content; int32_t result; const char *label; } rows[] = {
        {"", -1, "keep"} /* missing */, {head + "<cfg><n><label>x</label></n></cfg>", -1, "keep"}, {head + "<net><n><label>part</label></n><n><lab", 1, "part"},
        {head + "<!DOCTYPE net [<!ENTITY x SYSTEM \"net.xml.bak\">]>\n<net><n><label>&x;</label></n></net>", -1, "keep"},
    };
    for (const auto &r : rows) {
        remove(dir_.file("net.xml").c_str());
        ASSERT_TRUE(r.content.empty() || write_file(dir_.file("net.xml"), r.content));
        Pair blk = {"keep", "keep"};
        kavor_file_rgst_t rg = request(dir_.file("net"), "n", pair_table(), &blk, 1);
        TraceCapture cap(4);
        EXPECT_TRUE(kavor_file2param(&rg) == r.result && blk.label == std::string(r.label));
        EXPECT_EQ(cap.count_at_most(4), r.result < 0 ? 1u : 0u) << cap.dump();
    }
    kavor_file_rgst_t empty = {};
    EXPECT_TRUE(kavor_param2file(&empty) == -1 && kavor_file2param(&empty) == -1);
}

// A write that fails, or during which libxml2 raised an error although it
// gave a byte count, gives -1 and says why.
std::string g_raised;
int fail_write(int fd, xmlDocPtr, const char *, int) { return close(fd), -1; }
int write_then_raise(int fd, xmlDocPtr doc, const char *enc, int format)
{
    int n = kavor_sys_default.save_doc(fd, doc, enc, format);
    xmlDocPtr bad = xmlReadMemory("<a>", 3, "raise.xml", nullptr, XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    xmlFreeDoc(bad);
    g_raised = xmlGetLastError() != nullptr && xmlGetLastError()->message != nullptr ? xmlGetLastError()->message : "";
    return n;
}

TEST_F(KavorBuild, AFailedWriteGivesMinusOneAndLibxml2sMessage)
{
    kavor_sys_t saved = kavor_sys;
    for (auto writer : {fail_write, write_then_raise}) {
        kavor_sys.save_doc = writer;
        TraceCapture cap(4);
        EXPECT_EQ(kavor_param2file(&rg_), -1);
        const std::string msg = g_raised.substr(0, g_raised.find('\n')) + "\\n";   // the trace escapes the line end
        EXPECT_EQ(cap.records(), writer == fail_write ? std::vector<std::string>{}
                                                      : std::vector<std::string>{"4 xmlMakeParamFile: write of file<" + dir_.file("net.xml") + "> failed: " + msg});
        EXPECT_TRUE(writer != fail_write || read_file(dir_.file("net.xml")).empty()) << "created, nothing written";
    }
    kavor_sys = saved;
}

// The descriptor writer gives libxml2's file writer's bytes, plain and gzip,
// with escaped text and non-ASCII characters; it never writes an existing name.
TEST_F(KavorBuild, TheDescriptorWriterGivesTheBytesOfLibxml2sFileWriter)
{
    xmlDocPtr doc = xmlNewDoc(BAD_CAST "1.0");
    xmlDocSetRootElement(doc, xmlNewDocNode(doc, nullptr, BAD_CAST "net", nullptr));
    for (int i = 0; i < 300; i++)
        xmlNewProp(xmlNewChild(xmlDocGetRootElement(doc), nullptr, BAD_CAST "n", BAD_CAST "a&b <c> \xc3\xa9\xe2\x82\xac"),
                   BAD_CAST "idx", BAD_CAST std::to_string(i).c_str());
    for (int gz : {0, 1}) {
        xmlSetDocCompressMode(doc, gz);
        const std::string mine = dir_.file("mine"), theirs = dir_.file("theirs");
        int fd = kavor_create_new(mine.c_str());
        ASSERT_GE(fd, 0);
        EXPECT_TRUE(kavor_sys_default.save_doc(fd, doc, "utf-8", gz) > 0 && xmlSaveFormatFileEnc(theirs.c_str(), doc, "utf-8", gz) > 0);
        EXPECT_EQ(read_file(mine).substr(0, 2) == "\x1f\x8b", gz == 1);
        EXPECT_TRUE(read_file(mine) == read_file(theirs) && kavor_create_new(mine.c_str()) < 0) << gz;
        // An unknown encoding, a descriptor gzip can't take: -1, and the descriptor closed.
        fd = open(mine.c_str(), O_RDONLY);
        EXPECT_TRUE(kavor_sys_default.save_doc(fd, doc, "no-such-code", gz) == -1 && fcntl(fd, F_GETFD) == -1 && errno == EBADF);
        EXPECT_EQ(kavor_sys_default.save_doc(-1, doc, "utf-8", gz), -1);
        remove(mine.c_str());
    }
    xmlFreeDoc(doc);
}

// A managed file whose last node is leaving has an empty list, never written
// over the stored file; a standalone record writes what it has.
TEST_F(KavorBuild, AnEmptyNodeListOfAManagedFileIsNeverWritten)
{
    kavor_file_t *managed = kavor_register(mgr_.get(), &rg_), *alone = kavor_register(nullptr, &rg_);
    for (kavor_file_t *f : {managed, alone}) {
        ASSERT_TRUE(write_file(dir_.file("net.xml"), "stored"));
        zhead_t nodes = f->fcom->file_lst;
        f->fcom->file_lst = nullptr;
        TraceCapture cap(4);
        EXPECT_EQ(xmlMakeParamFile(f->fcom, f->fcom->filename), f == managed ? -1 : 0);
        f->fcom->file_lst = nodes;
        EXPECT_EQ(read_file(dir_.file("net.xml")), f == managed ? "stored" : "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<net/>\n");
        EXPECT_GE(cap.count_at_most(4), 1u);
    }
    kavor_unregister(alone);
}

}  // namespace
