// kavor_fixture.h - what the file manager's tests share: registration records; Blk, whose every field follows
// from one generation number (a loaded block is one whole generation or visibly not), and Pair; Mgr, a manager
// without a task; the names of a file on each road; SysRecorder, which counts, fails and watches a save's
// outside operations; loaders that read a path as a restart would.
#ifndef KAVOR_TEST_FIXTURE_H
#define KAVOR_TEST_FIXTURE_H

#include <gtest/gtest.h>

#include <errno.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "kavor_private.h"
#include "test_util.h"
#include "trace_capture.h"

namespace kvtest {

/// A zeroed record naming `file`, `node` and `virt`, each cut to its field.
inline kavor_file_rgst_t request(const std::string &file, const std::string &node, xml_pd_t *table = nullptr,
                                 void *mem = nullptr, int32_t ugz = 0, const std::string &virt = "")
{
    kavor_file_rgst_t r = {};
    snprintf(r.filename, sizeof r.filename, "%s", file.c_str());
    snprintf(r.node_name, sizeof r.node_name, "%s", node.c_str());
    snprintf(r.virtfile, sizeof r.virtfile, "%s", virt.c_str());
    r.param_desc = table, r.mem = mem, r.ugz = ugz;
    return r;
}

struct Blk {
    char name[32];
    uint32_t vals[256];
    int32_t gen;
};
inline struct pdesc *blk_table()
{
    static struct pdesc t[] = {PX_STRI(Blk, name, "name"), PX_UINT_ARR(Blk, vals, "vals"), PX_SINT(Blk, gen, "gen"), PX_END};
    return t;
}
inline void fill(Blk &b, int32_t g)
{
    memset(&b, 0, sizeof b);
    snprintf(b.name, sizeof b.name, "gen%d", g);
    for (size_t i = 0; i < 256; i++)
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
/// As an application changes its block: under the file's lock.
inline void set_locked(xml_file_hdl f, Blk &b, int32_t g)
{
    kavor_file_lock(f), fill(b, g), kavor_file_unlock(f);
}
inline xml_file_hdl reg(kavor_hdl h, const std::string &file, const char *node, Blk *mem, int32_t ugz = 0,
                        const std::string &virt = "")
{
    kavor_file_rgst_t r = request(file, node, blk_table(), mem, ugz, virt);
    return kavor_register(h, &r);
}

struct Pair {
    char label[16], owner[16];
};
inline struct pdesc *pair_table()
{
    static struct pdesc t[] = {PX_STRI(Pair, label, "label"), PX_STRI(Pair, owner, "owner"), PX_END};
    return t;
}

/// A manager's lists, locks and semaphore made by hand, with no task; its end unregisters what is left.
class Mgr {
public:
    Mgr() : m_(static_cast<kavor_mobj_t *>(calloc(1, sizeof(kavor_mobj_t))))
    {
        m_->mtx_ld_valid = vn_mutex_init(&m_->mtx_ld) == 0;
        m_->fcom_rwlock_valid = pthread_rwlock_init(&m_->fcom_rwlock, nullptr) == 0;
        m_->sem_sav = vn_semb_create("test", 0), m_->sem_sav_valid = 1;
    }
    ~Mgr()
    {
        while (m_->fcom_lst != nullptr)
            kavor_unregister(reinterpret_cast<kavor_file_t *>(reinterpret_cast<kavor_fcom_t *>(m_->fcom_lst)->file_lst));
        vn_mutex_destroy(&m_->mtx_ld);
        pthread_rwlock_destroy(&m_->fcom_rwlock);
        vn_sem_delete(m_->sem_sav);
        free(m_);
    }
    Mgr(const Mgr &) = delete;
    Mgr &operator=(const Mgr &) = delete;
    kavor_mobj_t *get() const { return m_; }
    bool given() { return vn_sem_take(m_->sem_sav, 0) == 0; }   ///< since the last look
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

/// The names of the file "net" in `dir` on one road.
struct Road {
    std::string dir;
    int32_t ugz;   // 1: plain XML; anything else: gzip
    bool virt;     // the virtual-file road
    std::string base() const { return dir + "/net"; }
    std::string file() const { return base() + (ugz == 1 ? ".xml" : ".xml.gz"); }
    std::string bak() const { return base() + (ugz == 1 ? ".xml.bak" : ".xml.bak.gz"); }
    std::string tmp() const { return file() + (ugz == 1 ? ".tmp" : ".tmp.gz"); }
    std::string virt_file() const { return dir + "/v/net.xml"; }
    xml_file_hdl reg_in(kavor_hdl h, Blk *b) const { return reg(h, base(), "blk", b, ugz, virt ? dir + "/v/net" : ""); }
};
inline std::vector<Road> roads(const std::string &dir)
{
    return {{dir + "/pg", 0, false}, {dir + "/px", 1, false}, {dir + "/vg", 0, true}, {dir + "/vx", 1, true}};
}

struct Loaded {
    int32_t ret;
    Blk blk;
    int32_t gen() const { return whole_gen(blk); }
};
/// A load, with the fall-back, of the file registered as `base`, as a freshly started process does it.
inline Loaded load_as_restart(const std::string &base, int32_t ugz)
{
    Mgr mgr;
    Loaded out = {-2, {}};
    xml_file_hdl f = reg(mgr.get(), base, "blk", &out.blk, ugz);
    out.ret = f != nullptr ? kavor_load_one(f) : -2;
    return out;
}
/// What the one file `exact` holds, parsed alone, for the file registered as `base`.
inline Loaded parse_exact(const std::string &base, int32_t ugz, const std::string &exact, const char *node = "blk")
{
    Loaded out = {-2, {}};
    xml_file_hdl f = reg(nullptr, base, node, &out.blk, ugz);
    out.ret = f != nullptr ? xmlParseParamFile(f->fcom, exact.c_str()) : -2;
    kavor_unregister(f);
    return out;
}
inline int32_t gen_at(const Road &r, const std::string &exact) { return parse_exact(r.base(), r.ugz, exact).gen(); }
/// "<generation of the file>/<generation of the backup>", -1 for none whole.
inline std::string gens(const Road &r) { return std::to_string(gen_at(r, r.file())) + "/" + std::to_string(gen_at(r, r.bak())); }

/// Records up to `level` while it lives, or none when `on` is false.
inline std::optional<TraceCapture> traced_if(bool on, uint32_t level)
{
    return on ? std::optional<TraceCapture>(std::in_place, level) : std::nullopt;
}

/// Polls `cond` every few milliseconds for at most `secs` seconds.
inline bool wait_for(const std::function<bool()> &cond, double secs = 20.0)
{
    auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(secs);
    for (; !cond(); std::this_thread::sleep_for(std::chrono::milliseconds(2)))
        if (std::chrono::steady_clock::now() > until)
            return false;
    return true;
}

/// Replaces the kavor_sys table with counting wrappers for its lifetime. A failing remove or rename does
/// nothing and returns -1; a failing create returns -1 with EEXIST (something took the name); a failing
/// save_doc writes half the document and returns -1; gzip runs, fails without output or writes half its output
/// and fails, by gzip_mode. sync is counted and does nothing: a kill loses nothing of the page cache.
class SysRecorder {
public:
    enum Op { REMOVE, RENAME, SYSTEM, SAVE, SYNC, CREATE, NOPS };
    enum Gzip { REAL, FAIL, HALF };
    SysRecorder() : saved_(kavor_sys)
    {
        self_ = this;
        kavor_sys = {w_remove, w_rename, w_system, w_sync, w_create, w_save, w_step};
    }
    ~SysRecorder() { kavor_sys = saved_, self_ = nullptr; }
    SysRecorder(const SysRecorder &) = delete;
    SysRecorder &operator=(const SysRecorder &) = delete;

    /// Calls so far whose entry ("remove <p>", "rename <a> <b>", "system
    /// <cmd>", "sync", "save <p>") begins with `prefix`.
    size_t count(const std::string &prefix) const
    {
        std::lock_guard<std::mutex> hold(lock_);
        size_t n = 0;
        for (const auto &e : log_)
            n += e.compare(0, prefix.size(), prefix) == 0;
        return n;
    }
    void fail_nth(Op op, long n) { fail_at_[op] = calls_[op].load() + n; }   ///< 1: the next call
    void fail_all(Op op, bool on) { fail_all_[op] = on; }

    /// Called on the saving thread after each step, and after each remove with its path; set before a save runs.
    std::function<void(const std::string &step, const kavor_fcom_t *fcom)> on_step;
    std::function<void(const std::string &path)> after_remove;
    std::atomic<int> gzip_mode{REAL};
    /// With `nodes` set, documents given to the writer whose root holds another number count in `incomplete`.
    size_t nodes = 0;
    std::atomic<int> incomplete{0};

private:
    bool failing(Op op, const std::string &entry)
    {
        std::lock_guard<std::mutex> hold(lock_);
        log_.push_back(entry);
        long n = ++calls_[op];
        return fail_all_[op].load() || n == fail_at_[op].load();
    }
    static int w_remove(const char *p)
    {
        int rc = self_->failing(REMOVE, std::string("remove ") + p) ? -1 : self_->saved_.remove(p);
        if (self_->after_remove)
            self_->after_remove(p);
        return rc;
    }
    static int w_create(const char *p)
    {
        if (self_->failing(CREATE, std::string("create ") + p))
            return errno = EEXIST, -1;
        int fd = self_->saved_.create(p);
        std::lock_guard<std::mutex> hold(self_->lock_);
        self_->created_[fd] = p;
        return fd;
    }
    static int w_rename(const char *a, const char *b)
    {
        return self_->failing(RENAME, std::string("rename ") + a + " " + b) ? -1 : self_->saved_.rename(a, b);
    }
    static int w_system(const char *cmd)
    {
        const std::string c = cmd, target = c.substr(c.rfind("> ") + 2);
        if (self_->failing(SYSTEM, "system " + c) || self_->gzip_mode == FAIL)
            return 256;
        int rc = self_->saved_.system(cmd);
        if (self_->gzip_mode == HALF)
            rc = truncate(target.c_str(), static_cast<off_t>(read_file(target).size() / 2)) == 0 ? 256 : 512;
        return rc;
    }
    static void w_sync() { self_->failing(SYNC, "sync"); }
    static int w_save(int fd, xmlDocPtr doc, const char *enc, int fmt)
    {
        std::string p;
        {
            std::lock_guard<std::mutex> hold(self_->lock_);
            p = self_->created_[fd];
        }
        bool fail = self_->failing(SAVE, "save " + p);
        size_t kids = 0;
        for (xmlNode *c = xmlDocGetRootElement(doc) ? xmlDocGetRootElement(doc)->children : nullptr; c; c = c->next)
            kids += c->type == XML_ELEMENT_NODE;
        self_->incomplete += self_->nodes > 0 && kids != self_->nodes;
        int n = self_->saved_.save_doc(fd, doc, enc, fmt);
        return !fail ? n : n > 0 && truncate(p.c_str(), static_cast<off_t>(read_file(p).size() / 2)) != 0 ? -2 : -1;
    }
    static void w_step(const char *name, const kavor_fcom_t *fcom)
    {
        if (self_->on_step)
            self_->on_step(name, fcom);
    }

    static inline SysRecorder *self_ = nullptr;
    kavor_sys_t saved_;
    mutable std::mutex lock_;
    std::vector<std::string> log_;
    std::map<int, std::string> created_;   // descriptor -> path, for its save
    std::atomic<long> calls_[NOPS] = {}, fail_at_[NOPS] = {};
    std::atomic<bool> fail_all_[NOPS] = {};
};

}  // namespace kvtest

#endif
