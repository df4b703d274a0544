// kavor_bench.cpp - the file manager's speed beside its floor.
// Save: the time from the start of a sweep to the new file in place, for a
// document of about 1 MiB, on the plain road (plain and gzip file) and on the
// virtual-file road (plain virtual file, then the outside gzip), beside the
// floor: the same tree built with libxml2 alone, one xmlSaveFormatFileEnc and
// the renames (wall time on both sides: gzip runs in another process).
// Load: kavor_load_one of the same file beside xmlParseFile alone.
// Manager: the share of one core a manager with 1,000 files takes while idle
// for 10 s; the writes a burst of 10,000 save requests causes; the time to
// register 10,000 files under one manager.
// Invariant: only the save itself is timed: the sync calls (after the file
// is in place) are made no-ops and the first save, which looks at the file
// name once, runs before the timing. Names: road/<figure>/<kavor|floor|
// xmlparsefile>, manager/<figure>/kavor (the figure in "value").
#include <pthread.h>

#include <atomic>
#include <ctime>
#include <thread>

#include "fixture.h"
#include "kavor_private.h"

namespace {
using bench::Clock;

// About 1 MiB of XML: 8 values of up to ten digits per element.
struct Big { char name[64]; uint32_t vals[75000]; };
struct pdesc kBigRows[] = {PX_STRI(Big, name, "name"), PX_UINT_ARR(Big, vals, "vals"), PX_END};

// The one block (its values set again, the same, on each call).
Big *big()
{
    static Big b = {"device", {}};
    for (uint32_t i = 0; i < 75000; i++)
        b.vals[i] = 4000000000u - i * 7919u;
    return &b;
}

Clock::time_point g_in_place;                // when the last save put its file in place
const char *g_in_place_step = "rename_tmp";  // the step that does it
std::atomic<int> g_writes{0};                // files written (renamed in place)

void on_step(const char *step, const kavor_fcom_t *)
{
    if (strcmp(step, g_in_place_step) == 0)
        g_in_place = Clock::now();
    if (strcmp(step, "rename_tmp") == 0)
        g_writes++;
}

// The big block's file under a manager record with its lists, locks and
// semaphore but no task (the benchmark runs each sweep), saved once.
struct BigFile {
    bench::Scratch dir;
    kavor_mobj_t *m = static_cast<kavor_mobj_t *>(calloc(1, sizeof(kavor_mobj_t)));
    xml_file_hdl f;
    kavor_sys_t saved = kavor_sys;
    BigFile(int32_t ugz, bool virt)
    {
        m->mtx_ld_valid = vn_mutex_init(&m->mtx_ld) == 0;
        m->fcom_rwlock_valid = pthread_rwlock_init(&m->fcom_rwlock, nullptr) == 0;
        m->sem_sav = vn_semb_create("bench", 0);
        m->sem_sav_valid = m->sem_sav != nullptr;
        std::string v = virt ? dir / "v/net" : "";
        kavor_file_rgst_t r = bench::request((dir / "net").c_str(), "big", kBigRows, big(), ugz, v.c_str());
        f = kavor_register(m, &r);
        kavor_sys.sync = [] {};
        kavor_sys.step = on_step;
        saving_set(f->fcom, 1);
        kavor_save_sweep(m);
    }
    ~BigFile()
    {
        kavor_sys = saved;
        kavor_unregister(f);
        vn_sem_delete(m->sem_sav);
        vn_mutex_destroy(&m->mtx_ld);
        pthread_rwlock_destroy(&m->fcom_rwlock);
        free(m);
    }
};

// road 0: plain file, plain road; 1: gzip file, plain road; 2: gzip file, virtual-file road.
void BM_Save(benchmark::State &state)
{
    const int road = (int)state.range(0);
    g_in_place_step = road == 2 ? "gzip" : "rename_tmp";
    BigFile file(road == 0 ? 1 : 0, road == 2);
    for (auto _ : state) {
        saving_set(file.f->fcom, 1);
        auto t0 = Clock::now();
        kavor_save_sweep(file.m);
        state.SetIterationTime(bench::Seconds(g_in_place - t0).count());
        if (saving_get(file.f->fcom) != 0)
            state.SkipWithError("save failed");
    }
    long bytes = bench::file_size(file.f->fcom->filename);
    state.counters["file_bytes"] = (double)bytes;
    state.SetBytesProcessed((int64_t)state.iterations() * bytes);
}
BENCHMARK(BM_Save)->Name("road/plain_file/kavor")->Arg(0)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Save)->Name("road/gzip_file/kavor")->Arg(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Save)->Name("road/gzip_virtual/kavor")->Arg(2)->UseManualTime()->Unit(benchmark::kMillisecond);

// The floor of each road (as in BM_Save): the same document saved by libxml2
// alone to a temporary name (on the virtual road, plain, then through the
// outside gzip), and the two renames that put it in place.
void BM_SaveFloor(benchmark::State &state)
{
    const int road = (int)state.range(0);
    const bool gz = road != 0;
    bench::Scratch dir;
    std::string path = dir / (gz ? "net.xml.gz" : "net.xml"), tmp = path + ".tmp";
    std::string bak = dir / (gz ? "net.xml.bak.gz" : "net.xml.bak"), virt = dir / "net_v.xml";
    std::string gzip = "gzip -c " + virt + " > " + tmp;
    auto floor = [b = big()](bench::Io &io) {
        io.str("name", b->name);
        io.rows("vals", b->vals, 75000);
    };
    for (auto _ : state) {
        bool ok = road == 2 ? bench::floor_save("net", "big", floor, virt, false) &&
                                  system(gzip.c_str()) == 0
                            : bench::floor_save("net", "big", floor, tmp, gz);
        rename(path.c_str(), bak.c_str());
        if (!ok || rename(tmp.c_str(), path.c_str()) != 0)
            state.SkipWithError("write failed");
    }
    state.counters["file_bytes"] = (double)bench::file_size(path);
}
BENCHMARK(BM_SaveFloor)->Name("road/plain_file/floor")->Arg(0)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SaveFloor)->Name("road/gzip_file/floor")->Arg(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SaveFloor)->Name("road/gzip_virtual/floor")->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

// kavor_load_one beside xmlParseFile alone; range(0): 1 gzip, range(1): 1 the floor.
void BM_Load(benchmark::State &state)
{
    const bool gz = state.range(0) != 0, floor = state.range(1) != 0;
    BigFile file(gz ? 0 : 1, false);
    std::string path = file.f->fcom->filename;
    for (auto _ : state) {
        xmlDocPtr doc = floor ? xmlParseFile(path.c_str()) : nullptr;
        if (floor ? doc == nullptr : kavor_load_one(file.f) != 0)
            state.SkipWithError(floor ? "parse failed" : "load failed");
        xmlFreeDoc(doc);
    }
    state.counters["file_bytes"] = (double)bench::file_size(path);
}
BENCHMARK(BM_Load)->Name("road/load_one_plain/kavor")->Args({0, 0})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Load)->Name("road/load_one_plain/xmlparsefile")->Args({0, 1})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Load)->Name("road/load_one_gzip/kavor")->Args({1, 0})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Load)->Name("road/load_one_gzip/xmlparsefile")->Args({1, 1})->Unit(benchmark::kMillisecond);

// A running manager (with the sync calls left out and on_step after each
// step of a save, if `hooked`) and `files` tiny files "f<i>" registered with
// it, the registration alone timed (`ms`); the figure fails if one isn't.
struct Manager {
    kavor_sys_t saved = kavor_sys;
    bench::Scratch dir;
    kavor_hdl h;
    xml_file_hdl f[10000];
    double ms;
    Manager(benchmark::State &st, const char *name, int files, bool hooked = false)
    {
        struct Tiny { char s[16]; };
        static struct pdesc table[] = {PX_STRI(Tiny, s, "s"), PX_END};
        static Tiny blocks[10000];
        char path[sizeof(kavor_file_rgst_t::filename)];
        if (hooked) {
            kavor_sys.sync = [] {};
            kavor_sys.step = on_step;
        }
        h = kavor_create_v2(name, 1000);
        bool ok = true;
        auto t0 = Clock::now();
        for (int i = 0; i < files; i++) {
            snprintf(path, sizeof path, "%s/f%d", dir.dir.c_str(), i);
            kavor_file_rgst_t r = bench::request(path, "n", table, &blocks[i], 1);
            f[i] = kavor_register(h, &r);
            ok = ok && f[i] != nullptr;
        }
        ms = bench::Seconds(Clock::now() - t0).count() * 1000.0;
        if (!ok)
            st.SkipWithError("register failed");
    }
    ~Manager()
    {
        kavor_destroy(h);
        kavor_sys = saved;
    }
};

// A running manager with 1,000 registered files and nothing to save: the
// share of one core its task takes over 10 s ("value", in percent).
void BM_Idle(benchmark::State &state)
{
    Manager mgr(state, "idle", 1000);
    std::this_thread::sleep_for(std::chrono::seconds(2));  // the first, empty sweep
    double cpu = 0;
    for (auto _ : state) {
        std::clock_t c0 = std::clock();  // the process's CPU time
        std::this_thread::sleep_for(std::chrono::seconds(10));
        cpu += (double)(std::clock() - c0) / CLOCKS_PER_SEC;
    }
    state.counters["value"] = cpu * 100.0 / (10.0 * (double)state.iterations());
    state.counters["files"] = (double)kavor_count_all_filename(mgr.h);
}
BENCHMARK(BM_Idle)->Name("manager/idle_1000_files_cpu_pct/kavor")->Iterations(1)
    ->Repetitions(1)->Unit(benchmark::kSecond);

// 10,000 save requests spread over 100 files of a running manager within the
// quiet time; the writes they cause ("value"; one per file is right).
void BM_Burst(benchmark::State &state)
{
    const int files = 100, requests = 10000;
    Manager mgr(state, "burst", files, true);
    int writes = 0;
    for (auto _ : state) {
        g_writes = 0;
        for (int i = 0; i < requests; i++)
            kavor_save_one(mgr.f[i % files]);
        auto limit = Clock::now() + std::chrono::seconds(30);
        while ((kavor_any_on_saving(mgr.h) != nullptr || g_writes < files) && Clock::now() < limit)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));  // room for a stray write
        writes = g_writes;
    }
    state.counters["value"] = (double)writes;
    state.counters["files"] = files;
}
BENCHMARK(BM_Burst)->Name("manager/burst_10000_requests_100_files_writes/kavor")->Iterations(1)
    ->Repetitions(1)->UseRealTime()->Unit(benchmark::kSecond);

// Registering 10,000 files under one manager ("value": milliseconds).
void BM_Register(benchmark::State &state)
{
    double ms = 0;
    for (auto _ : state)
        ms = Manager(state, "reg", 10000).ms;
    state.counters["value"] = ms;
}
BENCHMARK(BM_Register)->Name("manager/register_10000_files_ms/kavor")->Iterations(1)
    ->Repetitions(3)->Unit(benchmark::kMillisecond);
}  // namespace

int main(int argc, char **argv)
{
    return bench::run(argc, argv);
}
