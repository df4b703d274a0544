// param_xml.cpp - the codec's trace registration.
#include "param_xml.h"

#include "xml_trace.h"

vorn_trace_handle param_xml_trace_h = nullptr;

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
