// xml_trace.h - the one trace handle of the library and the macros that
// write records through it. A record names the function of the design that
// writes it: KV_LOG takes the enclosing function's name, KV_LOGF is for
// shared code that writes on behalf of a named step.
#ifndef KAVOR_XML_TRACE_H
#define KAVOR_XML_TRACE_H

#include "vn_trace.h"

#ifdef __cplusplus
extern "C" {
#endif
extern vorn_trace_handle param_xml_trace_h;
#ifdef __cplusplus
}
#endif

// Without a handle every record is dropped; testing the handle here spares
// the call and its arguments on the per-element paths of a quiet codec.
#define KV_LOGF(fname, level, ...)                                                          \
    do {                                                                                    \
        if (param_xml_trace_h)                                                              \
            vorn_trace_log(param_xml_trace_h, __FILE__, (fname), __LINE__, (level), __VA_ARGS__); \
    } while (0)
#define KV_LOG(level, ...) KV_LOGF(__func__, (level), __VA_ARGS__)

#endif
