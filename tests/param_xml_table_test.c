/* param_xml_table_test.c - the table macros compiled as C11 and as C++17
 * with -Wall -Wextra -Werror: every macro's row equals the row written out
 * by hand, the companion tables end where they should, a table of a type
 * local to a function compiles, and the table check finds nothing wrong
 * with what the macros made. Run by CTest; exits 1 after printing every
 * difference. */
#include <stdio.h>
#include <string.h>

#include "param_xml.h"
#include "param_xml_table_fixture.h"

FX_DEFINE_TABLES
FX_DEFINE_EXPECTED

static int failures;

#define EXPECT_EQ_U(row, field, got, want)                                            \
    do {                                                                             \
        if ((unsigned long long)(got) != (unsigned long long)(want)) {                \
            fprintf(stderr, "row %d (%s): %s is %llu, expected %llu\n", (row),         \
                    fx_expected[row].name, field, (unsigned long long)(got),         \
                    (unsigned long long)(want));                                     \
            failures++;                                                              \
        }                                                                            \
    } while (0)

static void compare_rows(void)
{
    int i;
    for (i = 0; i <= FX_ROWS; i++) {
        const struct pdesc *g = &fx_table[i], *w = &fx_expected[i];
        EXPECT_EQ_U(i, "iob", g->iob, 0);
        EXPECT_EQ_U(i, "ioa", g->ioa, 0);
        EXPECT_EQ_U(i, "count", g->count, w->count);
        EXPECT_EQ_U(i, "type", g->type, w->type);
        EXPECT_EQ_U(i, "offset", g->offset, w->offset);
        EXPECT_EQ_U(i, "boffset", g->boffset, w->boffset);
        EXPECT_EQ_U(i, "aoffset", g->aoffset, w->aoffset);
        EXPECT_EQ_U(i, "size", g->size, w->size);
        EXPECT_EQ_U(i, "pdesc", (uintptr_t)g->pdesc, (uintptr_t)w->pdesc);
        EXPECT_EQ_U(i, "aux", g->aux, w->aux);
        if ((g->name == NULL) != (w->name == NULL) ||
            (g->name != NULL && strcmp(g->name, w->name) != 0)) {
            fprintf(stderr, "row %d: name differs\n", i);
            failures++;
        }
    }
}

static void companion_tables(void)
{
    EXPECT_EQ_U(0, "enume[3].key", (uintptr_t)fx_modes[3].key, 0);
    EXPECT_EQ_U(0, "enume[3].value", fx_modes[3].value, FX_OFF);
    EXPECT_EQ_U(0, "enume[2].value", fx_modes[2].value, FX_AUTO);
    EXPECT_EQ_U(0, "adesc[0].size", fx_kinds[0].size, sizeof(struct fx_node));
    EXPECT_EQ_U(0, "adesc[1].size", fx_kinds[1].size, sizeof(struct fx_other));
    EXPECT_EQ_U(0, "adesc[1].pdesc", (uintptr_t)fx_kinds[1].pdesc, (uintptr_t)fx_other_table);
    EXPECT_EQ_U(0, "adesc[2].name", (uintptr_t)fx_kinds[2].name, 0);
    EXPECT_EQ_U(0, "adesc[2].size", fx_kinds[2].size, 0);
}

static void local_table(void)
{
    struct local {
        uint16_t a[3];
        int n;
        char s[4];
    };
    static struct pdesc t[] = {
        PX_UINT_CIA_HEXU(struct local, a, n, "a"),
        PX_STRI_N(struct local, s, 3, "s"),
        PX_END,
    };
    EXPECT_EQ_U(0, "local count", t[0].count, 3);
    EXPECT_EQ_U(0, "local type", t[0].type, PT_UINT | PT_F_CIA | PT_FMT_HEXU);
    EXPECT_EQ_U(0, "local aoffset", t[0].aoffset, offsetof(struct local, n));
    EXPECT_EQ_U(1, "local size", t[1].size, 3);
    EXPECT_EQ_U(0, "local check", param_xml_check(t), 0);
}

int main(void)
{
    compare_rows();
    companion_tables();
    local_table();
    EXPECT_EQ_U(0, "param_xml_check", param_xml_check(fx_table), 0);
    if (failures == 0)
        printf("all rows as written by hand\n");
    return failures == 0 ? 0 : 1;
}
