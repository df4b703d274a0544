// xml_alloc.cpp - the counting allocator handed to xmlMemSetup. The counts
// are process-wide because libxml2's hooks take no context.
#include "xml_alloc.h"

#include <stdlib.h>
#include <string.h>

#include <libxml/parser.h>
#include <libxml/xmlerror.h>

namespace {

long g_calls, g_fail_at, g_live;

void quiet(void *, const char *, ...) {}

bool refuse() { return ++g_calls == g_fail_at; }   // counts a call; true for the one to refuse

void *do_malloc(size_t n)
{
    void *p = refuse() ? nullptr : malloc(n);
    return g_live += p != nullptr, p;
}

void *do_realloc(void *p, size_t n)
{
    void *q = refuse() ? nullptr : realloc(p, n);
    return g_live += p == nullptr && q != nullptr, q;
}

void do_free(void *p) { g_live -= p != nullptr, free(p); }

char *do_strdup(const char *s)
{
    char *p = static_cast<char *>(do_malloc(strlen(s) + 1));
    return p != nullptr ? strcpy(p, s) : nullptr;
}

}  // namespace

XmlAlloc::XmlAlloc()
{
    xmlInitParser();      // what libxml2 sets up once for the process is not counted
    xmlResetLastError();  // its texts were allocated outside the count
    xmlSetGenericErrorFunc(nullptr, quiet);
    xmlMemGet(&free_, &malloc_, &realloc_, &strdup_);
    g_calls = g_fail_at = g_live = 0;
    xmlMemSetup(do_free, do_malloc, do_realloc, do_strdup);
}

XmlAlloc::~XmlAlloc()
{
    xmlResetLastError();
    xmlMemSetup(free_, malloc_, realloc_, strdup_);
    xmlSetGenericErrorFunc(nullptr, nullptr);
}

void XmlAlloc::fail_nth(long n) { g_fail_at = n > 0 ? g_calls + n : 0; }
bool XmlAlloc::failed() const { return g_fail_at > 0 && g_calls >= g_fail_at; }
long XmlAlloc::calls() const { return g_calls; }
long XmlAlloc::live() const { return xmlResetLastError(), g_live; }
