// file_helpers.cpp - file facts and directory creation for parameter files.
//
// get_gz_filesize() reports the size on disk (compressed size for a gzip
// file), because callers only ask "is there anything to parse". The result
// is clamped so that it never turns negative or zero in a 32-bit word.
// make_dir_from_filename() creates the directory part of a path one level at
// a time, so that a missing chain of directories is made in one call. Its
// copy of the path comes from the engine's allocator, like every block of
// the library: when that fails, the call fails and the write that follows
// shows it.
#include <errno.h>
#include <stdint.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>

#include "othermisc.h"
#include "vn_mem.h"
#include "zlib_if.h"

namespace {

// Reads the decimal digits of `mode` as octal digits: 777 -> 0777, 755 ->
// 0755. Returns -1 for a negative number or a digit 8 or 9.
long octal_from_decimal_digits(int32_t mode)
{
    if (mode < 0)
        return -1;
    long result = 0;
    long weight = 1;
    for (int32_t rest = mode; rest > 0; rest /= 10) {
        int digit = rest % 10;
        if (digit > 7)
            return -1;
        result += digit * weight;
        weight *= 8;
    }
    return result & 07777;
}

const char kMkdirTag[] = "make_dir_from_filename";

bool is_dir(const char *path)
{
    struct stat st;
    return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

// Makes one directory unless a directory of that name is there already.
bool ensure_dir(const char *path, mode_t mode)
{
    if (mkdir(path, mode) == 0)
        return true;
    return errno == EEXIST && is_dir(path);
}

}  // namespace

extern "C" int32_t get_gz_filesize(const char *path)
{
    if (!path)
        return 0;
    struct stat st;
    if (stat(path, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size <= 0)
        return 0;
    if (st.st_size > INT32_MAX)
        return INT32_MAX;
    return static_cast<int32_t>(st.st_size);
}

extern "C" int32_t make_dir_from_filename(const char *path, int32_t mode)
{
    if (!path)
        return -1;
    long perm = octal_from_decimal_digits(mode);
    if (perm < 0)
        return -1;
    const char *cut = strrchr(path, '/');
    if (cut == NULL || cut == path)             // no directory part, or the root
        return 0;
    size_t len = static_cast<size_t>(cut - path);
    char *dir = static_cast<char *>(_vn_malloc(len + 1, kMkdirTag));
    if (dir == NULL)
        return -1;
    memcpy(dir, path, len);
    dir[len] = '\0';
    bool ok = true;
    for (char *at = strchr(dir + 1, '/'); ok && at != NULL; at = strchr(at + 1, '/')) {
        if (at[-1] == '/')                      // "a//b": the prefix was made already
            continue;
        *at = '\0';
        ok = ensure_dir(dir, static_cast<mode_t>(perm));
        *at = '/';
    }
    ok = ok && ensure_dir(dir, static_cast<mode_t>(perm));
    _vn_free(dir, kMkdirTag);
    return ok ? 0 : -1;
}
