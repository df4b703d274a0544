// kavor_save_fixture.h - shared pieces of the save, manager, crash and
// concurrency tests:
// - Blk, a parameter block whose every field follows from one generation
//   number, so a loaded block is one whole generation or visibly not;
// - SysRecorder, which puts wrappers into the kavor_sys table to log every
//   outside operation of a save, make chosen ones fail, and watch the steps;
// - FakeGzip, a `gzip` placed first on PATH that works, fails, or writes
//   half of its output and fails, as a test asks;
// - StderrCapture, which catches what the process writes to standard error;
// - loaders that read what a path on disk holds, as a restarted process would.
#ifndef KAVOR_SAVE_FIXTURE_H
#define KAVOR_SAVE_FIXTURE_H

#include <gtest/gtest.h>

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <libxml/tree.h>

#include "bare_manager.h"
#include "kavor_private.h"
#include "request.h"
#include "test_util.h"

namespace kvtest {

// ---- the block -------------------------------------------------------------

struct Blk {
    char name[32];
    uint32_t vals[256];
    int32_t gen;
};

inline struct pdesc *blk_table()
{
    // One table per thread of use would be needed only for concurrent
    // xml2param walks; the tests load under one manager (mtx_ld) or alone.
    static struct pdesc table[] = {
        PX_STRI(Blk, name, "name"),
        PX_UINT_ARR(Blk, vals, "vals"),
        PX_SINT(Blk, gen, "gen"),
        PX_END,
    };
    return table;
}

inline void fill(Blk &b, int32_t g)
{
    memset(&b, 0, sizeof(b));
    snprintf(b.name, sizeof(b.name), "gen%d", g);
    for (size_t i = 0; i < sizeof(b.vals) / sizeof(b.vals[0]); i++)
        b.vals[i] = (uint32_t)g * 1000u + (uint32_t)i;
    b.gen = g;
}

/// The generation the block holds, or -1 if it isn't one whole generation.
inline int32_t whole_gen(const Blk &b)
{
    Blk want;
    fill(want, b.gen);
    return memcmp(&want, &b, sizeof(b)) == 0 ? b.gen : -1;
}

inline kavor_file_rgst_t request(const std::string &file, const char *node, int32_t ugz,
                                 const std::string &virt, void *mem)
{
    return make_request(file, node, blk_table(), mem, ugz, virt);
}

inline xml_file_hdl reg(kavor_hdl h, const std::string &file, const char *node, Blk *mem,
                        int32_t ugz = 0, const std::string &virt = "")
{
    kavor_file_rgst_t r = request(file, node, ugz, virt, mem);
    return kavor_register(h, &r);
}

// ---- what a path holds -----------------------------------------------------

struct Loaded {
    int32_t ret;
    Blk blk;
    int32_t gen() const { return whole_gen(blk); }
};

/// A load of the file registered as `path` with `ugz`, with the fall-back to
/// its backup, as a freshly started process does it.
inline Loaded load_as_restart(const std::string &path, int32_t ugz, const char *node = "blk")
{
    BareManager mgr;
    Loaded out;
    memset(&out.blk, 0, sizeof(out.blk));
    xml_file_hdl f = reg(mgr.get(), path, node, &out.blk, ugz);
    out.ret = f != nullptr ? kavor_load_one(f) : -2;
    return out;
}

/// What the one file `exact` holds, parsed alone (no fall-back); `path` and
/// `ugz` name the registration whose root element it must carry.
inline Loaded parse_exact(const std::string &path, int32_t ugz, const std::string &exact,
                          const char *node = "blk")
{
    Loaded out;
    memset(&out.blk, 0, sizeof(out.blk));
    xml_file_hdl f = reg(nullptr, path, node, &out.blk, ugz);
    out.ret = f != nullptr ? xmlParseParamFile(f->fcom, exact.c_str()) : -2;
    kavor_unregister(f);
    return out;
}

/// Polls `cond` every few milliseconds for at most `secs` seconds.
inline bool wait_for(const std::function<bool()> &cond, double secs = 20.0)
{
    auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(secs);
    while (!cond()) {
        if (std::chrono::steady_clock::now() > until)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

inline std::string str(const char *s)
{
    return s != nullptr ? s : "<NULL>";
}

/// A manager with lists, locks and a semaphore but no task: a test runs
/// each sweep itself and can see whether the semaphore was given.
class SweepManager {
public:
    SweepManager()
    {
        get()->sem_sav = vn_semb_create("test", 0);
        get()->sem_sav_valid = 1;
    }
    ~SweepManager()
    {
        while (get()->fcom_lst != nullptr)
            kavor_unregister(reinterpret_cast<kavor_file_t *>(
                reinterpret_cast<kavor_fcom_t *>(get()->fcom_lst)->file_lst));
        vn_sem_delete(get()->sem_sav);
        get()->sem_sav = nullptr;
        get()->sem_sav_valid = 0;
    }
    SweepManager(const SweepManager &) = delete;
    SweepManager &operator=(const SweepManager &) = delete;
    kavor_mobj_t *get() const { return mgr_.get(); }
    /// True if the semaphore was given since the last look.
    bool given() { return vn_sem_take(get()->sem_sav, 0) == 0; }
    void sweep() { kavor_save_sweep(get()); }

private:
    BareManager mgr_;
};

// ---- the outside operations ------------------------------------------------

/// Replaces the kavor_sys table with recording wrappers for its lifetime.
/// A failing remove or rename does nothing and returns -1; a failing
/// create does nothing and returns -1 with EEXIST (something took the
/// name); a failing system returns 256 without running; a failing save_doc
/// writes half of the document and returns -1. sync is counted and, unless real_sync is
/// set, does nothing: a killed process loses nothing of the page cache, and
/// a real sync on a busy machine only slows the tests.
class SysRecorder {
public:
    enum Op { REMOVE, RENAME, SYSTEM, SAVE, SYNC, CREATE, NOPS };

    SysRecorder() : saved_(kavor_sys)
    {
        self() = this;
        kavor_sys.remove = w_remove;
        kavor_sys.rename = w_rename;
        kavor_sys.system = w_system;
        kavor_sys.sync = w_sync;
        kavor_sys.create = w_create;
        kavor_sys.save_doc = w_save;
        kavor_sys.step = w_step;
        for (int i = 0; i < NOPS; i++) {
            calls_[i] = 0;
            fail_at_[i] = 0;
            fail_all_[i] = false;
        }
    }
    ~SysRecorder()
    {
        kavor_sys = saved_;
        self() = nullptr;
    }
    SysRecorder(const SysRecorder &) = delete;
    SysRecorder &operator=(const SysRecorder &) = delete;

    /// Every call so far, as "remove <p>", "rename <a> <b>", "system <cmd>",
    /// "sync", "create <p>", "save <p>", and the steps as "step <name>".
    std::vector<std::string> log() const
    {
        std::lock_guard<std::mutex> hold(lock_);
        return log_;
    }
    void clear_log()
    {
        std::lock_guard<std::mutex> hold(lock_);
        log_.clear();
    }
    /// Number of log entries that begin with `prefix`.
    size_t count(const std::string &prefix) const
    {
        size_t n = 0;
        for (const auto &e : log())
            n += e.compare(0, prefix.size(), prefix) == 0;
        return n;
    }
    long calls(Op op) const { return calls_[op].load(); }
    /// The `n`th call of `op` from now fails (1: the next one).
    void fail_nth(Op op, long n) { fail_at_[op] = calls_[op].load() + n; }
    /// Every call of `op` fails while `on` holds.
    void fail_all(Op op, bool on) { fail_all_[op] = on; }

    /// Called on the saving thread after each step, with the log entry
    /// already written. Set it before the saving thread can run a step.
    std::function<void(const std::string &step, const kavor_fcom_t *fcom)> on_step;
    /// Called after each remove with the path, on the saving thread.
    std::function<void(const std::string &path)> after_remove;
    std::atomic<bool> real_sync{false};

private:
    static SysRecorder *&self()
    {
        static SysRecorder *s = nullptr;
        return s;
    }
    void note(const std::string &entry)
    {
        std::lock_guard<std::mutex> hold(lock_);
        log_.push_back(entry);
    }
    bool failing(Op op)
    {
        long n = ++calls_[op];
        return fail_all_[op].load() || n == fail_at_[op].load();
    }
    static int w_remove(const char *p)
    {
        self()->note(std::string("remove ") + p);
        int rc = self()->failing(REMOVE) ? -1 : self()->saved_.remove(p);
        if (self()->after_remove)
            self()->after_remove(p);
        return rc;
    }
    static int w_create(const char *p)
    {
        self()->note(std::string("create ") + p);
        if (self()->failing(CREATE)) {
            errno = EEXIST;
            return -1;
        }
        int fd = self()->saved_.create(p);
        std::lock_guard<std::mutex> hold(self()->lock_);
        if (fd >= 0)
            self()->created_[fd] = p;
        return fd;
    }
    static int w_rename(const char *a, const char *b)
    {
        self()->note(std::string("rename ") + a + " " + b);
        return self()->failing(RENAME) ? -1 : self()->saved_.rename(a, b);
    }
    static int w_system(const char *cmd)
    {
        self()->note(std::string("system ") + cmd);
        return self()->failing(SYSTEM) ? 256 : self()->saved_.system(cmd);
    }
    static void w_sync()
    {
        self()->note("sync");
        self()->failing(SYNC);
        if (self()->real_sync)
            self()->saved_.sync();
    }
    static int w_save(int fd, xmlDocPtr doc, const char *enc, int fmt)
    {
        std::string p;
        {
            std::lock_guard<std::mutex> hold(self()->lock_);
            p = self()->created_[fd];
            self()->created_.erase(fd);
        }
        self()->note("save " + p);
        if (!self()->failing(SAVE))
            return self()->saved_.save_doc(fd, doc, enc, fmt);
        struct stat st;
        if (self()->saved_.save_doc(fd, doc, enc, fmt) > 0 && stat(p.c_str(), &st) == 0 &&
            truncate(p.c_str(), st.st_size / 2) != 0)
            return -1;
        return -1;
    }
    static void w_step(const char *name, const kavor_fcom_t *fcom)
    {
        self()->note(std::string("step ") + name);
        if (self()->on_step)
            self()->on_step(name, fcom);
    }

    kavor_sys_t saved_;
    mutable std::mutex lock_;
    std::vector<std::string> log_;
    std::map<int, std::string> created_;   // descriptor -> path, until its save
    std::atomic<long> calls_[NOPS];
    std::atomic<long> fail_at_[NOPS];
    std::atomic<bool> fail_all_[NOPS];
};

// ---- standard error --------------------------------------------------------

/// Catches what the process writes to standard error (descriptor 2) from
/// its construction until text() or its end.
class StderrCapture {
public:
    StderrCapture() : file_(tmpfile())
    {
        fflush(stderr);
        saved_ = file_ != nullptr ? dup(2) : -1;
        if (saved_ >= 0)
            dup2(fileno(file_), 2);
    }
    ~StderrCapture()
    {
        restore();
        if (file_ != nullptr)
            fclose(file_);
    }
    StderrCapture(const StderrCapture &) = delete;
    StderrCapture &operator=(const StderrCapture &) = delete;
    /// Ends the capture and returns what was written ("<no capture>" if
    /// descriptor 2 couldn't be taken).
    std::string text()
    {
        if (saved_ < 0)
            return "<no capture>";
        restore();
        std::string out;
        char buf[512];
        rewind(file_);
        for (size_t n; (n = fread(buf, 1, sizeof buf, file_)) > 0;)
            out.append(buf, n);
        return out;
    }

private:
    void restore()
    {
        if (saved_ >= 0 && !restored_) {
            fflush(stderr);
            dup2(saved_, 2);
            close(saved_);
            restored_ = true;
        }
    }
    FILE *file_;
    int saved_;
    bool restored_ = false;
};

// ---- a gzip on demand ------------------------------------------------------

/// Puts a `gzip` script first on PATH for its lifetime. By mode: the real
/// gzip, exit 1 without output, or half of the real output and exit 1.
/// Change the mode only while no save runs.
class FakeGzip {
public:
    enum Mode { REAL, FAIL, HALF };

    FakeGzip()
    {
        const char *p = getenv("PATH");
        old_path_ = p != nullptr ? p : "/usr/bin:/bin";
        std::string real = find_real();
        std::string script =
            "#!/bin/sh\n"
            "mode=$(cat '" + dir_.file("mode") + "' 2>/dev/null)\n"
            "case \"$mode\" in\n"
            "fail) exit 1 ;;\n"
            "half) '" + real + "' \"$@\" > '" + dir_.file("full") + "' || exit 1\n"
            "      n=$(( $(wc -c < '" + dir_.file("full") + "') / 2 ))\n"
            "      head -c \"$n\" '" + dir_.file("full") + "'\n"
            "      exit 1 ;;\n"
            "*) exec '" + real + "' \"$@\" ;;\n"
            "esac\n";
        write_file(dir_.file("gzip"), script);
        chmod(dir_.file("gzip").c_str(), 0755);
        setenv("PATH", (dir_.path() + ":" + old_path_).c_str(), 1);
    }
    ~FakeGzip() { setenv("PATH", old_path_.c_str(), 1); }
    FakeGzip(const FakeGzip &) = delete;
    FakeGzip &operator=(const FakeGzip &) = delete;

    void set(Mode m)
    {
        write_file(dir_.file("mode"), m == FAIL ? "fail" : m == HALF ? "half" : "real");
    }

private:
    std::string find_real() const
    {
        std::string rest = old_path_;
        while (!rest.empty()) {
            size_t colon = rest.find(':');
            std::string d = rest.substr(0, colon);
            rest = colon == std::string::npos ? "" : rest.substr(colon + 1);
            if (!d.empty() && access((d + "/gzip").c_str(), X_OK) == 0)
                return d + "/gzip";
        }
        return "/bin/gzip";
    }

    TempDir dir_;
    std::string old_path_;
};

}  // namespace kvtest

#endif
