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

#include "vn_trace.h"
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
/// The arguments go unchanged to vorn_mod_trace_init(). Make the first call
/// before a second thread can make one.
void param_xml_trace_init(const char *mod_name, const char *filename,
                          uint32_t dft_lvl, user_func func);

/// Appends to `xnode`, for each row of `pdesc`, the elements of that row,
/// reading the block at `mem_base`. Stores a 0 byte at the end of each
/// string field of the block. All arguments must be valid. Returns 0 always;
/// what failed is told only through the trace.
int param2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);

/// Fills the block at `mem_base` from the children of `xnode` as far as they
/// match rows of `pdesc`. Buffers and list nodes that it allocates come from
/// xmlMalloc() and belong to the caller. All arguments must be valid.
/// Returns 0 always; what failed is told only through the trace.
int xml2param(void *mem_base, xmlNode *xnode, struct pdesc *pdesc);

#ifdef __cplusplus
}
#endif

#include "param_xml_table.h"

#endif
