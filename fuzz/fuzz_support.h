// fuzz_support.h - what the fuzz targets share: the library's trace at its
// most detailed level into a sink (so every record is formatted and none is
// printed), libxml2's allocator counted so that what the reader hands to the
// application can be given back after each input, and libxml2's own
// diagnostics silenced.
//
// Invariant: after fuzz_release_reader_blocks() no block that libxml2's
// allocator handed out during the input is live any more; the library's own
// allocations (_vn_malloc) are left to LeakSanitizer.
#ifndef KAVOR_FUZZ_SUPPORT_H
#define KAVOR_FUZZ_SUPPORT_H

#include <stdlib.h>
#include <string.h>

#include <string>
#include <unordered_set>

#include <libxml/parser.h>
#include <libxml/xmlmemory.h>

#include "param_xml.h"

namespace fuzz {

// Blocks of libxml2's allocator that are live. A node-based set allocates
// through operator new, never through xmlMalloc, so it can't recurse.
inline std::unordered_set<void *> &live()
{
    static std::unordered_set<void *> s;
    return s;
}

inline void *tracked_malloc(size_t n)
{
    void *p = malloc(n);
    if (p)
        live().insert(p);
    return p;
}

inline void *tracked_realloc(void *p, size_t n)
{
    void *q = realloc(p, n);
    if (q) {
        if (p)
            live().erase(p);
        live().insert(q);
    }
    return q;
}

inline void tracked_free(void *p)
{
    if (p) {
        live().erase(p);
        free(p);
    }
}

inline char *tracked_strdup(const char *s)
{
    size_t n = strlen(s) + 1;
    char *p = static_cast<char *>(tracked_malloc(n));
    if (p)
        memcpy(p, s, n);
    return p;
}

inline int32_t trace_sink(const char *record)
{
    // Touch every byte: a record read past its end shows under ASan.
    size_t n = strlen(record);
    return static_cast<int32_t>(n & 1);
}

inline void quiet_libxml(void *, const char *, ...) {}

/// Forgets the blocks counted so far (what libxml2 keeps for itself).
inline void begin_input()
{
    live().clear();
}

/// Once per process, before any libxml2 call. Documents in several
/// encodings make libxml2 set up what it keeps for the whole process, so
/// that no such block is counted as an input's.
inline void setup()
{
    xmlMemSetup(tracked_free, tracked_malloc, tracked_realloc, tracked_strdup);
    xmlInitParser();
    xmlSetGenericErrorFunc(nullptr, quiet_libxml);
    param_xml_trace_init("fuzz", nullptr, 8, trace_sink);
    static const std::string warm[] = {
        "<?xml version='1.0' encoding='ISO-8859-1'?><a>\xe9</a>",
        "<?xml version='1.0' encoding='UTF-16'?><a/>",
        "<?xml version='1.0' encoding='EBCDIC'?><a/>",
        std::string("\xff\xfe<\0a\0/\0>\0", 10),
        "<!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>",
    };
    for (const std::string &w : warm)
        xmlFreeDoc(xmlReadMemory(w.data(), static_cast<int>(w.size()), "w.xml", nullptr,
                                 XML_PARSE_RECOVER));
    xmlResetLastError();
    begin_input();
}

/// Frees every libxml2 block still live: the buffers and list nodes that
/// the reader made for the application (it never frees them itself, and
/// a document may make it overwrite a pointer to one).
inline void release_reader_blocks()
{
    xmlResetLastError();  // the last error's text is libxml2's, not the reader's
    for (void *p : live())
        free(p);
    live().clear();
}

}  // namespace fuzz

#endif
