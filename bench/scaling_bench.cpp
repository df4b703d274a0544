// scaling_bench.cpp - time per value of the codec as the data grows: arrays
// of 200 to 500,000 values, structure arrays of 10 to 100,000 elements, lists
// of 10 to 100,000 nodes, both directions. Linear code keeps the time per
// value at the largest size near the time per value at 10,000.
//
// Names: scale/<array|struct|list>_<write|read|write_floor>/<n>; the time is
// per call (manual timing around param2xml or xml2param alone), items are
// values. The heap is kept between calls (bench::run): otherwise each
// call at the large sizes may grow the heap again from the kernel, and on a
// virtual machine those page faults cost more than the walk itself.
#include <vector>

#include "fixture.h"

namespace {

enum Kind { kArray, kStruct, kList };

struct Elem {
    int32_t a;
    uint16_t b;
    char tag[8];
};

struct Node {
    struct znode node;
    int32_t v;
    uint32_t w;
};

struct pdesc kElemRows[] = {PX_SINT(Elem, a, "a"), PX_UINT(Elem, b, "b"), PX_STRI(Elem, tag, "tag"),
                            PX_END};
struct pdesc kNodeRows[] = {PX_SINT(Node, v, "v"), PX_UINT_HEX(Node, w, "w"), PX_END};

// One case of n values: a block, its table and the document it gives.
struct Case {
    Kind kind;
    int n;
    std::vector<char> mem;
    struct pdesc table[2] = {};
    zhead_t head = nullptr;  // the list's written nodes
    xmlNode *doc = xmlNewNode(nullptr, BAD_CAST "root");

    Case(Kind k, int count) : kind(k), n(count)
    {
        if (kind == kArray) {
            mem.resize(sizeof(uint32_t) * static_cast<size_t>(n));
            bench::fill_random(mem.data(), mem.size());
            table[0] = {0, 0, n, PT_UINT, 0, 0, 0, sizeof(uint32_t), "v", nullptr, 0};
        } else if (kind == kStruct) {
            mem.resize(sizeof(Elem) * static_cast<size_t>(n));
            Elem *e = reinterpret_cast<Elem *>(mem.data());
            for (int i = 0; i < n; i++) {
                e[i].a = static_cast<int32_t>(bench::next_random());
                e[i].b = static_cast<uint16_t>(i);
                snprintf(e[i].tag, sizeof e[i].tag, "t%d", i % 100000);
            }
            table[0] = {0, 0, n, PT_STRU, 0, 0, 0, sizeof(Elem), "e", kElemRows, 0};
        } else {
            for (int i = 0; i < n; i++) {
                Node *node = static_cast<Node *>(calloc(1, sizeof(Node)));
                node->v = i;
                node->w = static_cast<uint32_t>(bench::next_random());
                zlst_push(&head, node);
            }
            mem.resize(sizeof head);
            memcpy(mem.data(), &head, sizeof head);
            table[0] = {0, 0, 1, PT_LIST, 0, 0, 0, sizeof(Node), "l", kNodeRows, 0};
        }
        param2xml(mem.data(), doc, table);
        // Grows the heap to the size of one more tree and frees it, so that
        // no timed call pays the kernel for fresh pages (a cost of the
        // machine, not of the code, and larger than the walk on a virtual
        // machine).
        xmlNode *spare = xmlNewNode(nullptr, BAD_CAST "root");
        param2xml(mem.data(), spare, table);
        xmlFreeNode(spare);
    }
};

Case *get_case(Kind kind, int n)
{
    static std::vector<Case *> cases;
    for (Case *c : cases)
        if (c->kind == kind && c->n == n)
            return c;
    cases.push_back(new Case(kind, n));
    return cases.back();
}

// libxml2 alone building the same elements, for the same sizes: what the
// allocator and the caches make of the size whatever the walk.
void floor_write_case(const Case *c, xmlNode *root)
{
    if (c->kind == kArray) {
        bench::floor_write_array(reinterpret_cast<const uint32_t *>(c->mem.data()), c->n, "v", root);
    } else if (c->kind == kStruct) {
        const Elem *e = reinterpret_cast<const Elem *>(c->mem.data());
        for (int i = 0; i < c->n; i++) {
            xmlNode *x = bench::text_element(root, "e", nullptr);
            bench::value_element(x, "a", &e[i].a);
            bench::value_element(x, "b", &e[i].b);
            bench::string_element(x, "tag", e[i].tag);
        }
    } else {
        xmlNode *outer = bench::text_element(root, "l", nullptr);
        for (struct znode *z = c->head; z; z = z->next) {
            const Node *n = reinterpret_cast<const Node *>(z);
            xmlNode *x = bench::text_element(outer, "l", nullptr);
            bench::value_element(x, "v", &n->v);
            bench::value_element<uint32_t, 16, false>(x, "w", &n->w);
        }
    }
}

void run_write(benchmark::State &st, Kind kind, bool floor)
{
    Case *c = get_case(kind, static_cast<int>(st.range(0)));
    xmlNode *root = nullptr;
    bench::time_calls(
        st, true, [&root] { root = xmlNewNode(nullptr, BAD_CAST "root"); },
        [&] { floor ? floor_write_case(c, root) : (void)param2xml(c->mem.data(), root, c->table); },
        [&root] { xmlFreeNode(root); });
    st.SetItemsProcessed(st.iterations() * c->n);
}

void run_read(benchmark::State &st, Kind kind)
{
    Case *c = get_case(kind, static_cast<int>(st.range(0)));
    std::vector<char> out(c->mem.size());
    bench::time_calls(
        st, true, [&out] { memset(out.data(), 0, out.size()); },
        [&] { xml2param(out.data(), c->doc, c->table); },
        [&] {
            if (kind == kList)
                param_xml_free(out.data(), c->table);
        });
    if (kind != kList && memcmp(out.data(), c->mem.data(), out.size()) != 0)
        st.SkipWithError("read back other values");
    st.SetItemsProcessed(st.iterations() * c->n);
}

}  // namespace

int main(int argc, char **argv)
{
    static const char *const names[] = {"array", "struct", "list"};
    const std::vector<std::vector<int64_t>> sizes = {
        {200, 10000, 100000, 500000}, {10, 10000, 100000}, {10, 10000, 100000}};
    for (Kind k : {kArray, kStruct, kList}) {
        for (int64_t n : sizes[k]) {
            std::string at = "/" + std::to_string(n), base = std::string("scale/") + names[k];
            benchmark::RegisterBenchmark((base + "_write" + at).c_str(), run_write, k, false)
                ->Arg(n)->UseManualTime()->Unit(benchmark::kMicrosecond);
            benchmark::RegisterBenchmark((base + "_read" + at).c_str(), run_read, k)
                ->Arg(n)->UseManualTime()->Unit(benchmark::kMicrosecond);
            benchmark::RegisterBenchmark((base + "_write_floor" + at).c_str(), run_write, k, true)
                ->Arg(n)->UseManualTime()->Unit(benchmark::kMicrosecond);
        }
    }
    return bench::run(argc, argv);
}
