// param_xml.cpp - what the whole codec shares: the trace set-up, the
// attribute names of the document, the one table of what each kind takes,
// and the lookup of a variant list's alternative.
//
// Invariant: this file calls into no other file of the codec, and each of
// them may call into it; so the writer (param_xml_write.cpp), the reader
// (param_xml_read.cpp), the table check (param_xml_check.cpp) and the
// release walk (param_xml_free.cpp) never depend on one another. A fact
// about a kind (whether it takes counted mode or a count field, what its
// offset addresses, which table it names) is written in kKindInfo alone.
//
// Flow: block -> param2xml (writer) -> tree -> file, and back through
// xml2param (reader); param_xml_check reads a table before use and
// param_xml_free releases what the reader allocated.
#include "param_xml.h"

#include <climits>
#include <cstdio>

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

// kind, writer and its texts, reader and its texts, counted, count field,
// memory, table, indexed
const struct kind_info kKindInfo[16] = {
    {},
    {PT_SINT, "sint2xml", "sint2xml", "xml2sint", "xml2sint", true, true, KM_VALUES, KT_NONE, true},
    {PT_UINT, "uint2xml", "uint2xml", "xml2uint", "xml2uint", true, true, KM_VALUES, KT_NONE, true},
    {PT_FLOT, "flot2xml", "flot2xml", "xml2flot", "xml2flot", true, true, KM_VALUES, KT_NONE, true},
    {PT_STRI, "stri2xml", "stri2xml", "xml2stri", "xml2stri", false, false, KM_STRING, KT_NONE,
     false},
    {PT_ENUM, "enum2xml", "enum2xml", "xml2enum", "xml2enum", false, false, KM_ENUMS, KT_ENUME,
     false},
    {PT_STRU, "stru2xml", "stru2xml", "xml2stru", "xml2stru", true, true, KM_VALUES, KT_PDESC,
     false},
    {PT_LIST, "list2xml", "list2xml", "xml2list", "xml2list", false, true, KM_HEADS, KT_PDESC,
     false},
    {PT_VLST, "vlst2xml", "vlst2xml", "xml2vlst", "xml2vlst", false, true, KM_HEADS, KT_ADESC,
     false},
    {PT_STRUM, "struM2xml", "stru2xml", "xml2struM", "xml2stru", true, true, KM_POINTER,
     KT_PDESC, false},
};

bool enum_size_ok(const struct pdesc *row, const char *func)
{
    if (row->size >= sizeof(int))
        return true;
    KV_LOGF(func, 4, "%s: %s bad size(%zu)", func, row->name, row->size);
    return false;
}

const struct adesc *find_alternative(const struct adesc *table, const char *type)
{
    const struct adesc *alt = table;
    while (alt->name && !xmlStrEqual(BAD_CAST alt->name, BAD_CAST type))
        alt++;
    return alt->name ? alt : nullptr;
}

// ---- options and report of the walks of this thread --------------------------------

namespace {

thread_local uint32_t t_options = 0;
thread_local param_xml_report_t *t_report = nullptr;
thread_local unsigned t_dropped = 0;

// The "C" locale, for exact floats; (locale_t)0 if it can't be had (glibc
// gives it without allocating).
locale_t c_locale()
{
    static locale_t loc = newlocale(LC_ALL_MASK, "C", (locale_t)0);
    return loc;
}

}  // namespace

uint32_t walk_options()
{
    return t_options;
}

param_xml_report_t *walk_report()
{
    return t_report;
}

unsigned walk_dropped()
{
    return t_dropped;
}

void walk_note_dropped()
{
    t_dropped++;
}

void param_xml_walk_begin(struct param_xml_walk *w, uint32_t options, param_xml_report_t *report)
{
    w->options = t_options;
    w->report = t_report;
    w->locale = (locale_t)0;
    if ((options & PARAM_XML_EXACT_FLOATS) && c_locale() != (locale_t)0)
        w->locale = uselocale(c_locale());
    t_options = options;
    t_report = report;
}

void param_xml_walk_end(const struct param_xml_walk *w)
{
    t_options = w->options;
    t_report = w->report;
    if (w->locale != (locale_t)0)
        uselocale(w->locale);
}

void report_case(param_xml_case_t *c, const xmlNode *node, const char *row)
{
    if (c->count++ != 0)
        return;
    const xmlNode *elem = node->type == XML_ATTRIBUTE_NODE ? node->parent : node;
    long line = elem ? xmlGetLineNo(elem) : -1;
    c->line = line > 0 && line <= INT32_MAX ? static_cast<int32_t>(line) : 0;
    xmlChar *path = xmlGetNodePath(node);
    if (path)
        std::snprintf(c->path, sizeof c->path, "%s%s%s", reinterpret_cast<const char *>(path),
                      row ? "/" : "", row ? row : "");
    xmlFree(path);
}
