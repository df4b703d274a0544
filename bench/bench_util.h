// bench_util.h - what the benchmarks share: the floor's hand-made digits,
// scratch directories, process CPU time and peak resident memory.
//
// The floor writes integers exactly as the codec's document holds them
// (digits by hand, "0x" before hexadecimal) and floats with one "%.*g" per
// value, so that a ratio against it measures the table walk alone.
#ifndef KAVOR_BENCH_UTIL_H
#define KAVOR_BENCH_UTIL_H

#include <fcntl.h>
#include <malloc.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <type_traits>

#include <libxml/tree.h>

namespace bench {

inline uint64_t &seed()
{
    static uint64_t s = 0x9E3779B97F4A7C15ULL;
    return s;
}

inline uint64_t next_random()
{
    uint64_t &s = seed();
    s ^= s << 13;
    s ^= s >> 7;
    s ^= s << 17;
    return s;
}

inline void fill_random(void *mem, size_t bytes)
{
    unsigned char *p = static_cast<unsigned char *>(mem);
    for (size_t i = 0; i < bytes; i++)
        p[i] = static_cast<unsigned char>(next_random() >> 32);
}

// Digits of v in Base, most significant first.
template <typename U, unsigned Base, bool Upper>
inline char *digits(char *p, U v)
{
    const char *set = Upper ? "0123456789ABCDEF" : "0123456789abcdef";
    char tmp[24];
    int n = 0;
    do {
        tmp[n++] = set[v % Base];
        v = static_cast<U>(v / Base);
    } while (v != 0);
    while (n > 0)
        *p++ = tmp[--n];
    return p;
}

// One integer as the codec writes it: sign, "0x" for hexadecimal, digits.
template <typename T, unsigned Base, bool Upper>
inline char *put_int(char *p, T v)
{
    using U = typename std::make_unsigned<T>::type;
    U m = static_cast<U>(v);
    if (std::is_signed<T>::value && v < 0) {
        *p++ = '-';
        m = static_cast<U>(0u - m);
    }
    if (Base == 16) {
        *p++ = '0';
        *p++ = 'x';
    }
    return digits<U, Base, Upper>(p, m);
}

// Values per element, as the codec groups them.
template <typename T>
constexpr int per_element()
{
    return std::is_floating_point<T>::value ? (sizeof(T) == 4 ? 8 : 4)
                                            : (sizeof(T) <= 2 ? 16 : sizeof(T) == 4 ? 8 : 4);
}

inline xmlNode *text_element(xmlNode *parent, const char *name, const char *text)
{
    xmlNode *e = xmlNewNode(nullptr, BAD_CAST name);
    if (text && *text)
        xmlNodeAddContent(e, BAD_CAST text);
    xmlAddChild(parent, e);
    return e;
}

// The elements of one array row: `per` values each, "idx" on all but the
// first; integers by hand, floats one "%.*g" per value.
template <typename T, unsigned Base = 10, bool Upper = false>
void floor_write_array(const T *mem, int count, const char *name, xmlNode *parent)
{
    const int per = per_element<T>();
    char ctnt[512];
    char idx[16];
    for (int i = 0; i < count;) {
        xmlNode *e = xmlNewNode(nullptr, BAD_CAST name);
        if (i != 0) {
            char *q = digits<unsigned, 10, false>(idx, static_cast<unsigned>(i));
            *q = '\0';
            xmlNewProp(e, BAD_CAST "idx", BAD_CAST idx);
        }
        char *p = ctnt;
        int end = count - i > per ? i + per : count;
        for (int k = i; k < end; k++) {
            if (k != i)
                *p++ = ' ';
            if constexpr (std::is_floating_point<T>::value)
                p += snprintf(p, sizeof ctnt - static_cast<size_t>(p - ctnt), "%.*g",
                              sizeof(T) == 4 ? 6 : 15, static_cast<double>(mem[k]));
            else
                p = put_int<T, Base, Upper>(p, mem[k]);
        }
        *p = '\0';
        xmlNodeAddContent(e, BAD_CAST ctnt);
        xmlAddChild(parent, e);
        i = end;
    }
}

// Parses the values of one element's text into mem from *i on.
template <typename T>
void floor_parse(const char *p, T *mem, int count, int *i)
{
    while (*i < count) {
        char *endp;
        T v;
        if constexpr (std::is_floating_point<T>::value)
            v = static_cast<T>(strtod(p, &endp));
        else if constexpr (std::is_signed<T>::value)
            v = static_cast<T>(strtoimax(p, &endp, 0));
        else
            v = static_cast<T>(strtoumax(p, &endp, 0));
        if (endp == p)
            break;
        mem[(*i)++] = v;
        p = endp;
    }
}

// The first element at or after e (an indented document has blank text
// between elements).
inline xmlNode *elem(xmlNode *e)
{
    while (e && e->type != XML_ELEMENT_NODE)
        e = e->next;
    return e;
}

// Reads the elements of one array row, starting at e and taking every
// following sibling of the same name; returns the first other sibling.
template <typename T>
xmlNode *floor_read_array(xmlNode *e, T *mem, int count)
{
    int i = 0;
    e = elem(e);
    const xmlChar *name = e ? e->name : nullptr;
    for (; e && xmlStrEqual(e->name, name); e = elem(e->next)) {
        xmlChar *c = xmlNodeGetContent(e);
        floor_parse<T>(reinterpret_cast<const char *>(c), mem, count, &i);
        xmlFree(c);
    }
    return e;
}

inline std::string scratch_dir()
{
    const char *base = getenv("TMPDIR");
    std::string tmpl = std::string(base && *base ? base : "/tmp") + "/kavor-bench-XXXXXX";
    return mkdtemp(&tmpl[0]) ? tmpl : std::string("/tmp");
}

inline void remove_tree(const std::string &dir)
{
    std::string rm = "rm -rf '" + dir + "'";
    if (system(rm.c_str()) != 0)
        fprintf(stderr, "could not remove %s\n", dir.c_str());
}

inline long file_size(const std::string &p)
{
    struct stat st;
    return stat(p.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
}

inline double cpu_seconds()
{
    struct timespec ts;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

// Keeps freed memory in the heap between calls. With glibc's defaults a
// call that frees a whole document may hand its pages back to the kernel
// or not, depending on which block happens to lie at the top of the heap,
// and the next call then faults them in again; on a virtual machine that
// costs up to 40% of a load and moves with the layout, not with the code.
// Every figure of a run (kavor, floor, peer) runs under the same setting.
inline void keep_heap()
{
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    mallopt(M_MMAP_THRESHOLD, 32 << 20);  // the largest glibc takes
}

// A field of /proc/self/status in KiB ("VmHWM:", "VmRSS:"); -1 if missing.
inline long status_kib(const char *field)
{
    FILE *f = fopen("/proc/self/status", "r");
    if (!f)
        return -1;
    char line[256];
    long v = -1;
    size_t n = strlen(field);
    while (fgets(line, sizeof line, f))
        if (strncmp(line, field, n) == 0) {
            v = strtol(line + n, nullptr, 10);
            break;
        }
    fclose(f);
    return v;
}

// Sets the peak resident size back to the current one; false where the
// kernel doesn't offer it.
inline bool reset_peak()
{
    int fd = open("/proc/self/clear_refs", O_WRONLY);
    if (fd < 0)
        return false;
    bool ok = write(fd, "5", 1) == 1;
    close(fd);
    return ok;
}

}  // namespace bench

#endif
