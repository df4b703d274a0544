// param_xml_private.h - the codec's inner pieces: the row handlers chosen by
// the frames' switch, the per-element functions that the direct and the
// counted mode share, and the helpers that every kind uses alike (entry
// count of a row, the "idx" rule, index and count texts, safe element and
// text creation).
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

/// Attribute names of the document.
extern const xmlChar *const xStrIdx;  // "idx"
extern const xmlChar *const xStrCnt;  // "cnt"
extern const xmlChar *const xStrTyp;  // "typ"

/// Room of the "idx" and "cnt" texts: nine digits and the terminator.
constexpr size_t kNumTextLen = 10;
/// Largest row count whose indices fit kNumTextLen.
constexpr int kMaxRowCount = 999999999;

// Writer handlers.
int stri2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);
int sint2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);
int uint2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);
int flot2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);
int enum2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);
int stru2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);
int struM2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);
int list2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);
int vlst2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);

// Reader handlers.
int xml2stri(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);
int xml2sint(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);
int xml2uint(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);
int xml2flot(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);
int xml2enum(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);
int xml2stru(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);
int xml2struM(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);
int xml2list(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);
int xml2vlst(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);

// Per-element functions: memory of `count` elements to elements, and one
// element into an array of capacity `count` from position *idx on.
typedef int (*to_node_fn)(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count);
typedef int (*from_node_fn)(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count, int *idx);

int sint2node(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count);
int uint2node(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count);
int flot2node(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count);
int stru2node(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count);
int node2sint(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count, int *idx);
int node2uint(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count, int *idx);
int node2flot(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count, int *idx);
int node2stru(void *mem, xmlNode *xnode, struct pdesc *pdesc, int count, int *idx);

/// What differs between the five kinds that share the array frame and the
/// counted mode: names shown in the trace and the per-element functions.
struct array_kind {
    const char *wfunc;       ///< writer handler's name, the trace's function
    const char *wtext;       ///< prefix of the writer's message texts
    const char *rfunc;       ///< reader handler's name
    const char *rtext;       ///< prefix of the reader's message texts
    to_node_fn to_node;
    from_node_fn from_node;
    bool via_pointer;        ///< direct array lies where a pointer at offset says
    bool indexed;            ///< elements carry "idx": row count limited to 9 digits
};

extern const struct array_kind kSintKind, kUintKind, kFlotKind, kStruKind, kStruMKind;

/// The shared writer and reader of the five array kinds, both modes.
int array2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc, const struct array_kind *k);
int xml2array(void *mem_base, xmlNode *xnode, struct pdesc *pdesc, const struct array_kind *k);

// ---- shared helpers -------------------------------------------------------

/// Address `off` bytes into `base`.
inline char *at(void *base, size_t off)
{
    return static_cast<char *>(base) + off;
}

/// Unaligned-safe access to the int fields of a block.
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

/// A string that may be NULL, for "%s".
inline const char *shown(const char *s)
{
    return s ? s : "(null)";
}

/// Number of entries a writer converts: `count`, or with PT_F_CIA the
/// smaller of `count` and the int at `aoffset`.
int row_entries(void *mem_base, const struct pdesc *pdesc);

/// With PT_F_CIA, stores `ioa` into the int at `aoffset`.
void store_cia(void *mem_base, const struct pdesc *pdesc);

/// The "idx" rule of every reader: an "idx" attribute sets *idx (atoi);
/// then *idx must lie in [0, count). Refusals are told at level 5 as
/// "<text>: <name> idx(%d) >= count(%d), ignore", or for a negative index
/// "<text>: <name> idx(%d) < 0, ignore". A negative index leaves *idx as it
/// was before the element, so it never addresses memory in front of the
/// array and never shrinks a count field. Returns true when accepted.
bool take_index(xmlNode *xnode, const char *func, const char *text, const char *name,
                int count, int *idx);

/// Formats `v` into buf[kNumTextLen]; false if it does not fit.
bool number_text(char *buf, int v);

/// xmlNewNode(NULL, name) that also checks the copy of the name.
xmlNode *new_element(const char *name);
/// xmlNewProp that checks the attribute's name and value arrived whole;
/// false if not (the element then holds no half-made attribute that matters:
/// the caller frees the element).
bool set_attr(xmlNode *elem, const xmlChar *attr, const char *value);
/// xmlNodeAddContent on a fresh element, checked: false if non-empty text
/// could not be added.
bool add_text(xmlNode *elem, const char *text);

/// The text below `node` as xmlNodeGetContent gives it (the text and CDATA
/// of every descendant, joined in document order), counted first and copied
/// once, so its time is linear in the subtree: libxml2 grows its buffer a
/// few bytes at a time, which costs time quadratic in the number of pieces
/// wherever realloc can't grow in place. A node that is no element, and a
/// subtree holding an entity reference, go to xmlNodeGetContent. NULL when out of memory; release
/// with xmlFree.
xmlChar *node_content(xmlNode *node);

/// Text from memory made fit for the document. XML can't carry invalid
/// UTF-8 or characters outside its range (controls other than tab, line
/// feed and carriage return; U+FFFE, U+FFFF), and the strict parser refuses
/// a whole file that holds one. Returns `text` itself when it is NULL or
/// fit; otherwise a copy, left in *copy for the caller to xmlFree, with each
/// offending byte written as '?', after the level-5 record
/// "<func>: <name> has %d bytes that XML can't hold, each written as '?'".
/// NULL (for a `text` that isn't) when that copy can't be allocated.
const char *xml_text(const char *text, const char *func, const char *name, char **copy);

/// Sets how many bytes of buffers and list nodes the reader may still
/// allocate on this thread (SIZE_MAX: no limit, the default) and returns the
/// setting it replaces. A load of a file sets a limit for its walk, so that
/// no document, whatever its "cnt" values and node counts, makes the reader
/// allocate more; a buffer or node over what is left is refused at level 4
/// like one that can't be allocated.
size_t param_xml_read_limit(size_t bytes);

/// Finds the first alternative named `type` (xmlStrEqual); NULL at the end
/// item. `table` must not be NULL.
const struct adesc *find_alternative(const struct adesc *table, const char *type);

#endif
