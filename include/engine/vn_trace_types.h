/// @file vn_trace_types.h
/// The types of the engine's trace that the library's public headers use:
/// the handle of a trace module and the receiver of its records. Installed
/// with the public headers; the trace calls themselves (vn_trace.h) are the
/// engine's own and are not exported by the library.
#ifndef VN_TRACE_TYPES_H
#define VN_TRACE_TYPES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Opaque handle of one trace module. NULL is a valid "drop everything".
typedef void *vorn_trace_handle;

/// Receiver of formatted records. A record is one line without a line end,
/// "<level> <function>: <message>", for example
/// "4 kavor_register: xml file name is empty!". It never holds a control
/// byte: after formatting, a line feed, tab and carriage return are written
/// "\n", "\t" and "\r", a backslash "\\", and every other byte below 0x20
/// and 0x7f as "\xNN" (two lower-case hex digits), so no text that a message
/// carries (a name, a value read from a document) can end a record or forge
/// another one. Other bytes, UTF-8 included, are written as they are. The
/// result is not read.
typedef int32_t (*user_func)(const char *record);

#ifdef __cplusplus
}
#endif

#endif
