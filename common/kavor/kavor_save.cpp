// kavor_save.cpp - the save engine. A request (kavor_save_one,
// kavor_save_all) only marks a file (is_saving = 1) and wakes the manager's
// task; the task's sweep (kavor_save_sweep, one step of xml_save_process)
// writes every marked file in turn, by one of two roads, and the queries
// tell whether a save has ended.
//
// Invariant: a complete copy of every file that was ever saved stands on
// disk at every instant, under its file name or its backup name.
//
// The plain road (no virtual name), under f_mutex:
//   1. the document goes to "<file>.tmp" (or "<file>.tmp.gz");
//   2. remove(file_bak), rename(file, file_bak)  - only while `file` holds a
//      complete copy: a missing or broken `file` never replaces the backup;
//   3. rename(tmp, file)                          - one atomic replacement;
//   then, without f_mutex: sync() twice, is_saving 2 -> 0.
// The virtual-file road (a virtual name that is not the file itself under
// another spelling - looked at on disk before each save; if it is, the
// plain road saves instead), the write under f_mutex:
//   1. the document goes, plain, to the virtual file, unless others can
//      write its directory (then the attempt fails and is retried);
//   2. rename(file, file_bak) while `file` holds a complete copy, otherwise
//      remove(file) (what a failed gzip left there, or nothing); a rename
//      that fails ends the attempt, since gzip would write over the copy;
//   3. the file's directories, "gzip -c <virtual> > <file>" (a relative
//      name with "./" in front, so that none reads as an option), then
//      remove(virtual), sync() twice.
// Whether `file` holds a complete copy is kept in disk_state: known after
// this task put the copy there (or a gzip into it failed), and checked once
// when the record is new by kavor_read_copy, the very test a load makes, so
// a save after a restart doesn't move a file that a killed save left
// half-written, or one that a load refuses, over a good backup.
//
// Every outside operation goes through the kavor_sys table, and after each
// step the table's step hook (if set) is called with the step's name, so a
// test can fail any operation or stop a save after any step. The steps:
// "write" (document at the temporary or virtual name), "remove_bak",
// "rename_file" (file -> backup), "remove_file", "rename_tmp" (temporary ->
// file), "gzip", "remove_virt", "sync" (both calls done), "done".
//
// Every file the road writes (the temporary name, the virtual file) is
// created new by xmlMakeParamFile or xmlSaveParamDoc: never through a link
// planted at its name, and a name taken in between fails the attempt.
//
// kavor_write_copy takes the plain road, with its steps and its hook, for a
// document given from outside (a tool's edit of a file of an application
// that isn't running), then syncs twice.
//
// A failed write leaves the file marked and gives the semaphore, on either
// road, so the task tries again one delay later until the cause has gone.
// The sweep runs inside a tick of xml_save_process, and its records carry
// that name; the records of the write itself carry save_para_using_xml.
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <libxml/parser.h>

#include "kavor_private.h"
#include "othermisc.h"
#include "vn_mem.h"
#include "vn_time.h"
#include "xml_trace.h"

// Both tables are initialised as constants, before any code runs.
#define KAVOR_SYS_DEFAULT {remove, rename, system, sync, kavor_create_new, kavor_save_fd, NULL}
const kavor_sys_t kavor_sys_default = KAVOR_SYS_DEFAULT;
kavor_sys_t kavor_sys = KAVOR_SYS_DEFAULT;
#undef KAVOR_SYS_DEFAULT

namespace {

// What the file name holds, as far as the task knows (disk_state).
enum {
    DISK_UNKNOWN = 0,   // not looked at since the record was built
    DISK_COMPLETE = 1,  // a complete copy: this task put it there, or a parse said so
    DISK_BROKEN = 2,    // missing or partial: file_bak holds the last complete copy
};

const size_t kNameBuf = 256;   // the temporary name

void step(const char *name, const kavor_fcom_t *fcom)
{
    if (kavor_sys.step != NULL)
        kavor_sys.step(name, fcom);
}

void file_lock(kavor_fcom_t *fcom)
{
    vn_mutex_lock(&fcom->f_mutex);
}

void file_unlock(kavor_fcom_t *fcom)
{
    vn_mutex_unlock(&fcom->f_mutex);
}

// What `path` holds: DISK_COMPLETE for a copy that a load takes whole
// (kavor_read_copy says complete), DISK_BROKEN for anything else, missing
// included. Only a non-empty regular file is parsed.
int32_t disk_state_of(const char *path, const char *rt_node, bool *exists)
{
    struct stat st;
    *exists = stat(path, &st) == 0;
    if (!*exists || !S_ISREG(st.st_mode) || st.st_size == 0)
        return DISK_BROKEN;
    return kavor_read_copy(path, rt_node, NULL) == KAVOR_COPY_COMPLETE ? DISK_COMPLETE
                                                                       : DISK_BROKEN;
}

// Whether the file name holds a complete copy, which may then become the
// backup. Looked at on disk only once per record; a file that exists and
// isn't whole is reported, a missing one (the first save) is not.
bool file_is_complete(kavor_fcom_t *fcom, const char *fname)
{
    if (fcom->disk_state == DISK_UNKNOWN) {
        bool exists = false;
        fcom->disk_state = disk_state_of(fcom->filename, fcom->rt_node, &exists);
        if (fcom->disk_state == DISK_BROKEN && exists)
            KV_LOGF(fname, 5, "file (%s) holds no complete copy, backup kept.", fcom->filename);
    }
    return fcom->disk_state == DISK_COMPLETE;
}

// "%s.tmp.gz" for a compressed file name, "%s.tmp" for any other; false if
// the name doesn't fit (it always does for a registered name).
bool temp_name(const kavor_fcom_t *fcom, char *tmp)
{
    const char *fmt = isGzFile(fcom->filename) ? "%s.tmp.gz" : "%s.tmp";
    int n = snprintf(tmp, kNameBuf, fmt, fcom->filename);
    return n > 0 && (size_t)n < kNameBuf;
}

unsigned long long ms_since(uint64_t t0)
{
    return (unsigned long long)vn_delta_ms(t0);
}

// The records of the write under f_mutex carry this name, those of the
// rest of a road the sweep's.
const char *const kWriteFn = "save_para_using_xml";
const char *const kSweepFn = "xml_save_process";

// Plain road, steps 1-3, under f_mutex: temporary file, then the renames.
// The document is built from the nodes, or `doc` when one is given
// (kavor_write_copy).
int32_t plain_write(kavor_fcom_t *fcom, xmlDocPtr doc)
{
    uint64_t time0 = vn_uptime_ms();
    char tmp[kNameBuf];
    if (!temp_name(fcom, tmp)) {
        KV_LOGF(kWriteFn, 4, "save %s error!", fcom->filename);
        return -1;
    }
    int32_t ret = doc != NULL ? xmlSaveParamDoc(doc, tmp) : xmlMakeParamFile(fcom, tmp);
    if (ret != 0) {
        kavor_sys.remove(tmp);
        KV_LOGF(kWriteFn, 4, "save %s error!", fcom->filename);
        return ret;
    }
    step("write", fcom);
    if (file_is_complete(fcom, kWriteFn)) {
        kavor_sys.remove(fcom->file_bak);
        step("remove_bak", fcom);
        kavor_sys.rename(fcom->filename, fcom->file_bak);
        step("rename_file", fcom);
        fcom->disk_state = DISK_BROKEN;
    }
    if (kavor_sys.rename(tmp, fcom->filename) != 0) {
        // The new copy is not in place: keep the file marked, and look at
        // what the file name holds before the next attempt.
        save_failed_at(fcom, KAVOR_STEP_RENAME, errno);
        kavor_sys.remove(tmp);
        fcom->disk_state = DISK_UNKNOWN;
        KV_LOGF(kWriteFn, 4, "save %s error!", fcom->filename);
        return -1;
    }
    fcom->disk_state = DISK_COMPLETE;
    step("rename_tmp", fcom);
    KV_LOGF(kWriteFn, 7, "save %s use %llu ms!", fcom->filename, ms_since(time0));
    return 0;
}

int32_t plain_write_nodes(kavor_fcom_t *fcom)
{
    return plain_write(fcom, NULL);
}

// Virtual-file road, step 1, under f_mutex: the document goes to the
// virtual file.
int32_t virtual_write(kavor_fcom_t *fcom)
{
    uint64_t time0 = vn_uptime_ms();
    // The directory may have come into being since the registration: look
    // at it again, once it exists, before anything is written into it.
    make_dir_from_filename(fcom->virtfile, 777);
    const char *why = virt_dir_refusal(fcom->virtfile);
    if (why != NULL) {
        KV_LOGF(kWriteFn, 4, "virtual file (%s) not written: %s.", fcom->virtfile, why);
        return -1;
    }
    int32_t ret = xmlMakeParamFile(fcom, fcom->virtfile);   // removes what stood there
    KV_LOGF(kWriteFn, 7, "save %s use %llu ms!", fcom->virtfile, ms_since(time0));
    if (ret != 0) {
        kavor_sys.remove(fcom->virtfile);   // never read; a partial one is of no use
        return ret;
    }
    step("write", fcom);
    return 0;
}

// The write of a road under f_mutex; is_saving 2 when it succeeded. The
// decision after the unlock rests on this result, so a request that lands
// between unlock and test can't skip the sync of a file already in place;
// the request itself keeps the file marked.
int32_t write_locked(kavor_fcom_t *fcom, int32_t (*write)(kavor_fcom_t *))
{
    file_lock(fcom);
    status_write_begins(fcom);
    save_failed_at(fcom, KAVOR_STEP_BUILD, 0);
    int32_t ret = write(fcom);
    if (ret == 0)
        saving_set(fcom, 2);
    else
        status_failed(fcom, fcom->fail_step, fcom->fail_errno);
    file_unlock(fcom);
    return ret;
}

// An attempt that failed after its write (outside f_mutex).
void attempt_failed(kavor_fcom_t *fcom, int32_t step, int32_t err)
{
    file_lock(fcom);
    status_failed(fcom, step, err);
    file_unlock(fcom);
}

// Both calls of sync, then is_saving 2 -> 0 unless a request came meanwhile.
void flush_and_finish(kavor_fcom_t *fcom)
{
    kavor_sys.sync();
    kavor_sys.sync();
    step("sync", fcom);
    file_lock(fcom);
    if (saving_get(fcom) > 1)
        saving_set(fcom, 0);
    status_saved(fcom);
    file_unlock(fcom);
    step("done", fcom);
}

// A failed attempt: the file stays marked, and the task comes back to it one
// delay later.
void retry_later(kavor_mobj_t *mobj, const char *message, const char *filename)
{
    KV_LOGF(kSweepFn, 4, message, filename);
    vn_sem_give(mobj->sem_sav);
}

// The plain road, steps 1-3 under f_mutex, then the sync calls.
void plain_road(kavor_mobj_t *mobj, kavor_fcom_t *fcom)
{
    if (write_locked(fcom, plain_write_nodes) != 0) {
        retry_later(mobj, "xml(%s) save failed, try again later.", fcom->filename);
        return;
    }
    flush_and_finish(fcom);
}

// The virtual-file road; `sh` holds the whole command.
void virtual_road(kavor_mobj_t *mobj, kavor_fcom_t *fcom, const char *sh)
{
    // 1. the document, plain, to the virtual file
    if (write_locked(fcom, virtual_write) != 0) {
        retry_later(mobj, "xml(%s) save failed, try again later.", fcom->filename);
        return;
    }
    // 2. the file to the backup name while it holds a complete copy
    uint64_t time0 = vn_uptime_ms();
    if (file_is_complete(fcom, kSweepFn)) {
        if (kavor_sys.rename(fcom->filename, fcom->file_bak) != 0) {
            // gzip would write over the only copy of the last content.
            attempt_failed(fcom, KAVOR_STEP_BACKUP, errno);
            fcom->disk_state = DISK_UNKNOWN;
            retry_later(mobj, "xml(%s) backup failed, try again later.", fcom->filename);
            return;
        }
        step("rename_file", fcom);
    } else {
        // What a failed gzip left (or nothing): file_bak already holds the
        // last complete copy and stays.
        kavor_sys.remove(fcom->filename);
        step("remove_file", fcom);
    }
    fcom->disk_state = DISK_BROKEN;
    // 3. gzip writes the file, the virtual file goes, and the sync calls
    make_dir_from_filename(fcom->filename, 777);   // the write made only the virtual file's
    int rc = kavor_sys.system(sh);
    step("gzip", fcom);
    if (rc != 0) {
        attempt_failed(fcom, KAVOR_STEP_GZIP, 0);
        retry_later(mobj, "xml(%s) fail to save flash!", fcom->filename);
        return;
    }
    fcom->disk_state = DISK_COMPLETE;
    KV_LOGF(kSweepFn, 7, "save %s into flash, use %llu ms!", fcom->filename, ms_since(time0));
    kavor_sys.remove(fcom->virtfile);
    step("remove_virt", fcom);
    flush_and_finish(fcom);
}

// Whether the virtual name is the file name itself, by what the two names
// resolve to once their directories exist: the road would write the new
// copy over the last complete one before the backup is made.
bool virt_is_file_now(const kavor_fcom_t *fcom)
{
    make_dir_from_filename(fcom->virtfile, 777);
    make_dir_from_filename(fcom->filename, 777);
    return virt_is_file(fcom->virtfile, fcom->filename);
}

// The one choice of a save: the virtual-file road (true, with its command
// in `sh`) for a file with a usable virtual name, else the plain road.
bool takes_virtual_road(const kavor_fcom_t *fcom, char *sh)
{
    if (fcom->virtfile == NULL)
        return false;
    if (!gzip_command(fcom->virtfile, fcom->filename, sh)) {
        KV_LOGF(kSweepFn, 4, "gzip command for %s too long, saved without %s.", fcom->filename,
                fcom->virtfile);
        return false;
    }
    if (virt_is_file_now(fcom)) {
        KV_LOGF(kSweepFn, 4, "virtual file (%s) is the file itself, saved without it.",
                fcom->virtfile);
        return false;
    }
    return true;
}

void save_file(kavor_mobj_t *mobj, kavor_fcom_t *fcom)
{
    char sh[KAVOR_GZIP_CMD_SIZE];
    if (takes_virtual_road(fcom, sh))
        virtual_road(mobj, fcom, sh);
    else
        plain_road(mobj, fcom);
}

}  // namespace

// A cut command would write to another path: it is never formed.
bool gzip_command(const char *virt, const char *file, char *sh)
{
    const char *vdot = virt[0] == '/' ? "" : "./";
    const char *fdot = file[0] == '/' ? "" : "./";
    int n = snprintf(sh, KAVOR_GZIP_CMD_SIZE, "gzip -c %s%s > %s%s", vdot, virt, fdot, file);
    bool fits = n > 0 && n < KAVOR_GZIP_CMD_SIZE;
    if (!fits)
        sh[0] = '\0';
    return fits;
}

void kavor_save_sweep(kavor_mobj_t *mobj)
{
    mobj->sv_dly = -1;
    files_rdlock(mobj);
    for (struct znode *n = mobj->fcom_lst; n != NULL; n = n->next) {
        kavor_fcom_t *fcom = (kavor_fcom_t *)n;
        if (saving_get(fcom) > 0)
            save_file(mobj, fcom);
    }
    files_unlock(mobj);
}

extern "C" int32_t kavor_save_one(xml_file_hdl hdl)
{
    if (hdl == NULL) {
        KV_LOG(4, "xml_file_hdl is NULL.");
        return -1;
    }
    kavor_fcom_t *fcom = hdl->fcom;
    if (fcom == NULL || fcom->mobj == NULL) {
        KV_LOG(4, "file node (%s) has no manager, not saved!", hdl->node_name);
        return -1;
    }
    KV_LOG(8, "file node (%s) request saving.", hdl->node_name);
    file_lock(fcom);
    saving_set(fcom, 1);
    status_mark(fcom);
    file_unlock(fcom);
    if (vn_sem_give(fcom->mobj->sem_sav) != 0) {
        KV_LOG(4, "sem_give error!");
        return -1;
    }
    KV_LOG(8, "has send successful.");
    return 0;
}

extern "C" int32_t kavor_save_all(kavor_hdl hdl)
{
    if (hdl == NULL) {
        KV_LOG(4, "kavor mobj is NULL.");
        return -1;
    }
    files_rdlock(hdl);
    for (struct znode *n = hdl->fcom_lst; n != NULL; n = n->next) {
        kavor_fcom_t *fcom = (kavor_fcom_t *)n;
        file_lock(fcom);
        saving_set(fcom, 1);
        status_mark(fcom);
        file_unlock(fcom);
    }
    files_unlock(hdl);
    if (vn_sem_give(hdl->sem_sav) != 0) {
        KV_LOG(4, "sem_give error!");
        return -1;
    }
    return 0;
}

extern "C" int32_t kavor_file_on_saving(xml_file_hdl hdl)
{
    if (hdl == NULL) {
        KV_LOG(4, "xml file hdl is NULL.");
        return 0;
    }
    return hdl->fcom != NULL ? saving_get(hdl->fcom) : 0;
}

extern "C" char *kavor_any_on_saving(kavor_hdl hdl)
{
    if (hdl == NULL) {
        KV_LOG(4, "kavor mobj is NULL.");
        return NULL;
    }
    char *name = NULL;
    files_rdlock(hdl);
    for (struct znode *n = hdl->fcom_lst; n != NULL && name == NULL; n = n->next) {
        kavor_fcom_t *fcom = (kavor_fcom_t *)n;
        if (saving_get(fcom) > 0)
            name = fcom->filename;
    }
    files_unlock(hdl);
    return name;
}

extern "C" int32_t kavor_write_copy(const char *file, xmlDocPtr doc)
{
    xmlNodePtr root = doc != NULL ? xmlDocGetRootElement(doc) : NULL;
    if (file == NULL || root == NULL) {
        KV_LOG(4, "file name or document is NULL.");
        return -1;
    }
    // A record of its own, seen by no manager: the names a registration of
    // `file` gives, and nothing known of what the file name holds.
    kavor_fcom_t fcom;
    memset(&fcom, 0, sizeof fcom);
    fcom.filename = xml_file_name(file, isGzFile(file) ? 0 : 1);
    fcom.file_bak = fcom.filename != NULL ? xml_file_bak_name(fcom.filename) : NULL;
    fcom.rt_node = fcom.filename != NULL ? get_file_root_node(fcom.filename) : NULL;
    int32_t ret = -1;
    if (fcom.file_bak == NULL || fcom.rt_node == NULL) {
        KV_LOG(4, "names of (%s) can't be made.", file);
    } else if (xmlStrcmp(root->name, BAD_CAST fcom.rt_node) != 0) {
        KV_LOG(4, "root element of (%s) isn't %s, not written.", fcom.filename, fcom.rt_node);
    } else if ((ret = plain_write(&fcom, doc)) == 0) {
        kavor_sys.sync();
        kavor_sys.sync();
        step("sync", &fcom);
    }
    _vn_free(fcom.filename, __func__);
    _vn_free(fcom.file_bak, __func__);
    _vn_free(fcom.rt_node, __func__);
    return ret;
}
