// scaling_bench.cpp - time per value of the codec as the data grows: arrays
// of 200 to 500,000 values, structure arrays of 10 to 100,000 elements, lists
// of 10 to 100,000 nodes, both directions, and the floor writing the same
// elements (what the allocator and the caches make of the size whatever the
// walk). Invariant: linear code keeps the time per value at the largest size
// near the time per value at 10,000.
// Names: scale/<array|struct|list>_<write|read|write_floor>/<n>; the time is
// per call (manual timing around the call alone), items are values.
#include "fixture.h"

namespace {
using bench::Case;
using bench::Io;

struct Elem { int32_t a; uint16_t b; char tag[8]; };

void make_structs(Case &c)
{
    static struct pdesc rows[] = {PX_SINT(Elem, a, "a"), PX_UINT(Elem, b, "b"), PX_STRI(Elem, tag, "tag"),
                                  PX_END};
    Elem *e = bench::block<Elem>(c, static_cast<size_t>(c.items));
    for (int i = 0; i < c.items; i++) {
        e[i].a = static_cast<int32_t>(bench::next_random());
        e[i].b = static_cast<uint16_t>(i);
        snprintf(e[i].tag, sizeof e[i].tag, "t%d", i % 100000);
    }
    c.rows[0] = {0, 0, c.items, PT_STRU, 0, 0, 0, sizeof(Elem), "e", rows, 0};
}

// n structures of three fields.
Case struct_case(int n)
{
    return {"struct", n, make_structs, [n](Io &io, char *m) {
        io.structs("e", reinterpret_cast<Elem *>(m), n, [](Io &f, Elem &e) {
            f.num("a", &e.a);
            f.num("b", &e.b);
            f.str("tag", e.tag);
        });
    }};
}
}  // namespace

int main(int argc, char **argv)
{
    static std::vector<Case> cases;
    for (int n : {200, 10000, 100000, 500000})
        cases.push_back(bench::array_case<uint32_t>("array", n));
    for (int n : {10, 10000, 100000})
        cases.push_back(struct_case(n));
    for (int n : {10, 10000, 100000})
        cases.push_back(bench::list_case("list", n, n, false));
    const char *ops[] = {"_write", "_read", "_write_floor"};
    for (Case &c : cases)
        for (int op = 0; op < 3; op++)
            benchmark::RegisterBenchmark(("scale/" + c.name + ops[op] + "/" + std::to_string(c.items)).c_str(),
                                         bench::time_case, &c, op == 1, op == 2, true)
                ->Arg(c.items)->UseManualTime()->Unit(benchmark::kMicrosecond);
    return bench::run(argc, argv);
}
