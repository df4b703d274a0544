// param_xml_check.cpp - the table check: walks a descriptor table with its
// sub-tables, enume tables and adesc tables, and reports every row that can't
// work as far as the table itself shows it.
//
// The check only reads. Each table is walked once, whichever rows lead to
// it, so tables that reach themselves (a list of nodes that hold lists of
// the same nodes) end. A structure that contains itself in place can't
// exist in memory and would make the writer recurse for ever, so that cycle
// is searched for separately, over in-place structure rows alone.
//
// What a row shows: its kind, widths, counts, names, whether its tables are
// there, and how far its sub-table reaches into one structure or node. What
// only the structure knows (field sizes and places) is the table macros'
// compile-time check. What each kind takes (its memory, its tables, counted
// mode, a count field) comes from the codec's one table of kinds
// (param_xml.cpp); of the codec this file uses nothing else.
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <libxml/tree.h>

#include "param_xml.h"
#include "param_xml_private.h"
#include "vn_mem.h"
#include "xml_trace.h"

namespace {

const char *const kFunc = "param_xml_check";

// A set of addresses, grown through the engine allocator so that a test can
// make it fail. Tables are few; a linear search is enough.
struct PtrSet {
    const void **items = nullptr;
    size_t n = 0;
    size_t cap = 0;
};

bool set_has(const PtrSet &s, const void *p)
{
    for (size_t i = 0; i < s.n; i++)
        if (s.items[i] == p)
            return true;
    return false;
}

// Adds `p`; false when out of memory.
bool set_add(PtrSet &s, const void *p)
{
    if (s.n == s.cap) {
        size_t cap = s.cap ? s.cap * 2 : 16;
        const void **items =
            static_cast<const void **>(_vn_malloc(cap * sizeof(*items), kFunc));
        if (items == nullptr)
            return false;
        if (s.n > 0)
            memcpy(items, s.items, s.n * sizeof(*items));
        _vn_free(s.items, kFunc);
        s.items = items;
        s.cap = cap;
    }
    s.items[s.n++] = p;
    return true;
}

void set_free(PtrSet &s)
{
    _vn_free(s.items, kFunc);
    s = PtrSet();
}

struct Checker {
    PtrSet seen;      // pdesc tables already walked
    PtrSet others;    // enume and adesc tables already checked
    PtrSet inplace;   // tables whose in-place structures have been searched
    PtrSet bad;       // rows with at least one reason, each counted once
    bool oom = false;
};

// One reason against one row: "<path> (row <i>): <reason>" at level 4.
void report(const char *path, int row, const char *fmt, ...) __attribute__((format(printf, 3, 4)));
void report(const char *path, int row, const char *fmt, ...)
{
    char reason[256];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(reason, sizeof(reason), fmt, ap);
    va_end(ap);
    KV_LOGF(kFunc, 4, "%s (row %d): %s", path, row, reason);
}

// A row's name as it stands in a record: never NULL, never empty.
const char *name_in_record(const char *name)
{
    if (name == nullptr)
        return "(no name)";
    return name[0] != '\0' ? name : "\"\"";
}

// Saturating size arithmetic: a hostile row must not wrap to a small number.
size_t sat_add(size_t a, size_t b)
{
    size_t r;
    return __builtin_add_overflow(a, b, &r) ? SIZE_MAX : r;
}

size_t sat_mul(size_t a, size_t b)
{
    size_t r;
    return __builtin_mul_overflow(a, b, &r) ? SIZE_MAX : r;
}

size_t max_of(size_t a, size_t b)
{
    return a > b ? a : b;
}

// Bytes from the walked base that one row reaches.
size_t row_extent(const struct pdesc &r)
{
    const struct kind_info *k = kind_info_of(r.type);
    if (k == nullptr)
        return 0;  // an unknown kind is reported on its own
    size_t n = r.count > 0 ? static_cast<size_t>(r.count) : 0;
    size_t end = 0;
    if (row_is_counted(&r)) {
        end = sat_add(r.offset, sat_mul(n, sizeof(void *)));
        end = max_of(end, sat_add(r.boffset, sat_mul(n, sizeof(int))));
    } else {
        switch (k->memory) {
        case KM_VALUES:
            end = sat_add(r.offset, sat_mul(n, r.size));
            break;
        case KM_STRING:
            end = sat_add(r.offset, max_of(n, r.size));
            break;
        case KM_ENUMS:
            end = n == 0 ? r.offset
                         : sat_add(sat_add(r.offset, sat_mul(n - 1, r.size)), sizeof(int));
            break;
        case KM_POINTER:
            end = sat_add(r.offset, sizeof(void *));
            break;
        case KM_HEADS:
            end = sat_add(r.offset, sat_mul(n, sizeof(zhead_t)));
            break;
        }
    }
    if (row_has_count_field(&r))
        end = max_of(end, sat_add(r.aoffset, sizeof(int)));
    return end;
}

// Bytes that one structure or node must have for `table` to stay inside it.
size_t table_extent(const struct pdesc *table)
{
    size_t end = 0;
    for (const struct pdesc *r = table; r->type != 0; r++)
        end = max_of(end, row_extent(*r));
    return end;
}

// The first row of a list node's table that addresses the node's znode, or
// NULL if none does.
const struct pdesc *row_on_znode(const struct pdesc *table)
{
    for (const struct pdesc *r = table; r->type != 0; r++) {
        if (r->offset < sizeof(struct znode))
            return r;
        if (row_is_counted(r) && r->boffset < sizeof(struct znode))
            return r;
        if (row_has_count_field(r) && r->aoffset < sizeof(struct znode))
            return r;
    }
    return nullptr;
}

void walk_table(Checker &c, const struct pdesc *table, const char *path);

// A sub-table for one structure or node of `size` bytes; `node` says that it
// begins with a znode that no row may address. Returns the reasons found.
int check_sub(Checker &c, const struct pdesc *sub, size_t size, bool node, const char *path,
              int row, const char *what)
{
    int reasons = 0;
    if (sub == nullptr) {
        report(path, row, "%s without a sub-table", what);
        return 1;
    }
    if (node && size < sizeof(struct znode)) {
        report(path, row, "node size %zu is smaller than a znode (%zu)", size,
               sizeof(struct znode));
        reasons++;
    }
    size_t need = table_extent(sub);
    if (need > size && reasons == 0) {
        report(path, row, "sub-table reaches %zu bytes into a %s of %zu", need,
               node ? "node" : "structure", size);
        reasons++;
    }
    const struct pdesc *on = node ? row_on_znode(sub) : nullptr;
    if (on != nullptr) {
        report(path, row, "sub-table row \"%s\" addresses the znode of the list node",
               name_in_record(on->name));
        reasons++;
    }
    walk_table(c, sub, path);
    return reasons;
}

// Whether the name of item `i` (the member `name`) stands at an earlier item.
template <typename Item>
bool named_before(const Item *items, int i, const char *Item::*name)
{
    for (int j = 0; j < i; j++)
        if (strcmp(items[i].*name, items[j].*name) == 0)
            return true;
    return false;
}

// What an alternative adds to the reasons of its table: its sub-table.
int check_alternative(Checker &c, const struct adesc &alt, const char *path, int row)
{
    char sub_path[256];
    if (snprintf(sub_path, sizeof(sub_path), "%s<%s>", path, alt.name) < 0)
        sub_path[0] = '\0';
    return check_sub(c, alt.pdesc, alt.size, true, sub_path, row, "adesc item");
}

// An enume or adesc table (`what`), each checked once: present (else the
// reason `missing`), with an item, each item's name (the member `name`,
// called `called` in a record) once, and each item by `check_one` if any.
template <typename Item>
int check_items(Checker &c, const Item *items, const char *Item::*name, const char *what,
                const char *called, const char *missing, const char *path, int row,
                int (*check_one)(Checker &, const Item &, const char *, int))
{
    if (items == nullptr) {
        report(path, row, "%s", missing);
        return 1;
    }
    if (set_has(c.others, items))
        return 0;
    if (!set_add(c.others, items)) {
        c.oom = true;
        return 0;
    }
    if (items[0].*name == nullptr) {
        report(path, row, "%s table has no item", what);
        return 1;
    }
    int reasons = 0;
    for (int i = 0; items[i].*name != nullptr; i++) {
        if (named_before(items, i, name)) {
            report(path, row, "%s %s \"%s\" stands twice", what, called, items[i].*name);
            reasons++;
        }
        if (check_one != nullptr)
            reasons += check_one(c, items[i], path, row);
    }
    return reasons;
}

// The name of row `i`: present, an element name, not taken by an earlier row.
int check_name(const struct pdesc *table, int i, const char *path)
{
    const char *name = table[i].name;
    if (name == nullptr) {
        report(path, i, "no name");
        return 1;
    }
    if (xmlValidateNCName(BAD_CAST name, 0) != 0) {
        report(path, i, "name \"%s\" is no XML element name", name);
        return 1;
    }
    if (strcmp(name, "text") == 0) {
        report(path, i, "name \"text\" would also take the text between elements");
        return 1;
    }
    for (int j = 0; j < i; j++)
        if (table[j].name != nullptr && strcmp(table[j].name, name) == 0) {
            report(path, i, "name \"%s\" is taken by row %d", name, j);
            return 1;
        }
    return 0;
}

// The widths and capacities a row of a known kind must have; returns the
// number of reasons.
int check_sizes(const struct pdesc &r, const char *path, int i)
{
    int reasons = 0;
    switch (r.type & PT_KIND_MASK) {
    case PT_SINT:
    case PT_UINT:
        if (r.size != 1 && r.size != 2 && r.size != 4 && r.size != 8) {
            report(path, i, "integer width %zu is not 1, 2, 4 or 8", r.size);
            reasons++;
        }
        break;
    case PT_FLOT:
        if (r.size != 4 && r.size != 8) {
            report(path, i, "float width %zu is not 4 or 8", r.size);
            reasons++;
        }
        break;
    case PT_STRI:
        if (r.count < 1) {
            report(path, i, "string capacity %d is below 1", r.count);
            reasons++;
        }
        if (r.size < 1) {
            report(path, i, "string size 0 reads nothing");
            reasons++;
        }
        break;
    case PT_ENUM:
        if (r.size < sizeof(int)) {
            report(path, i, "enumeration element size %zu is below %zu", r.size, sizeof(int));
            reasons++;
        }
        break;
    default:
        break;
    }
    return reasons;
}

// Everything about row `i` of `table`; returns the number of reasons.
int check_row(Checker &c, const struct pdesc *table, int i, const char *path)
{
    const struct pdesc &r = table[i];
    int reasons = check_name(table, i, path);
    if (r.count < 0) {
        report(path, i, "count %d is below 0", r.count);
        reasons++;
    } else if (r.count > PX_COUNT_MAX) {
        report(path, i, "count %d has more than nine digits", r.count);
        reasons++;
    }
    const struct kind_info *k = kind_info_of(r.type);
    if (k == nullptr) {
        report(path, i, "unknown kind in type 0x%X", static_cast<unsigned>(r.type));
        return reasons + 1;
    }
    reasons += check_sizes(r, path, i);
    switch (k->table) {
    case KT_PDESC: {
        bool node = k->memory == KM_HEADS;
        reasons += check_sub(c, r.pdesc, r.size, node, path, i, node ? "list row" : "structure row");
        break;
    }
    case KT_ENUME:
        reasons += check_items<struct enume>(c, reinterpret_cast<const struct enume *>(r.aux),
                                             &enume::key, "enume", "key",
                                             "enumeration without an enume table", path, i,
                                             nullptr);
        break;
    case KT_ADESC:
        reasons += check_items(c, reinterpret_cast<const struct adesc *>(r.aux), &adesc::name,
                               "adesc", "name", "variant list without an adesc table", path, i,
                               check_alternative);
        break;
    case KT_NONE:
        break;
    }
    return reasons;
}

void mark_bad(Checker &c, const struct pdesc *row)
{
    if (!set_has(c.bad, row) && !set_add(c.bad, row))
        c.oom = true;
}

void walk_table(Checker &c, const struct pdesc *table, const char *path)
{
    if (set_has(c.seen, table))
        return;
    if (!set_add(c.seen, table)) {
        c.oom = true;
        return;
    }
    for (int i = 0; table[i].type != 0; i++) {
        char row_path[256];
        if (path[0] == '\0')
            snprintf(row_path, sizeof(row_path), "%s", name_in_record(table[i].name));
        else
            snprintf(row_path, sizeof(row_path), "%s.%s", path, name_in_record(table[i].name));
        if (check_row(c, table, i, row_path) > 0)
            mark_bad(c, &table[i]);
    }
}

// In-place structures: a chain of direct rows of structures held in the
// walked structure itself (PT_STRU) that comes back to a table on the
// chain. `up` links the tables of the chain on the C stack.
struct Chain {
    const struct pdesc *table;
    const Chain *up;
};

bool on_chain(const Chain *chain, const struct pdesc *table)
{
    for (; chain != nullptr; chain = chain->up)
        if (chain->table == table)
            return true;
    return false;
}

void search_inplace(Checker &c, const struct pdesc *table, const Chain *up)
{
    Chain here = { table, up };
    for (int i = 0; table[i].type != 0 && !c.oom; i++) {
        const struct pdesc &r = table[i];
        const struct kind_info *k = kind_info_of(r.type);
        bool in_place = k && k->memory == KM_VALUES && k->table == KT_PDESC && !row_is_counted(&r);
        if (!in_place || r.pdesc == nullptr)
            continue;
        if (on_chain(&here, r.pdesc)) {
            report(name_in_record(r.name), i, "structure contains itself in place");
            mark_bad(c, &r);
        } else if (!set_has(c.inplace, r.pdesc)) {
            search_inplace(c, r.pdesc, &here);
        }
    }
    if (!set_has(c.inplace, table) && !set_add(c.inplace, table))
        c.oom = true;
}

// Starts the in-place search at every table that the walk reached, so that
// a cycle below a list or a pointer is found as well.
void search_all(Checker &c)
{
    for (size_t i = 0; i < c.seen.n && !c.oom; i++) {
        const struct pdesc *t = static_cast<const struct pdesc *>(c.seen.items[i]);
        if (!set_has(c.inplace, t))
            search_inplace(c, t, nullptr);
    }
}

} // namespace

extern "C" int param_xml_check(const struct pdesc *table)
{
    if (table == nullptr) {
        KV_LOGF(kFunc, 4, "table is NULL");
        return -1;
    }
    Checker c;
    walk_table(c, table, "");
    if (!c.oom)
        search_all(c);
    int result = c.oom ? -1 : static_cast<int>(c.bad.n);
    if (c.oom)
        KV_LOGF(kFunc, 4, "out of memory");
    else
        KV_LOGF(kFunc, 8, "%zu tables, %d bad rows", c.seen.n, result);
    set_free(c.seen);
    set_free(c.others);
    set_free(c.inplace);
    set_free(c.bad);
    return result;
}
