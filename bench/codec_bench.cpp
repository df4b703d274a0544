// codec_bench.cpp - the codec's speed beside its floor.
//
// For each integer width and text form, for float and double, and for an
// array of structures, four numbers: param2xml and xml2param ("codec"), and
// the same elements built with libxml2 alone, values formatted the same way
// but without the table walk, and the same document walked with
// xmlNodeGetContent and strto* alone ("floor"). Items are values (or
// structures). The trace handle stays NULL, as in a quiet application.
// Names: codec/<write|read>_<case>/<kavor|floor>.
//
//   codec_bench --benchmark_min_time=0.5
#include <benchmark/benchmark.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include <libxml/tree.h>

#include "bench_util.h"
#include "param_xml.h"

namespace {

constexpr int kValues = 100000;
constexpr int kStructs = 20000;

uint64_t g_seed = 0x9E3779B97F4A7C15ULL;
uint64_t next_random()
{
    g_seed ^= g_seed << 13;
    g_seed ^= g_seed >> 7;
    g_seed ^= g_seed << 17;
    return g_seed;
}

// Random bytes: values spread over the whole range of any width.
void fill_random(void *mem, size_t bytes)
{
    unsigned char *p = static_cast<unsigned char *>(mem);
    for (size_t i = 0; i < bytes; i++)
        p[i] = static_cast<unsigned char>(next_random() >> 32);
}

struct pdesc one_row(int type, const char *name, int count, size_t size)
{
    struct pdesc r = {};
    r.type = type;
    r.name = name;
    r.count = count;
    r.size = size;
    return r;
}

// ---- floor: the writer's work without the table walk --------------------------

// Values are formatted as the codec does it, digit by digit (bench_util.h).
using bench::digits;
using bench::put_int;

template <typename T, unsigned Base, bool Upper>
void floor_write_ints(const T *mem, int count, int per, xmlNode *parent, const char *name = "v")
{
    using U = typename std::make_unsigned<T>::type;
    char ctnt[512];
    char idx[12];  // room for any int: the floor makes no checks
    for (int i = 0; i < count;) {
        xmlNode *e = xmlNewNode(nullptr, BAD_CAST name);
        if (i != 0) {
            std::snprintf(idx, sizeof idx, "%d", i);
            xmlNewProp(e, BAD_CAST "idx", BAD_CAST idx);
        }
        char *p = ctnt;
        int end = count - i > per ? i + per : count;
        for (int k = i; k < end; k++) {
            if (k != i)
                *p++ = ' ';
            T v = mem[k];
            U m = static_cast<U>(v);
            if (std::is_signed<T>::value && v < 0) {
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
        xmlNodeAddContent(e, BAD_CAST ctnt);
        xmlAddChild(parent, e);
        i = end;
    }
}

template <typename T>
void floor_write_floats(const T *mem, int count, xmlNode *parent)
{
    const int per = sizeof(T) == 4 ? 8 : 4;
    const int prec = sizeof(T) == 4 ? 6 : 15;
    char ctnt[512];
    char idx[12];  // room for any int: the floor makes no checks
    for (int i = 0; i < count;) {
        xmlNode *e = xmlNewNode(nullptr, BAD_CAST "v");
        if (i != 0) {
            std::snprintf(idx, sizeof idx, "%d", i);
            xmlNewProp(e, BAD_CAST "idx", BAD_CAST idx);
        }
        char *p = ctnt;
        int end = count - i > per ? i + per : count;
        for (int k = i; k < end; k++) {
            if (k != i)
                *p++ = ' ';
            p += std::snprintf(p, sizeof ctnt - static_cast<size_t>(p - ctnt), "%.*g", prec,
                               static_cast<double>(mem[k]));
        }
        xmlNodeAddContent(e, BAD_CAST ctnt);
        xmlAddChild(parent, e);
        i = end;
    }
}

// ---- floor: the reader's work without the table walk ---------------------------

template <typename T>
void floor_read_numbers(T *mem, int count, xmlNode *parent)
{
    int i = 0;
    for (xmlNode *e = parent->children; e; e = e->next) {
        xmlChar *ctnt = xmlNodeGetContent(e);
        const char *p = reinterpret_cast<const char *>(ctnt);
        while (i < count) {
            char *endp;
            T v;
            if (std::is_floating_point<T>::value)
                v = static_cast<T>(std::strtod(p, &endp));
            else if (std::is_signed<T>::value)
                v = static_cast<T>(std::strtoimax(p, &endp, 0));
            else
                v = static_cast<T>(std::strtoumax(p, &endp, 0));
            if (endp == p)
                break;
            mem[i++] = v;
            p = endp;
        }
        xmlFree(ctnt);
    }
}

// ---- array cases ---------------------------------------------------------------

struct ArrayCase {
    std::string name;
    int type;
    size_t size;
    void (*floor_write)(const void *mem, xmlNode *parent);
    void (*floor_read)(void *mem, xmlNode *parent);
};

template <typename T, unsigned Base, bool Upper>
void fw_ints(const void *mem, xmlNode *parent)
{
    floor_write_ints<T, Base, Upper>(static_cast<const T *>(mem), kValues, sizeof(T) <= 2 ? 16 : sizeof(T) == 4 ? 8 : 4, parent);
}
template <typename T>
void fw_floats(const void *mem, xmlNode *parent)
{
    floor_write_floats<T>(static_cast<const T *>(mem), kValues, parent);
}
template <typename T>
void fr_numbers(void *mem, xmlNode *parent)
{
    floor_read_numbers<T>(static_cast<T *>(mem), kValues, parent);
}

template <typename T>
void add_int_cases(std::vector<ArrayCase> &out, const char *tname)
{
    const size_t w = sizeof(T);
    if (std::is_signed<T>::value) {
        out.push_back({std::string(tname) + "_dec", PT_SINT, w, fw_ints<T, 10, false>, fr_numbers<T>});
        return;
    }
    out.push_back({std::string(tname) + "_dec", PT_UINT, w, fw_ints<T, 10, false>, fr_numbers<T>});
    out.push_back({std::string(tname) + "_hexl", PT_UINT | PT_FMT_HEXL, w, fw_ints<T, 16, false>, fr_numbers<T>});
    out.push_back({std::string(tname) + "_hexu", PT_UINT | PT_FMT_HEXU, w, fw_ints<T, 16, true>, fr_numbers<T>});
}

std::vector<ArrayCase> array_cases()
{
    std::vector<ArrayCase> c;
    add_int_cases<int8_t>(c, "s8");
    add_int_cases<int16_t>(c, "s16");
    add_int_cases<int32_t>(c, "s32");
    add_int_cases<int64_t>(c, "s64");
    add_int_cases<uint8_t>(c, "u8");
    add_int_cases<uint16_t>(c, "u16");
    add_int_cases<uint32_t>(c, "u32");
    add_int_cases<uint64_t>(c, "u64");
    c.push_back({"float", PT_FLOT, 4, fw_floats<float>, fr_numbers<float>});
    c.push_back({"double", PT_FLOT, 8, fw_floats<double>, fr_numbers<double>});
    return c;
}

// Made on first use, so that a filtered run builds only what it measures.
struct ArrayFixture {
    ArrayCase c;
    std::vector<unsigned char> mem;
    struct pdesc table[2];
    xmlNode *doc_root = nullptr;  // written once, for the readers
    explicit ArrayFixture(const ArrayCase &ac) : c(ac) {}
    ArrayFixture *ready()
    {
        if (doc_root)
            return this;
        mem.resize(static_cast<size_t>(kValues) * c.size);
        fill_random(mem.data(), mem.size());
        if (c.type == PT_FLOT) {  // finite values over a wide range
            for (int i = 0; i < kValues; i++) {
                double v = (static_cast<double>(next_random() >> 11) / 9007199254740992.0 - 0.5) *
                           (c.size == 4 ? 6.0e37 : 3.0e300);
                if (c.size == 4) {
                    float f = static_cast<float>(v);
                    std::memcpy(&mem[static_cast<size_t>(i) * 4], &f, 4);
                } else {
                    std::memcpy(&mem[static_cast<size_t>(i) * 8], &v, 8);
                }
            }
        }
        table[0] = one_row(c.type, "v", kValues, c.size);
        table[1] = {};
        doc_root = xmlNewNode(nullptr, BAD_CAST "root");
        param2xml(mem.data(), doc_root, table);
        return this;
    }
};

void write_codec(benchmark::State &st, ArrayFixture *f)
{
    f->ready();
    for (auto _ : st) {
        xmlNode *root = xmlNewNode(nullptr, BAD_CAST "root");
        param2xml(f->mem.data(), root, f->table);
        benchmark::DoNotOptimize(root->children);
        st.PauseTiming();
        xmlFreeNode(root);
        st.ResumeTiming();
    }
    st.SetItemsProcessed(st.iterations() * kValues);
}

void write_floor(benchmark::State &st, ArrayFixture *f)
{
    f->ready();
    for (auto _ : st) {
        xmlNode *root = xmlNewNode(nullptr, BAD_CAST "root");
        f->c.floor_write(f->mem.data(), root);
        benchmark::DoNotOptimize(root->children);
        st.PauseTiming();
        xmlFreeNode(root);
        st.ResumeTiming();
    }
    st.SetItemsProcessed(st.iterations() * kValues);
}

void read_codec(benchmark::State &st, ArrayFixture *f)
{
    f->ready();
    std::vector<unsigned char> out(f->mem.size());
    for (auto _ : st) {
        xml2param(out.data(), f->doc_root, f->table);
        benchmark::DoNotOptimize(out.data());
    }
    if (f->c.type != PT_FLOT && out != f->mem)
        st.SkipWithError("codec read back other values");
    st.SetItemsProcessed(st.iterations() * kValues);
}

void read_floor(benchmark::State &st, ArrayFixture *f)
{
    f->ready();
    std::vector<unsigned char> out(f->mem.size());
    for (auto _ : st) {
        f->c.floor_read(out.data(), f->doc_root);
        benchmark::DoNotOptimize(out.data());
    }
    if (f->c.type != PT_FLOT && out != f->mem)
        st.SkipWithError("floor read back other values");
    st.SetItemsProcessed(st.iterations() * kValues);
}

// ---- structures -----------------------------------------------------------------

struct enume kModes[] = {{"off", 0}, {"auto", 1}, {"manual", 2}, {nullptr, 0}};

struct Port {
    int32_t speed;
    int32_t mtu;
    uint8_t mac[6];
    char name[16];
    uint32_t flags;
    float gain[4];
    int mode;
};

struct pdesc kPortRows[] = {
    [] { struct pdesc r = one_row(PT_SINT, "speed", 1, 4); r.offset = offsetof(Port, speed); return r; }(),
    [] { struct pdesc r = one_row(PT_SINT, "mtu", 1, 4); r.offset = offsetof(Port, mtu); return r; }(),
    [] { struct pdesc r = one_row(PT_UINT | PT_FMT_HEXL, "mac", 6, 1); r.offset = offsetof(Port, mac); return r; }(),
    [] { struct pdesc r = one_row(PT_STRI, "name", 16, 16); r.offset = offsetof(Port, name); return r; }(),
    [] { struct pdesc r = one_row(PT_UINT | PT_FMT_HEXU, "flags", 1, 4); r.offset = offsetof(Port, flags); return r; }(),
    [] { struct pdesc r = one_row(PT_FLOT, "gain", 4, 4); r.offset = offsetof(Port, gain); return r; }(),
    [] { struct pdesc r = one_row(PT_ENUM, "mode", 1, 4); r.offset = offsetof(Port, mode); r.aux = reinterpret_cast<intptr_t>(kModes); return r; }(),
    {}};

struct StructFixture {
    std::vector<Port> ports;
    struct pdesc table[2];
    xmlNode *doc_root = nullptr;
    StructFixture *ready()
    {
        if (doc_root)
            return this;
        ports.resize(kStructs);
        for (int i = 0; i < kStructs; i++) {
            Port &p = ports[static_cast<size_t>(i)];
            p.speed = static_cast<int32_t>(next_random() % 100000);
            p.mtu = 1500 + i % 7000;
            fill_random(p.mac, sizeof p.mac);
            std::snprintf(p.name, sizeof p.name, "eth%d", i);
            p.flags = static_cast<uint32_t>(next_random());
            for (int k = 0; k < 4; k++)
                p.gain[k] = 0.25f * static_cast<float>(k + i % 100);
            p.mode = i % 3;
        }
        table[0] = one_row(PT_STRU, "port", kStructs, sizeof(Port));
        table[0].pdesc = kPortRows;
        table[1] = {};
        doc_root = xmlNewNode(nullptr, BAD_CAST "root");
        param2xml(ports.data(), doc_root, table);
        return this;
    }
};

xmlNode *text_element(xmlNode *parent, const char *name, const char *text)
{
    xmlNode *e = xmlNewNode(nullptr, BAD_CAST name);
    xmlNodeAddContent(e, BAD_CAST text);
    xmlAddChild(parent, e);
    return e;
}

// The same elements as the codec makes for one Port, values formatted the same way.
void floor_write_port(const Port &p, xmlNode *parent)
{
    xmlNode *e = xmlNewNode(nullptr, BAD_CAST "port");
    char buf[512];
    char *q;
    q = buf;
    if (p.speed < 0) {
        *q++ = '-';
        q = digits<uint32_t, 10, false>(q, 0u - static_cast<uint32_t>(p.speed));
    } else {
        q = digits<uint32_t, 10, false>(q, static_cast<uint32_t>(p.speed));
    }
    *q = '\0';
    text_element(e, "speed", buf);
    q = digits<uint32_t, 10, false>(buf, static_cast<uint32_t>(p.mtu));
    *q = '\0';
    text_element(e, "mtu", buf);
    q = buf;
    for (int k = 0; k < 6; k++) {
        if (k)
            *q++ = ' ';
        *q++ = '0';
        *q++ = 'x';
        q = digits<uint8_t, 16, false>(q, p.mac[k]);
    }
    *q = '\0';
    text_element(e, "mac", buf);
    char name[16];
    std::memcpy(name, p.name, sizeof name);
    name[15] = '\0';
    text_element(e, "name", name);
    q = buf;
    *q++ = '0';
    *q++ = 'x';
    q = digits<uint32_t, 16, true>(q, p.flags);
    *q = '\0';
    text_element(e, "flags", buf);
    q = buf;
    for (int k = 0; k < 4; k++) {
        if (k)
            *q++ = ' ';
        q += std::snprintf(q, sizeof buf - static_cast<size_t>(q - buf), "%.*g", 6, static_cast<double>(p.gain[k]));
    }
    text_element(e, "gain", buf);
    const struct enume *it = kModes;
    while (it->key && it->value != p.mode)
        it++;
    text_element(e, "mode", it->key ? it->key : kModes[0].key);
    xmlAddChild(parent, e);
}

// The same document read field by field in its known order.
void floor_read_port(Port &p, xmlNode *e)
{
    xmlNode *f = e->children;
    auto content = [&f]() {
        xmlChar *c = xmlNodeGetContent(f);
        f = f->next;
        return c;
    };
    xmlChar *c = content();
    p.speed = static_cast<int32_t>(std::strtoimax(reinterpret_cast<char *>(c), nullptr, 0));
    xmlFree(c);
    c = content();
    p.mtu = static_cast<int32_t>(std::strtoimax(reinterpret_cast<char *>(c), nullptr, 0));
    xmlFree(c);
    c = content();
    char *s = reinterpret_cast<char *>(c);
    for (int k = 0; k < 6; k++)
        p.mac[k] = static_cast<uint8_t>(std::strtoumax(s, &s, 0));
    xmlFree(c);
    c = content();
    size_t len = std::strlen(reinterpret_cast<char *>(c)) + 1;
    std::memcpy(p.name, c, len < sizeof p.name ? len : sizeof p.name);
    xmlFree(c);
    c = content();
    p.flags = static_cast<uint32_t>(std::strtoumax(reinterpret_cast<char *>(c), nullptr, 0));
    xmlFree(c);
    c = content();
    s = reinterpret_cast<char *>(c);
    for (int k = 0; k < 4; k++)
        p.gain[k] = static_cast<float>(std::strtod(s, &s));
    xmlFree(c);
    c = content();
    const struct enume *it = kModes;
    while (it->key && !xmlStrEqual(BAD_CAST it->key, c))
        it++;
    p.mode = it->value;
    xmlFree(c);
}

void struct_write_codec(benchmark::State &st, StructFixture *f)
{
    f->ready();
    for (auto _ : st) {
        xmlNode *root = xmlNewNode(nullptr, BAD_CAST "root");
        param2xml(f->ports.data(), root, f->table);
        st.PauseTiming();
        xmlFreeNode(root);
        st.ResumeTiming();
    }
    st.SetItemsProcessed(st.iterations() * kStructs);
}

void struct_write_floor(benchmark::State &st, StructFixture *f)
{
    f->ready();
    for (auto _ : st) {
        xmlNode *root = xmlNewNode(nullptr, BAD_CAST "root");
        for (const Port &p : f->ports)
            floor_write_port(p, root);
        st.PauseTiming();
        xmlFreeNode(root);
        st.ResumeTiming();
    }
    st.SetItemsProcessed(st.iterations() * kStructs);
}

void struct_read_codec(benchmark::State &st, StructFixture *f)
{
    f->ready();
    std::vector<Port> out(kStructs);
    for (auto _ : st) {
        xml2param(out.data(), f->doc_root, f->table);
        benchmark::DoNotOptimize(out.data());
    }
    if (std::memcmp(out.data(), f->ports.data(), out.size() * sizeof(Port)) != 0)
        st.SkipWithError("codec read back other structures");
    st.SetItemsProcessed(st.iterations() * kStructs);
}

void struct_read_floor(benchmark::State &st, StructFixture *f)
{
    f->ready();
    std::vector<Port> out(kStructs);
    for (auto _ : st) {
        Port *p = out.data();
        for (xmlNode *e = f->doc_root->children; e; e = e->next)
            floor_read_port(*p++, e);
        benchmark::DoNotOptimize(out.data());
    }
    st.SetItemsProcessed(st.iterations() * kStructs);
}


// ---- strings, enumerations, counted buffers, lists, variant lists -------------

constexpr int kKindItems = 20000;  // strings, enumerations, list nodes
constexpr int kBuffers = 100;      // counted buffers ...
constexpr int kPerBuffer = 1000;   // ... of this many u32 each

// One further kind: its block, its table, and the floor's own walk of the
// same document. `release` frees what a read allocated (NULL: nothing).
struct KindCase {
    const char *name;
    void (*make)(std::vector<char> &mem);
    struct pdesc *(*table)();
    void (*floor_write)(const char *mem, xmlNode *parent);
    void (*floor_read)(char *mem, xmlNode *parent);
    void (*codec_release)(char *mem, struct pdesc *table);
    void (*floor_release)(char *mem);
    bool (*same)(const char *a, const char *b);
};

struct Named {
    char text[32];
};

struct ListNode {
    struct znode node;
    int32_t v;
    uint32_t w;
};
struct ListA {
    struct znode node;
    int32_t a;
};
struct ListB {
    struct znode node;
    uint16_t b[4];
    char s[12];
};

struct Cob {
    uint32_t *buf[kBuffers];
    int cnt[kBuffers];
};

struct Lists {
    zhead_t head;
};

// strings: an array of structures of one string each, texts that need escaping.
void make_strings(std::vector<char> &mem)
{
    mem.assign(sizeof(Named) * kKindItems, 0);
    Named *n = reinterpret_cast<Named *>(mem.data());
    for (int i = 0; i < kKindItems; i++)
        snprintf(n[i].text, sizeof n[i].text, "n<%d> & \"%d\"", i, i % 13);
}
struct pdesc *strings_table()
{
    static struct pdesc sub[] = {PX_STRI(Named, text, "text_"), PX_END};
    static struct pdesc t[] = {{0, 0, kKindItems, PT_STRU, 0, 0, 0, sizeof(Named), "n", sub, 0}, {}};
    return t;
}
void strings_floor_write(const char *mem, xmlNode *parent)
{
    const Named *n = reinterpret_cast<const Named *>(mem);
    for (int i = 0; i < kKindItems; i++) {
        xmlNode *e = xmlNewNode(nullptr, BAD_CAST "n");
        char text[sizeof n[i].text];
        memcpy(text, n[i].text, sizeof text);
        text[sizeof text - 1] = '\0';
        text_element(e, "text_", text);
        xmlAddChild(parent, e);
    }
}
void strings_floor_read(char *mem, xmlNode *parent)
{
    Named *n = reinterpret_cast<Named *>(mem);
    int i = 0;
    for (xmlNode *e = parent->children; e && i < kKindItems; e = e->next, i++) {
        xmlChar *c = xmlNodeGetContent(e->children);
        size_t len = strlen(reinterpret_cast<char *>(c));
        if (len >= sizeof n[i].text)
            len = sizeof n[i].text - 1;
        memcpy(n[i].text, c, len);
        n[i].text[len] = '\0';
        xmlFree(c);
    }
}

// enumerations: one element per value, named by the table.
void make_enums(std::vector<char> &mem)
{
    mem.assign(sizeof(int) * kKindItems, 0);
    int *v = reinterpret_cast<int *>(mem.data());
    for (int i = 0; i < kKindItems; i++)
        v[i] = static_cast<int>(next_random() % 3);
}
struct pdesc *enums_table()
{
    static struct pdesc t[] = {{0, 0, kKindItems, PT_ENUM, 0, 0, 0, sizeof(int), "mode", nullptr,
                                reinterpret_cast<intptr_t>(kModes)}, {}};
    return t;
}
void enums_floor_write(const char *mem, xmlNode *parent)
{
    const int *v = reinterpret_cast<const int *>(mem);
    for (int i = 0; i < kKindItems; i++) {
        const struct enume *it = kModes;
        while (it->key && it->value != v[i])
            it++;
        text_element(parent, "mode", it->key ? it->key : kModes[0].key);
    }
}
void enums_floor_read(char *mem, xmlNode *parent)
{
    int *v = reinterpret_cast<int *>(mem);
    int i = 0;
    for (xmlNode *e = parent->children; e && i < kKindItems; e = e->next, i++) {
        xmlChar *c = xmlNodeGetContent(e);
        const struct enume *it = kModes;
        while (it->key && !xmlStrEqual(BAD_CAST it->key, c))
            it++;
        if (it->key)
            v[i] = it->value;
        xmlFree(c);
    }
}

// counted buffers: one "cnt" wrapper per buffer around its value elements.
void make_cob(std::vector<char> &mem)
{
    mem.assign(sizeof(Cob), 0);
    Cob *c = reinterpret_cast<Cob *>(mem.data());
    for (int i = 0; i < kBuffers; i++) {
        c->cnt[i] = kPerBuffer;
        c->buf[i] = static_cast<uint32_t *>(malloc(sizeof(uint32_t) * kPerBuffer));
        fill_random(c->buf[i], sizeof(uint32_t) * kPerBuffer);
    }
}
struct pdesc *cob_table()
{
    static struct pdesc t[] = {PX_UINT_COB(Cob, buf, cnt, "c"), PX_END};
    return t;
}
void cob_floor_write(const char *mem, xmlNode *parent)
{
    const Cob *c = reinterpret_cast<const Cob *>(mem);
    char cnt[16];
    for (int i = 0; i < kBuffers; i++) {
        xmlNode *w = xmlNewNode(nullptr, BAD_CAST "c");
        char *q = digits<unsigned, 10, false>(cnt, static_cast<unsigned>(c->cnt[i]));
        *q = '\0';
        xmlNewProp(w, BAD_CAST "cnt", BAD_CAST cnt);
        floor_write_ints<uint32_t, 10, false>(c->buf[i], c->cnt[i], 8, w, "c");
        xmlAddChild(parent, w);
    }
}
void cob_floor_read(char *mem, xmlNode *parent)
{
    Cob *c = reinterpret_cast<Cob *>(mem);
    int i = 0;
    for (xmlNode *w = parent->children; w && i < kBuffers; w = w->next, i++) {
        xmlChar *cnt = xmlGetProp(w, BAD_CAST "cnt");
        int n = atoi(reinterpret_cast<char *>(cnt));
        xmlFree(cnt);
        c->cnt[i] = n;
        c->buf[i] = static_cast<uint32_t *>(calloc(static_cast<size_t>(n), sizeof(uint32_t)));
        floor_read_numbers<uint32_t>(c->buf[i], n, w);
    }
}
void cob_codec_release(char *mem, struct pdesc *table)
{
    param_xml_free(mem, table);
}
void cob_floor_release(char *mem)
{
    Cob *c = reinterpret_cast<Cob *>(mem);
    for (int i = 0; i < kBuffers; i++) {
        free(c->buf[i]);
        c->buf[i] = nullptr;
    }
}
bool cob_same(const char *a, const char *b)
{
    const Cob *x = reinterpret_cast<const Cob *>(a), *y = reinterpret_cast<const Cob *>(b);
    for (int i = 0; i < kBuffers; i++)
        if (x->cnt[i] != y->cnt[i] || !x->buf[i] || !y->buf[i] ||
            memcmp(x->buf[i], y->buf[i], sizeof(uint32_t) * static_cast<size_t>(x->cnt[i])) != 0)
            return false;
    return true;
}

// lists: one outer element, one inner element per node.
void make_list(std::vector<char> &mem)
{
    mem.assign(sizeof(Lists), 0);
    Lists *l = reinterpret_cast<Lists *>(mem.data());
    for (int i = 0; i < kKindItems; i++) {
        ListNode *n = static_cast<ListNode *>(calloc(1, sizeof(ListNode)));
        n->v = static_cast<int32_t>(next_random());
        n->w = static_cast<uint32_t>(next_random());
        zlst_push(&l->head, n);
    }
}
struct pdesc *list_table()
{
    static struct pdesc sub[] = {PX_SINT(ListNode, v, "v"), PX_UINT_HEX(ListNode, w, "w"), PX_END};
    static struct pdesc t[] = {PX_LIST(Lists, head, ListNode, "l", sub), PX_END};
    return t;
}
void int_element(xmlNode *parent, const char *name, int32_t v)
{
    char buf[24];
    *put_int<int32_t, 10, false>(buf, v) = '\0';
    text_element(parent, name, buf);
}
void hex_element(xmlNode *parent, const char *name, uint32_t v)
{
    char buf[24];
    *put_int<uint32_t, 16, false>(buf, v) = '\0';
    text_element(parent, name, buf);
}
void list_floor_write(const char *mem, xmlNode *parent)
{
    const Lists *l = reinterpret_cast<const Lists *>(mem);
    xmlNode *outer = xmlNewNode(nullptr, BAD_CAST "l");
    for (struct znode *z = l->head; z; z = z->next) {
        const ListNode *n = reinterpret_cast<const ListNode *>(z);
        xmlNode *inner = xmlNewNode(nullptr, BAD_CAST "l");
        int_element(inner, "v", n->v);
        hex_element(inner, "w", n->w);
        xmlAddChild(outer, inner);
    }
    xmlAddChild(parent, outer);
}
long content_int(xmlNode *e, bool is_signed)
{
    xmlChar *c = xmlNodeGetContent(e);
    long v = is_signed ? static_cast<long>(strtoimax(reinterpret_cast<char *>(c), nullptr, 0))
                       : static_cast<long>(strtoumax(reinterpret_cast<char *>(c), nullptr, 0));
    xmlFree(c);
    return v;
}
void list_floor_read(char *mem, xmlNode *parent)
{
    Lists *l = reinterpret_cast<Lists *>(mem);
    for (xmlNode *inner = parent->children->children; inner; inner = inner->next) {
        ListNode *n = static_cast<ListNode *>(calloc(1, sizeof(ListNode)));
        xmlNode *f = inner->children;
        n->v = static_cast<int32_t>(content_int(f, true));
        n->w = static_cast<uint32_t>(content_int(f->next, false));
        zlst_push(&l->head, n);
    }
}
void list_release(char *mem, struct pdesc *table)
{
    param_xml_free(mem, table);
}
void list_floor_release(char *mem)
{
    Lists *l = reinterpret_cast<Lists *>(mem);
    while (void *n = zlst_pop(&l->head))
        free(n);
}
template <typename Node>
bool list_same_as(const char *a, const char *b)
{
    struct znode *x = reinterpret_cast<const Lists *>(a)->head;
    struct znode *y = reinterpret_cast<const Lists *>(b)->head;
    for (; x && y; x = x->next, y = y->next)
        if ((x->name != y->name && strcmp(x->name, y->name) != 0) ||
            memcmp(reinterpret_cast<char *>(x) + sizeof(struct znode),
                   reinterpret_cast<char *>(y) + sizeof(struct znode),
                   sizeof(Node) - sizeof(struct znode)) != 0)
            return false;
    return !x && !y;
}

// variant lists: nodes of two layouts, each inner element with its "typ".
const char kTypA[] = "a";
const char kTypB[] = "b";
struct pdesc *vlst_a_rows()
{
    static struct pdesc t[] = {PX_SINT(ListA, a, "a"), PX_END};
    return t;
}
struct pdesc *vlst_b_rows()
{
    static struct pdesc t[] = {PX_UINT_ARR(ListB, b, "b"), PX_STRI(ListB, s, "s"), PX_END};
    return t;
}
struct adesc *vlst_alts()
{
    static struct adesc t[] = {PX_ADESC(ListB, vlst_b_rows(), kTypB), PX_ADESC(ListA, vlst_a_rows(), kTypA),
                               PX_ADESC_END};
    return t;
}
void make_vlst(std::vector<char> &mem)
{
    mem.assign(sizeof(Lists), 0);
    Lists *l = reinterpret_cast<Lists *>(mem.data());
    for (int i = 0; i < kKindItems; i++) {
        if (i % 2) {
            ListA *n = static_cast<ListA *>(calloc(1, sizeof(ListB)));
            n->a = static_cast<int32_t>(next_random());
            zlst_set_name(n, kTypA);
            zlst_push(&l->head, n);
        } else {
            ListB *n = static_cast<ListB *>(calloc(1, sizeof(ListB)));
            fill_random(n->b, sizeof n->b);
            snprintf(n->s, sizeof n->s, "b%d", i);
            zlst_set_name(n, kTypB);
            zlst_push(&l->head, n);
        }
    }
}
struct pdesc *vlst_table()
{
    static struct pdesc t[] = {PX_VLST(Lists, head, "x", vlst_alts()), PX_END};
    return t;
}
void vlst_floor_write(const char *mem, xmlNode *parent)
{
    const Lists *l = reinterpret_cast<const Lists *>(mem);
    xmlNode *outer = xmlNewNode(nullptr, BAD_CAST "x");
    for (struct znode *z = l->head; z; z = z->next) {
        xmlNode *inner = xmlNewNode(nullptr, BAD_CAST "x");
        xmlNewProp(inner, BAD_CAST "typ", BAD_CAST z->name);
        if (strcmp(z->name, kTypA) == 0) {
            int_element(inner, "a", reinterpret_cast<const ListA *>(z)->a);
        } else {
            const ListB *n = reinterpret_cast<const ListB *>(z);
            floor_write_ints<uint16_t, 10, false>(n->b, 4, 16, inner, "b");
            char s[sizeof n->s];
            memcpy(s, n->s, sizeof s);
            s[sizeof s - 1] = '\0';
            text_element(inner, "s", s);
        }
        xmlAddChild(outer, inner);
    }
    xmlAddChild(parent, outer);
}
void vlst_floor_read(char *mem, xmlNode *parent)
{
    Lists *l = reinterpret_cast<Lists *>(mem);
    for (xmlNode *inner = parent->children->children; inner; inner = inner->next) {
        xmlChar *typ = xmlGetProp(inner, BAD_CAST "typ");
        xmlNode *f = inner->children;
        if (xmlStrEqual(typ, BAD_CAST kTypA)) {
            ListA *n = static_cast<ListA *>(calloc(1, sizeof(ListA)));
            zlst_set_name(n, kTypA);
            n->a = static_cast<int32_t>(content_int(f, true));
            zlst_push(&l->head, n);
        } else {
            ListB *n = static_cast<ListB *>(calloc(1, sizeof(ListB)));
            zlst_set_name(n, kTypB);
            xmlChar *c = xmlNodeGetContent(f);
            char *p = reinterpret_cast<char *>(c);
            for (int k = 0; k < 4; k++)
                n->b[k] = static_cast<uint16_t>(strtoumax(p, &p, 0));
            xmlFree(c);
            c = xmlNodeGetContent(f->next);
            size_t len = strlen(reinterpret_cast<char *>(c));
            memcpy(n->s, c, len < sizeof n->s ? len + 1 : sizeof n->s);
            n->s[sizeof n->s - 1] = '\0';
            xmlFree(c);
            zlst_push(&l->head, n);
        }
        xmlFree(typ);
    }
}
bool vlst_same(const char *a, const char *b)
{
    struct znode *x = reinterpret_cast<const Lists *>(a)->head;
    struct znode *y = reinterpret_cast<const Lists *>(b)->head;
    for (; x && y; x = x->next, y = y->next) {
        if (strcmp(x->name, y->name) != 0)
            return false;
        size_t n = strcmp(x->name, kTypA) == 0 ? sizeof(ListA) : sizeof(ListB);
        if (memcmp(reinterpret_cast<char *>(x) + sizeof(struct znode),
                   reinterpret_cast<char *>(y) + sizeof(struct znode), n - sizeof(struct znode)) != 0)
            return false;
    }
    return !x && !y;
}

const KindCase kKinds[] = {
    {"string", make_strings, strings_table, strings_floor_write, strings_floor_read, nullptr, nullptr, nullptr},
    {"enum", make_enums, enums_table, enums_floor_write, enums_floor_read, nullptr, nullptr, nullptr},
    {"counted_u32", make_cob, cob_table, cob_floor_write, cob_floor_read, cob_codec_release, cob_floor_release, cob_same},
    {"list", make_list, list_table, list_floor_write, list_floor_read, list_release, list_floor_release, list_same_as<ListNode>},
    {"variant_list", make_vlst, vlst_table, vlst_floor_write, vlst_floor_read, list_release, list_floor_release, vlst_same},
};

struct KindFixture {
    const KindCase *k;
    std::vector<char> mem;
    xmlNode *doc_root = nullptr;
    explicit KindFixture(const KindCase *kc) : k(kc) {}
    KindFixture *ready()
    {
        if (doc_root)
            return this;
        k->make(mem);
        doc_root = xmlNewNode(nullptr, BAD_CAST "root");
        param2xml(mem.data(), doc_root, k->table());
        return this;
    }
    bool same(const std::vector<char> &out) const
    {
        return k->same ? k->same(out.data(), mem.data()) : out == mem;
    }
};

void kind_write(benchmark::State &st, KindFixture *f, bool floor)
{
    f->ready();
    for (auto _ : st) {
        xmlNode *root = xmlNewNode(nullptr, BAD_CAST "root");
        if (floor)
            f->k->floor_write(f->mem.data(), root);
        else
            param2xml(f->mem.data(), root, f->k->table());
        st.PauseTiming();
        if (!floor && !xmlStrEqual(root->children->name, f->doc_root->children->name))
            st.SkipWithError("another document");
        xmlFreeNode(root);
        st.ResumeTiming();
    }
}
void kind_write_codec(benchmark::State &st, KindFixture *f) { kind_write(st, f, false); }
void kind_write_floor(benchmark::State &st, KindFixture *f) { kind_write(st, f, true); }

void kind_read(benchmark::State &st, KindFixture *f, bool floor)
{
    f->ready();
    std::vector<char> out(f->mem.size());
    bool ok = true;
    for (auto _ : st) {
        if (floor)
            f->k->floor_read(out.data(), f->doc_root);
        else
            xml2param(out.data(), f->doc_root, f->k->table());
        st.PauseTiming();
        ok = ok && f->same(out);
        if (floor && f->k->floor_release)
            f->k->floor_release(out.data());
        else if (!floor && f->k->codec_release)
            f->k->codec_release(out.data(), f->k->table());
        st.ResumeTiming();
    }
    if (!ok)
        st.SkipWithError(floor ? "floor read back other values" : "codec read back other values");
}
void kind_read_codec(benchmark::State &st, KindFixture *f) { kind_read(st, f, false); }
void kind_read_floor(benchmark::State &st, KindFixture *f) { kind_read(st, f, true); }

}  // namespace

int main(int argc, char **argv)
{
    bench::keep_heap();
    static std::vector<ArrayFixture *> arrays;
    for (const ArrayCase &c : array_cases())
        arrays.push_back(new ArrayFixture(c));
    for (ArrayFixture *f : arrays) {
        benchmark::RegisterBenchmark(("codec/write_" + f->c.name + "/kavor").c_str(), write_codec, f)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("codec/write_" + f->c.name + "/floor").c_str(), write_floor, f)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("codec/read_" + f->c.name + "/kavor").c_str(), read_codec, f)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("codec/read_" + f->c.name + "/floor").c_str(), read_floor, f)->Unit(benchmark::kMillisecond);
    }
    static StructFixture *structs = new StructFixture;
    benchmark::RegisterBenchmark("codec/write_struct/kavor", struct_write_codec, structs)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("codec/write_struct/floor", struct_write_floor, structs)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("codec/read_struct/kavor", struct_read_codec, structs)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("codec/read_struct/floor", struct_read_floor, structs)->Unit(benchmark::kMillisecond);

    static std::vector<KindFixture *> kinds;
    for (const KindCase &k : kKinds)
        kinds.push_back(new KindFixture(&k));
    for (KindFixture *f : kinds) {
        std::string n = f->k->name;
        benchmark::RegisterBenchmark(("codec/write_" + n + "/kavor").c_str(), kind_write_codec, f)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("codec/write_" + n + "/floor").c_str(), kind_write_floor, f)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("codec/read_" + n + "/kavor").c_str(), kind_read_codec, f)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("codec/read_" + n + "/floor").c_str(), kind_read_floor, f)->Unit(benchmark::kMillisecond);
    }

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    for (ArrayFixture *f : arrays) {
        xmlFreeNode(f->doc_root);
        delete f;
    }
    xmlFreeNode(structs->doc_root);
    delete structs;
    return 0;
}
