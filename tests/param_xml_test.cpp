// The codec as a whole: trace registration, one rich table using every kind
// in both modes, three levels deep, written, read back into a zeroed block
// through a formatted document and released; and every allocation failure
// of libxml2 inside the writer and the reader, one at a time.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>

#include <libxml/parser.h>
#include <libxml/xmlmemory.h>

#include "param_xml.h"
#include "pdesc_row.h"
#include "test_util.h"
#include "trace_capture.h"
#include "xml_alloc.h"

namespace {

// ---- the rich table --------------------------------------------------------------

// Row modifiers, so that each row of a table reads on one line.
struct pdesc with_cia(struct pdesc r, size_t aoffset) { return r.type |= PT_F_CIA, r.aoffset = aoffset, r; }
struct pdesc counted(struct pdesc r, size_t boffset) { return r.type |= PT_F_COB, r.boffset = boffset, r; }
struct pdesc sub(struct pdesc r, struct pdesc *table) { return r.pdesc = table, r; }
template <typename T>
struct pdesc aux(struct pdesc r, T *table) { return r.aux = reinterpret_cast<intptr_t>(table), r; }

struct enume kModes[] = {{"idle", 0}, {"run", 1}, {"halt", 2}, {nullptr, 0}};

// Level 3.
struct Leaf { int8_t s1[3]; uint16_t u2[2]; double d; char label[8]; };
struct pdesc kLeafRows[] = {
    row_of(PT_SINT, "s1", 3, 1, offsetof(Leaf, s1)),
    row_of(PT_UINT | PT_FMT_HEXU, "u2", 2, 2, offsetof(Leaf, u2)),
    row_of(PT_FLOT, "d", 1, 8, offsetof(Leaf, d)),
    row_of(PT_STRI, "label", 8, 8, offsetof(Leaf, label)),
    {}};

// Level 2.
struct Mid { Leaf leaf[2]; int nleaf; int32_t *buf[2]; int bufn[2]; int mode; };
struct pdesc kMidRows[] = {
    with_cia(sub(row_of(PT_STRU, "leaf", 2, sizeof(Leaf), offsetof(Mid, leaf)), kLeafRows), offsetof(Mid, nleaf)),
    counted(row_of(PT_SINT, "buf", 2, 4, offsetof(Mid, buf)), offsetof(Mid, bufn)),
    aux(row_of(PT_ENUM, "mode", 1, 4, offsetof(Mid, mode)), kModes),
    {}};

// List nodes: one layout, and two variants.
struct Item { struct znode z; int32_t id; Mid mid; };
struct pdesc kItemRows[] = {
    row_of(PT_SINT, "id", 1, 4, offsetof(Item, id)),
    sub(row_of(PT_STRU, "mid", 1, sizeof(Mid), offsetof(Item, mid)), kMidRows),
    {}};
struct Timer { struct znode z; uint32_t period; };
struct Event { struct znode z; char note[12]; Leaf leaf; };
struct pdesc kTimerRows[] = {row_of(PT_UINT, "period", 1, 4, offsetof(Timer, period)), {}};
struct pdesc kEventRows[] = {row_of(PT_STRI, "note", 12, 12, offsetof(Event, note)),
                             sub(row_of(PT_STRU, "leaf", 1, sizeof(Leaf), offsetof(Event, leaf)), kLeafRows), {}};
struct adesc kTasks[] = {{sizeof(Timer), kTimerRows, "timer"}, {sizeof(Event), kEventRows, "event"}, {0, nullptr, nullptr}};

// Level 1.
struct Top {  // one line per row of the table, with its count fields
    int8_t a8[20]; int na8;
    int16_t a16[3]; int32_t a32[10]; int64_t a64[5];
    uint8_t u8[17]; uint16_t u16[4]; uint32_t u32[9]; uint64_t u64[3];
    float f[10];
    double d[5]; int nd;
    char str[16];
    int modes[3];
    Mid mids[2]; int nmid;
    Mid *pm;
    int16_t *cb[3]; int cbn[3]; int ncb;
    uint32_t *ub[2]; int ubn[2];
    double *fb[2]; int fbn[2];
    Leaf *sb[2]; int sbn[2];
    Leaf *smb[2]; int smbn[2];
    zhead_t lists[3]; int nlist;
    zhead_t tasks[2];
};

struct pdesc kTopRows[] = {
    with_cia(row_of(PT_SINT, "a8", 20, 1, offsetof(Top, a8)), offsetof(Top, na8)),
    row_of(PT_SINT | PT_FMT_HEXL, "a16", 3, 2, offsetof(Top, a16)),
    row_of(PT_SINT, "a32", 10, 4, offsetof(Top, a32)),
    row_of(PT_SINT, "a64", 5, 8, offsetof(Top, a64)),
    row_of(PT_UINT | PT_FMT_HEXL, "u8", 17, 1, offsetof(Top, u8)),
    row_of(PT_UINT | PT_FMT_HEXU, "u16", 4, 2, offsetof(Top, u16)),
    row_of(PT_UINT, "u32", 9, 4, offsetof(Top, u32)),
    row_of(PT_UINT | PT_FMT_HEXL, "u64", 3, 8, offsetof(Top, u64)),
    row_of(PT_FLOT, "f", 10, 4, offsetof(Top, f)),
    with_cia(row_of(PT_FLOT, "d", 5, 8, offsetof(Top, d)), offsetof(Top, nd)),
    row_of(PT_STRI, "str", 16, 16, offsetof(Top, str)),
    aux(row_of(PT_ENUM, "modes", 3, 4, offsetof(Top, modes)), kModes),
    with_cia(sub(row_of(PT_STRU, "mids", 2, sizeof(Mid), offsetof(Top, mids)), kMidRows), offsetof(Top, nmid)),
    sub(row_of(PT_STRUM, "pm", 2, sizeof(Mid), offsetof(Top, pm)), kMidRows),
    with_cia(counted(row_of(PT_SINT, "cb", 3, 2, offsetof(Top, cb)), offsetof(Top, cbn)), offsetof(Top, ncb)),
    counted(row_of(PT_UINT | PT_FMT_HEXU, "ub", 2, 4, offsetof(Top, ub)), offsetof(Top, ubn)),
    counted(row_of(PT_FLOT, "fb", 2, 8, offsetof(Top, fb)), offsetof(Top, fbn)),
    counted(sub(row_of(PT_STRU, "sb", 2, sizeof(Leaf), offsetof(Top, sb)), kLeafRows), offsetof(Top, sbn)),
    counted(sub(row_of(PT_STRUM, "smb", 2, sizeof(Leaf), offsetof(Top, smb)), kLeafRows), offsetof(Top, smbn)),
    with_cia(sub(row_of(PT_LIST, "lists", 3, sizeof(Item), offsetof(Top, lists)), kItemRows), offsetof(Top, nlist)),
    aux(row_of(PT_VLST, "tasks", 2, 0, offsetof(Top, tasks)), kTasks),
    {}};

// The source block: every field set, buffers and nodes owned by the test.
struct Source {
    Top top;
    Mid far[2];
    int16_t cb0[3], cb1[1];
    uint32_t ub0[9];
    double fb1[2];
    Leaf sb0[2], smb0[1];
    int32_t midbuf[4];
    Item items[3];
    Timer timer;
    Event event;
};

void fill_leaf(Leaf &l, int k)
{
    l.s1[0] = static_cast<int8_t>(-128 + k), l.s1[1] = 127, l.s1[2] = static_cast<int8_t>(k);
    l.u2[0] = static_cast<uint16_t>(0xBEEF + k), l.u2[1] = 0;
    l.d = -1234.5 * k;
    std::snprintf(l.label, sizeof l.label, "leaf%u", static_cast<unsigned>(k) % 1000u);
}

void fill_mid(Mid &m, int k, int32_t *buf)
{
    fill_leaf(m.leaf[0], k);
    fill_leaf(m.leaf[1], k + 1);
    m.nleaf = 2;
    m.buf[0] = buf, m.bufn[0] = 2;
    m.buf[1] = nullptr, m.bufn[1] = 0;
    m.mode = k % 3;
}

void fill(Source &s)
{
    std::memset(&s, 0, sizeof s);
    Top &t = s.top;
    for (int i = 0; i < 20; i++)
        t.a8[i] = static_cast<int8_t>(i * 13 - 128);
    t.na8 = 17;
    t.a16[0] = INT16_MIN, t.a16[1] = -1, t.a16[2] = INT16_MAX;
    for (int i = 0; i < 10; i++)
        t.a32[i] = (i % 2 ? INT32_MIN : INT32_MAX) / (i + 1);
    t.a64[0] = INT64_MIN, t.a64[1] = INT64_MAX, t.a64[2] = -1, t.a64[3] = 0, t.a64[4] = 1234567890123LL;
    for (int i = 0; i < 17; i++)
        t.u8[i] = static_cast<uint8_t>(i * 15);
    t.u16[0] = 0, t.u16[1] = 0xffff, t.u16[2] = 0x1000, t.u16[3] = 0xabc;
    for (int i = 0; i < 9; i++)
        t.u32[i] = UINT32_MAX - static_cast<uint32_t>(i) * 123456789u;
    t.u64[0] = 0, t.u64[1] = UINT64_MAX, t.u64[2] = 0x0123456789abcdefULL;
    for (int i = 0; i < 10; i++)
        t.f[i] = -2.5f + 0.25f * static_cast<float>(i);
    for (int i = 0; i < 5; i++)
        t.d[i] = 1e-300 * (i + 1) + i;
    t.nd = 4;
    std::strcpy(t.str, "a<b>&\"c\"");
    t.modes[0] = 2, t.modes[1] = 0, t.modes[2] = 1;
    s.midbuf[0] = 7, s.midbuf[1] = -7, s.midbuf[2] = 70, s.midbuf[3] = -70;
    fill_mid(t.mids[0], 1, s.midbuf);
    fill_mid(t.mids[1], 2, s.midbuf + 2), t.nmid = 2;
    fill_mid(s.far[0], 3, s.midbuf);
    fill_mid(s.far[1], 4, s.midbuf + 1);
    t.pm = s.far;
    s.cb0[0] = -3, s.cb0[1] = 0, s.cb0[2] = 3;
    s.cb1[0] = 12345;
    t.cb[0] = s.cb0, t.cbn[0] = 3;
    t.cb[1] = nullptr, t.cbn[1] = 0;   // closes up on reading
    t.cb[2] = s.cb1, t.cbn[2] = 1;
    t.ncb = 3;
    for (int i = 0; i < 9; i++)
        s.ub0[i] = 0xF0000000u + static_cast<uint32_t>(i);
    t.ub[0] = s.ub0, t.ubn[0] = 9;
    s.fb1[0] = 0.125, s.fb1[1] = -8e100;
    t.fb[1] = s.fb1, t.fbn[1] = 2;
    fill_leaf(s.sb0[0], 5), fill_leaf(s.sb0[1], 6), t.sb[0] = s.sb0, t.sbn[0] = 2;
    fill_leaf(s.smb0[0], 7), t.smb[0] = s.smb0, t.smbn[0] = 1;
    for (int i = 0; i < 3; i++) {
        s.items[i].id = 100 + i;
        fill_mid(s.items[i].mid, 10 + i, s.midbuf + i);
    }
    zlst_push(&t.lists[0], &s.items[0]);
    zlst_push(&t.lists[0], &s.items[1]);
    zlst_push(&t.lists[2], &s.items[2]);
    t.nlist = 3;
    s.timer.period = 500, zlst_set_name(&s.timer, "timer");
    std::strcpy(s.event.note, "boot done"), fill_leaf(s.event.leaf, 9), zlst_set_name(&s.event, "event");
    zlst_push(&t.tasks[1], &s.event);
    zlst_push(&t.tasks[1], &s.timer);
}

// ---- comparison ------------------------------------------------------------------

std::ostringstream *g_diff;
#define SAME(a, b, what) \
    do { \
        if (std::memcmp(&(a), &(b), sizeof(a)) != 0) \
            *g_diff << what << " differs\n"; \
    } while (0)

void same_leaf(const Leaf &a, const Leaf &b, const std::string &at)
{
    SAME(a.s1, b.s1, at + ".s1");
    SAME(a.u2, b.u2, at + ".u2");
    SAME(a.d, b.d, at + ".d");
    if (std::strcmp(a.label, b.label) != 0)
        *g_diff << at << ".label differs\n";
}

// `n` leaves of a counted entry, when `got` holds exactly that many.
void same_leaves(const Leaf *want, int n, const Leaf *got, int got_n, const std::string &at)
{
    if (!got || got_n != n)
        *g_diff << at << " differs\n";
    for (int i = 0; got && got_n == n && i < n; i++)
        same_leaf(want[i], got[i], at + "." + std::to_string(i));
}

void same_buffer(const void *a, int an, const void *b, int bn, size_t size, const std::string &at)
{
    if (an != bn || (an > 0 && (!a || !b || std::memcmp(a, b, static_cast<size_t>(an) * size) != 0)))
        *g_diff << at << " buffer differs\n";
}

void same_mid(const Mid &a, const Mid &b, const std::string &at)
{
    for (int i = 0; i < 2; i++)
        same_leaf(a.leaf[i], b.leaf[i], at + ".leaf" + std::to_string(i));
    SAME(a.nleaf, b.nleaf, at + ".nleaf");
    same_buffer(a.buf[0], a.bufn[0], b.buf[0], b.bufn[0], 4, at + ".buf0");
    SAME(a.mode, b.mode, at + ".mode");
}

// "" when `got` holds what `want` held, else the fields that differ.
std::string compare(const Source &src, const Top &got, const Mid *got_far)
{
    std::ostringstream diff;
    g_diff = &diff;
    const Top &w = src.top;
    for (int i = 0; i < w.na8; i++)
        SAME(w.a8[i], got.a8[i], "a8." + std::to_string(i));
    SAME(w.na8, got.na8, "na8");
    SAME(w.a16, got.a16, "a16");
    SAME(w.a32, got.a32, "a32");
    SAME(w.a64, got.a64, "a64");
    SAME(w.u8, got.u8, "u8");
    SAME(w.u16, got.u16, "u16");
    SAME(w.u32, got.u32, "u32");
    SAME(w.u64, got.u64, "u64");
    SAME(w.f, got.f, "f");
    for (int i = 0; i < w.nd; i++)
        SAME(w.d[i], got.d[i], "d" + std::to_string(i));
    SAME(w.nd, got.nd, "nd");
    if (std::strcmp(w.str, got.str) != 0)
        diff << "str differs\n";
    SAME(w.modes, got.modes, "modes");
    for (int i = 0; i < 2; i++) {
        same_mid(w.mids[i], got.mids[i], "mids" + std::to_string(i));
        same_mid(src.far[i], got_far[i], "far" + std::to_string(i));
    }
    SAME(w.nmid, got.nmid, "nmid");
    same_buffer(w.cb[0], w.cbn[0], got.cb[0], got.cbn[0], 2, "cb0");
    same_buffer(w.cb[2], w.cbn[2], got.cb[1], got.cbn[1], 2, "cb1");  // the empty entry closed up
    if (got.ncb != 2 || got.cb[2] || got.cbn[2])
        diff << "cb2 or ncb differs\n";
    same_buffer(w.ub[0], w.ubn[0], got.ub[0], got.ubn[0], 4, "ub0");
    same_buffer(w.fb[1], w.fbn[1], got.fb[0], got.fbn[0], 8, "fb0");
    same_leaves(w.sb[0], 2, got.sb[0], got.sbn[0], "sb0");
    same_leaves(w.smb[0], 1, got.smb[0], got.smbn[0], "smb0");
    for (int h = 0; h < 3; h++) {
        const struct znode *a = w.lists[h], *b = got.lists[h];
        for (int k = 0; a || b; a = a->next, b = b->next, k++) {
            std::string at = "lists" + std::to_string(h) + "." + std::to_string(k);
            if (!a || !b) {
                diff << at << " missing\n";
                break;
            }
            const Item *ia = reinterpret_cast<const Item *>(a), *ib = reinterpret_cast<const Item *>(b);
            SAME(ia->id, ib->id, at + ".id");
            same_mid(ia->mid, ib->mid, at + ".mid");
        }
    }
    SAME(w.nlist, got.nlist, "nlist");
    if (got.tasks[0])
        diff << "tasks0 not empty\n";
    const struct znode *e = got.tasks[1];
    if (!e || !e->name || std::strcmp(e->name, "event") != 0 || !e->next || !e->next->name ||
        std::strcmp(e->next->name, "timer") != 0 || e->next->next) {
        diff << "tasks1 shape differs\n";
    } else {
        const Event *ge = reinterpret_cast<const Event *>(e);
        if (std::strcmp(ge->note, "boot done") != 0)
            diff << "event text differs\n";
        same_leaf(src.event.leaf, ge->leaf, "event.leaf");
        SAME(src.timer.period, reinterpret_cast<const Timer *>(e->next)->period, "timer.period");
    }
    return diff.str();
}

// A zeroed destination whose PT_STRUM pointer has room of its own.
struct Dest {
    Top top;
    Mid far[2];
    Dest()
    {
        std::memset(this, 0, sizeof *this);
        top.pm = far;
    }
};

// Writes the source into a fresh element; the caller frees it.
xmlNode *write_source(Source &s)
{
    xmlNode *root = xmlNewNode(nullptr, BAD_CAST "top");
    param2xml(&s.top, root, kTopRows);
    return root;
}

// ---- tests -----------------------------------------------------------------------

TEST(TraceInit, SecondCallChangesNothing)
{
    param_xml_trace_init("kavor", nullptr, 1, nullptr);
    vorn_trace_handle first = param_xml_trace_h;
    ASSERT_NE(nullptr, first);
    param_xml_trace_init("other", "/nonexistent/x.log", 8, nullptr);
    EXPECT_EQ(first, param_xml_trace_h);
}

TEST(RoundTrip, EveryKindBothModesThreeLevelsDeep)
{
    Source s;
    fill(s);
    xmlNode *root = write_source(s);
    // Through a formatted document, so that blank text nodes stand between elements.
    xmlDoc *doc = xmlNewDoc(BAD_CAST "1.0");
    xmlDocSetRootElement(doc, root);
    xmlChar *text = nullptr;
    int len = 0;
    xmlDocDumpFormatMemoryEnc(doc, &text, &len, "utf-8", 1);
    xmlFreeDoc(doc);
    xmlDoc *back = xmlReadMemory(reinterpret_cast<char *>(text), len, "t.xml", nullptr, 0);
    xmlFree(text);
    ASSERT_NE(nullptr, back);

    Dest d;
    TraceCapture cap(5);
    xml2param(&d.top, xmlDocGetRootElement(back), kTopRows);
    xmlFreeDoc(back);
    EXPECT_EQ("", compare(s, d.top, d.far));
    EXPECT_EQ(0u, cap.count_at_most(5)) << cap.dump();
    EXPECT_EQ(d.far, d.top.pm);

    param_xml_free(&d.top, kTopRows);
    EXPECT_EQ(nullptr, d.top.cb[0]);
    EXPECT_EQ(0, d.top.cbn[0]);
    EXPECT_EQ(nullptr, d.top.sb[0]);
    EXPECT_EQ(nullptr, d.top.lists[0]);
    EXPECT_EQ(nullptr, d.top.tasks[1]);
    EXPECT_EQ(nullptr, d.top.mids[0].buf[0]);
    EXPECT_EQ(nullptr, d.far[1].buf[0]);
    EXPECT_EQ(d.far, d.top.pm);
}

TEST(RoundTrip, WriterOutputIsStableAcrossASecondTrip)
{
    Source s;
    fill(s);
    xmlNode *first = write_source(s);
    Dest d;
    xml2param(&d.top, first, kTopRows);
    xmlNode *second = xmlNewNode(nullptr, BAD_CAST "top");
    param2xml(&d.top, second, kTopRows);
    // Reading closes up the empty counted entries, which no document shows.
    std::string a = dump_node(first), b = dump_node(second);
    EXPECT_EQ(a, b);
    xmlFreeNode(first);
    xmlFreeNode(second);
    param_xml_free(&d.top, kTopRows);
}

// Lowest, highest and neighbouring values of one width, written in one text
// form and read back.
template <typename T>
void extremes_round_trip(int type)
{
    const T values[] = {std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), 0, 1,
                        static_cast<T>(std::numeric_limits<T>::min() + 1),
                        static_cast<T>(std::numeric_limits<T>::max() - 1), static_cast<T>(-1)};
    const int n = static_cast<int>(sizeof values / sizeof values[0]);
    T mem[n];
    std::memcpy(mem, values, sizeof mem);
    struct pdesc table[] = {row_of(type, "v", n, sizeof(T), 0), {}};
    xmlNode *root = xmlNewNode(nullptr, BAD_CAST "r");
    param2xml(mem, root, table);
    T back[n] = {};
    TraceCapture cap(5);
    xml2param(back, root, table);
    EXPECT_EQ(0, std::memcmp(values, back, sizeof back))
        << "type 0x" << std::hex << type << " width " << std::dec << sizeof(T) << ": " << dump_node(root);
    EXPECT_EQ(0u, cap.count_at_most(5)) << cap.dump();
    xmlFreeNode(root);
}

TEST(RoundTrip, LowestAndHighestOfEveryWidthInEveryTextForm)
{
    // A format nibble on a signed row changes nothing: still decimal, still exact.
    for (int fmt : {PT_FMT_DEC, PT_FMT_HEXL, PT_FMT_HEXU}) {
        extremes_round_trip<int8_t>(PT_SINT | fmt);
        extremes_round_trip<int16_t>(PT_SINT | fmt);
        extremes_round_trip<int32_t>(PT_SINT | fmt);
        extremes_round_trip<int64_t>(PT_SINT | fmt);
        extremes_round_trip<uint8_t>(PT_UINT | fmt);
        extremes_round_trip<uint16_t>(PT_UINT | fmt);
        extremes_round_trip<uint32_t>(PT_UINT | fmt);
        extremes_round_trip<uint64_t>(PT_UINT | fmt);
    }
}

TEST(AllocationFailure, ReaderEndsInTheDocumentedResultAndLeaksNothing)
{
    Source s;
    fill(s);
    xmlNode *root = write_source(s);
    long n = 1;
    for (;; n++) {
        ASSERT_LT(n, 100000) << "the reader never ran without a failure";
        Dest d;
        TraceCapture cap(4);
        bool failed;
        {
            XmlAlloc alloc;
            alloc.fail_nth(n);
            xml2param(&d.top, root, kTopRows);
            failed = alloc.failed();
            alloc.stop();
            std::string diff = compare(s, d.top, d.far);
            if (!failed) {
                EXPECT_EQ("", diff);
            } else if (!diff.empty()) {  // a silent failure changes nothing that was read
                EXPECT_GT(cap.count_at_most(4), 0u) << "allocation " << n << ":\n" << diff;
            }
            param_xml_free(&d.top, kTopRows);
            EXPECT_EQ(0, alloc.live()) << "allocation " << n;
        }
        for (const std::string &r : cap.records()) {
            bool known = false;
            for (const char *k : {"no content", "malloc failed", "malloc znode failed", "no count of buffer", "type name"})
                known = known || r.find(k) != std::string::npos;
            EXPECT_TRUE(known) << "allocation " << n << ": " << r;
        }
        if (!failed)
            break;
    }
    EXPECT_GT(n, 50);
    xmlFreeNode(root);
}

TEST(AllocationFailure, WriterReportsEveryLossAndLeaksNothing)
{
    Source s;
    fill(s);
    xmlNode *ref = write_source(s);
    const std::string want = dump_node(ref);
    xmlFreeNode(ref);
    long n = 1;
    for (;; n++) {
        ASSERT_LT(n, 100000) << "the writer never ran without a failure";
        TraceCapture cap(4);
        bool failed;
        std::string got;
        {
            XmlAlloc alloc;
            xmlNode *root = xmlNewNode(nullptr, BAD_CAST "top");
            alloc.fail_nth(n);
            param2xml(&s.top, root, kTopRows);
            failed = alloc.failed();
            alloc.stop();
            if (failed) {
                EXPECT_GT(cap.count_at_most(4), 0u) << "allocation " << n;
                // What was written reads back without a failure of its own.
                Dest d;
                {
                    TraceCapture quiet(4);
                    xml2param(&d.top, root, kTopRows);
                    for (const std::string &r : quiet.records())
                        EXPECT_NE(std::string::npos, r.find("malloc")) << "allocation " << n << ": " << r;
                }
                param_xml_free(&d.top, kTopRows);
            } else {
                got = dump_node(root);
            }
            xmlFreeNode(root);
            EXPECT_EQ(0, alloc.live()) << "allocation " << n;
        }
        if (!failed) {
            EXPECT_EQ(want, got);
            break;
        }
    }
    EXPECT_GT(n, 50);
}

TEST(ParamXml, TablesOfTheseTestsPassTheTableCheck) { EXPECT_EQ(param_xml_check(kTopRows), 0); }

}  // namespace
