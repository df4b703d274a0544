// kavor_names.cpp - every name of a parameter file, derived from the path an
// application registered: the file name (".xml" or ".xml.gz"), the backup
// name (".xml.bak" or ".xml.bak.gz"), the virtual name (always ".xml") and
// the root element name (the stem).
//
// Invariant: these functions touch no file, take no lock and keep no state.
// Each returned name is a new heap string owned by the caller, released with
// _vn_free; NULL means a copy could not be made. Whether a file is compressed
// is stored nowhere: isGzFile reads it off the name's last suffix.
#include <string.h>

#include "kavor_private.h"
#include "strmisc.h"
#include "vn_mem.h"
#include "xml_trace.h"

// The base name starts behind the last backslash; only a path without any
// backslash is split at its last slash.
char *file_name_pt(char *path)
{
    if (path == NULL) {
        KV_LOG(4, "path or name is NULL!");
        return NULL;
    }
    char *sep = strrchr(path, '\\');
    if (sep == NULL)
        sep = strrchr(path, '/');
    return sep != NULL ? sep + 1 : path;
}

// Cuts the base name at its first dot, never at a leading one.
void cut_file_suffix(char *name)
{
    if (name == NULL || name[0] == '\0')
        return;
    char *dot = strchr(name + 1, '.');
    if (dot != NULL)
        *dot = '\0';
}

namespace {

// A copy of `name` whose base name is cut to its stem; also returns where
// the stem begins. NULL (and the message of file_name_pt) when the copy
// can't be made.
char *dup_cut(const char *name, const char *tag, char **stem)
{
    char *nms = _string_dup(name, tag);
    char *base = file_name_pt(nms);
    if (base == NULL)
        return NULL;
    cut_file_suffix(base);
    *stem = base;
    return nms;
}

}  // namespace

char *suffix_name(const char *name, const char *suf)
{
    char *stem = NULL;
    char *nms = dup_cut(name, "suffix_name", &stem);
    if (nms == NULL)
        return NULL;
    char *tmp = _string_join(nms, suf, "suffix_name");
    _vn_free(nms, "suffix_name");
    return tmp;
}

char *xml_file_name(const char *name, int32_t ugz)
{
    return suffix_name(name, ugz == 1 ? ".xml" : ".xml.gz");
}

char *xml_file_bak_name(const char *name)
{
    return suffix_name(name, isGzFile(name) ? ".xml.bak.gz" : ".xml.bak");
}

char *get_file_root_node(const char *name)
{
    char *stem = NULL;
    char *nms = dup_cut(name, "get_file_root_node", &stem);
    if (nms == NULL)
        return NULL;
    char *tmp = _string_dup(stem, "get_file_root_node");
    _vn_free(nms, "get_file_root_node");
    return tmp;
}

int32_t isGzFile(const char *path)
{
    const char *dot = path != NULL ? strrchr(path, '.') : NULL;
    if (dot == NULL) {
        KV_LOG(4, "Unknown type of file (%s).", path != NULL ? path : "(null)");
        return 0;
    }
    return strcmp(dot, ".gz") == 0 ? 1 : 0;
}
