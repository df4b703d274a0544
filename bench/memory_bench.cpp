// memory_bench.cpp - peak resident memory of a load and of a save of the
// device block, kavor beside the floor (libxml2 alone, same document).
// Invariant: each figure starts cold, in a fresh child process (this program
// again, with --measure=<what>), so that no heap left by another figure
// hides growth: the child makes the block (and the file, for a load), gives
// freed memory back, resets the kernel's peak mark, takes the resident size,
// runs the operation once and reports the growth of the peak in KiB.
// Names: memory/<save|load>_<plain|gzip>/<kavor|floor>, the growth in "value".
#include <fstream>

#include "fixture.h"

namespace {
// A field of /proc/self/status in KiB ("VmHWM:", "VmRSS:"); -1 if missing.
long status_kib(const char *field)
{
    std::ifstream f("/proc/self/status");
    for (std::string line; std::getline(f, line);)
        if (line.compare(0, strlen(field), field) == 0)
            return strtol(line.c_str() + strlen(field), nullptr, 10);
    return -1;
}

// Sets the peak resident size back to the current one (false if it can't).
bool reset_peak()
{
    std::ofstream f("/proc/self/clear_refs");
    return static_cast<bool>(f << "5" << std::flush);
}

// The child's side: prints the peak growth in KiB, or -1.
int measure(const std::string &what)
{
    const bool save = what.find("save") == 0, gz = what.find("gzip") != std::string::npos;
    const bool floor = what.find("floor") != std::string::npos;
    bench::Scratch dir;
    std::string file = dir / "device";  // kavor adds ".xml" or ".xml.gz", the floor doesn't
    std::string path = floor ? file + (gz ? ".xml.gz" : ".xml") : file;
    device::Device *d = device::make(), *out = device::make(true);
    xmlInitParser();
    bool ok = save || device::kavor_save(d, file, gz);  // the file a load reads
    malloc_trim(0);  // give back what that write freed, so the figure starts cold
    ok = reset_peak() && ok;
    long base = status_kib("VmRSS:");
    if (save)
        ok = ok && (floor ? device::floor_save : device::kavor_save)(d, path, gz);
    else
        ok = ok && (floor ? device::floor_load : device::kavor_load)(path, out, gz) &&
             memcmp(out, d, sizeof *d) == 0;
    long peak = status_kib("VmHWM:");
    printf("%ld\n", ok ? peak - base : -1L);
    return ok ? 0 : 1;
}

// The parent's side: runs the child `cmd` once and takes its figure.
void run_child(benchmark::State &st, std::string cmd)
{
    long kib = -1;
    for (auto _ : st) {
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
    if (argc > 1 && strncmp(argv[1], "--measure=", 10) == 0)
        return measure(argv[1] + 10);
    for (const char *op : {"save", "load"})
        for (const char *form : {"plain", "gzip"})
            for (const char *who : {"kavor", "floor"}) {
                std::string what = std::string(op) + "_" + form + "/" + who;
                std::string cmd = "'" + std::string(argv[0]) + "' --measure=" + what;
                benchmark::RegisterBenchmark(("memory/" + what).c_str(), run_child, cmd)->Iterations(1)->Repetitions(1);
            }
    return bench::run(argc, argv);
}
