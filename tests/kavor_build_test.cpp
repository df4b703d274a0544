// Document build and the one-shot conversions: the form of the output
// (plain and flat, or gzip and indented, by the target's last suffix), the
// directories made, refused requests, a failed write, and libxml2 running
// out of memory while the tree is built: only a complete document may ever
// reach a target.
#include <gtest/gtest.h>

#include <dirent.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <zlib.h>

#include <set>
#include <string>

#include <libxml/parser.h>

#include "bare_manager.h"
#include "kavor_private.h"
#include "request.h"
#include "test_util.h"
#include "trace_capture.h"
#include "vn_mem_hook.h"
#include "xml_alloc.h"

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
pdesc g_empty[] = {{0, 0, 0, 0, 0, 0, 0, 0, nullptr, nullptr, 0}};

kavor_file_rgst_t request(const std::string &file, const char *node, void *mem, pdesc *desc,
                          int32_t ugz)
{
    return make_request(file, node, desc, mem, ugz);
}

// The content of a file, uncompressed if it is gzip data.
std::string gunzip(const std::string &path)
{
    gzFile gz = gzopen(path.c_str(), "rb");
    if (gz == nullptr)
        return "";
    std::string out;
    char buf[4096];
    int n;
    while ((n = gzread(gz, buf, sizeof(buf))) > 0)
        out.append(buf, static_cast<size_t>(n));
    gzclose(gz);
    return out;
}

std::set<std::string> entries(const std::string &dir)
{
    std::set<std::string> out;
    DIR *d = opendir(dir.c_str());
    if (d == nullptr)
        return out;
    while (struct dirent *e = readdir(d))
        if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0)
            out.insert(e->d_name);
    closedir(d);
    return out;
}

const char kFlat[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
    "<net><n><label>alpha</label><owner>bob</owner></n></net>\n";
const char kIndented[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
    "<net>\n  <n>\n    <label>alpha</label>\n    <owner>bob</owner>\n  </n>\n</net>\n";

TEST(KavorBuild, PlainFileIsFlatAndCompressedFileIsIndented)
{
    struct {
        int32_t ugz;
        const char *file;
        bool gz;
        const char *text;
    } rows[] = {{1, "net.xml", false, kFlat}, {0, "net.xml.gz", true, kIndented},
                {7, "net.xml.gz", true, kIndented}};
    for (const auto &r : rows) {
        SCOPED_TRACE(r.ugz);
        TempDir dir;
        Blk blk = {"alpha", "bob"};
        kavor_file_rgst_t rg = request(dir.file("net.cfg"), "n", &blk, g_desc, r.ugz);
        TraceCapture cap(8);
        EXPECT_EQ(kavor_param2file(&rg), 0) << cap.dump();
        // In place: no backup and no temporary.
        EXPECT_EQ(entries(dir.path()), std::set<std::string>{r.file});
        EXPECT_EQ(read_file(dir.file(r.file)).substr(0, 2) == "\x1f\x8b", r.gz);
        EXPECT_EQ(gunzip(dir.file(r.file)), r.text);
        std::string target = dir.file(r.file);
        EXPECT_EQ(cap.count_at_most(6), 0u) << cap.dump();
    }
}

TEST(KavorBuild, TheTargetsLastSuffixAloneDecidesTheForm)
{
    struct {
        const char *target;
        bool gz;
        bool message;  // "Unknown type of file" for a name without a dot
    } rows[] = {{"x.xml.tmp", false, false},
                {"x.xml.gz.tmp.gz", true, false},
                {"virt.xml", false, false},
                {"sub/deeper/nodot", false, true},
                {"new/dirs/made/x.xml.gz", true, false}};
    for (const auto &r : rows) {
        SCOPED_TRACE(r.target);
        TempDir dir;
        BareManager mgr;
        Blk blk = {"alpha", "bob"};
        kavor_file_rgst_t rg = request(dir.file("net"), "n", &blk, g_desc, 0);
        kavor_file_t *f = kavor_register(mgr.get(), &rg);
        ASSERT_NE(f, nullptr);
        std::string target = dir.file(r.target);
        TraceCapture cap(8);
        EXPECT_EQ(xmlMakeParamFile(f->fcom, &target[0]), 0) << cap.dump();
        EXPECT_EQ(read_file(target).substr(0, 2) == "\x1f\x8b", r.gz);
        EXPECT_EQ(gunzip(target), r.gz ? kIndented : kFlat);
        EXPECT_EQ(cap.has(4, "isGzFile", "Unknown type of file (" + target + ")."), r.message)
            << cap.dump();
        EXPECT_FALSE(file_exists(dir.file("net.xml.gz")));
    }
}

TEST(KavorBuild, NodesBecomeChildrenInListOrderEvenWhenEmpty)
{
    TempDir dir;
    BareManager mgr;
    Blk one = {"1", "x"}, two = {"2", "y"};
    kavor_file_rgst_t r1 = request(dir.file("net"), "first", &one, g_desc, 1);
    kavor_file_rgst_t r2 = request(dir.file("net"), "empty", &two, g_empty, 1);
    kavor_file_rgst_t r3 = request(dir.file("net"), "second", &two, g_desc, 1);
    kavor_file_t *f = kavor_register(mgr.get(), &r1);
    ASSERT_NE(kavor_register(mgr.get(), &r2), nullptr);
    ASSERT_NE(kavor_register(mgr.get(), &r3), nullptr);
    EXPECT_EQ(xmlMakeParamFile(f->fcom, f->fcom->filename), 0);
    EXPECT_EQ(read_file(dir.file("net.xml")),
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<net><first><label>1</label><owner>x"
              "</owner></first><empty/><second><label>2</label><owner>y</owner></second></net>\n");
}

struct Mixed {
    int32_t speed;
    uint16_t vlan[3];
    char label[16];
};
pdesc g_mixed[] = {
    PX_SINT(Mixed, speed, "speed"),
    PX_UINT_ARR(Mixed, vlan, "vlan"),
    PX_STRI(Mixed, label, "label"),
    PX_END,
};

TEST(KavorBuild, OneShotRoundTripRestoresTheBlock)
{
    for (int32_t ugz : {1, 0}) {
        SCOPED_TRACE(ugz);
        TempDir dir;
        Mixed blk = {-42, {1, 2, 65535}, "port"};
        kavor_file_rgst_t rg = request(dir.file("eth/port"), "p", &blk, g_mixed, ugz);
        long live = vn_mem_live();
        ASSERT_EQ(kavor_param2file(&rg), 0);
        memset(&blk, 0, sizeof(blk));
        TraceCapture cap(8);
        EXPECT_EQ(kavor_file2param(&rg), 0) << cap.dump();
        EXPECT_EQ(blk.speed, -42);
        EXPECT_EQ(blk.vlan[0], 1);
        EXPECT_EQ(blk.vlan[2], 65535);
        EXPECT_STREQ(blk.label, "port");
        EXPECT_EQ(vn_mem_live(), live);
        EXPECT_EQ(cap.count_at_most(5), 0u) << cap.dump();
    }
}

TEST(KavorBuild, FileToParamFailuresLeaveTheBlockAsItWas)
{
    TempDir dir;
    const std::string head = "<?xml version=\"1.0\"?>\n";
    struct {
        const char *what;
        std::string content;  // empty: no file
        int32_t result;
        const char *label;
        std::string msg;      // level-4 message of xmlParseParamFile
    } rows[] = {
        {"missing", "", -1, "keep", "xmlParseFile " + dir.file("net.xml") + " failed!"},
        {"another stem", head + "<cfg><n><label>x</label></n></cfg>", -1, "keep",
         "parse xml file(" + dir.file("net.xml") + ") failed!"},
        {"partial", head + "<net><n><label>part</label></n><n><lab", 1, "part", ""},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        remove(dir.file("net.xml").c_str());
        if (!r.content.empty()) {
            ASSERT_TRUE(write_file(dir.file("net.xml"), r.content));
        }
        Blk blk = {"keep", "keep"};
        kavor_file_rgst_t rg = request(dir.file("net"), "n", &blk, g_desc, 1);
        TraceCapture cap(8);
        EXPECT_EQ(kavor_file2param(&rg), r.result);
        EXPECT_STREQ(blk.label, r.label);
        if (!r.msg.empty()) {
            EXPECT_TRUE(cap.has(4, "xmlParseParamFile", r.msg)) << cap.dump();
        }
        // No size test and no fall-back in a one-shot load.
        EXPECT_EQ(cap.count_containing("size is 0"), 0u) << cap.dump();
        EXPECT_EQ(cap.count_containing(".bak"), 0u) << cap.dump();
    }
}

TEST(KavorBuild, RefusedRequestsReturnMinusOne)
{
    TraceCapture cap(8);
    EXPECT_EQ(kavor_param2file(nullptr), -1);
    EXPECT_EQ(kavor_file2param(nullptr), -1);
    EXPECT_EQ(cap.count(4, "kavor_register", "xmlParamFile pointer NULL!"), 2u) << cap.dump();
    kavor_file_rgst_t empty;
    memset(&empty, 0, sizeof(empty));
    EXPECT_EQ(kavor_param2file(&empty), -1);
    EXPECT_EQ(kavor_file2param(&empty), -1);
    EXPECT_EQ(cap.count(4, "kavor_register", "xml file name is empty!"), 2u) << cap.dump();
}

// The write goes through kavor_sys.save_doc: a failing writer gives -1 and
// the end record is still written.
int fail_write(int fd, xmlDocPtr, const char *, int)
{
    close(fd);
    return -1;
}

TEST(KavorBuild, AFailedWriteGivesMinusOne)
{
    TempDir dir;
    Blk blk = {"alpha", "bob"};
    kavor_file_rgst_t rg = request(dir.file("net"), "n", &blk, g_desc, 1);
    kavor_sys_t saved = kavor_sys;
    kavor_sys.save_doc = fail_write;
    TraceCapture cap(8);
    int32_t ret = kavor_param2file(&rg);
    kavor_sys = saved;
    EXPECT_EQ(ret, -1);
    EXPECT_EQ(cap.count_containing("end to makeParam of file<"), 1u) << cap.dump();
    EXPECT_EQ(read_file(dir.file("net.xml")), "") << "created, and nothing written";
}

// The writer on a descriptor gives, byte for byte, what libxml2's own file
// writer gave for the same document: plain, and gzip at level 1 with its
// header, with text that needs escaping and characters beyond ASCII.
TEST(KavorBuild, TheDescriptorWriterGivesTheBytesOfLibxml2sFileWriter)
{
    TempDir dir;
    xmlDocPtr doc = xmlNewDoc(BAD_CAST "1.0");
    xmlNodePtr root = xmlNewDocNode(doc, nullptr, BAD_CAST "net", nullptr);
    xmlDocSetRootElement(doc, root);
    for (int i = 0; i < 300; i++) {
        xmlNodePtr n = xmlNewChild(root, nullptr, BAD_CAST "n", BAD_CAST "a&b <c> \xc3\xa9\xe2\x82\xac");
        xmlNewProp(n, BAD_CAST "idx", BAD_CAST std::to_string(i).c_str());
    }
    for (int gz : {0, 1}) {
        SCOPED_TRACE(gz);
        xmlSetDocCompressMode(doc, gz);
        const std::string mine = dir.file("mine"), theirs = dir.file("theirs");
        int fd = kavor_create_new(mine.c_str());
        ASSERT_GE(fd, 0);
        EXPECT_GT(kavor_sys_default.save_doc(fd, doc, "utf-8", gz), 0);
        EXPECT_GT(xmlSaveFormatFileEnc(theirs.c_str(), doc, "utf-8", gz), 0);
        EXPECT_EQ(read_file(mine).substr(0, 2) == "\x1f\x8b", gz == 1);
        EXPECT_EQ(read_file(mine), read_file(theirs));
        EXPECT_LT(kavor_create_new(mine.c_str()), 0) << "an existing name is never written";
        remove(mine.c_str());
    }
    xmlFreeDoc(doc);
}

// A managed file whose last node is leaving has an empty list: its document
// would hold the root alone and must not replace the stored file. A
// standalone record, which always has its node, writes what it has.
int g_writes;
int count_write(int fd, xmlDocPtr doc, const char *enc, int format)
{
    g_writes++;
    return kavor_sys_default.save_doc(fd, doc, enc, format);
}

TEST(KavorBuild, AnEmptyNodeListOfAManagedFileIsNeverWritten)
{
    TempDir dir;
    BareManager mgr;
    Blk blk = {"alpha", "bob"};
    kavor_file_rgst_t rg = request(dir.file("net"), "n", &blk, g_desc, 1);
    kavor_file_t *managed = kavor_register(mgr.get(), &rg);
    kavor_file_t *alone = kavor_register(nullptr, &rg);
    ASSERT_TRUE(write_file(dir.file("net.xml"), "stored"));
    kavor_sys_t saved = kavor_sys;
    kavor_sys.save_doc = count_write;
    g_writes = 0;
    for (kavor_file_t *f : {managed, alone}) {
        zhead_t nodes = f->fcom->file_lst;
        f->fcom->file_lst = nullptr;
        TraceCapture cap(8);
        int32_t ret = xmlMakeParamFile(f->fcom, f->fcom->filename);
        f->fcom->file_lst = nodes;
        EXPECT_TRUE(cap.has(4, "xmlMakeNode", "xmlMakeNode: pRoot or fobj is NULL!")) << cap.dump();
        if (f == managed) {
            EXPECT_EQ(ret, -1);
            EXPECT_EQ(g_writes, 0);
            EXPECT_EQ(read_file(dir.file("net.xml")), "stored");
            EXPECT_TRUE(cap.has(4, "xmlMakeParamFile", "document of file<" +
                                                          dir.file("net.xml") +
                                                          "> is incomplete, not written."))
                << cap.dump();
        } else {
            EXPECT_EQ(ret, 0);
            EXPECT_EQ(g_writes, 1);
            EXPECT_EQ(read_file(dir.file("net.xml")),
                      "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<net/>\n");
        }
    }
    kavor_sys = saved;
    kavor_unregister(alone);
}

// libxml2 allocations fail one at a time, from the first on, while the
// document of a file of three nodes is built. Whatever fails, every document
// handed to the writer holds its root element and all three children, and a
// result of -1 before the write leaves the stored file as it was.
XmlAlloc *g_alloc;
bool g_failed_before_write;
int g_bad_docs;
int check_write(int fd, xmlDocPtr doc, const char *enc, int format)
{
    g_writes++;
    xmlNodePtr root = xmlDocGetRootElement(doc);
    int children = 0;
    for (xmlNodePtr c = root != nullptr ? root->children : nullptr; c != nullptr; c = c->next)
        children++;
    g_bad_docs += root == nullptr || children != 3;
    // The sweep covers the build; libxml2's writer leaks zlib state when it
    // runs out of memory itself, which is none of this library's business.
    g_failed_before_write = g_alloc->failed();
    g_alloc->stop();
    return kavor_sys_default.save_doc(fd, doc, enc, format);
}

TEST(KavorBuild, LibxmlOutOfMemoryNeverWritesAnIncompleteDocument)
{
    TempDir dir;
    BareManager mgr;
    Blk blk = {"alpha", "bob"};
    kavor_file_t *first = nullptr;
    for (const char *node : {"a", "b", "c"}) {
        kavor_file_rgst_t rg = request(dir.file("net"), node, &blk, g_desc, 0);
        kavor_file_t *f = kavor_register(mgr.get(), &rg);
        ASSERT_NE(f, nullptr);
        if (first == nullptr)
            first = f;
    }
    std::string target = dir.file("net.xml.gz.tmp.gz");
    kavor_sys_t saved = kavor_sys;
    kavor_sys.save_doc = check_write;
    int failures_before_write = 0;
    for (long n = 1; n < 2000; n++) {
        SCOPED_TRACE("n=" + std::to_string(n));
        ASSERT_TRUE(write_file(target, "stored"));
        g_writes = g_bad_docs = 0;
        TraceCapture cap(4);
        int32_t ret;
        bool fired;
        {
            XmlAlloc xa;
            g_alloc = &xa;
            xa.fail_nth(n);
            ret = xmlMakeParamFile(first->fcom, &target[0]);
            fired = g_writes > 0 ? g_failed_before_write : xa.failed();
        }
        EXPECT_EQ(g_bad_docs, 0);
        if (g_writes == 0) {
            EXPECT_EQ(ret, -1);
            EXPECT_EQ(read_file(target), "stored");
            failures_before_write++;
        }
        if (!fired) {
            EXPECT_EQ(ret, 0);
            EXPECT_NE(gunzip(target).find("<c>"), std::string::npos) << gunzip(target);
            break;
        }
        if (ret == 0) {
            EXPECT_EQ(g_writes, 1);
        }
    }
    kavor_sys = saved;
    // The root element, each child and its content were made to fail.
    EXPECT_GE(failures_before_write, 4);
}

TEST(KavorBuild, TablesOfTheseTestsPassTheTableCheck) { EXPECT_EQ(param_xml_check(g_desc) + param_xml_check(g_empty) + param_xml_check(g_mixed), 0); }

}  // namespace
