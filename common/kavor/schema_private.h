// schema_private.h - the schema generator's pieces that the file manager's
// schema call shares with the codec's (param_xml_schema.cpp): a schema
// document under construction, the complex type that describes the children
// param2xml writes for a table, and schema elements made in it.
#ifndef KAVOR_SCHEMA_PRIVATE_H
#define KAVOR_SCHEMA_PRIVATE_H

#include <libxml/tree.h>

#include "param_xml.h"

struct schema_gen;

/// A new schema document (root xs:schema), or NULL (level 4) when out of
/// memory.
struct schema_gen *schema_begin(void);

/// The xs:schema element of `g`.
xmlNodePtr schema_root(struct schema_gen *g);

/// A child `xs:<tag>` of `parent` with attribute name=`name` (when not
/// NULL); NULL when `parent` is NULL or memory ran out (then `g` has
/// failed).
xmlNodePtr schema_xs(struct schema_gen *g, xmlNodePtr parent, const char *tag, const char *name);

/// Sets `type` on the element declaration `decl` to the global complex type
/// that describes the children param2xml writes for `table`, made on first
/// use and named after `hint`. A row that can't be described fails `g`
/// (level 4, naming the row).
void schema_table_element(struct schema_gen *g, xmlNodePtr decl, const char *hint,
                          const struct pdesc *table);

/// Ends the construction: the document, or NULL when anything failed (it
/// is released then). `g` is released either way.
xmlDocPtr schema_end(struct schema_gen *g);

#endif
