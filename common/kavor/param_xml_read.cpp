// param_xml_read.cpp - elements to memory: xml2param, the reader handler of
// every kind, the per-element functions that store one element into an
// array, and what only the reader needs (the "idx" rule, count fields, node
// content, the allocation limit).
//
// Invariant: nothing is ever stored outside the array, buffer or node it is
// meant for: every position is checked against [0, capacity) before use, a
// buffer is allocated for exactly the count its entry then holds, and a list
// node is at least a znode. The reader clears nothing but the buffers and
// nodes it allocates (so no pointer in them is ever garbage); what a
// document doesn't reach in the caller's memory keeps what it held.
//
// Flow: xml2param -> the handler of the matched row's kind: xml2stri,
// xml2enum, xml2lists (PT_LIST, PT_VLST), or xml2array (the five array
// kinds, named in the trace as xml2sint ... xml2struM) -> direct:
// node2<kind> with the row's ioa; counted: each element is a wrapper whose
// "cnt" sizes a new buffer, filled by node2<kind> with the row's iob;
// structures and list nodes go back into xml2param. The recursion stays in
// this file; of the codec it uses only param_xml.cpp.
#include <cctype>
#include <cerrno>
#include <cmath>
#include <limits>
#include <cinttypes>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "param_xml_number.h"
#include "param_xml_private.h"
#include "xml_trace.h"

namespace {

// Bytes the reader may still allocate on this thread (param_xml_read_limit).
thread_local size_t t_alloc_left = SIZE_MAX;

// Takes `bytes` from this thread's limit; false when they aren't left.
bool take_alloc(size_t bytes)
{
    if (t_alloc_left == SIZE_MAX)
        return true;
    if (bytes > t_alloc_left)
        return false;
    t_alloc_left -= bytes;
    return true;
}

// ---- the report of a walk (xml2param_report, a load of the file manager) -------

const xmlChar *const kNoAttr[] = {nullptr};
const xmlChar *const kIdxAttr[] = {BAD_CAST "idx", nullptr};
const xmlChar *const kWrapperAttr[] = {BAD_CAST "idx", BAD_CAST "cnt", nullptr};
const xmlChar *const kTypAttr[] = {BAD_CAST "typ", nullptr};

// Counts, in the walk's report, each attribute of `elem` whose name isn't in
// `allowed` (a NULL-ended list).
void report_attrs(param_xml_report_t *rep, const xmlNode *elem, const xmlChar *const *allowed)
{
    if (elem->type != XML_ELEMENT_NODE)
        return;
    for (const xmlAttr *a = elem->properties; a; a = a->next) {
        const xmlChar *const *ok = allowed;
        while (*ok && !xmlStrEqual(*ok, a->name))
            ok++;
        if (!*ok)
            report_case(&rep->unknown, reinterpret_cast<const xmlNode *>(a), nullptr);
    }
}

// A child of a wrapper or of a list's outer element: an inner element
// (`inner`) has its attributes checked against `allowed`, any other element
// counts as unknown. Nothing without a report.
void report_inner(const xmlNode *child, bool inner, const xmlChar *const *allowed)
{
    param_xml_report_t *rep = walk_report();
    if (!rep)
        return;
    if (inner)
        report_attrs(rep, child, allowed);
    else if (child->type == XML_ELEMENT_NODE)
        report_case(&rep->unknown, child, nullptr);
}

// The attributes that the reader of `row` reads on its elements.
const xmlChar *const *attrs_read(const struct pdesc *row)
{
    if ((row->type & PT_KIND_MASK) == PT_STRI)
        return kNoAttr;
    return row_is_counted(row) ? kWrapperAttr : kIdxAttr;
}

// Rows that matched an element in one walk, for the report of missing rows:
// a bit per row for the first kRowBits rows, a search for the others.
const int kRowBits = 256;
struct matched_rows {
    uint64_t bits[kRowBits / 64];
};

bool row_has_element(const xmlNode *xnode, const struct pdesc *row)
{
    for (const xmlNode *c = xnode->children; c; c = c->next)
        if (xmlStrEqual(c->name, BAD_CAST row->name))
            return true;
    return false;
}

// Reports each named row of the table that no child of `xnode` matched.
void report_missing(param_xml_report_t *rep, const xmlNode *xnode, const struct pdesc *pdesc,
                    const matched_rows &seen)
{
    int i = 0;
    for (const struct pdesc *row = pdesc; row->type != 0; row++, i++) {
        bool found = i < kRowBits ? (seen.bits[i / 64] >> (i % 64)) & 1 : row_has_element(xnode, row);
        if (row->name && !found)
            report_case(&rep->missing, xnode, row->name);
    }
}

// Notes what the reader does with one child of a walked element: an element
// no row knows, or attributes the row's kind doesn't read.
void report_child(param_xml_report_t *rep, const xmlNode *child, const struct pdesc *pdesc,
                  const struct pdesc *row, matched_rows &seen)
{
    if (!row) {
        if (child->type == XML_ELEMENT_NODE)
            report_case(&rep->unknown, child, nullptr);
        return;
    }
    long i = row - pdesc;
    if (i < kRowBits)
        seen.bits[i / 64] |= uint64_t(1) << (i % 64);
    report_attrs(rep, child, attrs_read(row));
}

// ---- what every kind's reader shares ------------------------------------------

// With a count field, stores `ioa` into the int at `aoffset`.
void store_count_field(void *mem_base, const struct pdesc *pdesc)
{
    if (row_has_count_field(pdesc))
        store_int(at(mem_base, pdesc->aoffset), pdesc->ioa);
}

// False when xmlGetProp would surely find nothing: no attribute on the
// element and no DTD that could give it a default. Saves an allocation on
// most elements of a document.
bool may_have_attr(const xmlNode *xnode)
{
    return xnode->properties || (xnode->doc && (xnode->doc->intSubset || xnode->doc->extSubset));
}

// The "idx" rule of every reader: an "idx" attribute sets *idx (atoi); then
// *idx must lie in [0, count). Refusals are told at level 5 as
// "<text>: <name> idx(%d) >= count(%d), ignore", or for a negative index
// "<text>: <name> idx(%d) < 0, ignore". A negative index leaves *idx as it
// was before the element, so it never addresses memory in front of the
// array and never shrinks a count field. Returns true when accepted.
bool take_index(xmlNode *xnode, const char *func, const char *text, const char *name,
                int count, int *idx)
{
    int v = *idx;
    xmlChar *xIdx = may_have_attr(xnode) ? xmlGetProp(xnode, xStrIdx) : nullptr;
    if (xIdx) {
        v = std::atoi(reinterpret_cast<const char *>(xIdx));
        xmlFree(xIdx);
    }
    if (v < 0 || v >= count) {
        if (param_xml_report_t *rep = walk_report())
            report_case(&rep->over_capacity, xnode, nullptr);
    }
    if (v < 0) {
        KV_LOGF(func, 5, "%s: %s idx(%d) < 0, ignore", text, name, v);
        return false;
    }
    *idx = v;
    if (v >= count) {
        KV_LOGF(func, 5, "%s: %s idx(%d) >= count(%d), ignore", text, name, v, count);
        return false;
    }
    return true;
}

// ---- numbers ---------------------------------------------------------------

// Text of the values stored, per width and signedness.
template <typename T>
void trace_int(const char *func, int idx, T v)
{
    if (std::is_signed<T>::value) {
        if (sizeof(T) == 8)
            KV_LOGF(func, 8, "%s[%d]: %lld", func, idx, static_cast<long long>(v));
        else
            KV_LOGF(func, 8, "%s[%d]: %d", func, idx, static_cast<int>(v));
    } else {
        if (sizeof(T) == 8)
            KV_LOGF(func, 8, "%s[%d]: 0x%llX", func, idx, static_cast<unsigned long long>(v));
        else
            KV_LOGF(func, 8, "%s[%d]: 0x%X", func, idx, static_cast<unsigned>(v));
    }
}

// Whether `bits`, read from the text at `p` (range_err: beyond 64 bits),
// lies outside the range of T, so that storing it narrows it.
template <typename T>
bool out_of_range(const char *p, uintmax_t bits, bool range_err)
{
    if (range_err)
        return true;
    if (std::is_signed<T>::value) {
        intmax_t v = static_cast<intmax_t>(bits);
        return v < std::numeric_limits<T>::min() || v > std::numeric_limits<T>::max();
    }
    while (std::isspace(static_cast<unsigned char>(*p)))
        p++;
    return (*p == '-' && bits != 0) || bits > std::numeric_limits<T>::max();
}

// What the rest of an element's text, behind the last value stored, tells
// the report: more values than room (`full`), or text that is no number.
void report_rest(param_xml_report_t *rep, const char *p, const xmlNode *xnode, bool full)
{
    while (std::isspace(static_cast<unsigned char>(*p)))
        p++;
    if (*p)
        report_case(full ? &rep->over_capacity : &rep->not_number, xnode, nullptr);
}

// Stores the value at *mem, moves *mem past it and counts it at *idx.
template <typename T>
void store_next(char **mem, T data, int *idx)
{
    std::memcpy(*mem, &data, sizeof data);
    *mem += sizeof data;
    (*idx)++;
}

// Converts the values of `ctnt` one by one into the array at `mem`, from
// *idx while *idx < count; stops at the first text that is no number.
template <typename T>
void parse_ints(const char *ctnt, char *mem, int count, int *idx, const char *func,
                const xmlNode *xnode)
{
    const char *p = ctnt;
    char *the_mem = mem + sizeof(T) * static_cast<size_t>(*idx);
    const bool traced = vorn_trace_enabled(param_xml_trace_h, 8);  // once per element
    param_xml_report_t *rep = walk_report();
    while (*idx < count) {
        char *endp;
        if (rep)
            errno = 0;
        uintmax_t bits = param_xml_number::parse<std::is_signed<T>::value>(p, &endp);
        if (endp == p)
            break;
        T data = static_cast<T>(bits);
        if (rep && out_of_range<T>(p, bits, errno == ERANGE))
            report_case(&rep->narrowed, xnode, nullptr);
        if (traced)
            trace_int<T>(func, *idx, data);
        store_next(&the_mem, data, idx);
        p = endp;
    }
    if (rep)
        report_rest(rep, p, xnode, *idx >= count);
}

// An infinity that the text at `p` doesn't spell out came from a number
// beyond the range of T.
bool spelled_infinity(const char *p)
{
    while (std::isspace(static_cast<unsigned char>(*p)))
        p++;
    if (*p == '+' || *p == '-')
        p++;
    return *p == 'i' || *p == 'I';
}

// With exact floats a float's text is read straight to float (strtof), not
// rounded twice through double.
template <typename T>
void parse_floats(const char *ctnt, char *mem, int count, int *idx, const char *func,
                  const xmlNode *xnode)
{
    const char *p = ctnt;
    char *the_mem = mem + sizeof(T) * static_cast<size_t>(*idx);
    const int prec = sizeof(T) == 4 ? 7 : 16;
    const bool traced = vorn_trace_enabled(param_xml_trace_h, 8);  // once per element
    const bool exact = (walk_options() & PARAM_XML_EXACT_FLOATS) != 0;
    param_xml_report_t *rep = walk_report();
    while (*idx < count) {
        char *endp;
        T data = exact && sizeof(T) == 4 ? static_cast<T>(std::strtof(p, &endp))
                                         : static_cast<T>(std::strtod(p, &endp));
        if (endp == p)
            break;
        if (rep && std::isinf(data) && !spelled_infinity(p))
            report_case(&rep->narrowed, xnode, nullptr);
        if (traced)
            KV_LOGF(func, 8, "%s[%d]: %.*e", func, *idx, prec, static_cast<double>(data));
        store_next(&the_mem, data, idx);
        p = endp;
    }
    if (rep)
        report_rest(rep, p, xnode, *idx >= count);
}

typedef void (*parse_fn)(const char *ctnt, char *mem, int count, int *idx, const char *func,
                         const xmlNode *xnode);

// One element of numbers into the array: the "idx" rule, the content, the
// values. `parse` is NULL for a width the kind doesn't support.
int node2numbers(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count, int *idx,
                 const char *func, parse_fn parse)
{
    if (!take_index(xnode, func, func, pdesc->name, count, idx))
        return -1;
    xmlChar *ctnt = node_content(xnode);
    if (!ctnt) {
        KV_LOGF(func, 4, "%s: %s no content", func, pdesc->name);
        return -1;
    }
    if (parse)
        parse(reinterpret_cast<const char *>(ctnt), static_cast<char *>(mem), count, idx, func,
              xnode);
    else
        KV_LOGF(func, 4, "%s: %s bad data size(%zu)", func, pdesc->name, pdesc->size);
    xmlFree(ctnt);
    return 0;
}

template <bool Signed>
parse_fn int_parser(size_t size)
{
    switch (size) {
    case 1: return Signed ? parse_ints<int8_t> : parse_ints<uint8_t>;
    case 2: return Signed ? parse_ints<int16_t> : parse_ints<uint16_t>;
    case 4: return Signed ? parse_ints<int32_t> : parse_ints<uint32_t>;
    case 8: return Signed ? parse_ints<int64_t> : parse_ints<uint64_t>;
    default: return nullptr;
    }
}

// ---- lists -----------------------------------------------------------------

typedef void (*node_reader)(zhead_t *head, xmlNode *child, struct pdesc *pdesc);

// A zeroed node of `size` bytes pushed on the list, or NULL (reported).
void *new_list_node(zhead_t *head, size_t size, const char *name_of_type, const char *func,
                    const char *row_name)
{
    if (size < sizeof(struct znode)) {
        KV_LOGF(func, 4, "%s: %s bad node size(%zu)", func, row_name, size);
        return nullptr;
    }
    if (!take_alloc(size)) {
        KV_LOGF(func, 4, "%s: %s node over the reader's limit", func, row_name);
        return nullptr;
    }
    void *node = xmlMalloc(size);
    if (!node) {
        KV_LOGF(func, 4, "%s: %s malloc znode failed", func, row_name);
        return nullptr;
    }
    std::memset(node, 0, size);
    if (name_of_type)
        zlst_set_name(node, name_of_type);
    zlst_push(head, node);
    return node;
}

void xml2list_node(zhead_t *head, xmlNode *child, struct pdesc *pdesc)
{
    void *node = new_list_node(head, pdesc->size, nullptr, "xml2list", pdesc->name);
    if (node)
        xml2param(node, child, pdesc->pdesc);
}

void xml2vlst_node(zhead_t *head, xmlNode *child, struct pdesc *pdesc)
{
    xmlChar *type_name = xmlGetProp(child, xStrTyp);
    if (!type_name) {
        report_inner(child, false, nullptr);
        KV_LOGF("xml2vlst", 4, "xml2vlst: %s type name", pdesc->name);
        return;
    }
    const struct adesc *table = reinterpret_cast<const struct adesc *>(pdesc->aux);
    if (!table) {
        KV_LOGF("xml2vlst", 4, "xml2vlst: %s bad adesc", pdesc->name);
        xmlFree(type_name);
        return;
    }
    const struct adesc *alt = find_alternative(table, reinterpret_cast<const char *>(type_name));
    xmlFree(type_name);
    if (!alt) {
        report_inner(child, false, nullptr);
        return;
    }
    void *node = new_list_node(head, alt->size, alt->name, "xml2vlst", pdesc->name);
    if (node && alt->pdesc)
        xml2param(node, child, alt->pdesc);
}

// The reader handler of PT_LIST and PT_VLST. One outer element: the "idx"
// rule picks the head, which must be empty; each inner element of the row's
// name becomes a node.
int xml2lists(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    const struct kind_info *k = kind_info_of(pdesc->type);
    const char *func = k->reader;
    node_reader read_node = k->table == KT_ADESC ? xml2vlst_node : xml2list_node;
    char *mem = at(mem_base, pdesc->offset);
    KV_LOGF(func, 8, "%s: %s", func, pdesc->name);
    if (!take_index(xnode, func, func, pdesc->name, pdesc->count, &pdesc->ioa))
        return -1;
    zhead_t *head = reinterpret_cast<zhead_t *>(mem + sizeof(zhead_t) * static_cast<size_t>(pdesc->ioa));
    KV_LOGF(func, 8, "%s[%d]:", func, pdesc->ioa);
    pdesc->ioa++;
    if (*head) {
        KV_LOGF(func, 4, "%s: %s not an empty list", func, pdesc->name);
        return -1;
    }
    const xmlChar *const *attrs = k->table == KT_ADESC ? kTypAttr : kNoAttr;
    for (xmlNode *child = xnode->children; child; child = child->next) {
        bool inner = xmlStrEqual(child->name, BAD_CAST pdesc->name);
        report_inner(child, inner, attrs);
        if (inner)
            read_node(head, child, pdesc);
    }
    store_count_field(mem_base, pdesc);
    return 0;
}

// ---- per-element functions ---------------------------------------------------

typedef int (*from_node_fn)(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count, int *idx);

int node2sint(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count, int *idx)
{
    return node2numbers(mem, xnode, pdesc, count, idx, "node2sint", int_parser<true>(pdesc->size));
}

int node2uint(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count, int *idx)
{
    return node2numbers(mem, xnode, pdesc, count, idx, "node2uint", int_parser<false>(pdesc->size));
}

int node2flot(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count, int *idx)
{
    parse_fn parse = pdesc->size == 4 ? parse_floats<float>
                   : pdesc->size == 8 ? parse_floats<double> : nullptr;
    return node2numbers(mem, xnode, pdesc, count, idx, "node2flot", parse);
}

int node2stru(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count, int *idx)
{
    if (!take_index(xnode, "node2stru", "node2stru", pdesc->name, count, idx))
        return -1;
    char *the_mem = static_cast<char *>(mem) + pdesc->size * static_cast<size_t>(*idx);
    KV_LOG(8, "node2stru[%d]:", *idx);
    (*idx)++;
    xml2param(the_mem, xnode, pdesc->pdesc);
    return 0;
}

// ---- the array frame: direct and counted mode --------------------------------

// The reader's half of the kinds table: the per-element function of each
// kind that shares the array frame, by kind code. The rest of what a kind
// takes, its handler's name included, is in kKindInfo.
const from_node_fn kFromNode[16] = {nullptr, node2sint, node2uint, node2flot, nullptr,
                                    nullptr, node2stru, nullptr,   nullptr,   node2stru};

// Element count of a new buffer from its "cnt"; false (with a message) for a
// count that can't size a buffer of that many elements.
bool buffer_count_ok(int entry, const struct pdesc *pdesc, const kind_info *k)
{
    if (entry < 0 || pdesc->size == 0 ||
        static_cast<size_t>(entry) > SIZE_MAX / pdesc->size) {
        KV_LOGF(k->reader, 4, "%s: %s bad count of buffer(%d)", k->reader_text, pdesc->name, entry);
        return false;
    }
    return true;
}

// One wrapper: its "cnt" sizes a new buffer at entry ioa, its inner elements
// of the row's name fill it through the kind's per-element function.
int xml2cob(void *mem_base, xmlNode *xnode, struct pdesc *pdesc, const kind_info *k)
{
    if (!take_index(xnode, k->reader, k->reader_text, pdesc->name, pdesc->count, &pdesc->ioa))
        return -1;
    char *cob_entry = at(mem_base, pdesc->boffset + sizeof(int) * static_cast<size_t>(pdesc->ioa));
    char *ptr_entry = at(mem_base, pdesc->offset + sizeof(void *) * static_cast<size_t>(pdesc->ioa));
    xmlChar *cnt = xmlGetProp(xnode, xStrCnt);
    if (!cnt) {
        KV_LOGF(k->reader, 4, "%s: %s no count of buffer", k->reader_text, pdesc->name);
        return -1;
    }
    int entry = std::atoi(reinterpret_cast<const char *>(cnt));
    xmlFree(cnt);
    if (entry != 0 && !buffer_count_ok(entry, pdesc, k)) {
        store_int(cob_entry, 0);  // the entry then says: no buffer
        return -1;
    }
    if (entry != 0 && !take_alloc(static_cast<size_t>(entry) * pdesc->size)) {
        KV_LOGF(k->reader, 4, "%s: %s count of buffer(%d) over the reader's limit", k->reader_text,
                pdesc->name, entry);
        store_int(cob_entry, 0);
        return -1;
    }
    store_int(cob_entry, entry);
    if (entry == 0) {
        KV_LOGF(k->reader, 4, "%s: %s count of buffer is zero", k->reader_text, pdesc->name);
        return -1;
    }
    KV_LOGF(k->reader, 8, "%s: xmlMalloc: %d * %zu", k->reader_text, entry, pdesc->size);
    void *buf = xmlMalloc(static_cast<size_t>(entry) * pdesc->size);
    store_ptr(ptr_entry, buf);
    if (!buf) {
        KV_LOGF(k->reader, 4, "%s: %s malloc failed", k->reader_text, pdesc->name);
        return -1;
    }
    // Zeroed: structures in it may hold list heads and buffer pointers that no
    // element reaches, and the writer and param_xml_free follow those.
    std::memset(buf, 0, static_cast<size_t>(entry) * pdesc->size);
    pdesc->iob = 0;
    for (xmlNode *child = xnode->children; child; child = child->next) {
        bool inner = xmlStrEqual(child->name, BAD_CAST pdesc->name);
        report_inner(child, inner, kIdxAttr);
        if (!inner)
            continue;
        KV_LOGF(k->reader, 8, "%s: cob %d", k->reader_text, entry);
        kFromNode[kind_code(pdesc->type)](buf, child, pdesc, entry, &pdesc->iob);
    }
    pdesc->ioa++;
    store_count_field(mem_base, pdesc);
    return 0;
}

// The reader handler of PT_SINT, PT_UINT, PT_FLOT, PT_STRU and PT_STRUM.
int xml2array(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    const struct kind_info *k = kind_info_of(pdesc->type);
    KV_LOGF(k->reader, 8, "%s: %s", k->reader_text, pdesc->name);
    if (row_is_counted(pdesc))
        return xml2cob(mem_base, xnode, pdesc, k);
    KV_LOGF(k->reader, 8, "%s: cia %d", k->reader_text, pdesc->count);
    void *mem = at(mem_base, pdesc->offset);
    if (k->memory == KM_POINTER) {
        mem = load_ptr(mem);
        if (!mem) {
            KV_LOGF(k->reader, 4, "%s: %s null pointer, ignore", k->reader_text, pdesc->name);
            return -1;
        }
    }
    int ret = kFromNode[kind_code(pdesc->type)](mem, xnode, pdesc, pdesc->count, &pdesc->ioa);
    store_count_field(mem_base, pdesc);
    return ret;
}

// ---- handlers ----------------------------------------------------------------

int xml2stri(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    char *mem = at(mem_base, pdesc->offset);
    KV_LOG(8, "xml2stri: %s", pdesc->name);
    xmlChar *ctnt = node_content(xnode);
    if (!ctnt) {
        KV_LOG(4, "xml2stri: %s no content", pdesc->name);
        return -1;
    }
    size_t len = static_cast<size_t>(xmlStrlen(ctnt)) + 1;
    if (len > pdesc->size)
        if (param_xml_report_t *rep = walk_report())
            report_case(&rep->over_capacity, xnode, nullptr);
    std::memcpy(mem, ctnt, len < pdesc->size ? len : pdesc->size);
    xmlFree(ctnt);
    // The stored text may lack its terminator: print at most `size` bytes.
    int shown_len = pdesc->size < static_cast<size_t>(INT_MAX) ? static_cast<int>(pdesc->size) : INT_MAX;
    KV_LOG(8, "xml2stri: %.*s", shown_len, mem);
    return 0;
}

int xml2enum(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    char *mem = at(mem_base, pdesc->offset);
    const struct enume *table = reinterpret_cast<const struct enume *>(pdesc->aux);
    KV_LOG(8, "xml2enum: %s", pdesc->name);
    if (!enum_size_ok(pdesc, "xml2enum"))  // each value is stored as a whole int
        return -1;
    if (!take_index(xnode, "xml2enum", "xml2enum", pdesc->name, pdesc->count, &pdesc->ioa))
        return -1;
    char *the_mem = mem + pdesc->size * static_cast<size_t>(pdesc->ioa);
    xmlChar *ctnt = node_content(xnode);
    if (!ctnt) {
        KV_LOG(4, "xml2enum: %s no content", pdesc->name);
        return -1;
    }
    const struct enume *item = table;
    while (item->key && !xmlStrEqual(BAD_CAST item->key, ctnt))
        item++;
    xmlFree(ctnt);
    if (!item->key)
        if (param_xml_report_t *rep = walk_report())
            report_case(&rep->unknown_word, xnode, nullptr);
    store_int(the_mem, item->value);
    KV_LOG(8, "xml2enum[%d]: %d(\"%s\")", pdesc->ioa, item->value, text_or_null(item->key));
    pdesc->ioa++;
    return 0;
}

// The first row of `pdesc` named `name`, or NULL when none is.
struct pdesc *row_named(struct pdesc *pdesc, const xmlChar *name)
{
    for (struct pdesc *row = pdesc; row->type != 0; row++)
        if (row->name && xmlStrEqual(name, BAD_CAST row->name))
            return row;
    return nullptr;
}

}  // namespace

size_t param_xml_read_limit(size_t bytes)
{
    size_t before = t_alloc_left;
    t_alloc_left = bytes;
    return before;
}

xmlChar *node_content(xmlNode *node)
{
    if (node->type != XML_ELEMENT_NODE)  // a text node, a comment: one piece
        return xmlNodeGetContent(node);
    size_t len = 0;
    // Two walks of the subtree in document order: count, then copy.
    for (int pass = 0; pass < 2; pass++) {
        xmlChar *out = nullptr;
        if (pass == 1) {
            out = static_cast<xmlChar *>(xmlMalloc(len + 1));
            if (!out)
                return nullptr;
        }
        size_t at_byte = 0;
        xmlNode *cur = node->children;
        while (cur) {
            if (cur->type == XML_ENTITY_REF_NODE) {
                xmlFree(out);
                return xmlNodeGetContent(node);
            }
            if ((cur->type == XML_TEXT_NODE || cur->type == XML_CDATA_SECTION_NODE) && cur->content) {
                size_t n = std::strlen(reinterpret_cast<const char *>(cur->content));
                if (out)
                    std::memcpy(out + at_byte, cur->content, n);
                at_byte += n;
            }
            if (cur->type == XML_ELEMENT_NODE && cur->children) {
                cur = cur->children;
                continue;
            }
            while (cur != node && !cur->next)
                cur = cur->parent;
            cur = cur == node ? nullptr : cur->next;
        }
        if (out) {
            out[at_byte] = '\0';
            return out;
        }
        len = at_byte;
    }
    return nullptr;
}

// ---- the frame ----------------------------------------------------------------

// Invariant: a table ends at its first row whose type is 0; nothing of that
// row or of any row behind it is read or written. A row without a name
// matches no element.
extern "C" int xml2param(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    for (struct pdesc *row = pdesc; row->type != 0; row++)
        row->ioa = 0;
    param_xml_report_t *rep = walk_report();
    matched_rows seen = {};
    for (xmlNode *child = xnode->children; child; child = child->next) {
        struct pdesc *row = row_named(pdesc, child->name);
        if (rep)
            report_child(rep, child, pdesc, row, seen);
        if (!row) {
            if (!xmlStrEqual(child->name, BAD_CAST "text"))
                KV_LOG(5, "no mark in param is \"%s\"",
                       text_or_null(reinterpret_cast<const char *>(child->name)));
            continue;
        }
        switch (row->type & PT_KIND_MASK) {
        case PT_SINT: case PT_UINT: case PT_FLOT: case PT_STRU: case PT_STRUM:
            xml2array(mem_base, child, row);
            break;
        case PT_STRI: xml2stri(mem_base, child, row); break;
        case PT_ENUM: xml2enum(mem_base, child, row); break;
        case PT_LIST: case PT_VLST: xml2lists(mem_base, child, row); break;
        default:
            KV_LOG(4, "xml2param: %s bad type(0x%X)", row->name, static_cast<unsigned>(row->type));
            break;
        }
    }
    if (rep)
        report_missing(rep, xnode, pdesc, seen);
    return 0;
}

extern "C" int xml2param_report(void *mem_base, xmlNode *xnode, struct pdesc *pdesc,
                                uint32_t options, param_xml_report_t *report)
{
    if (report)
        std::memset(report, 0, sizeof *report);
    struct param_xml_walk w;
    param_xml_walk_begin(&w, options, report);
    xml2param(mem_base, xnode, pdesc);
    param_xml_walk_end(&w);
    return 0;
}
