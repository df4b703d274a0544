// The reader: what each kind stores from documents the writer makes and from
// the many it doesn't ("idx" backwards, at the capacity, negative, on
// wrappers; surplus values; odd counts), the messages it leaves, and the
// position and count fields after each element.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <libxml/parser.h>

#include "param_xml.h"
#include "pdesc_row.h"
#include "param_xml_private.h"
#include "test_util.h"
#include "trace_capture.h"

namespace {

// A parsed "<root>...</root>" document.
struct Doc {
    xmlDoc *doc;
    explicit Doc(const std::string &children)
    {
        std::string text = "<root>" + children + "</root>";
        doc = xmlReadMemory(text.data(), static_cast<int>(text.size()), "t.xml", nullptr, 0);
    }
    ~Doc() { xmlFreeDoc(doc); }
    xmlNode *root() const { return xmlDocGetRootElement(doc); }
};

// Reads `children` through a one-row table; returns the row after the read.
struct pdesc read_row(void *mem, struct pdesc row, const std::string &children)
{
    struct pdesc table[2] = {row, {}};
    Doc d(children);
    EXPECT_NE(nullptr, d.doc) << children;
    EXPECT_EQ(0, xml2param(mem, d.root(), table));
    return table[0];
}

template <typename T, size_t N>
std::vector<T> vec(const T (&a)[N])
{
    return std::vector<T>(a, a + N);
}

// ---- strings -------------------------------------------------------------------

TEST(StringReader, WorkedCaseAlsoThroughAFormattedFile)
{
    for (const char *doc : {"<label>alpha</label><owner>beta</owner>",
                            "\n  <label>alpha</label>\n  <owner>beta</owner>\n"}) {
        char block[16];
        std::memset(block, 'x', sizeof block);
        struct pdesc table[] = {row_of(PT_STRI, "label", 8, 8, 0), row_of(PT_STRI, "owner", 8, 8, 8), {}};
        Doc d(doc);
        TraceCapture cap(8);
        EXPECT_EQ(0, xml2param(block, d.root(), table));
        EXPECT_STREQ("alpha", block);
        EXPECT_STREQ("beta", block + 8);
        EXPECT_EQ('x', block[6]);  // behind the terminator: as it was
        EXPECT_EQ(0u, cap.count_at_most(7)) << cap.dump();
        EXPECT_TRUE(cap.has(8, "xml2stri", "xml2stri: alpha")) << cap.dump();
    }
}

TEST(StringReader, OverlongContentKeepsSizeBytesAndIsTracedWithinThem)
{
    char block[12];
    std::memset(block, '#', sizeof block);
    TraceCapture cap(8);
    read_row(block, row_of(PT_STRI, "s", 8, 4), "<s>abcdefgh</s>");
    EXPECT_EQ(0, std::memcmp(block, "abcd####", 8));
    EXPECT_TRUE(cap.has(8, "xml2stri", "xml2stri: abcd")) << cap.dump();
}

TEST(StringReader, LastElementWinsAndChildrenTextIsJoined)
{
    char block[8] = {};
    read_row(block, row_of(PT_STRI, "s", 8, 8), "<s>longer</s><s>ab</s>");
    EXPECT_EQ(0, std::memcmp("ab\0ger", block, 7));  // the tail of the earlier one stays
    for (auto c : {std::pair<const char *, const char *>{"<s>a<i>b</i>c</s>", "abc"}, {"<s/>", ""}}) {
        read_row(block, row_of(PT_STRI, "s", 8, 8), c.first);
        EXPECT_STREQ(c.second, block) << c.first;
    }
}

// ---- integers ------------------------------------------------------------------

TEST(IntegerReader, ContentsPositionByPosition)
{
    struct Case {
        int type;
        size_t size;
        const char *content;
        std::vector<int64_t> stored;  // as the element width's value
    } cases[] = {
        {PT_SINT, 4, "12 abc 34", {12}},
        {PT_SINT, 4, "1,2", {1}},
        {PT_SINT, 4, "010", {8}},
        {PT_SINT, 4, "09", {0, 9}},
        {PT_SINT, 4, "0x", {0}},
        {PT_SINT, 1, "300", {44}},
        {PT_UINT, 1, "300", {44}},
        {PT_UINT, 2, "-1", {0xffff}},
        {PT_SINT, 1, "0xff", {-1}},
        {PT_SINT, 4, "  \n\t7\n -8 +9 ", {7, -8, 9}},
        {PT_SINT, 8, "99999999999999999999999", {INT64_MAX}},
        {PT_UINT, 4, "0XfF 0x10", {255, 16}},
        {PT_SINT, 4, "unsupported data size(3)", {}},
        {PT_SINT, 4, "", {}},
    };
    for (const Case &c : cases) {
        unsigned char mem[64];
        std::memset(mem, 0xAA, sizeof mem);
        struct pdesc after = read_row(mem, row_of(c.type, "v", 8, c.size), std::string("<v>") + c.content + "</v>");
        EXPECT_EQ(static_cast<int>(c.stored.size()), after.ioa) << c.content;
        for (size_t i = 0; i < c.stored.size(); i++) {
            uint64_t u = 0;  // little-endian host: the low bytes, then sign-extended
            std::memcpy(&u, mem + i * c.size, c.size);
            const int shift = static_cast<int>(64 - 8 * c.size);
            int64_t got = c.type == PT_SINT ? static_cast<int64_t>(u << shift) >> shift : static_cast<int64_t>(u);
            EXPECT_EQ(c.stored[i], got) << c.content << " at " << i;
        }
        EXPECT_EQ(0xAA, mem[c.stored.size() * c.size]) << c.content;
    }
}

TEST(IntegerReader, ValuesAreTracedInTheirWidthsFormat)
{
    int64_t s8[1];
    uint8_t u1[2];
    TraceCapture cap(8);
    read_row(s8, row_of(PT_SINT, "v", 1, 8), "<v>-9223372036854775808</v>");
    read_row(u1, row_of(PT_UINT, "v", 2, 1), "<v>10 255</v>");
    EXPECT_TRUE(cap.has(8, "node2sint", "node2sint[0]: -9223372036854775808")) << cap.dump();
    EXPECT_TRUE(cap.has(8, "node2uint", "node2uint[1]: 0xFF")) << cap.dump();
    EXPECT_TRUE(cap.has(8, "xml2uint", "xml2uint: cia 2")) << cap.dump();
}

struct CiaInts { int32_t v[8]; int n; };

struct pdesc cia_row(int type = PT_SINT)
{
    struct pdesc r = row_of(type | PT_F_CIA, "v", 8, 4, offsetof(CiaInts, v));
    r.aoffset = offsetof(CiaInts, n);
    return r;
}

TEST(IntegerReader, IdxPlacesOverwritesAndMovesTheCountField)
{
    struct Case {
        const char *doc;
        int ioa;
        int n;
        std::vector<int32_t> values;  // -1: untouched (memory starts at -1)
    } cases[] = {
        {"<v>1 2 3 4 5 6 7 8</v><v idx=\"4\">50 60</v>", 6, 6, {1, 2, 3, 4, 50, 60, 7, 8}},
        {"<v idx=\"2\">1</v><v>2</v>", 4, 4, {-1, -1, 1, 2, -1, -1, -1, -1}},
        {"<v idx=\"abc\">1</v><v idx=\"0x5\">2</v>", 1, 1, {2, -1, -1, -1, -1, -1, -1, -1}},
        {"<v>1 2 3</v><v> 4 </v>", 4, 4, {1, 2, 3, 4, -1, -1, -1, -1}},
        {"<v>1 2 3 4 5 6 7 8 9 10</v>", 8, 8, {1, 2, 3, 4, 5, 6, 7, 8}},
        {"<v/><v>1</v>", 1, 1, {1, -1, -1, -1, -1, -1, -1, -1}},
    };
    for (const Case &c : cases) {
        CiaInts b;
        std::memset(&b, 0xFF, sizeof b);
        struct pdesc after = read_row(&b, cia_row(), c.doc);
        EXPECT_EQ(c.ioa, after.ioa) << c.doc;
        EXPECT_EQ(c.n, b.n) << c.doc;
        EXPECT_EQ(c.values, vec(b.v)) << c.doc;
    }
}

TEST(IntegerReader, ElementsAtOrPastTheCapacityAreIgnoredAndReported)
{
    CiaInts b = {};
    TraceCapture cap(8);
    struct pdesc after = read_row(&b, cia_row(), "<v>1 2 3 4 5 6 7 8</v><v>9</v><v idx=\"12\">1</v><v>2</v><v idx=\"1\">77</v>");
    EXPECT_TRUE(cap.has(5, "node2sint", "node2sint: v idx(8) >= count(8), ignore")) << cap.dump();
    EXPECT_EQ(2u, cap.count(5, "node2sint", "node2sint: v idx(12) >= count(8), ignore")) << cap.dump();
    EXPECT_EQ(2, after.ioa);
    EXPECT_EQ(2, b.n);
    EXPECT_EQ(77, b.v[1]);
    // The count field may be left beyond the capacity; the writer clamps it.
    read_row(&b, cia_row(), "<v idx=\"9\">1</v>");
    EXPECT_EQ(9, b.n);
}

TEST(IntegerReader, NegativeIdxIsRefusedAndLeavesThePosition)
{
    CiaInts b;
    std::memset(&b, 0, sizeof b);
    TraceCapture cap(8);
    struct pdesc after = read_row(&b, cia_row(PT_UINT), "<v>1 2 3</v><v idx=\"-1\">9 9</v><v>4</v><v idx=\"-2147483648\">9</v>");
    EXPECT_TRUE(cap.has(5, "node2uint", "node2uint: v idx(-1) < 0, ignore")) << cap.dump();
    EXPECT_TRUE(cap.has(5, "node2uint", "node2uint: v idx(-2147483648) < 0, ignore")) << cap.dump();
    EXPECT_EQ(4, after.ioa);
    EXPECT_EQ(4, b.n);
    EXPECT_EQ((std::vector<int32_t>{1, 2, 3, 4, 0, 0, 0, 0}), vec(b.v));
}

TEST(IntegerReader, BadWidthStoresNothing)
{
    char mem[16] = {};
    TraceCapture cap(8);
    struct pdesc after = read_row(mem, row_of(PT_SINT, "v", 4, 3), "<v>1 2</v>");
    EXPECT_TRUE(cap.has(4, "node2sint", "node2sint: v bad data size(3)")) << cap.dump();
    EXPECT_EQ(0, after.ioa);
    EXPECT_EQ(0, mem[0]);
}

// ---- floats --------------------------------------------------------------------

TEST(FloatReader, WhatStrtodTakesAndWhereItStops)
{
    struct Case {
        size_t size;
        const char *content;
        std::vector<double> stored;
    } cases[] = {
        {4, "1.5 abc 2.5", {1.5}},
        {8, "1,5", {1}},
        {8, "010 0x10 -2e3", {10, 16, -2000}},
        {4, "1e39", {INFINITY}},
        {8, "inf -INF", {INFINITY, -INFINITY}},
        {4, "0.5 1 1.5 2 2.5 3 3.5 4 4.5", {0.5, 1, 1.5, 2}},
    };
    for (const Case &c : cases) {
        double d[4] = {-7, -7, -7, -7};
        float f[4] = {-7, -7, -7, -7};
        void *mem = c.size == 4 ? static_cast<void *>(f) : static_cast<void *>(d);
        struct pdesc after = read_row(mem, row_of(PT_FLOT, "x", 4, c.size), std::string("<x>") + c.content + "</x>");
        EXPECT_EQ(static_cast<int>(c.stored.size()), after.ioa) << c.content;
        for (size_t i = 0; i < 4; i++) {
            double got = c.size == 4 ? f[i] : d[i];
            EXPECT_EQ(i < c.stored.size() ? c.stored[i] : -7.0, got) << c.content << " at " << i;
        }
    }
    double nan_v[1] = {0};
    read_row(nan_v, row_of(PT_FLOT, "x", 1, 8), "<x>nan</x>");
    EXPECT_TRUE(std::isnan(nan_v[0]));
}

TEST(FloatReader, TraceAndRefusals)
{
    float f[2] = {};
    TraceCapture cap(8);
    read_row(f, row_of(PT_FLOT, "x", 2, 4), "<x>0.1</x><x idx=\"-3\">1</x><x idx=\"2\">1</x>");
    EXPECT_TRUE(cap.has(8, "node2flot", "node2flot[0]: 1.0000000e-01")) << cap.dump();
    EXPECT_TRUE(cap.has(5, "node2flot", "node2flot: x idx(-3) < 0, ignore")) << cap.dump();
    EXPECT_TRUE(cap.has(5, "node2flot", "node2flot: x idx(2) >= count(2), ignore")) << cap.dump();
    read_row(f, row_of(PT_FLOT, "x", 2, 2), "<x>1</x>");
    EXPECT_TRUE(cap.has(4, "node2flot", "node2flot: x bad data size(2)")) << cap.dump();
}

// ---- enumerations --------------------------------------------------------------

struct enume kOnOff[] = {{"on", 1}, {"off", 0}, {nullptr, 5}};

struct pdesc enum_row(int count, size_t size = 4)
{
    struct pdesc r = row_of(PT_ENUM, "mode", count, size);
    r.aux = reinterpret_cast<intptr_t>(kOnOff);
    return r;
}

TEST(EnumReader, WordsOutsideTheTableTakeTheLastItemsValue)
{
    int v[3] = {-1, -1, -1};
    TraceCapture cap(8);
    struct pdesc after = read_row(v, enum_row(3), "<mode>off</mode><mode>on</mode><mode> on</mode>");
    EXPECT_EQ((std::vector<int>{0, 1, 5}), vec(v));
    EXPECT_EQ(3, after.ioa);
    EXPECT_TRUE(cap.has(8, "xml2enum", "xml2enum[2]: 5(\"(null)\")")) << cap.dump();
    EXPECT_TRUE(cap.has(8, "xml2enum", "xml2enum[1]: 1(\"on\")")) << cap.dump();
}

TEST(EnumReader, IdxAndCapacity)
{
    int v[3] = {-1, -1, -1};
    TraceCapture cap(8);
    read_row(v, enum_row(3), "<mode idx=\"2\">on</mode><mode>off</mode><mode idx=\"-1\">off</mode>");
    EXPECT_EQ((std::vector<int>{-1, -1, 1}), vec(v));
    EXPECT_TRUE(cap.has(5, "xml2enum", "xml2enum: mode idx(3) >= count(3), ignore")) << cap.dump();
    EXPECT_TRUE(cap.has(5, "xml2enum", "xml2enum: mode idx(-1) < 0, ignore")) << cap.dump();
    cap.clear();
    read_row(v, enum_row(0), "<mode>on</mode>");
    EXPECT_TRUE(cap.has(5, "xml2enum", "xml2enum: mode idx(0) >= count(0), ignore")) << cap.dump();
    read_row(v, enum_row(3, 2), "<mode>on</mode>");
    EXPECT_TRUE(cap.has(4, "xml2enum", "xml2enum: mode bad size(2)")) << cap.dump();
}

TEST(EnumReader, StrideTouchesOnlyTheFirstFourBytes)
{
    int recs[2][2] = {{9, 9}, {9, 9}};  // value, other
    read_row(recs, enum_row(2, sizeof recs[0]), "<mode>on</mode><mode>off</mode>");
    EXPECT_EQ((std::vector<int>{1, 9, 0, 9}), std::vector<int>(&recs[0][0], &recs[0][0] + 4));
}

// ---- structures ----------------------------------------------------------------

struct Port { int32_t speed, mtu; };
struct pdesc kPortRows[] = {row_of(PT_SINT, "speed", 1, 4, offsetof(Port, speed)),
                            row_of(PT_SINT, "mtu", 1, 4, offsetof(Port, mtu)), {}};

struct Ports { Port p[4]; int n; Port *far; };

struct pdesc port_row(int type = PT_STRU)
{
    bool m = (type & PT_KIND_MASK) == PT_STRUM;
    struct pdesc r = row_of(type | PT_F_CIA, "port", 4, sizeof(Port), m ? offsetof(Ports, far) : offsetof(Ports, p));
    r.aoffset = offsetof(Ports, n);
    r.pdesc = kPortRows;
    return r;
}

#define P(s, m) "<port><speed>" #s "</speed><mtu>" #m "</mtu></port>"

TEST(StructReader, IdxAndCountFieldInBothPlaces)
{
    struct Case {
        const char *doc;
        int n;
        int speeds[4];  // -1 untouched
    } cases[] = {
        {P(10, 20) P(30, 40), 2, {10, 30, -1, -1}},
        {"<port idx=\"2\"><speed>5</speed></port>" P(6, 6), 4, {-1, -1, 5, 6}},
        {P(1, 1) P(2, 2) P(3, 3) "<port idx=\"0\"><speed>9</speed></port>", 1, {9, 2, 3, -1}},
        {"<port/>" P(2, 2), 2, {-1, 2, -1, -1}},
        {P(1, 1) "<port idx=\"-1\">" "<speed>8</speed></port>" P(2, 2), 2, {1, 2, -1, -1}},
        {P(1, 1) P(2, 2) P(3, 3) P(4, 4) P(5, 5), 4, {1, 2, 3, 4}},
    };
    for (int type : {PT_STRU, PT_STRUM}) {
        for (const Case &c : cases) {
            Ports b;
            std::memset(&b, 0xFF, sizeof b);
            b.far = b.p;
            read_row(&b, port_row(type), c.doc);
            EXPECT_EQ(c.n, b.n) << c.doc;
            EXPECT_EQ(b.p, b.far);
            EXPECT_EQ(vec(c.speeds), (std::vector<int>{b.p[0].speed, b.p[1].speed, b.p[2].speed, b.p[3].speed})) << c.doc;
        }
    }
}

TEST(StructReader, MessagesOfRefusedElements)
{
    Ports b = {};
    b.far = nullptr;
    TraceCapture cap(8);
    read_row(&b, port_row(), P(1, 1) P(2, 2) P(3, 3) P(4, 4) P(5, 5) "<port idx=\"-4\"/>");
    EXPECT_TRUE(cap.has(5, "node2stru", "node2stru: port idx(4) >= count(4), ignore")) << cap.dump();
    EXPECT_TRUE(cap.has(5, "node2stru", "node2stru: port idx(-4) < 0, ignore")) << cap.dump();
    EXPECT_TRUE(cap.has(8, "node2stru", "node2stru[3]:")) << cap.dump();
    cap.clear();
    b.n = 33;
    read_row(&b, port_row(PT_STRUM), P(1, 1));
    EXPECT_TRUE(cap.has(4, "xml2struM", "xml2stru: port null pointer, ignore")) << cap.dump();
    EXPECT_EQ(33, b.n);
}

// ---- counted buffers -----------------------------------------------------------

struct Counted { int32_t *p[3]; int n[3]; int cia; };

struct pdesc counted_row(int type = PT_SINT, size_t size = 4)
{
    struct pdesc r = row_of(type | PT_F_COB | PT_F_CIA, "c", 3, size, offsetof(Counted, p));
    r.boffset = offsetof(Counted, n);
    r.aoffset = offsetof(Counted, cia);
    return r;
}

void release(Counted &b)
{
    struct pdesc table[] = {counted_row(), {}};
    param_xml_free(&b, table);
}

TEST(CountedReader, EmptyEntriesCloseUp)
{
    int32_t keep = 0;
    Counted b = {{nullptr, nullptr, &keep}, {0, 0, 77}, 0};
    TraceCapture cap(8);
    read_row(&b, counted_row(), "<c cnt=\"3\"><c>1 2 3</c></c><c cnt=\"20\"><c>4</c><x>5</x><c idx=\"19\">6</c></c>");
    ASSERT_NE(nullptr, b.p[0]);
    ASSERT_NE(nullptr, b.p[1]);
    EXPECT_EQ((std::vector<int>{3, 20, 77, 2}), (std::vector<int>{b.n[0], b.n[1], b.n[2], b.cia}));
    EXPECT_EQ((std::vector<int32_t>{1, 2, 3}), std::vector<int32_t>(b.p[0], b.p[0] + 3));
    std::vector<int32_t> second(20, 0);  // a new buffer starts zeroed
    second[0] = 4, second[19] = 6;
    EXPECT_EQ(second, std::vector<int32_t>(b.p[1], b.p[1] + 20));
    EXPECT_EQ(&keep, b.p[2]);
    EXPECT_TRUE(cap.has(8, "xml2sint", "xml2sint: xmlMalloc: 20 * 4")) << cap.dump();
    EXPECT_TRUE(cap.has(8, "xml2sint", "xml2sint: cob 20")) << cap.dump();
    b.p[2] = nullptr;
    release(b);
}

TEST(CountedReader, WrappersRefusedForTheirCountOrIndex)
{
    struct Case {
        const char *doc;
        int level;
        const char *msg;
        int n0;      // count entry 0 afterwards
        int cia;     // count field afterwards (starts at -9)
        int type = PT_SINT;
        size_t size = 4;
    } cases[] = {
        {"<c><c>1</c></c>", 4, "xml2sint: c no count of buffer", -9, -9},
        {"<c cnt=\"0\"/>", 4, "xml2sint: c count of buffer is zero", 0, -9},
        {"<c cnt=\"x\"/>", 4, "xml2sint: c count of buffer is zero", 0, -9},
        {"<c cnt=\"-2\"><c>1</c></c>", 4, "xml2sint: c bad count of buffer(-2)", 0, -9},
        {"<c idx=\"-1\" cnt=\"1\"/>", 5, "xml2sint: c idx(-1) < 0, ignore", -9, -9},
        {"<c idx=\"3\" cnt=\"1\"/>", 5, "xml2sint: c idx(3) >= count(3), ignore", -9, -9},
        // A count whose buffer size would overflow.
        {"<c cnt=\"3\"/>", 4, "xml2uint: c bad count of buffer(3)", 0, -9, PT_UINT, SIZE_MAX / 2},
    };
    for (const Case &c : cases) {
        Counted b = {{nullptr, nullptr, nullptr}, {-9, -9, -9}, -9};
        TraceCapture cap(8);
        read_row(&b, counted_row(c.type, c.size), c.doc);
        EXPECT_TRUE(cap.has(c.level, c.type == PT_UINT ? "xml2uint" : "xml2sint", c.msg)) << c.doc << "\n" << cap.dump();
        EXPECT_EQ(c.n0, b.n[0]) << c.doc;
        EXPECT_EQ(nullptr, b.p[0]) << c.doc;
        EXPECT_EQ(c.cia, b.cia) << c.doc;
    }
}

TEST(CountedReader, IdxOnWrappersAndInnerSurplus)
{
    Counted b = {};
    TraceCapture cap(8);
    read_row(&b, counted_row(PT_FLOT),
             "<c idx=\"1\" cnt=\"2\"><c>1 2 3</c><c>4</c></c><c cnt=\"1\"/><c cnt=\"1\"/>");
    EXPECT_EQ(nullptr, b.p[0]);
    ASSERT_NE(nullptr, b.p[1]);
    ASSERT_NE(nullptr, b.p[2]);
    float got[2];
    std::memcpy(got, b.p[1], sizeof got);
    EXPECT_EQ((std::vector<float>{1, 2}), vec(got));
    EXPECT_TRUE(cap.has(5, "node2flot", "node2flot: c idx(2) >= count(2), ignore")) << cap.dump();
    EXPECT_TRUE(cap.has(5, "xml2flot", "xml2flot: c idx(3) >= count(3), ignore")) << cap.dump();
    EXPECT_EQ(3, b.cia);
    release(b);
}

// ---- lists ---------------------------------------------------------------------

struct Rule { struct znode z; int32_t id, extra; };
struct pdesc kRuleRows[] = {row_of(PT_SINT, "id", 1, 4, offsetof(Rule, id)), {}};

struct Rules { zhead_t h[2]; int n; };

struct pdesc rule_row(size_t size = sizeof(Rule))
{
    struct pdesc r = row_of(PT_LIST | PT_F_CIA, "rule", 2, size, offsetof(Rules, h));
    r.aoffset = offsetof(Rules, n);
    r.pdesc = kRuleRows;
    return r;
}

std::vector<int> ids(zhead_t head)
{
    std::vector<int> out;
    for (struct znode *z = head; z; z = z->next)
        out.push_back(reinterpret_cast<Rule *>(z)->id);
    return out;
}

void release(Rules &b)
{
    struct pdesc table[] = {rule_row(), {}};
    param_xml_free(&b, table);
}

TEST(ListReader, WorkedCaseKeepsOrderAndZeroesNodes)
{
    Rules b = {};
    TraceCapture cap(8);
    struct pdesc after = read_row(&b, rule_row(),
                                  "<rule>\n <rule><id>5</id></rule><!-- c --><other/>\n <rule><id>6</id></rule><rule/></rule><rule/>");
    EXPECT_EQ((std::vector<int>{5, 6, 0}), ids(b.h[0]));
    EXPECT_EQ(nullptr, b.h[1]);
    EXPECT_EQ(0, reinterpret_cast<Rule *>(b.h[0])->extra);
    EXPECT_EQ(2, after.ioa);
    EXPECT_EQ(2, b.n);
    EXPECT_EQ(0u, cap.count_at_most(5)) << cap.dump();
    EXPECT_TRUE(cap.has(8, "xml2list", "xml2list[1]:")) << cap.dump();
    release(b);
    EXPECT_EQ(nullptr, b.h[0]);
}

TEST(ListReader, HeadsRefusedByIndexOrBecauseTheyHoldNodes)
{
    Rules b = {};
    b.n = -9;
    TraceCapture cap(8);
    read_row(&b, rule_row(), "<rule idx=\"1\"><rule><id>1</id></rule></rule><rule/><rule idx=\"-1\"><rule/></rule>");
    EXPECT_EQ(nullptr, b.h[0]);
    EXPECT_EQ((std::vector<int>{1}), ids(b.h[1]));
    EXPECT_TRUE(cap.has(5, "xml2list", "xml2list: rule idx(2) >= count(2), ignore")) << cap.dump();
    EXPECT_TRUE(cap.has(5, "xml2list", "xml2list: rule idx(-1) < 0, ignore")) << cap.dump();
    EXPECT_EQ(2, b.n);
    cap.clear();
    read_row(&b, rule_row(), "<rule><rule><id>3</id></rule></rule><rule><rule><id>4</id></rule></rule>");
    EXPECT_TRUE(cap.has(4, "xml2list", "xml2list: rule not an empty list")) << cap.dump();
    EXPECT_EQ((std::vector<int>{3}), ids(b.h[0]));
    EXPECT_EQ((std::vector<int>{1}), ids(b.h[1]));
    EXPECT_EQ(1, b.n);  // stored after head 0 only
    release(b);
}

TEST(ListReader, NodeSmallerThanItsHeaderIsNeverMade)
{
    Rules b = {};
    TraceCapture cap(8);
    read_row(&b, rule_row(4), "<rule><rule><id>1</id></rule></rule>");
    EXPECT_EQ(nullptr, b.h[0]);
    EXPECT_TRUE(cap.has(4, "xml2list", "xml2list: rule bad node size(4)")) << cap.dump();
}

struct Timer { struct znode z; int32_t period; };
struct Event { struct znode z; int32_t code; };
struct pdesc kTimerRows[] = {row_of(PT_SINT, "period", 1, 4, offsetof(Timer, period)), {}};
struct pdesc kEventRows[] = {row_of(PT_SINT, "code", 1, 4, offsetof(Event, code)), {}};
struct adesc kAlts[] = {{sizeof(Timer), kTimerRows, "timer"}, {sizeof(Event), kEventRows, "event"}, {0, nullptr, nullptr}};

struct pdesc task_row(const struct adesc *alts = kAlts)
{
    struct pdesc r = row_of(PT_VLST, "task", 1, 0);
    r.aux = reinterpret_cast<intptr_t>(alts);
    return r;
}

TEST(VariantListReader, WorkedCaseAndLostInnerElements)
{
    zhead_t head = nullptr;
    TraceCapture cap(8);
    read_row(&head, task_row(),
             "<task><task typ=\"event\"><code>7</code></task><task><code>1</code></task>"
             "<task typ=\"Timer\"/><task typ=\"timer\"><period>100</period></task></task>");
    std::string got;  // "name:value" of each node
    for (struct znode *z = head; z; z = z->next)
        got += std::string(z->name ? z->name : "(null)") + ":" + std::to_string(reinterpret_cast<Timer *>(z)->period) + " ";
    EXPECT_EQ("event:7 timer:100 ", got);  // code and period share their place
    EXPECT_EQ(1u, cap.count(4, "xml2vlst", "xml2vlst: task type name")) << cap.dump();
    EXPECT_EQ(1u, cap.count_at_most(5)) << cap.dump();
    struct pdesc table[] = {task_row(), {}};
    param_xml_free(&head, table);
    EXPECT_EQ(nullptr, head);
}

TEST(VariantListReader, NullOrEmptyTableMakesNoNode)
{
    zhead_t head = nullptr;
    TraceCapture cap(8);
    read_row(&head, task_row(nullptr), "<task><task typ=\"timer\"/><task/></task>");
    EXPECT_EQ(nullptr, head);
    EXPECT_EQ(1u, cap.count(4, "xml2vlst", "xml2vlst: task bad adesc")) << cap.dump();
    struct adesc none[] = {{sizeof(Timer), nullptr, nullptr}};
    cap.clear();
    read_row(&head, task_row(none), "<task><task typ=\"timer\"/></task>");
    EXPECT_EQ(nullptr, head);
    EXPECT_EQ(0u, cap.count_at_most(5)) << cap.dump();
}

// ---- the frame -----------------------------------------------------------------

TEST(ReaderFrame, UnmatchedChildrenBadRowsAndTheEndOfTheTable)
{
    int32_t v[2] = {0, 0};
    struct pdesc table[] = {row_of(PT_SINT, "v", 1, 4), row_of(0xB000, "odd", 1, 4), {},
                            row_of(PT_SINT, "late", 1, 4, 4), {}};
    table[3].ioa = 42;
    Doc d("\n<v>3</v><!-- note --><zz/><odd>1</odd><odd/><late>9</late><text>t</text>");
    TraceCapture cap(8);
    EXPECT_EQ(0, xml2param(v, d.root(), table));
    EXPECT_EQ((std::vector<int32_t>{3, 0}), vec(v));
    EXPECT_EQ(42, table[3].ioa);
    EXPECT_TRUE(cap.has(5, "xml2param", "no mark in param is \"comment\"")) << cap.dump();
    EXPECT_TRUE(cap.has(5, "xml2param", "no mark in param is \"zz\"")) << cap.dump();
    EXPECT_TRUE(cap.has(5, "xml2param", "no mark in param is \"late\"")) << cap.dump();
    EXPECT_EQ(2u, cap.count(4, "xml2param", "xml2param: odd bad type(0xB000)")) << cap.dump();
    EXPECT_EQ(0u, cap.count_containing("\"text\"")) << cap.dump();
    EXPECT_EQ(0u, cap.count_containing("\"odd\"")) << cap.dump();
}

TEST(ReaderFrame, ARowNamedTextAlsoTakesTheTextNodes)
{
    char block[8] = {};
    read_row(block, row_of(PT_STRI, "text", 8, 8), "<text>kept</text>\n ");
    EXPECT_STREQ("\n ", block);  // the blank text behind it went to the same row
}

TEST(ReaderFrame, TwoRowsOfOneNameFeedTheFirst)
{
    int32_t v[2] = {0, 0};
    struct pdesc table[] = {row_of(PT_SINT, "v", 1, 4, 0), row_of(PT_SINT, "v", 1, 4, 4), {}};
    Doc d("<v>1</v><v idx=\"0\">2</v>");
    xml2param(v, d.root(), table);
    EXPECT_EQ((std::vector<int32_t>{2, 0}), vec(v));
}

}  // namespace
