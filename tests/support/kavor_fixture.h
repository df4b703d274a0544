// kavor_fixture.h - what the file manager's tests share:
// - request(), the one place a registration record is filled by hand;
// - Blk, a parameter block whose every field follows from one generation
//   number, so a loaded block is one whole generation or visibly not, and
//   Pair, a block of two strings whose document reads at a glance;
// - Mgr, a manager record with its lists, locks and semaphore but no task,
//   whose sweeps a test runs itself;
// - Road, the names of one file on each road of a save;
// - SysRecorder, which puts wrappers into the kavor_sys table to count the
//   outside operations of a save, fail chosen ones, make gzip fail or cut
//   its output, and watch the steps;
// - loaders that read what a path on disk holds, as a restarted process would.
#ifndef KAVOR_TEST_FIXTURE_H
#define KAVOR_TEST_FIXTURE_H

#include <gtest/gtest.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "kavor_private.h"
#include "test_util.h"

namespace kvtest {

/// A zeroed record naming `file`, `node` and `virt`, each cut to fit its
/// field with its NUL.
inline kavor_file_rgst_t request(const std::string &file, const std::string &node,
                                 xml_pd_t *table, void *mem, int32_t ugz,
                                 const std::string &virt = "")
{
    kavor_file_rgst_t r;
    memset(&r, 0, sizeof r);
    snprintf(r.filename, sizeof r.filename, "%s", file.c_str());
    snprintf(r.node_name, sizeof r.node_name, "%s", node.c_str());
    snprintf(r.virtfile, sizeof r.virtfile, "%s", virt.c_str());
    r.param_desc = table, r.mem = mem, r.ugz = ugz;
    return r;
}

// ---- the block ------------------------------------------------------------

struct Blk {
    char name[32];
    uint32_t vals[256];
    int32_t gen;
};

inline struct pdesc *blk_table()
{
    static struct pdesc table[] = {PX_STRI(Blk, name, "name"), PX_UINT_ARR(Blk, vals, "vals"),
                                   PX_SINT(Blk, gen, "gen"), PX_END};
    return table;
}

inline void fill(Blk &b, int32_t g)
{
    memset(&b, 0, sizeof b);
    snprintf(b.name, sizeof b.name, "gen%d", g);
    for (size_t i = 0; i < sizeof b.vals / sizeof b.vals[0]; i++)
        b.vals[i] = (uint32_t)g * 1000u + (uint32_t)i;
    b.gen = g;
}

/// The generation the block holds, or -1 if it isn't one whole generation.
inline int32_t whole_gen(const Blk &b)
{
    Blk want;
    fill(want, b.gen);
    return memcmp(&want, &b, sizeof b) == 0 ? b.gen : -1;
}

inline xml_file_hdl reg(kavor_hdl h, const std::string &file, const char *node, Blk *mem,
                        int32_t ugz = 0, const std::string &virt = "")
{
    kavor_file_rgst_t r = request(file, node, blk_table(), mem, ugz, virt);
    return kavor_register(h, &r);
}

struct Pair {
    char label[16];
    char owner[16];
};
inline struct pdesc *pair_table()
{
    static struct pdesc table[] = {PX_STRI(Pair, label, "label"), PX_STRI(Pair, owner, "owner"), PX_END};
    return table;
}

// ---- a manager without a task -------------------------------------------------

/// The manager's own parts (lists, locks, semaphore) made by hand, with no
/// task: a test runs each sweep itself and sees whether the semaphore was
/// given. Unregisters whatever is left and releases the record at the end.
class Mgr {
public:
    Mgr() : m_(static_cast<kavor_mobj_t *>(calloc(1, sizeof(kavor_mobj_t))))
    {
        m_->mtx_ld_valid = vn_mutex_init(&m_->mtx_ld) == 0;
        m_->fcom_rwlock_valid = pthread_rwlock_init(&m_->fcom_rwlock, nullptr) == 0;
        m_->sem_sav = vn_semb_create("test", 0);
        m_->sem_sav_valid = 1;
    }
    ~Mgr()
    {
        while (m_->fcom_lst != nullptr)
            kavor_unregister(reinterpret_cast<kavor_file_t *>(
                reinterpret_cast<kavor_fcom_t *>(m_->fcom_lst)->file_lst));
        vn_mutex_destroy(&m_->mtx_ld);
        pthread_rwlock_destroy(&m_->fcom_rwlock);
        vn_sem_delete(m_->sem_sav);
        free(m_);
    }
    Mgr(const Mgr &) = delete;
    Mgr &operator=(const Mgr &) = delete;
    kavor_mobj_t *get() const { return m_; }
    /// True if the semaphore was given since the last look.
    bool given() { return vn_sem_take(m_->sem_sav, 0) == 0; }
    void sweep() { kavor_save_sweep(m_); }

private:
    kavor_mobj_t *m_;
};

/// Marks `f` and sweeps, with the block at generation `g`; the save must end.
inline void save_gen(Mgr &mgr, xml_file_hdl f, Blk &b, int32_t g)
{
    fill(b, g);
    EXPECT_EQ(kavor_save_one(f), 0);
    mgr.sweep();
    EXPECT_EQ(kavor_file_on_saving(f), 0);
    mgr.given();
}

// ---- the names of one file on one road ------------------------------------------

struct Road {
    std::string dir;
    int32_t ugz;   // 1: plain XML; anything else: gzip
    bool virt;     // the virtual-file road
    std::string base() const { return dir + "/net"; }
    std::string file() const { return base() + (ugz == 1 ? ".xml" : ".xml.gz"); }
    std::string bak() const { return base() + (ugz == 1 ? ".xml.bak" : ".xml.bak.gz"); }
    std::string tmp() const { return file() + (ugz == 1 ? ".tmp" : ".tmp.gz"); }
    std::string virt_req() const { return virt ? dir + "/v/net" : ""; }
    std::string virt_file() const { return dir + "/v/net.xml"; }
    xml_file_hdl reg_in(kavor_hdl h, Blk *b) const { return reg(h, base(), "blk", b, ugz, virt_req()); }
};

/// The four roads: plain and virtual, each with a compressed and a plain file.
inline std::vector<Road> roads(const std::string &dir)
{
    return {{dir + "/pg", 0, false}, {dir + "/px", 1, false}, {dir + "/vg", 0, true},
            {dir + "/vx", 1, true}};
}

// ---- what a path holds -----------------------------------------------------------

struct Loaded {
    int32_t ret;
    Blk blk;
    int32_t gen() const { return whole_gen(blk); }
};

/// A load of the file registered as `base` with `ugz`, with the fall-back to
/// its backup, as a freshly started process does it.
inline Loaded load_as_restart(const std::string &base, int32_t ugz)
{
    Mgr mgr;
    Loaded out;
    memset(&out.blk, 0, sizeof out.blk);
    xml_file_hdl f = reg(mgr.get(), base, "blk", &out.blk, ugz);
    out.ret = f != nullptr ? kavor_load_one(f) : -2;
    return out;
}

/// What the one file `exact` holds, parsed alone (no fall-back), for the
/// file registered as `base` with `ugz`.
inline Loaded parse_exact(const std::string &base, int32_t ugz, const std::string &exact,
                          const char *node = "blk")
{
    Loaded out;
    memset(&out.blk, 0, sizeof out.blk);
    xml_file_hdl f = reg(nullptr, base, node, &out.blk, ugz);
    out.ret = f != nullptr ? xmlParseParamFile(f->fcom, exact.c_str()) : -2;
    kavor_unregister(f);
    return out;
}
inline int32_t gen_at(const Road &r, const std::string &exact) { return parse_exact(r.base(), r.ugz, exact).gen(); }

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

// ---- the outside operations ----------------------------------------------------

/// Replaces the kavor_sys table with counting wrappers for its lifetime.
/// A failing remove or rename does nothing and returns -1; a failing save_doc
/// writes half of the document and returns -1; gzip (system) runs, fails
/// without output, or writes half of its output and fails, by gzip_mode.
/// sync is counted and does nothing: a killed process loses nothing of the
/// page cache, and a real sync on a busy machine only slows the tests.
class SysRecorder {
public:
    enum Op { REMOVE, RENAME, SYSTEM, SAVE, SYNC, NOPS };
    enum Gzip { REAL, FAIL, HALF };

    SysRecorder() : saved_(kavor_sys)
    {
        self() = this;
        kavor_sys = {w_remove, w_rename, w_system, w_sync, w_save, w_step};
        for (int i = 0; i < NOPS; i++)
            calls_[i] = fail_at_[i] = 0, fail_all_[i] = false;
    }
    ~SysRecorder()
    {
        kavor_sys = saved_;
        self() = nullptr;
    }
    SysRecorder(const SysRecorder &) = delete;
    SysRecorder &operator=(const SysRecorder &) = delete;

    /// Number of calls so far whose log entry ("remove <p>", "rename <a> <b>",
    /// "system <cmd>", "sync", "save <p>") begins with `prefix`.
    size_t count(const std::string &prefix) const
    {
        std::lock_guard<std::mutex> hold(lock_);
        size_t n = 0;
        for (const auto &e : log_)
            n += e.compare(0, prefix.size(), prefix) == 0;
        return n;
    }
    long calls(Op op) const { return calls_[op].load(); }
    /// The `n`th call of `op` from now fails (1: the next one).
    void fail_nth(Op op, long n) { fail_at_[op] = calls_[op].load() + n; }
    /// Every call of `op` fails while `on` holds.
    void fail_all(Op op, bool on) { fail_all_[op] = on; }

    /// Called on the saving thread after each step. Set it before the saving
    /// thread can run a step.
    std::function<void(const std::string &step, const kavor_fcom_t *fcom)> on_step;
    std::atomic<int> gzip_mode{REAL};
    /// With `nodes` set, documents handed to the writer whose root doesn't
    /// hold that many elements are counted in `incomplete`.
    size_t nodes = 0;
    std::atomic<int> incomplete{0};

private:
    static SysRecorder *&self()
    {
        static SysRecorder *s = nullptr;
        return s;
    }
    bool failing(Op op, const std::string &entry)
    {
        {
            std::lock_guard<std::mutex> hold(lock_);
            log_.push_back(entry);
        }
        long n = ++calls_[op];
        return fail_all_[op].load() || n == fail_at_[op].load();
    }
    static int w_remove(const char *p)
    {
        return self()->failing(REMOVE, std::string("remove ") + p) ? -1 : self()->saved_.remove(p);
    }
    static int w_rename(const char *a, const char *b)
    {
        return self()->failing(RENAME, std::string("rename ") + a + " " + b) ? -1 : self()->saved_.rename(a, b);
    }
    static int w_system(const char *cmd)
    {
        const std::string c = cmd;
        if (self()->failing(SYSTEM, "system " + c) || self()->gzip_mode == FAIL)
            return 256;
        int rc = self()->saved_.system(cmd);
        if (self()->gzip_mode == HALF) {   // the target follows the last "> "
            const std::string target = c.substr(c.rfind("> ") + 2);
            rc = truncate(target.c_str(), static_cast<off_t>(read_file(target).size() / 2)) == 0 ? 256 : 512;
        }
        return rc;
    }
    static void w_sync() { self()->failing(SYNC, "sync"); }
    static int w_save(const char *p, xmlDocPtr doc, const char *enc, int fmt)
    {
        bool fail = self()->failing(SAVE, std::string("save ") + p);
        size_t kids = 0;
        for (xmlNode *c = xmlDocGetRootElement(doc) ? xmlDocGetRootElement(doc)->children : nullptr; c; c = c->next)
            kids += c->type == XML_ELEMENT_NODE;
        self()->incomplete += self()->nodes > 0 && kids != self()->nodes;
        int n = self()->saved_.save_doc(p, doc, enc, fmt);
        if (fail && n > 0 && truncate(p, n / 2) != 0)
            return -2;
        return fail ? -1 : n;
    }
    static void w_step(const char *name, const kavor_fcom_t *fcom)
    {
        if (self()->on_step)
            self()->on_step(name, fcom);
    }

    kavor_sys_t saved_;
    mutable std::mutex lock_;
    std::vector<std::string> log_;
    std::atomic<long> calls_[NOPS];
    std::atomic<long> fail_at_[NOPS];
    std::atomic<bool> fail_all_[NOPS];
};

}  // namespace kvtest

#endif
