/// @file strmisc.h
/// Heap strings made through the engine's allocator; release them with
/// _vn_free(p, tag).
#ifndef STRMISC_H
#define STRMISC_H

#ifdef __cplusplus
extern "C" {
#endif

/// A new heap copy of `s`, or NULL if `s` is NULL or memory runs out.
char *_string_dup(const char *s, const char *tag);

/// A new heap string holding `a` then `b`, or NULL if either is NULL or
/// memory runs out. The inputs are unchanged.
char *_string_join(const char *a, const char *b, const char *tag);

#ifdef __cplusplus
}
#endif

#endif
