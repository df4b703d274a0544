// strmisc.cpp - heap strings through the engine's allocator, so that the
// allocation-failure hook reaches every string the library makes.
#include "strmisc.h"

#include <cstring>

#include "vn_mem.h"

extern "C" char *_string_dup(const char *s, const char *tag)
{
    if (!s)
        return nullptr;
    size_t len = std::strlen(s);
    char *p = static_cast<char *>(_vn_malloc(len + 1, tag));
    if (!p)
        return nullptr;
    std::memcpy(p, s, len + 1);
    return p;
}

extern "C" char *_string_join(const char *a, const char *b, const char *tag)
{
    if (!a || !b)
        return nullptr;
    size_t la = std::strlen(a);
    size_t lb = std::strlen(b);
    char *p = static_cast<char *>(_vn_malloc(la + lb + 1, tag));
    if (!p)
        return nullptr;
    std::memcpy(p, a, la);
    std::memcpy(p + la, b, lb + 1);
    return p;
}
