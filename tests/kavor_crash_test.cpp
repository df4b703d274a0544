// What a load finds after a save is cut short on each road: after each step,
// after a restart cut again, and after a saving process is killed at random.
// Always the last whole copy or the new. (A failed operation: the save tests.)

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <random>
#include <set>

#include "kavor_fixture.h"

using namespace kvtest;

namespace {

// The two files a load may read, by base name, as they stood at a moment.
using Snapshot = std::map<std::string, std::string>;

Snapshot snap(const Road &r)
{
    Snapshot s;
    for (const std::string &p : {r.file(), r.bak()})
        if (file_exists(p))
            s[p.substr(p.rfind('/') + 1)] = read_file(p);
    return s;
}
void restore(const Snapshot &s, const Road &r)
{
    for (const auto &kv : s)
        ASSERT_TRUE(write_file(r.dir + "/" + kv.first, kv.second));
}
// `s` in a fresh directory on the road of `like`, loaded as a restarted process would.
Loaded load_snapshot(const Snapshot &s, const Road &like)
{
    TempDir other;
    restore(s, Road{other.path(), like.ugz, like.virt});
    return load_as_restart(other.path() + "/net", like.ugz);
}

// Saves each of `pre`, then generation g, whose disk is kept after each step.
std::map<std::string, Snapshot> cut_at_each_step(const Road &r, const std::vector<int> &pre, int g)
{
    Mgr mgr;
    Blk b;
    xml_file_hdl f = r.reg_in(mgr.get(), &b);
    SysRecorder sys;
    for (int p : pre)
        save_gen(mgr, f, b, p);
    std::map<std::string, Snapshot> at;
    sys.on_step = [&](const std::string &step, const kavor_fcom_t *) { at[step] = snap(r); };
    save_gen(mgr, f, b, g);
    return at;
}

// A load after each step of a save finds the old copy or the new. Then a restarted process loads what a cut
// after step k1 left, and its own first save is cut after step k2: every load gives a whole copy, never one
// older than the load before it; a file name that parses but that a load refuses (a document type declaration)
// never becomes the backup.
TEST(KavorCrash, ALoadAfterEachStepAndAfterARestartCutAgainFindsTheOldOrTheNewCopy)
{
    TempDir dir;
    for (const Road &r : roads(dir.path())) {
        SCOPED_TRACE(r.base());
        std::map<std::string, Snapshot> first = cut_at_each_step(r, {1, 2}, 3);
        std::set<std::string> seen, want = r.virt ? std::set<std::string>{"write", "rename_file", "gzip", "remove_virt", "sync", "done"}
                                                 : std::set<std::string>{"write", "remove_bak", "rename_file", "rename_tmp", "sync", "done"};
        for (const auto &kv : first) {
            seen.insert(kv.first);
            Loaded l = load_snapshot(kv.second, r);
            bool before = kv.first == "write" || kv.first == "remove_bak" || kv.first == "rename_file";
            EXPECT_TRUE(l.ret == 0 && l.gen() == (before ? 2 : 3)) << kv.first;
        }
        EXPECT_EQ(seen, want);
        Snapshot doctype = first.at("done");
        doctype[r.file().substr(r.file().rfind('/') + 1)] = "<?xml version=\"1.0\"?>\n<!DOCTYPE net>\n<net/>\n";
        first["main file with a document type declaration"] = doctype;
        for (const auto &k1 : first) {
            SCOPED_TRACE("first cut after " + k1.first);
            TempDir d2;
            Road here{d2.path(), r.ugz, r.virt};
            restore(k1.second, here);
            int loaded = load_as_restart(here.base(), r.ugz).gen();
            ASSERT_GE(loaded, 2);
            for (const auto &k2 : cut_at_each_step(here, {}, 4)) {
                Loaded l = load_snapshot(k2.second, here);
                EXPECT_TRUE(l.ret == 0 && l.gen() >= loaded && l.gen() <= 4) << "second cut after " << k2.first;
            }
        }
    }
}

// ---- the kill loop ------------------------------------------------------------

// The child: saves generation after generation, each to its end.
[[noreturn]] void save_forever(const Road &r, int32_t first_gen, int fd)
{
    kavor_sys.sync = [] {};   // a killed process loses nothing of the page cache
    kavor_hdl h = kavor_create_v2("kill", 0);
    Blk b;
    xml_file_hdl f = h != nullptr ? r.reg_in(h, &b) : nullptr;
    if (f == nullptr || (f->fcom->virtfile != nullptr) != r.virt)
        _exit(3);
    for (int32_t g = first_gen;; g++) {
        set_locked(f, b, g), kavor_save_one(f);
        while (kavor_file_on_saving(f) != 0)
            usleep(100);
        if (write(fd, &g, sizeof g) != (ssize_t)sizeof g)   // reports the finished save
            _exit(4);
    }
}

void kill_loop(const Road &r, int rounds, int max_pause_ms, unsigned seed)
{
    // Orphaned shells and gzips of a killed child come to this process,
    // which reaps them and can tell that none outlived the kill.
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    cut_at_each_step(r, {1}, 2);   // two whole copies to begin with: the file and its backup
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> pause_us(500, max_pause_ms * 1000);
    int32_t done = 2, seen = 2;
    int finished_saves = 0;
    for (int round = 0; round < rounds; round++) {
        SCOPED_TRACE("round " + std::to_string(round) + " seed " + std::to_string(seed));
        int fds[2];
        ASSERT_EQ(pipe2(fds, O_NONBLOCK), 0);
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0)
            setpgid(0, 0), close(fds[0]), save_forever(r, 1000 * (round + 1), fds[1]);
        setpgid(pid, pid), close(fds[1]);
        usleep((useconds_t)pause_us(rng));
        kill(-pid, SIGKILL), kill(pid, SIGKILL);
        int st;   // the child reaped, then every process of its group
        waitpid(pid, &st, 0);
        EXPECT_TRUE(wait_for([&] { return waitpid(-pid, &st, WNOHANG) <= 0 && kill(-pid, 0) == -1 && errno == ESRCH; }, 10))
            << "a process of the killed group lives on";
        int32_t before = done, g;
        while (read(fds[0], &g, sizeof g) == (ssize_t)sizeof g)
            done = g > done ? g : done;
        close(fds[0]);
        finished_saves += done > before;
        Loaded l = load_as_restart(r.base(), r.ugz);
        ASSERT_TRUE(r.virt ? l.ret != -1 : l.ret == 0) << l.ret;
        Loaded bak = parse_exact(r.base(), r.ugz, r.bak());
        ASSERT_TRUE(!r.virt || (bak.ret == 0 && bak.gen() >= 2)) << "the backup always holds a whole copy";
        if (l.ret == 1)   // a killed gzip left half a file: recovered; the backup is checked above
            continue;
        ASSERT_TRUE(l.gen() >= done && l.gen() >= seen) << "a whole block, never older than the last finished save or load";
        seen = l.gen();
    }
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 0), 0);
    EXPECT_GT(finished_saves, 0) << "the children saved nothing: the loop tested nothing";
}

TEST(KavorCrash, KilledAtRandomOnThePlainRoadEveryLoadGivesAWholeBlock)
{
    kill_loop(Road{TempDir().path(), 0, false}, 60, 40, 20261123u);
}

TEST(KavorCrash, KilledAtRandomOnTheVirtualRoadTheBackupStaysWhole)
{
    kill_loop(Road{TempDir().path(), 1, true}, 60, 150, 5505756u);
}

}  // namespace
