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

/// A registration request, filled by the application.
typedef struct {
    char filename[128];     ///< path of the parameter file; must not be empty
    char node_name[64];     ///< element name of this node; must not be empty
    xml_pd_t *param_desc;   ///< descriptor table of `mem`; not copied
    void *mem;              ///< the memory block; not copied
    int32_t ugz;            ///< 1: plain file; any other value: gzip file
    char virtfile[128];     ///< path of the virtual file; empty: none
} kavor_file_rgst_t;

/// Handle of a manager.
typedef struct _kavor_mobj *kavor_hdl;
/// Handle of one registered node.
typedef struct _xmlParamNode *xml_file_hdl;

/// @name Manager (one background save task each)
/// @{
/// Same as kavor_create_v2(name, 1000).
kavor_hdl kavor_create(const char *name);
/// Makes a manager and starts its save task. `save_dly_ms` is the quiet
/// time after the last save request, rounded up to a multiple of 500 ms;
/// 0 or less saves at once. Returns NULL (level-4 message) on failure.
kavor_hdl kavor_create_v2(const char *name, int32_t save_dly_ms);
/// Stops the task, then releases the manager and every file and node
/// record of it; every handle of the manager is dead afterwards. Makes no
/// last save and touches no file. NULL is ignored in silence. No other
/// thread may be inside the manager during the call.
void kavor_destroy(kavor_hdl hdl);
/// @}

/// @name Registration
/// @{
/// Registers `rgst->mem` as node `rgst->node_name` of the file that
/// `rgst->filename` and `rgst->ugz` name. With `hdl` NULL the file stands
/// alone (no sharing, no save task). Touches no disk. Returns the node's
/// handle, the existing one if the file already has that node name, or
/// NULL (level-4 message) on failure.
xml_file_hdl kavor_register(kavor_hdl hdl, kavor_file_rgst_t *rgst);
/// Removes a node; its file record goes with its last node. Touches no
/// disk; a pending save of a file that ends is dropped. NULL is ignored.
void kavor_unregister(xml_file_hdl hdl);
/// @}

/// @name Load (on the caller's thread)
/// @{
/// Loads the file of `hdl` into all its nodes, falling back to the backup.
/// Returns 0, 1 (recovered, possibly partial) or -1 (nothing filled).
int32_t kavor_load_one(xml_file_hdl hdl);
/// Loads every file of the manager: -1 if any failed, else 1 if any was
/// recovered, else 0.
int32_t kavor_load_all(kavor_hdl hdl);
/// @}

/// @name One-shot conversion (no manager, no backup, no task)
/// @{
/// Writes `rgst->mem` to the file that `rgst` names, in place. 0 or -1.
int32_t kavor_param2file(kavor_file_rgst_t *rgst);
/// Fills `rgst->mem` from the file that `rgst` names. 0, 1 or -1.
int32_t kavor_file2param(kavor_file_rgst_t *rgst);
/// @}

/// @name Save requests and their state
/// @{
/// Marks the file of `hdl` for saving and wakes the task. 0 or -1.
int32_t kavor_save_one(xml_file_hdl hdl);
/// Marks every file of the manager for saving and wakes the task. 0 or -1.
int32_t kavor_save_all(kavor_hdl hdl);
/// The file's save state: 0 done, 1 marked, 2 written and not yet flushed.
/// 0 for NULL.
int32_t kavor_file_on_saving(xml_file_hdl hdl);
/// The file name of the first file still on saving, or NULL. The string
/// belongs to the file record.
char *kavor_any_on_saving(kavor_hdl hdl);
/// @}

/// @name Queries, deletion and locks
/// @{
/// Removes the file and its backup from disk; records stay.
void kavor_delete_one(xml_file_hdl hdl);
/// Removes every file of the manager and its backup from disk.
void kavor_delete_all(kavor_hdl hdl);
/// Number of files (not nodes) of the manager; 0 for NULL.
uint32_t kavor_count_all_filename(kavor_hdl hdl);
/// Copies the root element names of the files into `buf` as consecutive
/// NUL-terminated strings; returns how many were copied.
uint32_t kavor_get_all_filename(kavor_hdl hdl, uint8_t *buf, size_t buf_size);
/// Holds the file of `hdl` against saves and loads (its per-file mutex).
void kavor_file_lock(xml_file_hdl hdl);
/// Releases kavor_file_lock().
void kavor_file_unlock(xml_file_hdl hdl);
/// @}

#ifdef __cplusplus
}
#endif

#endif
