// fixture.h - what the benchmarks share: random values, a scratch
// directory, registration requests, the timing helper and the main
// function; the floor (kavor's documents made and read by libxml2 alone);
// and the device block of the file figures, with its table and its floor.
//
// Invariant: a figure times only the call it is named for (set-up, checks
// and releases run outside the timed part), and the floor writes exactly
// the document kavor writes (integers digit by digit, "0x" before
// hexadecimal, floats with one "%.*g" per value, "idx" on each element of
// an array but the first) and reads it with xmlNodeGetContent and strto*
// alone, in the order it knows, so that a ratio against it measures the
// table walk alone. Each benchmark file holds only its figures.
#ifndef KAVOR_BENCH_FIXTURE_H
#define KAVOR_BENCH_FIXTURE_H

#include <benchmark/benchmark.h>
#include <inttypes.h>
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <chrono>
#include <string>
#include <type_traits>

#include <libxml/parser.h>

#include "device_layout.h"
#include "kavor.h"

namespace bench {

inline uint64_t next_random()
{
    static uint64_t s = 0x9E3779B97F4A7C15ULL;
    s ^= s << 13;
    s ^= s >> 7;
    s ^= s << 17;
    return s;
}

// Random bytes: values spread over the whole range of any width.
inline void fill_random(void *mem, size_t bytes)
{
    for (size_t i = 0; i < bytes; i++)
        static_cast<unsigned char *>(mem)[i] = static_cast<unsigned char>(next_random() >> 32);
}

// A directory of its own under $TMPDIR (or /tmp), removed with its files.
struct Scratch {
    std::string dir;
    Scratch()
    {
        const char *base = getenv("TMPDIR");
        dir = std::string(base && *base ? base : "/tmp") + "/kavor-bench-XXXXXX";
        if (!mkdtemp(&dir[0]))
            dir = "/tmp";
    }
    ~Scratch()
    {
        std::string rm = "rm -rf '" + dir + "'";
        if (dir != "/tmp" && system(rm.c_str()) != 0)
            fprintf(stderr, "could not remove %s\n", dir.c_str());
    }
    std::string operator/(const std::string &name) const { return dir + "/" + name; }
};

inline long file_size(const std::string &p)
{
    struct stat st;
    return stat(p.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
}

// The request that kavor_register, kavor_param2file and kavor_file2param
// take; ugz 1 plain, 0 gzip.
inline kavor_file_rgst_t request(const char *filename, const char *node, struct pdesc *table,
                                 void *mem, int32_t ugz, const char *virt = "")
{
    kavor_file_rgst_t r;
    memset(&r, 0, sizeof r);
    snprintf(r.filename, sizeof r.filename, "%s", filename);
    snprintf(r.node_name, sizeof r.node_name, "%s", node);
    snprintf(r.virtfile, sizeof r.virtfile, "%s", virt);
    r.param_desc = table;
    r.mem = mem;
    r.ugz = ugz;
    return r;
}

// ---- timing ----------------------------------------------------------------------

using Clock = std::chrono::steady_clock;

inline double seconds_since(Clock::time_point t0)
{
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

// Times `call()` once per iteration. `before()` and `after()` (set-up,
// checks, the release of what the call made) run outside the timed part:
// with `manual` timing a steady clock measures the call alone, otherwise
// the benchmark's timer stops around them.
template <class Before, class Call, class After>
void time_calls(benchmark::State &st, bool manual, Before before, Call call, After after)
{
    for (auto _ : st) {
        if (!manual)
            st.PauseTiming();
        before();
        if (!manual)
            st.ResumeTiming();
        auto t0 = Clock::now();
        call();
        if (manual)
            st.SetIterationTime(seconds_since(t0));
        else
            st.PauseTiming();
        after();
        if (!manual)
            st.ResumeTiming();
    }
}

// The main function of every benchmark, after its figures are registered.
// It keeps freed memory in the heap between calls: with glibc's defaults a
// call that frees a whole document may hand its pages back to the kernel
// or not, depending on which block happens to lie at the top of the heap,
// and the next call then faults them in again; on a virtual machine that
// costs up to 40% of a load and moves with the layout, not with the code.
inline int run(int argc, char **argv)
{
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    mallopt(M_MMAP_THRESHOLD, 32 << 20);  // the largest glibc takes
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

// ---- the floor -------------------------------------------------------------------

// Digits of v in Base, most significant first; returns the end (not terminated).
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

// The text of n values as the codec writes it, one blank between two.
template <typename T, unsigned Base = 10, bool Upper = false>
inline void put_values(char *p, char *end, const T *v, int n)
{
    using U = typename std::make_unsigned<typename std::conditional<
        std::is_floating_point<T>::value, int, T>::type>::type;
    for (int k = 0; k < n; k++) {
        if (k != 0)
            *p++ = ' ';
        if (std::is_floating_point<T>::value) {
            p += snprintf(p, static_cast<size_t>(end - p), "%.*g", sizeof(T) == 4 ? 6 : 15,
                          static_cast<double>(v[k]));
            continue;
        }
        U m = static_cast<U>(v[k]);
        if (std::is_signed<T>::value && v[k] < 0) {
            *p++ = '-';
            m = static_cast<U>(0u - m);
        }
        if (Base == 16) {
            *p++ = '0';
            *p++ = 'x';
        }
        p = digits<U, Base, Upper>(p, m);
    }
    *p = '\0';
}

inline xmlNode *text_element(xmlNode *parent, const char *name, const char *text)
{
    xmlNode *e = xmlNewNode(nullptr, BAD_CAST name);
    if (text && *text)
        xmlNodeAddContent(e, BAD_CAST text);
    xmlAddChild(parent, e);
    return e;
}

// One element holding n values.
template <typename T, unsigned Base = 10, bool Upper = false>
inline xmlNode *value_element(xmlNode *parent, const char *name, const T *v, int n = 1)
{
    char buf[512];
    put_values<T, Base, Upper>(buf, buf + sizeof buf, v, n);
    return text_element(parent, name, buf);
}

// A string field as the codec writes it: cut before its last byte.
template <size_t N>
inline void string_element(xmlNode *parent, const char *name, const char (&field)[N])
{
    char text[N];
    memcpy(text, field, N);
    text[N - 1] = '\0';
    text_element(parent, name, text);
}

// The elements of one array row, as many values each as the codec groups.
template <typename T, unsigned Base = 10, bool Upper = false>
void floor_write_array(const T *mem, int count, const char *name, xmlNode *parent)
{
    const int per = std::is_floating_point<T>::value ? (sizeof(T) == 4 ? 8 : 4)
                                                     : (sizeof(T) <= 2 ? 16 : sizeof(T) == 4 ? 8 : 4);
    char idx[12];  // room for any int: the floor makes no checks
    for (int i = 0; i < count; i += per) {
        xmlNode *e = value_element<T, Base, Upper>(parent, name, mem + i,
                                                   count - i > per ? per : count - i);
        if (i != 0) {
            snprintf(idx, sizeof idx, "%d", i);
            xmlNewProp(e, BAD_CAST "idx", BAD_CAST idx);
        }
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

// The values of the element e into mem from *i on, while *i < count;
// returns the next element.
template <typename T>
xmlNode *floor_read_values(xmlNode *e, T *mem, int count, int *i)
{
    xmlChar *c = xmlNodeGetContent(e);
    const char *p = reinterpret_cast<const char *>(c);
    while (*i < count) {
        char *endp;
        T v;
        if (std::is_floating_point<T>::value)
            v = static_cast<T>(strtod(p, &endp));
        else if (std::is_signed<T>::value)
            v = static_cast<T>(strtoimax(p, &endp, 0));
        else
            v = static_cast<T>(strtoumax(p, &endp, 0));
        if (endp == p)
            break;
        mem[(*i)++] = v;
        p = endp;
    }
    xmlFree(c);
    return elem(e->next);
}

template <typename T>
xmlNode *floor_read_value(xmlNode *e, T *v, int n = 1)
{
    int i = 0;
    return floor_read_values(e, v, n, &i);
}

// The elements of one array row, from e on while they have e's name;
// returns the first other element.
template <typename T>
xmlNode *floor_read_array(xmlNode *e, T *mem, int count)
{
    int i = 0;
    e = elem(e);
    const xmlChar *name = e ? e->name : nullptr;
    while (e && xmlStrEqual(e->name, name))
        e = floor_read_values(e, mem, count, &i);
    return e;
}

// The text of e into a string field as the reader stores it (at most the
// field, with its terminator if it fits); returns the next element.
template <size_t N>
xmlNode *floor_read_string(xmlNode *e, char (&field)[N])
{
    xmlChar *c = xmlNodeGetContent(e);
    size_t len = strlen(reinterpret_cast<char *>(c)) + 1;
    memcpy(field, c, len < N ? len : N);
    xmlFree(c);
    return elem(e->next);
}

// The value of the enumeration item whose key is the text of e (the end
// item's when none is); *next is the following element.
inline int floor_read_enum(xmlNode *e, const struct enume *items, xmlNode **next = nullptr)
{
    xmlChar *c = xmlNodeGetContent(e);
    const struct enume *it = items;
    while (it->key && !xmlStrEqual(BAD_CAST it->key, c))
        it++;
    xmlFree(c);
    if (next)
        *next = elem(e->next);
    return it->value;
}

// The key of the enumeration item whose value is v (the first when none is).
inline const char *enum_key(const struct enume *items, int v)
{
    const struct enume *it = items;
    while (it->key && it->value != v)
        it++;
    return it->key ? it->key : items[0].key;
}

}  // namespace bench

// ---- the device block ------------------------------------------------------------
// About 46 KiB in memory (device_layout.h, shared with the C peer):
// thousands of integers of several widths, a thousand doubles, strings that
// need escaping and 256 structures of mixed fields with an enumeration. The
// doubles are multiples of 1/8 with at most six significant digits, so that
// every serialiser's text form (kavor's "%.15g", libcyaml's "%g", the
// archives' full precision) reads back exact and blocks compare equal byte
// for byte.
namespace device {

using Port = dev_port;
using Label = dev_label;
using Device = dev_block;

inline struct enume *modes()
{
    static struct enume t[] = {PX_ENUME("off", 0), PX_ENUME("auto", 1), PX_ENUME("manual", 2),
                               PX_ENUME("test", 3), PX_ENUME_END(0)};
    return t;
}

inline struct pdesc *table()
{
    static struct pdesc port_rows[] = {
        PX_SINT(Port, id, "id"),        PX_UINT(Port, vlan, "vlan"),
        PX_UINT_ARR_HEX(Port, mac, "mac"), PX_FLOT(Port, gain, "gain"),
        PX_STRI(Port, name, "name"),    PX_ENUM(Port, mode, "mode", modes()),
        PX_UINT_HEXU(Port, flags, "flags"), PX_END,
    };
    static struct pdesc label_rows[] = {PX_STRI(Label, text, "line"), PX_END};
    static struct pdesc rows[] = {
        PX_UINT_ARR(Device, u8, "u8"),     PX_UINT_ARR(Device, u16, "u16"),
        PX_SINT_ARR(Device, s32, "s32"),   PX_UINT_ARR_HEX(Device, u32, "u32"),
        PX_SINT_ARR(Device, s64, "s64"),   PX_FLOT_ARR(Device, dbl, "dbl"),
        PX_STRU_ARR(Device, labels, "label", label_rows),
        PX_STRU_ARR(Device, ports, "port", port_rows), PX_END,
    };
    return rows;
}

// A zeroed block (free() it), with the benchmark's values unless `blank`.
inline Device *make(bool blank = false)
{
    Device *d = static_cast<Device *>(calloc(1, sizeof(Device)));
    if (blank)
        return d;
    bench::fill_random(d->u8, sizeof d->u8);
    bench::fill_random(d->u16, sizeof d->u16);
    bench::fill_random(d->s32, sizeof d->s32);
    bench::fill_random(d->u32, sizeof d->u32);
    bench::fill_random(d->s64, sizeof d->s64);
    for (double &v : d->dbl)
        v = static_cast<double>(static_cast<int>(bench::next_random() % 800000) - 400000) / 8.0;
    static const char *const parts[] = {"in <", "> & out", "\"quoted\"", "it's", "a&b<c>d", "plain"};
    for (int i = 0; i < DEV_LABELS; i++)
        snprintf(d->labels[i].text, sizeof d->labels[i].text, "label %d %s %s", i, parts[i % 6],
                 parts[(i / 6) % 6]);
    for (int i = 0; i < DEV_PORTS; i++) {
        Port &p = d->ports[i];
        p.id = static_cast<int32_t>(bench::next_random()) / 3;
        p.vlan = static_cast<uint16_t>(bench::next_random() % 4095);
        bench::fill_random(p.mac, sizeof p.mac);
        p.gain = static_cast<double>(static_cast<int>(bench::next_random() % 80000) - 40000) / 8.0;
        snprintf(p.name, sizeof p.name, "port<%d>&\"%d\"", i, i % 7);
        p.mode = i % 4;
        p.flags = static_cast<uint32_t>(bench::next_random());
    }
    return d;
}

inline bool same(const Device *a, const Device *b)
{
    return memcmp(a, b, sizeof(Device)) == 0;
}

// kavor_param2file and kavor_file2param of the device block and its file
// "<path>" (kavor adds ".xml" or ".xml.gz"); true on success.
inline bool block_to_file(const std::string &path, const Device *d, bool gz)
{
    kavor_file_rgst_t r = bench::request(path.c_str(), "dev", table(), const_cast<Device *>(d), !gz);
    return kavor_param2file(&r) == 0;
}
inline bool file_to_block(const std::string &path, Device *d, bool gz)
{
    kavor_file_rgst_t r = bench::request(path.c_str(), "dev", table(), d, !gz);
    return kavor_file2param(&r) == 0;
}

// Registers "<save_name>", which saves the block with `save(block)` once per
// iteration ("file_bytes": the size of the file `written`), and
// "<load_name>", which saves it once, then loads it with `load(out)` once
// per iteration; the block must come back.
template <class Save, class Load>
void register_save_load(const std::string &save_name, const std::string &load_name,
                        const Device *block, Save save, Load load, const std::string &written)
{
    benchmark::RegisterBenchmark(save_name.c_str(), [=](benchmark::State &st) {
        for (auto _ : st)
            if (!save(block))
                st.SkipWithError("save failed");
        st.counters["file_bytes"] = static_cast<double>(bench::file_size(written));
    })->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark(load_name.c_str(), [=](benchmark::State &st) {
        Device *out = make(true);
        if (!save(block))
            st.SkipWithError("save failed");
        for (auto _ : st)
            if (!load(out))
                st.SkipWithError("load failed");
        if (!same(out, block))
            st.SkipWithError("read back another block");
        free(out);
    })->Unit(benchmark::kMicrosecond);
}

// ---- the device block's floor ----------------------------------------------------

inline void floor_write(const Device *d, xmlNode *node)
{
    bench::floor_write_array<uint8_t>(d->u8, DEV_U8, "u8", node);
    bench::floor_write_array<uint16_t>(d->u16, DEV_U16, "u16", node);
    bench::floor_write_array<int32_t>(d->s32, DEV_S32, "s32", node);
    bench::floor_write_array<uint32_t, 16, false>(d->u32, DEV_U32, "u32", node);
    bench::floor_write_array<int64_t>(d->s64, DEV_S64, "s64", node);
    bench::floor_write_array<double>(d->dbl, DEV_DBL, "dbl", node);
    for (const Label &l : d->labels)
        bench::string_element(bench::text_element(node, "label", nullptr), "line", l.text);
    for (const Port &p : d->ports) {
        xmlNode *e = bench::text_element(node, "port", nullptr);
        bench::value_element(e, "id", &p.id);
        bench::value_element(e, "vlan", &p.vlan);
        bench::value_element<uint8_t, 16, false>(e, "mac", p.mac, 6);
        bench::value_element(e, "gain", &p.gain);
        bench::string_element(e, "name", p.name);
        bench::text_element(e, "mode", bench::enum_key(modes(), p.mode));
        bench::value_element<uint32_t, 16, true>(e, "flags", &p.flags);
    }
}

// Walks the node's children in their known order.
inline void floor_read(Device *d, xmlNode *node)
{
    xmlNode *e = node->children;
    e = bench::floor_read_array<uint8_t>(e, d->u8, DEV_U8);
    e = bench::floor_read_array<uint16_t>(e, d->u16, DEV_U16);
    e = bench::floor_read_array<int32_t>(e, d->s32, DEV_S32);
    e = bench::floor_read_array<uint32_t>(e, d->u32, DEV_U32);
    e = bench::floor_read_array<int64_t>(e, d->s64, DEV_S64);
    e = bench::floor_read_array<double>(e, d->dbl, DEV_DBL);
    for (int i = 0; i < DEV_LABELS && e; i++, e = bench::elem(e->next))
        bench::floor_read_string(bench::elem(e->children), d->labels[i].text);
    for (int i = 0; i < DEV_PORTS && e; i++, e = bench::elem(e->next)) {
        Port &p = d->ports[i];
        xmlNode *f = bench::floor_read_value(bench::elem(e->children), &p.id);
        f = bench::floor_read_value(f, &p.vlan);
        f = bench::floor_read_value(f, p.mac, 6);
        f = bench::floor_read_value(f, &p.gain);
        f = bench::floor_read_string(f, p.name);
        p.mode = bench::floor_read_enum(f, modes(), &f);
        bench::floor_read_value(f, &p.flags);
    }
}

// Parses the file as the load does (no network) and walks it; false when
// the file gives no document of that shape.
inline bool floor_load(const char *path, Device *d)
{
    xmlDocPtr doc = xmlReadFile(path, nullptr, XML_PARSE_NONET);
    if (!doc)
        return false;
    xmlNode *root = xmlDocGetRootElement(doc);
    bool ok = root && bench::elem(root->children);
    if (ok)
        floor_read(d, bench::elem(root->children));
    xmlFreeDoc(doc);
    return ok;
}

// The file's document (root "device", one child "dev" holding the block),
// saved as kavor saves it.
inline bool floor_save(const Device *d, const char *path, bool gz)
{
    xmlDocPtr doc = xmlNewDoc(BAD_CAST "1.0");
    xmlNode *root = xmlNewDocNode(doc, nullptr, BAD_CAST "device", nullptr);
    floor_write(d, bench::text_element(root, "dev", nullptr));
    xmlDocSetRootElement(doc, root);
    if (gz)
        xmlSetDocCompressMode(doc, 1);
    int rc = xmlSaveFormatFileEnc(path, doc, "utf-8", gz ? 1 : 0);
    xmlFreeDoc(doc);
    return rc >= 0;
}

}  // namespace device

#endif
