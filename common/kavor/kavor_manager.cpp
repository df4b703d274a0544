// kavor_manager.cpp - the manager: its creation and teardown, and the save
// task's tick, which paces the sweeps of kavor_save.cpp.
//
// A manager is an engine task record with the manager's fields behind the
// engine's head. Its task calls xml_save_process again and again; each call
// waits up to 500 ms for the semaphore sem_sav, which every save request
// gives. sv_dly counts the quiet time since the last request in steps of
// 500 ms (negative: idle); once it reaches sv_dly_lmt, one sweep saves every
// marked file. So a burst of requests ends in one write per file, a request
// during a sweep leads to another sweep one delay later, and a delay of 0 or
// less sweeps in the tick that took the request.
//
// Invariants: sv_dly is written by the task alone once it runs and
// sv_dly_lmt is fixed before it starts, so neither needs a lock; sv_dly_lmt
// is at most KAVOR_SAVE_DLY_MAX_MS, so sv_dly never overflows; teardown
// stops the task before it releases anything, and a half-built record is
// torn down by the same path, guided by the *_valid flags.
#include <string.h>

#include "kavor_private.h"
#include "strmisc.h"
#include "vn_mem.h"
#include "xml_trace.h"

namespace {

const char kCreateTag[] = "kavor_create_v2";
const char kDestroyTag[] = "kavor_destroy";
const int32_t kTickMs = 500;
static_assert(KAVOR_SAVE_DLY_MAX_MS % kTickMs == 0 && KAVOR_SAVE_DLY_MAX_MS > INT32_MAX - kTickMs,
              "the largest delay is the top multiple of the tick");

// "<prefix><name>", or NULL after the message `fail_fmt` (creation goes on
// with a NULL name).
char *object_name(const char *prefix, const char *name, const char *fail_fmt)
{
    char *nm = _string_join(prefix, name, kCreateTag);
    if (nm == NULL)
        KV_LOGF(kCreateTag, 4, fail_fmt, name);
    return nm;
}


// The manager's own parts: load mutex, semaphore, list lock. 0, or -1 after
// a level-4 message.
int32_t manager_init(kavor_mobj_t *obj, const char *name)
{
    if (vn_mutex_init(&obj->mtx_ld) != 0) {
        KV_LOGF(kCreateTag, 4, "kavor object(%s) mutex init fail!", name);
        return -1;
    }
    obj->mtx_ld_valid = 1;
    char *nm = object_name("kavor_sem_", name, "kavor sem name (%s) error!");
    obj->sem_sav = vn_semb_create(nm, 0);
    _vn_free(nm, kCreateTag);
    if (obj->sem_sav == NULL) {
        KV_LOGF(kCreateTag, 4, "semphore %s create fail!", name);
        return -1;
    }
    obj->sem_sav_valid = 1;
    if (pthread_rwlock_init(&obj->fcom_rwlock, NULL) != 0) {
        KV_LOGF(kCreateTag, 4, "fcom_rwlock %s create fail!", name);
        return -1;
    }
    obj->fcom_rwlock_valid = 1;
    return 0;
}

}  // namespace

int32_t xml_save_process(vn_task_handle h)
{
    kavor_mobj_t *obj = (kavor_mobj_t *)h;
    if (vn_sem_take(obj->sem_sav, kTickMs) == 0) {
        KV_LOG(8, "kavor_obj take semphore, delay save.");
        obj->sv_dly = 0;
    } else if (obj->sv_dly < 0) {
        return 0;
    }
    if (obj->sv_dly_lmt > obj->sv_dly) {
        obj->sv_dly += kTickMs;
        return 0;
    }
    kavor_save_sweep(obj);
    return 0;
}

extern "C" kavor_hdl kavor_create(const char *name)
{
    return kavor_create_v2(name, 1000);
}

extern "C" kavor_hdl kavor_create_v2(const char *name, int32_t save_dly_ms)
{
    if (name == NULL) {
        KV_LOG(4, "kavor module name NULL!");
        return NULL;
    }
    char *nm = object_name("kavor_tsk_", name, "kavor task name (%s) error!");
    kavor_mobj_t *obj = (kavor_mobj_t *)vn_task_create(nm, sizeof(kavor_mobj_t));
    _vn_free(nm, kCreateTag);
    if (obj == NULL) {
        KV_LOG(4, "kavor object(%s) create fail!", name);
        return NULL;
    }
    if (manager_init(obj, name) != 0) {
        kavor_destroy(obj);
        return NULL;
    }
    obj->task.stack_size = 0x10000;
    obj->task.pf_process = xml_save_process;
    // The count stops at the first multiple of the tick not below the
    // delay; above the largest one that an int32_t holds it would overflow.
    obj->sv_dly_lmt = save_dly_ms < KAVOR_SAVE_DLY_MAX_MS ? save_dly_ms : KAVOR_SAVE_DLY_MAX_MS;
    obj->sv_dly = 0;
    // The manager is returned even if its task can't start: requests then
    // mark files that nothing saves, which kavor_any_on_saving shows.
    if (vn_task_start(obj, 50) != 0)
        KV_LOG(4, "kavor task (%s) start fail, files will not be saved!", name);
    return obj;
}

void files_rdlock(kavor_mobj_t *mobj)
{
    if (mobj != NULL && mobj->fcom_rwlock_valid > 0)
        pthread_rwlock_rdlock(&mobj->fcom_rwlock);
}

void files_wrlock(kavor_mobj_t *mobj)
{
    if (mobj != NULL && mobj->fcom_rwlock_valid > 0)
        pthread_rwlock_wrlock(&mobj->fcom_rwlock);
}

void files_unlock(kavor_mobj_t *mobj)
{
    if (mobj != NULL && mobj->fcom_rwlock_valid > 0)
        pthread_rwlock_unlock(&mobj->fcom_rwlock);
}

extern "C" void kavor_destroy(kavor_hdl hdl)
{
    if (hdl == NULL)
        return;
    vn_task_stop(hdl);
    if (hdl->sem_sav_valid > 0)
        vn_sem_delete(hdl->sem_sav);
    if (hdl->mtx_ld_valid > 0)
        vn_mutex_destroy(&hdl->mtx_ld);
    if (hdl->fcom_rwlock_valid > 0)
        pthread_rwlock_destroy(&hdl->fcom_rwlock);
    while (hdl->fcom_lst != NULL)
        kavor_fcom_free((kavor_fcom_t *)zlst_pop(&hdl->fcom_lst), kDestroyTag);
    vn_task_delete(hdl);
}
