/// @file kavor.h
/// The parameter file manager: memory blocks registered as nodes of XML
/// files (plain or gzip), loaded with fall-back to a backup copy, and saved
/// by a background task after a quiet time in an order of renames that keeps
/// a complete earlier copy on disk at every instant.
///
/// Results: 0 or a non-negative value on success, -1 on failure; handles
/// are NULL on failure. Loads return 0 (parsed), 1 (parsed by the recovery
/// parser: possibly partial) or -1 (nothing filled).
#ifndef KAVOR_H
#define KAVOR_H

#include <stddef.h>
#include <stdint.h>

#include "param_xml.h"

#ifdef __cplusplus
extern "C" {
#endif

/// The descriptor row, as the file manager names it.
typedef struct pdesc xml_pd_t;

/// A registration request, filled by the application. kavor_register() reads
/// it during the call only (and writes a NUL into the last byte of a
/// non-empty `virtfile`); the strings are copied, so the record may be
/// reused at once. `param_desc` and `mem` are kept as pointers.
typedef struct {
    /// Path of the parameter file; must not be empty and must hold its NUL
    /// within the field. Its base name is cut at the first dot (a leading
    /// dot doesn't count) and ".xml" (`ugz` 1) or ".xml.gz" (any other
    /// `ugz`) put behind it; the backup ends in ".xml.bak[.gz]" and the
    /// document's root element is named after the stem, so the stem must be
    /// an XML name without ':' (a letter or '_' first, no blank).
    char filename[128];
    /// Element name of this node in the document; must not be empty, must
    /// hold its NUL within the field, and must be an XML name without ':'
    /// other than "text" (the name that text between elements bears).
    char node_name[64];
    /// Descriptor table of `mem`; not copied, not tested. It must outlive
    /// the node, and is written into by loads (run-time fields).
    xml_pd_t *param_desc;
    /// The memory block; not copied, not tested. It must outlive the node.
    void *mem;
    /// 1: the file is plain; any other value (0 included): gzip-compressed.
    int32_t ugz;
    /// Path of the virtual file; empty: none. Read as its first 127 bytes.
    /// A save then writes the plain document here and an outside
    /// "gzip -c <virtual> > <file>" command writes the file from it. Used
    /// only when its stem equals the file's stem; its name always ends in
    /// ".xml". It is dropped, with a level-4 message, and the file saved the
    /// plain way, when the virtual name or the file name holds any character
    /// outside A-Z, a-z, 0-9 and . _ / + - (so blanks, quotes, $ ` ; | & < >
    /// * ? [ ] ~ ( ) { } ! # \ and line ends are refused), when either base
    /// name begins with '-', when the virtual name equals the file name, or
    /// when the command would not fit its 256-byte buffer.
    char virtfile[128];
} kavor_file_rgst_t;

/// Handle of a manager.
typedef struct _kavor_mobj *kavor_hdl;
/// Handle of one registered node.
typedef struct _xmlParamNode *xml_file_hdl;

/// @name Manager (one background save task each)
/// Locks, always taken in this order: the manager's file-list lock, a
/// file's mutex (also kavor_file_lock()), the manager's parse mutex, a
/// file's node-list lock.
/// @{

/// Same as kavor_create_v2(name, 1000).
kavor_hdl kavor_create(const char *name);

/// The largest save delay, in ms: the top multiple of the 500 ms tick that
/// an int32_t holds (about 24.8 days). kavor_create_v2() uses it for any
/// longer delay.
#define KAVOR_SAVE_DLY_MAX_MS 2147483500

/// Makes a manager and starts its save task, named "kavor_tsk_<name>".
/// `name` is read during the call only. `save_dly_ms` is the quiet time
/// after the last save request, rounded up to a multiple of 500 ms; 0 or
/// less saves at the next tick; above KAVOR_SAVE_DLY_MAX_MS (INT32_MAX
/// included) it is KAVOR_SAVE_DLY_MAX_MS. The caller owns the handle until
/// kavor_destroy(). Returns NULL, with a level-4 message, for a NULL
/// `name` ("kavor module name NULL!") or when the record, its mutex, its
/// semaphore or its lock can't be made (nothing is left behind then).
kavor_hdl kavor_create_v2(const char *name, int32_t save_dly_ms);

/// Stops the task, then releases the manager and every file and node
/// record of it; the handle and every xml_file_hdl of the manager are dead
/// afterwards. Makes no last save (see kavor_any_on_saving()) and touches
/// no file. Takes no lock: no other thread may be inside the manager during
/// the call. NULL is ignored in silence.
void kavor_destroy(kavor_hdl hdl);
/// @}

/// @name Registration
/// @{

/// Registers `rgst->mem` as node `rgst->node_name` of the file that
/// `rgst->filename` and `rgst->ugz` name. Under a manager, nodes whose file
/// names are equal (as strings, after the suffix rule) share one file, and
/// the file keeps the virtual name of its first registration. With `hdl`
/// NULL the file stands alone: no sharing, no load or save through the
/// manager's calls; that is for kavor_param2file() and kavor_file2param().
/// Touches no disk and traces nothing on success. Takes the manager's
/// file-list lock for writing (waiting for a running save sweep or
/// kavor_load_all()), so it must not be called while this thread holds a
/// kavor_file_lock(). The node belongs to the file record until
/// kavor_unregister() or kavor_destroy().
/// @return the node's handle; the existing handle, with the level-4 message
/// "file node(<name>) has exist!", when the file already has that node
/// name (the request's table and block are ignored then); NULL, with a
/// level-4 message, for a NULL `rgst`, an empty file or node name, a node
/// name or file stem that no load would find again ("node name (<name>)
/// refused: <why>, so its file would never load." or the same with "file
/// stem (<stem>)"), or memory that runs out (then nothing new is left behind and an existing
/// file keeps its nodes).
xml_file_hdl kavor_register(kavor_hdl hdl, kavor_file_rgst_t *rgst);

/// Removes a node and releases it; its file record goes with its last node,
/// together with any save of it that was requested and not yet run. Touches
/// no disk. For a managed file it takes the manager's file-list lock for
/// writing, then the file's node-list lock, so concurrent unregisters and
/// registrations of one file are safe; it waits for a running sweep or load
/// and must not be called while this thread holds a kavor_file_lock(). The
/// handle is dead afterwards, also for every other holder of it. NULL is
/// ignored in silence.
void kavor_unregister(xml_file_hdl hdl);
/// @}

/// @name Load (on the caller's thread)
/// A load tries the file name first and, if that gives nothing usable
/// (missing, empty, not XML, another root element), the backup name; the
/// trace tells which was read. It writes no file. Memory that the reader
/// allocates for counted buffers and lists comes from xmlMalloc() and
/// belongs to the application.
/// @{

/// Loads the file of `hdl` into all nodes of that file, under the file's
/// mutex, one parse at a time per manager. The handle must come from a
/// registration with a manager.
/// @return 0 parsed; 1 parsed by the recovery parser, possibly partial (the
/// backup isn't tried then); -1 nothing filled, every block as it was: both
/// copies unusable, a NULL handle ("xml_file_hdl is NULL.") or a standalone
/// node ("file node (<name>) has no manager!"), each at level 4.
int32_t kavor_load_one(xml_file_hdl hdl);

/// Loads every file of the manager in list order, holding the manager's
/// file-list lock for reading throughout; a failed file ("load file (<name>)
/// fail!" at level 4) doesn't stop the walk.
/// @return -1 if any file failed or for a NULL handle ("kavor hdl is NULL."),
/// else 1 if any file was recovered, else 0 (also for a manager without
/// files).
int32_t kavor_load_all(kavor_hdl hdl);
/// @}

/// @name One-shot conversion (no manager, no backup, no task)
/// Both register a standalone file for the call and release it before
/// they return; `rgst` is read as by kavor_register() (its `virtfile` has no
/// effect). They take no lock: the application keeps the block steady.
/// @{

/// Writes `rgst->mem` to the file that `rgst` names, in place, in one step
/// (making missing directories): plain and not indented for `ugz` 1,
/// gzip-compressed and indented otherwise. A failed write can leave the
/// file damaged.
/// @return 0 written; -1 when the request was refused (level-4 message of
/// kavor_register) or the document could not be built or written.
int32_t kavor_param2file(kavor_file_rgst_t *rgst);

/// Fills `rgst->mem` from the file that `rgst` names; no size test and no
/// fall-back to the backup.
/// @return 0 parsed; 1 recovered, possibly partial; -1 nothing filled (the
/// block as it was): refused request, missing or unreadable file, or a root
/// element other than the file's stem, each with a level-4 message.
int32_t kavor_file2param(kavor_file_rgst_t *rgst);
/// @}

/// @name Save requests and their state
/// A request only marks the file and wakes the task; the task writes after
/// the quiet time, through a temporary file (or the virtual file and gzip)
/// and renames that keep a complete earlier copy under the file name or the
/// backup name at every moment.
/// @{

/// Marks the file of `hdl` (all its nodes) for saving, under the file's
/// mutex, and wakes the task. The handle must come from a registration
/// with a manager.
/// @return 0 marked and woken; -1 for a NULL handle ("xml_file_hdl is
/// NULL.") or when the wake-up failed ("sem_give error!"; the mark stays).
int32_t kavor_save_one(xml_file_hdl hdl);

/// Marks every file of the manager for saving and wakes the task once.
/// Takes the manager's file-list lock for reading and each file's mutex.
/// @return 0; -1 for a NULL handle ("kavor mobj is NULL.") or a failed
/// wake-up ("sem_give error!").
int32_t kavor_save_all(kavor_hdl hdl);

/// The file's save state, read without a lock: 0 nothing to do, 1 marked
/// (possibly after a failed attempt), 2 written and not yet flushed.
/// @return that state; 0 for a NULL handle ("xml file hdl is NULL." at
/// level 4).
int32_t kavor_file_on_saving(xml_file_hdl hdl);

/// The file name of the first file, in list order, still on saving. Takes
/// the manager's file-list lock for reading.
/// @return the file record's own string, not a copy, or NULL when nothing is
/// marked or for a NULL handle ("kavor mobj is NULL." at level 4). The
/// string lives as long as its file record: it is released when the file's
/// last node is unregistered or the manager destroyed, and the lock is no
/// longer held when the call returns. So read it only while no other thread
/// can end a file of the manager; otherwise, or to keep the name, use
/// kavor_any_on_saving_copy(). A non-NULL test alone is always safe.
char *kavor_any_on_saving(kavor_hdl hdl);

/// Copies the file name of the first file still on saving, as
/// kavor_any_on_saving() finds it, into `buf` while holding the manager's
/// file-list lock for reading, so the copy is whole even if another thread
/// ends that file at once. Never writes past `buf + buf_size` and never
/// leaves a cut name: a file name is its request's path (at most 127 bytes)
/// with a suffix of at most 7, so 256 bytes always hold it. `buf` stays the
/// caller's.
/// @return the length of the name copied (without its NUL); 0 with `buf`
/// holding "" when nothing is on saving; -1, with a level-4 message, for a
/// NULL handle ("kavor mobj is NULL."), a NULL `buf` ("buf pointer NULL.")
/// or a `buf_size` too small for the name and its NUL ("buf is not big
/// enough!"; `buf` then holds "" when `buf_size` is not 0, and nothing is
/// written when it is 0).
int32_t kavor_any_on_saving_copy(kavor_hdl hdl, char *buf, size_t buf_size);
/// @}

/// @name Queries, deletion and locks
/// None of these changes a record.
/// @{

/// Removes the file of `hdl` and its backup from disk (for any node of the
/// file, so its other nodes lose their copies too); the virtual file and
/// temporaries stay, and so do the records and any save request. Takes no
/// lock. Failures of the removals are not reported; NULL is ignored in
/// silence.
void kavor_delete_one(xml_file_hdl hdl);

/// Removes every file of the manager and its backup from disk, holding the
/// manager's file-list lock for reading. A NULL handle gives "kavor mobj is
/// NULL." at level 4.
void kavor_delete_all(kavor_hdl hdl);

/// Counts the manager's files (not nodes), holding the manager's file-list
/// lock for reading.
/// @return the number of files; 0 for a NULL handle ("kavor mobj is NULL."
/// at level 4).
uint32_t kavor_count_all_filename(kavor_hdl hdl);

/// Copies the root element names (stems, without directory or suffix) of
/// the manager's files into `buf`, in list order, as consecutive
/// NUL-terminated strings with no extra terminator, holding the manager's
/// file-list lock for reading. Never writes past `buf + buf_size`: the
/// first name that doesn't fit ends the walk with "buf is not big enough!"
/// at level 4. `buf` stays the caller's.
/// @return the number of names copied; 0 also for a NULL handle ("kavor
/// mobj is NULL.") or a NULL `buf` ("buf pointer NULL."), both at level 4.
uint32_t kavor_get_all_filename(kavor_hdl hdl, uint8_t *buf, size_t buf_size);

/// Takes the mutex of the file of `hdl` (shared by all its nodes), holding
/// off that file's saves and loads while the application changes its
/// blocks. Not recursive: while holding it, the thread must not load, save
/// or mark that file, nor register or unregister under the manager. NULL
/// gives "xml_file_hdl is NULL." at level 4.
void kavor_file_lock(xml_file_hdl hdl);

/// Releases kavor_file_lock(). NULL gives "xml_file_hdl is NULL." at level 4.
void kavor_file_unlock(xml_file_hdl hdl);
/// @}

/// @name Files seen from outside the application
/// For tools that look at a device's files with no table and no manager
/// (the `kavor` command): they name files and judge copies exactly as the
/// library does. None of these takes a lock of any manager.
/// @{

/// The names that a registration of `path` with `ugz` gives its file (the
/// suffix rule of kavor_file_rgst_t::filename): the file name, the backup
/// name and the root element name (the stem), each copied into a buffer of
/// `size` bytes.
/// @return 0; -1 for an empty or NULL path ("path or name is NULL!" at level
/// 4), a NULL buffer or a name that doesn't fit.
int32_t kavor_file_names(const char *path, int32_t ugz, char *file, char *backup, char *root,
                         size_t size);

/// What a load makes of the one copy at `path` (a file name or a backup
/// name), decided by the very function the load and the save road use: the
/// document is parsed as a load parses it (no DTD, no entity, no network; a
/// document type declaration makes the copy unusable), by the strict parser
/// and, if that refuses it, by the recovery parser, and its root element
/// must be named `root` (any name when `root` is NULL). A load takes the
/// file name's copy when it is usable, else the backup's. Writes no record.
/// @param doc when not NULL, receives the document of a usable copy (the
/// caller releases it with xmlFreeDoc()), NULL otherwise.
/// @return 0 complete (a load gives 0); 1 recovered, possibly partial (a
/// load gives 1 and doesn't try the backup); -1 unusable: missing, empty,
/// not XML, a document type declaration, no root element or another one.
int32_t kavor_copy_read(const char *path, const char *root, xmlDocPtr *doc);

/// Writes `doc` as the parameter file `file` (a file name on disk, ending
/// in ".xml" or ".xml.gz"; the backup and temporary names follow from it)
/// by the save road of the library: the document goes to the temporary
/// name, the file name's copy moves to the backup name only if it is
/// complete (as kavor_copy_read() decides), the temporary takes the file
/// name, and sync runs twice; a complete copy stands under one of the two
/// names at every step. Gzip and indented for ".gz", plain otherwise.
/// Only for a file of an application that isn't running: it takes no lock
/// of any manager, and a running application's next save writes over it.
/// `doc` stays the caller's (its compression setting may change).
/// @return 0 written; -1 with a level-4 message for a NULL argument, a
/// root element other than the file's stem, or a write or rename that
/// failed (the file name and the backup then hold what they held, or the
/// backup the last complete copy).
int32_t kavor_write_copy(const char *file, xmlDocPtr doc);
/// @}

/// @name Schemas and checks
/// An XML Schema 1.0 description of a file, for xmllint --schema, the
/// `kavor check` command or kavor_validate(): what the schema accepts is
/// what a load stores exactly (see param_xml_schema() for the rules).
/// @{

/// Writes the schema of the whole file of `hdl` to `path`: a root element
/// named after the file's stem, holding at most one child per node of the
/// file, in the order a save writes them, each described by its table.
/// Call it at start-up after the registrations, or at build time from a
/// small program that registers the same tables. Takes the file's node-list
/// lock for reading; reads the tables only. `path` is created new (what
/// stood there, a link included, is removed first) and written indented.
/// @return 0 written; -1 with a level-4 message for a NULL argument, a
/// table that can't be described, or a file that can't be written.
int32_t kavor_write_schema(xml_file_hdl hdl, const char *path);

/// Receives one problem of a check: its line in the document (0 when there
/// is none) and libxml2's message without its line end. `ctx` is the
/// caller's pointer given to the check.
typedef void (*kavor_problem_fn)(void *ctx, int32_t line, const char *message);

/// Checks the document at `path` (plain or gzip) against the schema at
/// `schema_path`. The document is read as a load reads it: a file that
/// isn't well-formed, or that has a document type declaration, is one or
/// more problems with their lines and isn't validated further. Each problem
/// goes to `report` (may be NULL), none to standard error or the trace.
/// Changes no libxml2 setting of the process.
/// @return 0 valid; the number of problems; -1 for a NULL path or a schema
/// that can't be read or compiled (its own problems are reported).
int32_t kavor_validate(const char *path, const char *schema_path, kavor_problem_fn report,
                       void *ctx);

/// As kavor_validate(), for a document in memory (line numbers are those
/// the document's elements carry). `doc` stays the caller's.
int32_t kavor_validate_doc(xmlDocPtr doc, const char *schema_path, kavor_problem_fn report,
                           void *ctx);
/// @}

/// @name What an application can see: where the data came from, whether a
/// save failed, and a wait for the saves
/// @{

/// Which copy filled the blocks of a file at its last load.
typedef enum {
    KAVOR_SOURCE_NONE = 0,            ///< none: nothing was filled (or no load yet)
    KAVOR_SOURCE_MAIN = 1,            ///< the file, complete
    KAVOR_SOURCE_MAIN_PARTIAL = 2,    ///< the file, read by the recovery parser: possibly partial
    KAVOR_SOURCE_BACKUP = 3,          ///< the backup, complete
    KAVOR_SOURCE_BACKUP_PARTIAL = 4,  ///< the backup, read by the recovery parser
} kavor_source_t;

/// Room of kavor_load_report_t's error message, its NUL included.
#define KAVOR_ERROR_MAX 128

/// What the last load of a file found.
typedef struct {
    /// The load's result: 0, 1 or -1, as kavor_load_one() returned it for
    /// this file.
    int32_t result;
    /// Which copy filled the blocks (kavor_source_t).
    int32_t source;
    /// The first parse error of the load: 1 in the file, 2 in the backup,
    /// 0 when the load met none (a missing or empty copy is no parse error).
    int32_t error_copy;
    /// Its line and column as libxml2 gives them (1-based); 0 when none.
    int32_t error_line;
    int32_t error_column;
    /// Its message as libxml2 gives it, without the line end, cut to fit;
    /// "" when none.
    char error_message[KAVOR_ERROR_MAX];
    /// What the reader did to the values of the copy that filled the
    /// blocks, over all nodes of the file (all zero when none did). Besides
    /// the table's own rows, `unknown` counts the root's children that no
    /// registered node takes (and a second child of a node's name), and
    /// `missing` the registered nodes that the document has no child for.
    param_xml_report_t values;
} kavor_load_report_t;

/// Copies the report of the last load (kavor_load_one() or
/// kavor_load_all()) of the file of `hdl` into `*report`, which belongs to
/// the caller. Takes the file's mutex: not to be called while this thread
/// holds kavor_file_lock().
/// @return 0 filled; 1 when the file has had no load since its
/// registration (or its report couldn't be kept for want of memory): the
/// report is then cleared, with source KAVOR_SOURCE_NONE and result -1;
/// -1, with a level-4 message, for a NULL handle or report
/// ("xml_file_hdl is NULL." / "report is NULL.") or a node without a manager.
int32_t kavor_load_report(xml_file_hdl hdl, kavor_load_report_t *report);

/// The step of a save that failed.
typedef enum {
    KAVOR_STEP_NONE = 0,    ///< no save of the file has failed since its registration
    KAVOR_STEP_BUILD = 1,   ///< the document couldn't be made from the blocks
    KAVOR_STEP_WRITE = 2,   ///< the temporary or virtual file: directories, creation, writing
    KAVOR_STEP_BACKUP = 3,  ///< moving the last complete copy to the backup name
    KAVOR_STEP_RENAME = 4,  ///< moving the new copy to the file name
    KAVOR_STEP_GZIP = 5,    ///< the outside gzip command (virtual-file road)
} kavor_save_step_t;

/// Whether the saves of a file succeed.
typedef struct {
    /// Attempts that failed since the last completed save (since the
    /// registration if none has completed). Above 0: the file is still on
    /// saving and the task tries again one delay after each failure.
    uint32_t attempts;
    /// The step that failed last (kavor_save_step_t), kept after a later
    /// success; KAVOR_STEP_NONE when no attempt has failed.
    int32_t failed_step;
    /// The errno of that step; 0 when it set none (gzip, a document that
    /// couldn't be made).
    int32_t failed_errno;
    /// Saves completed (written, in place and synced) since the registration.
    uint32_t saves;
    /// When the last save completed: vn_uptime_ms() (monotonic) and the
    /// wall clock (seconds since the epoch); both 0 when none has.
    uint64_t saved_uptime_ms;
    int64_t saved_time;
} kavor_save_status_t;

/// Copies the save status of the file of `hdl` (any of its nodes) into
/// `*status`, which belongs to the caller. Takes the file's mutex: not to be
/// called while this thread holds kavor_file_lock().
/// @return 0; -1, with a level-4 message, for a NULL handle or status
/// ("xml_file_hdl is NULL." / "status is NULL.") or a node without a manager.
int32_t kavor_save_status(xml_file_hdl hdl, kavor_save_status_t *status);

/// Waits until every file of the manager that was marked for saving when
/// the call began has been saved (written, in place and synced) since its
/// mark, or until `timeout_ms` has passed; a negative `timeout_ms` waits
/// without limit. The task keeps its pacing: allow the save delay (rounded
/// up to 500 ms) and the writes in the time-out. A file unregistered
/// meanwhile counts as done; files marked after the call began aren't waited
/// for. For shutdown: kavor_destroy() still saves nothing. Polls, taking the
/// manager's file-list lock for reading for a moment each time; while this
/// thread holds kavor_file_lock() that file can't be saved, so the call
/// would run to its time-out.
/// @return 0 once they are saved (at once when none is marked); -1 at the
/// time-out (a file whose saves fail stays marked: see kavor_save_status())
/// or for a NULL handle ("kavor mobj is NULL." at level 4).
int32_t kavor_flush(kavor_hdl hdl, int32_t timeout_ms);
/// @}

/// @name Policies: each off unless the application turns it on
/// Set per manager, for all its files, with kavor_set_policy(); the one-shot
/// calls take them as an argument. With every policy off, every call gives
/// the results, records and documents that it gives without policies.
/// @{

/// A load takes a complete backup over a file that only the recovery parser
/// could read (which the load would otherwise take, result 1); a backup
/// that is not complete leaves the file's partial content in use. The save
/// road never moves a file that isn't complete over the backup, so the
/// backup stays until a save has put a complete file in place.
#define KAVOR_POLICY_PREFER_BACKUP 0x1u
/// Exact floats (see PARAM_XML_EXACT_FLOATS): saves write a float with 9
/// and a double with 17 significant digits and '.' as the decimal point,
/// and loads read '.' as the decimal point, whatever the locale.
#define KAVOR_POLICY_EXACT_FLOATS 0x2u
/// Keep what the table doesn't know: each load keeps the elements that no
/// row of a node's table describes (direct children of the node's element)
/// and the root's children that no registered node takes, and each save
/// writes them back behind the known ones (a node's behind its rows', the
/// root's behind the last node), so that a file shared by two versions of
/// an application loses nothing. They are kept as text, at most
/// KAVOR_KEEP_MAX bytes per file; an element that doesn't fit what is left
/// is dropped at the load (level 5). A load that fills nothing keeps what
/// was kept; a node's elements go with its registration. Unknown attributes
/// and unknown elements deeper inside a row's elements are not kept.
#define KAVOR_POLICY_KEEP_UNKNOWN 0x4u
/// Bytes of kept elements (as serialised text) per file.
#define KAVOR_KEEP_MAX 65536

/// Sets the manager's policies (KAVOR_POLICY_* or'ed; 0 turns all off) for
/// the loads and saves that begin after the call. Takes no lock.
/// @return 0; -1 for a NULL handle ("kavor mobj is NULL.") or a bit that is
/// no policy ("unknown policy 0x%x."), both at level 4, nothing changed.
int32_t kavor_set_policy(kavor_hdl hdl, uint32_t policies);

/// kavor_param2file() with `policies`: KAVOR_POLICY_EXACT_FLOATS writes
/// exact floats; the other policies have nothing to act on here.
/// @return as kavor_param2file(); -1 also for a bit that is no policy.
int32_t kavor_param2file_v2(kavor_file_rgst_t *rgst, uint32_t policies);

/// kavor_file2param() with `policies` (KAVOR_POLICY_EXACT_FLOATS reads '.'
/// whatever the locale; the others have nothing to act on), and, when
/// `report` isn't NULL, the report of the load as kavor_load_report() gives
/// it (its source is KAVOR_SOURCE_MAIN, KAVOR_SOURCE_MAIN_PARTIAL or
/// KAVOR_SOURCE_NONE: there is no fall-back). `report` belongs to the caller.
/// @return as kavor_file2param(); -1 also for a bit that is no policy.
int32_t kavor_file2param_v2(kavor_file_rgst_t *rgst, uint32_t policies,
                            kavor_load_report_t *report);
/// @}

#ifdef __cplusplus
}
#endif

#endif
