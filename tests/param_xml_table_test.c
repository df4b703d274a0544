/* param_xml_table_test.c - the table macros compiled as C11 and as C++17
 * with -Wall -Wextra -Werror. Prints every row of the fixture's tables, its
 * sub-tables and companion tables by value, sub-tables by name; CTest runs
 * both builds and compares their output, so a row C makes differently from
 * C++ (whose rows the codec's round trip proves) fails. Exits 1 when a table
 * has lost rows or the table check finds fault with what the macros made,
 * or a table of a type local to a function does. */
#include <stdio.h>

#include "param_xml.h"
#include "param_xml_table_fixture.h"

FX_DEFINE_TABLES

static const char *table_name(const void *p)
{
    const void *known[] = {fx_item_table, fx_node_table, fx_other_table, fx_modes, fx_kinds};
    const char *names[] = {"item", "node", "other", "modes", "kinds"};
    unsigned i;
    for (i = 0; i < sizeof known / sizeof known[0]; i++)
        if (p == known[i])
            return names[i];
    return p != NULL ? "?" : "-";
}

static int print_rows(const char *name, const struct pdesc *t)
{
    int n = 0;
    for (; t->type != 0; t++, n++)
        printf("%s %d %d %d %#x %zu %zu %zu %zu %s %s %s\n", name, t->iob, t->ioa, t->count, (unsigned)t->type,
               t->offset, t->boffset, t->aoffset, t->size, t->name, table_name(t->pdesc), table_name((void *)t->aux));
    printf("%s end %s %s\n", name, t->name != NULL ? t->name : "-", table_name(t->pdesc));
    return n;
}

int main(void)
{
    struct local { uint16_t a[3]; int n; char s[4]; };
    static struct pdesc local_table[] = {PX_UINT_CIA_HEXU(struct local, a, n, "a"), PX_STRI_N(struct local, s, 3, "s"), PX_END};
    const struct enume *e;
    const struct adesc *a;
    int rows = print_rows("all", fx_table);
    print_rows("item", fx_item_table), print_rows("node", fx_node_table), print_rows("other", fx_other_table);
    print_rows("local", local_table);
    for (e = fx_modes; e == fx_modes || e[-1].key != NULL; e++)   /* the end entry too */
        printf("modes %s %d\n", e->key != NULL ? e->key : "-", e->value);
    for (a = fx_kinds; a == fx_kinds || a[-1].name != NULL; a++)
        printf("kinds %zu %s %s\n", a->size, table_name(a->pdesc), a->name != NULL ? a->name : "-");
    return rows == FX_ROWS && param_xml_check(fx_table) == 0 && param_xml_check(local_table) == 0 ? 0 : 1;
}
