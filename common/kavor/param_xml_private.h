// param_xml_private.h - the codec's inner pieces, one section per owning
// file. Internal to the library: nothing here is exported.
//
// The codec is four files around one shared file, and none of the four
// calls into another: the writer (param_xml_write.cpp) and the reader
// (param_xml_read.cpp) each keep their frame, their handlers and their
// recursion to themselves; the table check (param_xml_check.cpp) and the
// release walk (param_xml_free.cpp) walk tables on their own. What more than
// one of them needs lives in param_xml.cpp: the attribute names, the one
// table of what each kind takes, the size rule of an enumeration, and the
// lookup of a variant list's alternative. The inline helpers below (block
// access, the kind lookup) are the shared file's too.
//
// A handler gets (mem_base, xnode, row). A writer handler appends to xnode;
// a reader handler gets the element that matched the row. Results are
// informative only: what went wrong is told through the trace.
#ifndef KAVOR_PARAM_XML_PRIVATE_H
#define KAVOR_PARAM_XML_PRIVATE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "param_xml.h"
#include "param_xml_limit.h"
#include "param_xml_walk.h"

// ---- shared by the whole codec (param_xml.cpp) --------------------------------

/// Attribute names of the document.
extern const xmlChar *const xStrIdx;  // "idx"
extern const xmlChar *const xStrCnt;  // "cnt"
extern const xmlChar *const xStrTyp;  // "typ"

/// Room of the "idx" and "cnt" texts: nine digits and the terminator.
constexpr size_t kNumTextLen = 10;
/// Largest row count whose indices fit kNumTextLen.
constexpr int kMaxRowCount = 999999999;

/// What `offset` addresses in a direct row of a kind.
enum kind_memory {
    KM_VALUES,   ///< `count` elements, `size` bytes each (numbers, structures)
    KM_STRING,   ///< one character array: `count` bytes to the writer, `size` to the reader
    KM_ENUMS,    ///< `count` ints, `size` bytes apart
    KM_POINTER,  ///< a pointer to `count` structures of `size` bytes
    KM_HEADS,    ///< `count` list heads
};

/// Which table a row of a kind names besides its own.
enum kind_table {
    KT_NONE,
    KT_PDESC,  ///< `pdesc`: the sub-table of one structure or list node
    KT_ENUME,  ///< `aux`: the enume table
    KT_ADESC,  ///< `aux`: the adesc table of a variant list
};

/// What a row of one kind takes: the one place that says it. The writer,
/// the reader, the table check and the release walk all read it.
struct kind_info {
    int kind;                 ///< PT_SINT ... PT_STRUM
    const char *writer;       ///< the writer handler's name: the trace's function
    const char *writer_text;  ///< prefix of the writer's message texts
    const char *reader;       ///< the reader handler's name
    const char *reader_text;  ///< prefix of the reader's message texts
    bool counted;             ///< takes PT_F_COB: buffers of `size`-byte elements
    bool count_field;         ///< takes PT_F_CIA: an int at `aoffset`
    enum kind_memory memory;  ///< what the direct row's `offset`, `count`, `size` address
    enum kind_table table;    ///< the table it names
    bool indexed;             ///< the writer puts "idx" on its elements: `count`
                              ///< limited to nine digits
};

/// The kinds by code (type & PT_KIND_MASK) >> 12; an entry whose `kind` is
/// 0 stands for a code that is no kind.
extern const struct kind_info kKindInfo[16];

/// The code of the kind in `type`, 0 to 15: the index of the kind tables.
inline int kind_code(int type)
{
    return (type & PT_KIND_MASK) >> 12;
}

/// The entry of the kind in `type`; NULL for a value that is no kind.
inline const struct kind_info *kind_info_of(int type)
{
    const struct kind_info *k = &kKindInfo[kind_code(type)];
    return k->kind != 0 ? k : nullptr;
}

/// True when `row` is in counted mode: PT_F_COB on a kind that takes it.
inline bool row_is_counted(const struct pdesc *row)
{
    const struct kind_info *k = kind_info_of(row->type);
    return k && k->counted && (row->type & PT_F_COB);
}

/// True when `row` has a count field: PT_F_CIA on a kind that takes it.
inline bool row_has_count_field(const struct pdesc *row)
{
    const struct kind_info *k = kind_info_of(row->type);
    return k && k->count_field && (row->type & PT_F_CIA);
}

/// Address `off` bytes into `base`.
inline char *at(void *base, size_t off)
{
    return static_cast<char *>(base) + off;
}

/// Unaligned-safe access to the int and pointer fields of a block.
inline int load_int(const void *p)
{
    int v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline void store_int(void *p, int v)
{
    std::memcpy(p, &v, sizeof v);
}
inline void *load_ptr(const void *p)
{
    void *v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline void store_ptr(void *p, void *v)
{
    std::memcpy(p, &v, sizeof v);
}

/// `s`, or "(null)" for a NULL `s`: a string fit for "%s".
inline const char *text_or_null(const char *s)
{
    return s ? s : "(null)";
}

/// False, with "<func>: <name> bad size(<size>)" at level 4, when the
/// elements of the PT_ENUM `row` can't each hold an int: both directions
/// refuse such a row.
bool enum_size_ok(const struct pdesc *row, const char *func);

/// The first alternative named `type` (xmlStrEqual); NULL at the end item.
/// `table` must not be NULL.
const struct adesc *find_alternative(const struct adesc *table, const char *type);

// ---- the writer (param_xml_write.cpp) ---------------------------------------
// param2xml and everything below it: used by that file and by the tests.

/// Appends the elements of `count` values at `mem` to `xnode` (one element
/// per group of values, "idx" on all but the first).
int sint2node(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count);

/// Formats `v` into buf[kNumTextLen]; false if it does not fit.
bool number_text(char *buf, int v);

// ---- the reader (param_xml_read.cpp) -----------------------------------------
// xml2param and everything below it: used by that file and by the tests.
// The reader's allocation limit is in param_xml_limit.h.

/// The text below `node` as xmlNodeGetContent gives it (the text and CDATA
/// of every descendant, joined in document order), counted first and copied
/// once, so its time is linear in the subtree: libxml2 grows its buffer a
/// few bytes at a time, which costs time quadratic in the number of pieces
/// wherever realloc can't grow in place. A node that is no element, and a
/// subtree holding an entity reference, go to xmlNodeGetContent. NULL when
/// out of memory; release with xmlFree.
xmlChar *node_content(xmlNode *node);

#endif
