// kavor_xml_errors.cpp - libxml2's own messages during the library's parses
// and saves go into the trace (level 5, with file, line and column), not to
// standard error, where libxml2 sends them by default.
//
// A parse hands them over through its parser context (the context's
// structured error handler); what libxml2 raises without a context (an I/O
// error of the file, a failed allocation in the tree or the writer) goes to
// the thread's own handlers, which a route installs for the length of one
// call and then restores. libxml2 keeps those handlers per thread, so no
// process-wide libxml2 setting that the application may own is changed, and
// the application's own handlers on the same thread are back when the call
// returns. A route writes at most kMaxRecords records, then one that counts
// the rest: a hostile document can't flood the trace.
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <libxml/globals.h>
#include <libxml/parser.h>

#include "kavor_private.h"
#include "xml_trace.h"

namespace {

const int32_t kMaxRecords = 16;

// One record for a message of libxml2, while the route takes more.
bool room_for_record(kavor_xml_errors_t *route)
{
    return ++route->count <= kMaxRecords;
}

// The message without its line end.
int message_len(const char *msg)
{
    size_t n = strlen(msg);
    while (n > 0 && (msg[n - 1] == '\n' || msg[n - 1] == '\r'))
        n--;
    return (int)n;
}

// Messages that libxml2 writes as text, with no place in a file.
void generic(void *data, const char *fmt, ...)
{
    kavor_xml_errors_t *route = static_cast<kavor_xml_errors_t *>(data);
    if (!room_for_record(route))
        return;
    char text[256];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);
    KV_LOGF(route->fname, 5, "libxml2: %s:0:0: %.*s", route->path, message_len(text), text);
}

}  // namespace

void kavor_xml_error(void *data, xmlErrorPtr err)
{
    kavor_xml_errors_t *route = static_cast<kavor_xml_errors_t *>(data);
    if (err == NULL || !room_for_record(route))
        return;
    const char *msg = err->message != NULL ? err->message : "(no message)";
    KV_LOGF(route->fname, 5, "libxml2: %s:%d:%d: %.*s",
            err->file != NULL ? err->file : route->path, err->line, err->int2,
            message_len(msg), msg);
}

void kavor_xml_errors_begin(kavor_xml_errors_t *route, const char *fname, const char *path)
{
    route->fname = fname;
    route->path = path;
    route->count = 0;
    route->saved_serror = xmlStructuredError;
    route->saved_sctx = xmlStructuredErrorContext;
    route->saved_error = xmlGenericError;
    route->saved_ctx = xmlGenericErrorContext;
    xmlSetStructuredErrorFunc(route, kavor_xml_error);
    xmlSetGenericErrorFunc(route, generic);
}

void kavor_xml_errors_end(kavor_xml_errors_t *route)
{
    xmlSetGenericErrorFunc(route->saved_ctx, route->saved_error);
    xmlSetStructuredErrorFunc(route->saved_sctx, route->saved_serror);
    if (route->count > kMaxRecords)
        KV_LOGF(route->fname, 5, "libxml2: %d more messages on %s not shown.",
                route->count - kMaxRecords, route->path);
}
