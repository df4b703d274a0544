// What a load finds after a save is cut short, on both roads:
// - at each step of a save (the disk as it is when the step ends), and again
//   after a restart that cuts its own first save at each step;
// - when gzip fails or writes half of its output;
// - when any one outside operation fails;
// - when a process that saves in a loop is killed with SIGKILL at random
//   moments, its gzip children with it.
// A load must give the last whole copy (P) or the new one (N), or result 1
// while a cut gzip output stands under the file name; never nothing.
#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "kavor_save_fixture.h"
#include "trace_capture.h"

using namespace kvtest;

namespace {

// One road: where the file lives and whether it has a virtual name.
struct Road {
    const char *label;
    int32_t ugz;
    bool virt;
    std::vector<std::string> steps;   // the steps of a save of a file that exists
};

const std::vector<std::string> kPlainSteps = {"write",      "remove_bak", "rename_file",
                                              "rename_tmp", "sync",       "done"};
const std::vector<std::string> kVirtSteps = {"write", "rename_file", "gzip",
                                             "remove_virt", "sync", "done"};

std::vector<Road> roads()
{
    return {{"plain_gz", 0, false, kPlainSteps},
            {"plain_xml", 1, false, kPlainSteps},
            {"virtual_gz", 0, true, kVirtSteps},
            {"virtual_xml", 1, true, kVirtSteps}};
}

// The two files a load may read, by base name, as they stood at a moment.
using Snapshot = std::map<std::string, std::string>;

struct Place {
    std::string dir;
    int32_t ugz;
    bool virt;
    std::string base() const { return dir + "/net"; }
    std::string file() const { return base() + (ugz == 1 ? ".xml" : ".xml.gz"); }
    std::string bak() const { return base() + (ugz == 1 ? ".xml.bak" : ".xml.bak.gz"); }
    std::string virt_req() const { return virt ? dir + "/v/net" : ""; }
    xml_file_hdl reg_in(kavor_hdl h, Blk *b) const { return reg(h, base(), "blk", b, ugz, virt_req()); }
};

// Saves each of `gens` in turn, each to its end, with a task-less manager.
void save_gens(SweepManager &mgr, xml_file_hdl f, Blk &b, const std::vector<int> &gens)
{
    for (int g : gens) {
        fill(b, g);
        kavor_save_one(f);
        mgr.sweep();
    }
}

std::string base_name(const std::string &p)
{
    return p.substr(p.rfind('/') + 1);
}

Snapshot snap(const Place &pl)
{
    Snapshot s;
    for (const std::string &p : {pl.file(), pl.bak()})
        if (file_exists(p))
            s[base_name(p)] = read_file(p);
    return s;
}

void restore(const Snapshot &s, const Place &pl)
{
    for (const auto &kv : s)
        ASSERT_TRUE(write_file(pl.dir + "/" + kv.first, kv.second));
}

// Puts `s` in a fresh directory on the road of `like` and loads it as a
// restarted process would; `bak_gen`, if given, gets what the backup holds.
Loaded load_snapshot(const Snapshot &s, const Place &like, int *bak_gen = nullptr)
{
    TempDir other;
    Place there{other.path(), like.ugz, like.virt};
    restore(s, there);
    if (bak_gen != nullptr)
        *bak_gen = parse_exact(there.base(), there.ugz, there.bak()).gen();
    return load_as_restart(there.base(), there.ugz);
}

// Saves generation g of the one node of `pl` with a task-less manager and
// returns the disk as it stood after each step; `pre` saves come first.
std::map<std::string, Snapshot> cut_at_each_step(const Place &pl, const std::vector<int> &pre,
                                                 int g)
{
    SweepManager mgr;
    Blk b;
    xml_file_hdl f = pl.reg_in(mgr.get(), &b);
    EXPECT_NE(f, nullptr);
    EXPECT_EQ(f->fcom->virtfile != nullptr, pl.virt);
    SysRecorder sys;
    save_gens(mgr, f, b, pre);
    std::map<std::string, Snapshot> at;
    sys.on_step = [&](const std::string &step, const kavor_fcom_t *) { at[step] = snap(pl); };
    save_gens(mgr, f, b, {g});
    EXPECT_EQ(kavor_file_on_saving(f), 0);
    return at;
}

// Which generation a load gives at each step: the old one before the new
// copy is in place, the new one after.
int expected_at(const std::string &step, int old_gen, int new_gen)
{
    static const std::set<std::string> before = {"write", "remove_bak", "rename_file",
                                                 "remove_file"};
    return before.count(step) ? old_gen : new_gen;
}

TEST(KavorCrash, ALoadAfterEachStepOfASaveFindsTheOldOrTheNewCopy)
{
    for (const Road &road : roads()) {
        SCOPED_TRACE(road.label);
        TempDir dir;
        Place pl{dir.path(), road.ugz, road.virt};
        std::map<std::string, Snapshot> at = cut_at_each_step(pl, {1, 2}, 3);
        std::set<std::string> seen, want(road.steps.begin(), road.steps.end());
        for (const auto &kv : at)
            seen.insert(kv.first);
        ASSERT_EQ(seen, want);
        for (const auto &kv : at) {
            SCOPED_TRACE(kv.first);
            Loaded l = load_snapshot(kv.second, pl);
            EXPECT_EQ(l.ret, 0);
            EXPECT_EQ(l.gen(), expected_at(kv.first, 2, 3));
        }
    }
}

TEST(KavorCrash, ARestartedSaveCutAgainNeverLosesTheLastWholeCopy)
{
    // The first process is cut after step k1; the next one loads, then its
    // own first save is cut after step k2. Every load gives a whole copy,
    // and never one older than the load before it.
    for (const Road &road : roads()) {
        SCOPED_TRACE(road.label);
        TempDir dir;
        Place pl1{dir.path(), road.ugz, road.virt};
        std::map<std::string, Snapshot> first = cut_at_each_step(pl1, {1, 2}, 3);
        // A file name that parses but that a load refuses: it must never
        // become the backup.
        Snapshot doctype = first.at("done");
        doctype[base_name(pl1.file())] = "<?xml version=\"1.0\"?>\n<!DOCTYPE net>\n<net/>\n";
        first["main file with a document type declaration"] = doctype;
        for (const auto &k1 : first) {
            SCOPED_TRACE("first cut after " + k1.first);
            TempDir d2;
            Place pl{d2.path(), road.ugz, road.virt};
            restore(k1.second, pl);
            int loaded = load_as_restart(pl.base(), road.ugz).gen();
            ASSERT_GE(loaded, 2);
            std::map<std::string, Snapshot> second = cut_at_each_step(pl, {}, 4);
            EXPECT_FALSE(second.empty());
            for (const auto &k2 : second) {
                SCOPED_TRACE("second cut after " + k2.first);
                Loaded l = load_snapshot(k2.second, pl);
                EXPECT_EQ(l.ret, 0);
                EXPECT_GE(l.gen(), loaded);
                EXPECT_LE(l.gen(), 4);
            }
        }
    }
}

TEST(KavorCrash, ACutGzipLeavesTheBackupWholeAndALoadRecoversOrFallsBack)
{
    FakeGzip gz;
    for (int32_t ugz : {0, 1}) {
        SCOPED_TRACE(ugz);
        TempDir dir;
        Place pl{dir.path(), ugz, true};
        gz.set(FakeGzip::REAL);
        SweepManager mgr;
        Blk b;
        xml_file_hdl f = pl.reg_in(mgr.get(), &b);
        SysRecorder sys;
        save_gens(mgr, f, b, {1, 2});
        std::map<std::string, Snapshot> at;
        sys.on_step = [&](const std::string &step, const kavor_fcom_t *) { at[step] = snap(pl); };
        gz.set(FakeGzip::HALF);
        save_gens(mgr, f, b, {3});
        ASSERT_EQ(at.count("gzip"), 1u);
        EXPECT_EQ(at.count("sync"), 0u) << "a failed gzip ends the road";
        EXPECT_EQ(kavor_file_on_saving(f), 2);
        for (const auto &kv : at) {
            SCOPED_TRACE(kv.first);
            int bak = -9;
            Loaded l = load_snapshot(kv.second, pl, &bak);
            EXPECT_EQ(bak, kv.first == "write" ? 1 : 2);
            EXPECT_TRUE((l.ret == 0 && l.gen() == 2) || (l.ret == 1 && kv.first == "gzip")) << l.ret;
        }
        // The same process retries once gzip works again.
        gz.set(FakeGzip::REAL);
        mgr.sweep();
        EXPECT_EQ(kavor_file_on_saving(f), 0);
        EXPECT_EQ(load_as_restart(pl.base(), ugz).gen(), 3);
        EXPECT_EQ(parse_exact(pl.base(), ugz, pl.bak()).gen(), 2);
    }
}

TEST(KavorCrash, AnyOneFailedOperationKeepsAWholeCopyAndTheRetryEndsWithTheNewOne)
{
    const SysRecorder::Op ops[] = {SysRecorder::REMOVE, SysRecorder::RENAME, SysRecorder::SYSTEM,
                                   SysRecorder::SAVE};
    for (const Road &road : roads()) {
        for (SysRecorder::Op op : ops) {
            for (long n = 1; n <= 3; n++) {
                SCOPED_TRACE(std::string(road.label) + " op " + std::to_string(op) + " call " +
                             std::to_string(n));
                TempDir dir;
                Place pl{dir.path(), road.ugz, road.virt};
                SweepManager mgr;
                Blk b;
                xml_file_hdl f = pl.reg_in(mgr.get(), &b);
                SysRecorder sys;
                save_gens(mgr, f, b, {1, 2});
                fill(b, 3);
                kavor_save_one(f);
                sys.fail_nth(op, n);
                TraceCapture cap(4);
                mgr.sweep();
                Loaded l = load_as_restart(pl.base(), road.ugz);
                EXPECT_TRUE(l.ret == 0 && (l.gen() == 2 || l.gen() == 3))
                    << l.ret << " " << l.gen() << "\n" << cap.dump();
                if (file_exists(pl.bak())) {
                    Loaded bak = parse_exact(pl.base(), road.ugz, pl.bak());
                    EXPECT_EQ(bak.ret, 0);
                    EXPECT_GE(bak.gen(), 1);
                }
                for (int retry = 0; retry < 3 && kavor_file_on_saving(f) != 0; retry++)
                    mgr.sweep();
                EXPECT_EQ(kavor_file_on_saving(f), 0);
                EXPECT_EQ(load_as_restart(pl.base(), road.ugz).gen(), 3);
            }
        }
    }
}

// ---- the kill loop ------------------------------------------------------

// The child: saves generation after generation, each to its end, and
// reports each finished one on `fd`. Never returns.
[[noreturn]] void save_forever(const Place &pl, int32_t first_gen, int fd)
{
    kavor_sys.sync = [] {};   // a killed process loses nothing of the page cache
    kavor_hdl h = kavor_create_v2("kill", 0);
    Blk b;
    fill(b, first_gen);
    xml_file_hdl f = h != nullptr ? pl.reg_in(h, &b) : nullptr;
    if (f == nullptr || (f->fcom->virtfile != nullptr) != pl.virt)
        _exit(3);
    for (int32_t g = first_gen;; g++) {
        kavor_file_lock(f);
        fill(b, g);
        kavor_file_unlock(f);
        kavor_save_one(f);
        while (kavor_file_on_saving(f) != 0)
            usleep(100);
        if (write(fd, &g, sizeof(g)) != (ssize_t)sizeof(g))
            _exit(4);
    }
}

// Reaps the killed child and every process of its group; true when none is left.
bool reap_group(pid_t pgid)
{
    int st;
    waitpid(pgid, &st, 0);
    return wait_for(
        [&] {
            while (waitpid(-pgid, &st, WNOHANG) > 0) {
            }
            return kill(-pgid, 0) == -1 && errno == ESRCH;
        },
        10);
}

int32_t last_reported(int fd, int32_t last)
{
    int32_t g;
    while (read(fd, &g, sizeof(g)) == (ssize_t)sizeof(g))
        last = g > last ? g : last;
    return last;
}

void kill_loop(const Place &pl, int rounds, int max_pause_ms, unsigned seed)
{
    // Orphaned shells and gzips of a killed child come to this process,
    // which reaps them and can tell that none outlived the kill.
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    {
        // Two whole copies to begin with: the file and its backup.
        SweepManager mgr;
        Blk b;
        save_gens(mgr, pl.reg_in(mgr.get(), &b), b, {1, 2});
        ASSERT_EQ(load_as_restart(pl.base(), pl.ugz).gen(), 2);
    }
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> pause_us(500, max_pause_ms * 1000);
    int32_t done = 2, seen = 2;
    int finished_saves = 0, recovered = 0;
    for (int round = 0; round < rounds; round++) {
        SCOPED_TRACE("round " + std::to_string(round) + " seed " + std::to_string(seed));
        int fds[2];
        ASSERT_EQ(pipe2(fds, O_NONBLOCK), 0);
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            setpgid(0, 0);
            close(fds[0]);
            save_forever(pl, 1000 * (round + 1), fds[1]);
        }
        setpgid(pid, pid);
        close(fds[1]);
        usleep((useconds_t)pause_us(rng));
        kill(-pid, SIGKILL);
        kill(pid, SIGKILL);
        EXPECT_TRUE(reap_group(pid)) << "a process of the killed group lives on";
        int32_t before = done;
        done = last_reported(fds[0], done);
        close(fds[0]);
        finished_saves += done > before;

        Loaded l = load_as_restart(pl.base(), pl.ugz);
        if (pl.virt) {
            ASSERT_NE(l.ret, -1);
            Loaded bak = parse_exact(pl.base(), pl.ugz, pl.bak());
            ASSERT_EQ(bak.ret, 0) << "the backup always holds a whole copy";
            ASSERT_GE(bak.gen(), 2);
        } else {
            ASSERT_EQ(l.ret, 0);
        }
        if (l.ret == 1) {
            recovered++;
            continue;
        }
        ASSERT_GE(l.gen(), 0) << "a load gives a whole block";
        ASSERT_GE(l.gen(), done) << "never older than the last finished save";
        ASSERT_GE(l.gen(), seen) << "never older than what the last load gave";
        seen = l.gen();
    }
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 0), 0);
    EXPECT_GT(finished_saves, 0) << "the children saved nothing: the loop tested nothing";
    ::testing::Test::RecordProperty("rounds_with_finished_saves", finished_saves);
    ::testing::Test::RecordProperty("loads_recovered", recovered);
    std::printf("kill loop: %d rounds, %d with finished saves, %d recovered loads, last gen %d\n",
                rounds, finished_saves, recovered, seen);
}

TEST(KavorCrash, KilledAtRandomOnThePlainRoadEveryLoadGivesAWholeBlock)
{
    TempDir dir;
    kill_loop(Place{dir.path(), 0, false}, 60, 40, 20261123u);
}

TEST(KavorCrash, KilledAtRandomOnTheVirtualRoadTheBackupStaysWhole)
{
    TempDir dir;
    kill_loop(Place{dir.path(), 1, true}, 60, 150, 5505756u);
}

}  // namespace
