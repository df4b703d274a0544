// codec_bench.cpp - the codec's speed beside its floor.
//
// For each integer width and text form, for float and double, for an array
// of structures, and for strings, enumerations, counted buffers, lists and
// variant lists, four numbers: param2xml and xml2param ("kavor"), and the
// same elements built with libxml2 alone, values formatted the same way but
// without the table walk, and the same document walked with
// xmlNodeGetContent and strto* alone ("floor"). Items are values (or
// structures). The trace handle stays NULL, as in a quiet application.
// Invariant: both sides make and read the same document; the first write of
// each figure must give it and the first read must give it back (checked
// outside the timed part). Names: codec/<write|read>_<case>/<kavor|floor>.
//
//   codec_bench --benchmark_min_time=0.5
#include <vector>

#include "fixture.h"

namespace {

constexpr int kValues = 100000;    // array cases
constexpr int kStructs = 20000;    // structure case
constexpr int kKindItems = 20000;  // strings, enumerations, list nodes
constexpr int kBuffers = 100;      // counted buffers ...
constexpr int kPerBuffer = 1000;   // ... of this many u32 each

std::string dump(const xmlNode *root)
{
    xmlBufferPtr buf = xmlBufferCreate();
    for (xmlNode *c = root->children; c; c = c->next)
        xmlNodeDump(buf, nullptr, c, 0, 0);
    std::string text(reinterpret_cast<const char *>(xmlBufferContent(buf)));
    xmlBufferFree(buf);
    return text;
}

// One case: its block, its table, and the floor's own walk of the same
// document. Made on first use, so that a filtered run builds only what it
// measures.
struct Case {
    std::string name;
    int items;                                        // per call; 0: not counted
    void (*make)(Case &c);                            // fills mem, and rows or table
    void (*floor_write)(const char *mem, xmlNode *parent);
    void (*floor_read)(char *mem, xmlNode *parent);
    void (*floor_release)(char *mem) = nullptr;       // what a read allocated; NULL: nothing
    std::vector<char> mem = {};
    struct pdesc rows[2] = {};      // the table of a one-row case
    struct pdesc *table = nullptr;  // rows, or a table of its own
    xmlNode *doc = nullptr;         // written once, for the readers
    std::string text = {};          // and as text, for the checks

    Case *ready()
    {
        if (!doc) {
            make(*this);
            if (!table)
                table = rows;
            doc = xmlNewNode(nullptr, BAD_CAST "root");
            param2xml(mem.data(), doc, table);
            text = dump(doc);
        }
        return this;
    }
    // Whether the block `out` gives the case's document again.
    bool gives_doc(std::vector<char> &out) const
    {
        xmlNode *root = xmlNewNode(nullptr, BAD_CAST "root");
        param2xml(out.data(), root, table);
        bool same = dump(root) == text;
        xmlFreeNode(root);
        return same;
    }
};

// The case's block: n zeroed T.
template <typename T>
T *block(Case &c, size_t n = 1)
{
    c.mem.assign(sizeof(T) * n, 0);
    return reinterpret_cast<T *>(c.mem.data());
}

// Writes the case's document once per iteration, into a fresh element freed
// outside the timed part; the first is checked.
void time_write(benchmark::State &st, Case *c, bool floor)
{
    c->ready();
    xmlNode *root = nullptr;
    bool ok = true, first = true;
    bench::time_calls(
        st, false, [&root] { root = xmlNewNode(nullptr, BAD_CAST "root"); },
        [&] {
            if (floor)
                c->floor_write(c->mem.data(), root);
            else
                param2xml(c->mem.data(), root, c->table);
        },
        [&] {
            ok = !first || dump(root) == c->text;
            first = false;
            xmlFreeNode(root);
        });
    if (!ok)
        st.SkipWithError(floor ? "floor wrote another document" : "codec wrote another document");
    if (c->items)
        st.SetItemsProcessed(st.iterations() * c->items);
}

// Reads the case's document once per iteration; what a read allocated is
// released outside the timed part. The first read must give the document
// again.
void time_read(benchmark::State &st, Case *c, bool floor)
{
    c->ready();
    std::vector<char> out(c->mem.size());
    bool ok = true, first = true;
    bench::time_calls(
        st, false, [] {},
        [&] {
            if (floor)
                c->floor_read(out.data(), c->doc);
            else
                xml2param(out.data(), c->doc, c->table);
        },
        [&] {
            ok = ok && (!first || c->gives_doc(out));
            first = false;
            if (floor && c->floor_release)
                c->floor_release(out.data());
            else if (c->floor_release)
                param_xml_free(out.data(), c->table);
        });
    if (!ok)
        st.SkipWithError(floor ? "floor read back other values" : "codec read back other values");
    if (c->items)
        st.SetItemsProcessed(st.iterations() * c->items);
}

// ---- arrays of numbers ---------------------------------------------------------

template <typename T>
void make_array(Case &c)
{
    c.mem.resize(static_cast<size_t>(kValues) * sizeof(T));
    bench::fill_random(c.mem.data(), c.mem.size());
    if constexpr (std::is_floating_point<T>::value)  // finite values over a wide range
        for (int i = 0; i < kValues; i++) {
            double v = (static_cast<double>(bench::next_random() >> 11) / 9007199254740992.0 - 0.5) *
                       (sizeof(T) == 4 ? 6.0e37 : 3.0e300);
            T t = static_cast<T>(v);
            memcpy(&c.mem[static_cast<size_t>(i) * sizeof(T)], &t, sizeof(T));
        }
    c.rows[0].count = kValues;
    c.rows[0].size = sizeof(T);
    c.rows[0].name = "v";
}

template <typename T, unsigned Base, bool Upper>
void array_floor_write(const char *mem, xmlNode *parent)
{
    bench::floor_write_array<T, Base, Upper>(reinterpret_cast<const T *>(mem), kValues, "v", parent);
}

template <typename T>
void array_floor_read(char *mem, xmlNode *parent)
{
    bench::floor_read_array<T>(parent->children, reinterpret_cast<T *>(mem), kValues);
}

template <typename T, unsigned Base = 10, bool Upper = false>
Case array_case(const std::string &name, int type)
{
    Case c{name, kValues, make_array<T>, array_floor_write<T, Base, Upper>, array_floor_read<T>};
    c.rows[0].type = type;
    return c;
}

template <typename T>
void add_int_cases(std::vector<Case> &out, const std::string &tname)
{
    if (std::is_signed<T>::value) {
        out.push_back(array_case<T>(tname + "_dec", PT_SINT));
        return;
    }
    out.push_back(array_case<T>(tname + "_dec", PT_UINT));
    out.push_back(array_case<T, 16, false>(tname + "_hexl", PT_UINT | PT_FMT_HEXL));
    out.push_back(array_case<T, 16, true>(tname + "_hexu", PT_UINT | PT_FMT_HEXU));
}

// ---- structures ------------------------------------------------------------------

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
    PX_SINT(Port, speed, "speed"),     PX_SINT(Port, mtu, "mtu"),
    PX_UINT_ARR_HEX(Port, mac, "mac"), PX_STRI(Port, name, "name"),
    PX_UINT_HEXU(Port, flags, "flags"), PX_FLOT_ARR(Port, gain, "gain"),
    PX_ENUM(Port, mode, "mode", kModes), PX_END};

void make_ports(Case &c)
{
    Port *ports = block<Port>(c, kStructs);
    for (int i = 0; i < kStructs; i++) {
        Port &p = ports[i];
        p.speed = static_cast<int32_t>(bench::next_random() % 100000);
        p.mtu = 1500 + i % 7000;
        bench::fill_random(p.mac, sizeof p.mac);
        snprintf(p.name, sizeof p.name, "eth%d", i);
        p.flags = static_cast<uint32_t>(bench::next_random());
        for (int k = 0; k < 4; k++)
            p.gain[k] = 0.25f * static_cast<float>(k + i % 100);
        p.mode = i % 3;
    }
    c.rows[0] = {0, 0, kStructs, PT_STRU, 0, 0, 0, sizeof(Port), "port", kPortRows, 0};
}

void ports_floor_write(const char *mem, xmlNode *parent)
{
    const Port *ports = reinterpret_cast<const Port *>(mem);
    for (int i = 0; i < kStructs; i++) {
        const Port &p = ports[i];
        xmlNode *e = bench::text_element(parent, "port", nullptr);
        bench::value_element(e, "speed", &p.speed);
        bench::value_element(e, "mtu", &p.mtu);
        bench::value_element<uint8_t, 16, false>(e, "mac", p.mac, 6);
        bench::string_element(e, "name", p.name);
        bench::value_element<uint32_t, 16, true>(e, "flags", &p.flags);
        bench::value_element(e, "gain", p.gain, 4);
        bench::text_element(e, "mode", bench::enum_key(kModes, p.mode));
    }
}

// The same document read field by field in its known order.
void ports_floor_read(char *mem, xmlNode *parent)
{
    Port *p = reinterpret_cast<Port *>(mem);
    for (xmlNode *e = parent->children; e; e = e->next, p++) {
        xmlNode *f = bench::floor_read_value(e->children, &p->speed);
        f = bench::floor_read_value(f, &p->mtu);
        f = bench::floor_read_value(f, p->mac, 6);
        f = bench::floor_read_string(f, p->name);
        f = bench::floor_read_value(f, &p->flags);
        f = bench::floor_read_value(f, p->gain, 4);
        p->mode = bench::floor_read_enum(f, kModes);
    }
}

// ---- strings and enumerations -----------------------------------------------------

struct Named {
    char text[32];
};

// An array of structures of one string each, texts that need escaping.
void make_strings(Case &c)
{
    static struct pdesc sub[] = {PX_STRI(Named, text, "text_"), PX_END};
    Named *n = block<Named>(c, kKindItems);
    for (int i = 0; i < kKindItems; i++)
        snprintf(n[i].text, sizeof n[i].text, "n<%d> & \"%d\"", i, i % 13);
    c.rows[0] = {0, 0, kKindItems, PT_STRU, 0, 0, 0, sizeof(Named), "n", sub, 0};
}

void strings_floor_write(const char *mem, xmlNode *parent)
{
    const Named *n = reinterpret_cast<const Named *>(mem);
    for (int i = 0; i < kKindItems; i++)
        bench::string_element(bench::text_element(parent, "n", nullptr), "text_", n[i].text);
}

void strings_floor_read(char *mem, xmlNode *parent)
{
    Named *n = reinterpret_cast<Named *>(mem);
    int i = 0;
    for (xmlNode *e = parent->children; e && i < kKindItems; e = e->next, i++)
        bench::floor_read_string(e->children, n[i].text);
}

// One element per value, named by the table.
void make_enums(Case &c)
{
    int *v = block<int>(c, kKindItems);
    for (int i = 0; i < kKindItems; i++)
        v[i] = static_cast<int>(bench::next_random() % 3);
    c.rows[0] = {0, 0, kKindItems, PT_ENUM, 0, 0, 0, sizeof(int), "mode", nullptr,
                 reinterpret_cast<intptr_t>(kModes)};
}

void enums_floor_write(const char *mem, xmlNode *parent)
{
    const int *v = reinterpret_cast<const int *>(mem);
    for (int i = 0; i < kKindItems; i++)
        bench::text_element(parent, "mode", bench::enum_key(kModes, v[i]));
}

void enums_floor_read(char *mem, xmlNode *parent)
{
    int *v = reinterpret_cast<int *>(mem);
    int i = 0;
    for (xmlNode *e = parent->children; e && i < kKindItems; e = e->next, i++)
        v[i] = bench::floor_read_enum(e, kModes);
}

// ---- counted buffers: one "cnt" wrapper per buffer around its value elements ---------

struct Cob {
    uint32_t *buf[kBuffers];
    int cnt[kBuffers];
};

void make_cob(Case &c)
{
    static struct pdesc t[] = {PX_UINT_COB(Cob, buf, cnt, "c"), PX_END};
    Cob *b = block<Cob>(c);
    for (int i = 0; i < kBuffers; i++) {
        b->cnt[i] = kPerBuffer;
        b->buf[i] = static_cast<uint32_t *>(malloc(sizeof(uint32_t) * kPerBuffer));
        bench::fill_random(b->buf[i], sizeof(uint32_t) * kPerBuffer);
    }
    c.table = t;
}

void cob_floor_write(const char *mem, xmlNode *parent)
{
    const Cob *b = reinterpret_cast<const Cob *>(mem);
    char cnt[16];
    for (int i = 0; i < kBuffers; i++) {
        xmlNode *w = bench::text_element(parent, "c", nullptr);
        *bench::digits<unsigned, 10, false>(cnt, static_cast<unsigned>(b->cnt[i])) = '\0';
        xmlNewProp(w, BAD_CAST "cnt", BAD_CAST cnt);
        bench::floor_write_array(b->buf[i], b->cnt[i], "c", w);
    }
}

void cob_floor_read(char *mem, xmlNode *parent)
{
    Cob *b = reinterpret_cast<Cob *>(mem);
    int i = 0;
    for (xmlNode *w = parent->children; w && i < kBuffers; w = w->next, i++) {
        xmlChar *cnt = xmlGetProp(w, BAD_CAST "cnt");
        int n = atoi(reinterpret_cast<char *>(cnt));
        xmlFree(cnt);
        b->cnt[i] = n;
        b->buf[i] = static_cast<uint32_t *>(calloc(static_cast<size_t>(n), sizeof(uint32_t)));
        bench::floor_read_array(w->children, b->buf[i], n);
    }
}

void cob_floor_release(char *mem)
{
    Cob *b = reinterpret_cast<Cob *>(mem);
    for (int i = 0; i < kBuffers; i++) {
        free(b->buf[i]);
        b->buf[i] = nullptr;
    }
}

// ---- lists: one outer element, one inner element per node ---------------------------

struct Lists {
    zhead_t head;
};

struct ListNode {
    struct znode node;
    int32_t v;
    uint32_t w;
};

void make_list(Case &c)
{
    static struct pdesc sub[] = {PX_SINT(ListNode, v, "v"), PX_UINT_HEX(ListNode, w, "w"), PX_END};
    static struct pdesc t[] = {PX_LIST(Lists, head, ListNode, "l", sub), PX_END};
    Lists *l = block<Lists>(c);
    for (int i = 0; i < kKindItems; i++) {
        ListNode *n = static_cast<ListNode *>(calloc(1, sizeof(ListNode)));
        n->v = static_cast<int32_t>(bench::next_random());
        n->w = static_cast<uint32_t>(bench::next_random());
        zlst_push(&l->head, n);
    }
    c.table = t;
}

void list_floor_write(const char *mem, xmlNode *parent)
{
    xmlNode *outer = bench::text_element(parent, "l", nullptr);
    for (struct znode *z = reinterpret_cast<const Lists *>(mem)->head; z; z = z->next) {
        const ListNode *n = reinterpret_cast<const ListNode *>(z);
        xmlNode *inner = bench::text_element(outer, "l", nullptr);
        bench::value_element(inner, "v", &n->v);
        bench::value_element<uint32_t, 16, false>(inner, "w", &n->w);
    }
}

void list_floor_read(char *mem, xmlNode *parent)
{
    Lists *l = reinterpret_cast<Lists *>(mem);
    for (xmlNode *inner = parent->children->children; inner; inner = inner->next) {
        ListNode *n = static_cast<ListNode *>(calloc(1, sizeof(ListNode)));
        bench::floor_read_value(bench::floor_read_value(inner->children, &n->v), &n->w);
        zlst_push(&l->head, n);
    }
}

void list_floor_release(char *mem)
{
    Lists *l = reinterpret_cast<Lists *>(mem);
    while (void *n = zlst_pop(&l->head))
        free(n);
}

// ---- variant lists: nodes of two layouts, each inner element with its "typ" -----------

struct ListA {
    struct znode node;
    int32_t a;
};
struct ListB {
    struct znode node;
    uint16_t b[4];
    char s[12];
};
const char kTypA[] = "a";
const char kTypB[] = "b";

void make_vlst(Case &c)
{
    static struct pdesc a_rows[] = {PX_SINT(ListA, a, "a"), PX_END};
    static struct pdesc b_rows[] = {PX_UINT_ARR(ListB, b, "b"), PX_STRI(ListB, s, "s"), PX_END};
    static struct adesc alts[] = {PX_ADESC(ListB, b_rows, kTypB), PX_ADESC(ListA, a_rows, kTypA),
                                  PX_ADESC_END};
    static struct pdesc t[] = {PX_VLST(Lists, head, "x", alts), PX_END};
    Lists *l = block<Lists>(c);
    for (int i = 0; i < kKindItems; i++) {
        if (i % 2) {
            ListA *n = static_cast<ListA *>(calloc(1, sizeof(ListB)));
            n->a = static_cast<int32_t>(bench::next_random());
            zlst_set_name(n, kTypA);
            zlst_push(&l->head, n);
        } else {
            ListB *n = static_cast<ListB *>(calloc(1, sizeof(ListB)));
            bench::fill_random(n->b, sizeof n->b);
            snprintf(n->s, sizeof n->s, "b%d", i);
            zlst_set_name(n, kTypB);
            zlst_push(&l->head, n);
        }
    }
    c.table = t;
}

void vlst_floor_write(const char *mem, xmlNode *parent)
{
    xmlNode *outer = bench::text_element(parent, "x", nullptr);
    for (struct znode *z = reinterpret_cast<const Lists *>(mem)->head; z; z = z->next) {
        xmlNode *inner = bench::text_element(outer, "x", nullptr);
        xmlNewProp(inner, BAD_CAST "typ", BAD_CAST z->name);
        if (strcmp(z->name, kTypA) == 0) {
            bench::value_element(inner, "a", &reinterpret_cast<const ListA *>(z)->a);
        } else {
            const ListB *n = reinterpret_cast<const ListB *>(z);
            bench::floor_write_array(n->b, 4, "b", inner);
            bench::string_element(inner, "s", n->s);
        }
    }
}

void vlst_floor_read(char *mem, xmlNode *parent)
{
    Lists *l = reinterpret_cast<Lists *>(mem);
    for (xmlNode *inner = parent->children->children; inner; inner = inner->next) {
        xmlChar *typ = xmlGetProp(inner, BAD_CAST "typ");
        if (xmlStrEqual(typ, BAD_CAST kTypA)) {
            ListA *n = static_cast<ListA *>(calloc(1, sizeof(ListA)));
            zlst_set_name(n, kTypA);
            bench::floor_read_value(inner->children, &n->a);
            zlst_push(&l->head, n);
        } else {
            ListB *n = static_cast<ListB *>(calloc(1, sizeof(ListB)));
            zlst_set_name(n, kTypB);
            bench::floor_read_string(bench::floor_read_value(inner->children, n->b, 4), n->s);
            n->s[sizeof n->s - 1] = '\0';
            zlst_push(&l->head, n);
        }
        xmlFree(typ);
    }
}

std::vector<Case> all_cases()
{
    std::vector<Case> c;
    add_int_cases<int8_t>(c, "s8");
    add_int_cases<int16_t>(c, "s16");
    add_int_cases<int32_t>(c, "s32");
    add_int_cases<int64_t>(c, "s64");
    add_int_cases<uint8_t>(c, "u8");
    add_int_cases<uint16_t>(c, "u16");
    add_int_cases<uint32_t>(c, "u32");
    add_int_cases<uint64_t>(c, "u64");
    c.push_back(array_case<float>("float", PT_FLOT));
    c.push_back(array_case<double>("double", PT_FLOT));
    c.push_back({"struct", kStructs, make_ports, ports_floor_write, ports_floor_read});
    c.push_back({"string", 0, make_strings, strings_floor_write, strings_floor_read});
    c.push_back({"enum", 0, make_enums, enums_floor_write, enums_floor_read});
    c.push_back({"counted_u32", 0, make_cob, cob_floor_write, cob_floor_read, cob_floor_release});
    c.push_back({"list", 0, make_list, list_floor_write, list_floor_read, list_floor_release});
    c.push_back({"variant_list", 0, make_vlst, vlst_floor_write, vlst_floor_read,
                 list_floor_release});
    return c;
}

}  // namespace

int main(int argc, char **argv)
{
    static std::vector<Case> cases = all_cases();
    for (Case &c : cases)
        for (bool read : {false, true})
            for (bool floor : {false, true})
                benchmark::RegisterBenchmark(
                    ("codec/" + std::string(read ? "read_" : "write_") + c.name +
                     (floor ? "/floor" : "/kavor")).c_str(),
                    read ? time_read : time_write, &c, floor)
                    ->Unit(benchmark::kMillisecond);
    return bench::run(argc, argv);
}
