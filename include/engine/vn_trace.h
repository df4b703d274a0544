/// @file vn_trace.h
/// Engine trace modules. A module keeps each record whose level is at most
/// its default level and drops the others. A kept record is one line,
/// "<level> <function>: <message>", delivered to the module's callback, or
/// appended to its file (with a line end), or written to standard error.
/// A record never holds a control byte: they are escaped as user_func
/// (vn_trace_types.h) tells.
///
/// Internal to the library and never installed: an application reaches the
/// trace through param_xml_trace_init() (param_xml.h), which takes the types
/// of vn_trace_types.h.
#ifndef VN_TRACE_H
#define VN_TRACE_H

#include <stdint.h>

#include "vn_trace_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/// Creates a trace module. `mod_name` and `filename` are copied; either may
/// be NULL. `dft_lvl` is the highest level kept. Records go to `func` when it
/// is not NULL, else appended to `filename` when it is neither NULL nor
/// empty, else to standard error. Returns NULL when out of memory.
vorn_trace_handle vorn_mod_trace_init(const char *mod_name, const char *filename,
                                      uint32_t dft_lvl, user_func func);

/// Releases a module made by vorn_mod_trace_init(). NULL is ignored. The
/// caller makes sure that no thread logs through it any more.
void vorn_mod_trace_free(vorn_trace_handle handle);

/// Returns non-zero if a record of `level` would be kept by `handle`.
int vorn_trace_enabled(vorn_trace_handle handle, uint32_t level);

/// Formats and delivers one record. `file` and `line` locate the call,
/// `func` is the name shown in the record. A NULL handle drops the record
/// in silence; so does a level above the module's. A record of more than
/// 1023 bytes (after escaping) takes a block of the engine's allocator; when
/// that can't be had, it is delivered cut to 1023 bytes, never inside an
/// escape.
void vorn_trace_log(vorn_trace_handle handle, const char *file, const char *func,
                    int line, uint32_t level, const char *fmt, ...)
    __attribute__((format(printf, 6, 7)));

#ifdef __cplusplus
}
#endif

#endif
