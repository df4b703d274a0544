// memory_bench.cpp - peak resident memory of a load and of a save of the
// device block, kavor beside the floor (libxml2 alone, same document).
//
// Each figure runs in a fresh child process (this program again, with
// --measure=<what>), so that no heap left by another figure hides growth:
// the child makes the block (and the file, for a load), gives freed memory
// back to the system, resets the kernel's
// peak mark, takes the resident size, runs the operation once and reports
// the growth of the peak in KiB. Names: memory/<save|load>_<plain|gzip>/<kavor|floor>
// with the growth in "value".
#include <benchmark/benchmark.h>

#include <malloc.h>

#include <string>

#include "device_block.h"
#include "kavor.h"

namespace {

std::string g_self;

kavor_file_rgst_t request(const std::string &dir, void *mem, bool gz)
{
    kavor_file_rgst_t r;
    memset(&r, 0, sizeof r);
    snprintf(r.filename, sizeof r.filename, "%s/device", dir.c_str());
    snprintf(r.node_name, sizeof r.node_name, "dev");
    r.param_desc = device::table();
    r.mem = mem;
    r.ugz = gz ? 0 : 1;
    return r;
}

// The child's side: prints the peak growth in KiB, or -1.
int measure(const std::string &what)
{
    const bool save = what.find("save") != std::string::npos;
    const bool gz = what.find("gzip") != std::string::npos;
    const bool floor = what.find("floor") != std::string::npos;
    std::string dir = bench::scratch_dir();
    std::string path = dir + (gz ? "/device.xml.gz" : "/device.xml");
    device::Device *d = device::make();
    device::Device *out = static_cast<device::Device *>(calloc(1, sizeof(device::Device)));
    kavor_file_rgst_t w = request(dir, d, gz), r = request(dir, out, gz);
    xmlInitParser();
    bool ok = save || kavor_param2file(&w) == 0;  // the file a load reads
    malloc_trim(0);  // give back what that write freed, so the figure starts cold
    if (!bench::reset_peak())
        ok = false;
    long base = bench::status_kib("VmRSS:");
    if (save)
        ok = ok && (floor ? device::floor_save(d, path.c_str(), gz) : kavor_param2file(&w) == 0);
    else
        ok = ok && (floor ? device::floor_load(path.c_str(), out) : kavor_file2param(&r) == 0);
    long peak = bench::status_kib("VmHWM:");
    if (!save && !device::same(out, d))
        ok = false;
    printf("%ld\n", ok ? peak - base : -1L);
    bench::remove_tree(dir);
    return ok ? 0 : 1;
}

void run_child(benchmark::State &st, std::string what)
{
    long kib = -1;
    for (auto _ : st) {
        std::string cmd = "'" + g_self + "' --measure=" + what;
        FILE *p = popen(cmd.c_str(), "r");
        if (!p || fscanf(p, "%ld", &kib) != 1)
            kib = -1;
        if (p)
            pclose(p);
    }
    if (kib < 0)
        st.SkipWithError("measurement failed");
    st.counters["value"] = static_cast<double>(kib);
}

}  // namespace

int main(int argc, char **argv)
{
    g_self = argv[0];
    if (argc > 1 && strncmp(argv[1], "--measure=", 10) == 0)
        return measure(argv[1] + 10);
    for (const char *op : {"save", "load"})
        for (const char *form : {"plain", "gzip"})
            for (const char *who : {"kavor", "floor"}) {
                std::string what = std::string(op) + "_" + form + "/" + who;
                benchmark::RegisterBenchmark(("memory/" + what).c_str(), run_child, what)
                    ->Iterations(1)->Repetitions(1);
            }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
