// file_helpers.cpp - file facts and directory creation for parameter files.
//
// get_gz_filesize() reports the size on disk (compressed size for a gzip
// file), because callers only ask "is there anything to parse". The result
// is clamped so that it never turns negative or zero in a 32-bit word.
// make_dir_from_filename() creates the directory part of a path one level at
// a time, so that a missing chain of directories is made in one call.
#include <errno.h>
#include <stdint.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <string>

#include "othermisc.h"
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

bool is_dir(const std::string &path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Makes one directory unless a directory of that name is there already.
bool ensure_dir(const std::string &path, mode_t mode)
{
    if (mkdir(path.c_str(), mode) == 0)
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
    std::string dir(path);
    size_t cut = dir.find_last_of('/');
    if (cut == std::string::npos || cut == 0)   // no directory part, or the root
        return 0;
    dir.resize(cut);
    for (size_t at = dir.find('/', 1); at != std::string::npos; at = dir.find('/', at + 1)) {
        if (dir[at - 1] == '/')                 // "a//b": the prefix was made already
            continue;
        if (!ensure_dir(dir.substr(0, at), static_cast<mode_t>(perm)))
            return -1;
    }
    return ensure_dir(dir, static_cast<mode_t>(perm)) ? 0 : -1;
}
