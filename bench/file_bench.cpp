// file_bench.cpp - whole files of the device block: kavor_param2file and
// kavor_file2param, plain and gzip, beside the floor that builds, saves,
// parses and walks the same document with libxml2 and the same per-value
// formatting and parsing alone.
//
// Names: file/<save|load>_<plain|gzip>/<kavor|floor>. Every load is checked
// against the block it came from.
#include <benchmark/benchmark.h>

#include <string>

#include "device_block.h"
#include "kavor.h"

namespace {

struct Files {
    std::string dir;
    device::Device *block = nullptr;
    Files()
    {
        dir = bench::scratch_dir();
        block = device::make();
    }
    ~Files()
    {
        free(block);
        bench::remove_tree(dir);
    }
    // The registration request kavor's calls take; ugz 1 plain, 0 gzip.
    kavor_file_rgst_t request(bool gz, void *mem) const
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
    std::string path(bool gz) const { return dir + (gz ? "/device.xml.gz" : "/device.xml"); }
};

Files &files()
{
    static Files f;
    return f;
}

void save_kavor(benchmark::State &st, bool gz)
{
    Files &f = files();
    kavor_file_rgst_t r = f.request(gz, f.block);
    for (auto _ : st)
        if (kavor_param2file(&r) != 0)
            st.SkipWithError("kavor_param2file failed");
    st.counters["file_bytes"] = static_cast<double>(bench::file_size(f.path(gz)));
}

void save_floor(benchmark::State &st, bool gz)
{
    Files &f = files();
    std::string path = f.path(gz) + ".floor";
    for (auto _ : st)
        if (!device::floor_save(f.block, path.c_str(), gz))
            st.SkipWithError("floor save failed");
    st.counters["file_bytes"] = static_cast<double>(bench::file_size(path));
}

void load_kavor(benchmark::State &st, bool gz)
{
    Files &f = files();
    device::Device *out = static_cast<device::Device *>(calloc(1, sizeof(device::Device)));
    kavor_file_rgst_t w = f.request(gz, f.block);
    kavor_file_rgst_t r = f.request(gz, out);
    if (kavor_param2file(&w) != 0)
        st.SkipWithError("kavor_param2file failed");
    for (auto _ : st)
        if (kavor_file2param(&r) != 0)
            st.SkipWithError("kavor_file2param failed");
    if (!device::same(out, f.block))
        st.SkipWithError("kavor read back another block");
    free(out);
}

void load_floor(benchmark::State &st, bool gz)
{
    Files &f = files();
    device::Device *out = static_cast<device::Device *>(calloc(1, sizeof(device::Device)));
    std::string path = f.path(gz) + ".floor";
    if (!device::floor_save(f.block, path.c_str(), gz))
        st.SkipWithError("floor save failed");
    for (auto _ : st)
        if (!device::floor_load(path.c_str(), out))
            st.SkipWithError("floor load failed");
    if (!device::same(out, f.block))
        st.SkipWithError("floor read back another block");
    free(out);
}

}  // namespace

int main(int argc, char **argv)
{
    bench::keep_heap();
    for (int gz = 0; gz < 2; gz++) {
        std::string form = gz ? "gzip" : "plain";
        benchmark::RegisterBenchmark(("file/save_" + form + "/kavor").c_str(), save_kavor, gz != 0)
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(("file/save_" + form + "/floor").c_str(), save_floor, gz != 0)
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(("file/load_" + form + "/kavor").c_str(), load_kavor, gz != 0)
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(("file/load_" + form + "/floor").c_str(), load_floor, gz != 0)
            ->Unit(benchmark::kMicrosecond);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
