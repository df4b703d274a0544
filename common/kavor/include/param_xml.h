/// @file param_xml.h
/// The parameter codec: a memory block described by a table of `pdesc` rows
/// becomes child elements of a libxml2 element, and the children of an
/// element fill the block again.
///
/// A table is a plain array of rows ending at the first row whose `type` is
/// 0. A table is application data that the reader writes into (`ioa`,
/// `iob`), so it must not live in read-only memory, and one table may be
/// walked by only one xml2param() at a time. The codec takes no lock.
#ifndef PARAM_XML_H
#define PARAM_XML_H

#include <stddef.h>
#include <stdint.h>

#include <libxml/tree.h>

#include "vn_trace_types.h"
#include "zlst.h"

#ifdef __cplusplus
extern "C" {
#endif

/// @name Kinds, flags and formats of a row's `type`
/// @{
#define PT_KIND_MASK 0xf000  ///< the kind
#define PT_F_COB     0x0800  ///< counted mode: pointers to buffers and their counts
#define PT_F_CIA     0x0400  ///< an int at `aoffset` holds the number of valid entries
#define PT_FMT_MASK  0x000f  ///< text form of a PT_UINT row
#define PT_FMT_DEC   0x0000  ///< decimal (any nibble other than HEXL/HEXU)
#define PT_FMT_HEXL  0x0002  ///< "0x" and lower-case hexadecimal digits
#define PT_FMT_HEXU  0x0003  ///< "0x" and upper-case hexadecimal digits

#define PT_SINT  0x1000  ///< signed integer array, widths 1, 2, 4, 8
#define PT_UINT  0x2000  ///< unsigned integer array, widths 1, 2, 4, 8
#define PT_FLOT  0x3000  ///< float (4) or double (8) array
#define PT_STRI  0x4000  ///< character array holding one string
#define PT_ENUM  0x5000  ///< array of int values named by an `enume` table
#define PT_STRU  0x6000  ///< array of structures, in place
#define PT_LIST  0x7000  ///< array of list heads, nodes of one layout
#define PT_VLST  0x8000  ///< array of list heads, nodes of several layouts
#define PT_STRUM 0x9000  ///< pointer to an array of structures
/// @}

/// One row of a descriptor table. Fields in this order.
struct pdesc {
    int iob;               ///< run-time: next index inside the buffer being read
    int ioa;               ///< run-time: next index of the row's array
    int count;             ///< capacity of the row, in elements
    int type;              ///< kind | flags | format; 0 ends the table
    size_t offset;         ///< byte offset of the field from the walked base
    size_t boffset;        ///< counted mode: offset of the int array of buffer counts
    size_t aoffset;        ///< PT_F_CIA: offset of the int holding the valid count
    size_t size;           ///< size of one element (meaning per kind)
    const char *name;      ///< element name in the XML tree
    struct pdesc *pdesc;   ///< sub-table of one structure or list node
    intptr_t aux;          ///< `enume` table (PT_ENUM) or `adesc` table (PT_VLST)
};

/// One item of an enumeration; a table ends at the first item whose `key`
/// is NULL, and that item's `value` is what unknown words read as.
struct enume {
    const char *key;   ///< the word in the document
    int value;         ///< the value in memory
};

/// One alternative of a variant list; a table ends at the first item whose
/// `name` is NULL.
struct adesc {
    size_t size;          ///< bytes of one node of this alternative, znode included
    struct pdesc *pdesc;  ///< sub-table of such a node
    const char *name;     ///< type name: the node's znode name and the "typ" text
};

/// The trace handle of the whole library; NULL until param_xml_trace_init().
extern vorn_trace_handle param_xml_trace_h;

/// Registers the library's trace module, once: later calls change nothing.
/// Make the first call before a second thread can make one. The module keeps
/// each record whose level is at most `dft_lvl` and sends it to `func` when
/// that is not NULL, else appends it, with a line end, to the file
/// `filename` when that is neither NULL nor empty, else writes it to
/// standard error; `mod_name` and `filename` are copied. The form of a
/// record is told at user_func (vn_trace_types.h).
void param_xml_trace_init(const char *mod_name, const char *filename,
                          uint32_t dft_lvl, user_func func);

/// Appends to `xnode`, for each row of `pdesc`, the elements of that row,
/// reading the block at `mem_base`. Stores a 0 byte at the end of each
/// string field of the block. All arguments must be valid. Returns 0 always;
/// what failed is told only through the trace.
///
/// Safety rules for rows and blocks out of the ordinary:
/// - A row without a `name` is a bad row: the writer reports it (level 4,
///   "param2xml: row without name, type(0x<type>)"); the reader never matches it.
/// - An integer or float row whose `count` has more than nine digits is
///   refused (level 4, "<fn>: <name> bad count(<n>)"), since its "idx" texts
///   would not fit; so is a PT_STRI row whose `count` is below 1.
/// - In counted mode, a buffer count that doesn't fit "cnt" (nine
///   characters) or a positive count whose pointer is NULL skips that buffer
///   (level 4); a NULL PT_STRUM pointer is not followed (level 4).
/// - An element that can't be completed (node, attribute or text) is freed,
///   not attached, and ends its row as a failed node does.
/// - Text from memory (a string, an enumeration key, a list node's type
///   name) that isn't valid UTF-8 or holds characters XML 1.0 can't carry
///   (controls other than tab, line feed and carriage return; U+FFFE,
///   U+FFFF) is written with each offending byte as '?' (level 5, "<fn>:
///   <name> has <n> bytes that XML can't hold, each written as '?'"); the
///   block keeps its bytes. Any other text is written byte for byte.
/// - PT_VLST: a node whose type no alternative names goes through the first
///   alternative only when no other alternative is smaller than it (so a
///   node made for any alternative holds every field it describes); else it
///   is written as an inner element with its "typ" and no children (level 5,
///   "vlst2xml: <name> type(<typ>) unknown, fields not written"). A table
///   with no alternative writes no inner element (level 5,
///   "vlst2xml: <name> adesc has no alternative").
int param2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);

/// Fills the block at `mem_base` from the children of `xnode` as far as they
/// match rows of `pdesc`. Buffers and list nodes that it allocates come from
/// xmlMalloc() and belong to the caller (see param_xml_free()). All
/// arguments must be valid. Returns 0 always; what failed is told only
/// through the trace.
///
/// Safety rules for documents and blocks the writer never makes:
/// - A negative "idx" (on any element, wrapper or outer list element) refuses
///   that element at level 5 ("<fn>: <name> idx(<n>) < 0, ignore") and leaves
///   the position where it was, so later elements go on as if it were absent.
/// - A "cnt" that is negative, or too large for a buffer of `size`-byte
///   elements, refuses the wrapper at level 4 ("<fn>: <name> bad count of
///   buffer(<n>)"); the count entry is set to 0 and its pointer is left alone.
/// - A buffer allocated for a counted row is zero-filled, like a list node:
///   what no element reaches in it is 0, never a stray pointer or list head.
/// - A PT_STRUM row whose pointer is NULL is not followed (level 4,
///   "<fn>: <name> null pointer, ignore").
/// - A list node is never smaller than a znode: a row or alternative whose
///   size is smaller makes no node (level 4, "<fn>: <name> bad node size(<n>)").
/// - A PT_ENUM row whose `size` is below sizeof(int) is refused in both
///   directions (level 4, "<fn>: <name> bad size(<n>)").
int xml2param(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);

/// @name Options of a walk, and what the reader did to the values
/// @{

/// Option of param2xml_opt() and xml2param_report(): exact floats. The
/// writer gives a float 9 and a double 17 significant digits, enough for
/// the text to read back to the same bits (negative zero, subnormals and
/// the extremes included; a NaN reads back as a NaN), and always '.' as the
/// decimal point; the reader takes '.' as the decimal point and reads a
/// float's text straight to float. Both ignore the locale of the process
/// and of the thread (the walk runs under the "C" locale of the thread
/// alone; setlocale is never called). Without it the codec writes 6 and 15
/// digits with the decimal point of the locale, as param2xml() does.
#define PARAM_XML_EXACT_FLOATS 0x1u

/// Room of the path in a param_xml_case_t, its NUL included.
#define PARAM_XML_PATH_MAX 128

/// One kind of thing the reader did, counted over a walk.
typedef struct {
    /// Number of cases.
    uint32_t count;
    /// Line of the first case's element in its document (libxml2's line
    /// number); 0 when unknown, as for a tree that wasn't parsed.
    int32_t line;
    /// Path of the first case; "" while `count` is 0. The XPath form that
    /// libxml2's xmlGetNodePath gives, from the document's root (or the
    /// tree's top element): element names joined by '/', "[n]" behind the
    /// n-th (from 1) of several siblings of one name, "@name" for an
    /// attribute, e.g. "/net/net_cfg/port[2]/mtu" or
    /// "/net/net_cfg/mtu/@unit". For a missing row, the path of the element
    /// that lacks it with the row's name behind it. Cut to fit, at
    /// PARAM_XML_PATH_MAX - 1 bytes.
    char path[PARAM_XML_PATH_MAX];
} param_xml_case_t;

/// What the reader did to the values of a document, beyond the records of
/// the trace. Counts add up over the whole walk, nested structures, list
/// nodes and buffers included.
typedef struct {
    /// Numbers outside their field's range, stored narrowed to the field's
    /// width (300 in an 8-bit field is stored as 44, -1 in an unsigned one
    /// as its largest value) or, for floats, as an infinity. One per value.
    param_xml_case_t narrowed;
    /// Number elements whose text holds something that is no number ("abc",
    /// "1,5"): the values before it are stored, the rest of the element is
    /// dropped. One per element.
    param_xml_case_t not_number;
    /// Enumeration words that no item of the table has: the value of the
    /// table's end item is stored. One per element.
    param_xml_case_t unknown_word;
    /// Elements and values beyond the capacity: an element whose index is
    /// at or past the row's count (or negative), an element with more values
    /// than the array has room for, a string longer than its field (cut).
    /// One per element.
    param_xml_case_t over_capacity;
    /// Elements and attributes that the table doesn't know: an element that
    /// matches no row, an attribute that the row's kind doesn't read. They
    /// are passed over. One per element or attribute (an unknown element's
    /// own content isn't looked into).
    param_xml_case_t unknown;
    /// Rows that the document doesn't have: no element of the row's name
    /// under the element walked. Their memory keeps what it held. One per
    /// row and walked element (each structure, each list node).
    param_xml_case_t missing;
} param_xml_report_t;

/// param2xml() with `options` (0 or PARAM_XML_EXACT_FLOATS). With 0 it is
/// param2xml() exactly; unknown option bits are ignored. Returns 0 always.
int param2xml_opt(void *mem_base, xmlNode *xnode, struct pdesc *pdesc, uint32_t options);

/// xml2param() with `options` (0 or PARAM_XML_EXACT_FLOATS), filling
/// `report` (when it isn't NULL) with what the reader did to the values:
/// the report is cleared first, then counts the cases of this walk. The
/// block, the table's run-time fields and the trace records are what
/// xml2param() with the same options gives; xml2param() itself reports
/// nothing. The report belongs to the caller. Like xml2param(), it takes
/// no lock; the report's paths cost a libxml2 allocation each (the first
/// case of a kind only), and a path that can't be made is left "". Returns
/// 0 always.
int xml2param_report(void *mem_base, xmlNode *xnode, struct pdesc *pdesc, uint32_t options,
                     param_xml_report_t *report);
/// @}

/// Releases, with xmlFree(), every counted buffer and every list node
/// reachable from the block at `mem_base` described by the table `pdesc`,
/// at any depth: what a buffer or node holds is released before it. Leaves
/// each buffer pointer NULL, each buffer count 0 and each list head empty.
/// The block itself and the array behind a PT_STRUM pointer belong to the
/// application and are not freed (their structures are walked into). Count
/// fields of PT_F_CIA are left as they are. A variant-list node whose type
/// no alternative names is freed without being walked into.
///
/// Precondition: every non-NULL buffer pointer of a counted row (all `count`
/// entries), every list node, and everything inside them came from
/// xmlMalloc(), as after xml2param() into a zero-filled block; each buffer
/// count of a counted structure row is no more than its buffer holds.
void param_xml_free(void *mem_base, struct pdesc *pdesc);

/// Checks a descriptor table before use: walks `table`, its sub-tables and
/// its `enume` and `adesc` tables (each once, so cycles end), and reports at
/// level 4 through the trace, naming the row and the reason, every row that
/// can't work as far as the table shows: an unknown kind, an integer width
/// not 1/2/4/8, a float width not 4/8, a string with a capacity below 1, a
/// count below 0 or of more than nine digits, an enumeration without an
/// `enume` table or with an element size below 4, a structure or list row
/// without a sub-table, a sub-table that reaches beyond its structure or
/// node, a list node smaller than a znode or a sub-table row that addresses
/// the znode, an `enume` or `adesc` table without an item or with a key or
/// name twice, a name that is no XML element name or is taken by an earlier
/// row, and a structure that contains itself in place.
/// Reads the tables only; takes no lock; may run beside any walk.
/// Returns the number of bad rows (0: the table is good), or -1 for a NULL
/// `table` or when it runs out of memory (with a level-4 message).
int param_xml_check(const struct pdesc *table);

/// Describes, as an XML Schema 1.0 document, the element `name` as
/// param2xml() writes it for `table`, with its sub-tables, enumeration
/// words and variant alternatives: what xmllint --schema or
/// kavor_validate() can check a document against before it is loaded.
///
/// The schema accepts what the reader stores exactly as written and refuses
/// what it would narrow, cut, drop or pass over: rows' elements in table
/// order, at most as many as the row's capacity; every integer in its
/// width's range, in decimal (no leading zero), "0x" hexadecimal or
/// "0"-prefixed octal, "-" only on signed rows; floats as XML Schema writes
/// them or as strtod reads words ("inf", "nan") and hexadecimal forms;
/// strings within the field's capacity in bytes (counted by the widest
/// character of the text: see docs/cli.md); the words of an enumeration;
/// "idx" below the capacity on every element but a string's; "cnt" of at
/// least 1 on the wrappers of counted buffers; "typ" one of the
/// alternatives' names. What XML Schema 1.0 can't check: values spread over
/// several elements against the capacity, values against a buffer's "cnt",
/// a variant node's children against its "typ", float ranges.
///
/// Reads the tables only; takes no lock. Rows of count 0 (nothing is ever
/// written for them) get no declaration.
/// @return a new document (release with xmlFreeDoc()), or NULL with a
/// level-4 message for a NULL table, a `name` that is no XML name, a row
/// that can't be described (no name, an unknown kind, a width the kind
/// doesn't take, a string without room, no enume or adesc table, no
/// sub-table) or memory that runs out.
xmlDocPtr param_xml_schema(const char *name, const struct pdesc *table);

#ifdef __cplusplus
}
#endif

#include "param_xml_table.h"

#endif
