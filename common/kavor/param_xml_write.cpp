// param_xml_write.cpp - memory to elements: the writer handlers of every
// kind and the per-element functions that turn one array into elements.
//
// Invariant: an element joins the tree only when it is complete (name,
// attributes, content, children); an element that can't be completed is
// freed, reported, and ends its row, so the document never holds a half-made
// element whose values a reader would put in the wrong place. The writer
// reads the block and the lists; its only store is the 0 byte that ends each
// string field. Text taken from memory (strings, enumeration keys, "typ")
// passes xml_text first: valid UTF-8 of XML characters goes out byte for
// byte, any other byte as '?' with a level-5 record, so one bad string never
// makes the strict parser refuse the whole file.
//
// Flow: param2xml -> <kind>2xml -> (array kinds) array2xml -> direct:
// <kind>2node, counted: one "cnt" wrapper per buffer, each filled by
// <kind>2node; structures and list nodes go back into param2xml.
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
group_fn group_for(int fmt)
{
    if (std::is_signed<T>::value)
        return put_group<T, 10, false>;
    switch (fmt) {
    case PT_FMT_HEXL: return put_group<T, 16, false>;
    case PT_FMT_HEXU: return put_group<T, 16, true>;
    default: return put_group<T, 10, false>;
    }
}

// Group size and formatter of a width; 0 and NULL for an unsupported width.
int int_group(size_t size, bool is_signed, int fmt, group_fn *fn)
{
    switch (size) {
    case 1: *fn = is_signed ? group_for<int8_t>(fmt) : group_for<uint8_t>(fmt); return 16;
    case 2: *fn = is_signed ? group_for<int16_t>(fmt) : group_for<uint16_t>(fmt); return 16;
    case 4: *fn = is_signed ? group_for<int32_t>(fmt) : group_for<uint32_t>(fmt); return 8;
    case 8: *fn = is_signed ? group_for<int64_t>(fmt) : group_for<uint64_t>(fmt); return 4;
    default: *fn = nullptr; return 0;
    }
}

// ---- floating point: one "%.*g" per value -----------------------------------

char *put_floats(char *p, char *end, const char *mem, size_t size, int from, int to)
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
            prec = 6;
        } else {
            std::memcpy(&v, mem + static_cast<size_t>(i) * 8, 8);
            prec = 15;
        }
        int n = std::snprintf(p, static_cast<size_t>(end - p), "%.*g", prec, v);
        if (n > 0 && n < end - p)
            p += n;
    }
    return p;
}

// ---- one shape for the number kinds ------------------------------------------

// What the integer and float element builders need to know of a value
// group: how many values an element holds and how to write [from, to).
struct number_shape {
    int per;           // values per element; 0: unsupported width
    group_fn ints;     // integer formatter, or NULL for floats
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
                                              pdesc->size, i, next);
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
    shape.per = int_group(pdesc->size, is_signed, pdesc->type & PT_FMT_MASK, &shape.ints);
    return numbers2node(mem, xnode, pdesc, count, func, shape);
}

// ---- counted mode ------------------------------------------------------------

// One wrapper with "cnt" per non-empty buffer, each filled by the kind's
// per-element function with the buffer as its array.
int cob2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc, int n,
            const struct array_kind *k)
{
    char *ptrs = at(mem_base, pdesc->offset);
    char *cob = at(mem_base, pdesc->boffset);
    char str_cnt[kNumTextLen];
    for (int i = 0; i < n; i++) {
        int c = load_int(cob + static_cast<size_t>(i) * sizeof(int));
        if (c == 0) {
            KV_LOGF(k->wfunc, 5, "%s: %s count of buffer is zero", k->wtext, pdesc->name);
            continue;
        }
        void *buf = load_ptr(ptrs + static_cast<size_t>(i) * sizeof(void *));
        if (c > 0 && !buf) {
            KV_LOGF(k->wfunc, 4, "%s: %s buffer(%d) is null, skip", k->wtext, pdesc->name, i);
            continue;
        }
        if (!number_text(str_cnt, c)) {
            KV_LOGF(k->wfunc, 4, "%s: %s count of buffer(%d) too long, skip", k->wtext,
                    pdesc->name, c);
            continue;
        }
        xmlNode *wrapper = new_element(pdesc->name);
        if (!wrapper || !set_attr(wrapper, xStrCnt, str_cnt)) {
            xmlFreeNode(wrapper);
            KV_LOGF(k->wfunc, 4, "%s: %s bad sub node", k->wtext, pdesc->name);
            return -1;
        }
        KV_LOGF(k->wfunc, 8, "%s: cob %d", k->wtext, c);
        k->to_node(buf, wrapper, pdesc, c);
        xmlAddChild(xnode, wrapper);
    }
    return 0;
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
                    pdesc->name, shown(node->name));
    }
    xmlNode *inner = new_element(pdesc->name);
    if (!inner)
        return kNodeNoElement;
    KV_LOGF("vlst2xml", 8, "node[%d]:", sub_i);
    char *copy;
    const char *type = xml_text(node->name, "vlst2xml", pdesc->name, &copy);
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

// One outer element per head, one inner element per node, for both list
// kinds; `func` names the handler in the trace and its message texts.
int lists2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc, const char *func,
              node_writer write_node)
{
    char *mem = at(mem_base, pdesc->offset);
    int n = row_entries(mem_base, pdesc);
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

}  // namespace

// ---- per-element functions ---------------------------------------------------

int sint2node(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count)
{
    return ints2node(mem, xnode, pdesc, count, true, "sint2node");
}

int uint2node(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count)
{
    return ints2node(mem, xnode, pdesc, count, false, "uint2node");
}

int flot2node(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count)
{
    number_shape shape;
    shape.ints = nullptr;
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

int array2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc, const struct array_kind *k)
{
    if (k->indexed && pdesc->count > kMaxRowCount) {
        KV_LOGF(k->wfunc, 4, "%s: %s bad count(%d)", k->wtext, pdesc->name, pdesc->count);
        return -1;
    }
    int n = row_entries(mem_base, pdesc);
    KV_LOGF(k->wfunc, 8, "%s: %s[%d]", k->wtext, pdesc->name, n);
    if (pdesc->type & PT_F_COB)
        return cob2xml(mem_base, xnode, pdesc, n, k);
    KV_LOGF(k->wfunc, 8, "%s: cia %d", k->wtext, n);
    void *mem = at(mem_base, pdesc->offset);
    if (k->via_pointer) {
        mem = load_ptr(mem);
        if (!mem && n > 0) {
            KV_LOGF(k->wfunc, 4, "%s: %s null pointer, skip", k->wtext, pdesc->name);
            return -1;
        }
    }
    return k->to_node(mem, xnode, pdesc, n);
}

// ---- handlers ----------------------------------------------------------------

int sint2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    return array2xml(mem_base, xnode, pdesc, &kSintKind);
}

int uint2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    return array2xml(mem_base, xnode, pdesc, &kUintKind);
}

int flot2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    return array2xml(mem_base, xnode, pdesc, &kFlotKind);
}

int stru2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    return array2xml(mem_base, xnode, pdesc, &kStruKind);
}

int struM2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    return array2xml(mem_base, xnode, pdesc, &kStruMKind);
}

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
    char *copy;
    const char *text = xml_text(mem, "stri2xml", pdesc->name, &copy);
    bool ok = text && add_text(sub, text);
    if (copy)
        xmlFree(copy);
    if (!ok) {
        xmlFreeNode(sub);
        KV_LOG(4, "stri2xml: %s bad sub node", pdesc->name);
        return -1;
    }
    xmlAddChild(xnode, sub);
    return 0;
}

int enum2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    char *mem = at(mem_base, pdesc->offset);
    const struct enume *table = reinterpret_cast<const struct enume *>(pdesc->aux);
    KV_LOG(8, "enum2xml: %s", pdesc->name);
    if (pdesc->size < sizeof(int)) {  // each value is read as a whole int
        KV_LOG(4, "enum2xml: %s bad size(%zu)", pdesc->name, pdesc->size);
        return -1;
    }
    for (int i = 0; i < pdesc->count; i++, mem += pdesc->size) {
        xmlNode *sub = new_element(pdesc->name);
        if (!sub) {
            KV_LOG(4, "enum2xml: %s bad sub node", pdesc->name);
            return -1;
        }
        int value = load_int(mem);
        const struct enume *item = table;
        while (item->key && item->value != value)
            item++;
        if (!item->key)
            item = table;
        KV_LOG(8, "enum2xml: %s", shown(item->key));
        char *copy;
        const char *text = xml_text(item->key, "enum2xml", pdesc->name, &copy);
        bool ok = (text || !item->key) && add_text(sub, text);
        if (copy)
            xmlFree(copy);
        if (!ok) {
            xmlFreeNode(sub);
            KV_LOG(4, "enum2xml: %s bad sub node", pdesc->name);
            return -1;
        }
        xmlAddChild(xnode, sub);
    }
    return 0;
}

int list2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    return lists2xml(mem_base, xnode, pdesc, "list2xml", list_node2xml);
}

int vlst2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    return lists2xml(mem_base, xnode, pdesc, "vlst2xml", vlst_node2xml);
}
