// The table check: every bad row named with its path and reason and counted
// once; tables walked once however they reach each other; out of memory.
#include "codec_util.h"
#include "sweep.h"

namespace {

const size_t kZ = sizeof(struct znode);

struct pdesc r(int count, int type, size_t offset, size_t size, const char *name,
               struct pdesc *sub_table = nullptr, const void *aux_table = nullptr)
{
    return aux(sub(row(type, name, count, size, offset), sub_table), aux_table);
}

// Tables that the cases point into.
struct enume no_items[] = {PX_ENUME_END(0)};
struct enume twice[] = {PX_ENUME("on", 1), PX_ENUME("off", 0), PX_ENUME("on", 2), PX_ENUME_END(0)};
struct enume good_items[] = {PX_ENUME("on", 1), PX_ENUME_END(0)};
struct pdesc int_at_0[] = {r(1, PT_SINT, 0, 4, "v"), {}};
struct pdesc int_at_z[] = {r(1, PT_SINT, kZ, 4, "v"), {}};
struct pdesc cia_beyond[] = {cia(r(2, PT_SINT, kZ, 4, "v"), kZ + 8), {}};
struct pdesc str8_at_4[] = {r(8, PT_STRI, 4, 8, "s"), {}};
struct adesc no_alts[] = {PX_ADESC_END};
struct adesc alts_twice[] = {{kZ + 4, int_at_z, "a"}, {kZ + 4, int_at_z, "a"}, PX_ADESC_END};
struct adesc small_alt[] = {{kZ - 1, int_at_z, "tiny"}, PX_ADESC_END};
struct adesc alt_on_znode[] = {{kZ + 4, int_at_0, "on0"}, PX_ADESC_END};
struct adesc alt_no_sub[] = {{kZ + 4, nullptr, "bare"}, PX_ADESC_END};
struct pdesc unknown_in[] = {r(1, 0xA000, 0, 4, "k"), {}};
struct pdesc counts_on_z[] = {cob(r(1, PT_SINT, kZ, 4, "b"), 0), {}}, count_on_z[] = {cia(r(1, PT_SINT, kZ, 4, "c"), 0), {}};
struct pdesc counts_behind_z[] = {cob(r(1, PT_SINT, kZ + 8, 4, "b"), kZ), cia(r(1, PT_SINT, kZ + 16, 4, "c"), kZ), {}};

// What the check says of each table: its result and records.
void expect_checked(const std::string &name, const std::vector<const struct pdesc *> &tables)
{
    expect_cases("checked.txt", name, 4, tables.size(), [&](size_t i) { return std::to_string(param_xml_check(tables[i])); });
}

// Each bad row named with its path and reason, and counted once.
TEST(ParamXmlCheck, EachBadRowIsNamedWithItsReasonAndCountedOnce)
{
    std::vector<std::vector<struct pdesc>> cases = {
        {r(1, 0xA000, 0, 4, "k")}, {r(1, PT_UINT, 0, 3, "w")}, {r(1, PT_SINT | PT_F_COB, 0, 16, "w")}, {r(1, PT_FLOT, 0, 2, "f")},
        {r(0, PT_STRI, 0, 8, "s")}, {r(8, PT_STRI, 0, 0, "s")}, {r(-1, PT_SINT, 0, 4, "n")}, {r(1000000000, PT_SINT, 0, 1, "n")},
        {r(1, PT_ENUM, 0, 2, "e", nullptr, good_items)}, {r(1, PT_ENUM, 0, 4, "e")}, {r(1, PT_ENUM, 0, 4, "e", nullptr, no_items)},
        {r(1, PT_ENUM, 0, 4, "e", nullptr, twice)}, {r(1, PT_STRU, 0, 8, "st")}, {r(2, PT_STRUM, 0, 8, "sm")},
        {r(2, PT_STRU, 0, 10, "st", str8_at_4)}, {r(1, PT_STRU, 0, 8, "st", unknown_in)}, {r(1, PT_LIST, 0, kZ + 4, "l")},
        {r(1, PT_LIST, 0, kZ - 8, "l", int_at_z)}, {r(1, PT_LIST, 0, kZ + 4, "l", int_at_0)}, {r(1, PT_LIST, 0, kZ + 8, "l", counts_on_z)},
        {r(1, PT_LIST, 0, kZ + 8, "l", count_on_z)}, {r(1, PT_LIST, 0, kZ + 8, "l", cia_beyond)}, {r(1, PT_VLST, 0, 0, "vl")},
        {r(1, PT_VLST, 0, 0, "vl", nullptr, no_alts)}, {r(1, PT_VLST, 0, 0, "vl", nullptr, alts_twice)},
        {r(1, PT_VLST, 0, 0, "vl", nullptr, small_alt)}, {r(1, PT_VLST, 0, 0, "vl", nullptr, alt_on_znode)},
        {r(1, PT_VLST, 0, 0, "vl", nullptr, alt_no_sub)}, {r(1, PT_SINT, 0, 4, nullptr)}, {r(1, PT_SINT, 0, 4, "")},
        {r(1, PT_SINT, 0, 4, "a b")}, {r(1, PT_SINT, 0, 4, "x:y")}, {r(1, PT_STRI, 0, 4, "text")},
        {r(1, PT_SINT, 0, 4, "a"), r(1, PT_UINT, 4, 4, "a")},
        {r(1, PT_LIST, 0, kZ + 24, "l", counts_behind_z)}, {r(1, PT_LIST, 0, kZ, "l", int_at_0 + 1)}, {r(1, PT_STRI, 0, 1, "s")}};
    std::vector<const struct pdesc *> tables;
    for (auto &t : cases)
        t.push_back({}), tables.push_back(t.data());
    expect_checked("bad rows", tables);
}

// A tree: each node holds a list of nodes of its own kind.
struct tree_node { struct znode z; int32_t id; zhead_t kids; };
struct tree_root { zhead_t top; };
extern struct pdesc tree_table[];
struct pdesc tree_table[] = {PX_SINT(struct tree_node, id, "id"),
                             PX_LIST(struct tree_node, kids, struct tree_node, "kid", tree_table), PX_END};

TEST(ParamXmlCheck, WholeTablesGiveTheirCountAndReasonsOrMinusOneWithoutMemory)
{
    // Good tables: the macros' own, the empty one, a tree reaching itself
    // through a list, pointers and counted structures reaching themselves,
    // flags on kinds that ignore them, and rows behind the end row.
    struct pdesc empty[] = {{}};
    struct pdesc behind[] = {r(1, PT_SINT, 0, 4, "a"), {}, r(-5, 0xF000, 0, 3, nullptr)};
    struct pdesc root[] = {PX_LIST(struct tree_root, top, struct tree_node, "node", tree_table), PX_END};
    struct pdesc self_ptr[3] = {r(1, PT_SINT, 0, 4, "v"), cia(r(2, PT_STRUM, 8, 24, "more", self_ptr), 16), {}};
    struct pdesc flags_in[] = {cia(cob(r(8, PT_STRI, 0, 8, "s"), 1000), 1000), r(1, PT_ENUM | PT_F_COB, 8, 4, "e", nullptr, good_items),
                               r(1, PT_SINT | PT_FMT_HEXU, 12, 4, "i"), {}};
    struct pdesc flags[] = {r(1, PT_STRU, 0, 16, "s", flags_in), {}};
    // Bad ones: several reasons in one row; a path through sub-tables; one
    // shared bad table; structures containing themselves in place; sizes.
    struct pdesc inner[] = {r(1, PT_FLOT, 0, 3, "ratio"), r(4, PT_STRI, 4, 4, "tag"), {}};
    struct pdesc mid[] = {r(2, PT_STRU, 0, 8, "cell", inner), {}};
    struct pdesc grid[] = {r(1, PT_SINT, 0, 4, "id"), r(1, PT_STRU, 4, 16, "grid", mid), {}};
    struct pdesc several[] = {r(-2, PT_STRI, 0, 0, "a b"), {}};
    struct pdesc shared[] = {r(1, PT_SINT, 0, 5, "odd"), {}};
    struct pdesc sharing[] = {r(1, PT_STRU, 0, 8, "a", shared), r(1, PT_STRU, 8, 8, "b", shared),
                              r(1, PT_STRUM, 16, 8, "c", shared), {}};
    struct pdesc a[2], b[3], s[3];
    a[0] = r(1, PT_STRU, 0, 16, "b", b), a[1] = {};
    b[0] = r(1, PT_SINT, 0, 4, "x"), b[1] = r(1, PT_STRU, 4, 16, "a", a), b[2] = {};
    s[0] = r(1, PT_SINT, kZ, 4, "v"), s[1] = r(1, PT_STRU, kZ + 4, 0, "self", s), s[2] = {};
    struct pdesc below_list[] = {r(1, PT_LIST, 0, kZ + 8, "l", s), {}};
    struct pdesc counted_in[] = {cob(r(2, PT_SINT, 0, 4, "buf"), 16), {}};   // reaches 24 bytes
    struct pdesc fits[] = {r(1, PT_STRU, 0, 24, "s", counted_in), {}};
    struct pdesc tight[] = {r(1, PT_STRU, 0, 23, "s", counted_in), {}};
    struct pdesc huge_in[] = {r(999999999, PT_UINT, SIZE_MAX - 4, 8, "big"), {}};
    struct pdesc huge[] = {r(1, PT_STRU, 0, 64, "s", huge_in), {}};
    // Twenty sub-tables, the first bad and reached again behind the others:
    // walked once however many tables the walk has seen.
    struct pdesc many_sub[20][2], many[22];
    char names[20][4];
    for (int i = 0; i < 20; i++) {
        std::snprintf(names[i], sizeof names[i], "t%d", i);
        many_sub[i][0] = r(1, i == 0 ? PT_FLOT : PT_SINT, 0, i == 0 ? 3 : 4, "v"), many_sub[i][1] = {};
        many[i] = r(1, PT_STRUM, 8 * i, 8, names[i], many_sub[i]);
    }
    many[20] = r(1, PT_STRUM, 160, 8, "again", many_sub[0]), many[21] = {};
    expect_checked("whole tables", {fx_table, empty, behind, root, self_ptr, flags, fits, several, grid, sharing, a, below_list,
                                    tight, huge, many});
    TraceCapture cap(4);
    EXPECT_EQ(param_xml_check(nullptr), -1);
    EXPECT_TRUE(cap.has(4, "param_xml_check", "table is NULL")) << cap.dump();
    // Each allocation refused in turn: -1 with its record, or the same count;
    // no leak, past sixteen tables too.
    for (const struct pdesc *table : {static_cast<const struct pdesc *>(fx_table), static_cast<const struct pdesc *>(many)}) {
        const int want = param_xml_check(table);
        int result = 0;
        sweep(Alloc::library, [&] { cap.clear(), result = param_xml_check(table); }, [&](bool refused) {
            EXPECT_EQ(refused ? -1 : want, result);
            EXPECT_EQ(refused, cap.has(4, "param_xml_check", "out of memory")) << cap.dump();
        });
    }
}

}  // namespace
