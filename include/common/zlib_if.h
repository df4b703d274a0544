/// @file zlib_if.h
/// File facts for plain and gzip files.
#ifndef ZLIB_IF_H
#define ZLIB_IF_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Size of the file at `path` on disk, clamped to INT32_MAX; 0 when it is
/// missing, empty, not a regular file or `path` is NULL.
int32_t get_gz_filesize(const char *path);

#ifdef __cplusplus
}
#endif

#endif
