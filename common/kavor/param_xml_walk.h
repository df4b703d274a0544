// param_xml_walk.h - the options and the report of the codec's walks on one
// thread: with the allocation limit (param_xml_limit.h), the piece of the
// codec's inside that the file manager uses (a load or a save sets them
// around its walk of a document). Internal to the library: nothing here is
// exported. Defined in param_xml.cpp, which the writer and the reader both
// read them from.
#ifndef KAVOR_PARAM_XML_WALK_H
#define KAVOR_PARAM_XML_WALK_H

#include <locale.h>
#include <stdint.h>

#include "param_xml.h"

/// The state of the walks on this thread that param_xml_walk_begin
/// replaced, for param_xml_walk_end to put back: options, report and the
/// thread's locale.
struct param_xml_walk {
    uint32_t options;
    param_xml_report_t *report;
    locale_t locale;      // the thread's locale before; (locale_t)0 when not switched
};

/// Sets the options (PARAM_XML_*) and the report (NULL: none) of every walk
/// on this thread until param_xml_walk_end, nested walks included; with
/// PARAM_XML_EXACT_FLOATS the thread runs under the "C" locale meanwhile.
/// `w` keeps what is replaced. The file manager wraps its loads and saves in
/// such a pair; param2xml_opt and xml2param_report are this pair around the
/// plain frames.
void param_xml_walk_begin(struct param_xml_walk *w, uint32_t options, param_xml_report_t *report);
void param_xml_walk_end(const struct param_xml_walk *w);
/// The options and the report of the walks on this thread now.
uint32_t walk_options();
param_xml_report_t *walk_report();
/// The writer's count, on this thread, of elements it couldn't make for
/// want of memory (each drops the rest of its row from the document): it
/// only grows, so a build that compares it before and after its walk knows
/// whether the document it holds is whole.
unsigned walk_dropped();
void walk_note_dropped();
/// Counts one case in `c`; the first case notes the path and line of
/// `node` (an element or an attribute), with "/<row>" behind the path when
/// `row` isn't NULL (a missing row). The reader's; the file manager uses it
/// for the root's part of a load's report.
void report_case(param_xml_case_t *c, const xmlNode *node, const char *row);

#endif
