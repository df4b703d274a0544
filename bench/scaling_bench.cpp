// scaling_bench.cpp - time per value of the codec as the data grows: arrays
// of 200 to 500,000 values, structure arrays of 10 to 100,000 elements, lists
// of 10 to 100,000 nodes, both directions. Linear code keeps the time per
// value at the largest size near the time per value at 10,000.
//
// Names: scale/<array|struct|list>_<write|read|write_floor>/<n>; the time is per call
// (manual timing around param2xml or xml2param alone), items are values.
//
// The heap is kept between calls (bench::keep_heap): otherwise each call at
// the large sizes may grow the heap again from the kernel, and on a virtual
// machine those page faults cost more than the walk itself.
#include <benchmark/benchmark.h>

#include <chrono>
#include <vector>

#include "bench_util.h"
#include "param_xml.h"

namespace {

using Clock = std::chrono::steady_clock;

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

struct pdesc *elem_rows()
{
    static struct pdesc rows[] = {PX_SINT(Elem, a, "a"), PX_UINT(Elem, b, "b"),
                                  PX_STRI(Elem, tag, "tag"), PX_END};
    return rows;
}
struct pdesc *node_rows()
{
    static struct pdesc rows[] = {PX_SINT(Node, v, "v"), PX_UINT_HEX(Node, w, "w"), PX_END};
    return rows;
}

// One case of n values: a block, its table and the document it gives.
struct Case {
    int kind;  // 0 array, 1 structures, 2 list
    int n;
    std::vector<char> mem;
    struct pdesc table[2];
    zhead_t head = nullptr;   // the list's written nodes
    xmlNode *doc = nullptr;

    Case(int k, int count) : kind(k), n(count)
    {
        table[1] = {};
        switch (kind) {
        case 0:
            mem.resize(sizeof(uint32_t) * static_cast<size_t>(n));
            bench::fill_random(mem.data(), mem.size());
            table[0] = {0, 0, n, PT_UINT, 0, 0, 0, sizeof(uint32_t), "v", nullptr, 0};
            break;
        case 1: {
            mem.resize(sizeof(Elem) * static_cast<size_t>(n));
            Elem *e = reinterpret_cast<Elem *>(mem.data());
            for (int i = 0; i < n; i++) {
                e[i].a = static_cast<int32_t>(bench::next_random());
                e[i].b = static_cast<uint16_t>(i);
                snprintf(e[i].tag, sizeof e[i].tag, "t%d", i % 100000);
            }
            table[0] = {0, 0, n, PT_STRU, 0, 0, 0, sizeof(Elem), "e", elem_rows(), 0};
            break;
        }
        default:
            mem.resize(sizeof(zhead_t));
            for (int i = 0; i < n; i++) {
                Node *node = static_cast<Node *>(calloc(1, sizeof(Node)));
                node->v = i;
                node->w = static_cast<uint32_t>(bench::next_random());
                zlst_push(&head, node);
            }
            memcpy(mem.data(), &head, sizeof head);
            table[0] = {0, 0, 1, PT_LIST, 0, 0, 0, sizeof(Node), "l", node_rows(), 0};
            break;
        }
        doc = xmlNewNode(nullptr, BAD_CAST "root");
        param2xml(mem.data(), doc, table);
        warm_heap();
    }

    // Grows the heap to the size of one more tree and frees it, so that no
    // timed call pays the kernel for fresh pages (a cost of the machine,
    // not of the code, and larger than the walk on a virtual machine).
    void warm_heap()
    {
        xmlNode *spare = xmlNewNode(nullptr, BAD_CAST "root");
        param2xml(mem.data(), spare, table);
        xmlFreeNode(spare);
    }
};

Case *get_case(int kind, int n)
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
void floor_write(const Case *c, xmlNode *root)
{
    char buf[32];
    switch (c->kind) {
    case 0:
        bench::floor_write_array<uint32_t>(reinterpret_cast<const uint32_t *>(c->mem.data()), c->n,
                                           "v", root);
        break;
    case 1: {
        const Elem *e = reinterpret_cast<const Elem *>(c->mem.data());
        for (int i = 0; i < c->n; i++) {
            xmlNode *x = xmlNewNode(nullptr, BAD_CAST "e");
            *bench::put_int<int32_t, 10, false>(buf, e[i].a) = '\0';
            bench::text_element(x, "a", buf);
            *bench::put_int<uint16_t, 10, false>(buf, e[i].b) = '\0';
            bench::text_element(x, "b", buf);
            char tag[sizeof e[i].tag];
            memcpy(tag, e[i].tag, sizeof tag);
            tag[sizeof tag - 1] = '\0';
            bench::text_element(x, "tag", tag);
            xmlAddChild(root, x);
        }
        break;
    }
    default: {
        xmlNode *outer = xmlNewNode(nullptr, BAD_CAST "l");
        for (struct znode *z = c->head; z; z = z->next) {
            const Node *n = reinterpret_cast<const Node *>(z);
            xmlNode *x = xmlNewNode(nullptr, BAD_CAST "l");
            *bench::put_int<int32_t, 10, false>(buf, n->v) = '\0';
            bench::text_element(x, "v", buf);
            *bench::put_int<uint32_t, 16, false>(buf, n->w) = '\0';
            bench::text_element(x, "w", buf);
            xmlAddChild(outer, x);
        }
        xmlAddChild(root, outer);
        break;
    }
    }
}

void run_write(benchmark::State &st, int kind)
{
    const bool floor = kind >= 10;
    Case *c = get_case(kind % 10, static_cast<int>(st.range(0)));
    for (auto _ : st) {
        xmlNode *root = xmlNewNode(nullptr, BAD_CAST "root");
        auto t0 = Clock::now();
        if (floor)
            floor_write(c, root);
        else
            param2xml(c->mem.data(), root, c->table);
        st.SetIterationTime(std::chrono::duration<double>(Clock::now() - t0).count());
        xmlFreeNode(root);
    }
    st.SetItemsProcessed(st.iterations() * c->n);
}

void run_read(benchmark::State &st, int kind)
{
    Case *c = get_case(kind, static_cast<int>(st.range(0)));
    std::vector<char> out(c->mem.size());
    for (auto _ : st) {
        memset(out.data(), 0, out.size());
        auto t0 = Clock::now();
        xml2param(out.data(), c->doc, c->table);
        st.SetIterationTime(std::chrono::duration<double>(Clock::now() - t0).count());
        if (kind == 2)
            param_xml_free(out.data(), c->table);
    }
    if (kind != 2 && memcmp(out.data(), c->mem.data(), out.size()) != 0)
        st.SkipWithError("read back other values");
    st.SetItemsProcessed(st.iterations() * c->n);
}

}  // namespace

int main(int argc, char **argv)
{
    bench::keep_heap();
    static const char *const kinds[] = {"array", "struct", "list"};
    const std::vector<std::vector<int64_t>> sizes = {
        {200, 10000, 100000, 500000}, {10, 10000, 100000}, {10, 10000, 100000}};
    for (int k = 0; k < 3; k++) {
        for (int64_t n : sizes[static_cast<size_t>(k)]) {
            std::string w = std::string("scale/") + kinds[k] + "_write/" + std::to_string(n);
            std::string r = std::string("scale/") + kinds[k] + "_read/" + std::to_string(n);
            benchmark::RegisterBenchmark(w.c_str(), run_write, k)->Arg(n)->UseManualTime()
                ->Unit(benchmark::kMicrosecond);
            benchmark::RegisterBenchmark(r.c_str(), run_read, k)->Arg(n)->UseManualTime()
                ->Unit(benchmark::kMicrosecond);
            std::string f = std::string("scale/") + kinds[k] + "_write_floor/" + std::to_string(n);
            benchmark::RegisterBenchmark(f.c_str(), run_write, k + 10)->Arg(n)->UseManualTime()
                ->Unit(benchmark::kMicrosecond);
        }
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
