/// @file vn_task.h
/// Engine tasks. A task record starts with the engine's head (vn_task_t);
/// users embed it as the first member of a larger record and ask
/// vn_task_create() for the size of the whole record. A started task runs
/// `pf_process` again and again on a thread of its own.
#ifndef VN_TASK_H
#define VN_TASK_H

#include <stdint.h>

#include "vn_ipc.h"
#include "vn_thread.h"
#include "vn_tube.h"

#ifdef __cplusplus
extern "C" {
#endif

/// Opaque handle of a task: the address of its record.
typedef void *vn_task_handle;

/// Description of one run-time parameter of a task (unused by this engine).
typedef struct {
    intptr_t offset;
    uint32_t type;
    uint32_t size;
    uint32_t min;
    uint32_t max;
} params_def_t;

/// The engine's head of every task record.
typedef struct {
    uint32_t real_time_rst;
    uint32_t malloc_free_rst;
    uint32_t start_stop_rst;
    uint32_t change_flg;
    params_def_t *tab;
    uint32_t params_nums;
    uint32_t exit_ctl;        ///< set by vn_task_stop(); read by the task loop
    uint32_t exit_done_flg;   ///< set once the task loop has ended
    void *params;
    VN_THREAD_ID tsk_id;      ///< the task's thread, NULL until started
    VN_MUTEX_ID mux;
    /// Stack size of the task's thread in bytes; 0 keeps the system default.
    /// A smaller non-zero size is raised to 256 KiB (1 MiB in sanitizer
    /// builds) so that parsing and compression on the task stay safe.
    uint32_t stack_size;
    char task_name[32];
    linker_t outs;
    linker_t ins;
    int32_t (*pf_rt_set)(vn_task_handle);
    int32_t (*pf_start_stop)(vn_task_handle);
    int32_t (*pf_malloc_free)(vn_task_handle);
    int32_t (*pf_process)(vn_task_handle);   ///< one unit of the task's work
    void (*pf_start_stop_delete)(vn_task_handle);
    void (*pf_malloc_free_delete)(vn_task_handle);
    uint32_t not_started;     ///< 1 until vn_task_start() has started the thread
} vn_task_t;

/// Allocates a zero-filled record of `size` bytes (at least the head) and
/// names it after `name` (not kept; NULL gives an empty name). Returns NULL
/// on failure.
vn_task_handle vn_task_create(const char *name, uint32_t size);

/// Starts the task's thread, which calls `pf_process(task)` again and again
/// until vn_task_stop(). `prio` is accepted for compatibility and ignored.
/// Returns 0, or -1 if the task has no `pf_process`, is started already or
/// the thread could not be made.
int32_t vn_task_start(vn_task_handle task, int32_t prio);

/// Stops the task: on return no `pf_process` runs or will run. Accepts a
/// task that was never started. Must not be called from the task itself.
/// Returns 0, or -1 for NULL.
int32_t vn_task_stop(vn_task_handle task);

/// Releases a stopped (or never started) task record. NULL is ignored.
int32_t vn_task_delete(vn_task_handle task);

#ifdef __cplusplus
}
#endif

#endif
