// The writer: each kind's document shape, exact to the byte, the messages
// that mark what was lost or odd, and the refusals that keep every write
// inside the memory and the texts it owns.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "param_xml.h"
#include "pdesc_row.h"
#include "param_xml_private.h"
#include "test_util.h"
#include "trace_capture.h"

namespace {

// A detached element that the writer appends to; freed with its children.
struct Root {
    xmlNode *n = xmlNewNode(nullptr, BAD_CAST "root");
    ~Root() { xmlFreeNode(n); }
    std::string dump() const { return dump_children(n); }
};

// Writes one row over `mem` and returns the children made.
std::string write_row(void *mem, struct pdesc row)
{
    struct pdesc table[2] = {row, {}};
    Root root;
    param2xml(mem, root.n, table);
    return root.dump();
}

// Row modifiers: the table an enumeration or variant row points at; a count field.
struct pdesc with_aux(struct pdesc r, const void *table) { return r.aux = reinterpret_cast<intptr_t>(table), r; }
struct pdesc with_cia(struct pdesc r, size_t aoffset) { return r.type |= PT_F_CIA, r.aoffset = aoffset, r; }

// ---- strings -------------------------------------------------------------------

TEST(StringWriter, WorkedCaseGivesOneElementPerRow)
{
    char block[16] = {};
    std::strcpy(block, "alpha");
    std::strcpy(block + 8, "beta");
    struct pdesc table[] = {row_of(PT_STRI, "label", 8, 8, 0), row_of(PT_STRI, "owner", 8, 8, 8), {}};
    Root root;
    TraceCapture cap(8);
    EXPECT_EQ(0, param2xml(block, root.n, table));
    EXPECT_EQ("<label>alpha</label><owner>beta</owner>", root.dump());
    EXPECT_TRUE(cap.has(8, "stri2xml", "stri2xml: label[8]")) << cap.dump();
    EXPECT_TRUE(cap.has(8, "stri2xml", "stri2xml: beta")) << cap.dump();
}

TEST(StringWriter, TerminatorIsStoredAtCountMinusOne)
{
    struct Case {
        const char *text;
        int count;
        const char *doc;
    } cases[] = {
        {"abcdefg", 8, "<s>abcdefg</s>"},   // count - 1 characters: whole
        {"abcdefgh", 8, "<s>abcdefg</s>"},  // count characters: last one replaced
        {"abc", 1, "<s/>"},                  // count 1: always empty
        {"", 8, "<s/>"},                     // empty string: no content
        {"a<b&c", 8, "<s>a&lt;b&amp;c</s>"}, // escaping left to libxml2
    };
    for (const Case &c : cases) {
        char block[12] = {};
        std::memcpy(block, c.text, std::strlen(c.text));
        EXPECT_EQ(c.doc, write_row(block, row_of(PT_STRI, "s", c.count, 8))) << c.text;
        EXPECT_EQ('\0', block[c.count - 1]) << c.text;
    }
}

TEST(StringWriter, CountBelowOneIsRefusedWithoutTouchingMemory)
{
    char block[8] = {'x', 'y', 'z', 0};
    TraceCapture cap(8);
    EXPECT_EQ("", write_row(block + 4, row_of(PT_STRI, "s", 0, 4)));
    EXPECT_TRUE(cap.has(4, "stri2xml", "stri2xml: s bad count(0)")) << cap.dump();
    EXPECT_EQ('\0', block[3]);
    EXPECT_EQ('z', block[2]);
}

// ---- integers ------------------------------------------------------------------

template <typename T, size_t N>
std::string ints(int type, const T (&values)[N], int count = N)
{
    T copy[N];
    std::memcpy(copy, values, sizeof copy);
    return write_row(copy, row_of(type, "v", count, sizeof(T)));
}

TEST(IntegerWriter, ExtremesOfEveryWidthAndForm)
{
    const int8_t s1[] = {INT8_MIN, INT8_MAX, 0, -1};
    const int16_t s2[] = {INT16_MIN, INT16_MAX};
    const int32_t s4[] = {INT32_MIN, INT32_MAX};
    const int64_t s8[] = {INT64_MIN, INT64_MAX};
    const uint8_t u1[] = {0, 15, 255};
    const uint16_t u2[] = {0, 65535};
    const uint32_t u4[] = {4096, UINT32_MAX};
    const uint64_t u8[] = {0, UINT64_MAX};
    EXPECT_EQ("<v>-128 127 0 -1</v>", ints(PT_SINT, s1));
    EXPECT_EQ("<v>-32768 32767</v>", ints(PT_SINT, s2));
    EXPECT_EQ("<v>-2147483648 2147483647</v>", ints(PT_SINT, s4));
    EXPECT_EQ("<v>-9223372036854775808 9223372036854775807</v>", ints(PT_SINT, s8));
    EXPECT_EQ("<v>-128 127 0 -1</v>", ints(PT_SINT | PT_FMT_HEXL, s1));  // signed: always decimal
    EXPECT_EQ("<v>-128 127 0 -1</v>", ints(PT_SINT | PT_FMT_HEXU, s1));
    EXPECT_EQ("<v>0 15 255</v>", ints(PT_UINT, u1));
    EXPECT_EQ("<v>0x0 0xf 0xff</v>", ints(PT_UINT | PT_FMT_HEXL, u1));
    EXPECT_EQ("<v>0x0 0xF 0xFF</v>", ints(PT_UINT | PT_FMT_HEXU, u1));
    EXPECT_EQ("<v>0 65535</v>", ints(PT_UINT | 0x5, u2));  // other nibbles: decimal
    EXPECT_EQ("<v>0x1000 0xFFFFFFFF</v>", ints(PT_UINT | PT_FMT_HEXU, u4));
    EXPECT_EQ("<v>4096 4294967295</v>", ints(PT_UINT, u4));
    EXPECT_EQ("<v>0 18446744073709551615</v>", ints(PT_UINT, u8));
    EXPECT_EQ("<v>0x0 0xffffffffffffffff</v>", ints(PT_UINT | PT_FMT_HEXL, u8));
}

TEST(IntegerWriter, GroupsFollowWidthWithIdxOnAllButTheFirst)
{
    struct Case {
        size_t size;
        int count;
        const char *idx_list;  // "idx" of each element, "-" for none
    } cases[] = {
        {4, 20, "- 8 16"}, {1, 32, "- 16"}, {1, 33, "- 16 32"}, {2, 17, "- 16"},
        {8, 9, "- 4 8"},   {4, 1, "-"},     {4, 8, "-"},        {4, 0, ""},
        {4, -3, ""},
    };
    for (const Case &c : cases) {
        uint64_t mem[64] = {};
        Root root;
        struct pdesc r = row_of(PT_SINT, "v", c.count, c.size);
        EXPECT_EQ(0, sint2node(mem, root.n, &r, c.count));
        std::string got;
        for (xmlNode *e = root.n->children; e; e = e->next) {
            xmlChar *idx = xmlGetProp(e, BAD_CAST "idx");
            got += std::string(got.empty() ? "" : " ") + (idx ? reinterpret_cast<char *>(idx) : "-");
            xmlFree(idx);
        }
        EXPECT_EQ(c.idx_list, got) << "size " << c.size << " count " << c.count;
    }
}

TEST(IntegerWriter, TwentyValuesOfWidthFourSplitEightEightFour)
{
    int32_t v[20];
    for (int i = 0; i < 20; i++)
        v[i] = i * 10 - 50;
    TraceCapture cap(8);
    EXPECT_EQ("<v>-50 -40 -30 -20 -10 0 10 20</v>"
              "<v idx=\"8\">30 40 50 60 70 80 90 100</v>"
              "<v idx=\"16\">110 120 130 140</v>",
              write_row(v, row_of(PT_SINT, "v", 20, 4)));
    EXPECT_TRUE(cap.has(8, "sint2xml", "sint2xml: v[20]")) << cap.dump();
    EXPECT_TRUE(cap.has(8, "sint2xml", "sint2xml: cia 20")) << cap.dump();
    EXPECT_TRUE(cap.has(8, "sint2node", "sint2node: 110 120 130 140")) << cap.dump();
}

TEST(IntegerWriter, UnsupportedWidthGivesOneElementWithTheSentence)
{
    char mem[64] = {};
    TraceCapture cap(8);
    EXPECT_EQ("<v>unsupported data size(3)</v>", write_row(mem, row_of(PT_UINT, "v", 5, 3)));
    EXPECT_TRUE(cap.has(8, "uint2node", "uint2node: unsupported data size(3)")) << cap.dump();
    EXPECT_EQ(0u, cap.count_at_most(7)) << cap.dump();
    EXPECT_EQ("", write_row(mem, row_of(PT_UINT, "v", 0, 3)));
    EXPECT_EQ("<v>unsupported data size(16)</v>", write_row(mem, row_of(PT_FLOT, "v", 2, 16)));
}

TEST(IntegerWriter, CountInArrayClampsTheNumberWritten)
{
    struct Block { int32_t v[3]; int n; };
    struct Case {
        int n;
        const char *doc;
    } cases[] = {{2, "<v>1 2</v>"}, {7, "<v>1 2 3</v>"}, {0, ""}, {-4, ""}};
    for (const Case &c : cases) {
        Block b = {{1, 2, 3}, c.n};
        EXPECT_EQ(c.doc, write_row(&b, with_cia(row_of(PT_SINT, "v", 3, 4, offsetof(Block, v)), offsetof(Block, n)))) << c.n;
    }
}

TEST(IntegerWriter, CountBeyondNineDigitsIsABadRow)
{
    int32_t v[1] = {5};
    TraceCapture cap(8);
    EXPECT_EQ("", write_row(v, row_of(PT_SINT | PT_F_CIA, "v", 1000000000, 4)));
    EXPECT_TRUE(cap.has(4, "sint2xml", "sint2xml: v bad count(1000000000)")) << cap.dump();
    // Nine digits are fine: with a count field of 1 only one value is read.
    struct { int32_t v; int n; } b = {7, 1};
    EXPECT_EQ("<v>7</v>", write_row(&b, with_cia(row_of(PT_SINT, "v", 999999999, 4), 4)));
}

// ---- floats --------------------------------------------------------------------

TEST(FloatWriter, BothWidthsPrecisionAndNonFiniteValues)
{
    float f[10], p[] = {1000000.0f, 0.1f, -1.0f / 3.0f, INFINITY, -INFINITY, FLT_MAX}, g[16] = {};
    double d[10], q[] = {0.1, 1.0 / 3.0, NAN, DBL_MAX};
    for (int i = 0; i < 10; i++)
        d[i] = f[i] = 0.5f * static_cast<float>(i + 1);
    struct Case {
        void *mem;
        const char *name;
        int count;
        size_t size;
        const char *doc;
    } cases[] = {
        {f, "gain", 10, 4, "<gain>0.5 1 1.5 2 2.5 3 3.5 4</gain><gain idx=\"8\">4.5 5</gain>"},
        {d, "gain", 10, 8, "<gain>0.5 1 1.5 2</gain><gain idx=\"4\">2.5 3 3.5 4</gain><gain idx=\"8\">4.5 5</gain>"},
        {p, "x", 6, 4, "<x>1e+06 0.1 -0.333333 inf -inf 3.40282e+38</x>"},
        {q, "x", 4, 8, "<x>0.1 0.333333333333333 nan 1.79769313486232e+308</x>"},
        {g, "x", 16, 4, "<x>0 0 0 0 0 0 0 0</x><x idx=\"8\">0 0 0 0 0 0 0 0</x>"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(c.doc, write_row(c.mem, row_of(PT_FLOT, c.name, c.count, c.size))) << c.doc;
}

// ---- enumerations --------------------------------------------------------------

TEST(EnumWriter, KeysOfValuesAndRefusals)
{
    struct enume on_off[] = {{"on", 1}, {"off", 0}, {nullptr, 0}};
    struct enume dup[] = {{"a", 2}, {"b", 2}, {"z", 9}, {nullptr, 9}};
    struct enume empty[] = {{nullptr, 4}};
    struct { int value, other; } recs[2] = {{2, 111}, {9, 222}};
    int v[3] = {0, 1, 7}, w[2] = {4, 5};
    struct Case {
        void *mem;
        struct pdesc row;
        const char *doc;
        int level;  // of the message expected `n` times, 0 for none
        const char *msg;
        size_t n;
    } cases[] = {
        // An unknown value takes the first key.
        {v, with_aux(row_of(PT_ENUM, "mode", 3, 4), on_off), "<mode>off</mode><mode>on</mode><mode>on</mode>", 0, "", 0},
        // The earlier of two keys wins; the stride skips the rest of each record.
        {recs, with_aux(row_of(PT_ENUM | PT_F_CIA | PT_F_COB, "e", 2, sizeof recs[0]), dup), "<e>a</e><e>z</e>", 0, "", 0},
        // An empty table writes empty elements and never prints the null key.
        {w, with_aux(row_of(PT_ENUM, "e", 2, 4), empty), "<e/><e/>", 8, "enum2xml: (null)", 2},
        {v, with_aux(row_of(PT_ENUM, "e", 2, 2), on_off), "", 4, "enum2xml: e bad size(2)", 1},
    };
    for (const Case &c : cases) {
        TraceCapture cap(8);
        EXPECT_EQ(c.doc, write_row(c.mem, c.row)) << c.doc;
        EXPECT_EQ(c.n, c.level ? cap.count(c.level, "enum2xml", c.msg) : 0u) << cap.dump();
    }
}

// ---- structures ----------------------------------------------------------------

struct Port { int32_t speed, mtu; };
struct pdesc kPortRows[] = {row_of(PT_SINT, "speed", 1, 4, offsetof(Port, speed)),
                            row_of(PT_SINT, "mtu", 1, 4, offsetof(Port, mtu)), {}};

TEST(StructWriter, WorkedCaseInPlaceAndBehindAPointer)
{
    struct Block { Port ports[3]; int n; Port *far; } b = {{{10, 20}, {30, 40}, {50, 60}}, 2, nullptr};
    b.far = b.ports;
    const char *want = "<port><speed>10</speed><mtu>20</mtu></port><port><speed>30</speed><mtu>40</mtu></port>";
    struct pdesc r = with_cia(row_of(PT_STRU, "port", 3, sizeof(Port), offsetof(Block, ports)), offsetof(Block, n));
    r.pdesc = kPortRows;
    TraceCapture cap(8);
    EXPECT_EQ(want, write_row(&b, r));
    EXPECT_TRUE(cap.has(8, "stru2xml", "stru2xml: port[2]")) << cap.dump();
    EXPECT_TRUE(cap.has(8, "stru2node", "stru2node[1]:")) << cap.dump();
    cap.clear();
    r.type = PT_STRUM | PT_F_CIA;
    r.offset = offsetof(Block, far);
    EXPECT_EQ(want, write_row(&b, r));
    EXPECT_TRUE(cap.has(8, "struM2xml", "stru2xml: port[2]")) << cap.dump();
    EXPECT_TRUE(cap.has(8, "struM2xml", "stru2xml: cia 2")) << cap.dump();
}

TEST(StructWriter, NullPointerIsNeverFollowed)
{
    struct { Port *far; } b = {nullptr};
    struct pdesc r = row_of(PT_STRUM, "port", 2, sizeof(Port));
    r.pdesc = kPortRows;
    TraceCapture cap(8);
    EXPECT_EQ("", write_row(&b, r));
    EXPECT_TRUE(cap.has(4, "struM2xml", "stru2xml: port null pointer, skip")) << cap.dump();
    r.count = 0;  // nothing to write: no message
    cap.clear();
    EXPECT_EQ("", write_row(&b, r));
    EXPECT_EQ(0u, cap.count_at_most(5)) << cap.dump();
}

// ---- counted buffers -----------------------------------------------------------

TEST(CountedWriter, WorkedCaseWithAnEmptyEntry)
{
    uint16_t b0[3] = {1, 2, 3};
    uint16_t b2[20];
    for (int i = 0; i < 20; i++)
        b2[i] = static_cast<uint16_t>(100 + i);
    struct { uint16_t *p[3]; int n[3]; } blk = {{b0, nullptr, b2}, {3, 0, 20}};
    struct pdesc r = row_of(PT_UINT | PT_F_COB, "seg", 3, 2, 0);
    r.boffset = sizeof blk.p;
    TraceCapture cap(8);
    EXPECT_EQ("<seg cnt=\"3\"><seg>1 2 3</seg></seg>"
              "<seg cnt=\"20\"><seg>100 101 102 103 104 105 106 107 108 109 110 111 112 113 114 115</seg>"
              "<seg idx=\"16\">116 117 118 119</seg></seg>",
              write_row(&blk, r));
    EXPECT_TRUE(cap.has(5, "uint2xml", "uint2xml: seg count of buffer is zero")) << cap.dump();
    EXPECT_TRUE(cap.has(8, "uint2xml", "uint2xml: cob 20")) << cap.dump();
}

TEST(CountedWriter, OddCountsAndNullBuffers)
{
    int32_t b0[2] = {5, 6};
    struct { int32_t *p[4]; int n[4]; } blk = {{b0, nullptr, b0, b0}, {-5, 2, -1000000000, 1000000000}};
    struct pdesc r = row_of(PT_SINT | PT_F_COB, "c", 4, 4, 0);
    r.boffset = sizeof blk.p;
    TraceCapture cap(8);
    EXPECT_EQ("<c cnt=\"-5\"/>", write_row(&blk, r));
    EXPECT_TRUE(cap.has(4, "sint2xml", "sint2xml: c buffer(1) is null, skip")) << cap.dump();
    EXPECT_TRUE(cap.has(4, "sint2xml", "sint2xml: c count of buffer(-1000000000) too long, skip")) << cap.dump();
    EXPECT_TRUE(cap.has(4, "sint2xml", "sint2xml: c count of buffer(1000000000) too long, skip")) << cap.dump();
}

TEST(CountedWriter, StructuresAndCountInArray)
{
    Port a[2] = {{1, 2}, {3, 4}};
    Port z[1] = {{9, 9}};
    struct { Port *p[3]; int n[3]; int cia; } blk = {{a, z, z}, {2, 1, 1}, 2};
    struct pdesc r = row_of(PT_STRUM | PT_F_COB | PT_F_CIA, "p", 3, sizeof(Port), 0);
    r.boffset = sizeof blk.p;
    r.aoffset = sizeof blk.p + sizeof blk.n;
    r.pdesc = kPortRows;
    TraceCapture cap(8);
    EXPECT_EQ("<p cnt=\"2\"><p><speed>1</speed><mtu>2</mtu></p><p><speed>3</speed><mtu>4</mtu></p></p>"
              "<p cnt=\"1\"><p><speed>9</speed><mtu>9</mtu></p></p>",
              write_row(&blk, r));
    EXPECT_TRUE(cap.has(8, "struM2xml", "stru2xml: cob 2")) << cap.dump();
}

// ---- lists ---------------------------------------------------------------------

struct Rule { struct znode z; int32_t id; };
struct pdesc kRuleRows[] = {row_of(PT_SINT, "id", 1, 4, offsetof(Rule, id)), {}};

TEST(ListWriter, WorkedCaseKeepsEmptyListsInPlace)
{
    Rule r5 = {{}, 5}, r6 = {{}, 6};
    zhead_t heads[2] = {nullptr, nullptr};
    zlst_push(&heads[0], &r5);
    zlst_push(&heads[0], &r6);
    struct pdesc r = row_of(PT_LIST, "rule", 2, sizeof(Rule));
    r.pdesc = kRuleRows;
    TraceCapture cap(8);
    EXPECT_EQ("<rule><rule><id>5</id></rule><rule><id>6</id></rule></rule><rule/>", write_row(heads, r));
    EXPECT_TRUE(cap.has(8, "list2xml", "list2xml: rule[2]")) << cap.dump();
    EXPECT_TRUE(cap.has(8, "list2xml", "list2xml[1]:")) << cap.dump();
    EXPECT_TRUE(cap.has(8, "list2xml", "node[1]:")) << cap.dump();
}

struct Timer { struct znode z; int32_t period; };
struct Event { struct znode z; int32_t code; };
struct Big { struct znode z; int64_t a, b; };
struct pdesc kTimerRows[] = {row_of(PT_SINT, "period", 1, 4, offsetof(Timer, period)), {}};
struct pdesc kEventRows[] = {row_of(PT_SINT, "code", 1, 4, offsetof(Event, code)), {}};
struct pdesc kBigRows[] = {row_of(PT_SINT, "a", 2, 8, offsetof(Big, a)), {}};

TEST(VariantListWriter, WorkedCaseKeepsEachNodesType)
{
    struct adesc alts[] = {{sizeof(Timer), kTimerRows, "timer"}, {sizeof(Event), kEventRows, "event"}, {0, nullptr, nullptr}};
    Event e = {{}, 7};
    Timer t = {{}, 100};
    zlst_set_name(&e, "event");
    zlst_set_name(&t, "timer");
    zhead_t head = nullptr;
    zlst_push(&head, &e);
    zlst_push(&head, &t);
    EXPECT_EQ("<task><task typ=\"event\"><code>7</code></task><task typ=\"timer\"><period>100</period></task></task>",
              write_row(&head, with_aux(row_of(PT_VLST, "task", 1, 0), alts)));
}

TEST(VariantListWriter, UnknownTypesFallBackOnlyWhenTheFirstFitsEveryNode)
{
    Timer t = {{}, 3}, n = {{}, 4};  // n: a node with no name at all
    zlst_set_name(&t, "ghost");
    zhead_t head = nullptr;
    zlst_push(&head, &t);
    zlst_push(&head, &n);
    struct adesc small_first[] = {{sizeof(Timer), kTimerRows, "timer"}, {sizeof(Big), kBigRows, "big"}, {0, nullptr, nullptr}};
    struct adesc big_first[] = {{sizeof(Big), kBigRows, "big"}, {sizeof(Timer), kTimerRows, "timer"}, {0, nullptr, nullptr}};
    struct pdesc r = with_aux(row_of(PT_VLST, "task", 1, 0), small_first);
    EXPECT_EQ("<task><task typ=\"ghost\"><period>3</period></task><task typ=\"\"><period>4</period></task></task>",
              write_row(&head, r));
    r.aux = reinterpret_cast<intptr_t>(big_first);
    TraceCapture cap(8);
    EXPECT_EQ("<task><task typ=\"ghost\"/><task typ=\"\"/></task>", write_row(&head, r));
    EXPECT_TRUE(cap.has(5, "vlst2xml", "vlst2xml: task type(ghost) unknown, fields not written")) << cap.dump();
    EXPECT_TRUE(cap.has(5, "vlst2xml", "vlst2xml: task type((null)) unknown, fields not written")) << cap.dump();
}

TEST(VariantListWriter, NullOrEmptyTableWritesNoInnerElement)
{
    Timer t = {};
    zlst_set_name(&t, "timer");
    zhead_t heads[2] = {nullptr, nullptr};
    zlst_push(&heads[1], &t);
    struct pdesc r = row_of(PT_VLST, "task", 2, 0);
    TraceCapture cap(8);
    EXPECT_EQ("<task/><task/>", write_row(heads, r));
    EXPECT_EQ(1u, cap.count(5, "vlst2xml", "vlst2xml: task bad adesc")) << cap.dump();
    struct adesc none[] = {{64, nullptr, nullptr}};
    r.aux = reinterpret_cast<intptr_t>(none);
    cap.clear();
    EXPECT_EQ("<task/><task/>", write_row(heads, r));
    EXPECT_EQ(1u, cap.count(5, "vlst2xml", "vlst2xml: task adesc has no alternative")) << cap.dump();
}

// ---- the frame -----------------------------------------------------------------

TEST(WriterFrame, BadRowsAreReportedAndSkipped)
{
    int32_t v = 42;
    struct pdesc table[] = {row_of(0xA000 | PT_F_CIA, "odd", 1, 4), row_of(PT_SINT, nullptr, 1, 4),
                            row_of(PT_SINT, "v", 1, 4), {}, row_of(PT_SINT, "after", 1, 4), {}};
    Root root;
    TraceCapture cap(8);
    EXPECT_EQ(0, param2xml(&v, root.n, table));
    EXPECT_EQ("<v>42</v>", root.dump());
    EXPECT_TRUE(cap.has(4, "param2xml", "param2xml: odd bad type(0xA400)")) << cap.dump();
    EXPECT_TRUE(cap.has(4, "param2xml", "param2xml: row without name, type(0x1000)")) << cap.dump();
    EXPECT_EQ(0u, cap.count_containing("after"));
}

TEST(WriterFrame, ExistingChildrenStayInFrontAndRowsKeepTableOrder)
{
    struct {
        int32_t a;
        char s[8];
    } b = {1, "x"};
    struct pdesc table[] = {row_of(PT_STRI, "s", 8, 8, 4), row_of(PT_SINT, "a", 1, 4, 0),
                            row_of(PT_SINT, "a", 1, 4, 0), {}};
    Root root;
    xmlNewChild(root.n, nullptr, BAD_CAST "old", nullptr);
    param2xml(&b, root.n, table);
    EXPECT_EQ("<old/><s>x</s><a>1</a><a>1</a>", root.dump());
}

}  // namespace
