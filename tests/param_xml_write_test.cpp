// The writer: each kind's document, exact to the byte, with the records that
// mark what was lost, as one table per kind; bad rows; text XML can't carry.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>

#include "codec_util.h"
#include "sweep.h"

namespace {

// One row written over `mem` (with param2xml_opt's `options`): the document,
// and the records at level 5 and below that it leaves.
struct Case {
    void *mem;
    struct pdesc row;
    std::string doc;
    std::vector<std::string> records;
    uint32_t options = 0;
};

void expect_written(const std::vector<Case> &cases)
{
    for (const Case &c : cases) {
        SCOPED_TRACE(c.doc);
        TraceCapture cap(5);
        struct pdesc table[2] = {c.row, {}};
        EXPECT_EQ(c.doc, write_table(c.mem, table, c.options));
        expect_records(cap, c.records);
    }
}

TEST(Writer, Strings)
{
    char s[5][12] = {"alpha", "abcdefg", "abcdefgh", "abc", ""};
    char esc[8] = "a<b&c", before[8] = {'x', 'y', 'z', 0};
    expect_written({
        {s[0], row(PT_STRI, "s", 8, 8), "<s>alpha</s>", {}},
        {s[1], row(PT_STRI, "s", 8, 8), "<s>abcdefg</s>", {}},   // count - 1 characters: whole
        {s[2], row(PT_STRI, "s", 8, 8), "<s>abcdefg</s>", {}},   // count: the last one replaced
        {s[3], row(PT_STRI, "s", 1, 8), "<s/>", {}},
        {s[4], row(PT_STRI, "s", 8, 8), "<s/>", {}},
        {esc, row(PT_STRI, "s", 8, 8), "<s>a&lt;b&amp;c</s>", {}},
        {before + 4, row(PT_STRI, "s", 0, 4), "", {"4 stri2xml: stri2xml: s bad count(0)"}},
    });
    EXPECT_EQ('\0', s[2][7]) << "the terminator is stored at count - 1";
    EXPECT_EQ('z', before[2]) << "a count below 1 stores nothing in front of the field";
}

TEST(Writer, Integers)
{
    int8_t s1[] = {INT8_MIN, INT8_MAX, 0, -1};
    int16_t s2[] = {INT16_MIN, INT16_MAX};
    int32_t s4[20];
    int64_t s8[] = {INT64_MIN, INT64_MAX, 1, 2, 3};
    uint8_t u1[33] = {0, 15, 255};
    uint16_t u2[17] = {0, 65535};
    uint32_t u4[] = {4096, UINT32_MAX};
    uint64_t u8[] = {0, UINT64_MAX};
    for (int i = 0; i < 20; i++)
        s4[i] = i * 10 - 50;
    struct { int32_t v[3]; int n; } c2 = {{1, 2, 3}, 2}, c7 = {{1, 2, 3}, 7}, c0 = {{1, 2, 3}, 0}, cn = {{1, 2, 3}, -4};
    struct { int32_t v; int n; } one = {7, 1};
    const pdesc ca = cia(row(PT_SINT, "v", 3, 4), offsetof(decltype(c2), n));
    const std::string g12 = repeat("0x0 ", 12);
    expect_written({
        {s1, row(PT_SINT, "v", 4, 1), "<v>-128 127 0 -1</v>", {}},
        {s1, row(PT_SINT | PT_FMT_HEXL, "v", 4, 1), "<v>-128 127 0 -1</v>", {}},  // signed: decimal
        {s1, row(PT_SINT | PT_FMT_HEXU, "v", 4, 1), "<v>-128 127 0 -1</v>", {}},
        {s2, row(PT_SINT, "v", 2, 2), "<v>-32768 32767</v>", {}},
        {s4, row(PT_SINT, "v", 20, 4),  // groups of 8 for 4 bytes, "idx" on all but the first
         "<v>-50 -40 -30 -20 -10 0 10 20</v><v idx=\"8\">30 40 50 60 70 80 90 100</v><v idx=\"16\">110 120 130 140</v>", {}},
        {s8, row(PT_SINT, "v", 5, 8), "<v>-9223372036854775808 9223372036854775807 1 2</v><v idx=\"4\">3</v>", {}},
        {u1, row(PT_UINT, "v", 3, 1), "<v>0 15 255</v>", {}},
        {u1, row(PT_UINT | PT_FMT_HEXL, "v", 3, 1), "<v>0x0 0xf 0xff</v>", {}},
        {u1, row(PT_UINT | PT_FMT_HEXU, "v", 33, 1),
         "<v>0x0 0xF 0xFF " + g12 + "0x0</v><v idx=\"16\">" + g12 + "0x0 0x0 0x0 0x0</v><v idx=\"32\">0x0</v>", {}},
        {u2, row(PT_UINT | 0x5, "v", 17, 2), "<v>0 65535 0 0 0 0 0 0 0 0 0 0 0 0 0 0</v><v idx=\"16\">0</v>", {}},  // other nibbles: decimal
        {u4, row(PT_UINT | PT_FMT_HEXU, "v", 2, 4), "<v>0x1000 0xFFFFFFFF</v>", {}},
        {u4, row(PT_UINT, "v", 2, 4), "<v>4096 4294967295</v>", {}},
        {u8, row(PT_UINT, "v", 2, 8), "<v>0 18446744073709551615</v>", {}},
        {u8, row(PT_UINT | PT_FMT_HEXL, "v", 2, 8), "<v>0x0 0xffffffffffffffff</v>", {}},
        {u8, row(PT_UINT, "v", 5, 3), "<v>unsupported data size(3)</v>", {}},
        {u8, row(PT_UINT, "v", 0, 3), "", {}},
        {u8, row(PT_SINT, "v", -3, 4), "", {}},
        {&c2, ca, "<v>1 2</v>", {}},   // the count field clamps the number written
        {&c7, ca, "<v>1 2 3</v>", {}},
        {&c0, ca, "", {}},
        {&cn, ca, "", {}},
        // A count whose indices need more than nine digits is a bad row, for
        // every kind that writes "idx"; nine digits are fine.
        {&one, cia(row(PT_SINT, "v", 1000000000, 4), 4), "", {"4 sint2xml: sint2xml: v bad count(1000000000)"}},
        {&one, cia(row(PT_UINT, "v", 1000000000, 4), 4), "", {"4 uint2xml: uint2xml: v bad count(1000000000)"}},
        {&one, cia(row(PT_FLOT, "v", 1000000000, 4), 4), "", {"4 flot2xml: flot2xml: v bad count(1000000000)"}},
        {&one, cia(row(PT_SINT, "v", 999999999, 4), 4), "<v>7</v>", {}},
        {&one, cia(row(PT_FLOT, "v", 999999999, 4), 4), "<v>9.80909e-45</v>", {}},
    });
}

TEST(Writer, Floats)
{
    float f[10], p[] = {1000000.0f, 0.1f, -1.0f / 3.0f, INFINITY, -INFINITY, FLT_MAX}, e[] = {0.1f, -0.0f, FLT_TRUE_MIN, FLT_MAX};
    double d[10], q[] = {0.1, 1.0 / 3.0, NAN, DBL_MAX}, x[] = {0.1, -0.0, DBL_TRUE_MIN, NAN};
    for (int i = 0; i < 10; i++)
        d[i] = f[i] = 0.5f * static_cast<float>(i + 1);
    expect_written({
        {f, row(PT_FLOT, "g", 10, 4), "<g>0.5 1 1.5 2 2.5 3 3.5 4</g><g idx=\"8\">4.5 5</g>", {}},
        {d, row(PT_FLOT, "g", 10, 8), "<g>0.5 1 1.5 2</g><g idx=\"4\">2.5 3 3.5 4</g><g idx=\"8\">4.5 5</g>", {}},
        {p, row(PT_FLOT, "x", 6, 4), "<x>1e+06 0.1 -0.333333 inf -inf 3.40282e+38</x>", {}},
        {q, row(PT_FLOT, "x", 4, 8), "<x>0.1 0.333333333333333 nan 1.79769313486232e+308</x>", {}},
        {q, row(PT_FLOT, "x", 2, 16), "<x>unsupported data size(16)</x>", {}},
        // Exact floats: 9 and 17 digits, enough to read back to the same bits.
        {e, row(PT_FLOT, "x", 4, 4), "<x>0.100000001 -0 1.40129846e-45 3.40282347e+38</x>", {}, PARAM_XML_EXACT_FLOATS},
        {x, row(PT_FLOT, "x", 4, 8), "<x>0.10000000000000001 -0 4.9406564584124654e-324 nan</x>", {}, PARAM_XML_EXACT_FLOATS},
    });
}

TEST(Writer, Enumerations)
{
    struct enume on_off[] = {{"on", 1}, {"off", 0}, {nullptr, 0}};
    struct enume dup[] = {{"a", 2}, {"b", 2}, {"z", 9}, {nullptr, 9}};
    struct enume empty[] = {{nullptr, 4}};
    struct { int value, other; } recs[2] = {{2, 111}, {9, 222}};
    int v[3] = {0, 1, 7}, w[2] = {4, 5};
    expect_written({
        // An unknown value takes the first key.
        {v, aux(row(PT_ENUM, "mode", 3, 4), on_off), "<mode>off</mode><mode>on</mode><mode>on</mode>", {}},
        // The earlier of two keys wins; the stride skips the rest of each record.
        {recs, aux(row(PT_ENUM | PT_F_CIA | PT_F_COB, "e", 2, sizeof recs[0]), dup), "<e>a</e><e>z</e>", {}},
        {w, aux(row(PT_ENUM, "e", 2, 4), empty), "<e/><e/>", {}},   // an empty table: empty elements
        {v, aux(row(PT_ENUM, "e", 2, 2), on_off), "", {"4 enum2xml: enum2xml: e bad size(2)"}},
    });
}

TEST(Writer, StructuresAndCountedBuffers)
{
    struct { Port ports[3]; int n; Port *far; } b = {{{10, 20}, {30, 40}, {50, 60}}, 2, nullptr};
    b.far = b.ports;
    struct { Port *far; } none = {nullptr};
    const char *two = "<port><speed>10</speed><mtu>20</mtu></port><port><speed>30</speed><mtu>40</mtu></port>";
    uint16_t b0[3] = {1, 2, 3}, b2[20];
    for (int i = 0; i < 20; i++)
        b2[i] = static_cast<uint16_t>(100 + i);
    struct { uint16_t *p[3]; int n[3]; } seg = {{b0, nullptr, b2}, {3, 0, 20}};
    int32_t i0[2] = {5, 6};
    struct { int32_t *p[4]; int n[4]; } odd = {{i0, nullptr, i0, i0}, {-5, 2, -1000000000, 1000000000}};
    Port a[2] = {{1, 2}, {3, 4}}, z[1] = {{9, 9}};
    struct { Port *p[3]; int n[3]; int cia; } ps = {{a, z, z}, {2, 1, 1}, 2};
    expect_written({
        {&b, cia(sub(row(PT_STRU, "port", 3, sizeof(Port)), kPortRows), offsetof(decltype(b), n)), two, {}},
        {&b, cia(sub(row(PT_STRUM, "port", 3, sizeof(Port), offsetof(decltype(b), far)), kPortRows),
                 offsetof(decltype(b), n)), two, {}},
        {&none, sub(row(PT_STRUM, "port", 2, sizeof(Port)), kPortRows), "", {"4 struM2xml: stru2xml: port null pointer, skip"}},
        {&none, sub(row(PT_STRUM, "port", 0, sizeof(Port)), kPortRows), "", {}},  // nothing to write
        {&seg, cob(row(PT_UINT, "seg", 3, 2), sizeof seg.p),
         "<seg cnt=\"3\"><seg>1 2 3</seg></seg><seg cnt=\"20\"><seg>100 101 102 103 104 105 106 107 108 109 110 111 "
         "112 113 114 115</seg><seg idx=\"16\">116 117 118 119</seg></seg>", {"5 uint2xml: uint2xml: seg count of buffer is zero"}},
        {&odd, cob(row(PT_SINT, "c", 4, 4), sizeof odd.p), "<c cnt=\"-5\"/>",
         {"4 sint2xml: sint2xml: c buffer(1) is null, skip",
          "4 sint2xml: sint2xml: c count of buffer(-1000000000) too long, skip",
          "4 sint2xml: sint2xml: c count of buffer(1000000000) too long, skip"}},
        {&ps, cia(cob(sub(row(PT_STRUM, "p", 3, sizeof(Port)), kPortRows), sizeof ps.p), sizeof ps.p + sizeof ps.n),
         "<p cnt=\"2\"><p><speed>1</speed><mtu>2</mtu></p><p><speed>3</speed><mtu>4</mtu></p></p>"
         "<p cnt=\"1\"><p><speed>9</speed><mtu>9</mtu></p></p>", {}},
    });
}

TEST(Writer, Lists)
{
    Rule r5 = {{}, 5, 0}, r6 = {{}, 6, 0};
    Event e = {{}, 7};
    Timer t = {{}, 100}, ghost = {{}, 3}, unnamed = {{}, 4}, alone = {{}, 1};
    zhead_t rules[2] = {nullptr, nullptr}, tasks[2] = {nullptr, nullptr}, odd = nullptr, lone[2] = {nullptr, nullptr};
    zlst_set_name(&e, "event"), zlst_set_name(&t, "timer"), zlst_set_name(&ghost, "ghost");
    zlst_push(&rules[0], &r5), zlst_push(&rules[0], &r6), zlst_push(&tasks[0], &e), zlst_push(&tasks[0], &t);
    zlst_push(&odd, &ghost), zlst_push(&odd, &unnamed), zlst_push(&lone[1], &alone);
    struct Big { struct znode z; int64_t a, b; };
    struct pdesc big_rows[] = {row(PT_SINT, "a", 2, 8, offsetof(Big, a)), {}};
    // A node of no known type is walked by the first alternative only when
    // no other is smaller, so that it holds every field that one describes.
    struct adesc small_first[] = {{sizeof(Timer), kTimerRows, "timer"}, {sizeof(Big), big_rows, "big"}, {0, nullptr, nullptr}};
    struct adesc big_first[] = {{sizeof(Big), big_rows, "big"}, {sizeof(Timer), kTimerRows, "timer"}, {0, nullptr, nullptr}};
    struct adesc no_alt[] = {{64, nullptr, nullptr}};
    expect_written({
        {rules, sub(row(PT_LIST, "rule", 2, sizeof(Rule)), kRuleRows),
         "<rule><rule><id>5</id></rule><rule><id>6</id></rule></rule><rule/>", {}},
        {tasks, aux(row(PT_VLST, "task", 1, 0), kAlts),
         "<task><task typ=\"event\"><code>7</code></task><task typ=\"timer\"><period>100</period></task></task>", {}},
        {&odd, aux(row(PT_VLST, "task", 1, 0), small_first),
         "<task><task typ=\"ghost\"><period>3</period></task><task typ=\"\"><period>4</period></task></task>", {}},
        {&odd, aux(row(PT_VLST, "task", 1, 0), big_first), "<task><task typ=\"ghost\"/><task typ=\"\"/></task>",
         {"5 vlst2xml: vlst2xml: task type(ghost) unknown, fields not written",
          "5 vlst2xml: vlst2xml: task type((null)) unknown, fields not written"}},
        {lone, row(PT_VLST, "task", 2, 0), "<task/><task/>", {"5 vlst2xml: vlst2xml: task bad adesc"}},
        {lone, aux(row(PT_VLST, "task", 2, 0), no_alt), "<task/><task/>", {"5 vlst2xml: vlst2xml: task adesc has no alternative"}},
    });
}

TEST(Writer, TheFrameSkipsBadRowsAndKeepsTableOrderBehindExistingChildren)
{
    struct { int32_t a; char s[8]; } b = {42, "x"};
    struct pdesc table[] = {row(0xA000 | PT_F_CIA, "odd", 1, 4), row(PT_SINT, nullptr, 1, 4), row(PT_STRI, "s", 8, 8, 4),
                            row(PT_SINT, "a", 1, 4), row(PT_SINT, "a", 1, 4), {}, row(PT_SINT, "after", 1, 4), {}};
    xmlNode *root = xmlNewNode(nullptr, BAD_CAST "root");
    xmlNewChild(root, nullptr, BAD_CAST "old", nullptr);
    TraceCapture cap(5);
    EXPECT_EQ(0, param2xml(&b, root, table));
    EXPECT_EQ("<old/><s>x</s><a>42</a><a>42</a>", dump_children(root));
    expect_records(cap, {"4 param2xml: param2xml: odd bad type(0xA400)", "4 param2xml: param2xml: row without name, type(0x1000)"});
    xmlFreeNode(root);
}

// Text XML can't carry goes out with each offending byte as '?', so that the
// strict parser still takes the file; valid UTF-8 of XML characters goes out
// byte for byte, at every boundary of the encoding.
TEST(Writer, TextXmlCantHoldIsWrittenAsQuestionMarks)
{
    const struct {
        std::string in, out;
        int replaced;   // bytes the level-5 record reports, 0 for no record
    } cases[] = {
        {"plain text", "plain text", 0},
        {"a\tb\nc\rd\x7f <&>\"'", "a\tb\nc\rd\x7f <&>\"'", 0},
        {"\xc2\x80 \xdf\xbf \xe0\xa0\x80 \xed\x9f\xbf \xee\x80\x80 \xef\xbf\xbd \xf0\x90\x80\x80 \xf4\x8f\xbf\xbf",
         "\xc2\x80 \xdf\xbf \xe0\xa0\x80 \xed\x9f\xbf \xee\x80\x80 \xef\xbf\xbd \xf0\x90\x80\x80 \xf4\x8f\xbf\xbf", 0},
        {"a\x01" "b\x1f" "c\x08", "a?b?c?", 3},
        {"\x80 \xbf \xc1\xbf \xf5\x80 \x84\x80\x80\x80", "? ? ?? ?? ????", 10},   // stray, bad leads
        {"\xff\xfe" "ok", "??ok", 2},
        {"ab\xc3", "ab?", 1},
        {"\xe2\x9c" "x", "??x", 2},
        {"\xe0\x9f\xbf \xf0\x8f\xbf\xbf", "??? ????", 7},   // overlong below U+0800 and U+10000
        {"\xed\xa0\x80 \xed\xbf\xbf", "??? ???", 6},         // surrogates
        {"\xef\xbf\xbe\xef\xbf\xbf", "??????", 6},
        {"\xf4\x90\x80\x80", "????", 4},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.out);
        char s[64] = {}, text[64] = {};
        std::memcpy(s, c.in.data(), c.in.size());
        const std::string rec = "5 stri2xml: stri2xml: s has " + std::to_string(c.replaced) + " bytes that XML can't hold, each written as '?'";
        TraceCapture cap(5);
        const std::string got = write_row(s, row(PT_STRI, "s", 64, 64));
        expect_records(cap, c.replaced ? std::vector<std::string>{rec} : std::vector<std::string>{});
        EXPECT_EQ(c.in, std::string(s)) << "the block keeps its bytes";
        read_row(text, row(PT_STRI, "s", 64, 64), got);   // the strict parser takes it
        EXPECT_EQ(c.out, std::string(text));
    }
    // Enumeration keys and type names pass the same filter; the copies made
    // for them go back to libxml2, and one that can't be made loses its
    // element with a record.
    struct enume keys[] = {{"b\xff" "d", 1}, {nullptr, 1}};
    struct adesc alts[] = {{sizeof(Timer), kTimerRows, "ok"}, {0, nullptr, nullptr}};
    struct { int mode; zhead_t vl; char s[4]; } h = {1, nullptr, "\x01"};
    Timer n = {{}, 0};
    zlst_set_name(&n, "t\x01p");
    zlst_push(&h.vl, &n);
    struct pdesc table[] = {aux(row(PT_ENUM, "mode", 1, 4), keys), aux(row(PT_VLST, "vl", 1, 0, offsetof(decltype(h), vl)), alts),
                            row(PT_STRI, "s", 4, 4, offsetof(decltype(h), s)), {}};
    xmlNode *root = xmlNewNode(nullptr, BAD_CAST "r");
    TraceCapture cap(4);
    sweep(Alloc::libxml2, [&] { cap.clear(), param2xml(&h, root, table); }, [&](bool refused) {
        EXPECT_TRUE(refused || dump_children(root) == "<mode>b?d</mode><vl><vl typ=\"t?p\"><period>0</period></vl></vl><s>?</s>")
            << dump_children(root);
        EXPECT_EQ(refused, cap.count_at_most(4) > 0) << cap.dump();
        xmlFreeNode(root), root = xmlNewNode(nullptr, BAD_CAST "r");
    });
    xmlFreeNode(root);
}

}  // namespace
