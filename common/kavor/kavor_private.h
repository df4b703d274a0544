// kavor_private.h - the file manager's records and the functions its source
// files share. Internal to the library: nothing here is exported.
//
// A manager (kavor_mobj_t) is an engine task record with the manager's own
// fields behind the engine's head. It holds a list of files (kavor_fcom_t),
// each with a list of registered nodes (kavor_file_t). Lock order:
// fcom_rwlock, then f_mutex, then mtx_ld, then file_rwlock.
#ifndef KAVOR_PRIVATE_H
#define KAVOR_PRIVATE_H

#include <pthread.h>
#include <stdint.h>

#include <libxml/tree.h>
#include <libxml/xmlerror.h>

#include "kavor.h"
#include "vn_ipc.h"
#include "vn_task.h"
#include "zlst.h"

/// One manager: the engine's task head, then the manager's fields.
typedef struct _kavor_mobj {
    vn_task_t task;                  // engine head; the library sets stack_size, pf_process
    VN_MUTEX_ID mtx_ld;              // one parse at a time under this manager
    int32_t mtx_ld_valid;
    VN_SEM_ID sem_sav;               // wakes the save task
    int32_t sem_sav_valid;
    pthread_rwlock_t fcom_rwlock;    // guards fcom_lst
    int32_t fcom_rwlock_valid;
    zhead_t fcom_lst;                // the manager's files
    int32_t sv_dly;                  // pacing count in ms; negative: idle
    int32_t sv_dly_lmt;              // save delay in ms, fixed at creation
    uint64_t mark_seq;               // count of save marks (atomic; see kavor_status.cpp)
    uint32_t policies;               // KAVOR_POLICY_* (atomic, relaxed)
} kavor_mobj_t;

/// One file on disk and its registered nodes.
typedef struct kavor_fcom {
    struct znode node;               // link in the manager's fcom_lst
    kavor_mobj_t *mobj;              // NULL while being built, and for a standalone file
    int32_t is_saving;               // 0 done, 1 marked, 2 written not flushed; see saving_get/set
    VN_MUTEX_ID f_mutex;             // saves and loads of this file, is_saving, kavor_file_lock
    int32_t f_mutex_valid;
    char *filename;                  // normalised file name
    char *file_bak;                  // backup name
    char *rt_node;                   // root element name (the stem)
    char *virtfile;                  // virtual name, or NULL
    pthread_rwlock_t file_rwlock;    // guards file_lst
    int32_t file_rwlock_valid;
    zhead_t file_lst;                // the file's nodes
    int32_t disk_state;              // save task only: whether filename is known to hold
                                     // a complete copy (see kavor_save.cpp); 0 unknown
    // What the application can ask (kavor_status.cpp), written under f_mutex.
    kavor_load_report_t *report;     // the last load's; NULL before the first load
    kavor_save_status_t save_st;
    int32_t fail_step;               // why the attempt in progress failed (KAVOR_STEP_*)
    int32_t fail_errno;              // and its errno; see save_failed_at
    uint64_t pend_seq;               // oldest mark that no write has taken up; 0 none
    uint64_t inflight_seq;           // oldest mark that the running write takes up; 0 none
    char *kept;                      // KAVOR_POLICY_KEEP_UNKNOWN: the root's unknown
                                     // children as text (xmlMalloc), or NULL
    uint32_t policies;               // a standalone record's (one-shot calls)
} kavor_fcom_t;

/// One registered node (the target of an xml_file_hdl).
typedef struct _xmlParamNode {
    struct znode node;               // link in file_lst
    kavor_fcom_t *fcom;              // the file; set once the node is complete
    char *node_name;                 // own copy
    struct pdesc *param_desc;        // not owned
    void *mem;                       // not owned
    char *kept;                      // KAVOR_POLICY_KEEP_UNKNOWN: the node's unknown
                                     // children as text (xmlMalloc), or NULL
} kavor_file_t;

/// is_saving is read without a lock by design: every access is a relaxed
/// atomic, so a reader sees some value that was written, never a torn one.
static inline int32_t saving_get(const kavor_fcom_t *fcom)
{
    return __atomic_load_n(&fcom->is_saving, __ATOMIC_RELAXED);
}
static inline void saving_set(kavor_fcom_t *fcom, int32_t v)
{
    __atomic_store_n(&fcom->is_saving, v, __ATOMIC_RELAXED);
}

// ---- file names (kavor_names.cpp) ----------------------------------------
char *file_name_pt(char *path);
void cut_file_suffix(char *name);
char *suffix_name(const char *name, const char *suf);
char *xml_file_name(const char *name, int32_t ugz);
char *xml_file_bak_name(const char *name);
char *get_file_root_node(const char *name);
int32_t isGzFile(const char *path);

// ---- libxml2's messages (kavor_xml_errors.cpp) -----------------------------
/// libxml2's messages during one call of the library on one thread, routed
/// into the trace at level 5 ("libxml2: <file>:<line>:<column>: <message>",
/// under `fname`); at most 16 records, then one that counts the rest.
typedef struct {
    const char *fname;                    // the function the records name
    const char *path;                     // the file read or written
    int32_t count;                        // messages seen
    xmlStructuredErrorFunc saved_serror;  // the thread's handlers before the call
    void *saved_sctx;
    xmlGenericErrorFunc saved_error;
    void *saved_ctx;
} kavor_xml_errors_t;
/// Installs the route as this thread's libxml2 error handlers, keeping the
/// handlers it had; changes no process-wide libxml2 setting.
void kavor_xml_errors_begin(kavor_xml_errors_t *route, const char *fname, const char *path);
/// Gives the thread its handlers back (and counts what wasn't shown).
void kavor_xml_errors_end(kavor_xml_errors_t *route);
/// The route's structured handler (`data` is the route), which a parser
/// context's serror hands its messages to.
void kavor_xml_error(void *data, xmlErrorPtr err);

// ---- registration (kavor_register.cpp) -------------------------------------
/// The file record's node list lock (file_rwlock), for reading or writing,
/// and its release: each does nothing on a record whose lock doesn't exist
/// (file_rwlock_valid).
void nodes_rdlock(kavor_fcom_t *fcom);
void nodes_wrlock(kavor_fcom_t *fcom);
void nodes_unlock(kavor_fcom_t *fcom);
/// Releases a file record that is on no list any more, with every node
/// still on its own list: the nodes, the record's locks, its four names and
/// the record, each through _vn_free with `tag`.
void kavor_fcom_free(kavor_fcom_t *fcom, const char *tag);
/// Why a virtual name can't be used for the outside gzip command with this
/// file name, or NULL when it can: a character outside [A-Za-z0-9._/+-], a
/// name or a base name starting with '-', the two names equal, or a command
/// (gzip_command) longer than its buffer holds.
const char *virt_name_refusal(const char *virtname, const char *filename);
/// Why the directory of the virtual file is no place to write it, or NULL:
/// others can write it (group or world write permission without the sticky
/// bit, or an owner other than root and this process's user). A directory
/// that doesn't exist (yet) is not refused. Looked at on disk.
const char *virt_dir_refusal(const char *virtname);
/// True when the virtual name is the file name itself under another
/// spelling (dir//net, dir/./net, a directory reached through a link): the
/// base names are equal and both directories exist and are one directory
/// (device and inode). Directories that don't exist (yet) tell nothing.
bool virt_is_file(const char *virtname, const char *filename);

// ---- document load (kavor_load.cpp) ----------------------------------------
/// What a read of a document met, for kavor_read_doc.
typedef struct {
    bool doctype;                    // a document type declaration stopped the parse
    int doctype_line;                // at this line
    xmlStructuredErrorFunc errors;   // libxml2's errors go here (NULL: not set)
    void *data;                      // for `errors`
} kavor_parse_t;
/// The one way the library parses a document: the strict parser (recover
/// 0) or the recovery parser (recover 1) on `path`, in a parser context of
/// its own (no DTD, no entity, no network, no process-wide setting). A
/// document type declaration stops the parse: NULL, with how->doctype set.
xmlDocPtr kavor_read_doc(const char *path, int recover, kavor_parse_t *how);
// What a copy on disk gives a load.
enum { KAVOR_COPY_COMPLETE = 0, KAVOR_COPY_RECOVERED = 1, KAVOR_COPY_UNUSABLE = -1 };
/// Why a copy is unusable (0: it isn't).
enum {
    KAVOR_COPY_NO_DOCUMENT = 1,   // missing, empty, not XML: neither parser gave a document
    KAVOR_COPY_DOCTYPE = 2,       // a document type declaration: refused at its start
    KAVOR_COPY_NO_ROOT = 3,       // a document without a root element
    KAVOR_COPY_OTHER_ROOT = 4,    // a root element not named `rt_node`
};
/// The one test of what a copy on disk is, for the load and the save road
/// alike. Parses `path` in a parser context of its own (no DTD, no entity,
/// no network; a document type declaration refuses the file), with the
/// strict parser first and the recovery parser if that fails, and wants a
/// root element named `rt_node` (any root element when it is NULL). KAVOR_COPY_COMPLETE: the strict parser gave
/// such a document; KAVOR_COPY_RECOVERED: only the recovery parser did
/// (possibly partial); KAVOR_COPY_UNUSABLE: anything else. When `doc` is
/// not NULL it receives the document for a usable copy (the caller frees
/// it with xmlFreeDoc) and NULL otherwise. Writes no record of its own but
/// libxml2's messages on the file (level 5, under xmlParseParamFile).
int32_t kavor_read_copy(const char *path, const char *rt_node, xmlDocPtr *doc);
/// kavor_read_copy that also tells, in `*why` when `why` is not NULL, why a
/// copy is unusable (one of the KAVOR_COPY_* reasons, 0 for a usable copy),
/// and notes the first parse error in `rep` (when not NULL and it has none
/// yet) as met in copy `copy` (1 the file, 2 the backup).
int32_t kavor_read_copy_why(const char *path, const char *rt_node, xmlDocPtr *doc,
                            int32_t *why, kavor_load_report_t *rep, int32_t copy);
/// What one load of a file gathers for its report and asks of its policies.
struct load_ctx {
    kavor_load_report_t *rep;  // the file's report, or NULL when none is kept
    uint32_t policies;         // KAVOR_POLICY_*
    int32_t copy;              // the copy being read: 1 the file, 2 the backup
    bool prefer_backup;        // a recovered file waits for a complete backup
    xmlDocPtr partial;         // the recovered file's document while it waits
};
// The record's filename and file_bak are never exchanged: the fall-back
// passes the backup's path down, so every reader of the record always sees
// the true pair, and the trace names the path actually read.

/// Parses `path` (the file name or the backup name of `fcom`) and fills the
/// nodes of `fcom`. 0 parsed, 1 recovered (possibly partial), -1 nothing
/// filled; with lc->prefer_backup a recovered file isn't filled yet (2, its
/// document in lc->partial) and a recovered backup not at all (-1). The
/// caller serialises parses (mtx_ld, or a record no other thread sees).
int32_t xmlParseParamFile(kavor_fcom_t *fcom, const char *path, struct load_ctx *lc = NULL);
void xmlParseNode(xmlNodePtr pRoot, kavor_file_t *fobj);
/// Size test, then xmlParseParamFile under the manager's mtx_ld.
int32_t load_xml(kavor_fcom_t *fcom, const char *path, struct load_ctx *lc = NULL);
void string_swap(char **s1, char **s2);
/// The file name first, then the backup name, under f_mutex. Needs mobj.
int32_t load_one_xml(kavor_fcom_t *fcom);
/// Whether a child of a loaded document's root is the one a node was
/// filled from (the load marks them before anything else looks).
bool is_node_element(const xmlNode *c);

// ---- document build (kavor_build.cpp) ---------------------------------------
/// Builds the document of all nodes of `fcom` and writes it to `file_name`
/// (compressed and indented if the name ends in ".gz"): whatever stands at
/// the name is removed, the file is created new (kavor_sys.create) and the
/// document written through it (kavor_sys.save_doc); a name that something
/// takes in between fails the write. Returns 0 when the target was written,
/// -1 when it wasn't. A document that would miss its root element or a
/// node's child is never written, and neither is one of a managed file (mobj
/// set) whose node list is empty (its last node is leaving): the target
/// stays untouched then.
int32_t xmlMakeParamFile(kavor_fcom_t *fcom, char *file_name);
/// Writes a complete document to `file_name` as xmlMakeParamFile does
/// (gzip and indented for a name ending in ".gz"), created new as there;
/// 0 written, -1 not.
int32_t xmlSaveParamDoc(xmlDocPtr doc, const char *file_name);
/// Creates `path` as a new file, never through a link and never over one
/// that exists: open(O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
/// 0666). The descriptor, or -1 with errno set.
int kavor_create_new(const char *path);
/// Writes `doc` through `fd` in the bytes that xmlSaveFormatFileEnc gives,
/// gzip-compressed at doc->compression when that is above 0, and closes
/// `fd` in every case. Returns the byte count (uncompressed) or -1.
int kavor_save_fd(int fd, xmlDocPtr doc, const char *encoding, int format);
/// Appends one child per node, from `fobj` to the end of its list, filled by
/// param2xml. Returns the number of children added: 0 (with a level-4
/// message) when there is no node; -1 (with a level-4 message) when pRoot is
/// missing or a child can't be made.
int32_t xmlMakeNode(xmlNodePtr pRoot, kavor_file_t *fobj);

// ---- save engine and task (kavor_save.cpp, kavor_manager.cpp) --------------
/// The manager's file list lock (fcom_rwlock), for reading or writing, and
/// its release (kavor_manager.cpp): each does nothing for a NULL manager
/// (a standalone file) or one whose lock doesn't exist (fcom_rwlock_valid).
void files_rdlock(kavor_mobj_t *mobj);
void files_wrlock(kavor_mobj_t *mobj);
void files_unlock(kavor_mobj_t *mobj);
/// Bytes of the buffer of the gzip command, its NUL included.
enum { KAVOR_GZIP_CMD_SIZE = 256 };
/// Forms "gzip -c <virt> > <file>", the command of the virtual-file road, in
/// `sh` (KAVOR_GZIP_CMD_SIZE bytes). A relative name gets "./" in front, so
/// that no name can read as an option of gzip. false when the command would
/// not fit (`sh` then holds no command to run).
bool gzip_command(const char *virt, const char *file, char *sh);
/// One sweep: saves every marked file of the manager in turn, on the task.
void kavor_save_sweep(kavor_mobj_t *mobj);
int32_t xml_save_process(vn_task_handle h);

// ---- what the application can ask (kavor_status.cpp) --------------------------
/// Every KAVOR_POLICY_* bit.
#define KAVOR_POLICY_ALL \
    (KAVOR_POLICY_PREFER_BACKUP | KAVOR_POLICY_EXACT_FLOATS | KAVOR_POLICY_KEEP_UNKNOWN)
/// The policies of a file now: its manager's, or a standalone record's own.
static inline uint32_t file_policies(const kavor_fcom_t *fcom)
{
    return fcom->mobj != NULL ? __atomic_load_n(&fcom->mobj->policies, __ATOMIC_RELAXED)
                              : fcom->policies;
}
// All of these run under the file's f_mutex.
/// Notes why the save attempt in progress failed; the save road counts the
/// attempt once it gives up.
static inline void save_failed_at(kavor_fcom_t *fcom, int32_t step, int32_t err)
{
    fcom->fail_step = step;
    fcom->fail_errno = err;
}
/// A save request marked the file: it takes the manager's next mark number.
void status_mark(kavor_fcom_t *fcom);
/// A write takes up the marks so far.
void status_write_begins(kavor_fcom_t *fcom);
/// An attempt failed at `step` (KAVOR_STEP_*) with `err`; its marks wait again.
void status_failed(kavor_fcom_t *fcom, int32_t step, int32_t err);
/// A save completed: written, in place and synced.
void status_saved(kavor_fcom_t *fcom);
/// The file's report, cleared, for a load to fill; NULL when it can't be
/// allocated (the load then keeps none).
kavor_load_report_t *status_report(kavor_fcom_t *fcom);
/// Releases what the record holds for the queries.
void status_release(kavor_fcom_t *fcom, const char *tag);

// ---- elements the tables don't know (kavor_keep.cpp), under f_mutex -----------
/// Keeps the unknown elements of a loaded document (see kavor_keep.cpp),
/// replacing what was kept. The caller holds file_rwlock for reading.
void keep_from_load(kavor_fcom_t *fcom, xmlNodePtr root);
/// Writes what was kept back into a document whose root holds one child per
/// node, in list order. The caller holds file_rwlock for reading.
void keep_write_back(kavor_fcom_t *fcom, xmlNodePtr root);
/// Releases what is kept for the file and all its nodes, or for one node.
void keep_release(kavor_fcom_t *fcom);
void keep_release_node(kavor_file_t *fobj);

/// The outside operations of the save road, in one table that a test can
/// replace to make any of them fail or to stop a save after any step.
typedef struct {
    int (*remove)(const char *path);
    int (*rename)(const char *from, const char *to);
    int (*system)(const char *command);
    void (*sync)(void);
    int (*create)(const char *path);   // kavor_create_new
    int (*save_doc)(int fd, xmlDocPtr doc, const char *encoding, int format);   // kavor_save_fd
    /// Called after each step of a save with the step's name and the file;
    /// NULL by default.
    void (*step)(const char *step, const kavor_fcom_t *fcom);
} kavor_sys_t;

/// The table in use; tests may swap entries and must restore them.
extern kavor_sys_t kavor_sys;
/// The default table (the C library and libxml2).
extern const kavor_sys_t kavor_sys_default;

#endif
