// vn_task.cpp - engine tasks on POSIX threads.
//
// A started task owns one thread that calls pf_process(task) again and again
// until exit_ctl is set. The thread's identity lives in a small private
// record hung off the head's tsk_id. Invariant: once vn_task_stop() has
// returned, the thread has been joined, so no pf_process runs or will run;
// the join happens at most once, under the record's own lock, so stopping
// twice (even from two threads) is harmless.
#include "vn_task.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "vn_mem.h"

namespace {

// Smallest stack a task thread gets, whatever stack_size asks: parsing and
// compressing run on task threads, and sanitizer builds need far larger frames.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr size_t kStackFloor = 1024 * 1024;
#else
constexpr size_t kStackFloor = 256 * 1024;
#endif

struct task_thread {
    pthread_t thread;
    pthread_mutex_t join_lock;   // serialises the join of concurrent stops
    bool joined;
};

vn_task_t *head_of(vn_task_handle task)
{
    return static_cast<vn_task_t *>(task);
}

bool exit_asked(vn_task_t *t)
{
    return __atomic_load_n(&t->exit_ctl, __ATOMIC_ACQUIRE) != 0;
}

void *task_main(void *arg)
{
    vn_task_t *t = head_of(arg);
    while (!exit_asked(t))
        t->pf_process(t);
    __atomic_store_n(&t->exit_done_flg, 1u, __ATOMIC_RELEASE);
    return nullptr;
}

// The stack size to ask for: 0 keeps the system default; anything else is
// raised to the floor and rounded up to whole pages.
size_t stack_bytes(uint32_t asked)
{
    if (asked == 0)
        return 0;
    size_t size = asked < kStackFloor ? kStackFloor : asked;
    long page = sysconf(_SC_PAGESIZE);
    size_t p = page > 0 ? static_cast<size_t>(page) : 4096;
    return (size + p - 1) / p * p;
}

bool spawn(task_thread *tt, vn_task_t *t)
{
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0)
        return false;
    size_t stack = stack_bytes(t->stack_size);
    bool ok = stack == 0 || pthread_attr_setstacksize(&attr, stack) == 0;
    ok = ok && pthread_create(&tt->thread, &attr, task_main, t) == 0;
    pthread_attr_destroy(&attr);
    if (ok) {
        char short_name[16];
        std::snprintf(short_name, sizeof short_name, "%.15s", t->task_name);
        pthread_setname_np(tt->thread, short_name);
    }
    return ok;
}

}  // namespace

extern "C" vn_task_handle vn_task_create(const char *name, uint32_t size)
{
    size_t bytes = size < sizeof(vn_task_t) ? sizeof(vn_task_t) : size;
    auto *t = static_cast<vn_task_t *>(_vn_malloc(bytes, "vn_task_create"));
    if (!t)
        return nullptr;
    std::memset(t, 0, bytes);
    if (name) {
        std::strncpy(t->task_name, name, sizeof t->task_name - 1);
        t->task_name[sizeof t->task_name - 1] = '\0';
    }
    t->not_started = 1;
    return t;
}

extern "C" int32_t vn_task_start(vn_task_handle task, int32_t prio)
{
    (void)prio;
    vn_task_t *t = head_of(task);
    if (!t || !t->pf_process || t->tsk_id)
        return -1;
    auto *tt = static_cast<task_thread *>(_vn_malloc(sizeof(task_thread), "vn_task_start"));
    if (!tt)
        return -1;
    tt->joined = false;
    if (pthread_mutex_init(&tt->join_lock, nullptr) != 0) {
        _vn_free(tt, "vn_task_start");
        return -1;
    }
    __atomic_store_n(&t->exit_ctl, 0u, __ATOMIC_RELEASE);
    t->exit_done_flg = 0;
    if (!spawn(tt, t)) {
        pthread_mutex_destroy(&tt->join_lock);
        _vn_free(tt, "vn_task_start");
        return -1;
    }
    t->tsk_id = tt;
    t->not_started = 0;
    return 0;
}

extern "C" int32_t vn_task_stop(vn_task_handle task)
{
    vn_task_t *t = head_of(task);
    if (!t)
        return -1;
    __atomic_store_n(&t->exit_ctl, 1u, __ATOMIC_RELEASE);
    auto *tt = static_cast<task_thread *>(t->tsk_id);
    if (!tt)
        return 0;
    pthread_mutex_lock(&tt->join_lock);
    if (!tt->joined) {
        pthread_join(tt->thread, nullptr);
        tt->joined = true;
    }
    pthread_mutex_unlock(&tt->join_lock);
    return 0;
}

extern "C" int32_t vn_task_delete(vn_task_handle task)
{
    vn_task_t *t = head_of(task);
    if (!t)
        return -1;
    auto *tt = static_cast<task_thread *>(t->tsk_id);
    if (tt) {
        vn_task_stop(t);   // a caller that forgot the stop must not free a running task
        pthread_mutex_destroy(&tt->join_lock);
        _vn_free(tt, "vn_task_delete");
    }
    _vn_free(t, "vn_task_delete");
    return 0;
}
