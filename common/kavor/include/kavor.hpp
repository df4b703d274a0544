/// @file kavor.hpp
/// A C++17 face over the C API of kavor.h, header-only and inline: a manager,
/// a registration and a file lock as owning types, results as plain values.
/// Nothing here changes what the C functions do; every call goes straight
/// to the C function of the same job, and no exception is thrown or needed.
///
/// Ownership follows the C rules and the types carry them:
/// - A Manager owns a kavor_hdl and is move-only. Destroying it runs
///   kavor_destroy(), which ends every registration of the manager: the
///   Registration objects that are still alive are emptied first (they hold
///   no handle afterwards), so none of them can unregister a dead node.
/// - A Registration is made only by Manager::add() and is move-only; it
///   unregisters its node when it dies. Two registrations of one node name
///   in one file would share one C handle, so the second add() gives an
///   empty Registration instead (the C library logs "file node(%s) has
///   exist!").
/// - A FileLock holds one file like std::lock_guard; it can't be copied or
///   moved. It must end before the Registration it locks (checked by an
///   assert in debug builds).
///
/// What the types can't enforce, and remains the caller's:
/// - No other thread may use the manager, or any of its registrations, while
///   the Manager is destroyed or moved from (as for kavor_destroy()).
/// - A Registration must not be destroyed or moved on one thread while
///   another thread uses it.
/// - While a FileLock is held, the same thread must not call save(), load(),
///   Manager::save_all(), Manager::load_all(), Manager::add() or let a
///   Registration of that manager die: the library's own locks come first in
///   its lock order and those calls would wait for ever (docs/locking.md).
/// - The table and the memory block given to add() must live as long as the
///   Registration.
#ifndef KAVOR_HPP
#define KAVOR_HPP

#include <cassert>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "kavor.h"

namespace kavor {

/// Result of a load: the C values 0, 1 and -1.
enum class Load : int32_t {
    ok = 0,         ///< parsed and filled
    recovered = 1,  ///< filled by the recovery parser: possibly partial
    failed = -1,    ///< nothing filled
};

/// The Load of a C load result.
inline Load to_load(int32_t r)
{
    return r == 0 ? Load::ok : r == 1 ? Load::recovered : Load::failed;
}

/// How a file is stored: the `ugz` field of the request.
enum class Storage : int32_t {
    gzip = 0,   ///< "<stem>.xml.gz"
    plain = 1,  ///< "<stem>.xml"
};

/// Save state of a file: the C values of kavor_file_on_saving().
enum class Saving : int32_t {
    done = 0,     ///< nothing to do
    marked = 1,   ///< requested, not written yet
    written = 2,  ///< written, not yet flushed
};

/// A registration request with its strings checked: a name that doesn't fit
/// its field is refused, never cut (a cut path would be another file).
class Request {
public:
    /// Fills the request. `virtfile` NULL or empty: no virtual file. The
    /// request is empty (ok() false) when a name is NULL, empty or too long.
    Request(const char *filename, const char *node_name, xml_pd_t *table, void *mem,
            Storage storage = Storage::gzip, const char *virtfile = nullptr)
    {
        std::memset(&rgst_, 0, sizeof(rgst_));
        ok_ = copy(rgst_.filename, sizeof(rgst_.filename), filename, false) &&
              copy(rgst_.node_name, sizeof(rgst_.node_name), node_name, false) &&
              copy(rgst_.virtfile, sizeof(rgst_.virtfile), virtfile, true);
        rgst_.param_desc = table;
        rgst_.mem = mem;
        rgst_.ugz = static_cast<int32_t>(storage);
    }
    /// True when every name fitted.
    bool ok() const { return ok_; }
    /// The C request; the C functions may write its `virtfile` (a final NUL).
    kavor_file_rgst_t *get() { return &rgst_; }

private:
    static bool copy(char *dst, size_t cap, const char *src, bool may_be_empty)
    {
        if (src == nullptr || src[0] == '\0')
            return may_be_empty;
        size_t n = std::strlen(src);
        if (n >= cap)
            return false;
        std::memcpy(dst, src, n + 1);
        return true;
    }
    kavor_file_rgst_t rgst_;
    bool ok_ = false;
};

/// One-shot: writes the request's block to its file (no manager, no backup).
/// False when the request is empty or the write failed.
inline bool param2file(Request &req)
{
    return req.ok() && kavor_param2file(req.get()) == 0;
}

/// One-shot: fills the request's block from its file.
inline Load file2param(Request &req)
{
    return req.ok() ? to_load(kavor_file2param(req.get())) : Load::failed;
}

/// One-shot with policies (KAVOR_POLICY_EXACT_FLOATS), see
/// kavor_param2file_v2().
inline bool param2file(Request &req, uint32_t policies)
{
    return req.ok() && kavor_param2file_v2(req.get(), policies) == 0;
}

/// One-shot with policies, filling `report` when it isn't NULL, see
/// kavor_file2param_v2().
inline Load file2param(Request &req, uint32_t policies, kavor_load_report_t *report = nullptr)
{
    return req.ok() ? to_load(kavor_file2param_v2(req.get(), policies, report)) : Load::failed;
}

class Manager;
class FileLock;
class Registration;

namespace detail {
// The live registrations of one manager, so that the manager can empty them
// before kavor_destroy() ends their nodes. On the heap, so that a Manager can
// move without touching its registrations.
struct Registry {
    std::mutex mu;
    Registration *head = nullptr;
};
} // namespace detail

/// One registered node, owned: unregistered when it dies. Made by
/// Manager::add(); empty when default-made, moved from, refused, or when its
/// manager has gone.
class Registration {
public:
    Registration() = default;
    Registration(const Registration &) = delete;
    Registration &operator=(const Registration &) = delete;
    Registration(Registration &&other) noexcept { take(other); }
    Registration &operator=(Registration &&other) noexcept
    {
        if (this != &other) {
            reset();
            take(other);
        }
        return *this;
    }
    ~Registration() { reset(); }

    /// Unregisters the node now; the object is empty afterwards.
    void reset()
    {
        assert(locks_ == 0 && "a FileLock outlives its Registration");
        xml_file_hdl h = detach();
        if (h != nullptr)
            kavor_unregister(h);
    }
    /// True while the object holds a node.
    explicit operator bool() const { return h_ != nullptr; }
    /// The C handle, NULL when empty. Still owned by this object.
    xml_file_hdl get() const { return h_; }

    /// kavor_load_one(): loads the node's file, with every node of it.
    Load load() { return h_ ? to_load(kavor_load_one(h_)) : Load::failed; }
    /// kavor_save_one(): marks the file; the manager's task writes it later.
    bool save() { return h_ != nullptr && kavor_save_one(h_) == 0; }
    /// kavor_file_on_saving().
    Saving saving() const
    {
        return h_ ? static_cast<Saving>(kavor_file_on_saving(h_)) : Saving::done;
    }
    /// kavor_load_report(): what the file's last load found; `loaded` false
    /// when there was none (or the object is empty).
    kavor_load_report_t report(bool *loaded = nullptr) const
    {
        kavor_load_report_t r{};
        r.result = -1;
        int32_t got = h_ ? kavor_load_report(h_, &r) : -1;
        if (loaded != nullptr)
            *loaded = got == 0;
        return r;
    }
    /// kavor_save_status(): whether the file's saves succeed (all zero when
    /// the object is empty).
    kavor_save_status_t save_status() const
    {
        kavor_save_status_t s{};
        if (h_)
            kavor_save_status(h_, &s);
        return s;
    }
    /// kavor_delete_one(): removes the file and its backup from disk.
    void delete_files()
    {
        if (h_)
            kavor_delete_one(h_);
    }
    /// Runs `f` with the file locked (see FileLock) and returns its result.
    template <class F> auto locked(F &&f) -> decltype(f());

private:
    friend class Manager;
    friend class FileLock;

    // Caller holds reg->mu.
    Registration(detail::Registry *reg, xml_file_hdl h) : reg_(reg), h_(h) { link_locked(); }

    void link()
    {
        std::lock_guard<std::mutex> g(reg_->mu);
        link_locked();
    }
    void link_locked()
    {
        prev_ = nullptr;
        next_ = reg_->head;
        if (next_ != nullptr)
            next_->prev_ = this;
        reg_->head = this;
    }
    // Off the registry's list; caller holds the registry's mutex.
    void unlink_locked()
    {
        if (prev_ != nullptr)
            prev_->next_ = next_;
        else
            reg_->head = next_;
        if (next_ != nullptr)
            next_->prev_ = prev_;
        prev_ = next_ = nullptr;
    }
    // Empties the object; returns the handle it held.
    xml_file_hdl detach()
    {
        if (reg_ != nullptr) {
            std::lock_guard<std::mutex> g(reg_->mu);
            unlink_locked();
        }
        reg_ = nullptr;
        return std::exchange(h_, nullptr);
    }
    void take(Registration &other)
    {
        assert(other.locks_ == 0 && "a locked Registration is moved");
        detail::Registry *reg = other.reg_;
        xml_file_hdl h = other.detach();
        if (h != nullptr && reg != nullptr) {
            reg_ = reg;
            h_ = h;
            link();
        }
    }

    detail::Registry *reg_ = nullptr;
    xml_file_hdl h_ = nullptr;
    Registration *prev_ = nullptr;
    Registration *next_ = nullptr;
    int locks_ = 0;  // FileLocks alive; changed under the file's own mutex
};

/// Holds one file against saves and loads (kavor_file_lock()) for its
/// lifetime, like std::lock_guard. An empty Registration locks nothing.
class FileLock {
public:
    explicit FileLock(Registration &r) : r_(r)
    {
        if (r_.h_ != nullptr) {
            kavor_file_lock(r_.h_);
            r_.locks_++;
        }
    }
    ~FileLock()
    {
        if (r_.h_ != nullptr) {
            r_.locks_--;
            kavor_file_unlock(r_.h_);
        }
    }
    FileLock(const FileLock &) = delete;
    FileLock &operator=(const FileLock &) = delete;

private:
    Registration &r_;
};

template <class F> auto Registration::locked(F &&f) -> decltype(f())
{
    FileLock hold(*this);
    return f();
}

/// A manager with its save task, owned: kavor_destroy() when it dies.
class Manager {
public:
    /// kavor_create_v2(): a manager whose task saves `save_delay_ms` after
    /// the last request (rounded up to 500 ms). Empty on failure.
    static Manager create(const char *name, int32_t save_delay_ms = 1000)
    {
        Manager m;
        detail::Registry *reg = new (std::nothrow) detail::Registry;
        if (reg == nullptr)
            return m;
        m.h_ = kavor_create_v2(name, save_delay_ms);
        if (m.h_ == nullptr) {
            delete reg;
            return m;
        }
        m.reg_ = reg;
        return m;
    }

    Manager() = default;
    Manager(const Manager &) = delete;
    Manager &operator=(const Manager &) = delete;
    Manager(Manager &&other) noexcept
        : h_(std::exchange(other.h_, nullptr)), reg_(std::exchange(other.reg_, nullptr))
    {
    }
    Manager &operator=(Manager &&other) noexcept
    {
        if (this != &other) {
            reset();
            h_ = std::exchange(other.h_, nullptr);
            reg_ = std::exchange(other.reg_, nullptr);
        }
        return *this;
    }
    ~Manager() { reset(); }

    /// Empties every live Registration of the manager, then kavor_destroy().
    /// Makes no last save: see any_on_saving().
    void reset()
    {
        if (reg_ != nullptr) {
            std::lock_guard<std::mutex> g(reg_->mu);
            while (reg_->head != nullptr) {
                Registration *r = reg_->head;
                assert(r->locks_ == 0 && "a FileLock outlives its Manager");
                r->unlink_locked();
                r->reg_ = nullptr;
                r->h_ = nullptr;
            }
        }
        kavor_destroy(std::exchange(h_, nullptr));
        delete std::exchange(reg_, nullptr);
    }
    explicit operator bool() const { return h_ != nullptr; }
    /// The C handle, NULL when empty. Still owned by this object.
    kavor_hdl get() const { return h_; }

    /// kavor_register(): registers the request's block. Empty when the
    /// request or the registration is refused, or when that node of that
    /// file is already held by a live Registration.
    Registration add(Request &req)
    {
        if (h_ == nullptr || !req.ok())
            return Registration();
        // One lock over the registration and the ownership test, so that two
        // threads adding one node can't both come to own it.
        std::lock_guard<std::mutex> g(reg_->mu);
        xml_file_hdl h = kavor_register(h_, req.get());
        if (h == nullptr || held_locked(h))
            return Registration();
        return Registration(reg_, h);
    }
    /// The same, with the request made here.
    Registration add(const char *filename, const char *node_name, xml_pd_t *table, void *mem,
                     Storage storage = Storage::gzip, const char *virtfile = nullptr)
    {
        Request req(filename, node_name, table, mem, storage, virtfile);
        return add(req);
    }

    /// kavor_load_all(): -1 if any file failed, else 1 if any recovered.
    Load load_all() { return h_ ? to_load(kavor_load_all(h_)) : Load::failed; }
    /// kavor_save_all(): marks every file; the task writes them later.
    bool save_all() { return h_ != nullptr && kavor_save_all(h_) == 0; }
    /// The file name of the first file still on saving; empty if none. A
    /// copy made under the manager's lock (kavor_any_on_saving_copy()), so
    /// another thread may end that file meanwhile.
    std::string any_on_saving() const
    {
        char name[256];  // holds every file name
        int32_t n = h_ ? kavor_any_on_saving_copy(h_, name, sizeof(name)) : -1;
        return n > 0 ? std::string(name, static_cast<size_t>(n)) : std::string();
    }
    /// kavor_count_all_filename(): the number of files (not nodes).
    uint32_t file_count() const { return h_ ? kavor_count_all_filename(h_) : 0; }
    /// kavor_get_all_filename(): the root element names of the files.
    std::vector<std::string> file_names() const
    {
        std::vector<std::string> names;
        uint32_t n = file_count();
        if (n == 0)
            return names;
        // A root element name is at most a file name's 127 bytes, plus NUL.
        std::vector<uint8_t> buf(static_cast<size_t>(n) * 128 + 128);
        uint32_t got = kavor_get_all_filename(h_, buf.data(), buf.size());
        const char *p = reinterpret_cast<const char *>(buf.data());
        for (uint32_t i = 0; i < got; i++) {
            names.emplace_back(p);
            p += names.back().size() + 1;
        }
        return names;
    }
    /// kavor_flush(): true once every file marked so far is saved, false at
    /// the time-out (a negative one waits without limit).
    bool flush(int32_t timeout_ms) { return h_ != nullptr && kavor_flush(h_, timeout_ms) == 0; }
    /// kavor_set_policy(): KAVOR_POLICY_* or'ed, for the loads and saves
    /// that begin afterwards. False for an unknown bit or an empty object.
    bool set_policy(uint32_t policies)
    {
        return h_ != nullptr && kavor_set_policy(h_, policies) == 0;
    }
    /// kavor_delete_all(): removes every file and its backup from disk.
    void delete_all()
    {
        if (h_)
            kavor_delete_all(h_);
    }

private:
    bool held_locked(xml_file_hdl h) const
    {
        for (Registration *r = reg_->head; r != nullptr; r = r->next_)
            if (r->h_ == h)
                return true;
        return false;
    }

    kavor_hdl h_ = nullptr;
    detail::Registry *reg_ = nullptr;
};

/// param_xml_check(): the number of bad rows of `table`, 0 when good.
inline int check(const struct pdesc *table)
{
    return param_xml_check(table);
}

} // namespace kavor

#endif
