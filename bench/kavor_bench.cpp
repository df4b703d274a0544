// kavor_bench.cpp - the file manager's speed beside its floor.
//
// Save: the time from the start of a sweep to the new file in place, for a
// document of about 1 MiB, on the plain road (plain and gzip file) and on the
// virtual-file road (plain virtual file, then the outside gzip); beside it
// the floor, xmlSaveFormatFileEnc of the same tree alone. The sync calls come
// after the file is in place and are left out (made no-ops), and so is the
// one look at the file name a record makes on its first save.
// Load: kavor_load_one of the same file beside xmlParseFile alone.
// Idle: CPU time of the whole process while a manager with 100 registered
// files idles for 10 s.
//
//   kavor_bench --benchmark_min_time=1
#include <benchmark/benchmark.h>

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include <libxml/parser.h>
#include <libxml/tree.h>

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
BENCHMARK(BM_Save)->Arg(0)->Arg(1)->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);

// The same document, built once, written by libxml2 alone: 0 plain, 1 gzip.
void BM_SaveFloor(benchmark::State &state)
{
    const bool gz = state.range(0) != 0;
    std::string dir = scratch_dir();
    Big *b = new_big();
    xmlDocPtr doc = xmlNewDoc(BAD_CAST "1.0");
    xmlNodePtr root = xmlNewDocNode(doc, nullptr, BAD_CAST "net", nullptr);
    xmlNodePtr child = xmlNewNode(nullptr, BAD_CAST "big");
    param2xml(b, child, big_table());
    xmlAddChild(root, child);
    xmlDocSetRootElement(doc, root);
    if (gz)
        xmlSetDocCompressMode(doc, 1);
    std::string path = dir + (gz ? "/net.xml.gz" : "/net.xml");
    for (auto _ : state) {
        if (xmlSaveFormatFileEnc(path.c_str(), doc, "utf-8", gz ? 1 : 0) < 0)
            state.SkipWithError("write failed");
    }
    state.counters["file_bytes"] = (double)file_size(path);
    state.SetBytesProcessed((int64_t)state.iterations() * file_size(path));
    xmlFreeDoc(doc);
    free(b);
    unlink(path.c_str());
    rmdir(dir.c_str());
}
BENCHMARK(BM_SaveFloor)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

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
BENCHMARK(BM_Load)->Args({0, 0})->Args({0, 1})->Args({1, 0})->Args({1, 1})
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

// A running manager with 100 registered files and nothing to save.
void BM_Idle(benchmark::State &state)
{
    std::string dir = scratch_dir();
    kavor_hdl h = kavor_create_v2("idle", 1000);
    static Tiny blocks[100];
    static struct pdesc table[] = {PX_STRI(Tiny, s, "s"), PX_END};
    for (int i = 0; i < 100; i++) {
        kavor_file_rgst_t r;
        memset(&r, 0, sizeof(r));
        snprintf(r.filename, sizeof(r.filename), "%s/f%d", dir.c_str(), i);
        snprintf(r.node_name, sizeof(r.node_name), "n");
        r.param_desc = table;
        r.mem = &blocks[i];
        r.ugz = 0;
        kavor_register(h, &r);
    }
    std::this_thread::sleep_for(std::chrono::seconds(2));   // the first, empty sweep
    double cpu = 0;
    for (auto _ : state) {
        double c0 = cpu_seconds();
        std::this_thread::sleep_for(std::chrono::seconds(10));
        cpu += cpu_seconds() - c0;
    }
    state.counters["cpu_ms_per_10s"] = cpu * 1000.0 / (double)state.iterations();
    state.counters["files"] = (double)kavor_count_all_filename(h);
    kavor_destroy(h);
    rmdir(dir.c_str());
}
BENCHMARK(BM_Idle)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
