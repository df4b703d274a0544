// codec_bench.cpp - param2xml and xml2param ("kavor") beside the floor, per
// kind: each integer width and text form, float, double, structures,
// strings, enumerations, counted buffers, lists, variant lists. The trace
// handle stays NULL, as in a quiet application; items are values.
// Invariant: both sides make and read the same document, which the first
// write and read of each figure must give (checked outside the timed part).
// Names: codec/<write|read>_<case>/<kavor|floor>.
#include "fixture.h"

namespace {
constexpr int kValues = 100000;    // array cases
constexpr int kStructs = 20000;    // structure case
constexpr int kKindItems = 20000;  // strings, enumerations, list nodes
constexpr int kBuffers = 100;      // counted buffers ...
constexpr int kPerBuffer = 1000;   // ... of this many u32 each

using bench::block;
using bench::Case;
using bench::Io;

// ---- arrays of numbers, structures, strings and enumerations ----------------------
// An integer type's decimal case and, if it is unsigned, its hexadecimal ones.
template <typename T>
void add_ints(std::vector<Case> &out, const std::string &tname)
{
    out.push_back(bench::array_case<T>(tname + "_dec", kValues));
    if (std::is_signed<T>::value)
        return;
    out.push_back(bench::array_case<T, 16, false>(tname + "_hexl", kValues));
    out.push_back(bench::array_case<T, 16, true>(tname + "_hexu", kValues));
}

struct enume kModes[] = {{"off", 0}, {"auto", 1}, {"manual", 2}, {nullptr, 0}};

struct Port {
    int32_t speed, mtu;
    uint8_t mac[6];
    char name[16];
    uint32_t flags;
    float gain[4];
    int mode;
};

void make_ports(Case &c)
{
    static struct pdesc rows[] = {
        PX_SINT(Port, speed, "speed"), PX_SINT(Port, mtu, "mtu"), PX_UINT_ARR_HEX(Port, mac, "mac"),
        PX_STRI(Port, name, "name"), PX_UINT_HEXU(Port, flags, "flags"), PX_FLOT_ARR(Port, gain, "gain"),
        PX_ENUM(Port, mode, "mode", kModes), PX_END};
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
    c.rows[0] = {0, 0, kStructs, PT_STRU, 0, 0, 0, sizeof(Port), "port", rows, 0};
}

void ports_floor(Io &io, char *m)
{
    io.structs("port", reinterpret_cast<Port *>(m), kStructs, [](Io &f, Port &p) {
        f.num("speed", &p.speed);
        f.num("mtu", &p.mtu);
        f.num<16>("mac", p.mac, 6);
        f.str("name", p.name);
        f.num<16, true>("flags", &p.flags);
        f.num("gain", p.gain, 4);
        f.enm("mode", p.mode, kModes);
    });
}

struct Named { char text[32]; };

// An array of structures of one string each, texts that need escaping.
void make_strings(Case &c)
{
    static struct pdesc sub[] = {PX_STRI(Named, text, "text_"), PX_END};
    Named *n = block<Named>(c, kKindItems);
    for (int i = 0; i < kKindItems; i++)
        snprintf(n[i].text, sizeof n[i].text, "n<%d> & \"%d\"", i, i % 13);
    c.rows[0] = {0, 0, kKindItems, PT_STRU, 0, 0, 0, sizeof(Named), "n", sub, 0};
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

// ---- counted buffers: one "cnt" wrapper per buffer around its value elements ---------
struct Cob { uint32_t *buf[kBuffers]; int cnt[kBuffers]; };

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

void cob_floor(Io &io, char *m)
{
    Cob *b = reinterpret_cast<Cob *>(m);
    for (int i = 0; i < kBuffers && io.at; i++) {
        if (io.read) {
            xmlChar *cnt = xmlGetProp(io.at, BAD_CAST "cnt");
            b->cnt[i] = atoi(reinterpret_cast<char *>(cnt));
            xmlFree(cnt);
            b->buf[i] = static_cast<uint32_t *>(bench::zalloc(sizeof(uint32_t) * b->cnt[i]));
            Io{io.at->children, true}.rows("c", b->buf[i], b->cnt[i]);
            io.at = io.at->next;
        } else {
            char cnt[16];
            *bench::digits<unsigned, 10, false>(cnt, static_cast<unsigned>(b->cnt[i])) = '\0';
            xmlNode *e = bench::text_element(io.at, "c", nullptr);
            xmlNewProp(e, BAD_CAST "cnt", BAD_CAST cnt);
            Io{e, false}.rows("c", b->buf[i], b->cnt[i]);
        }
    }
}

// ---- variant lists: nodes of two layouts, each inner element with its "typ" --------
struct ListA { struct znode node; int32_t a; };
struct ListB { struct znode node; uint16_t b[4]; char s[12]; };
const char kTypA[] = "a", kTypB[] = "b";

void make_vlst(Case &c)
{
    static struct pdesc a_rows[] = {PX_SINT(ListA, a, "a"), PX_END};
    static struct pdesc b_rows[] = {PX_UINT_ARR(ListB, b, "b"), PX_STRI(ListB, s, "s"), PX_END};
    static struct adesc alts[] = {PX_ADESC(ListB, b_rows, kTypB), PX_ADESC(ListA, a_rows, kTypA),
                                  PX_ADESC_END};
    zhead_t *head = block<zhead_t>(c);
    for (int i = 0; i < kKindItems; i++) {
        ListB *n = static_cast<ListB *>(calloc(1, sizeof(ListB)));  // room for either layout
        if (i % 2) {
            reinterpret_cast<ListA *>(n)->a = static_cast<int32_t>(bench::next_random());
        } else {
            bench::fill_random(n->b, sizeof n->b);
            snprintf(n->s, sizeof n->s, "b%d", i);
        }
        zlst_set_name(n, i % 2 ? kTypA : kTypB);
        zlst_push(head, n);
    }
    c.rows[0] = {0, 0, 1, PT_VLST, 0, 0, 0, sizeof(zhead_t), "x", nullptr,
                 reinterpret_cast<intptr_t>(alts)};
}

// The fields of a node of either layout, by its type name.
void vlst_node(Io &io, struct znode *z)
{
    if (strcmp(z->name, kTypA) == 0) {
        io.num("a", &reinterpret_cast<ListA *>(z)->a);
    } else {
        io.num("b", reinterpret_cast<ListB *>(z)->b, 4);
        io.str("s", reinterpret_cast<ListB *>(z)->s);
    }
}

// A node of the layout its "typ" names.
struct znode *new_vlst_node(xmlNode *inner)
{
    xmlChar *typ = xmlGetProp(inner, BAD_CAST "typ");
    bool a = xmlStrEqual(typ, BAD_CAST kTypA);
    xmlFree(typ);
    struct znode *z = static_cast<struct znode *>(bench::zalloc(a ? sizeof(ListA) : sizeof(ListB)));
    zlst_set_name(z, a ? kTypA : kTypB);
    return z;
}

}  // namespace

int main(int argc, char **argv)
{
    static std::vector<Case> cases;
    add_ints<int8_t>(cases, "s8");
    add_ints<int16_t>(cases, "s16");
    add_ints<int32_t>(cases, "s32");
    add_ints<int64_t>(cases, "s64");
    add_ints<uint8_t>(cases, "u8");
    add_ints<uint16_t>(cases, "u16");
    add_ints<uint32_t>(cases, "u32");
    add_ints<uint64_t>(cases, "u64");
    cases.push_back(bench::array_case<float>("float", kValues));
    cases.push_back(bench::array_case<double>("double", kValues));
    cases.push_back({"struct", kStructs, make_ports, ports_floor});
    cases.push_back({"string", 0, make_strings, [](Io &io, char *m) {
        io.structs("n", reinterpret_cast<Named *>(m), kKindItems,
                   [](Io &f, Named &n) { f.str("text_", n.text); });
    }});
    cases.push_back({"enum", 0, make_enums, [](Io &io, char *m) {
        for (int i = 0; i < kKindItems; i++)
            io.enm("mode", reinterpret_cast<int *>(m)[i], kModes);
    }});
    cases.push_back({"counted_u32", 0, make_cob, cob_floor});
    cases.push_back(bench::list_case("list", 0, kKindItems, true));
    cases.push_back({"variant_list", 0, make_vlst, [](Io &io, char *m) {
        io.list("x", *reinterpret_cast<zhead_t *>(m), vlst_node, new_vlst_node);
    }});
    for (Case &c : cases)
        for (bool read : {false, true})
            for (bool floor : {false, true})
                benchmark::RegisterBenchmark(("codec/" + std::string(read ? "read_" : "write_") + c.name +
                                              (floor ? "/floor" : "/kavor")).c_str(),
                                             bench::time_case, &c, read, floor, false)
                    ->Unit(benchmark::kMillisecond);
    return bench::run(argc, argv);
}
