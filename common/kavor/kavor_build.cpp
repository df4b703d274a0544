// kavor_build.cpp - document build and the one-shot conversions: all nodes of
// a file record become one XML document (root element named by the file's
// stem, one child per node in list order, each filled by param2xml), written
// to a target path; kavor_param2file and kavor_file2param move one block to
// one file and back without a manager.
//
// Invariant: only a complete document reaches the disk. A document that
// lacks its root element or a node's child, or that a managed file with an
// empty node list would produce (its last node is leaving), is never
// written: the target is untouched and the result is -1. The target's last
// suffix alone decides the form: ".gz" is gzip (level 1) and indented,
// anything else plain and not indented. libxml2's own messages while the
// tree is built and written go into the trace (kavor_xml_errors.cpp).
//
// The target is always created new, never written through what stands at
// its name: that is removed first (a link itself, not what it points to),
// and the file is created with O_CREAT | O_EXCL | O_NOFOLLOW, so a link or
// file that someone puts there in between makes the create, and with it
// the write, fail instead of being followed. The document is written
// through that descriptor, plain or through zlib, in the very bytes that
// libxml2's own file writer gives. Create and write go through kavor_sys so
// that tests can make either fail; a write during which libxml2 raised an
// error (its writer reports a failed allocation only there) counts as
// failed, whatever byte count it gave.
#include <assert.h>
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <libxml/xmlerror.h>
#include <libxml/xmlsave.h>
#include <zlib.h>

#include "kavor_private.h"
#include "othermisc.h"
#include "param_xml.h"
#include "param_xml_walk.h"
#include "vn_time.h"
#include "xml_trace.h"

int32_t xmlMakeNode(xmlNodePtr pRoot, kavor_file_t *fobj)
{
    if (pRoot == NULL || fobj == NULL) {
        KV_LOG(4, "xmlMakeNode: pRoot or fobj is NULL!");
        return pRoot == NULL ? -1 : 0;
    }
    int32_t made = 0;
    unsigned dropped = walk_dropped();  // param2xml drops a row it can't allocate, returning 0
    for (; fobj != NULL; fobj = (kavor_file_t *)fobj->node.next) {
        xmlNodePtr xml_node = xmlNewNode(NULL, BAD_CAST fobj->node_name);
        if (xml_node == NULL || xml_node->name == NULL) {  // libxml2 doesn't check the name's copy
            KV_LOG(4, "create node (%s) failed!", fobj->node_name);
            xmlFreeNode(xml_node);
            return -1;
        }
        param2xml(fobj->mem, xml_node, fobj->param_desc);
        xmlAddChild(pRoot, xml_node);
        if (walk_dropped() != dropped) {
            KV_LOG(4, "node (%s) lost a row for want of memory!", fobj->node_name);
            return -1;
        }
        made++;
    }
    return made;
}

namespace {

// libxml2's output callbacks on a descriptor: plain, or gzip through zlib.
int fd_write(void *ctx, const char *buf, int len)
{
    int fd = (int)(intptr_t)ctx;
    for (int done = 0; done < len;) {
        ssize_t n = write(fd, buf + done, (size_t)(len - done));
        if (n > 0)
            done += (int)n;
        else if (n == 0 || errno != EINTR)
            return -1;
    }
    return len;
}

int fd_close(void *ctx)
{
    return close((int)(intptr_t)ctx) == 0 ? 0 : -1;
}

int gz_write(void *ctx, const char *buf, int len)
{
    int n = gzwrite((gzFile)ctx, buf, (unsigned)len);
    return n == len ? n : -1;
}

int gz_close(void *ctx)
{
    return gzclose((gzFile)ctx) == Z_OK ? 0 : -1;
}

// An output buffer that writes to `fd` and closes it, compressed at `level`
// when that is above 0; NULL (with `fd` closed) when it can't be made.
xmlOutputBufferPtr fd_output(int fd, int level, xmlCharEncodingHandlerPtr handler)
{
    xmlOutputBufferPtr buf = NULL;
    if (level > 0) {
        char mode[8];
        snprintf(mode, sizeof mode, "wb%d", level > 9 ? 9 : level);
        gzFile gz = gzdopen(fd, mode);
        if (gz == NULL) {
            close(fd);
            return NULL;
        }
        buf = xmlOutputBufferCreateIO(gz_write, gz_close, gz, handler);
        if (buf == NULL)
            gzclose(gz);
    } else {
        buf = xmlOutputBufferCreateIO(fd_write, fd_close, (void *)(intptr_t)fd, handler);
        if (buf == NULL)
            close(fd);
    }
    return buf;
}

// Creates `file_name` new (after removing what stood there) and writes
// `doc` through it. The bytes written, or -1.
int write_target(const char *file_name, xmlDocPtr doc, int gz)
{
    kavor_sys.remove(file_name);
    int fd = kavor_sys.create(file_name);
    if (fd < 0) {
        int err = errno;
        char why[128];
        KV_LOGF("xmlMakeParamFile", 4, "file<%s> can't be created new: %s.", file_name,
                strerror_r(err, why, sizeof why));
        errno = err;  // the create's, for the save status
        return -1;
    }
    return kavor_sys.save_doc(fd, doc, "utf-8", gz ? 1 : 0);
}

// The root element with one child per node, or NULL (after a message) when
// the document would be incomplete.
xmlNodePtr make_root(kavor_fcom_t *fcom, xmlDocPtr doc, const char *file_name)
{
    xmlNodePtr root = xmlNewDocNode(doc, NULL, BAD_CAST fcom->rt_node, NULL);
    if (root != NULL && root->name == NULL) {  // a failed copy of the name: a nameless root
        xmlFreeNode(root);
        root = NULL;
    }
    uint32_t policies = file_policies(fcom);
    struct param_xml_walk walk;
    param_xml_walk_begin(&walk, (policies & KAVOR_POLICY_EXACT_FLOATS) ? PARAM_XML_EXACT_FLOATS : 0,
                         NULL);
    nodes_rdlock(fcom);
    int32_t made = xmlMakeNode(root, (kavor_file_t *)fcom->file_lst);
    if (made > 0 && (policies & KAVOR_POLICY_KEEP_UNKNOWN))
        keep_write_back(fcom, root);
    nodes_unlock(fcom);
    param_xml_walk_end(&walk);
    if (made < 0 || (made == 0 && fcom->mobj != NULL)) {
        KV_LOGF("xmlMakeParamFile", 4, "document of file<%s> is incomplete, not written.",
                file_name);
        xmlFreeNode(root);
        return NULL;
    }
    return root;
}

}  // namespace

int32_t xmlMakeParamFile(kavor_fcom_t *fcom, char *file_name)
{
    assert(fcom != NULL && file_name != NULL);
    make_dir_from_filename(file_name, 777);
    kavor_xml_errors_t route;   // what libxml2 says while the tree is built and written
    kavor_xml_errors_begin(&route, "xmlMakeParamFile", file_name);
    xmlDocPtr doc = xmlNewDoc(BAD_CAST "1.0");
    if (doc == NULL) {
        kavor_xml_errors_end(&route);
        return -1;
    }
    KV_LOG(7, "time=%llu, start makeParam of file<%s>.",
           (unsigned long long)vn_uptime_ms(), file_name);
    int32_t ret = -1;
    xmlNodePtr root = make_root(fcom, doc, file_name);
    if (root != NULL) {
        xmlDocSetRootElement(doc, root);
        ret = xmlSaveParamDoc(doc, file_name);
        if (ret != 0)
            save_failed_at(fcom, KAVOR_STEP_WRITE, errno);
    }
    xmlFreeDoc(doc);
    kavor_xml_errors_end(&route);
    return ret;
}

int32_t xmlSaveParamDoc(xmlDocPtr doc, const char *file_name)
{
    kavor_xml_errors_t route;   // what libxml2 says while the document is written
    kavor_xml_errors_begin(&route, "xmlMakeParamFile", file_name);
    int gz = isGzFile(file_name);
    if (gz)
        xmlSetDocCompressMode(doc, 1);
    // libxml2's writer records a failed allocation as an error but may
    // still give a byte count, having written a cut document: any error
    // raised during the write fails it.
    xmlResetLastError();
    errno = 0;
    int rc = write_target(file_name, doc, gz);
    int write_errno = errno;
    xmlErrorPtr err = xmlGetLastError();
    if (rc >= 0 && err != NULL && err->code != XML_ERR_OK) {
        KV_LOGF("xmlMakeParamFile", 4, "write of file<%s> failed: %s", file_name,
                err->message != NULL ? err->message : "libxml2 error");
        rc = -1;
    }
    kavor_xml_errors_end(&route);
    KV_LOGF("xmlMakeParamFile", 7, "time=%llu, end to makeParam of file<%s>.",
            (unsigned long long)vn_uptime_ms(), file_name);
    errno = write_errno;  // the write's, for the save status
    return rc < 0 ? -1 : 0;
}

int kavor_create_new(const char *path)
{
    return open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
}

int kavor_save_fd(int fd, xmlDocPtr doc, const char *encoding, int format)
{
    xmlCharEncodingHandlerPtr handler = xmlFindCharEncodingHandler(encoding);
    if (handler == NULL) {
        close(fd);
        return -1;
    }
    xmlOutputBufferPtr buf = fd_output(fd, doc->compression, handler);
    if (buf == NULL)
        return -1;
    // The same dump as xmlSaveFormatFileEnc's, which closes the buffer.
    return xmlSaveFormatFileTo(buf, doc, encoding, format);
}

namespace {

// A standalone record for one call with `policies`, or NULL (reported).
kavor_file_t *one_shot(kavor_file_rgst_t *rgst, uint32_t policies, const char *fname)
{
    if ((policies & ~KAVOR_POLICY_ALL) != 0) {
        KV_LOGF(fname, 4, "unknown policy 0x%x.", (unsigned)policies);
        return NULL;
    }
    kavor_file_t *fobj = kavor_register(NULL, rgst);
    if (fobj != NULL)
        fobj->fcom->policies = policies & KAVOR_POLICY_EXACT_FLOATS;
    return fobj;
}

}  // namespace

extern "C" int32_t kavor_param2file_v2(kavor_file_rgst_t *rgst, uint32_t policies)
{
    kavor_file_t *fobj = one_shot(rgst, policies, __func__);
    if (fobj == NULL)
        return -1;
    int32_t ret = xmlMakeParamFile(fobj->fcom, fobj->fcom->filename);
    kavor_unregister(fobj);
    return ret;
}

extern "C" int32_t kavor_param2file(kavor_file_rgst_t *rgst)
{
    return kavor_param2file_v2(rgst, 0);
}

extern "C" int32_t kavor_file2param_v2(kavor_file_rgst_t *rgst, uint32_t policies,
                                       kavor_load_report_t *report)
{
    if (report != NULL) {
        memset(report, 0, sizeof(*report));
        report->result = -1;
    }
    kavor_file_t *fobj = one_shot(rgst, policies, __func__);
    if (fobj == NULL)
        return -1;
    struct load_ctx lc = {report, fobj->fcom->policies, 1, false, NULL};
    int32_t ret = xmlParseParamFile(fobj->fcom, fobj->fcom->filename, &lc);
    kavor_unregister(fobj);
    if (report != NULL)
        report->result = ret;
    return ret;
}

extern "C" int32_t kavor_file2param(kavor_file_rgst_t *rgst)
{
    return kavor_file2param_v2(rgst, 0, NULL);
}
