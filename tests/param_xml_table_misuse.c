/* param_xml_table_misuse.c - rows that the table macros must refuse. Built
 * once per case with -DPX_CASE=<n>, as C11 and as C++17; every case but 0
 * must stop the build with the "kavor table:" message that CTest expects.
 * Case 0 holds only good rows: it proves that the command line itself works. */
#include "param_xml.h"

struct node {
    struct znode z;
    int id;
};

struct cfg {
    int32_t i32;
    uint16_t u16[4];
    long double wide;
    int64_t big[3];
    float f;
    double d[2];
    int notf;
    char name[8];
    signed char sc[8];
    int mode;
    short small_enum;
    struct node inplace;
    struct node arr[2];
    struct node *ptr;
    int n;
    unsigned un;
    int32_t *bufs[3];
    int cnts[3];
    int cnts2[2];
    long lcnts[3];
    zhead_t head;
    zhead_t heads[2];
    int *notbufs;
    int not_head;
};

static struct enume modes[] = { PX_ENUME("on", 1), PX_ENUME_END(0) };
static struct pdesc node_table[] = { PX_SINT(struct node, id, "id"), PX_END };

static struct pdesc table[] = {
#if PX_CASE == 0
    PX_SINT(struct cfg, i32, "i32"),
    PX_UINT_ARR_HEX(struct cfg, u16, "u16"),
    PX_SINT_ARR_N(struct cfg, big, 3, "big"),
    PX_FLOT_ARR(struct cfg, d, "d"),
    PX_STRI_N(struct cfg, name, 8, "name"),
    PX_ENUM(struct cfg, mode, "mode", modes),
    PX_STRU(struct cfg, inplace, "inplace", node_table),
    PX_STRU_CIA(struct cfg, arr, n, "arr", node_table),
    PX_STRUM(struct cfg, ptr, 4, "ptr", node_table),
    PX_SINT_COB(struct cfg, bufs, cnts, "bufs"),
    PX_LIST(struct cfg, head, struct node, "head", node_table),
#elif PX_CASE == 1 /* integer width the kind doesn't take */
    PX_SINT(struct cfg, wide, "wide"),
#elif PX_CASE == 2 /* an array given to the single-value form */
    PX_UINT(struct cfg, u16, "u16"),
#elif PX_CASE == 3 /* a single value given to the array form */
    PX_SINT_ARR(struct cfg, i32, "i32"),
#elif PX_CASE == 4 /* a count over the array */
    PX_SINT_ARR_N(struct cfg, big, 4, "big"),
#elif PX_CASE == 5 /* a string capacity over the field */
    PX_STRI_N(struct cfg, name, 9, "name"),
#elif PX_CASE == 6 /* a float row over an int */
    PX_FLOT(struct cfg, notf, "notf"),
#elif PX_CASE == 7 /* a count field that is no int */
    PX_SINT_CIA(struct cfg, big, un, "big"),
#elif PX_CASE == 8 /* pointer and count arrays of different lengths */
    PX_SINT_COB(struct cfg, bufs, cnts2, "bufs"),
#elif PX_CASE == 9 /* counts that are no int */
    PX_SINT_COB(struct cfg, bufs, lcnts, "bufs"),
#elif PX_CASE == 10 /* an enumeration of another width */
    PX_ENUM(struct cfg, small_enum, "small", modes),
#elif PX_CASE == 11 /* a list over a field that is no zhead_t */
    PX_LIST(struct cfg, not_head, struct node, "x", node_table),
#elif PX_CASE == 12 /* PT_STRUM over an array */
    PX_STRUM(struct cfg, arr, 2, "arr", node_table),
#elif PX_CASE == 13 /* a string over an array of wider elements */
    PX_STRI(struct cfg, u16, "u16"),
#elif PX_CASE == 14 /* a format the codec doesn't know */
    PX_UINT_FMT(struct cfg, i32, "i32", 5),
#elif PX_CASE == 15 /* a structure row over a non-structure */
    PX_STRU(struct cfg, i32, "i32", node_table),
#elif PX_CASE == 16 /* a list node too small to hold a znode */
    PX_LIST(struct cfg, head, int, "head", node_table),
#endif
    PX_END,
};

int main(void)
{
    return table[0].type == 0;
}
