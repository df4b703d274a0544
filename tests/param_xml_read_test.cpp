// The reader: what each kind stores from the documents the writer makes and
// from many it doesn't, the count fields, the records of the refusals, and
// what the report counts.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cmath>
#include <random>

#include "codec_util.h"

namespace {

template <typename T, size_t N>
std::vector<T> vec(const T (&a)[N])
{
    return std::vector<T>(a, a + N);
}

// Reads `doc` through one row; the records at level 5 and below are `records`.
void read_expecting(void *mem, struct pdesc r, const std::string &doc, const std::vector<std::string> &records)
{
    SCOPED_TRACE(doc);
    TraceCapture cap(5);
    read_row(mem, r, doc);
    expect_records(cap, records);
}

TEST(Reader, Strings)
{
    char block[16];
    std::memset(block, 'x', sizeof block);
    struct pdesc two[] = {row(PT_STRI, "label", 8, 8, 0), row(PT_STRI, "owner", 8, 8, 8), {}};
    Doc d("\n  <label>alpha</label>\n  <owner>beta</owner>\n");
    xml2param(block, d.root(), two);
    EXPECT_EQ(0, std::memcmp(block, "alpha\0xxbeta\0xxx", 16));   // behind a terminator: as it was
    const struct { const char *doc; size_t size; const char *stored; } cases[] = {
        {"<s>abcdefgh</s>", 4, "abcd############"},             // overlong: size bytes, no terminator
        {"<s>longer</s><s>ab</s>", 16, "ab\0ger\0#########"},   // the last wins; the earlier tail stays
        {"<s/>", 16, "\0###############"},
        {"<text>kept</text>\n ", 16, "\n \0t\0###########"},   // a row named text takes the text nodes too
        // The text of every piece, in document order, as libxml2 joins it.
        {"<s>x<b>y<c>z</c></b>w</s>", 16, "xyzw\0###########"},
        {"<s><![CDATA[<r>]]>t<!-- c --><?pi p?>u</s>", 16, "<r>tu\0##########"},
        {"<s><b/><b></b>t&amp;&#65;<b>&lt;</b></s>", 16, "t&A<\0###########"},
        {"<s>\n <b>deep<c><d><e>er</e></d></c></b>\n</s>", 16, "\n deeper\n\0######"},
        {"<!DOCTYPE root [<!ENTITY e \"ntt\">]><root><s>a&e;<b>b</b></s></root>", 16, "anttb\0##########"},   // unexpanded
    };
    for (const auto &c : cases) {
        char mem[16];
        std::memset(mem, '#', sizeof mem);
        read_row(mem, row(PT_STRI, std::strstr(c.doc, "<text>") ? "text" : "s", 16, c.size), c.doc);
        EXPECT_EQ(std::string(c.stored, 16), std::string(mem, 16)) << c.doc;
    }
}

// Every text of numbers fills an array of each width and signedness as the
// C library's base-0 conversion, called from where the last number ended and
// cut to the width, fills it.
template <typename T>
void expect_as_library(const std::string &t)
{
    const bool s = std::is_signed<T>::value;
    std::vector<T> want, got(4096, 0);
    char *end;
    for (const char *p = t.c_str(); want.size() < got.size(); p = end) {
        intmax_t v = s ? std::strtoimax(p, &end, 0) : static_cast<intmax_t>(std::strtoumax(p, &end, 0));
        if (end == p)
            break;
        want.push_back(static_cast<T>(v));
    }
    want.resize(got.size(), 0);
    read_row(got.data(), row(s ? PT_SINT : PT_UINT, "v", 4096, sizeof(T)), "<v>" + t + "</v>");
    EXPECT_EQ(want, got) << sizeof(T) << (s ? " signed: " : " unsigned: ") << t.substr(0, 80);
}

TEST(Reader, IntegerTextsAreReadAsTheLibraryReadsThem)
{
    std::vector<std::string> texts = {
        "0 -0 7 -7 0x0 0xff 0xFF -0x10 0XaB 300 -1", "127 -128 255 32767 -32768 65535 2147483647 -2147483648",
        "4294967295 999999999999999999 -999999999999999999 1000000000000000000",
        "9223372036854775807 -9223372036854775808 9223372036854775808 -9223372036854775809",
        "9999999999999999999 18446744073709551615 18446744073709551616 99999999999999999999",
        "0x7fffffffffffffff -0x7fffffffffffffff 0x8000000000000000 0xffffffffffffffff",
        "-0xffffffffffffffff 0x10000000000000000 0xfffffffffffffff -0xfffffffffffffff",
        "010 -010 08", "09", "00 +5 +0x5 \t5 \n 12  \r9 -8", "0x", "0xg", "-", "- 5", "-x1", "1e5", "12ab", "0x1g",
        "1.5", "1,2", "--1", "0x-1", "12 abc 34", "00x10 000000000000000000001", "unsupported data size(3)", ""};
    std::mt19937_64 rng(7);
    char buf[64];
    const char *fmt[] = {"%" PRIu64, "-%" PRIu64, "0x%" PRIx64, "-0x%" PRIX64};
    for (int i = 0; i < 4000; i++) {
        std::snprintf(buf, sizeof buf, fmt[i % 4], static_cast<uint64_t>(rng() >> (rng() % 64)));
        texts.back() += std::string(" ") + buf;
    }
    for (const std::string &t : texts) {
        expect_as_library<int8_t>(t), expect_as_library<int16_t>(t), expect_as_library<int32_t>(t), expect_as_library<int64_t>(t);
        expect_as_library<uint8_t>(t), expect_as_library<uint16_t>(t), expect_as_library<uint32_t>(t), expect_as_library<uint64_t>(t);
    }
}

TEST(Reader, IdxPlacesValuesAndMovesTheCountField)
{
    struct { int32_t v[8]; int n; } b;
    const struct pdesc r = cia(row(PT_SINT, "v", 8, 4), offsetof(decltype(b), n));
    const std::string over = "5 node2sint: node2sint: v idx(";
    const struct { const char *doc; int n; std::vector<int32_t> values; std::vector<std::string> records; } cases[] = {
        {"<v>1 2 3 4 5 6 7 8</v><v idx=\"4\">50 60</v>", 6, {1, 2, 3, 4, 50, 60, 7, 8}, {}},
        {"<v idx=\"2\">1</v><v>2</v>", 4, {-1, -1, 1, 2, -1, -1, -1, -1}, {}},
        {"<v idx=\"abc\">1</v><v idx=\"0x5\">2</v>", 1, {2, -1, -1, -1, -1, -1, -1, -1}, {}},
        {"<v>1 2 3</v><v> 4 </v>", 4, {1, 2, 3, 4, -1, -1, -1, -1}, {}},
        {"<v>1 2 3 4 5 6 7 8 9 10</v>", 8, {1, 2, 3, 4, 5, 6, 7, 8}, {}},
        {"<v/><v>1</v>", 1, {1, -1, -1, -1, -1, -1, -1, -1}, {}},
        {"<v>1 2 3 4 5 6 7 8</v><v>9</v><v idx=\"12\">1</v><v>2</v><v idx=\"1\">77</v>", 2, {1, 77, 3, 4, 5, 6, 7, 8},
         {over + "8) >= count(8), ignore", over + "12) >= count(8), ignore", over + "12) >= count(8), ignore"}},
        // A negative index leaves the position where it was.
        {"<v>1 2 3</v><v idx=\"-1\">9 9</v><v>4</v><v idx=\"-2147483648\">9</v>", 4, {1, 2, 3, 4, -1, -1, -1, -1},
         {over + "-1) < 0, ignore", over + "-2147483648) < 0, ignore"}},
        {"<v idx=\"9\">1</v>", 9, {-1, -1, -1, -1, -1, -1, -1, -1}, {over + "9) >= count(8), ignore"}},   // the writer clamps it
    };
    for (const auto &c : cases) {
        std::memset(&b, 0xFF, sizeof b);
        read_expecting(&b, r, c.doc, c.records);
        EXPECT_EQ(c.n, b.n) << c.doc;
        EXPECT_EQ(c.values, vec(b.v)) << c.doc;
    }
    char mem[16] = {};
    read_expecting(mem, row(PT_SINT, "v", 4, 3), "<v>1 2</v>", {"4 node2sint: node2sint: v bad data size(3)"});
    EXPECT_EQ(0, mem[0]);
}

TEST(Reader, Floats)
{
    const struct { size_t size; const char *content; std::vector<double> stored; } cases[] = {
        {4, "1.5 abc 2.5", {1.5}},         {8, "1,5", {1}},
        {8, "010 0x10 -2e3", {10, 16, -2000}}, {4, "1e39", {INFINITY}},
        {8, "inf -INF", {INFINITY, -INFINITY}}, {4, "0.5 1 1.5 2 2.5 3 3.5 4 4.5", {0.5, 1, 1.5, 2}},
    };
    for (const auto &c : cases) {
        double d[4] = {-7, -7, -7, -7};
        float f[4] = {-7, -7, -7, -7};
        read_row(c.size == 4 ? static_cast<void *>(f) : d, row(PT_FLOT, "x", 4, c.size), std::string("<x>") + c.content + "</x>");
        for (size_t i = 0; i < 4; i++)
            EXPECT_EQ(i < c.stored.size() ? c.stored[i] : -7.0, c.size == 4 ? f[i] : d[i]) << c.content << " at " << i;
    }
    double nan_v[1] = {0};
    read_row(nan_v, row(PT_FLOT, "x", 1, 8), "<x>nan</x>");
    EXPECT_TRUE(std::isnan(nan_v[0]));
    float f[2] = {};
    read_expecting(f, row(PT_FLOT, "x", 2, 4), "<x>0.1</x><x idx=\"-3\">1</x><x idx=\"2\">1</x>",
                   {"5 node2flot: node2flot: x idx(-3) < 0, ignore", "5 node2flot: node2flot: x idx(2) >= count(2), ignore"});
    EXPECT_EQ(0.1f, f[0]);
    read_expecting(f, row(PT_FLOT, "x", 2, 2), "<x>1</x>", {"4 node2flot: node2flot: x bad data size(2)"});
}

TEST(Reader, Enumerations)
{
    struct enume on_off[] = {{"on", 1}, {"off", 0}, {nullptr, 5}};
    const struct { const char *doc; int count; size_t size; std::vector<int> values; std::vector<std::string> records; } cases[] = {
        // A word outside the table takes the end item's value.
        {"<mode>off</mode><mode>on</mode><mode> on</mode>", 3, 4, {0, 1, 5, -1}, {}},
        {"<mode idx=\"2\">on</mode><mode>off</mode><mode idx=\"-1\">off</mode>", 3, 4, {-1, -1, 1, -1},
         {"5 xml2enum: xml2enum: mode idx(3) >= count(3), ignore", "5 xml2enum: xml2enum: mode idx(-1) < 0, ignore"}},
        {"<mode>on</mode>", 0, 4, {-1, -1, -1, -1}, {"5 xml2enum: xml2enum: mode idx(0) >= count(0), ignore"}},
        {"<mode>on</mode>", 3, 2, {-1, -1, -1, -1}, {"4 xml2enum: xml2enum: mode bad size(2)"}},
        {"<mode>on</mode><mode>off</mode>", 2, 8, {1, -1, 0, -1}, {}},   // a stride touches the first int only
    };
    for (const auto &c : cases) {
        int v[4] = {-1, -1, -1, -1};
        read_expecting(v, aux(row(PT_ENUM, "mode", c.count, c.size), on_off), c.doc, c.records);
        EXPECT_EQ(c.values, vec(v)) << c.doc;
    }
}

#define P(s, m) "<port><speed>" #s "</speed><mtu>" #m "</mtu></port>"

TEST(Reader, Structures)
{
    struct Ports { Port p[4]; int n; Port *far; };
    const struct { const char *doc; int n; int speeds[4]; std::vector<std::string> records; } cases[] = {
        {P(10, 20) P(30, 40), 2, {10, 30, -1, -1}, {}},
        {"<port idx=\"2\"><speed>5</speed></port>" P(6, 6), 4, {-1, -1, 5, 6}, {}},
        {P(1, 1) P(2, 2) P(3, 3) "<port idx=\"0\"><speed>9</speed></port>", 1, {9, 2, 3, -1}, {}},
        {"<port/>" P(2, 2), 2, {-1, 2, -1, -1}, {}},
        {P(1, 1) "<port idx=\"-1\"><speed>8</speed></port>" P(2, 2), 2, {1, 2, -1, -1}, {"5 node2stru: node2stru: port idx(-1) < 0, ignore"}},
        {P(1, 1) P(2, 2) P(3, 3) P(4, 4) P(5, 5), 4, {1, 2, 3, 4}, {"5 node2stru: node2stru: port idx(4) >= count(4), ignore"}},
        {P(1, 1), 33, {}, {"4 xml2struM: xml2stru: port null pointer, ignore"}},   // never followed; the count stays
    };
    for (int type : {PT_STRU, PT_STRUM}) {
        for (const auto &c : cases) {
            Ports b;
            if (c.n == 33 && type == PT_STRU)
                continue;
            std::memset(&b, 0xFF, sizeof b);
            b.far = c.n == 33 ? nullptr : b.p, b.n = c.n == 33 ? 33 : -1;
            read_expecting(&b, cia(sub(row(type, "port", 4, sizeof(Port), type == PT_STRUM ? offsetof(Ports, far) : 0), kPortRows),
                                   offsetof(Ports, n)), c.doc, c.records);
            EXPECT_EQ(c.n, b.n) << c.doc;
            EXPECT_TRUE(c.n == 33 || vec(c.speeds) == (std::vector<int>{b.p[0].speed, b.p[1].speed, b.p[2].speed, b.p[3].speed})) << c.doc;
        }
    }
}

struct Counted { int32_t *p[3]; int n[3]; int cia; };

struct pdesc counted_row(int type = PT_SINT, size_t size = 4)
{
    return cia(cob(row(type, "c", 3, size), offsetof(Counted, n)), offsetof(Counted, cia));
}

TEST(Reader, CountedBuffers)
{
    // Empty entries close up; a new buffer starts zeroed.
    int32_t keep = 0;
    Counted b = {{nullptr, nullptr, &keep}, {0, 0, 77}, 0};
    read_expecting(&b, counted_row(), "<c cnt=\"3\"><c>1 2 3</c></c><c cnt=\"20\"><c>4</c><x>5</x><c idx=\"19\">6</c></c>", {});
    ASSERT_TRUE(b.p[0] && b.p[1]);
    EXPECT_EQ((std::vector<int>{3, 20, 77, 2}), (std::vector<int>{b.n[0], b.n[1], b.n[2], b.cia}));
    EXPECT_EQ((std::vector<int32_t>{1, 2, 3}), std::vector<int32_t>(b.p[0], b.p[0] + 3));
    std::vector<int32_t> second(20, 0);
    second[0] = 4, second[19] = 6;
    EXPECT_EQ(second, std::vector<int32_t>(b.p[1], b.p[1] + 20));
    EXPECT_EQ(&keep, b.p[2]);
    b.p[2] = nullptr;
    struct pdesc table[] = {counted_row(), {}};
    param_xml_free(&b, table);

    // Wrappers refused for their count or index; a refused count leaves its
    // entry saying "no buffer", whatever it held.
    const struct { const char *doc; const char *record; int n0; int type; size_t size; } refused[] = {
        {"<c><c>1</c></c>", "4 xml2sint: xml2sint: c no count of buffer", -9, PT_SINT, 4},
        {"<c cnt=\"0\"/>", "4 xml2sint: xml2sint: c count of buffer is zero", 0, PT_SINT, 4},
        {"<c cnt=\"x\"/>", "4 xml2sint: xml2sint: c count of buffer is zero", 0, PT_SINT, 4},
        {"<c cnt=\"-2\"><c>1</c></c>", "4 xml2sint: xml2sint: c bad count of buffer(-2)", 0, PT_SINT, 4},
        {"<c idx=\"-1\" cnt=\"1\"/>", "5 xml2sint: xml2sint: c idx(-1) < 0, ignore", -9, PT_SINT, 4},
        {"<c idx=\"3\" cnt=\"1\"/>", "5 xml2sint: xml2sint: c idx(3) >= count(3), ignore", -9, PT_SINT, 4},
        {"<c cnt=\"3\"/>", "4 xml2uint: xml2uint: c bad count of buffer(3)", 0, PT_UINT, SIZE_MAX / 2},  // size overflows
    };
    for (const auto &c : refused) {
        Counted r = {{nullptr, nullptr, nullptr}, {-9, -9, -9}, -9};
        read_expecting(&r, counted_row(c.type, c.size), c.doc, {c.record});
        EXPECT_TRUE(c.n0 == r.n[0] && !r.p[0] && r.cia == -9) << c.doc << ": " << r.n[0] << " " << r.cia;
    }

    // "idx" on wrappers, and surplus values inside.
    Counted f = {};
    read_expecting(&f, counted_row(PT_FLOT), "<c idx=\"1\" cnt=\"2\"><c>1 2 3</c><c>4</c></c><c cnt=\"1\"/><c cnt=\"1\"/>",
                   {"5 node2flot: node2flot: c idx(2) >= count(2), ignore", "5 xml2flot: xml2flot: c idx(3) >= count(3), ignore"});
    ASSERT_TRUE(!f.p[0] && f.p[1] && f.p[2]);
    float got[2];
    std::memcpy(got, f.p[1], sizeof got);
    EXPECT_EQ((std::vector<float>{1, 2}), vec(got));
    EXPECT_EQ(3, f.cia);
    struct pdesc ftable[] = {counted_row(PT_FLOT), {}};
    param_xml_free(&f, ftable);
}

// "name:value" of each node of a list; a rule's id, a timer's period and an
// event's code share their place.
std::string nodes(zhead_t head)
{
    std::string out;
    for (struct znode *z = head; z; z = z->next)
        out += std::string(z->name ? z->name : "") + ":" + std::to_string(reinterpret_cast<Timer *>(z)->period) + " ";
    return out;
}

TEST(Reader, Lists)
{
    struct { zhead_t h[2]; int n; } b = {};
    const struct pdesc r = cia(sub(row(PT_LIST, "rule", 2, sizeof(Rule)), kRuleRows), offsetof(decltype(b), n));
    struct pdesc table[] = {r, {}};
    read_expecting(&b, r, "<rule>\n <rule><id>5</id></rule><!-- c --><other/>\n <rule><id>6</id></rule><rule/></rule><rule/>", {});
    EXPECT_EQ(":5 :6 :0 ", nodes(b.h[0]));   // in order; nodes zeroed
    EXPECT_TRUE(reinterpret_cast<Rule *>(b.h[0])->extra == 0 && !b.h[1] && b.n == 2);
    param_xml_free(&b, table);
    EXPECT_EQ(nullptr, b.h[0]);

    // Heads refused by their index, or because they hold nodes already.
    b.n = -9;
    read_expecting(&b, r, "<rule idx=\"1\"><rule><id>1</id></rule></rule><rule/><rule idx=\"-1\"><rule/></rule>",
                   {"5 xml2list: xml2list: rule idx(2) >= count(2), ignore", "5 xml2list: xml2list: rule idx(-1) < 0, ignore"});
    EXPECT_EQ("|:1 |2", nodes(b.h[0]) + "|" + nodes(b.h[1]) + "|" + std::to_string(b.n));
    read_expecting(&b, r, "<rule><rule><id>3</id></rule></rule><rule><rule><id>4</id></rule></rule>",
                   {"4 xml2list: xml2list: rule not an empty list"});
    EXPECT_EQ(":3 |:1 |1", nodes(b.h[0]) + "|" + nodes(b.h[1]) + "|" + std::to_string(b.n));   // stored after head 0 only
    param_xml_free(&b, table);
    read_expecting(&b, sub(row(PT_LIST, "rule", 2, 4), kRuleRows), "<rule><rule><id>1</id></rule></rule>",
                   {"4 xml2list: xml2list: rule bad node size(4)"});   // smaller than its header: never made
    EXPECT_EQ(nullptr, b.h[0]);
}

TEST(Reader, VariantLists)
{
    zhead_t head = nullptr;
    struct pdesc table[] = {aux(row(PT_VLST, "task", 1, 0), kAlts), {}};
    read_expecting(&head, table[0],
                   "<task><task typ=\"event\"><code>7</code></task><task><code>1</code></task>"
                   "<task typ=\"Timer\"/><task typ=\"timer\"><period>100</period></task></task>",
                   {"4 xml2vlst: xml2vlst: task type name"});
    EXPECT_EQ("event:7 timer:100 ", nodes(head));
    param_xml_free(&head, table);
    EXPECT_EQ(nullptr, head);
    read_expecting(&head, row(PT_VLST, "task", 1, 0), "<task><task typ=\"timer\"/><task/></task>",
                   {"4 xml2vlst: xml2vlst: task bad adesc", "4 xml2vlst: xml2vlst: task type name"});
    struct adesc none[] = {{sizeof(Timer), nullptr, nullptr}};
    read_expecting(&head, aux(row(PT_VLST, "task", 1, 0), none), "<task><task typ=\"timer\"/></task>", {});
    EXPECT_EQ(nullptr, head);
}

TEST(Reader, TheFrameMatchesChildrenToTheFirstRowOfTheirName)
{
    int32_t v[2] = {0, 0};
    struct pdesc table[] = {row(PT_SINT, "v", 1, 4), row(0xB000, "odd", 1, 4), row(PT_SINT, "v", 1, 4, 4), {},
                            row(PT_SINT, "late", 1, 4, 4), {}};
    Doc d("\n<v>3</v><!-- note --><zz/><odd>1</odd><odd/><late>9</late><text>t</text><v idx=\"0\">2</v>");
    TraceCapture cap(5);
    EXPECT_EQ(0, xml2param(v, d.root(), table));
    EXPECT_EQ((std::vector<int32_t>{2, 0}), vec(v));
    // Nothing of "text" or behind the end.
    expect_records(cap, {"5 xml2param: no mark in param is \"comment\"", "5 xml2param: no mark in param is \"zz\"",
                         "5 xml2param: no mark in param is \"late\"", "4 xml2param: xml2param: odd bad type(0xB000)",
                         "4 xml2param: xml2param: odd bad type(0xB000)"});
}

// What the report counts, per case: the one kind of case counted, and its path.
TEST(Reader, TheReportCountsWhatTheReaderDidToTheValues)
{
    using C = param_xml_case_t param_xml_report_t::*;
    const C narrowed = &param_xml_report_t::narrowed, missing = &param_xml_report_t::missing;
    const C fields[] = {narrowed, &param_xml_report_t::not_number, &param_xml_report_t::unknown_word,
                        &param_xml_report_t::over_capacity, &param_xml_report_t::unknown, missing};
    const struct { struct pdesc row; const char *doc; C field; uint32_t count; const char *path; } cases[] = {
        {row(PT_SINT, "v", 2, 4), "<v idx=\"5\">1</v><v idx=\"-1\">1</v><v>1</v>", fields[3], 3, "/root/v[1]"},
        {row(PT_SINT, "v", 2, 4), "<v>99999999999999999999 -99999999999999999999</v>", narrowed, 2, "/root/v"},
        {row(PT_UINT, "v", 2, 8), "<v>18446744073709551616</v>", narrowed, 1, "/root/v"},
        {row(PT_FLOT, "v", 2, 4), "<v> -1e39</v>", narrowed, 1, "/root/v"},
        {row(PT_FLOT, "v", 2, 4), "<v> -inf +Infinity</v>", nullptr, 0, ""},
        {row(PT_FLOT, "v", 2, 8), "<v>1e999</v>", narrowed, 1, "/root/v"},
        // A list row named "text" (a bad row) takes the text between its nodes as a node.
        {sub(row(PT_LIST, "text", 1, sizeof(Rule)), kRuleRows), "<text>\n<text><id>1</id></text></text>", missing, 1, "/root/text/text()/id"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.doc);
        char mem[64] = {};
        param_xml_report_t rep;
        read_row(mem, c.row, c.doc, 0, &rep);
        for (C f : fields)
            EXPECT_EQ(f == c.field ? std::to_string(c.count) + " " + c.path : "0 ", std::to_string((rep.*f).count) + " " + (rep.*f).path);
        struct pdesc table[] = {c.row, {}};
        param_xml_free(mem, table);
    }
    // Rows past the first 256 are found by their names.
    std::vector<std::string> names;
    std::vector<struct pdesc> rows;
    std::string doc;
    for (int i = 0; i < 260; i++)
        names.push_back("r" + std::to_string(i)), doc += i == 258 ? "" : "<" + names[i] + ">1</" + names[i] + ">";
    for (int i = 0; i < 260; i++)
        rows.push_back(row(PT_SINT, names[i].c_str(), 1, 4, 4 * i));
    rows.push_back({});
    int32_t mem[260];
    param_xml_report_t rep;
    Doc d(doc);
    xml2param_report(mem, d.root(), rows.data(), 0, &rep);
    EXPECT_EQ(1u, rep.missing.count);
    EXPECT_STREQ("/root/r258", rep.missing.path);
}

}  // namespace
