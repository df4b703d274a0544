/// @file vn_tube.h
/// Engine tubes (message channels between tasks). The parameter library only
/// needs the types that appear in a task record's head.
#ifndef VN_TUBE_H
#define VN_TUBE_H

#include <stdint.h>

/// Opaque handle of one tube.
typedef void *tube_handle;

/// A task's set of tubes in one direction.
typedef struct {
    uint32_t nums;        ///< number of tubes in `tubes`
    tube_handle *tubes;   ///< array of `nums` tube handles, owned by the engine
} linker_t;

#endif
