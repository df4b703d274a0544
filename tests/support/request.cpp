// request.cpp - the one place tests fill a registration record by hand.
#include "request.h"

#include <string.h>

namespace {

// Copies `src` into `field`, cut so that the field's last byte stays NUL.
template <size_t N> void put(char (&field)[N], const char *src)
{
    strncpy(field, src, N - 1);
    field[N - 1] = '\0';
}

}  // namespace

kavor_file_rgst_t make_request(const std::string &file, const char *node, xml_pd_t *table,
                               void *mem, int32_t ugz, const std::string &virt)
{
    kavor_file_rgst_t r;
    memset(&r, 0, sizeof(r));
    put(r.filename, file.c_str());
    put(r.node_name, node);
    put(r.virtfile, virt.c_str());
    r.param_desc = table;
    r.mem = mem;
    r.ugz = ugz;
    return r;
}
