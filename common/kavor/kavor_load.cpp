// kavor_load.cpp - document load: a parameter file fills the memory blocks of
// all nodes of its record, with the recovery parser for a damaged document
// and a fall-back to the backup copy when the file gives nothing usable.
//
// Results: 0 parsed, 1 parsed by the recovery parser (possibly partial), -1
// nothing filled. A -1 arises only before the first block is written, so the
// fall-back never starts over a half-filled block.
//
// The record's filename and file_bak are never exchanged: the fall-back hands
// the backup's path down to the parser, so registration and the save road,
// which read the pair without f_mutex, always see the true names, while the
// trace names the path actually read.
//
// libxml2's own messages on a parse go into the trace (level 5, with file,
// line and column) through the parser context, never to standard error
// (kavor_xml_errors.cpp).
//
// Hostile files: each parse runs in a parser context of its own whose
// options and handlers don't depend on libxml2's process-wide defaults (an
// application may have turned on entity substitution or DTD loading for its
// own documents). A document type declaration stops the parse at once and
// the file is refused like one that isn't XML, so no entity, attribute
// default or external subset is ever declared, let alone read: no file but
// the one asked for is opened, nothing is fetched from the network, and no
// entity is expanded. A parameter file never has one. Beyond that,
// libxml2's own limits stay on (no XML_PARSE_HUGE): 256 levels of elements,
// 10 MB for one text node; and the reader may allocate at most
// kLoadAllocLimit bytes of buffers and list nodes in the walk of one
// document, whatever its "cnt" values and node counts say. See
// docs/limits.md.
//
// What a copy on disk is - complete, recovered or unusable - is decided once,
// by kavor_read_copy: the load and the save road (before it moves the file
// name over the backup) ask the same question in the same way.
//
// Lock order: fcom_rwlock (read, kavor_load_all), f_mutex, mtx_ld (the parse
// alone), file_rwlock (read, the node walk and xml2param).
#include <assert.h>

#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include "kavor_private.h"
#include "param_xml.h"
#include "param_xml_limit.h"
#include "vn_ipc.h"
#include "xml_trace.h"
#include "zlib_if.h"

void xmlParseNode(xmlNodePtr pRoot, kavor_file_t *fobj)
{
    if (pRoot == NULL || fobj == NULL) {
        KV_LOG(4, "xmlParseNode: pRoot or fobj is NULL!");
        return;
    }
    for (; fobj != NULL; fobj = (kavor_file_t *)fobj->node.next) {
        for (xmlNodePtr child = pRoot->children; child != NULL; child = child->next) {
            if (xmlStrcmp(child->name, BAD_CAST fobj->node_name) == 0) {
                xml2param(fobj->mem, child, fobj->param_desc);
                break;
            }
        }
    }
}

namespace {

// Buffers and list nodes that the walk of one document may allocate.
const size_t kLoadAllocLimit = 64u << 20;

// Marks the parse and stops it at "<!DOCTYPE".
void refuse_doctype(void *ctx, const xmlChar *, const xmlChar *, const xmlChar *)
{
    xmlParserCtxtPtr ctxt = static_cast<xmlParserCtxtPtr>(ctx);
    kavor_parse_t *how = static_cast<kavor_parse_t *>(ctxt->_private);
    how->doctype = true;
    how->doctype_line = xmlSAX2GetLineNumber(ctxt);
    xmlStopParser(ctxt);
}

xmlParserInputPtr refuse_entity(void *, const xmlChar *, const xmlChar *)
{
    return NULL;
}

// The context's structured error handler: libxml2's messages on the parse
// go where the caller asked.
void pass_error(void *ctx, xmlErrorPtr err)
{
    kavor_parse_t *how = static_cast<kavor_parse_t *>(static_cast<xmlParserCtxtPtr>(ctx)->_private);
    how->errors(how->data, err);
}

}  // namespace

xmlDocPtr kavor_read_doc(const char *path, int recover, kavor_parse_t *how)
{
    xmlParserCtxtPtr ctxt = xmlNewParserCtxt();
    if (ctxt == NULL)
        return NULL;
    ctxt->_private = how;
    ctxt->sax->internalSubset = refuse_doctype;
    ctxt->sax->externalSubset = NULL;
    ctxt->sax->resolveEntity = refuse_entity;
    if (how->errors != NULL)
        ctxt->sax->serror = pass_error;
    int options = XML_PARSE_NONET | (recover ? XML_PARSE_RECOVER : 0);
    xmlDocPtr doc = xmlCtxtReadFile(ctxt, path, NULL, options);
    xmlFreeParserCtxt(ctxt);
    if (doc != NULL && how->doctype) {
        xmlFreeDoc(doc);
        doc = NULL;
    }
    return doc;
}

int32_t kavor_read_copy_why(const char *path, const char *rt_node, xmlDocPtr *out,
                            int32_t *why)
{
    assert(path != NULL);
    int32_t result = KAVOR_COPY_COMPLETE, fault = 0;
    kavor_xml_errors_t route;
    kavor_xml_errors_begin(&route, "xmlParseParamFile", path);
    kavor_parse_t how = {false, 0, kavor_xml_error, &route};
    xmlDocPtr doc = kavor_read_doc(path, 0, &how);
    if (doc == NULL && !how.doctype) {
        result = KAVOR_COPY_RECOVERED;
        doc = kavor_read_doc(path, 1, &how);
    }
    kavor_xml_errors_end(&route);
    xmlNodePtr root = doc != NULL ? xmlDocGetRootElement(doc) : NULL;
    if (how.doctype)
        fault = KAVOR_COPY_DOCTYPE;
    else if (doc == NULL)
        fault = KAVOR_COPY_NO_DOCUMENT;
    else if (root == NULL)
        fault = KAVOR_COPY_NO_ROOT;
    else if (rt_node != NULL && xmlStrcmp(root->name, BAD_CAST rt_node) != 0)
        fault = KAVOR_COPY_OTHER_ROOT;
    if (fault != 0 || out == NULL) {
        xmlFreeDoc(doc);
        doc = NULL;
    }
    if (out != NULL)
        *out = doc;
    if (why != NULL)
        *why = fault;
    return fault != 0 ? KAVOR_COPY_UNUSABLE : result;
}

int32_t kavor_read_copy(const char *path, const char *rt_node, xmlDocPtr *doc)
{
    return kavor_read_copy_why(path, rt_node, doc, NULL);
}

int32_t xmlParseParamFile(kavor_fcom_t *fcom, const char *path)
{
    // The level-4 record of each reason a copy is unusable, by KAVOR_COPY_*.
    static const char *const kRefused[] = {
        NULL,
        "xmlParseFile %s failed!",
        "%s has a document type declaration, refused!",
        "%s get root node failed!",
        "parse xml file(%s) failed!",
    };
    assert(fcom != NULL && path != NULL);
    xmlDocPtr doc = NULL;
    int32_t why = 0;
    int32_t ret = kavor_read_copy_why(path, fcom->rt_node, &doc, &why);
    if (ret == KAVOR_COPY_UNUSABLE) {
        KV_LOG(4, kRefused[why], path);
        return -1;
    }
    KV_LOG(7, "parse xml file(%s).", path);
    kavor_xml_errors_t route;   // what libxml2 says while the blocks are filled
    kavor_xml_errors_begin(&route, "xmlParseParamFile", path);
    nodes_rdlock(fcom);
    size_t before = param_xml_read_limit(kLoadAllocLimit);
    xmlParseNode(xmlDocGetRootElement(doc), (kavor_file_t *)fcom->file_lst);
    param_xml_read_limit(before);
    nodes_unlock(fcom);
    xmlFreeDoc(doc);
    kavor_xml_errors_end(&route);
    return ret;
}

int32_t load_xml(kavor_fcom_t *fcom, const char *path)
{
    assert(fcom->mobj != NULL);
    if (get_gz_filesize(path) == 0) {
        KV_LOG(5, "file (%s) size is 0!", path);
        return -1;
    }
    vn_mutex_lock(&fcom->mobj->mtx_ld);
    int32_t ret = xmlParseParamFile(fcom, path);
    vn_mutex_unlock(&fcom->mobj->mtx_ld);
    if (ret >= 0)
        KV_LOG(7, "succeed to load file (%s).", path);
    else
        KV_LOG(5, "failed to load file (%s).", path);
    return ret;
}

void string_swap(char **s1, char **s2)
{
    char *t = *s1;
    *s1 = *s2;
    *s2 = t;
}

int32_t load_one_xml(kavor_fcom_t *fcom)
{
    vn_mutex_lock(&fcom->f_mutex);
    // The pair of paths to read, in order; the record's own pair stays put.
    char *path = fcom->filename;
    char *other = fcom->file_bak;
    int32_t ret = load_xml(fcom, path);
    if (ret < 0) {
        string_swap(&path, &other);
        ret = load_xml(fcom, path);
    }
    vn_mutex_unlock(&fcom->f_mutex);
    return ret;
}

extern "C" int32_t kavor_load_one(xml_file_hdl hdl)
{
    if (hdl == NULL) {
        KV_LOG(4, "xml_file_hdl is NULL.");
        return -1;
    }
    // A standalone node has no manager, hence no mtx_ld to load under.
    if (hdl->fcom == NULL || hdl->fcom->mobj == NULL) {
        KV_LOG(4, "file node (%s) has no manager!", hdl->node_name);
        return -1;
    }
    return load_one_xml(hdl->fcom);
}

extern "C" int32_t kavor_load_all(kavor_hdl hdl)
{
    if (hdl == NULL) {
        KV_LOG(4, "kavor hdl is NULL.");
        return -1;
    }
    int32_t ret = 0;
    files_rdlock(hdl);
    for (struct znode *n = hdl->fcom_lst; n != NULL; n = n->next) {
        kavor_fcom_t *fcom = (kavor_fcom_t *)n;
        int32_t ret1 = load_one_xml(fcom);
        if (ret1 < 0)
            KV_LOG(4, "load file (%s) fail!", fcom->filename);
        if ((ret == 0 && ret1 != 0) || (ret > 0 && ret1 < 0))
            ret = ret1;
    }
    files_unlock(hdl);
    return ret;
}
