// param_xml_schema.cpp - a descriptor table to an XML Schema 1.0 description
// of the element that param2xml writes for it, so that stock XML tools can
// tell before a load whether a document will load exactly.
//
// Invariant: whatever the schema accepts, the reader stores exactly as it
// stands in the document: every value in its width's range, in a form that
// the reader's conversion reads whole; every element, attribute and "typ" one
// that the reader uses; no element past the row's capacity by its "idx";
// no text longer than its field. What the reader would narrow, cut, drop or
// pass over is refused. Where XML Schema 1.0 can't say as much, it says less,
// and docs/cli.md lists those places (values spread over several elements,
// a variant node's children tied to its "typ", float ranges).
//
// The shape, row by row, in table order (the order the writer writes):
// - integers: a list of values per element, at most the row's count, each
//   in decimal (no leading zero: the reader would take it as octal), "0x"
//   hexadecimal or "0"-prefixed octal, with a sign where the row is signed;
//   a type per width ("int8" ... "uint64") whose members bound each form;
// - floats: xs:float/xs:double, or the words and hexadecimal forms of strtod;
// - strings: the field's capacity in bytes, counted in characters (below);
// - enumerations: the table's words, compared as the reader compares them;
// - structures, list nodes: a named complex type per table, shared by every
//   row that uses it (so recursive lists end);
// - counted buffers: wrappers with "cnt" of at least 1, holding inner
//   elements of the direct shape;
// - variant lists: inner elements with "typ" one of the alternatives' names,
//   holding the children of any alternative, in any order.
// Every element but a string's may carry "idx", within the row's capacity.
#include <inttypes.h>
#include <stdio.h>
#include <string.h>

#include <libxml/hash.h>

#include "param_xml.h"
#include "param_xml_private.h"
#include "schema_private.h"
#include "xml_trace.h"

namespace {

const char kXsNs[] = "http://www.w3.org/2001/XMLSchema";
const size_t kNameLen = 320;   // a type name: a row name, a suffix, a number
const size_t kPatternLen = 2048;

// A pattern or name built in place; `over` once it ran out of room.
struct text {
    char buf[kPatternLen];
    size_t n = 0;
    bool over = false;
    text() { buf[0] = '\0'; }
    text &add(const char *s)
    {
        size_t len = strlen(s);
        if (n + len >= sizeof buf) {
            over = true;
            return *this;
        }
        memcpy(buf + n, s, len + 1);
        n += len;
        return *this;
    }
    text &addf(const char *fmt, unsigned long long v)
    {
        char tmp[32];
        snprintf(tmp, sizeof tmp, fmt, v);
        return add(tmp);
    }
};

}  // namespace

struct schema_gen {
    xmlDocPtr doc;
    xmlNodePtr root;
    xmlNsPtr ns;
    xmlHashTablePtr names;   // every global type name -> its declaration
    xmlHashTablePtr seen;    // "<letter><address>" of a table -> its type name
    bool failed;
};

namespace {

void refuse_row(schema_gen *g, const struct pdesc *row, const char *why)
{
    KV_LOGF("param_xml_schema", 4, "param_xml_schema: %s %s",
            row != nullptr && row->name != nullptr ? row->name : "(no name)", why);
    g->failed = true;
}

void set(schema_gen *g, xmlNodePtr n, const char *attr, const char *value)
{
    if (n != nullptr && xmlNewProp(n, BAD_CAST attr, BAD_CAST value) == nullptr)
        g->failed = true;
}

void set_num(schema_gen *g, xmlNodePtr n, const char *attr, long long v)
{
    char tmp[32];
    snprintf(tmp, sizeof tmp, "%lld", v);
    set(g, n, attr, tmp);
}

// A global declaration `xs:<tag>` named `name`, or NULL when that name is
// declared already (types of one name have one content here) or on failure.
xmlNodePtr global(schema_gen *g, const char *tag, const char *name)
{
    if (xmlHashLookup(g->names, BAD_CAST name) != nullptr)
        return nullptr;
    xmlNodePtr n = schema_xs(g, g->root, tag, name);
    if (n != nullptr && xmlHashAddEntry(g->names, BAD_CAST name, n) != 0)
        g->failed = true;
    return n;
}

// `base` + "." + `suffix`, then ".2", ".3", ... until no global has it.
bool unique_name(schema_gen *g, char *out, const char *base, const char *suffix)
{
    for (int i = 1; i < 1000; i++) {
        int n = i == 1 ? snprintf(out, kNameLen, "%s.%s", base, suffix)
                       : snprintf(out, kNameLen, "%s.%s.%d", base, suffix, i);
        if (n <= 0 || (size_t)n >= kNameLen)
            return false;
        if (xmlHashLookup(g->names, BAD_CAST out) == nullptr)
            return true;
    }
    return false;
}

// xs:restriction of `base` under a new global simple type; NULL if declared.
xmlNodePtr restriction(schema_gen *g, const char *name, const char *base)
{
    xmlNodePtr r = schema_xs(g, global(g, "simpleType", name), "restriction", nullptr);
    set(g, r, "base", base);
    return r;
}

void facet(schema_gen *g, xmlNodePtr r, const char *what, const char *value)
{
    set(g, schema_xs(g, r, what, nullptr), "value", value);
}

void facet_num(schema_gen *g, xmlNodePtr r, const char *what, long long value)
{
    set_num(g, schema_xs(g, r, what, nullptr), "value", value);
}

// ---- integers ---------------------------------------------------------------

void digit(text &t, unsigned v)
{
    char tmp[8];
    if (v < 10)
        snprintf(tmp, sizeof tmp, "%c", '0' + v);
    else
        snprintf(tmp, sizeof tmp, "[%c%c]", 'a' + v - 10, 'A' + v - 10);
    t.add(tmp);
}

// A character class of the digits lo..hi (lo <= hi), letters in both cases.
void digit_class(text &t, unsigned lo, unsigned hi)
{
    char tmp[32];
    t.add("[");
    if (lo <= 9) {
        unsigned top = hi < 9 ? hi : 9;
        snprintf(tmp, sizeof tmp, lo == top ? "%c" : "%c-%c", '0' + lo, '0' + top);
        t.add(tmp);
    }
    if (hi >= 10) {
        unsigned a = (lo > 10 ? lo : 10) - 10, b = hi - 10;
        if (a == b)
            snprintf(tmp, sizeof tmp, "%c%c", 'a' + a, 'A' + a);
        else
            snprintf(tmp, sizeof tmp, "%c-%c%c-%c", 'a' + a, 'a' + b, 'A' + a, 'A' + b);
        t.add(tmp);
    }
    t.add("]");
}

// Any `n` digits of `base` (n > 0).
void any_digits(text &t, unsigned base, int n)
{
    digit_class(t, 0, base - 1);
    t.addf(n > 1 ? "{%llu}" : "", (unsigned long long)n);
}

// The digit strings in `base`, leading zeros allowed, whose value is at most
// `max`: fewer digits than max has; or max's first i digits, a smaller one
// and any after it; or max's digits up to where only top digits follow, and
// any digits after them.
void digits_at_most(text &t, uint64_t max, unsigned base)
{
    unsigned d[64];
    int len = 0;
    uint64_t v = max;
    do {
        d[len++] = (unsigned)(v % base);
        v /= base;
    } while (v != 0);
    for (int i = 0, j = len - 1; i < j; i++, j--) {  // most significant first
        unsigned s = d[i];
        d[i] = d[j];
        d[j] = s;
    }
    int top_from = len;   // d[top_from..] are all base - 1
    while (top_from > 0 && d[top_from - 1] == base - 1)
        top_from--;
    t.add("0*(");
    if (top_from > 0 && len > 1) {
        digit_class(t, 0, base - 1);
        t.addf(len > 2 ? "{1,%llu}" : "", (unsigned long long)(len - 1));
        t.add("|");
    }
    for (int i = 0; i < top_from; i++) {
        if (d[i] == 0)
            continue;
        for (int k = 0; k < i; k++)
            digit(t, d[k]);
        digit_class(t, 0, d[i] - 1);
        if (len - 1 - i > 0)
            any_digits(t, base, len - 1 - i);
        t.add("|");
    }
    for (int k = 0; k < top_from; k++)
        digit(t, d[k]);
    if (top_from == 0) {
        digit_class(t, 0, base - 1);
        t.addf(len > 1 ? "{1,%llu}" : "", (unsigned long long)len);
    } else if (top_from < len) {
        any_digits(t, base, len - top_from);
    }
    t.add(")");
}

// The values of one width in one numeric form: `lead` is "0[xX]" or "0".
void form_pattern(text &t, const char *lead, unsigned base, uint64_t pos, uint64_t neg)
{
    t.add("\\+?").add(lead);
    digits_at_most(t, pos, base);
    if (neg != 0) {
        t.add("|-").add(lead);
        digits_at_most(t, neg, base);
    }
}

struct int_width {
    size_t size;
    const char *name[2];       // unsigned, signed
};

const int_width kIntWidths[] = {
    {1, {"uint8", "int8"}}, {2, {"uint16", "int16"}}, {4, {"uint32", "int32"}}, {8, {"uint64", "int64"}},
};

// The type of one integer of the row's width, in every form the reader
// reads whole: decimal, hexadecimal, octal, each bounded by the range.
const char *int_item(schema_gen *g, const struct pdesc *row)
{
    const bool s = (row->type & PT_KIND_MASK) == PT_SINT;
    for (const int_width &w : kIntWidths) {
        if (w.size != row->size)
            continue;
        const char *name = w.name[s];
        char member[kNameLen];
        xmlNodePtr u = schema_xs(g, global(g, "simpleType", name), "union", nullptr);
        if (u == nullptr)
            return name;
        const unsigned bits = (unsigned)w.size * 8;
        const uint64_t pos = s ? (UINT64_C(1) << (bits - 1)) - 1 : UINT64_MAX >> (64 - bits);
        const uint64_t neg = s ? UINT64_C(1) << (bits - 1) : 0;
        snprintf(member, sizeof member, "%s.decimal %s.hex %s.octal", name, name, name);
        set(g, u, "memberTypes", member);
        // Decimal: the range as numbers (libxml2's unsigned types refuse a
        // '+' that the reader takes), and no leading zero.
        char bound[32];
        snprintf(member, sizeof member, "%s.decimal", name);
        xmlNodePtr dec = restriction(g, member, "xs:integer");
        facet(g, dec, "pattern", s ? "[+\\-]?(0|[1-9][0-9]*)" : "\\+?(0|[1-9][0-9]*)");
        snprintf(bound, sizeof bound, s ? "-%" PRIu64 : "0", neg);
        facet(g, dec, "minInclusive", bound);
        snprintf(bound, sizeof bound, "%" PRIu64, pos);
        facet(g, dec, "maxInclusive", bound);
        const struct {
            const char *suffix, *lead;
            unsigned base;
        } forms[] = {{"hex", "0[xX]", 16}, {"octal", "0", 8}};
        for (const auto &f : forms) {
            text t;
            form_pattern(t, f.lead, f.base, pos, neg);
            snprintf(member, sizeof member, "%s.%s", name, f.suffix);
            facet(g, restriction(g, member, "xs:string"), "pattern", t.buf);
            g->failed |= t.over;
        }
        return name;
    }
    return nullptr;
}

// The type of one float or double: XML Schema's forms, and the words and
// hexadecimal forms that strtod also reads.
const char *float_item(schema_gen *g, const struct pdesc *row)
{
    if (row->size != 4 && row->size != 8)
        return nullptr;
    const char *name = row->size == 4 ? "float" : "double";
    xmlNodePtr u = schema_xs(g, global(g, "simpleType", name), "union", nullptr);
    set(g, u, "memberTypes", row->size == 4 ? "xs:float real.special" : "xs:double real.special");
    facet(g, restriction(g, "real.special", "xs:string"), "pattern",
          "[+\\-]?([iI][nN][fF]([iI][nN][iI][tT][yY])?|[nN][aA][nN](\\([0-9A-Za-z_]*\\))?|"
          "0[xX]([0-9a-fA-F]+(\\.[0-9a-fA-F]*)?|\\.[0-9a-fA-F]+)([pP][+\\-]?[0-9]+)?)");
    return name;
}

// A list of `item` values, at most `max` of them (max < 0: no bound).
void list_type(schema_gen *g, char *out, const char *item, long long max)
{
    char all[kNameLen];
    snprintf(all, sizeof all, "%s.list", item);
    set(g, schema_xs(g, global(g, "simpleType", all), "list", nullptr), "itemType", item);
    if (max < 0) {
        snprintf(out, kNameLen, "%s", all);
        return;
    }
    snprintf(out, kNameLen, "%s.list.%lld", item, max);
    xmlNodePtr r = restriction(g, out, all);
    if (r != nullptr)
        facet_num(g, r, "maxLength", max);
}

// "idx" as atoi reads it: decimal digits; below `count` (count < 0: any).
void index_type(schema_gen *g, char *out, long long count)
{
    if (count < 0)
        snprintf(out, kNameLen, "index");
    else
        snprintf(out, kNameLen, "index.%lld", count);
    xmlNodePtr r = restriction(g, out, "xs:int");
    if (r == nullptr)
        return;
    facet(g, r, "pattern", "\\+?[0-9]+");
    facet_num(g, r, "minInclusive", 0);
    if (count >= 0)
        facet_num(g, r, "maxInclusive", count - 1);
}

// ---- strings and enumerations ----------------------------------------------

// A text of at most `cap` bytes in UTF-8. XML Schema counts characters, so
// the type is a union over k, the number of characters beyond ASCII (each
// of two bytes at least): at most k of them and at most cap - k characters
// in all. Exact for ASCII and for text whose other characters take two
// bytes (up to U+07FF); never refuses a text that fits; may take a text of
// three- or four-byte characters that is over by a byte for each of them.
void text_type(schema_gen *g, char *out, long long cap)
{
    snprintf(out, kNameLen, "text.%lld", cap);
    xmlNodePtr u = schema_xs(g, global(g, "simpleType", out), "union", nullptr);
    const char *wide = "\xc2\x80-\xf4\x8f\xbf\xbf";   // U+0080 .. U+10FFFF
    for (long long k = 0; u != nullptr && k <= cap / 2; k++) {
        xmlNodePtr r = schema_xs(g, schema_xs(g, u, "simpleType", nullptr), "restriction", nullptr);
        set(g, r, "base", "xs:string");
        text t;
        t.add("[^").add(wide).add("]*");
        if (k > 0)
            t.add("([").add(wide).add("][^").add(wide).add("]*)").addf("{0,%llu}", (unsigned long long)k);
        facet(g, r, "pattern", t.buf);
        facet_num(g, r, "maxLength", cap - k);
    }
}

// The words of the row's enume table, compared byte for byte as the reader
// compares them; an empty table writes empty elements.
bool words_type(schema_gen *g, char *out, const struct pdesc *row)
{
    const struct enume *items = reinterpret_cast<const struct enume *>(row->aux);
    if (items == nullptr)
        return false;
    char key[32];
    snprintf(key, sizeof key, "e%p", (const void *)items);
    const xmlChar *known = static_cast<const xmlChar *>(xmlHashLookup(g->seen, BAD_CAST key));
    if (known != nullptr) {
        snprintf(out, kNameLen, "%s", (const char *)known);
        return true;
    }
    if (!unique_name(g, out, row->name, "words"))
        return false;
    xmlChar *copy = xmlStrdup(BAD_CAST out);
    if (copy == nullptr || xmlHashAddEntry(g->seen, BAD_CAST key, copy) != 0) {
        xmlFree(copy);
        g->failed = true;
    }
    xmlNodePtr r = restriction(g, out, "xs:string");
    for (const struct enume *it = items; it->key != nullptr; it++) {
        const struct enume *first = items;
        while (strcmp(first->key, it->key) != 0)
            first++;
        if (first == it)
            facet(g, r, "enumeration", it->key);
    }
    if (items->key == nullptr)
        facet(g, r, "enumeration", "");
    return true;
}

// ---- elements of a row ---------------------------------------------------------

// <xs:complexType><xs:{simple|complex}Content><xs:extension base=...> with
// an optional "idx" of `idx_type`; returns the extension.
xmlNodePtr extension(schema_gen *g, xmlNodePtr decl, bool simple, const char *base,
                     const char *idx_type)
{
    xmlNodePtr ct = schema_xs(g, decl, "complexType", nullptr);
    xmlNodePtr ext = schema_xs(g, schema_xs(g, ct, simple ? "simpleContent" : "complexContent", nullptr),
                               "extension", nullptr);
    set(g, ext, "base", base);
    set(g, schema_xs(g, ext, "attribute", "idx"), "type", idx_type);
    return ext;
}

// An element of `name` inside `parent`, from min to max times (max < 0:
// unbounded).
xmlNodePtr element(schema_gen *g, xmlNodePtr parent, const char *name, long long max)
{
    xmlNodePtr e = schema_xs(g, parent, "element", name);
    set(g, e, "minOccurs", "0");
    if (max < 0)
        set(g, e, "maxOccurs", "unbounded");
    else if (max != 1)
        set_num(g, e, "maxOccurs", max);
    return e;
}

const char *table_type(schema_gen *g, const char *hint, const struct pdesc *table);
const char *variant_node_type(schema_gen *g, const struct pdesc *row);

// The content of one value element or structure: a list of the row's
// values, or the sub-table's children; "idx" below `capacity` (< 0: any).
void value_content(schema_gen *g, xmlNodePtr decl, const struct pdesc *row, const char *item,
                   long long max_values, long long capacity)
{
    char base[kNameLen], idx[kNameLen];
    index_type(g, idx, capacity);
    if (item != nullptr) {
        list_type(g, base, item, max_values);
        extension(g, decl, true, base, idx);
    } else {
        const char *t = table_type(g, row->name, row->pdesc);
        if (t != nullptr)
            extension(g, decl, false, t, idx);
    }
}

// A counted row: up to `count` wrappers with "cnt" (at least 1) and "idx",
// each holding inner elements of the direct shape, "idx" within the buffer.
void counted(schema_gen *g, xmlNodePtr decl, const struct pdesc *row, const char *item)
{
    char idx[kNameLen];
    xmlNodePtr ct = schema_xs(g, decl, "complexType", nullptr);
    xmlNodePtr inner = element(g, schema_xs(g, ct, "sequence", nullptr), row->name, -1);
    value_content(g, inner, row, item, -1, -1);
    xmlNodePtr cnt = restriction(g, "count", "xs:int");
    if (cnt != nullptr) {
        facet(g, cnt, "pattern", "\\+?[0-9]+");
        facet_num(g, cnt, "minInclusive", 1);
    }
    xmlNodePtr a = schema_xs(g, ct, "attribute", "cnt");
    set(g, a, "type", "count");
    set(g, a, "use", "required");
    index_type(g, idx, row->count);
    set(g, schema_xs(g, ct, "attribute", "idx"), "type", idx);
}

// A list row: up to `count` outer elements with "idx", each holding inner
// elements (nodes) of `node_type`, none of which reads an attribute.
void lists(schema_gen *g, xmlNodePtr decl, const struct pdesc *row, const char *node_type)
{
    char idx[kNameLen];
    xmlNodePtr ct = schema_xs(g, decl, "complexType", nullptr);
    if (node_type != nullptr)
        set(g, element(g, schema_xs(g, ct, "sequence", nullptr), row->name, -1), "type",
            node_type);
    index_type(g, idx, row->count);
    set(g, schema_xs(g, ct, "attribute", "idx"), "type", idx);
}

// The declaration of the elements of one row, appended to `parent`.
void row_element(schema_gen *g, xmlNodePtr parent, const struct pdesc *row)
{
    const int kind = row->type & PT_KIND_MASK;
    const bool cob = row_is_counted(row);
    if (row->count <= 0 && kind != PT_STRI)
        return;  // the writer writes nothing, the reader refuses every element
    xmlNodePtr decl = element(g, parent, row->name, kind == PT_STRI ? 1 : row->count);
    const char *item = nullptr;
    char type[kNameLen];
    switch (kind) {
    case PT_SINT:
    case PT_UINT:
    case PT_FLOT:
        item = kind == PT_FLOT ? float_item(g, row) : int_item(g, row);
        if (item == nullptr) {
            refuse_row(g, row, "has a width the kind doesn't take");
            return;
        }
        if (cob)
            counted(g, decl, row, item);
        else
            value_content(g, decl, row, item, row->count, row->count);
        return;
    case PT_STRU:
    case PT_STRUM:
        if (cob)
            counted(g, decl, row, nullptr);
        else
            value_content(g, decl, row, nullptr, 0, row->count);
        return;
    case PT_STRI: {
        long long cap = (long long)(row->size < (size_t)row->count ? row->size : (size_t)row->count) - 1;
        if (row->count < 1 || cap < 0) {
            refuse_row(g, row, "has no room for a string");
            return;
        }
        text_type(g, type, cap);
        set(g, decl, "type", type);
        return;
    }
    case PT_ENUM: {
        char idx[kNameLen];
        if (!words_type(g, type, row)) {
            refuse_row(g, row, "has no enume table");
            return;
        }
        index_type(g, idx, row->count);
        extension(g, decl, true, type, idx);
        return;
    }
    case PT_LIST:
        lists(g, decl, row, table_type(g, row->name, row->pdesc));
        return;
    case PT_VLST:
        lists(g, decl, row, variant_node_type(g, row));
        return;
    default:
        refuse_row(g, row, "has an unknown kind");
        return;
    }
}

// The global complex type of the children param2xml writes for `table`:
// the rows in table order, each row once (the reader matches the first row
// of a name), named after `hint`, made once per table.
const char *table_type(schema_gen *g, const char *hint, const struct pdesc *table)
{
    if (table == nullptr) {
        KV_LOGF("param_xml_schema", 4, "param_xml_schema: %s has no sub-table", hint);
        g->failed = true;
        return nullptr;
    }
    char key[32], name[kNameLen];
    snprintf(key, sizeof key, "t%p", (const void *)table);
    const void *known = xmlHashLookup(g->seen, BAD_CAST key);
    if (known != nullptr)
        return static_cast<const char *>(known);
    xmlChar *copy = nullptr;
    if (!unique_name(g, name, hint, "fields") || (copy = xmlStrdup(BAD_CAST name)) == nullptr ||
        xmlHashAddEntry(g->seen, BAD_CAST key, copy) != 0) {
        xmlFree(copy);
        g->failed = true;
        return nullptr;
    }
    xmlNodePtr seq = schema_xs(g, global(g, "complexType", name), "sequence", nullptr);
    for (const struct pdesc *row = table; row->type != 0; row++) {
        if (row->name == nullptr) {
            refuse_row(g, row, "row has no name");
            continue;
        }
        const struct pdesc *first = table;
        while (first->name == nullptr || strcmp(first->name, row->name) != 0)
            first++;
        if (first == row)
            row_element(g, seq, row);
    }
    return reinterpret_cast<const char *>(copy);
}

// Whether two rows of one name in different alternatives describe the same
// elements (the format nibble and the count field don't change them).
bool same_elements(const struct pdesc *a, const struct pdesc *b)
{
    const int mask = ~(PT_FMT_MASK | PT_F_CIA);
    return (a->type & mask) == (b->type & mask) && a->count == b->count && a->size == b->size &&
           a->pdesc == b->pdesc && a->aux == b->aux;
}

// The first row named `name` in the alternatives before `end`, or NULL.
const struct pdesc *earlier_row(const struct adesc *alts, const struct adesc *end, const char *name)
{
    for (const struct adesc *alt = alts; alt != end; alt++)
        for (const struct pdesc *r = alt->pdesc; r != nullptr && r->type != 0; r++)
            if (r->name != nullptr && strcmp(r->name, name) == 0)
                return r;
    return nullptr;
}

// A child of a variant node that two alternatives describe differently:
// its declaration in `choice` loses its type and takes any content.
void loosen(schema_gen *g, xmlNodePtr choice, const char *name)
{
    xmlNodePtr decl = choice != nullptr ? choice->children : nullptr;
    for (; decl != nullptr; decl = decl->next) {
        xmlChar *n = xmlGetProp(decl, BAD_CAST "name");
        bool hit = n != nullptr && xmlStrEqual(n, BAD_CAST name);
        xmlFree(n);
        if (hit)
            break;
    }
    if (decl == nullptr) {
        element(g, choice, name, -1);
        return;
    }
    while (decl->children != nullptr) {
        xmlNodePtr c = decl->children;
        xmlUnlinkNode(c);
        xmlFreeNode(c);
    }
    xmlUnsetProp(decl, BAD_CAST "type");
    xmlSetProp(decl, BAD_CAST "maxOccurs", BAD_CAST "unbounded");
}

// The inner element of a variant list: "typ" one of the alternatives' names
// (required: the reader drops a node without it), and the children of every
// alternative in any order. XML Schema 1.0 can't tie the children to "typ";
// a child name that two alternatives describe differently takes any content.
const char *variant_node_type(schema_gen *g, const struct pdesc *row)
{
    const struct adesc *alts = reinterpret_cast<const struct adesc *>(row->aux);
    if (alts == nullptr) {
        refuse_row(g, row, "has no adesc table");
        return nullptr;
    }
    if (alts->name == nullptr)
        return nullptr;  // no alternative: no node is ever written
    char key[32], name[kNameLen], typ[kNameLen];
    snprintf(key, sizeof key, "a%p", (const void *)alts);
    const void *known = xmlHashLookup(g->seen, BAD_CAST key);
    if (known != nullptr)
        return static_cast<const char *>(known);
    xmlChar *copy = nullptr;
    if (!unique_name(g, name, row->name, "node") || (copy = xmlStrdup(BAD_CAST name)) == nullptr ||
        xmlHashAddEntry(g->seen, BAD_CAST key, copy) != 0 || !unique_name(g, typ, row->name, "typ")) {
        if (xmlHashLookup(g->seen, BAD_CAST key) != copy)
            xmlFree(copy);
        g->failed = true;
        return nullptr;
    }
    xmlNodePtr ct = global(g, "complexType", name);
    xmlNodePtr choice = schema_xs(g, ct, "choice", nullptr);
    set(g, choice, "minOccurs", "0");
    set(g, choice, "maxOccurs", "unbounded");
    xmlNodePtr words = restriction(g, typ, "xs:string");
    for (const struct adesc *alt = alts; alt->name != nullptr; alt++) {
        const struct adesc *first = alts;
        while (strcmp(first->name, alt->name) != 0)
            first++;
        if (first == alt)
            facet(g, words, "enumeration", alt->name);
        for (const struct pdesc *r = alt->pdesc; r != nullptr && r->type != 0; r++) {
            if (r->name == nullptr || earlier_row(alt, alt + 1, r->name) != r)
                continue;  // nameless, or not the first of its name here
            const struct pdesc *before = earlier_row(alts, alt, r->name);
            if (before == nullptr)
                row_element(g, choice, r);
            else if (!same_elements(before, r))
                loosen(g, choice, r->name);
        }
    }
    xmlNodePtr a = schema_xs(g, ct, "attribute", "typ");
    set(g, a, "type", typ);
    set(g, a, "use", "required");
    return reinterpret_cast<const char *>(copy);
}

}  // namespace

struct schema_gen *schema_begin(void)
{
    schema_gen *g = static_cast<schema_gen *>(xmlMalloc(sizeof(schema_gen)));
    if (g == nullptr) {
        KV_LOGF("param_xml_schema", 4, "param_xml_schema: out of memory");
        return nullptr;
    }
    g->failed = false;
    g->doc = xmlNewDoc(BAD_CAST "1.0");
    g->root = g->doc != nullptr ? xmlNewDocNode(g->doc, nullptr, BAD_CAST "schema", nullptr) : nullptr;
    g->ns = g->root != nullptr ? xmlNewNs(g->root, BAD_CAST kXsNs, BAD_CAST "xs") : nullptr;
    g->names = xmlHashCreate(64);
    g->seen = xmlHashCreate(16);
    if (g->root != nullptr)
        xmlDocSetRootElement(g->doc, g->root);
    if (g->ns == nullptr || g->names == nullptr || g->seen == nullptr) {
        g->failed = true;
        xmlFreeDoc(schema_end(g));
        KV_LOGF("param_xml_schema", 4, "param_xml_schema: out of memory");
        return nullptr;
    }
    xmlSetNs(g->root, g->ns);
    return g;
}

xmlNodePtr schema_root(struct schema_gen *g)
{
    return g->root;
}

xmlNodePtr schema_xs(struct schema_gen *g, xmlNodePtr parent, const char *tag, const char *name)
{
    if (parent == nullptr)
        return nullptr;
    xmlNodePtr n = xmlNewChild(parent, g->ns, BAD_CAST tag, nullptr);
    if (n == nullptr || n->name == nullptr) {
        g->failed = true;
        return nullptr;
    }
    if (name != nullptr)
        set(g, n, "name", name);
    return n;
}

void schema_table_element(struct schema_gen *g, xmlNodePtr decl, const char *hint,
                          const struct pdesc *table)
{
    const char *type = table_type(g, hint, table);
    if (type != nullptr)
        set(g, decl, "type", type);
}

xmlDocPtr schema_end(struct schema_gen *g)
{
    xmlDocPtr doc = g->doc;
    if (g->failed) {
        xmlFreeDoc(doc);
        doc = nullptr;
    }
    xmlHashFree(g->names, nullptr);
    xmlHashFree(g->seen, xmlHashDefaultDeallocator);
    xmlFree(g);
    return doc;
}

extern "C" xmlDocPtr param_xml_schema(const char *name, const struct pdesc *table)
{
    if (name == nullptr || table == nullptr || xmlValidateNCName(BAD_CAST name, 0) != 0) {
        KV_LOGF("param_xml_schema", 4, "param_xml_schema: no table or no element name (%s)",
                name != nullptr ? name : "(null)");
        return nullptr;
    }
    schema_gen *g = schema_begin();
    if (g == nullptr)
        return nullptr;
    schema_table_element(g, schema_xs(g, g->root, "element", name), name, table);
    return schema_end(g);
}
