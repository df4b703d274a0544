// xml_alloc.h - libxml2's allocator, counted and failing on demand, for the
// leak checks and allocation-failure sweeps of the tests.
#ifndef KAVOR_TEST_XML_ALLOC_H
#define KAVOR_TEST_XML_ALLOC_H

#include <libxml/xmlmemory.h>

/// While one lives, every libxml2 allocation goes through it: calls are
/// counted, live blocks are counted, and a chosen call can be refused.
/// libxml2's own error output is silenced meanwhile. One at a time.
class XmlAlloc {
public:
    XmlAlloc();
    ~XmlAlloc();
    XmlAlloc(const XmlAlloc &) = delete;
    XmlAlloc &operator=(const XmlAlloc &) = delete;

    /// The `n`th allocation from now fails (1 = the next); 0 or less: none.
    void fail_nth(long n);
    /// No further allocation fails.
    void stop() { fail_nth(0); }
    /// True once the allocation chosen by fail_nth() has been refused.
    bool failed() const;
    /// Allocation calls (malloc, realloc, strdup) since installed.
    long calls() const;
    /// Blocks still live, not counting libxml2's record of its last error.
    long live() const;

private:
    xmlFreeFunc free_;
    xmlMallocFunc malloc_;
    xmlReallocFunc realloc_;
    xmlStrdupFunc strdup_;
};

#endif
