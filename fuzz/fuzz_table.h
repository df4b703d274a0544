// fuzz_table.h - the block the fuzz targets and the hostile-document tests
// read into: the rich structure of the table-macro tests, whose table has a
// row of every kind in every mode, with the memory that its pointer row
// (pitems) needs. Include in one translation unit.
#ifndef KAVOR_FUZZ_TABLE_H
#define KAVOR_FUZZ_TABLE_H

#include <string.h>

#include "../tests/param_xml_table_fixture.h"

FX_DEFINE_TABLES

namespace fuzz {

struct RichBlock {
    struct fx_all all;
    struct fx_item pitems[4], pitemc[4];
};

/// Empties `b` and points its pointer rows at its own arrays.
inline void reset(RichBlock *b)
{
    memset(b, 0, sizeof *b);
    b->all.pitems = b->pitems;
    b->all.pitemc = b->pitemc;
}

}  // namespace fuzz

#endif
