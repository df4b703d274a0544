// xml_alloc.h - libxml2's allocator, counted and failing on demand, for the
// leak checks and the allocation-failure sweeps. While one lives, every
// libxml2 allocation goes through it and libxml2's error output is silent.
// One at a time.
#ifndef KAVOR_TEST_XML_ALLOC_H
#define KAVOR_TEST_XML_ALLOC_H

#include <libxml/xmlmemory.h>

class XmlAlloc {
public:
    XmlAlloc();
    ~XmlAlloc();
    XmlAlloc(const XmlAlloc &) = delete;
    XmlAlloc &operator=(const XmlAlloc &) = delete;
    void fail_nth(long n);   ///< the nth allocation from now fails (1: the next); 0: none
    void stop() { fail_nth(0); }
    bool failed() const;   ///< the allocation chosen by fail_nth() has been refused
    long calls() const;    ///< allocation calls since installed
    long live() const;     ///< blocks still live, libxml2's record of its last error aside

private:
    xmlFreeFunc free_;
    xmlMallocFunc malloc_;
    xmlReallocFunc realloc_;
    xmlStrdupFunc strdup_;
};

#endif
