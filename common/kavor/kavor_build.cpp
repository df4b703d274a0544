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
// anything else plain and not indented. The write goes through
// kavor_sys.save_doc so that tests can make it fail; a write during which
// libxml2 raised an error (its writer reports a failed allocation only
// there) counts as failed, whatever byte count it gave.
#include <assert.h>

#include <libxml/xmlerror.h>

#include "kavor_private.h"
#include "othermisc.h"
#include "param_xml.h"
#include "vn_time.h"
#include "xml_trace.h"

int32_t xmlMakeNode(xmlNodePtr pRoot, kavor_file_t *fobj)
{
    if (pRoot == NULL || fobj == NULL) {
        KV_LOG(4, "xmlMakeNode: pRoot or fobj is NULL!");
        return pRoot == NULL ? -1 : 0;
    }
    int32_t made = 0;
    for (; fobj != NULL; fobj = (kavor_file_t *)fobj->node.next) {
        xmlNodePtr xml_node = xmlNewNode(NULL, BAD_CAST fobj->node_name);
        if (xml_node == NULL || xml_node->name == NULL) {  // libxml2 doesn't check the name's copy
            KV_LOG(4, "create node (%s) failed!", fobj->node_name);
            xmlFreeNode(xml_node);
            return -1;
        }
        param2xml(fobj->mem, xml_node, fobj->param_desc);
        xmlAddChild(pRoot, xml_node);
        made++;
    }
    return made;
}

namespace {

// The root element with one child per node, or NULL (after a message) when
// the document would be incomplete.
xmlNodePtr make_root(kavor_fcom_t *fcom, xmlDocPtr doc, const char *file_name)
{
    xmlNodePtr root = xmlNewDocNode(doc, NULL, BAD_CAST fcom->rt_node, NULL);
    if (root != NULL && root->name == NULL) {  // a failed copy of the name: a nameless root
        xmlFreeNode(root);
        root = NULL;
    }
    pthread_rwlock_rdlock(&fcom->file_rwlock);
    int32_t made = xmlMakeNode(root, (kavor_file_t *)fcom->file_lst);
    pthread_rwlock_unlock(&fcom->file_rwlock);
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
    xmlDocPtr doc = xmlNewDoc(BAD_CAST "1.0");
    if (doc == NULL)
        return -1;
    KV_LOG(7, "time=%llu, start makeParam of file<%s>.",
           (unsigned long long)vn_uptime_ms(), file_name);
    int32_t ret = -1;
    xmlNodePtr root = make_root(fcom, doc, file_name);
    if (root != NULL) {
        xmlDocSetRootElement(doc, root);
        ret = xmlSaveParamDoc(doc, file_name);
    }
    xmlFreeDoc(doc);
    return ret;
}

int32_t xmlSaveParamDoc(xmlDocPtr doc, const char *file_name)
{
    int gz = isGzFile(file_name);
    if (gz)
        xmlSetDocCompressMode(doc, 1);
    // libxml2's writer records a failed allocation as an error but may
    // still give a byte count, having written a cut document: any error
    // raised during the write fails it.
    xmlResetLastError();
    int rc = kavor_sys.save_doc(file_name, doc, "utf-8", gz ? 1 : 0);
    xmlErrorPtr err = xmlGetLastError();
    if (rc >= 0 && err != NULL && err->code != XML_ERR_OK) {
        KV_LOGF("xmlMakeParamFile", 4, "write of file<%s> failed: %s", file_name,
                err->message != NULL ? err->message : "libxml2 error");
        rc = -1;
    }
    KV_LOGF("xmlMakeParamFile", 7, "time=%llu, end to makeParam of file<%s>.",
            (unsigned long long)vn_uptime_ms(), file_name);
    return rc < 0 ? -1 : 0;
}

extern "C" int32_t kavor_param2file(kavor_file_rgst_t *rgst)
{
    kavor_file_t *fobj = kavor_register(NULL, rgst);
    if (fobj == NULL)
        return -1;
    int32_t ret = xmlMakeParamFile(fobj->fcom, fobj->fcom->filename);
    kavor_unregister(fobj);
    return ret;
}

extern "C" int32_t kavor_file2param(kavor_file_rgst_t *rgst)
{
    kavor_file_t *fobj = kavor_register(NULL, rgst);
    if (fobj == NULL)
        return -1;
    int32_t ret = xmlParseParamFile(fobj->fcom, fobj->fcom->filename);
    kavor_unregister(fobj);
    return ret;
}
