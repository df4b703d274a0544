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

// Counts a call; true if it is the one to refuse.
bool refuse() { return ++g_calls == g_fail_at; }

void *do_malloc(size_t n)
{
    if (refuse())
        return nullptr;
    void *p = malloc(n);
    g_live += p != nullptr;
    return p;
}

void *do_realloc(void *p, size_t n)
{
    if (refuse())
        return nullptr;
    void *q = realloc(p, n);
    g_live += p == nullptr && q != nullptr;
    return q;
}

void do_free(void *p)
{
    g_live -= p != nullptr;
    free(p);
}

char *do_strdup(const char *s)
{
    size_t n = strlen(s) + 1;
    char *p = static_cast<char *>(do_malloc(n));
    if (p != nullptr)
        memcpy(p, s, n);
    return p;
}

}  // namespace

XmlAlloc::XmlAlloc()
{
    xmlInitParser();   // what libxml2 sets up once for the process is not counted
    xmlResetLastError();  // its texts were allocated outside the count
    xmlSetGenericErrorFunc(nullptr, quiet);
    xmlMemGet(&free_, &malloc_, &realloc_, &strdup_);
    g_calls = 0;
    g_fail_at = 0;
    g_live = 0;
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

long XmlAlloc::live() const
{
    xmlResetLastError();
    return g_live;
}
