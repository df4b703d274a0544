// fixture.h - what the benchmarks share: random values, a scratch
// directory, registration requests, the main function; the floor (kavor's
// documents made and read by libxml2 alone); the codec's cases with the one
// timing helper; the device block of the file figures.
// Invariant: a figure times only the call it is named for (set-up, checks
// and releases are not timed), and the floor writes exactly the document
// kavor writes (integers digit by digit, floats with "%.*g") and reads it
// with xmlNodeGetContent and strto* alone, in the order it knows, so that a
// ratio against it measures the table walk alone.
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
#include <filesystem>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include <libxml/parser.h>

#include "device_layout.h"
#include "kavor.h"

namespace bench {
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

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
        std::error_code ec;
        if (dir != "/tmp")
            std::filesystem::remove_all(dir, ec);
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
    kavor_file_rgst_t r{};
    snprintf(r.filename, sizeof r.filename, "%s", filename);
    snprintf(r.node_name, sizeof r.node_name, "%s", node);
    snprintf(r.virtfile, sizeof r.virtfile, "%s", virt);
    r.param_desc = table;
    r.mem = mem;
    r.ugz = ugz;
    return r;
}

// The main function of every benchmark. It keeps freed memory in the heap:
// with glibc's defaults a call that frees a document may give its pages back
// to the kernel, and the next call faults them in again (up to 40% of a load
// on a virtual machine, moving with the heap's layout, not with the code).
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
// A block's floor is one function of an Io and the block that names its
// fields in the document's order (io.num, io.rows, io.str, io.enm,
// io.structs, io.list): written, their elements are added under `at`; read,
// they are taken from the element `at` on. No table is walked.

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

inline xmlNode *text_element(xmlNode *parent, const char *name, const char *text)
{
    xmlNode *e = xmlNewNode(nullptr, BAD_CAST name);
    if (text && *text)
        xmlNodeAddContent(e, BAD_CAST text);
    xmlAddChild(parent, e);
    return e;
}

// The first element at or after e (an indented document has blanks between).
inline xmlNode *elem(xmlNode *e)
{
    while (e && e->type != XML_ELEMENT_NODE)
        e = e->next;
    return e;
}

struct Io {
    xmlNode *at;
    bool read;

    // n values in base B (16: "0x" and the digits, U: in capitals), `per` to
    // an element (0: all in one), "idx" on each element but the first.
    template <unsigned B = 10, bool U = false, typename T>
    void num(const char *name, T *v, int n = 1, int per = 0)
    {
        using Digits = std::make_unsigned_t<std::conditional_t<std::is_floating_point<T>::value, int, T>>;
        if (read)
            return read_values(v, n);
        per = per ? per : n;
        char text[512], idx[12];  // idx: room for any int, the floor makes no checks
        for (int i = 0; i < n; i += per) {
            char *p = text;
            for (int k = i; k < n && k < i + per; k++) {
                if (k != i)
                    *p++ = ' ';
                if (std::is_floating_point<T>::value) {
                    p += snprintf(p, static_cast<size_t>(text + sizeof text - p), "%.*g",
                                  sizeof(T) == 4 ? 6 : 15, static_cast<double>(v[k]));
                    continue;
                }
                Digits m = static_cast<Digits>(v[k]);
                if (std::is_signed<T>::value && v[k] < 0) {
                    *p++ = '-';
                    m = static_cast<Digits>(0u - m);
                }
                if (B == 16) {
                    *p++ = '0';
                    *p++ = 'x';
                }
                p = digits<Digits, B, U>(p, m);
            }
            *p = '\0';
            xmlNode *e = text_element(at, name, text);
            if (i != 0) {
                snprintf(idx, sizeof idx, "%d", i);
                xmlNewProp(e, BAD_CAST "idx", BAD_CAST idx);
            }
        }
    }
    template <typename T>
    void read_values(T *v, int n)  // from the elements from `at` on that have its name
    {
        int i = 0;
        at = elem(at);
        for (const xmlChar *name = at ? at->name : nullptr; at && xmlStrEqual(at->name, name);
             at = elem(at->next)) {
            xmlChar *c = xmlNodeGetContent(at);
            const char *p = reinterpret_cast<const char *>(c);
            for (char *end; i < n; p = end) {
                T x;
                if (std::is_floating_point<T>::value)
                    x = static_cast<T>(strtod(p, &end));
                else if (std::is_signed<T>::value)
                    x = static_cast<T>(strtoimax(p, &end, 0));
                else
                    x = static_cast<T>(strtoumax(p, &end, 0));
                if (end == p)
                    break;
                v[i++] = x;
            }
            xmlFree(c);
        }
    }
    // An array row, as many values to an element as the codec groups.
    template <unsigned B = 10, bool U = false, typename T>
    void rows(const char *name, T *v, int n)
    {
        num<B, U>(name, v, n, sizeof(T) <= 2 ? 16 : static_cast<int>(32 / sizeof(T)));
    }
    // A string field, written cut before its last byte, read as the reader
    // stores it (at most the field, with its terminator if it fits).
    template <size_t N>
    void str(const char *name, char (&s)[N])
    {
        if (!read) {
            char text[N];
            memcpy(text, s, N);
            text[N - 1] = '\0';
            text_element(at, name, text);
            return;
        }
        xmlChar *c = xmlNodeGetContent(at);
        size_t len = strlen(reinterpret_cast<char *>(c)) + 1;
        memcpy(s, c, len < N ? len : N);
        xmlFree(c);
        at = elem(at->next);
    }
    // An enumeration: written, the key of the value's item (the first item's
    // when none has it); read, the value of the key's item (the end item's).
    void enm(const char *name, int &v, const struct enume *items)
    {
        const struct enume *it = items;
        if (!read) {
            while (it->key && it->value != v)
                it++;
            text_element(at, name, it->key ? it->key : items[0].key);
            return;
        }
        xmlChar *c = xmlNodeGetContent(at);
        while (it->key && !xmlStrEqual(BAD_CAST it->key, c))
            it++;
        xmlFree(c);
        v = it->value;
        at = elem(at->next);
    }
    // n structures, an element each holding what `fields(io, s[i])` names.
    template <typename S, typename F>
    void structs(const char *name, S *s, int n, F fields)
    {
        for (int i = 0; i < n && at; i++) {
            Io sub{read ? elem(at->children) : text_element(at, name, nullptr), read};
            fields(sub, s[i]);
            if (read)
                at = elem(at->next);
        }
    }
    // A list: an outer element, an inner element per node (with its "typ"
    // where the node has a type name) holding what `fields(io, node)` names;
    // a read pushes each node, made by `make_node(inner element)`, on `head`.
    template <typename F, typename New>
    void list(const char *name, zhead_t &head, F fields, New make_node)
    {
        if (!read) {
            xmlNode *outer = text_element(at, name, nullptr);
            for (struct znode *z = head; z; z = z->next) {
                Io sub{text_element(outer, name, nullptr), false};
                if (z->name)
                    xmlNewProp(sub.at, BAD_CAST "typ", BAD_CAST z->name);
                fields(sub, z);
            }
            return;
        }
        for (xmlNode *inner = elem(at->children); inner; inner = elem(inner->next)) {
            struct znode *z = make_node(inner);
            Io sub{elem(inner->children), true};
            fields(sub, z);
            zlst_push(&head, z);
        }
        at = elem(at->next);
    }
};

// A zero-filled block from xmlMalloc, as the reader allocates what its
// release walk (param_xml_free) frees: the floor's reads are freed by it too.
inline void *zalloc(size_t bytes)
{
    return memset(xmlMalloc(bytes), 0, bytes);
}

// Saves, as kavor saves it, a document with the root element `root` and one
// child `child` holding what `floor(io)` names; false on failure.
template <class Floor>
bool floor_save(const char *root, const char *child, Floor floor, const std::string &path, bool gz)
{
    xmlDocPtr doc = xmlNewDoc(BAD_CAST "1.0");
    xmlNode *r = xmlNewDocNode(doc, nullptr, BAD_CAST root, nullptr);
    Io io{text_element(r, child, nullptr), false};
    floor(io);
    xmlDocSetRootElement(doc, r);
    if (gz)
        xmlSetDocCompressMode(doc, 1);
    int rc = xmlSaveFormatFileEnc(path.c_str(), doc, "utf-8", gz ? 1 : 0);
    xmlFreeDoc(doc);
    return rc >= 0;
}

// ---- the codec's cases -----------------------------------------------------------
// The children of `root` as text.
inline std::string dump(const xmlNode *root)
{
    xmlBufferPtr buf = xmlBufferCreate();
    for (xmlNode *c = root->children; c; c = c->next)
        xmlNodeDump(buf, nullptr, c, 0, 0);
    std::string text(reinterpret_cast<const char *>(xmlBufferContent(buf)));
    xmlBufferFree(buf);
    return text;
}

// The document kavor writes for the block m, as text.
inline std::string text_of(char *m, struct pdesc *table)
{
    xmlNode *root = xmlNewNode(nullptr, BAD_CAST "root");
    param2xml(m, root, table);
    std::string text = dump(root);
    xmlFreeNode(root);
    return text;
}

// One case: its block, its table, and the floor of the same document, made
// on first use (a filtered run builds only what it measures).
struct Case {
    std::string name;
    int items;              // values per call (0: not counted), the size a make may take
    std::function<void(Case &c)> make;  // fills mem, and rows or table
    std::function<void(Io &io, char *mem)> floor;
    std::vector<char> mem = {};
    struct pdesc rows[2] = {};      // the table of a one-row case
    struct pdesc *table = nullptr;  // rows, or a table of its own
    xmlNode *doc = nullptr;         // written once, for the readers
    std::string text = {};          // and as text, for the checks
};

// The case's block: n zeroed T.
template <typename T>
T *block(Case &c, size_t n = 1)
{
    c.mem.assign(sizeof(T) * n, 0);
    return reinterpret_cast<T *>(c.mem.data());
}

// An array case: one row of n values of T in base Base, random over T's
// range (a float's finite, over a wide range).
template <typename T, unsigned Base, bool Upper>
void make_array(Case &c)
{
    T *v = block<T>(c, static_cast<size_t>(c.items));
    fill_random(v, c.mem.size());
    if constexpr (std::is_floating_point<T>::value)
        for (int i = 0; i < c.items; i++)
            v[i] = static_cast<T>((static_cast<double>(next_random() >> 11) / 9007199254740992.0 - 0.5) *
                                  (sizeof(T) == 4 ? 6.0e37 : 3.0e300));
    int type = std::is_floating_point<T>::value ? PT_FLOT
               : std::is_signed<T>::value       ? PT_SINT
               : Base == 10                     ? PT_UINT
               : Upper                          ? PT_UINT | PT_FMT_HEXU
                                                : PT_UINT | PT_FMT_HEXL;
    c.rows[0] = {0, 0, c.items, type, 0, 0, 0, sizeof(T), "v", nullptr, 0};
}

template <typename T, unsigned Base = 10, bool Upper = false>
Case array_case(const std::string &name, int n)
{
    return {name, n, make_array<T, Base, Upper>,
            [n](Io &io, char *m) { io.rows<Base, Upper>("v", reinterpret_cast<T *>(m), n); }};
}

// A list case: n nodes, v random (or counting from 0), w random.
inline Case list_case(const std::string &name, int items, int n, bool random_v)
{
    struct Node { struct znode node; int32_t v; uint32_t w; };
    static struct pdesc rows[] = {PX_SINT(Node, v, "v"), PX_UINT_HEX(Node, w, "w"), PX_END};
    auto make = [n, random_v](Case &c) {
        zhead_t *head = block<zhead_t>(c);
        for (int i = 0; i < n; i++) {
            auto *node = static_cast<Node *>(calloc(1, sizeof(Node)));
            node->v = random_v ? static_cast<int32_t>(next_random()) : i;
            node->w = static_cast<uint32_t>(next_random());
            zlst_push(head, node);
        }
        c.rows[0] = {0, 0, 1, PT_LIST, 0, 0, 0, sizeof(Node), "l", rows, 0};
    };
    auto fields = [](Io &io, struct znode *z) {
        io.num("v", &reinterpret_cast<Node *>(z)->v);
        io.num<16>("w", &reinterpret_cast<Node *>(z)->w);
    };
    auto new_node = [](xmlNode *) { return static_cast<struct znode *>(zalloc(sizeof(Node))); };
    return {name, items, make,
            [=](Io &io, char *m) { io.list("l", *reinterpret_cast<zhead_t *>(m), fields, new_node); }};
}

// Times the case's document written (into a fresh element) or read (into a
// zeroed block), by kavor or the floor, once per iteration; the timer stops
// around the rest, and with `manual` timing a steady clock times the call
// alone. The element and what a read allocated are released outside the
// timed part; the first call must give the document.
inline void time_case(benchmark::State &st, Case *c, bool read, bool floor, bool manual)
{
    if (!c->doc) {
        c->make(*c);
        c->table = c->table ? c->table : c->rows;
        c->doc = xmlNewNode(nullptr, BAD_CAST "root");
        param2xml(c->mem.data(), c->doc, c->table);
        // Written once more, as text: the heap grows by a tree that is then
        // freed, so that no timed call pays the kernel for fresh pages.
        c->text = text_of(c->mem.data(), c->table);
    }
    std::vector<char> out(c->mem.size());
    char *m = read ? out.data() : c->mem.data();
    bool ok = true, first = true;
    for (auto _ : st) {
        st.PauseTiming();
        xmlNode *at = read ? c->doc : xmlNewNode(nullptr, BAD_CAST "root");
        if (read)
            memset(m, 0, out.size());
        st.ResumeTiming();
        auto t0 = Clock::now();
        Io io{read ? at->children : at, read};
        if (floor)
            c->floor(io, m);
        else if (read)
            xml2param(m, at, c->table);
        else
            param2xml(m, at, c->table);
        if (manual)
            st.SetIterationTime(Seconds(Clock::now() - t0).count());
        st.PauseTiming();
        ok = ok && (!first || (read ? text_of(m, c->table) : dump(at)) == c->text);
        first = false;
        if (read)
            param_xml_free(m, c->table);
        else
            xmlFreeNode(at);
        st.ResumeTiming();
    }
    if (!ok)
        st.SkipWithError(read ? "read back other values" : "wrote another document");
    if (c->items)
        st.SetItemsProcessed(st.iterations() * c->items);
}
}  // namespace bench

// ---- the device block ------------------------------------------------------------
// About 46 KiB (device_layout.h): integers of several widths, doubles,
// strings that need escaping, structures with an enumeration. The doubles
// are multiples of 1/8 with at most six significant digits, so that every
// serialiser's text form reads back exact and blocks compare byte for byte.
namespace device {
using Device = dev_block;

inline struct enume modes[] = {PX_ENUME("off", 0), PX_ENUME("auto", 1), PX_ENUME("manual", 2),
                               PX_ENUME("test", 3), PX_ENUME_END(0)};
inline struct pdesc port_rows[] = {
    PX_SINT(dev_port, id, "id"), PX_UINT(dev_port, vlan, "vlan"), PX_UINT_ARR_HEX(dev_port, mac, "mac"),
    PX_FLOT(dev_port, gain, "gain"), PX_STRI(dev_port, name, "name"), PX_ENUM(dev_port, mode, "mode", modes),
    PX_UINT_HEXU(dev_port, flags, "flags"), PX_END};
inline struct pdesc label_rows[] = {PX_STRI(dev_label, text, "line"), PX_END};
inline struct pdesc table[] = {
    PX_UINT_ARR(Device, u8, "u8"), PX_UINT_ARR(Device, u16, "u16"), PX_SINT_ARR(Device, s32, "s32"),
    PX_UINT_ARR_HEX(Device, u32, "u32"), PX_SINT_ARR(Device, s64, "s64"), PX_FLOT_ARR(Device, dbl, "dbl"),
    PX_STRU_ARR(Device, labels, "label", label_rows), PX_STRU_ARR(Device, ports, "port", port_rows), PX_END};

// The block's floor, in the order of its table.
inline void floor(bench::Io &io, Device &d)
{
    io.rows("u8", d.u8, DEV_U8);
    io.rows("u16", d.u16, DEV_U16);
    io.rows("s32", d.s32, DEV_S32);
    io.rows<16>("u32", d.u32, DEV_U32);
    io.rows("s64", d.s64, DEV_S64);
    io.rows("dbl", d.dbl, DEV_DBL);
    io.structs("label", d.labels, DEV_LABELS,
               [](bench::Io &f, dev_label &l) { f.str("line", l.text); });
    io.structs("port", d.ports, DEV_PORTS, [](bench::Io &f, dev_port &p) {
        f.num("id", &p.id);
        f.num("vlan", &p.vlan);
        f.num<16>("mac", p.mac, 6);
        f.num("gain", &p.gain);
        f.str("name", p.name);
        f.enm("mode", p.mode, modes);
        f.num<16, true>("flags", &p.flags);
    });
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
        dev_port &p = d->ports[i];
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

// The block saved to the file at `path` and loaded from it, by kavor (which
// adds ".xml" or ".xml.gz") or by the floor (root "device", one child "dev");
// true on success. The peers take the same form.
using SaveFn = bool (*)(const Device *d, const std::string &path, bool gz);
using LoadFn = bool (*)(const std::string &path, Device *d, bool gz);

inline bool kavor_save(const Device *d, const std::string &path, bool gz)
{
    kavor_file_rgst_t r = bench::request(path.c_str(), "dev", table, const_cast<Device *>(d), !gz);
    return kavor_param2file(&r) == 0;
}

inline bool kavor_load(const std::string &path, Device *d, bool gz)
{
    kavor_file_rgst_t r = bench::request(path.c_str(), "dev", table, d, !gz);
    return kavor_file2param(&r) == 0;
}

inline bool floor_save(const Device *d, const std::string &path, bool gz)
{
    auto write = [d](bench::Io &io) { floor(io, *const_cast<Device *>(d)); };  // only written
    return bench::floor_save("device", "dev", write, path, gz);
}

// Parses the file as the load does (no network) and reads the root's first
// child; false when the file has none.
inline bool floor_load(const std::string &path, Device *d, bool)
{
    xmlDocPtr doc = xmlReadFile(path.c_str(), nullptr, XML_PARSE_NONET);
    xmlNode *root = doc ? xmlDocGetRootElement(doc) : nullptr;
    xmlNode *child = root ? bench::elem(root->children) : nullptr;
    bench::Io io{child ? bench::elem(child->children) : nullptr, true};
    if (child)
        floor(io, *d);
    xmlFreeDoc(doc);
    return child != nullptr;
}

// Registers "<save_name>", a save of the block per iteration ("file_bytes":
// the size of `written`), and "<load_name>", a load per iteration of what
// one save wrote, which must give the block back.
inline void register_save_load(const std::string &save_name, const std::string &load_name,
                               SaveFn save, LoadFn load, const std::string &path, bool gz,
                               const std::string &written)
{
    static const Device *block = make();
    for (bool loading : {false, true})
        benchmark::RegisterBenchmark((loading ? load_name : save_name).c_str(), [=](benchmark::State &st) {
            Device *out = make(true);
            if (loading && !save(block, path, gz))
                st.SkipWithError("save failed");
            for (auto _ : st)
                if (loading ? !load(path, out, gz) : !save(block, path, gz))
                    st.SkipWithError(loading ? "load failed" : "save failed");
            if (loading && memcmp(out, block, sizeof(Device)) != 0)
                st.SkipWithError("read back another block");
            if (!loading)
                st.counters["file_bytes"] = static_cast<double>(bench::file_size(written));
            free(out);
        })->Unit(benchmark::kMicrosecond);
}
}  // namespace device

#endif
