// param_xml_write.cpp - memory to elements: param2xml, the writer handler of
// every kind, the per-element functions that turn one array into elements,
// and what only the writer needs (number texts, new elements, attributes,
// text nodes, text made fit for XML).
//
// Invariant: an element joins the tree only when it is complete (name,
// attributes, content, children); an element that can't be completed is
// freed, reported, and ends its row, so the document never holds a half-made
// element whose values a reader would put in the wrong place. Each element
// not made for want of memory is counted (walk_note_dropped) so that the
// file manager's build writes no document that lacks it. The writer
// reads the block and the lists; its only store is the 0 byte that ends each
// string field. Text taken from memory (strings, enumeration keys, "typ")
// passes xml_fit_text first: valid UTF-8 of XML characters goes out byte for
// byte, any other byte as '?' with a level-5 record, so one bad string never
// makes the strict parser refuse the whole file.
//
// Flow: param2xml -> the handler of the row's kind: stri2xml, enum2xml,
// lists2xml (PT_LIST, PT_VLST), or array2xml (the five array kinds, named in
// the trace as sint2xml ... struM2xml) -> direct: <kind>2node, counted: one
// "cnt" wrapper per buffer, each filled by <kind>2node; structures and list
// nodes go back into param2xml. The recursion stays in this file; of the
// codec it uses only param_xml.cpp.
#include <cstdio>
#include <cstring>
#include <type_traits>

#include "param_xml_private.h"
#include "xml_trace.h"

namespace {

constexpr size_t kContentLen = 512;

// ---- integers: digits by hand ------------------------------------------------

const char kLowerDigits[] = "0123456789abcdef";
const char kUpperDigits[] = "0123456789ABCDEF";

// Writes the digits of `v` in Base at p, most significant first: produced
// least significant first into data_str, then copied in reverse.
template <unsigned Base, bool Upper, typename U>
inline char *put_magnitude(char *p, U v)
{
    const char *digits = Upper ? kUpperDigits : kLowerDigits;
    char data_str[20];
    int data_str_idx = 0;
    do {
        data_str[data_str_idx++] = digits[v % Base];
        v = static_cast<U>(v / Base);
    } while (v != 0 && data_str_idx < 20);
    while (data_str_idx > 0)
        *p++ = data_str[--data_str_idx];
    return p;
}

template <typename T, unsigned Base, bool Upper>
inline char *put_value(char *p, T v)
{
    using U = typename std::make_unsigned<T>::type;
    U mag = static_cast<U>(v);
    if (std::is_signed<T>::value && v < 0) {
        *p++ = '-';
        mag = static_cast<U>(0u - mag);  // the lowest value's magnitude fits U
    }
    if (Base == 16) {
        *p++ = '0';
        *p++ = 'x';
    }
    return put_magnitude<Base, Upper>(p, mag);
}

// Values [from, to) of the array at mem, one blank between two; returns the
// end of the text (not terminated).
typedef char *(*group_fn)(char *p, const char *mem, int from, int to);

template <typename T, unsigned Base, bool Upper>
char *put_group(char *p, const char *mem, int from, int to)
{
    for (int i = from; i < to; i++) {
        if (i != from)
            *p++ = ' ';
        T v;
        std::memcpy(&v, mem + static_cast<size_t>(i) * sizeof(T), sizeof v);
        p = put_value<T, Base, Upper>(p, v);
    }
    return p;
}

template <typename T>
group_fn int_formatter(int fmt)
{
    if (std::is_signed<T>::value)
        return put_group<T, 10, false>;
    switch (fmt) {
    case PT_FMT_HEXL: return put_group<T, 16, false>;
    case PT_FMT_HEXU: return put_group<T, 16, true>;
    default: return put_group<T, 10, false>;
    }
}

// Values per element of a width, with its formatter in *fn; 0 and NULL for
// an unsupported width.
int int_group_size(size_t size, bool is_signed, int fmt, group_fn *fn)
{
    switch (size) {
    case 1: *fn = is_signed ? int_formatter<int8_t>(fmt) : int_formatter<uint8_t>(fmt); return 16;
    case 2: *fn = is_signed ? int_formatter<int16_t>(fmt) : int_formatter<uint16_t>(fmt); return 16;
    case 4: *fn = is_signed ? int_formatter<int32_t>(fmt) : int_formatter<uint32_t>(fmt); return 8;
    case 8: *fn = is_signed ? int_formatter<int64_t>(fmt) : int_formatter<uint64_t>(fmt); return 4;
    default: *fn = nullptr; return 0;
    }
}

// ---- floating point: one "%.*g" per value -----------------------------------

// Significant digits: 6 and 15, or with exact floats 9 and 17, enough for
// every float and double to read back to its own bits.
char *put_floats(char *p, char *end, const char *mem, size_t size, int from, int to, bool exact)
{
    for (int i = from; i < to; i++) {
        if (i != from)
            *p++ = ' ';
        double v;
        int prec;
        if (size == 4) {
            float f;
            std::memcpy(&f, mem + static_cast<size_t>(i) * 4, 4);
            v = f;
            prec = exact ? 9 : 6;
        } else {
            std::memcpy(&v, mem + static_cast<size_t>(i) * 8, 8);
            prec = exact ? 17 : 15;
        }
        int n = std::snprintf(p, static_cast<size_t>(end - p), "%.*g", prec, v);
        if (n > 0 && n < end - p)
            p += n;
    }
    return p;
}

// ---- new elements, attributes and texts, checked ----------------------------

// xmlNewNode(NULL, name) that also checks the copy of the name.
xmlNode *new_element(const char *name)
{
    xmlNode *node = xmlNewNode(nullptr, BAD_CAST name);
    if (node && !node->name) {
        xmlFreeNode(node);
        node = nullptr;
    }
    if (!node)
        walk_note_dropped();
    return node;
}

// xmlNewProp that checks the attribute's name and value arrived whole; false
// if not (the element then holds no half-made attribute that matters: the
// caller frees the element).
bool set_attr(xmlNode *elem, const xmlChar *attr, const char *value)
{
    xmlAttr *prop = xmlNewProp(elem, attr, BAD_CAST value);
    bool ok = prop && prop->name;
    if (ok && value && *value)
        ok = prop->children && prop->children->content;
    if (!ok)
        walk_note_dropped();
    return ok;
}

// xmlNodeAddContent on a fresh element, checked: false if non-empty text
// could not be added.
bool add_text(xmlNode *elem, const char *text)
{
    if (!text || !*text)
        return true;
    xmlNode *before = elem->last;
    xmlNodeAddContent(elem, BAD_CAST text);
    xmlNode *last = elem->last;
    bool ok = last && last != before && last->content;
    if (!ok)
        walk_note_dropped();
    return ok;
}

// Bytes of the one XML character in valid UTF-8 at `p`, or 0 when `p` holds
// none (an invalid or cut sequence, a control, a surrogate, U+FFFE, U+FFFF).
// Never reads past a 0 byte.
size_t xml_char_len(const unsigned char *p)
{
    unsigned c = p[0];
    if (c < 0x80)
        return (c >= 0x20 || c == 0x9 || c == 0xA || c == 0xD) ? 1 : 0;
    size_t n;
    uint32_t cp;
    if (c >= 0xC2 && c <= 0xDF) {
        n = 2;
        cp = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
        n = 3;
        cp = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4;
        cp = c & 0x07;
    } else {
        return 0;
    }
    for (size_t i = 1; i < n; i++) {
        if ((p[i] & 0xC0) != 0x80)
            return 0;
        cp = (cp << 6) | (p[i] & 0x3F);
    }
    if ((n == 3 && cp < 0x800) || (n == 4 && (cp < 0x10000 || cp > 0x10FFFF)))
        return 0;  // overlong or beyond Unicode
    if ((cp >= 0xD800 && cp <= 0xDFFF) || cp == 0xFFFE || cp == 0xFFFF)
        return 0;
    return n;
}

// Number of bytes of `text` that belong to no XML character.
int count_bad_bytes(const unsigned char *text)
{
    int bad = 0;
    for (const unsigned char *p = text; *p;) {
        size_t n = xml_char_len(p);
        if (n == 0) {
            bad++;
            n = 1;
        }
        p += n;
    }
    return bad;
}

// Text from memory made fit for the document. XML can't carry invalid UTF-8
// or characters outside its range (controls other than tab, line feed and
// carriage return; U+FFFE, U+FFFF), and the strict parser refuses a whole
// file that holds one. Returns `text` itself when it is NULL or fit;
// otherwise a copy, left in *copy for the caller to xmlFree, with each
// offending byte written as '?', after the level-5 record
// "<func>: <name> has %d bytes that XML can't hold, each written as '?'".
// NULL (for a `text` that isn't) when that copy can't be allocated.
const char *xml_fit_text(const char *text, const char *func, const char *name, char **copy)
{
    *copy = nullptr;
    if (!text)
        return nullptr;
    const unsigned char *in = reinterpret_cast<const unsigned char *>(text);
    const unsigned char *p = in;  // printable ASCII, the common case, needs no decoding
    while (*p >= 0x20 && *p < 0x80)
        p++;
    if (*p == 0)
        return text;
    int bad = count_bad_bytes(p);
    if (bad == 0)
        return text;
    KV_LOGF(func, 5, "%s: %s has %d bytes that XML can't hold, each written as '?'", func,
            text_or_null(name), bad);
    size_t len = std::strlen(text);
    char *out = static_cast<char *>(xmlMalloc(len + 1));
    if (!out) {
        walk_note_dropped();
        return nullptr;
    }
    for (size_t i = 0; i < len;) {
        size_t n = xml_char_len(in + i);
        if (n == 0) {
            out[i++] = '?';
            continue;
        }
        std::memcpy(out + i, in + i, n);
        i += n;
    }
    out[len] = '\0';
    *copy = out;
    return out;
}

// Gives the fresh element `sub` the text from memory `text` (made fit for
// XML; NULL: none) and appends it to `xnode`. When that fails, frees `sub`,
// writes "<func>: <name> bad sub node" at level 4 and returns false.
bool append_with_text(xmlNode *xnode, xmlNode *sub, const char *text, const char *func,
                      const char *name)
{
    char *copy;
    const char *fit = xml_fit_text(text, func, name, &copy);
    bool ok = (fit || !text) && add_text(sub, fit);
    if (copy)
        xmlFree(copy);
    if (!ok) {
        xmlFreeNode(sub);
        KV_LOGF(func, 4, "%s: %s bad sub node", func, name);
        return false;
    }
    xmlAddChild(xnode, sub);
    return true;
}

// Number of entries a writer converts: `count`, or with a count field the
// smaller of `count` and the int at `aoffset`.
int entries_to_write(void *mem_base, const struct pdesc *pdesc)
{
    int n = pdesc->count;
    if (row_has_count_field(pdesc)) {
        int cia = load_int(at(mem_base, pdesc->aoffset));
        if (cia < n)
            n = cia;
    }
    return n;
}

// ---- one shape for the number kinds ------------------------------------------

// What the integer and float element builders need to know of a value
// group: how many values an element holds and how to write [from, to).
struct number_shape {
    int per;           // values per element; 0: unsupported width
    group_fn ints;     // integer formatter, or NULL for floats
    bool exact;        // floats: exact digits
};

// Appends the elements of `count` numbers at mem to xnode: one element per
// group, "idx" on all but the first, the values as text.
int numbers2node(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count,
                 const char *func, const number_shape &shape)
{
    const char *cmem = static_cast<const char *>(mem);
    char str_ctnt[kContentLen];
    char str_idx[kNumTextLen];
    int i = 0;
    while (i < count) {
        xmlNode *sub = new_element(pdesc->name);
        bool ok = sub != nullptr;
        if (ok && i != 0)
            ok = number_text(str_idx, i) && set_attr(sub, xStrIdx, str_idx);
        if (!ok) {
            xmlFreeNode(sub);
            KV_LOGF(func, 4, "%s: %s no sub_xnode", func, pdesc->name);
            return -1;
        }
        int next = count;
        if (shape.per == 0) {
            std::snprintf(str_ctnt, sizeof str_ctnt, "unsupported data size(%zu)", pdesc->size);
        } else {
            next = count - i > shape.per ? i + shape.per : count;
            char *p = shape.ints ? shape.ints(str_ctnt, cmem, i, next)
                                 : put_floats(str_ctnt, str_ctnt + sizeof str_ctnt, cmem,
                                              pdesc->size, i, next, shape.exact);
            *p = '\0';
        }
        KV_LOGF(func, 8, "%s: %s", func, str_ctnt);
        if (!add_text(sub, str_ctnt)) {
            xmlFreeNode(sub);
            KV_LOGF(func, 4, "%s: %s no sub_xnode", func, pdesc->name);
            return -1;
        }
        xmlAddChild(xnode, sub);
        i = next;
    }
    return 0;
}

int ints2node(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count, bool is_signed,
              const char *func)
{
    number_shape shape;
    shape.exact = false;
    shape.per = int_group_size(pdesc->size, is_signed, pdesc->type & PT_FMT_MASK, &shape.ints);
    return numbers2node(mem, xnode, pdesc, count, func, shape);
}

// ---- per-element functions ---------------------------------------------------

typedef int (*to_node_fn)(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count);

int uint2node(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count)
{
    return ints2node(mem, xnode, pdesc, count, false, "uint2node");
}

int flot2node(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count)
{
    number_shape shape;
    shape.ints = nullptr;
    shape.exact = (walk_options() & PARAM_XML_EXACT_FLOATS) != 0;
    shape.per = pdesc->size == 4 ? 8 : pdesc->size == 8 ? 4 : 0;
    return numbers2node(mem, xnode, pdesc, count, "flot2node", shape);
}

int stru2node(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count)
{
    char *the_mem = static_cast<char *>(mem);
    for (int i = 0; i < count; i++, the_mem += pdesc->size) {
        xmlNode *sub = new_element(pdesc->name);
        if (!sub) {
            KV_LOG(4, "stru2node: %s no sub_xnode", pdesc->name);
            return -1;
        }
        KV_LOG(8, "stru2node[%d]:", i);
        param2xml(the_mem, sub, pdesc->pdesc);
        xmlAddChild(xnode, sub);
    }
    return 0;
}

// ---- the array frame: direct and counted mode --------------------------------

// The writer's half of the kinds table: the per-element function of each
// kind that shares the array frame, by kind code. The rest of what a kind
// takes, its handler's name included, is in kKindInfo.
const to_node_fn kToNode[16] = {nullptr, sint2node, uint2node, flot2node, nullptr,
                                nullptr, stru2node, nullptr,   nullptr,   stru2node};

// Counted mode: one wrapper with "cnt" per non-empty buffer, each filled by
// the kind's per-element function with the buffer as its array.
int cob2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc, int n, const kind_info *k)
{
    char *ptrs = at(mem_base, pdesc->offset);
    char *cob = at(mem_base, pdesc->boffset);
    char str_cnt[kNumTextLen];
    for (int i = 0; i < n; i++) {
        int c = load_int(cob + static_cast<size_t>(i) * sizeof(int));
        if (c == 0) {
            KV_LOGF(k->writer, 5, "%s: %s count of buffer is zero", k->writer_text, pdesc->name);
            continue;
        }
        void *buf = load_ptr(ptrs + static_cast<size_t>(i) * sizeof(void *));
        if (c > 0 && !buf) {
            KV_LOGF(k->writer, 4, "%s: %s buffer(%d) is null, skip", k->writer_text, pdesc->name, i);
            continue;
        }
        if (!number_text(str_cnt, c)) {
            KV_LOGF(k->writer, 4, "%s: %s count of buffer(%d) too long, skip", k->writer_text,
                    pdesc->name, c);
            continue;
        }
        xmlNode *wrapper = new_element(pdesc->name);
        if (!wrapper || !set_attr(wrapper, xStrCnt, str_cnt)) {
            xmlFreeNode(wrapper);
            KV_LOGF(k->writer, 4, "%s: %s bad sub node", k->writer_text, pdesc->name);
            return -1;
        }
        KV_LOGF(k->writer, 8, "%s: cob %d", k->writer_text, c);
        kToNode[kind_code(pdesc->type)](buf, wrapper, pdesc, c);
        xmlAddChild(xnode, wrapper);
    }
    return 0;
}

// The writer handler of PT_SINT, PT_UINT, PT_FLOT, PT_STRU and PT_STRUM.
int array2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    const struct kind_info *k = kind_info_of(pdesc->type);
    if (k->indexed && pdesc->count > kMaxRowCount) {
        KV_LOGF(k->writer, 4, "%s: %s bad count(%d)", k->writer_text, pdesc->name, pdesc->count);
        return -1;
    }
    int n = entries_to_write(mem_base, pdesc);
    KV_LOGF(k->writer, 8, "%s: %s[%d]", k->writer_text, pdesc->name, n);
    if (row_is_counted(pdesc))
        return cob2xml(mem_base, xnode, pdesc, n, k);
    KV_LOGF(k->writer, 8, "%s: cia %d", k->writer_text, n);
    void *mem = at(mem_base, pdesc->offset);
    if (k->memory == KM_POINTER) {
        mem = load_ptr(mem);
        if (!mem && n > 0) {
            KV_LOGF(k->writer, 4, "%s: %s null pointer, skip", k->writer_text, pdesc->name);
            return -1;
        }
    }
    return kToNode[kind_code(pdesc->type)](mem, xnode, pdesc, n);
}

// ---- lists -------------------------------------------------------------------

enum node_result { kNodeWritten, kNodeSkipped, kNodeNoElement };

typedef node_result (*node_writer)(struct znode *node, xmlNode *outer, struct pdesc *pdesc,
                                   int sub_i);

node_result list_node2xml(struct znode *node, xmlNode *outer, struct pdesc *pdesc, int sub_i)
{
    xmlNode *inner = new_element(pdesc->name);
    if (!inner)
        return kNodeNoElement;
    KV_LOGF("list2xml", 8, "node[%d]:", sub_i);
    param2xml(node, inner, pdesc->pdesc);
    xmlAddChild(outer, inner);
    return kNodeWritten;
}

// The alternative whose sub-table may walk a node of no known type: the
// first, when no other alternative is smaller, so that a node made for any
// alternative holds every field it describes. NULL when there is none.
const struct adesc *fallback_alternative(const struct adesc *table)
{
    for (const struct adesc *alt = table + 1; alt->name; alt++)
        if (alt->size < table->size)
            return nullptr;
    return table;
}

node_result vlst_node2xml(struct znode *node, xmlNode *outer, struct pdesc *pdesc, int sub_i)
{
    const struct adesc *table = reinterpret_cast<const struct adesc *>(pdesc->aux);
    if (!table) {
        KV_LOGF("vlst2xml", 5, "vlst2xml: %s bad adesc", pdesc->name);
        return kNodeSkipped;
    }
    if (!table->name) {
        KV_LOGF("vlst2xml", 5, "vlst2xml: %s adesc has no alternative", pdesc->name);
        return kNodeSkipped;
    }
    const struct adesc *alt = find_alternative(table, node->name);
    if (!alt) {
        alt = fallback_alternative(table);
        if (!alt)
            KV_LOGF("vlst2xml", 5, "vlst2xml: %s type(%s) unknown, fields not written",
                    pdesc->name, text_or_null(node->name));
    }
    xmlNode *inner = new_element(pdesc->name);
    if (!inner)
        return kNodeNoElement;
    KV_LOGF("vlst2xml", 8, "node[%d]:", sub_i);
    char *copy;
    const char *type = xml_fit_text(node->name, "vlst2xml", pdesc->name, &copy);
    bool ok = (type || !node->name) && set_attr(inner, xStrTyp, type);
    if (copy)
        xmlFree(copy);
    if (!ok) {
        xmlFreeNode(inner);
        return kNodeNoElement;
    }
    if (alt && alt->pdesc)
        param2xml(node, inner, alt->pdesc);
    xmlAddChild(outer, inner);
    return kNodeWritten;
}

// The writer handler of PT_LIST and PT_VLST: one outer element per head, one
// inner element per node.
int lists2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    const struct kind_info *k = kind_info_of(pdesc->type);
    const char *func = k->writer;
    node_writer write_node = k->table == KT_ADESC ? vlst_node2xml : list_node2xml;
    char *mem = at(mem_base, pdesc->offset);
    int n = entries_to_write(mem_base, pdesc);
    KV_LOGF(func, 8, "%s: %s[%d]", func, pdesc->name, n);
    for (int i = 0; i < n; i++) {
        xmlNode *outer = new_element(pdesc->name);
        if (!outer) {
            KV_LOGF(func, 4, "%s: %s bad sub node", func, pdesc->name);
            return -1;
        }
        KV_LOGF(func, 8, "%s[%d]:", func, i);
        struct znode *node = static_cast<struct znode *>(
            load_ptr(mem + static_cast<size_t>(i) * sizeof(zhead_t)));
        for (int sub_i = 0; node; node = node->next, sub_i++) {
            if (write_node(node, outer, pdesc, sub_i) == kNodeNoElement) {
                xmlFreeNode(outer);
                KV_LOGF(func, 4, "%s: %s bad sub sub node", func, pdesc->name);
                return -1;
            }
        }
        xmlAddChild(xnode, outer);
    }
    return 0;
}

// ---- handlers ----------------------------------------------------------------

int stri2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    char *mem = at(mem_base, pdesc->offset);
    int count = pdesc->count;
    KV_LOG(8, "stri2xml: %s[%d]", pdesc->name, count);
    if (count < 1) {  // the terminator would go in front of the array
        KV_LOG(4, "stri2xml: %s bad count(%d)", pdesc->name, count);
        return -1;
    }
    xmlNode *sub = new_element(pdesc->name);
    if (!sub) {
        KV_LOG(4, "stri2xml: %s bad sub node", pdesc->name);
        return -1;
    }
    mem[count - 1] = '\0';
    KV_LOG(8, "stri2xml: %s", mem);
    return append_with_text(xnode, sub, mem, "stri2xml", pdesc->name) ? 0 : -1;
}

// The item of `table` whose value is `value`; the first item when none is.
const struct enume *item_of_value(const struct enume *table, int value)
{
    const struct enume *item = table;
    while (item->key && item->value != value)
        item++;
    return item->key ? item : table;
}

int enum2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    char *mem = at(mem_base, pdesc->offset);
    KV_LOG(8, "enum2xml: %s", pdesc->name);
    if (!enum_size_ok(pdesc, "enum2xml"))  // each value is read as a whole int
        return -1;
    for (int i = 0; i < pdesc->count; i++, mem += pdesc->size) {
        xmlNode *sub = new_element(pdesc->name);
        if (!sub) {
            KV_LOG(4, "enum2xml: %s bad sub node", pdesc->name);
            return -1;
        }
        const struct enume *item =
            item_of_value(reinterpret_cast<const struct enume *>(pdesc->aux), load_int(mem));
        KV_LOG(8, "enum2xml: %s", text_or_null(item->key));
        if (!append_with_text(xnode, sub, item->key, "enum2xml", pdesc->name))
            return -1;
    }
    return 0;
}

}  // namespace

int sint2node(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count)
{
    return ints2node(mem, xnode, pdesc, count, true, "sint2node");
}

bool number_text(char *buf, int v)
{
    // "%d" by hand: one call per element would otherwise go through printf
    char text[16];
    size_t n = 0;
    unsigned mag = v < 0 ? 0u - static_cast<unsigned>(v) : static_cast<unsigned>(v);
    do {
        text[n++] = static_cast<char>('0' + mag % 10);
        mag /= 10;
    } while (mag != 0);
    if (v < 0)
        text[n++] = '-';
    size_t kept = n < kNumTextLen ? n : kNumTextLen - 1;  // cut as snprintf cuts
    for (size_t i = 0; i < kept; i++)
        buf[i] = text[n - 1 - i];
    buf[kept] = '\0';
    return n < kNumTextLen;
}

// ---- the frame ----------------------------------------------------------------

// Invariant: a table ends at its first row whose type is 0; nothing of that
// row or of any row behind it is read or written. A row without a name is a
// bad row (it could neither make nor match an element).
extern "C" int param2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    for (struct pdesc *row = pdesc; row->type != 0; row++) {
        if (!row->name) {
            KV_LOG(4, "param2xml: row without name, type(0x%X)", static_cast<unsigned>(row->type));
            continue;
        }
        switch (row->type & PT_KIND_MASK) {
        case PT_SINT: case PT_UINT: case PT_FLOT: case PT_STRU: case PT_STRUM:
            array2xml(mem_base, xnode, row);
            break;
        case PT_STRI: stri2xml(mem_base, xnode, row); break;
        case PT_ENUM: enum2xml(mem_base, xnode, row); break;
        case PT_LIST: case PT_VLST: lists2xml(mem_base, xnode, row); break;
        default:
            KV_LOG(4, "param2xml: %s bad type(0x%X)", row->name, static_cast<unsigned>(row->type));
            break;
        }
    }
    return 0;
}

extern "C" int param2xml_opt(void *mem_base, xmlNode *xnode, struct pdesc *pdesc, uint32_t options)
{
    struct param_xml_walk w;
    param_xml_walk_begin(&w, options, walk_report());
    param2xml(mem_base, xnode, pdesc);
    param_xml_walk_end(&w);
    return 0;
}
