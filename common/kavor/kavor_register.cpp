// kavor_register.cpp - registration: a memory block and its table become a
// node (kavor_file_t) of a file record (kavor_fcom_t), standalone or on a
// manager's list, where several nodes may share one file.
//
// Invariants:
// - Under a manager a file name is unique on fcom_lst and a node name unique
//   on its file's list; find-or-create runs with fcom_rwlock held for
//   writing, so two registrations of one new path can't build two records.
// - A record is published (mobj set, on fcom_lst) only with its first node
//   on its own list; mobj NULL on a built record means "never published",
//   which is how the failure exit tells a new record from an existing one.
// - Unregistering a managed node holds fcom_rwlock for writing, then
//   file_rwlock, across the node's removal and, when the file ends, the
//   record's removal from fcom_lst: a concurrent unregister of the file's
//   other node or a registration joining the file can't reach freed memory.
// - A node name and a file's stem are element names that a load finds again
//   (element_name_refusal); any other is refused before a record is built.
// Registration writes nothing to disk (it only looks at the directory of a
// virtual name, where that exists) and traces nothing on success.
#include <assert.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "kavor_private.h"
#include "strmisc.h"
#include "vn_mem.h"
#include "xml_trace.h"

namespace {

const char kTag[] = "kavor_register";
const char kUnTag[] = "kavor_unregister";

// Directory part of a registered name (at most 134 bytes).
const size_t kDirBuf = 256;

bool shell_safe_char(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           c == '.' || c == '_' || c == '/' || c == '+' || c == '-';
}

bool shell_safe(const char *s)
{
    for (; *s != '\0'; s++)
        if (!shell_safe_char(*s))
            return false;
    return true;
}

// The base name (behind the last '/'; no backslash passes shell_safe).
bool leading_dash(const char *s)
{
    const char *slash = strrchr(s, '/');
    return (slash != NULL ? slash[1] : s[0]) == '-';
}

// stat of the directory part of `path` ("." when it has none); false when
// it can't be had.
bool dir_stat(const char *path, struct stat *st)
{
    const char *slash = strrchr(path, '/');
    if (slash == NULL)
        return stat(".", st) == 0;
    char dir[kDirBuf];
    size_t n = slash == path ? 1 : (size_t)(slash - path);
    if (n >= sizeof dir)
        return false;
    memcpy(dir, path, n);
    dir[n] = '\0';
    return stat(dir, st) == 0;
}

// The virtual name of a request, or NULL when it has none: its stem must be
// the file's, and it always ends in ".xml".
char *virtual_name(kavor_file_rgst_t *rgst, char *name)
{
    if (rgst->virtfile[0] == '\0')
        return NULL;
    rgst->virtfile[sizeof(rgst->virtfile) - 1] = '\0';
    char *virtname = xml_file_name(rgst->virtfile, rgst->ugz);
    if (virtname == NULL)
        return NULL;
    assert(name != NULL);
    bool same = strcmp(file_name_pt(name), file_name_pt(virtname)) == 0;
    _vn_free(virtname, kTag);
    return same ? xml_file_name(rgst->virtfile, 1) : NULL;
}

kavor_fcom_t *find_file(kavor_mobj_t *mobj, const char *name)
{
    for (struct znode *n = mobj->fcom_lst; n != NULL; n = n->next) {
        kavor_fcom_t *fcom = (kavor_fcom_t *)n;
        if (strcmp(fcom->filename, name) == 0)
            return fcom;
    }
    return NULL;
}

kavor_file_t *find_node(kavor_fcom_t *fcom, const char *node_name)
{
    kavor_file_t *found = NULL;
    nodes_rdlock(fcom);
    for (struct znode *n = fcom->file_lst; n != NULL && found == NULL; n = n->next)
        if (strcmp(((kavor_file_t *)n)->node_name, node_name) == 0)
            found = (kavor_file_t *)n;
    nodes_unlock(fcom);
    return found;
}


// A new record that owns `name` and `virtname` (both released here when the
// record can't be allocated). A virtual name the gzip command can't use
// safely is dropped with a message.
kavor_fcom_t *file_new(char *name, char *virtname)
{
    if (virtname != NULL) {
        const char *why = virt_name_refusal(virtname, name);
        if (why == NULL && virt_is_file(virtname, name))
            why = "it is the file name itself";
        if (why == NULL)
            why = virt_dir_refusal(virtname);
        if (why != NULL) {
            KV_LOGF(kTag, 4, "virtual file (%s) not used: %s.", virtname, why);
            _vn_free(virtname, kTag);
            virtname = NULL;
        }
    }
    kavor_fcom_t *fcom = (kavor_fcom_t *)_vn_malloc(sizeof(*fcom), kTag);
    if (fcom == NULL) {
        KV_LOGF(kTag, 4, "malloc kavor_fcom_t failed.");
        _vn_free(name, kTag);
        _vn_free(virtname, kTag);
        return NULL;
    }
    memset(fcom, 0, sizeof(*fcom));
    fcom->filename = name;
    fcom->virtfile = virtname;
    return fcom;
}

// Why `name` can't name an element that a load finds again, or NULL when
// it can. An NCName, not any XML name: a ':' would be read as a namespace
// prefix that no document declares. A node can't be "text", the name that
// the text between the indented elements of a document bears.
const char *element_name_refusal(const char *name, bool node)
{
    if (xmlValidateNCName(BAD_CAST name, 0) != 0)
        return "it is no XML name without ':'";
    if (node && strcmp(name, "text") == 0)
        return "the text between elements bears that name";
    return NULL;
}

// Derived names and locks of a new record. 0, or -1 after a message (none
// of its own for a name that can't be derived; one for a stem that can't
// be an element name).
int file_init(kavor_fcom_t *fcom)
{
    fcom->file_bak = xml_file_bak_name(fcom->filename);
    fcom->rt_node = get_file_root_node(fcom->filename);
    if (fcom->file_bak == NULL || fcom->rt_node == NULL)
        return -1;
    const char *why = element_name_refusal(fcom->rt_node, false);
    if (why != NULL) {
        KV_LOGF(kTag, 4, "file stem (%s) refused: %s, so its file would never load.",
                fcom->rt_node, why);
        return -1;
    }
    if (vn_mutex_init(&fcom->f_mutex) != 0) {
        KV_LOGF(kTag, 4, "f_mutex init failed!");
        return -1;
    }
    fcom->f_mutex_valid = 1;
    if (pthread_rwlock_init(&fcom->file_rwlock, NULL) != 0) {
        KV_LOGF(kTag, 4, "rwlock init failed!");
        return -1;
    }
    fcom->file_rwlock_valid = 1;
    return 0;
}

kavor_file_t *node_new(const kavor_file_rgst_t *rgst)
{
    kavor_file_t *fobj = (kavor_file_t *)_vn_malloc(sizeof(*fobj), kTag);
    if (fobj == NULL) {
        KV_LOGF(kTag, 4, "malloc kavor_file_t failed.");
        return NULL;
    }
    memset(fobj, 0, sizeof(*fobj));
    fobj->node_name = _string_dup(rgst->node_name, kTag);
    if (fobj->node_name == NULL) {
        KV_LOGF(kTag, 4, "copy xml node name failed.");
        _vn_free(fobj, kTag);
        return NULL;
    }
    fobj->param_desc = rgst->param_desc;
    fobj->mem = rgst->mem;
    return fobj;
}

bool request_ok(const kavor_file_rgst_t *rgst)
{
    if (rgst == NULL) {
        KV_LOGF(kTag, 4, "xmlParamFile pointer NULL!");
        return false;
    }
    if (rgst->filename[0] == '\0' || rgst->node_name[0] == '\0') {
        KV_LOGF(kTag, 4, "xml file name is empty!");
        return false;
    }
    const char *why = element_name_refusal(rgst->node_name, true);
    if (why != NULL) {
        KV_LOGF(kTag, 4, "node name (%s) refused: %s, so its file would never load.",
                rgst->node_name, why);
        return false;
    }
    return true;
}

}  // namespace

const char *virt_name_refusal(const char *virtname, const char *filename)
{
    if (strcmp(virtname, filename) == 0)
        return "it is the file name itself";
    if (!shell_safe(virtname) || !shell_safe(filename))
        return "a name holds a character outside [A-Za-z0-9._/+-]";
    if (virtname[0] == '-' || filename[0] == '-')
        return "a name begins with '-'";
    if (leading_dash(virtname) || leading_dash(filename))
        return "a base name begins with '-'";
    char sh[KAVOR_GZIP_CMD_SIZE];
    if (!gzip_command(virtname, filename, sh))
        return "the gzip command would not fit its buffer";
    return NULL;
}

const char *virt_dir_refusal(const char *virtname)
{
    struct stat st;
    if (!dir_stat(virtname, &st))
        return NULL;
    if (st.st_uid != 0 && st.st_uid != geteuid())
        return "its directory belongs to another user";
    if ((st.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (st.st_mode & S_ISVTX) == 0)
        return "others can write its directory";
    return NULL;
}

bool virt_is_file(const char *virtname, const char *filename)
{
    const char *vs = strrchr(virtname, '/'), *fs = strrchr(filename, '/');
    if (strcmp(vs != NULL ? vs + 1 : virtname, fs != NULL ? fs + 1 : filename) != 0)
        return false;
    struct stat vd, fd;
    return dir_stat(virtname, &vd) && dir_stat(filename, &fd) && vd.st_dev == fd.st_dev &&
           vd.st_ino == fd.st_ino;
}

extern "C" xml_file_hdl kavor_register(kavor_hdl hdl, kavor_file_rgst_t *rgst)
{
    if (!request_ok(rgst))
        return NULL;
    char *name = xml_file_name(rgst->filename, rgst->ugz);
    if (name == NULL) {
        KV_LOGF(kTag, 4, "copy xml file name fail!");
        return NULL;
    }
    char *virtname = virtual_name(rgst, name);

    kavor_fcom_t *fcom = NULL;
    kavor_file_t *fobj = NULL;
    files_wrlock(hdl);
    if (hdl != NULL)
        fcom = find_file(hdl, name);
    if (fcom != NULL) {
        // Joining: the file keeps the names of its first registration.
        _vn_free(name, kTag);
        _vn_free(virtname, kTag);
        fobj = find_node(fcom, rgst->node_name);
        if (fobj != NULL) {
            KV_LOGF(kTag, 4, "file node(%s) has exist!", rgst->node_name);
            files_unlock(hdl);
            return fobj;
        }
    } else {
        fcom = file_new(name, virtname);
        if (fcom == NULL || file_init(fcom) != 0)
            goto fail;
    }
    fobj = node_new(rgst);
    if (fobj == NULL)
        goto fail;
    fobj->fcom = fcom;
    nodes_wrlock(fcom);
    zlst_push(&fcom->file_lst, fobj);
    nodes_unlock(fcom);
    if (hdl != NULL && fcom->mobj == NULL) {
        fcom->mobj = hdl;
        zlst_push(&hdl->fcom_lst, fcom);
    }
    files_unlock(hdl);
    return fobj;

fail:
    files_unlock(hdl);
    if (fcom != NULL && fcom->mobj == NULL)
        kavor_fcom_free(fcom, kTag);
    return NULL;
}

void nodes_rdlock(kavor_fcom_t *fcom)
{
    if (fcom->file_rwlock_valid > 0)
        pthread_rwlock_rdlock(&fcom->file_rwlock);
}

void nodes_wrlock(kavor_fcom_t *fcom)
{
    if (fcom->file_rwlock_valid > 0)
        pthread_rwlock_wrlock(&fcom->file_rwlock);
}

void nodes_unlock(kavor_fcom_t *fcom)
{
    if (fcom->file_rwlock_valid > 0)
        pthread_rwlock_unlock(&fcom->file_rwlock);
}

void kavor_fcom_free(kavor_fcom_t *fcom, const char *tag)
{
    keep_release(fcom);
    status_release(fcom, tag);
    while (fcom->file_lst != NULL) {
        kavor_file_t *fobj = (kavor_file_t *)zlst_pop(&fcom->file_lst);
        _vn_free(fobj->node_name, tag);
        _vn_free(fobj, tag);
    }
    if (fcom->f_mutex_valid > 0)
        vn_mutex_destroy(&fcom->f_mutex);
    if (fcom->file_rwlock_valid > 0)
        pthread_rwlock_destroy(&fcom->file_rwlock);
    _vn_free(fcom->filename, tag);
    _vn_free(fcom->virtfile, tag);
    _vn_free(fcom->file_bak, tag);
    _vn_free(fcom->rt_node, tag);
    _vn_free(fcom, tag);
}

extern "C" void kavor_unregister(xml_file_hdl hdl)
{
    if (hdl == NULL)
        return;
    kavor_fcom_t *fcom = hdl->fcom;
    if (fcom != NULL) {
        kavor_mobj_t *mobj = fcom->mobj;
        files_wrlock(mobj);
        nodes_wrlock(fcom);
        zlst_delete(&fcom->file_lst, hdl);
        bool ends = fcom->file_lst == NULL;
        nodes_unlock(fcom);
        if (ends && mobj != NULL)
            zlst_delete(&mobj->fcom_lst, fcom);
        files_unlock(mobj);
        if (ends)
            kavor_fcom_free(fcom, kUnTag);
    }
    keep_release_node(hdl);
    _vn_free(hdl->node_name, kUnTag);
    _vn_free(hdl, kUnTag);
}
