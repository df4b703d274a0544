// kavor_bench.cpp - the file manager's speed beside its floor.
//
// Save: the time from the start of a sweep to the new file in place, for a
// document of about 1 MiB, on the plain road (plain and gzip file) and on the
// virtual-file road (plain virtual file, then the outside gzip); beside it
// the floor: the same tree built with libxml2 alone, one xmlSaveFormatFileEnc
// and the renames (wall time on both sides: the virtual road runs gzip in
// another process). The sync calls come after the file is in place and are
// left out (made no-ops), and so is the one look at the file name a record
// makes on its first save.
// Load: kavor_load_one of the same file beside xmlParseFile alone.
// Manager: the share of one core a manager with 1,000 registered files takes
// while idle for 10 s; the writes a burst of 10,000 save requests causes;
// the time to register 10,000 files under one manager.
//
// Names: road/<figure>/<kavor|floor|xmlparsefile>, manager/<figure>/kavor
// (the figure in "value").
#include <benchmark/benchmark.h>

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include <libxml/parser.h>
#include <libxml/tree.h>

#include "bench_util.h"
#include "kavor_private.h"

namespace {

// About 1 MiB of XML: 8 values of up to ten digits per element.
struct Big {
    char name[64];
    uint32_t vals[75000];
};

struct pdesc *big_table()
{
    static struct pdesc table[] = {
        PX_STRI(Big, name, "name"),
        PX_UINT_ARR(Big, vals, "vals"),
        PX_END,
    };
    return table;
}

Big *new_big()
{
    Big *b = static_cast<Big *>(calloc(1, sizeof(Big)));
    snprintf(b->name, sizeof(b->name), "device");
    for (size_t i = 0; i < sizeof(b->vals) / sizeof(b->vals[0]); i++)
        b->vals[i] = 4000000000u - (uint32_t)i * 7919u;
    return b;
}

std::string scratch_dir()
{
    const char *base = getenv("TMPDIR");
    std::string tmpl = std::string(base && *base ? base : "/tmp") + "/kavor-bench-XXXXXX";
    return mkdtemp(&tmpl[0]) ? tmpl : "/tmp";
}

void remove_tree_of(const std::string &dir)
{
    std::string rm = "rm -rf '" + dir + "'";
    if (system(rm.c_str()) != 0)
        fprintf(stderr, "could not remove %s\n", dir.c_str());
}

long file_size(const std::string &p)
{
    struct stat st;
    return stat(p.c_str(), &st) == 0 ? (long)st.st_size : -1;
}

// A manager record with its lists, locks and semaphore but no task, so that
// the benchmark runs each sweep itself.
struct Taskless {
    kavor_mobj_t *m;
    Taskless()
    {
        m = static_cast<kavor_mobj_t *>(calloc(1, sizeof(kavor_mobj_t)));
        m->mtx_ld_valid = vn_mutex_init(&m->mtx_ld) == 0;
        m->fcom_rwlock_valid = pthread_rwlock_init(&m->fcom_rwlock, nullptr) == 0;
        m->sem_sav = vn_semb_create("bench", 0);
        m->sem_sav_valid = m->sem_sav != nullptr;
    }
    ~Taskless()
    {
        while (m->fcom_lst != nullptr)
            kavor_unregister(reinterpret_cast<kavor_file_t *>(
                reinterpret_cast<kavor_fcom_t *>(m->fcom_lst)->file_lst));
        vn_sem_delete(m->sem_sav);
        vn_mutex_destroy(&m->mtx_ld);
        pthread_rwlock_destroy(&m->fcom_rwlock);
        free(m);
    }
};

xml_file_hdl register_big(kavor_hdl h, const std::string &path, Big *b, int32_t ugz,
                          const std::string &virt)
{
    kavor_file_rgst_t r;
    memset(&r, 0, sizeof(r));
    snprintf(r.filename, sizeof(r.filename), "%s", path.c_str());
    snprintf(r.node_name, sizeof(r.node_name), "big");
    snprintf(r.virtfile, sizeof(r.virtfile), "%s", virt.c_str());
    r.param_desc = big_table();
    r.mem = b;
    r.ugz = ugz;
    return kavor_register(h, &r);
}

using Clock = std::chrono::steady_clock;
Clock::time_point g_in_place;
const char *g_in_place_step = "rename_tmp";

void note_step(const char *step, const kavor_fcom_t *)
{
    if (strcmp(step, g_in_place_step) == 0)
        g_in_place = Clock::now();
}

void no_sync() {}

// road 0: plain file on the plain road; 1: gzip file on the plain road;
// 2: gzip file on the virtual-file road.
void BM_Save(benchmark::State &state)
{
    const int road = (int)state.range(0);
    std::string dir = scratch_dir();
    Big *b = new_big();
    Taskless mgr;
    xml_file_hdl f = register_big(mgr.m, dir + "/net", b, road == 0 ? 1 : 0,
                                  road == 2 ? dir + "/v/net" : "");
    kavor_sys_t saved = kavor_sys;
    kavor_sys.sync = no_sync;
    kavor_sys.step = note_step;
    g_in_place_step = road == 2 ? "gzip" : "rename_tmp";
    saving_set(f->fcom, 1);
    kavor_save_sweep(mgr.m);   // the first save looks at the file name once
    for (auto _ : state) {
        saving_set(f->fcom, 1);
        auto t0 = Clock::now();
        kavor_save_sweep(mgr.m);
        state.SetIterationTime(std::chrono::duration<double>(g_in_place - t0).count());
        if (saving_get(f->fcom) != 0)
            state.SkipWithError("save failed");
    }
    kavor_sys = saved;
    state.counters["file_bytes"] = (double)file_size(f->fcom->filename);
    state.SetBytesProcessed((int64_t)state.iterations() * file_size(f->fcom->filename));
    kavor_unregister(f);
    free(b);
    std::string rm = "rm -rf '" + dir + "'";
    if (system(rm.c_str()) != 0)
        state.SkipWithError("cleanup");
}
BENCHMARK(BM_Save)->Name("road/plain_file/kavor")->Arg(0)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Save)->Name("road/gzip_file/kavor")->Arg(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Save)->Name("road/gzip_virtual/kavor")->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);

// The floor of each road: the same document built with libxml2 alone (the
// same digits), one xmlSaveFormatFileEnc to a temporary name and the two
// renames that put it in place; on the virtual road the plain file and the
// outside gzip instead. road as in BM_Save.
void BM_SaveFloor(benchmark::State &state)
{
    const int road = (int)state.range(0);
    const bool gz = road != 0;
    std::string dir = scratch_dir();
    Big *b = new_big();
    std::string path = dir + (gz ? "/net.xml.gz" : "/net.xml");
    std::string tmp = path + ".tmp", bak = dir + (gz ? "/net.xml.bak.gz" : "/net.xml.bak");
    std::string virt = dir + "/net_v.xml";
    std::string gzip = "gzip -c " + virt + " > " + tmp;
    for (auto _ : state) {
        xmlDocPtr doc = xmlNewDoc(BAD_CAST "1.0");
        xmlNodePtr root = xmlNewDocNode(doc, nullptr, BAD_CAST "net", nullptr);
        xmlNodePtr child = xmlNewNode(nullptr, BAD_CAST "big");
        bench::text_element(child, "name", b->name);
        bench::floor_write_array<uint32_t>(b->vals, 75000, "vals", child);
        xmlAddChild(root, child);
        xmlDocSetRootElement(doc, root);
        if (road == 1)
            xmlSetDocCompressMode(doc, 1);
        bool ok;
        if (road == 2)
            ok = xmlSaveFormatFileEnc(virt.c_str(), doc, "utf-8", 0) >= 0 && system(gzip.c_str()) == 0;
        else
            ok = xmlSaveFormatFileEnc(tmp.c_str(), doc, "utf-8", gz ? 1 : 0) >= 0;
        rename(path.c_str(), bak.c_str());
        ok = ok && rename(tmp.c_str(), path.c_str()) == 0;
        if (!ok)
            state.SkipWithError("write failed");
        xmlFreeDoc(doc);
    }
    state.counters["file_bytes"] = (double)file_size(path);
    free(b);
    remove_tree_of(dir);
}
BENCHMARK(BM_SaveFloor)->Name("road/plain_file/floor")->Arg(0)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SaveFloor)->Name("road/gzip_file/floor")->Arg(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SaveFloor)->Name("road/gzip_virtual/floor")->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

// kavor_load_one (size test, parse, fill) beside xmlParseFile alone:
// range(0) 0 plain, 1 gzip; range(1) 0 the library, 1 the floor.
void BM_Load(benchmark::State &state)
{
    const bool gz = state.range(0) != 0, floor = state.range(1) != 0;
    std::string dir = scratch_dir();
    Big *b = new_big();
    Taskless mgr;
    xml_file_hdl f = register_big(mgr.m, dir + "/net", b, gz ? 0 : 1, "");
    kavor_sys_t saved = kavor_sys;
    kavor_sys.sync = no_sync;
    saving_set(f->fcom, 1);
    kavor_save_sweep(mgr.m);
    kavor_sys = saved;
    std::string path = f->fcom->filename;
    for (auto _ : state) {
        if (floor) {
            xmlDocPtr doc = xmlParseFile(path.c_str());
            if (doc == nullptr)
                state.SkipWithError("parse failed");
            xmlFreeDoc(doc);
        } else if (kavor_load_one(f) != 0) {
            state.SkipWithError("load failed");
        }
    }
    state.counters["file_bytes"] = (double)file_size(path);
    kavor_unregister(f);
    free(b);
    std::string rm = "rm -rf '" + dir + "'";
    if (system(rm.c_str()) != 0)
        state.SkipWithError("cleanup");
}
BENCHMARK(BM_Load)->Name("road/load_one_plain/kavor")->Args({0, 0})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Load)->Name("road/load_one_plain/xmlparsefile")->Args({0, 1})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Load)->Name("road/load_one_gzip/kavor")->Args({1, 0})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Load)->Name("road/load_one_gzip/xmlparsefile")->Args({1, 1})
    ->Unit(benchmark::kMillisecond);

struct Tiny {
    char s[16];
};

double cpu_seconds()
{
    struct timespec ts;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return (double)ts.tv_sec + (double)ts.tv_nsec / 1e9;
}

kavor_file_rgst_t tiny_request(const std::string &dir, int i, Tiny *block)
{
    static struct pdesc table[] = {PX_STRI(Tiny, s, "s"), PX_END};
    kavor_file_rgst_t r;
    memset(&r, 0, sizeof(r));
    snprintf(r.filename, sizeof(r.filename), "%s/f%d", dir.c_str(), i);
    snprintf(r.node_name, sizeof(r.node_name), "n");
    r.param_desc = table;
    r.mem = block;
    r.ugz = 1;
    return r;
}

// A running manager with 1,000 registered files and nothing to save: the
// share of one core its task takes over 10 s ("value", in percent).
void BM_Idle(benchmark::State &state)
{
    const int files = 1000;
    std::string dir = scratch_dir();
    kavor_hdl h = kavor_create_v2("idle", 1000);
    static Tiny blocks[files];
    for (int i = 0; i < files; i++) {
        kavor_file_rgst_t r = tiny_request(dir, i, &blocks[i]);
        kavor_register(h, &r);
    }
    std::this_thread::sleep_for(std::chrono::seconds(2));   // the first, empty sweep
    double cpu = 0;
    for (auto _ : state) {
        double c0 = cpu_seconds();
        std::this_thread::sleep_for(std::chrono::seconds(10));
        cpu += cpu_seconds() - c0;
    }
    state.counters["value"] = cpu * 100.0 / (10.0 * (double)state.iterations());
    state.counters["files"] = (double)kavor_count_all_filename(h);
    kavor_destroy(h);
    rmdir(dir.c_str());
}
BENCHMARK(BM_Idle)->Name("manager/idle_1000_files_cpu_pct/kavor")->Iterations(1)
    ->Repetitions(1)->Unit(benchmark::kSecond);

std::atomic<int> g_writes{0};
void count_write(const char *step, const kavor_fcom_t *)
{
    if (strcmp(step, "rename_tmp") == 0)
        g_writes++;
}

// 10,000 save requests spread over 100 files of a running manager, all
// within the quiet time; then the writes they caused ("value"; one per file
// is right), waited for with a generous time-out.
void BM_Burst(benchmark::State &state)
{
    const int files = 100, requests = 10000;
    std::string dir = scratch_dir();
    kavor_sys_t saved = kavor_sys;
    kavor_sys.sync = no_sync;
    kavor_sys.step = count_write;
    kavor_hdl h = kavor_create_v2("burst", 1000);
    static Tiny blocks[files];
    xml_file_hdl f[files];
    for (int i = 0; i < files; i++) {
        kavor_file_rgst_t r = tiny_request(dir, i, &blocks[i]);
        f[i] = kavor_register(h, &r);
    }
    int writes = 0;
    for (auto _ : state) {
        g_writes = 0;
        for (int i = 0; i < requests; i++)
            kavor_save_one(f[i % files]);
        auto limit = Clock::now() + std::chrono::seconds(30);
        while ((kavor_any_on_saving(h) != nullptr || g_writes < files) && Clock::now() < limit)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));  // room for a stray write
        writes = g_writes;
    }
    kavor_destroy(h);
    kavor_sys = saved;
    state.counters["value"] = (double)writes;
    state.counters["files"] = files;
    remove_tree_of(dir);
}
BENCHMARK(BM_Burst)->Name("manager/burst_10000_requests_100_files_writes/kavor")->Iterations(1)
    ->Repetitions(1)->UseRealTime()->Unit(benchmark::kSecond);

// Registering 10,000 files under one manager ("value": milliseconds).
void BM_Register(benchmark::State &state)
{
    const int files = 10000;
    std::string dir = scratch_dir();
    static Tiny blocks[files];
    double ms = 0;
    for (auto _ : state) {
        kavor_hdl h = kavor_create_v2("reg", 1000);
        auto t0 = Clock::now();
        for (int i = 0; i < files; i++) {
            kavor_file_rgst_t r = tiny_request(dir, i, &blocks[i]);
            if (kavor_register(h, &r) == nullptr)
                state.SkipWithError("register failed");
        }
        ms = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
        kavor_destroy(h);
    }
    state.counters["value"] = ms;
    rmdir(dir.c_str());
}
BENCHMARK(BM_Register)->Name("manager/register_10000_files_ms/kavor")->Iterations(1)
    ->Repetitions(3)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char **argv)
{
    bench::keep_heap();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
