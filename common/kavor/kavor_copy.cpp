// kavor_copy.cpp - parameter files seen from outside a running application:
// the names a registration gives a file, and what a load makes of one copy
// on disk. Tools (the `kavor` command) use these calls so that they name
// files and judge copies exactly as the library does, through the library's
// own functions, with no table and no manager.
#include <stdio.h>
#include <string.h>

#include "kavor_private.h"
#include "vn_mem.h"
#include "xml_trace.h"

namespace {

// Copies `s` into `out` of `size` bytes and releases it; false when it is
// NULL or doesn't fit.
bool move_name_into(char *s, char *out, size_t size, const char *tag)
{
    bool ok = s != nullptr && out != nullptr && strlen(s) < size;
    if (ok)
        memcpy(out, s, strlen(s) + 1);
    _vn_free(s, tag);
    return ok;
}

}  // namespace

extern "C" int32_t kavor_file_names(const char *path, int32_t ugz, char *file, char *backup,
                                    char *root, size_t size)
{
    if (path == nullptr || *path == '\0') {
        KV_LOG(4, "path or name is NULL!");
        return -1;
    }
    char *f = xml_file_name(path, ugz);
    bool ok = f != nullptr;
    ok = move_name_into(f != nullptr ? xml_file_bak_name(f) : nullptr, backup, size, __func__) && ok;
    ok = move_name_into(f != nullptr ? get_file_root_node(f) : nullptr, root, size, __func__) && ok;
    ok = move_name_into(f, file, size, __func__) && ok;
    return ok ? 0 : -1;
}

extern "C" int32_t kavor_copy_read(const char *path, const char *root, xmlDocPtr *doc)
{
    if (doc != nullptr)
        *doc = nullptr;
    if (path == nullptr)
        return KAVOR_COPY_UNUSABLE;
    return kavor_read_copy(path, root, doc);
}
