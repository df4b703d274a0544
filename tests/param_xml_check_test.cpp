// Tests of the table check: every kind of bad row is found, named and
// counted once; good tables, shared and self-reaching tables pass; a failed
// allocation gives -1 and leaks nothing.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "param_xml.h"
#include "param_xml_table_fixture.h"
#include "trace_capture.h"
#include "vn_mem_hook.h"

FX_DEFINE_TABLES

namespace {

const size_t kZ = sizeof(struct znode);

struct pdesc row(int count, int type, size_t offset, size_t size, const char *name,
                 struct pdesc *sub = nullptr, const void *aux = nullptr)
{
    struct pdesc r = {};
    r.count = count;
    r.type = type;
    r.offset = offset;
    r.size = size;
    r.name = name;
    r.pdesc = sub;
    r.aux = reinterpret_cast<intptr_t>(aux);
    return r;
}

struct pdesc end_row()
{
    return pdesc{};
}

// Tables that the cases below point into; rebuilt for every case.
struct enume no_items[] = { PX_ENUME_END(0) };
struct enume twice[] = { PX_ENUME("on", 1), PX_ENUME("off", 0), PX_ENUME("on", 2),
                         PX_ENUME_END(0) };
struct enume good_items[] = { PX_ENUME("on", 1), PX_ENUME_END(0) };
struct pdesc int_at_0[] = { row(1, PT_SINT, 0, 4, "v"), end_row() };
struct pdesc int_at_z[] = { row(1, PT_SINT, kZ, 4, "v"), end_row() };
struct pdesc cia_beyond[] = { row(2, PT_SINT | PT_F_CIA, kZ, 4, "v"), end_row() };
struct SetCia {
    SetCia() { cia_beyond[0].aoffset = kZ + 8; }
} set_cia;
struct pdesc str8_at_4[] = { row(8, PT_STRI, 4, 8, "s"), end_row() };
struct adesc no_alts[] = { PX_ADESC_END };
struct adesc alts_twice[] = { { kZ + 4, int_at_z, "a" }, { kZ + 4, int_at_z, "a" },
                              PX_ADESC_END };
struct adesc small_alt[] = { { kZ - 1, int_at_z, "tiny" }, PX_ADESC_END };
struct adesc alt_on_znode[] = { { kZ + 4, int_at_0, "on0" }, PX_ADESC_END };
struct adesc alt_no_sub[] = { { kZ + 4, nullptr, "bare" }, PX_ADESC_END };

struct BadCase {
    const char *what;
    std::vector<struct pdesc> rows;   // the table, without its end row
    std::string record;               // the expected level-4 record
};

std::vector<BadCase> bad_cases()
{
    return {
        { "unknown kind", { row(1, 0xA000, 0, 4, "k") }, "k (row 0): unknown kind in type 0xA000" },
        { "integer width", { row(1, PT_UINT, 0, 3, "w") },
          "w (row 0): integer width 3 is not 1, 2, 4 or 8" },
        { "signed width 16", { row(1, PT_SINT | PT_F_COB, 0, 16, "w") },
          "w (row 0): integer width 16 is not 1, 2, 4 or 8" },
        { "float width", { row(1, PT_FLOT, 0, 2, "f") }, "f (row 0): float width 2 is not 4 or 8" },
        { "string capacity", { row(0, PT_STRI, 0, 8, "s") },
          "s (row 0): string capacity 0 is below 1" },
        { "string size", { row(8, PT_STRI, 0, 0, "s") }, "s (row 0): string size 0 reads nothing" },
        { "negative count", { row(-1, PT_SINT, 0, 4, "n") }, "n (row 0): count -1 is below 0" },
        { "ten digits", { row(1000000000, PT_SINT, 0, 1, "n") },
          "n (row 0): count 1000000000 has more than nine digits" },
        { "enum size", { row(1, PT_ENUM, 0, 2, "e", nullptr, good_items) },
          "e (row 0): enumeration element size 2 is below 4" },
        { "enum without table", { row(1, PT_ENUM, 0, 4, "e") },
          "e (row 0): enumeration without an enume table" },
        { "enume without item", { row(1, PT_ENUM, 0, 4, "e", nullptr, no_items) },
          "e (row 0): enume table has no item" },
        { "enume key twice", { row(1, PT_ENUM, 0, 4, "e", nullptr, twice) },
          "e (row 0): enume key \"on\" stands twice" },
        { "structure without sub-table", { row(1, PT_STRU, 0, 8, "st") },
          "st (row 0): structure row without a sub-table" },
        { "pointer row without sub-table", { row(2, PT_STRUM, 0, 8, "sm") },
          "sm (row 0): structure row without a sub-table" },
        { "sub-table beyond the structure", { row(2, PT_STRU, 0, 10, "st", str8_at_4) },
          "st (row 0): sub-table reaches 12 bytes into a structure of 10" },
        { "list without sub-table", { row(1, PT_LIST, 0, kZ + 4, "l") },
          "l (row 0): list row without a sub-table" },
        { "list node smaller than a znode", { row(1, PT_LIST, 0, kZ - 8, "l", int_at_z) },
          "l (row 0): node size " + std::to_string(kZ - 8) + " is smaller than a znode (" +
              std::to_string(kZ) + ")" },
        { "list row on the znode", { row(1, PT_LIST, 0, kZ + 4, "l", int_at_0) },
          "l (row 0): sub-table row \"v\" addresses the znode of the list node" },
        { "list count field beyond the node", { row(1, PT_LIST, 0, kZ + 8, "l", cia_beyond) },
          "l (row 0): sub-table reaches " + std::to_string(kZ + 12) + " bytes into a node of " +
              std::to_string(kZ + 8) },
        { "variant list without table", { row(1, PT_VLST, 0, 0, "vl") },
          "vl (row 0): variant list without an adesc table" },
        { "adesc without item", { row(1, PT_VLST, 0, 0, "vl", nullptr, no_alts) },
          "vl (row 0): adesc table has no item" },
        { "adesc name twice", { row(1, PT_VLST, 0, 0, "vl", nullptr, alts_twice) },
          "vl (row 0): adesc name \"a\" stands twice" },
        { "adesc node smaller than a znode", { row(1, PT_VLST, 0, 0, "vl", nullptr, small_alt) },
          "vl<tiny> (row 0): node size " + std::to_string(kZ - 1) +
              " is smaller than a znode (" + std::to_string(kZ) + ")" },
        { "adesc row on the znode", { row(1, PT_VLST, 0, 0, "vl", nullptr, alt_on_znode) },
          "vl<on0> (row 0): sub-table row \"v\" addresses the znode of the list node" },
        { "adesc without sub-table", { row(1, PT_VLST, 0, 0, "vl", nullptr, alt_no_sub) },
          "vl<bare> (row 0): adesc item without a sub-table" },
        { "no name", { row(1, PT_SINT, 0, 4, nullptr) }, "(no name) (row 0): no name" },
        { "empty name", { row(1, PT_SINT, 0, 4, "") },
          "\"\" (row 0): name \"\" is no XML element name" },
        { "name with a blank", { row(1, PT_SINT, 0, 4, "a b") },
          "a b (row 0): name \"a b\" is no XML element name" },
        { "name with a colon", { row(1, PT_SINT, 0, 4, "x:y") },
          "x:y (row 0): name \"x:y\" is no XML element name" },
        { "name text", { row(1, PT_STRI, 0, 4, "text") },
          "text (row 0): name \"text\" would also take the text between elements" },
        { "name twice", { row(1, PT_SINT, 0, 4, "a"), row(1, PT_UINT, 4, 4, "a") },
          "a (row 1): name \"a\" is taken by row 0" },
    };
}

int check_rows(const std::vector<struct pdesc> &rows)
{
    std::vector<struct pdesc> table = rows;
    table.push_back(end_row());
    return param_xml_check(table.data());
}

TEST(ParamXmlCheck, EachBadRowIsNamedWithItsReasonAndCountedOnce)
{
    for (const BadCase &c : bad_cases()) {
        TraceCapture cap(8);
        EXPECT_EQ(check_rows(c.rows), 1) << c.what << "\n" << cap.dump();
        EXPECT_EQ(cap.count(4, "param_xml_check", c.record), 1u) << c.what << "\n" << cap.dump();
        EXPECT_EQ(cap.count_at_most(4), 1u) << c.what << "\n" << cap.dump();
    }
}

TEST(ParamXmlCheck, TablesMadeWithTheMacrosPass)
{
    TraceCapture cap(8);
    EXPECT_EQ(param_xml_check(fx_table), 0) << cap.dump();
    EXPECT_EQ(cap.count_at_most(5), 0u) << cap.dump();
    // 4 pdesc tables: the top table, the item, node and other tables.
    EXPECT_TRUE(cap.has(8, "param_xml_check", "4 tables, 0 bad rows")) << cap.dump();
}

TEST(ParamXmlCheck, NullTableIsRefused)
{
    TraceCapture cap(8);
    EXPECT_EQ(param_xml_check(nullptr), -1);
    EXPECT_TRUE(cap.has(4, "param_xml_check", "table is NULL")) << cap.dump();
}

TEST(ParamXmlCheck, EmptyTableIsGood)
{
    struct pdesc t[] = { end_row() };
    EXPECT_EQ(param_xml_check(t), 0);
}

TEST(ParamXmlCheck, RowsBehindTheEndAreNotRead)
{
    struct pdesc t[] = { row(1, PT_SINT, 0, 4, "a"), end_row(), row(-5, 0xF000, 0, 3, nullptr) };
    TraceCapture cap(8);
    EXPECT_EQ(param_xml_check(t), 0) << cap.dump();
}

TEST(ParamXmlCheck, RowWithSeveralReasonsCountsOnceAndTellsEach)
{
    TraceCapture cap(8);
    EXPECT_EQ(check_rows({ row(-2, PT_STRI, 0, 0, "a b") }), 1);
    EXPECT_TRUE(cap.has(4, "param_xml_check", "a b (row 0): name \"a b\" is no XML element name"));
    EXPECT_TRUE(cap.has(4, "param_xml_check", "a b (row 0): count -2 is below 0"));
    EXPECT_TRUE(cap.has(4, "param_xml_check", "a b (row 0): string capacity -2 is below 1"));
    EXPECT_TRUE(cap.has(4, "param_xml_check", "a b (row 0): string size 0 reads nothing"));
    EXPECT_EQ(cap.count_at_most(4), 4u) << cap.dump();
}

TEST(ParamXmlCheck, BadRowsOfSubTablesAreNamedByTheirPath)
{
    struct pdesc inner[] = { row(1, PT_FLOT, 0, 3, "ratio"), row(4, PT_STRI, 4, 4, "tag"),
                             end_row() };
    struct pdesc mid[] = { row(2, PT_STRU, 0, 8, "cell", inner), end_row() };
    struct pdesc top[] = { row(1, PT_SINT, 0, 4, "id"), row(1, PT_STRU, 4, 16, "grid", mid),
                           end_row() };
    TraceCapture cap(8);
    EXPECT_EQ(param_xml_check(top), 1) << cap.dump();
    EXPECT_TRUE(cap.has(4, "param_xml_check", "grid.cell.ratio (row 0): float width 3 is not 4 or 8"))
        << cap.dump();
}

TEST(ParamXmlCheck, SharedSubTableIsCheckedOnce)
{
    struct pdesc shared[] = { row(1, PT_SINT, 0, 5, "odd"), end_row() };
    struct pdesc top[] = { row(1, PT_STRU, 0, 8, "a", shared), row(1, PT_STRU, 8, 8, "b", shared),
                           row(1, PT_STRUM, 16, 8, "c", shared), end_row() };
    TraceCapture cap(8);
    EXPECT_EQ(param_xml_check(top), 1) << cap.dump();
    EXPECT_EQ(cap.count_containing("integer width 5"), 1u) << cap.dump();
}

// A tree: each node holds a list of nodes of its own kind. The walk ends,
// and nothing is wrong with it.
struct tree_node {
    struct znode z;
    int32_t id;
    zhead_t kids;
};
extern struct pdesc tree_table[];
struct pdesc tree_table[] = {
    PX_SINT(struct tree_node, id, "id"),
    PX_LIST(struct tree_node, kids, struct tree_node, "kid", tree_table),
    PX_END,
};

TEST(ParamXmlCheck, TableThatReachesItselfThroughAListEnds)
{
    struct tree_root {
        zhead_t top;
    };
    struct pdesc root[] = { PX_LIST(struct tree_root, top, struct tree_node, "node", tree_table),
                            PX_END };
    TraceCapture cap(8);
    EXPECT_EQ(param_xml_check(root), 0) << cap.dump();
    EXPECT_TRUE(cap.has(8, "param_xml_check", "2 tables, 0 bad rows")) << cap.dump();
}

TEST(ParamXmlCheck, StructureThatContainsItselfInPlaceIsBad)
{
    struct pdesc a[2], b[3];
    a[0] = row(1, PT_STRU, 0, 16, "b", b);
    a[1] = end_row();
    b[0] = row(1, PT_SINT, 0, 4, "x");
    b[1] = row(1, PT_STRU, 4, 16, "a", a);
    b[2] = end_row();
    TraceCapture cap(8);
    // Such a structure can't have a size: b doesn't fit into a's 16 bytes.
    EXPECT_EQ(param_xml_check(a), 2) << cap.dump();
    EXPECT_TRUE(cap.has(4, "param_xml_check", "b (row 0): sub-table reaches 20 bytes into a structure of 16"))
        << cap.dump();
    EXPECT_TRUE(cap.has(4, "param_xml_check", "a (row 1): structure contains itself in place"))
        << cap.dump();
}

TEST(ParamXmlCheck, InPlaceCycleBelowAListAndBesideOtherRowsIsFound)
{
    // t reaches s both through a list and in place; s holds itself in place.
    struct pdesc s[3];
    s[0] = row(1, PT_SINT, kZ, 4, "v");
    s[1] = row(1, PT_STRU, kZ + 4, 0, "self", s);
    s[2] = end_row();
    struct pdesc t[] = { row(1, PT_LIST, 0, kZ + 8, "l", s), end_row() };
    TraceCapture cap(8);
    EXPECT_GE(param_xml_check(t), 1) << cap.dump();
    EXPECT_TRUE(cap.has(4, "param_xml_check", "self (row 1): structure contains itself in place"))
        << cap.dump();
}

TEST(ParamXmlCheck, PointerAndCountedStructuresMayReachThemselves)
{
    // A structure that points to more of its kind is no in-place cycle.
    struct pdesc s[3];
    s[0] = row(1, PT_SINT, 0, 4, "v");
    s[1] = row(2, PT_STRUM | PT_F_CIA, 8, 24, "more", s);
    s[1].aoffset = 16;
    s[2] = end_row();
    TraceCapture cap(8);
    EXPECT_EQ(param_xml_check(s), 0) << cap.dump();
}

TEST(ParamXmlCheck, CountedAndCountFieldsCountTowardsTheStructureSize)
{
    // A counted row of 2 pointers at 0 and 2 counts at 16 reaches 24 bytes.
    struct pdesc inner[] = { row(2, PT_SINT | PT_F_COB, 0, 4, "buf"), end_row() };
    inner[0].boffset = 16;
    struct pdesc ok[] = { row(1, PT_STRU, 0, 24, "s", inner), end_row() };
    struct pdesc tight[] = { row(1, PT_STRU, 0, 23, "s", inner), end_row() };
    TraceCapture cap(8);
    EXPECT_EQ(param_xml_check(ok), 0) << cap.dump();
    EXPECT_EQ(param_xml_check(tight), 1) << cap.dump();
    EXPECT_TRUE(cap.has(4, "param_xml_check", "s (row 0): sub-table reaches 24 bytes into a structure of 23"))
        << cap.dump();
}

TEST(ParamXmlCheck, FlagsOnKindsThatIgnoreThemChangeNothing)
{
    // PT_F_CIA/PT_F_COB on a string or enumeration, a hex format on a signed
    // row: the codec ignores them, so the check does as well.
    struct pdesc inner[] = { row(8, PT_STRI | PT_F_CIA | PT_F_COB, 0, 8, "s"),
                             row(1, PT_ENUM | PT_F_COB, 8, 4, "e", nullptr, good_items),
                             row(1, PT_SINT | PT_FMT_HEXU, 12, 4, "i"), end_row() };
    inner[0].aoffset = 1000;
    inner[0].boffset = 1000;
    struct pdesc top[] = { row(1, PT_STRU, 0, 16, "s", inner), end_row() };
    TraceCapture cap(8);
    EXPECT_EQ(param_xml_check(top), 0) << cap.dump();
}

TEST(ParamXmlCheck, HugeSizesDoNotWrapAround)
{
    struct pdesc inner[] = { row(999999999, PT_UINT, 8, 8, "big"), end_row() };
    inner[0].offset = SIZE_MAX - 4;
    struct pdesc top[] = { row(1, PT_STRU, 0, 64, "s", inner), end_row() };
    TraceCapture cap(8);
    EXPECT_EQ(param_xml_check(top), 1) << cap.dump();
    EXPECT_EQ(cap.count_containing("sub-table reaches " + std::to_string(SIZE_MAX)), 1u)
        << cap.dump();
}

TEST(ParamXmlCheck, AllocationFailureAtEachStepGivesMinusOneAndLeaksNothing)
{
    int failures = 0;
    for (unsigned long n = 1; n < 200; n++) {
        long live = vn_mem_live();
        TraceCapture cap(8);
        vn_mem_fail_nth(n);
        int r = param_xml_check(fx_table);
        vn_mem_fail_nth(0);
        EXPECT_EQ(vn_mem_live(), live) << "failing allocation " << n;
        if (r == 0) {
            EXPECT_EQ(cap.count_at_most(4), 0u) << cap.dump();
            break;
        }
        failures++;
        EXPECT_EQ(r, -1) << "failing allocation " << n;
        EXPECT_TRUE(cap.has(4, "param_xml_check", "out of memory")) << cap.dump();
    }
    EXPECT_EQ(failures, 3);  // the sets of tables, of enume/adesc tables, of in-place tables
}

} // namespace
