// Hostile documents and hostile text. Documents (entity bombs, external
// entities and DTDs, deep nesting, enormous counts, long contents, invalid
// UTF-8) are loaded beside a good backup in a child whose CPU time (and,
// without sanitizers, address space) is limited; the child reports the
// result, its peak memory, the files libxml2 was asked to open and whether a
// foreign byte reached the block. Text XML can't carry is written with each
// offending byte as '?'; the reader joins element text as libxml2 does.
#include <gtest/gtest.h>

#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include <libxml/parser.h>

#include "../fuzz/fuzz_table.h"
#include "param_xml_private.h"
#include "bare_manager.h"
#include "kavor_private.h"
#include "request.h"
#include "test_util.h"
#include "trace_capture.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
const bool kSanitized = true;
#else
const bool kSanitized = false;
#endif

const long kCpuSeconds = 10;
const long kRssLimitKb = 256 * 1024;
// A marker that only foreign content holds; no block may ever show it.
const char kSecret[] = "SEKRET77";

std::string repeat(const std::string &s, size_t n)
{
    std::string out;
    out.reserve(s.size() * n);
    for (size_t i = 0; i < n; i++)
        out += s;
    return out;
}

std::string doc(const std::string &body, const std::string &prolog = "")
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n" + prolog + "<cfg><dev>" + body +
           "</dev></cfg>\n";
}

// What the child saw.
struct Outcome {
    bool has(const std::string &rec) const { return records.find(rec + "\n") != std::string::npos; }
    int ret = -99;            // the load's result
    long rss_kb = 0;          // peak resident memory of the child
    long cpu_ms = 0;          // CPU time of the child
    int secret = 0;           // the marker reached the block
    int good_backup = 0;      // the block holds the backup's label
    int opened_other = 0;     // resources libxml2 was asked to load beside the two files
    int signal = 0;           // the child died of this signal
    std::string records;      // level 4 and 5 trace records, joined
};

xmlExternalEntityLoader g_default_loader;
std::vector<std::string> *g_loads;

xmlParserInputPtr recording_loader(const char *url, const char *id, xmlParserCtxtPtr ctxt)
{
    g_loads->push_back(url != nullptr ? url : "(null)");
    return g_default_loader(url, id, ctxt);
}

void quiet(void *, const char *, ...) {}

bool block_has_secret(const fuzz::RichBlock &b)
{
    return memmem(&b, sizeof b, kSecret, strlen(kSecret)) != nullptr;
}

// A good backup of dir/cfg.xml and a foreign file a hostile one may point at.
void seed(const TempDir &dir)
{
    write_file(dir.file("secret.txt"), std::string(kSecret) + "\n");
    write_file(dir.file("cfg.xml.bak"), doc("<label>backup</label>"));
}

// Registers dir/cfg (node "dev", plain XML) and loads it with its backup.
int32_t load_cfg(const TempDir &dir, fuzz::RichBlock &b, kavor_file_rgst_t &r)
{
    fuzz::reset(&b);
    BareManager mgr;
    r = make_request(dir.file("cfg"), "dev", fx_table, &b.all, 1);
    xml_file_hdl h = kavor_register(mgr.get(), &r);
    return h != nullptr ? kavor_load_one(h) : -2;
}

// Loads dir/cfg.xml (main) with its backup in a child under the limits.
class HostileLoad : public ::testing::Test {
protected:
    void SetUp() override
    {
        seed(dir_);
        write_file(dir_.file("ext.dtd"), "<!ENTITY ext \"" + std::string(kSecret) + "\">\n"
                                         "<!ATTLIST sbuf cnt CDATA \"999999999\">\n");
    }

    Outcome load(const std::string &main_content)
    {
        EXPECT_TRUE(write_file(dir_.file("cfg.xml"), main_content));
        int fds[2];
        EXPECT_EQ(pipe(fds), 0);
        fflush(nullptr);  // nothing buffered is written twice
        pid_t pid = fork();
        if (pid == 0) {
            close(fds[0]);
            child(fds[1]);
            _exit(0);
        }
        close(fds[1]);
        Outcome out;
        std::string msg;
        char buf[4096];
        ssize_t n;
        while ((n = read(fds[0], buf, sizeof buf)) > 0)
            msg.append(buf, static_cast<size_t>(n));
        close(fds[0]);
        int status = 0;
        waitpid(pid, &status, 0);
        if (WIFSIGNALED(status))
            out.signal = WTERMSIG(status);
        int used = 0;
        if (sscanf(msg.c_str(), "%d %ld %d %d %d %ld %n", &out.ret, &out.rss_kb, &out.secret,
                   &out.good_backup, &out.opened_other, &out.cpu_ms, &used) >= 6)
            out.records = msg.substr(static_cast<size_t>(used));
        return out;
    }

    // Bounds that every hostile load must keep.
    void expect_bounded(const Outcome &o)
    {
        EXPECT_EQ(o.signal, 0) << "the child died (SIGXCPU: over " << kCpuSeconds << " s)";
        EXPECT_FALSE(o.secret) << "a foreign file's content reached the block";
        EXPECT_EQ(o.opened_other, 0) << "a file other than the parameter files was opened";
        EXPECT_TRUE(kSanitized || o.rss_kb <= kRssLimitKb) << "peak resident memory " << o.rss_kb;
    }

    TempDir dir_;

private:
    void child(int fd)
    {
        // SIGXCPU at the limit (the hard limit, a second later, kills).
        struct rlimit cpu = {static_cast<rlim_t>(kCpuSeconds), static_cast<rlim_t>(kCpuSeconds + 1)};
        setrlimit(RLIMIT_CPU, &cpu);
        if (!kSanitized) {
            struct rlimit as = {1ul << 30, 1ul << 30};
            setrlimit(RLIMIT_AS, &as);
        }
        xmlSetGenericErrorFunc(nullptr, quiet);
        // An application that turned on everything for its own documents.
        xmlSubstituteEntitiesDefault(1);
        xmlLoadExtDtdDefaultValue = XML_DETECT_IDS | XML_COMPLETE_ATTRS;
        std::vector<std::string> loads;
        g_loads = &loads;
        g_default_loader = xmlGetExternalEntityLoader();
        xmlSetExternalEntityLoader(recording_loader);

        TraceCapture cap(5);
        static fuzz::RichBlock b;
        kavor_file_rgst_t r;
        int32_t ret = load_cfg(dir_, b, r);
        int other = 0;
        for (const std::string &l : loads)
            other += l != dir_.file("cfg.xml") && l != dir_.file("cfg.xml.bak");
        struct rusage ru;
        getrusage(RUSAGE_SELF, &ru);
        std::string recs;
        for (const std::string &rec : cap.records())
            recs += rec.substr(0, 200) + "\n";
        long cpu_ms = (ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) * 1000L +
                      (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1000L;
        dprintf(fd, "%d %ld %d %d %d %ld\n%s", ret, ru.ru_maxrss, block_has_secret(b),
                strcmp(b.all.label, "backup") == 0, other, cpu_ms, recs.c_str());
        close(fd);
        _exit(0);
    }
};

// ---- declarations: every document with a DOCTYPE is refused ----------------

struct DoctypeCase {
    const char *what;
    std::function<std::string(const std::string &dir)> make;
};

TEST_F(HostileLoad, ADocumentTypeDeclarationIsRefusedBeforeAnythingIsDeclared)
{
    const DoctypeCase cases[] = {
        {"billion laughs", [](const std::string &) {
             std::string p = "<!DOCTYPE cfg [\n<!ENTITY l0 \"laughlaughlaugh\">\n";
             for (int i = 1; i < 12; i++)
                 p += "<!ENTITY l" + std::to_string(i) + " \"" +
                      repeat("&l" + std::to_string(i - 1) + ";", 10) + "\">\n";
             return doc("<label>&l11;</label>", p + "]>\n");
         }},
        {"quadratic blow-up, 3 MB", [](const std::string &) {
             return doc("<label>" + repeat("&big;", 30000) + "</label>",
                        "<!DOCTYPE cfg [<!ENTITY big \"" + repeat("x", 100000) + "\">]>\n");
         }},
        {"external entity", [](const std::string &d) {
             return doc("<label>&x;</label>",
                        "<!DOCTYPE cfg [<!ENTITY x SYSTEM \"file://" + d + "/secret.txt\">]>\n");
         }},
        {"external entity, relative", [](const std::string &) {
             return doc("<label>&x;</label>", "<!DOCTYPE cfg [<!ENTITY x SYSTEM \"secret.txt\">]>\n");
         }},
        {"external DTD", [](const std::string &d) {
             return doc("<label>&ext;</label><sbuf/>",
                        "<!DOCTYPE cfg SYSTEM \"file://" + d + "/ext.dtd\">\n");
         }},
        {"external parameter entity", [](const std::string &d) {
             return doc("<label>&ext;</label>", "<!DOCTYPE cfg [<!ENTITY % pe SYSTEM \"file://" + d +
                                                    "/ext.dtd\">\n%pe;\n]>\n");
         }},
        {"attribute default", [](const std::string &) {
             return doc("<sbuf><sbuf>1</sbuf></sbuf>",
                        "<!DOCTYPE cfg [<!ATTLIST sbuf cnt CDATA \"999999999\">]>\n");
         }},
        {"network DTD", [](const std::string &) {
             return doc("<label>x</label>", "<!DOCTYPE cfg SYSTEM \"http://127.0.0.1:9/x.dtd\">\n");
         }},
        {"declaration cut off", [](const std::string &) {
             return std::string("<?xml version=\"1.0\"?>\n<!DOCTYPE cfg [<!ENTITY a \"") +
                    repeat("a", 1000);
         }},
    };
    for (const DoctypeCase &c : cases) {
        SCOPED_TRACE(c.what);
        Outcome o = load(c.make(dir_.path()));
        printf("  %-28s result %d, peak %ld kB, %ld ms CPU\n", c.what, o.ret, o.rss_kb, o.cpu_ms);
        expect_bounded(o);
        EXPECT_EQ(o.ret, 0) << "the backup loads in place of the refused file";
        EXPECT_TRUE(o.good_backup);
        EXPECT_TRUE(o.has("4 xmlParseParamFile: " + dir_.file("cfg.xml") +
                          " has a document type declaration, refused!"))
            << o.records;
        EXPECT_TRUE(o.has("5 load_xml: failed to load file (" + dir_.file("cfg.xml") + ")."))
            << o.records;
    }
}

// ---- size and shape -----------------------------------------------------------

struct ShapeCase {
    const char *what;
    std::string content;
    int ret;                  // the documented result
    const char *record;       // a record that must be there ("" none)
};

TEST_F(HostileLoad, HugeOrOddDocumentsLoadOrFallBackWithinTheBounds)
{
    const std::string nest = repeat("<one>", 200000) + repeat("</one>", 200000);
    const ShapeCase cases[] = {
        {"200000 nested elements", doc(nest), 1, ""},
        {"3 MB string in one piece", doc("<label>" + repeat("y", 3 << 20) + "</label>"), 0, ""},
        {"string from 300000 pieces",
         doc("<label>" + repeat("<i>ab</i>", 300000) + "</label>"), 0, ""},
        {"12 MB text node", doc("<label>" + repeat("z", 12 << 20) + "</label>"), 1, ""},
        {"a million numbers for a row of five", doc("<s64a>" + repeat("7 ", 1 << 20) + "</s64a>"), 0, ""},
        {"enormous cnt", doc(repeat("<sbuf cnt=\"2147483647\"><sbuf>1</sbuf></sbuf>", 3) +
                             "<ubuf cnt=\"999999999\"/><fbuf cnt=\"-5\"/>"), 0,
         "4 xml2sint: xml2sint: sbuf count of buffer(2147483647) over the reader's limit"},
        {"huge cnt in every nested buffer",
         doc(repeat("<items>" + repeat("<ibuf cnt=\"50000000\"/>", 2) + "</items>", 4) +
             repeat("<ibuf cnt=\"100000000\"><ibuf><id>1</id></ibuf></ibuf>", 2)), 0, ""},
        {"300000 list nodes", doc("<chain>" + repeat("<chain/>", 300000) + "</chain>"), 0, ""},
        {"300000 variant nodes",
         doc("<mixed>" + repeat("<mixed typ=\"other\"/>", 300000) + "</mixed>"), 0, ""},
        {"enormous idx", doc("<s64a idx=\"99999999999999\">1</s64a><items idx=\"2147483648\"/>"), 0, ""},
        {"3 MB of unmatched elements", doc(repeat("<nope/>", 450000)), 0, ""},
        {"3 MB of attributes", doc("<label " + repeat("a", 10) + "=\"" + repeat("b", 3 << 20) + "\">x</label>"), 0, ""},
    };
    for (const ShapeCase &c : cases) {
        SCOPED_TRACE(c.what);
        Outcome o = load(c.content);
        printf("  %-36s result %d, peak %ld kB, %ld ms CPU\n", c.what, o.ret, o.rss_kb, o.cpu_ms);
        expect_bounded(o);
        EXPECT_EQ(o.ret, c.ret) << o.records;
        EXPECT_TRUE(c.record[0] == '\0' || o.has(c.record)) << o.records;
    }
}

TEST_F(HostileLoad, InvalidUtf8AndControlCharactersNeverCrashTheLoad)
{
    const std::string bad[] = {
        doc("<label>ab\xff\xfe" "cd</label>"),
        doc("<label>\xc3</label><code>ok</code>"),
        doc("<label>a\x01\x02\x1f" "b</label>"),
        doc(repeat("<label>\xed\xa0\x80</label>", 100000)),
        std::string("\xff\xfe<\0c\0", 6),
        doc(std::string("<label>\0hidden</label>", 22)),
    };
    for (const std::string &content : bad) {
        Outcome o = load(content);
        expect_bounded(o);
        // The strict parser refuses each; the recovery parser gets the root
        // element (1) or nothing, and then the backup loads (0).
        EXPECT_TRUE(o.ret == 1 || (o.ret == 0 && o.good_backup)) << o.ret << "\n" << o.records;
    }
}

// ---- text that XML can't carry ------------------------------------------------

struct Texts {
    char s[40];
    char plain[16];
};
struct pdesc g_texts_table[] = {
    PX_STRI(Texts, s, "s"),
    PX_STRI(Texts, plain, "plain"),
    PX_END,
};

struct TextCase {
    const char *what;
    std::string in;
    std::string out;   // what a load gives back
    int replaced;      // bytes reported as replaced, 0 for no record
};

TEST(WriterText, TextXmlCantHoldIsWrittenAsQuestionMarksAndTheFileLoadsStrictly)
{
    const TextCase cases[] = {
        {"ascii", "plain text", "plain text", 0},
        {"utf-8 of 2, 3 and 4 bytes", "h\xc3\xa9 \xe2\x9c\x93 \xf0\x9d\x84\x9e", "h\xc3\xa9 \xe2\x9c\x93 \xf0\x9d\x84\x9e", 0},
        {"tab, line feed, carriage return, DEL", "a\tb\nc\rd\x7f", "a\tb\nc\rd\x7f", 0},
        {"XML's special characters", "<&>\"'", "<&>\"'", 0},
        {"control characters", "a\x01" "b\x1f" "c\x08", "a?b?c?", 3},
        {"stray bytes", "\xff\xfe" "ok", "??ok", 2},
        {"cut sequence", "ab\xc3", "ab?", 1},
        {"sequence cut in the middle", "\xe2\x9c" "x", "??x", 2},
        {"surrogate", "\xed\xa0\x80", "???", 3},
        {"U+FFFE and U+FFFF", "\xef\xbf\xbe\xef\xbf\xbf", "??????", 6},
        {"overlong", "\xc0\xaf\xe0\x80\xaf", "?????", 5},
        {"beyond U+10FFFF", "\xf4\x90\x80\x80", "????", 4},
    };
    TempDir dir;
    for (const TextCase &c : cases) {
        SCOPED_TRACE(c.what);
        Texts t;
        memset(&t, 0, sizeof t);
        memcpy(t.s, c.in.data(), c.in.size());
        strcpy(t.plain, "neighbour");
        kavor_file_rgst_t r = make_request(dir.file("txt"), "n", g_texts_table, &t, 1);
        TraceCapture cap(5);
        ASSERT_EQ(kavor_param2file(&r), 0);
        EXPECT_EQ(std::string(t.s), c.in) << "the block keeps its bytes";
        if (c.replaced > 0) {
            EXPECT_TRUE(cap.has(5, "stri2xml", "stri2xml: s has " + std::to_string(c.replaced) +
                                                   " bytes that XML can't hold, each written as '?'"))
                << cap.dump();
        } else {
            EXPECT_EQ(cap.count_at_most(5), 0u) << cap.dump();
        }
        Texts back;
        memset(&back, 0, sizeof back);
        r.mem = &back;
        EXPECT_EQ(kavor_file2param(&r), 0) << "the strict parser takes the file";
        EXPECT_EQ(std::string(back.s), c.out);
        EXPECT_STREQ(back.plain, "neighbour");
    }
}

struct VNode {
    struct znode z;
    int32_t v;
};
struct Holder {
    int mode;
    zhead_t vl;
};
struct pdesc g_vnode_table[] = {PX_SINT(VNode, v, "v"), PX_END};

TEST(WriterText, EnumerationKeysAndTypeNamesPassTheSameFilter)
{
    struct enume keys[] = {PX_ENUME("b\xff" "d", 1), PX_ENUME("good", 2), PX_ENUME_END(2)};
    struct adesc alts[] = {PX_ADESC(VNode, g_vnode_table, "ok"), PX_ADESC_END};
    struct pdesc table[] = {PX_ENUM(Holder, mode, "mode", keys), PX_VLST(Holder, vl, "vl", alts), PX_END};
    Holder h;
    memset(&h, 0, sizeof h);
    h.mode = 1;
    VNode n;
    memset(&n, 0, sizeof n);
    zlst_set_name(&n, "t\x01p");
    zlst_push(&h.vl, &n);
    TraceCapture cap(5);
    xmlNodePtr out = xmlNewNode(nullptr, BAD_CAST "x");
    param2xml(&h, out, table);
    EXPECT_EQ(dump_children(out), "<mode>b?d</mode><vl><vl typ=\"t?p\"><v>0</v></vl></vl>");
    EXPECT_TRUE(cap.has(5, "enum2xml", "enum2xml: mode has 1 bytes that XML can't hold, each written as '?'"))
        << cap.dump();
    EXPECT_TRUE(cap.has(5, "vlst2xml", "vlst2xml: vl has 1 bytes that XML can't hold, each written as '?'"))
        << cap.dump();
    xmlFreeNode(out);
}

// ---- the content of an element of many pieces --------------------------------

TEST(ReaderText, ContentIsJoinedAsLibxml2JoinsIt)
{
    const char *const docs[] = {
        "<a/>",
        "<a>one</a>",
        "<a>x<b>y<c>z</c></b>w</a>",
        "<a><![CDATA[<raw>]]>t<!-- not text --><?pi not text?>u</a>",
        "<a><b/><b></b>t</a>",
        "<a>&amp;&#65;<b>&lt;</b></a>",
        "<a>\n  <b>deep<c><d><e>er</e></d></c></b>\n</a>",
    };
    for (const char *text : docs) {
        SCOPED_TRACE(text);
        xmlDocPtr d = xmlReadMemory(text, (int)strlen(text), "t.xml", nullptr, 0);
        ASSERT_NE(d, nullptr);
        xmlNodePtr a = xmlDocGetRootElement(d);
        // The root, then each of its children.
        for (xmlNodePtr c = a; c != nullptr; c = c == a ? a->children : c->next) {
            xmlChar *w = xmlNodeGetContent(c), *g = node_content(c);
            EXPECT_TRUE(g != nullptr || c != a);
            EXPECT_STREQ(reinterpret_cast<char *>(g), reinterpret_cast<char *>(w));
            xmlFree(w);
            xmlFree(g);
        }
        xmlFreeDoc(d);
    }
}

// ---- the same limits in this process ------------------------------------------

TEST(LoadLimits, ADoctypeIsRefusedAndTheBackupLoadsInProcess)
{
    TempDir dir;
    seed(dir);
    write_file(dir.file("cfg.xml"),
               doc("<label>&x;</label>", "<!DOCTYPE cfg [<!ENTITY x SYSTEM \"file://" +
                                             dir.file("secret.txt") + "\">]>\n"));
    static fuzz::RichBlock b;
    kavor_file_rgst_t r;
    TraceCapture cap(5);
    EXPECT_EQ(load_cfg(dir, b, r), 0);
    EXPECT_STREQ(b.all.label, "backup");
    EXPECT_FALSE(block_has_secret(b));
    EXPECT_TRUE(cap.has(4, "xmlParseParamFile",
                        dir.file("cfg.xml") + " has a document type declaration, refused!"))
        << cap.dump();
    // One-shot: no fall-back, so -1 and the block as it was.
    fuzz::reset(&b);
    EXPECT_EQ(kavor_file2param(&r), -1);
    EXPECT_STREQ(b.all.label, "");
}

TEST(LoadLimits, TheReaderCountsEveryBufferAndNodeAgainstItsLimit)
{
    // In document order: 16 bytes, one node, then nothing more fits.
    const std::string text = "<dev><sbuf cnt=\"4\"><sbuf>1 2 3 4</sbuf></sbuf>"
                             "<chain><chain><weight>1</weight></chain><chain/></chain>"
                             "<sbuf cnt=\"1\"><sbuf>5</sbuf></sbuf></dev>";
    xmlDocPtr d = xmlReadMemory(text.data(), (int)text.size(), "l.xml", nullptr, 0);
    ASSERT_NE(d, nullptr);
    static fuzz::RichBlock b;
    fuzz::reset(&b);
    TraceCapture cap(4);
    size_t before = param_xml_read_limit(4 * sizeof(int32_t) + sizeof(struct fx_node));
    xml2param(&b.all, xmlDocGetRootElement(d), fx_table);
    param_xml_read_limit(before);
    ASSERT_NE(b.all.sbuf[0], nullptr);
    EXPECT_EQ(b.all.sbuf_n[0], 4);
    EXPECT_EQ(b.all.sbuf[0][3], 4);
    EXPECT_EQ(b.all.sbuf[1], nullptr) << "the second buffer is over the limit";
    EXPECT_EQ(b.all.sbuf_n[1], 0);
    ASSERT_NE(b.all.chain, nullptr);
    EXPECT_EQ(b.all.chain->next, nullptr) << "the second node is over the limit";
    EXPECT_TRUE(cap.has(4, "xml2sint", "xml2sint: sbuf count of buffer(1) over the reader's limit"))
        << cap.dump();
    EXPECT_TRUE(cap.has(4, "xml2list", "xml2list: chain node over the reader's limit")) << cap.dump();
    EXPECT_EQ(cap.count_at_most(4), 2u) << cap.dump();
    param_xml_free(&b.all, fx_table);
    xmlFreeDoc(d);
}

}  // namespace
