// vn_ipc.cpp - mutexes and binary semaphores over POSIX threads.
//
// Mutexes are error-checking (a relock by the owner fails instead of
// hanging). A binary semaphore is one flag under a mutex and a condition
// variable bound to CLOCK_MONOTONIC: give sets the flag, take waits for it
// until a deadline on that clock and clears it. Invariant: the flag is only
// read or written with the semaphore's mutex held. Every entry accepts NULL.
#include "vn_ipc.h"

#include <errno.h>
#include <pthread.h>
#include <time.h>

#include "vn_mem.h"

namespace {

struct binary_sem {
    pthread_mutex_t lock;
    pthread_cond_t cond;
    int given;
};

pthread_mutex_t *mutex_of(VN_MUTEX_ID *id)
{
    return id ? static_cast<pthread_mutex_t *>(*id) : nullptr;
}

// The monotonic time `ms` milliseconds from now.
struct timespec deadline_after(int32_t ms)
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    ts.tv_sec += ms / 1000;
    ts.tv_nsec += static_cast<long>(ms % 1000) * 1000000L;
    if (ts.tv_nsec >= 1000000000L) {
        ts.tv_sec += 1;
        ts.tv_nsec -= 1000000000L;
    }
    return ts;
}

bool init_sem(binary_sem *s, int32_t init)
{
    pthread_condattr_t attr;
    if (pthread_condattr_init(&attr) != 0)
        return false;
    bool ok = pthread_condattr_setclock(&attr, CLOCK_MONOTONIC) == 0 &&
              pthread_cond_init(&s->cond, &attr) == 0;
    pthread_condattr_destroy(&attr);
    if (!ok)
        return false;
    if (pthread_mutex_init(&s->lock, nullptr) != 0) {
        pthread_cond_destroy(&s->cond);
        return false;
    }
    s->given = init ? 1 : 0;
    return true;
}

}  // namespace

extern "C" int32_t vn_mutex_init(VN_MUTEX_ID *id)
{
    if (!id)
        return -1;
    *id = nullptr;
    auto *m = static_cast<pthread_mutex_t *>(_vn_malloc(sizeof(pthread_mutex_t), "vn_mutex_init"));
    if (!m)
        return -1;
    pthread_mutexattr_t attr;
    bool ok = pthread_mutexattr_init(&attr) == 0;
    if (ok) {
        ok = pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_ERRORCHECK) == 0 &&
             pthread_mutex_init(m, &attr) == 0;
        pthread_mutexattr_destroy(&attr);
    }
    if (!ok) {
        _vn_free(m, "vn_mutex_init");
        return -1;
    }
    *id = m;
    return 0;
}

extern "C" int32_t vn_mutex_lock(VN_MUTEX_ID *id)
{
    pthread_mutex_t *m = mutex_of(id);
    if (!m)
        return -1;
    return pthread_mutex_lock(m) == 0 ? 0 : -1;
}

extern "C" int32_t vn_mutex_unlock(VN_MUTEX_ID *id)
{
    pthread_mutex_t *m = mutex_of(id);
    if (!m)
        return -1;
    return pthread_mutex_unlock(m) == 0 ? 0 : -1;
}

extern "C" int32_t vn_mutex_destroy(VN_MUTEX_ID *id)
{
    pthread_mutex_t *m = mutex_of(id);
    if (!m)
        return -1;
    pthread_mutex_destroy(m);
    _vn_free(m, "vn_mutex_destroy");
    *id = nullptr;
    return 0;
}

extern "C" VN_SEM_ID vn_semb_create(const char *name, int32_t init)
{
    (void)name;
    auto *s = static_cast<binary_sem *>(_vn_malloc(sizeof(binary_sem), "vn_semb_create"));
    if (!s)
        return nullptr;
    if (!init_sem(s, init)) {
        _vn_free(s, "vn_semb_create");
        return nullptr;
    }
    return s;
}

extern "C" int32_t vn_sem_take(VN_SEM_ID sem, int32_t timeout_ms)
{
    auto *s = static_cast<binary_sem *>(sem);
    if (!s)
        return -1;
    struct timespec until = deadline_after(timeout_ms > 0 ? timeout_ms : 0);
    pthread_mutex_lock(&s->lock);
    while (!s->given && timeout_ms != 0) {
        int rc = timeout_ms < 0 ? pthread_cond_wait(&s->cond, &s->lock)
                                : pthread_cond_timedwait(&s->cond, &s->lock, &until);
        if (rc == ETIMEDOUT)
            break;
    }
    int32_t result = s->given ? 0 : -1;
    s->given = 0;
    pthread_mutex_unlock(&s->lock);
    return result;
}

extern "C" int32_t vn_sem_give(VN_SEM_ID sem)
{
    auto *s = static_cast<binary_sem *>(sem);
    if (!s)
        return -1;
    pthread_mutex_lock(&s->lock);
    s->given = 1;
    pthread_cond_signal(&s->cond);
    pthread_mutex_unlock(&s->lock);
    return 0;
}

extern "C" int32_t vn_sem_delete(VN_SEM_ID sem)
{
    auto *s = static_cast<binary_sem *>(sem);
    if (!s)
        return -1;
    pthread_cond_destroy(&s->cond);
    pthread_mutex_destroy(&s->lock);
    _vn_free(s, "vn_sem_delete");
    return 0;
}
