/// @file vn_mem.h
/// Engine memory: every record and string of the parameter library comes from
/// here, so one hook can make any allocation fail in a test.
#ifndef VN_MEM_H
#define VN_MEM_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Allocates `size` bytes. `tag` names the calling function (kept for
/// diagnostics only, may be NULL). Returns NULL on failure, including a
/// failure injected by a test.
void *_vn_malloc(size_t size, const char *tag);

/// Releases a block from _vn_malloc(). `p` may be NULL (nothing happens);
/// `tag` may be NULL.
void _vn_free(void *p, const char *tag);

#ifdef __cplusplus
}
#endif

#endif
