// codec_bench.cpp - the codec's speed beside its floor.
//
// For each integer width and text form, for float and double, and for an
// array of structures, four numbers: param2xml and xml2param ("codec"), and
// the same elements built with libxml2 alone, values formatted the same way
// but without the table walk, and the same document walked with
// xmlNodeGetContent and strto* alone ("floor"). Items are values (or
// structures). The trace handle stays NULL, as in a quiet application.
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

#include "param_xml.h"

namespace {

constexpr int kValues = 1000000;
constexpr int kStructs = 100000;

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

template <typename U, unsigned Base, bool Upper>
char *digits(char *p, U v)
{
    const char *set = Upper ? "0123456789ABCDEF" : "0123456789abcdef";
    char tmp[20];
    int n = 0;
    do {
        tmp[n++] = set[v % Base];
        v = static_cast<U>(v / Base);
    } while (v != 0);
    while (n > 0)
        *p++ = tmp[--n];
    return p;
}

template <typename T, unsigned Base, bool Upper>
void floor_write_ints(const T *mem, int count, int per, xmlNode *parent)
{
    using U = typename std::make_unsigned<T>::type;
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

}  // namespace

int main(int argc, char **argv)
{
    static std::vector<ArrayFixture *> arrays;
    for (const ArrayCase &c : array_cases())
        arrays.push_back(new ArrayFixture(c));
    for (ArrayFixture *f : arrays) {
        benchmark::RegisterBenchmark(("write/" + f->c.name + "/codec").c_str(), write_codec, f)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("write/" + f->c.name + "/floor").c_str(), write_floor, f)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("read/" + f->c.name + "/codec").c_str(), read_codec, f)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("read/" + f->c.name + "/floor").c_str(), read_floor, f)->Unit(benchmark::kMillisecond);
    }
    static StructFixture *structs = new StructFixture;
    benchmark::RegisterBenchmark("write/struct/codec", struct_write_codec, structs)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("write/struct/floor", struct_write_floor, structs)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("read/struct/codec", struct_read_codec, structs)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("read/struct/floor", struct_read_floor, structs)->Unit(benchmark::kMillisecond);

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
