// pdesc_row.h - one descriptor row for the codec tests' tables, with the
// fields a test names and every other field zero.
#ifndef KAVOR_TEST_PDESC_ROW_H
#define KAVOR_TEST_PDESC_ROW_H

#include <stddef.h>

#include "param_xml.h"

/// A row of kind `type` named `name`: `count` values of `size` bytes each at
/// `offset` in the block.
inline struct pdesc row_of(int type, const char *name, int count, size_t size, size_t offset = 0)
{
    struct pdesc r = {};
    r.type = type;
    r.name = name;
    r.count = count;
    r.size = size;
    r.offset = offset;
    return r;
}

#endif
