/// @file vn_ipc.h
/// Engine mutexes and binary semaphores. Semaphore time-outs are measured on
/// the monotonic clock.
#ifndef VN_IPC_H
#define VN_IPC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Opaque mutex; a cell of this type is set by vn_mutex_init().
typedef void *VN_MUTEX_ID;
/// Opaque binary semaphore.
typedef void *VN_SEM_ID;

/// Makes a (non-recursive) mutex and stores it in `*id`. Returns 0 on
/// success (then `*id` is not NULL), -1 on failure (then `*id` is NULL).
int32_t vn_mutex_init(VN_MUTEX_ID *id);
/// Locks the mutex in `*id`. Returns 0, or -1 for a NULL cell.
int32_t vn_mutex_lock(VN_MUTEX_ID *id);
/// Unlocks the mutex in `*id`. Returns 0, or -1 for a NULL cell.
int32_t vn_mutex_unlock(VN_MUTEX_ID *id);
/// Releases the mutex in `*id` and sets the cell to NULL. NULL is ignored.
int32_t vn_mutex_destroy(VN_MUTEX_ID *id);

/// Makes a binary semaphore, initially given if `init` is non-zero.
/// `name` is not kept and may be NULL. Returns NULL on failure.
VN_SEM_ID vn_semb_create(const char *name, int32_t init);
/// Takes the semaphore, waiting at most `timeout_ms` milliseconds (a
/// negative value waits for ever). Returns 0 when taken, -1 on time-out or
/// for a NULL semaphore.
int32_t vn_sem_take(VN_SEM_ID sem, int32_t timeout_ms);
/// Gives the semaphore (given already or not): the next take succeeds.
/// Callable from any thread. Returns 0, or -1 for a NULL semaphore.
int32_t vn_sem_give(VN_SEM_ID sem);
/// Releases the semaphore. NULL is ignored.
int32_t vn_sem_delete(VN_SEM_ID sem);

#ifdef __cplusplus
}
#endif

#endif
