// The writer: each kind's document, exact to the byte, with the records that
// mark what was lost, as one table per kind; bad rows; text XML can't carry.
#include <cfloat>

#include "codec_util.h"
#include "sweep.h"

namespace {

// One row written over `mem`, with param2xml_opt's `options`.
struct Case { void *mem; struct pdesc row; uint32_t options = 0; };

// The document of each case on one line ("-" for none), and its records.
void expect_written(const std::string &name, const std::vector<Case> &cases)
{
    expect_cases("written.txt", name, 5, cases.size(), [&](size_t i) {
        struct pdesc table[2] = {cases[i].row, {}};
        const std::string doc = write_table(cases[i].mem, table, cases[i].options);
        return doc.empty() ? "-" : doc;
    });
}

TEST(Writer, IntegersStringsFloatsAndEnumerations)
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
    expect_written("integers", {
        {s1, row(PT_SINT, "v", 4, 1)}, {s1, row(PT_SINT | PT_FMT_HEXL, "v", 4, 1)}, {s1, row(PT_SINT | PT_FMT_HEXU, "v", 4, 1)},
        {s2, row(PT_SINT, "v", 2, 2)}, {s4, row(PT_SINT, "v", 20, 4)}, {s8, row(PT_SINT, "v", 5, 8)},
        {u1, row(PT_UINT, "v", 3, 1)}, {u1, row(PT_UINT | PT_FMT_HEXL, "v", 3, 1)}, {u1, row(PT_UINT | PT_FMT_HEXU, "v", 33, 1)},
        {u2, row(PT_UINT | 0x5, "v", 17, 2)}, {u4, row(PT_UINT | PT_FMT_HEXU, "v", 2, 4)}, {u4, row(PT_UINT, "v", 2, 4)},
        {u8, row(PT_UINT, "v", 2, 8)}, {u8, row(PT_UINT | PT_FMT_HEXL, "v", 2, 8)}, {u8, row(PT_UINT, "v", 5, 3)},
        {u8, row(PT_UINT, "v", 0, 3)}, {u8, row(PT_SINT, "v", -3, 4)}, {&c2, ca}, {&c7, ca}, {&c0, ca}, {&cn, ca},
        {&one, cia(row(PT_SINT, "v", 1000000000, 4), 4)}, {&one, cia(row(PT_UINT, "v", 1000000000, 4), 4)},
        {&one, cia(row(PT_FLOT, "v", 1000000000, 4), 4)}, {&one, cia(row(PT_SINT, "v", 999999999, 4), 4)},
        {&one, cia(row(PT_UINT, "v", 999999999, 4), 4)}, {&one, cia(row(PT_FLOT, "v", 999999999, 4), 4)},
    });
    char s[5][12] = {"alpha", "abcdefg", "abcdefgh", "abc", ""};
    char esc[8] = "a<b&c", before[8] = {'x', 'y', 'z', 0};
    expect_written("strings", {{s[0], row(PT_STRI, "s", 8, 8)}, {s[1], row(PT_STRI, "s", 8, 8)}, {s[2], row(PT_STRI, "s", 8, 8)},
                               {s[3], row(PT_STRI, "s", 1, 8)}, {s[4], row(PT_STRI, "s", 8, 8)}, {esc, row(PT_STRI, "s", 8, 8)},
                               {before + 4, row(PT_STRI, "s", 0, 4)}});
    EXPECT_EQ('\0', s[2][7]) << "the terminator is stored at count - 1";
    EXPECT_EQ('z', before[2]) << "a count below 1 stores nothing in front of the field";
    float f[10], p[] = {1000000.0f, 0.1f, -1.0f / 3.0f, INFINITY, -INFINITY, FLT_MAX}, e[] = {0.1f, -0.0f, FLT_TRUE_MIN, FLT_MAX};
    double d[10], q[] = {0.1, 1.0 / 3.0, NAN, DBL_MAX}, x[] = {0.1, -0.0, DBL_TRUE_MIN, NAN};
    for (int i = 0; i < 10; i++)
        d[i] = f[i] = 0.5f * static_cast<float>(i + 1);
    expect_written("floats", {{f, row(PT_FLOT, "g", 10, 4)}, {d, row(PT_FLOT, "g", 10, 8)}, {p, row(PT_FLOT, "x", 6, 4)},
                              {q, row(PT_FLOT, "x", 4, 8)}, {q, row(PT_FLOT, "x", 2, 16)},
                              {e, row(PT_FLOT, "x", 4, 4), PARAM_XML_EXACT_FLOATS}, {x, row(PT_FLOT, "x", 4, 8), PARAM_XML_EXACT_FLOATS}});
    struct enume on_off[] = {{"on", 1}, {"off", 0}, {nullptr, 0}};
    struct enume dup[] = {{"a", 2}, {"b", 2}, {"z", 9}, {nullptr, 9}};
    struct enume empty[] = {{nullptr, 4}};
    struct { int value, other; } recs[2] = {{2, 111}, {9, 222}};
    int v[3] = {0, 1, 7}, w[2] = {4, 5};
    expect_written("enumerations", {{v, aux(row(PT_ENUM, "mode", 3, 4), on_off)},
                                    {recs, aux(row(PT_ENUM | PT_F_CIA | PT_F_COB, "e", 2, sizeof recs[0]), dup)},
                                    {w, aux(row(PT_ENUM, "e", 2, 4), empty)}, {v, aux(row(PT_ENUM, "e", 2, 2), on_off)}});
}

TEST(Writer, StructuresCountedBuffersAndLists)
{
    struct { Port ports[3]; int n; Port *far; } b = {{{10, 20}, {30, 40}, {50, 60}}, 2, nullptr};
    b.far = b.ports;
    struct { Port *far; } none = {nullptr};
    uint16_t b0[3] = {1, 2, 3}, b2[20];
    for (int i = 0; i < 20; i++)
        b2[i] = static_cast<uint16_t>(100 + i);
    struct { uint16_t *p[3]; int n[3]; } seg = {{b0, nullptr, b2}, {3, 0, 20}};
    int32_t i0[2] = {5, 6};
    struct { int32_t *p[4]; int n[4]; } holes = {{i0, nullptr, i0, i0}, {-5, 2, -1000000000, 1000000000}};
    Port a[2] = {{1, 2}, {3, 4}}, z[1] = {{9, 9}};
    struct { Port *p[3]; int n[3]; int cia; } ps = {{a, z, z}, {2, 1, 1}, 2};
    expect_written("structures", {
        {&b, cia(sub(row(PT_STRU, "port", 3, sizeof(Port)), kPortRows), offsetof(decltype(b), n))},
        {&b, cia(sub(row(PT_STRUM, "port", 3, sizeof(Port), offsetof(decltype(b), far)), kPortRows), offsetof(decltype(b), n))},
        {&none, sub(row(PT_STRUM, "port", 2, sizeof(Port)), kPortRows)}, {&none, sub(row(PT_STRUM, "port", 0, sizeof(Port)), kPortRows)},
        {&seg, cob(row(PT_UINT, "seg", 3, 2), sizeof seg.p)}, {&holes, cob(row(PT_SINT, "c", 4, 4), sizeof holes.p)},
        {&ps, cia(cob(sub(row(PT_STRUM, "p", 3, sizeof(Port)), kPortRows), sizeof ps.p), sizeof ps.p + sizeof ps.n)},
    });
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
    expect_written("lists", {{rules, sub(row(PT_LIST, "rule", 2, sizeof(Rule)), kRuleRows)},
                             {tasks, aux(row(PT_VLST, "task", 1, 0), kAlts)}, {&odd, aux(row(PT_VLST, "task", 1, 0), small_first)},
                             {&odd, aux(row(PT_VLST, "task", 1, 0), big_first)}, {lone, row(PT_VLST, "task", 2, 0)},
                             {lone, aux(row(PT_VLST, "task", 2, 0), no_alt)}, {&odd, aux(row(PT_VLST, "task", 1, 0), kAlts)}});
}

TEST(Writer, TheFrameSkipsBadRowsAndKeepsTableOrderBehindExistingChildren)
{
    struct { int32_t a; char s[8]; } b = {42, "x"};
    struct pdesc table[] = {row(0xA000 | PT_F_CIA, "odd", 1, 4), row(PT_SINT, nullptr, 1, 4), row(PT_STRI, "s", 8, 8, 4),
                            row(PT_SINT, "a", 1, 4), row(PT_SINT, "a", 1, 4), {}, row(PT_SINT, "after", 1, 4), {}};
    expect_cases("written.txt", "frame", 5, 1, [&](size_t) {
        xmlNode *root = xmlNewNode(nullptr, BAD_CAST "root");
        xmlNewChild(root, nullptr, BAD_CAST "old", nullptr);
        EXPECT_EQ(0, param2xml(&b, root, table));
        const std::string doc = dump_children(root);
        xmlFreeNode(root);
        return doc;
    });
}

// Text XML can't carry goes out with each offending byte as '?', so that the
// strict parser still takes the file; valid UTF-8 of XML characters goes out
// byte for byte, at every boundary of the encoding. Each text as the reader
// reads it back, as printable text.
TEST(Writer, TextXmlCantHoldIsWrittenAsQuestionMarks)
{
    const std::string in[] = {
        "plain text", "a\tb\nc\rd\x7f <&>\"'",
        "\xc2\x80 \xdf\xbf \xe0\xa0\x80 \xed\x9f\xbf \xee\x80\x80 \xef\xbf\xbd \xf0\x90\x80\x80 \xf4\x8f\xbf\xbf",
        "a\x01" "b\x1f" "c\x08", "\x80 \xbf \xc1\xbf \xf5\x80 \x84\x80\x80\x80", "\xff\xfe" "ok", "ab\xc3", "\xe2\x9c" "x",
        "\xe0\x9f\xbf \xf0\x8f\xbf\xbf", "\xed\xa0\x80 \xed\xbf\xbf", "\xef\xbf\xbe\xef\xbf\xbf", "\xf4\x90\x80\x80"};
    expect_cases("written.txt", "text", 5, sizeof in / sizeof in[0], [&](size_t i) {
        char s[64] = {}, text[64] = {};
        std::memcpy(s, in[i].data(), in[i].size());
        struct pdesc table[] = {row(PT_STRI, "s", 64, 64), {}};
        const std::string doc = write_table(s, table);
        EXPECT_EQ(in[i], std::string(s)) << "the block keeps its bytes";
        read_row(text, table[0], doc);   // the strict parser takes it
        return printable(text, std::strlen(text));
    });
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
