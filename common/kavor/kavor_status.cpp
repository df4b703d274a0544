// kavor_status.cpp - what an application can ask about a file and choose
// for a manager: the report of the file's last load, the state of its saves,
// a wait until the files marked so far are saved, and the policies.
//
// The load fills a file's report and the save road its save status, both
// under the file's f_mutex (kavor_load.cpp, kavor_save.cpp, through the
// status_* functions below); the queries copy them under the same mutex.
//
// The wait needs no lock of a file: each mark takes the next number of the
// manager's count (mark_seq). A file's pend_seq is the oldest mark that no
// write has taken up yet, inflight_seq the oldest that the write in progress
// takes up (a failed attempt gives it back to pend_seq). A file marked before
// the wait began is saved once neither holds a number at or below the count
// that the wait began with.
#include <errno.h>
#include <string.h>
#include <time.h>

#include "kavor_private.h"
#include "vn_mem.h"
#include "vn_time.h"
#include "xml_trace.h"

namespace {

const char kTag[] = "kavor_load_report";
const int32_t kFlushPollMs = 10;

uint64_t seq_get(const uint64_t *p)
{
    return __atomic_load_n(p, __ATOMIC_ACQUIRE);
}

void seq_set(uint64_t *p, uint64_t v)
{
    __atomic_store_n(p, v, __ATOMIC_RELEASE);
}

// The older of two marks, 0 standing for none.
uint64_t older(uint64_t a, uint64_t b)
{
    return a == 0 ? b : (b == 0 || a < b) ? a : b;
}

// The file of a node that has a manager, or NULL after a level-4 message.
kavor_fcom_t *managed_file(xml_file_hdl hdl, const void *out, const char *fname,
                           const char *what)
{
    if (hdl == NULL) {
        KV_LOGF(fname, 4, "xml_file_hdl is NULL.");
        return NULL;
    }
    if (out == NULL) {
        KV_LOGF(fname, 4, "%s is NULL.", what);
        return NULL;
    }
    if (hdl->fcom == NULL || hdl->fcom->mobj == NULL) {
        KV_LOGF(fname, 4, "file node (%s) has no manager!", hdl->node_name);
        return NULL;
    }
    return hdl->fcom;
}

// True when no mark of the file at or below `seq` waits for its save.
bool saved_up_to(const kavor_fcom_t *fcom, uint64_t seq)
{
    uint64_t oldest = older(seq_get(&fcom->pend_seq), seq_get(&fcom->inflight_seq));
    return oldest == 0 || oldest > seq;
}

bool all_saved_up_to(kavor_mobj_t *mobj, uint64_t seq)
{
    bool done = true;
    files_rdlock(mobj);
    for (struct znode *n = mobj->fcom_lst; n != NULL && done; n = n->next)
        done = saved_up_to((const kavor_fcom_t *)n, seq);
    files_unlock(mobj);
    return done;
}

void sleep_ms(int32_t ms)
{
    struct timespec ts = {ms / 1000, (long)(ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

}  // namespace

// ---- kept by the load and the save road, under f_mutex -----------------------

void status_mark(kavor_fcom_t *fcom)
{
    uint64_t seq = __atomic_add_fetch(&fcom->mobj->mark_seq, 1, __ATOMIC_ACQ_REL);
    if (fcom->pend_seq == 0)
        seq_set(&fcom->pend_seq, seq);
}

void status_write_begins(kavor_fcom_t *fcom)
{
    seq_set(&fcom->inflight_seq, older(fcom->inflight_seq, fcom->pend_seq));
    seq_set(&fcom->pend_seq, 0);
}

void status_failed(kavor_fcom_t *fcom, int32_t step, int32_t err)
{
    fcom->save_st.attempts++;
    fcom->save_st.failed_step = step;
    fcom->save_st.failed_errno = err;
    seq_set(&fcom->pend_seq, older(fcom->pend_seq, fcom->inflight_seq));
    seq_set(&fcom->inflight_seq, 0);
}

void status_saved(kavor_fcom_t *fcom)
{
    fcom->save_st.attempts = 0;
    fcom->save_st.saves++;
    fcom->save_st.saved_uptime_ms = vn_uptime_ms();
    fcom->save_st.saved_time = (int64_t)time(NULL);
    seq_set(&fcom->inflight_seq, 0);
}

kavor_load_report_t *status_report(kavor_fcom_t *fcom)
{
    if (fcom->report == NULL)
        fcom->report = (kavor_load_report_t *)_vn_malloc(sizeof(*fcom->report), kTag);
    if (fcom->report != NULL)
        memset(fcom->report, 0, sizeof(*fcom->report));
    return fcom->report;
}

void status_release(kavor_fcom_t *fcom, const char *tag)
{
    _vn_free(fcom->report, tag);
    fcom->report = NULL;
}

// ---- the application's calls -----------------------------------------------

extern "C" int32_t kavor_load_report(xml_file_hdl hdl, kavor_load_report_t *report)
{
    kavor_fcom_t *fcom = managed_file(hdl, report, __func__, "report");
    if (fcom == NULL)
        return -1;
    int32_t ret = 0;
    vn_mutex_lock(&fcom->f_mutex);
    if (fcom->report != NULL) {
        *report = *fcom->report;
    } else {
        memset(report, 0, sizeof(*report));
        report->result = -1;
        ret = 1;
    }
    vn_mutex_unlock(&fcom->f_mutex);
    return ret;
}

extern "C" int32_t kavor_save_status(xml_file_hdl hdl, kavor_save_status_t *status)
{
    kavor_fcom_t *fcom = managed_file(hdl, status, __func__, "status");
    if (fcom == NULL)
        return -1;
    vn_mutex_lock(&fcom->f_mutex);
    *status = fcom->save_st;
    vn_mutex_unlock(&fcom->f_mutex);
    return 0;
}

extern "C" int32_t kavor_flush(kavor_hdl hdl, int32_t timeout_ms)
{
    if (hdl == NULL) {
        KV_LOG(4, "kavor mobj is NULL.");
        return -1;
    }
    uint64_t seq = __atomic_load_n(&hdl->mark_seq, __ATOMIC_ACQUIRE);
    uint64_t t0 = vn_uptime_ms();
    while (!all_saved_up_to(hdl, seq)) {
        uint64_t spent = vn_delta_ms(t0);
        if (timeout_ms >= 0 && spent >= (uint64_t)timeout_ms)
            return -1;
        int32_t nap = kFlushPollMs;
        if (timeout_ms >= 0 && (uint64_t)timeout_ms - spent < (uint64_t)nap)
            nap = (int32_t)((uint64_t)timeout_ms - spent);
        sleep_ms(nap);
    }
    return 0;
}

extern "C" int32_t kavor_set_policy(kavor_hdl hdl, uint32_t policies)
{
    if (hdl == NULL) {
        KV_LOG(4, "kavor mobj is NULL.");
        return -1;
    }
    if ((policies & ~KAVOR_POLICY_ALL) != 0) {
        KV_LOG(4, "unknown policy 0x%x.", (unsigned)policies);
        return -1;
    }
    __atomic_store_n(&hdl->policies, policies, __ATOMIC_RELAXED);
    return 0;
}
