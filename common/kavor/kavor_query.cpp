// kavor_query.cpp - what an application asks of a manager besides load and
// save: delete a file's copies on disk, count and name the files, and hold
// one file against the library's saves and loads.
//
// Invariant: none of these operations changes a record. The walks over
// fcom_lst hold fcom_rwlock for reading; kavor_get_all_filename and
// kavor_any_on_saving_copy never write past buf + buf_size, and the latter
// copies the name while the lock keeps its file record alive.
#include <stdio.h>
#include <string.h>

#include "kavor_private.h"
#include "xml_trace.h"

namespace {

void remove_pair(const kavor_fcom_t *fcom)
{
    kavor_sys.remove(fcom->filename);
    kavor_sys.remove(fcom->file_bak);
}

// The refusals of a manager handle and a buffer, recorded under the
// caller's name `fname`: false after the level-4 message.
bool manager_and_buf(kavor_hdl hdl, const void *buf, const char *fname)
{
    if (hdl == NULL) {
        KV_LOGF(fname, 4, "kavor mobj is NULL.");
        return false;
    }
    if (buf == NULL) {
        KV_LOGF(fname, 4, "buf pointer NULL.");
        return false;
    }
    return true;
}

}  // namespace

extern "C" void kavor_delete_one(xml_file_hdl hdl)
{
    if (hdl == NULL || hdl->fcom == NULL)
        return;
    remove_pair(hdl->fcom);
}

extern "C" void kavor_delete_all(kavor_hdl hdl)
{
    if (hdl == NULL) {
        KV_LOG(4, "kavor mobj is NULL.");
        return;
    }
    files_rdlock(hdl);
    for (struct znode *n = hdl->fcom_lst; n != NULL; n = n->next)
        remove_pair((kavor_fcom_t *)n);
    files_unlock(hdl);
}

extern "C" uint32_t kavor_count_all_filename(kavor_hdl hdl)
{
    if (hdl == NULL) {
        KV_LOG(4, "kavor mobj is NULL.");
        return 0;
    }
    uint32_t num = 0;
    files_rdlock(hdl);
    for (struct znode *n = hdl->fcom_lst; n != NULL; n = n->next)
        num++;
    files_unlock(hdl);
    return num;
}

extern "C" uint32_t kavor_get_all_filename(kavor_hdl hdl, uint8_t *buf, size_t buf_size)
{
    if (!manager_and_buf(hdl, buf, __func__))
        return 0;
    uint32_t num = 0;
    files_rdlock(hdl);
    for (struct znode *n = hdl->fcom_lst; n != NULL; n = n->next) {
        const char *rt = ((kavor_fcom_t *)n)->rt_node;
        size_t len = strlen(rt) + 1;
        if (len > buf_size) {
            KV_LOG(4, "buf is not big enough!");
            break;
        }
        memcpy(buf, rt, len);
        buf += len;
        buf_size -= len;
        num++;
    }
    files_unlock(hdl);
    return num;
}

extern "C" int32_t kavor_any_on_saving_copy(kavor_hdl hdl, char *buf, size_t buf_size)
{
    if (!manager_and_buf(hdl, buf, __func__))
        return -1;
    int32_t ret = -1;
    files_rdlock(hdl);
    const char *name = "";
    for (struct znode *n = hdl->fcom_lst; n != NULL; n = n->next)
        if (saving_get((kavor_fcom_t *)n) > 0) {
            name = ((kavor_fcom_t *)n)->filename;
            break;
        }
    size_t len = strlen(name);
    if (len < buf_size) {
        memcpy(buf, name, len + 1);
        ret = (int32_t)len;
    }
    files_unlock(hdl);
    if (ret < 0) {
        if (buf_size > 0)
            buf[0] = '\0';
        KV_LOG(4, "buf is not big enough!");
    }
    return ret;
}

extern "C" void kavor_file_lock(xml_file_hdl hdl)
{
    if (hdl == NULL) {
        KV_LOG(4, "xml_file_hdl is NULL.");
        return;
    }
    if (hdl->fcom != NULL && hdl->fcom->f_mutex != NULL)
        vn_mutex_lock(&hdl->fcom->f_mutex);
}

extern "C" void kavor_file_unlock(xml_file_hdl hdl)
{
    if (hdl == NULL) {
        KV_LOG(4, "xml_file_hdl is NULL.");
        return;
    }
    if (hdl->fcom != NULL && hdl->fcom->f_mutex != NULL)
        vn_mutex_unlock(&hdl->fcom->f_mutex);
}
