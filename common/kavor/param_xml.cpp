// param_xml.cpp - what the whole codec shares: the trace set-up, the
// attribute names of the document, the one table of what each kind takes,
// and the lookup of a variant list's alternative.
//
// Invariant: this file calls into no other file of the codec, and each of
// them may call into it; so the writer (param_xml_write.cpp), the reader
// (param_xml_read.cpp), the table check (param_xml_check.cpp) and the
// release walk (param_xml_free.cpp) never depend on one another.
//
// Flow: block -> param2xml (writer) -> tree -> file, and back through
// xml2param (reader); param_xml_check reads a table before use and
// param_xml_free releases what the reader allocated.
#include "param_xml.h"

#include "param_xml_private.h"
#include "xml_trace.h"

vorn_trace_handle param_xml_trace_h = nullptr;

const xmlChar *const xStrIdx = BAD_CAST "idx";
const xmlChar *const xStrCnt = BAD_CAST "cnt";
const xmlChar *const xStrTyp = BAD_CAST "typ";

namespace {
int has_init = 0;
}

extern "C" void param_xml_trace_init(const char *mod_name, const char *filename,
                                     uint32_t dft_lvl, user_func func)
{
    if (has_init)
        return;
    param_xml_trace_h = vorn_mod_trace_init(mod_name, filename, dft_lvl, func);
    has_init = 1;
}

const struct adesc *find_alternative(const struct adesc *table, const char *type)
{
    const struct adesc *alt = table;
    while (alt->name && !xmlStrEqual(BAD_CAST alt->name, BAD_CAST type))
        alt++;
    return alt->name ? alt : nullptr;
}
