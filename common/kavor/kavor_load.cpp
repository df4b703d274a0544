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
#include <string.h>

#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include "kavor_private.h"
#include "param_xml.h"
#include "param_xml_limit.h"
#include "param_xml_walk.h"
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

// Where a parse notes what libxml2 says: the trace's route, and the load's
// report with the copy read (rep NULL: no report).
struct error_note {
    kavor_xml_errors_t *route;
    kavor_load_report_t *rep;
    int32_t copy;  // 1 the file, 2 the backup
};

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

// Passes libxml2's message on to the trace and notes the first error (not
// a warning) of the load in its report.
void note_error(void *data, xmlErrorPtr err)
{
    const error_note *note = static_cast<const error_note *>(data);
    kavor_xml_error(note->route, err);
    kavor_load_report_t *rep = note->rep;
    if (rep == NULL || rep->error_copy != 0 || err == NULL || err->level < XML_ERR_ERROR)
        return;
    rep->error_copy = note->copy;
    rep->error_line = err->line;
    rep->error_column = err->int2;
    const char *msg = err->message != NULL ? err->message : "";
    size_t n = strcspn(msg, "\n");
    if (n >= sizeof(rep->error_message))
        n = sizeof(rep->error_message) - 1;
    memcpy(rep->error_message, msg, n);
    rep->error_message[n] = '\0';
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
                            int32_t *why, kavor_load_report_t *rep, int32_t copy)
{
    assert(path != NULL);
    int32_t result = KAVOR_COPY_COMPLETE, fault = 0;
    kavor_xml_errors_t route;
    kavor_xml_errors_begin(&route, "xmlParseParamFile", path);
    error_note note = {&route, rep, copy};
    kavor_parse_t how = {false, 0, note_error, &note};
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
    return kavor_read_copy_why(path, rt_node, doc, NULL, NULL, 0);
}

namespace {

// The level-4 record of each reason a copy is unusable, by KAVOR_COPY_*.
const char *const kRefused[] = {
    NULL,
    "xmlParseFile %s failed!",
    "%s has a document type declaration, refused!",
    "%s get root node failed!",
    "parse xml file(%s) failed!",
};

// A copy whose recovered document waits for the backup (PREFER_BACKUP).
const int32_t kWaiting = 2;

// The mark of a root's child that a node is filled from (its _private).
char kNodeElement;

// Marks the child of `root` that each node is filled from (the first of its
// name, as xmlParseNode takes it); notes in `values` (when not NULL) the
// nodes without one, and the root's other element children.
void mark_node_elements(xmlNodePtr root, kavor_file_t *fobj, param_xml_report_t *values)
{
    for (; fobj != NULL; fobj = (kavor_file_t *)fobj->node.next) {
        xmlNodePtr c = root->children;
        while (c != NULL && xmlStrcmp(c->name, BAD_CAST fobj->node_name) != 0)
            c = c->next;
        if (c != NULL)
            c->_private = &kNodeElement;
        else if (values != NULL)
            report_case(&values->missing, root, fobj->node_name);
    }
    for (xmlNodePtr c = root->children; c != NULL && values != NULL; c = c->next)
        if (c->type == XML_ELEMENT_NODE && !is_node_element(c))
            report_case(&values->unknown, c, NULL);
}

// The source of the report for a copy read with a result.
int32_t source_of(int32_t copy, int32_t ret)
{
    if (copy == 1)
        return ret == 0 ? KAVOR_SOURCE_MAIN : KAVOR_SOURCE_MAIN_PARTIAL;
    return ret == 0 ? KAVOR_SOURCE_BACKUP : KAVOR_SOURCE_BACKUP_PARTIAL;
}

// Fills the nodes of `fcom` from `doc` (then freed), read from `path` with
// result `ret`, and notes in the report what the walk did.
int32_t fill_nodes(kavor_fcom_t *fcom, xmlDocPtr doc, const char *path, int32_t ret,
                   struct load_ctx *lc)
{
    KV_LOGF("xmlParseParamFile", 7, "parse xml file(%s).", path);
    xmlNodePtr root = xmlDocGetRootElement(doc);
    uint32_t options = (lc->policies & KAVOR_POLICY_EXACT_FLOATS) ? PARAM_XML_EXACT_FLOATS : 0;
    param_xml_report_t *values = lc->rep != NULL ? &lc->rep->values : NULL;
    kavor_xml_errors_t route;   // what libxml2 says while the blocks are filled
    kavor_xml_errors_begin(&route, "xmlParseParamFile", path);
    struct param_xml_walk walk;
    param_xml_walk_begin(&walk, options, values);
    nodes_rdlock(fcom);
    size_t before = param_xml_read_limit(kLoadAllocLimit);
    xmlParseNode(root, (kavor_file_t *)fcom->file_lst);
    param_xml_read_limit(before);
    mark_node_elements(root, (kavor_file_t *)fcom->file_lst, values);
    if (lc->policies & KAVOR_POLICY_KEEP_UNKNOWN)
        keep_from_load(fcom, root);
    nodes_unlock(fcom);
    param_xml_walk_end(&walk);
    xmlFreeDoc(doc);
    kavor_xml_errors_end(&route);
    if (lc->rep != NULL)
        lc->rep->source = source_of(lc->copy, ret);
    return ret;
}

}  // namespace

bool is_node_element(const xmlNode *c)
{
    return c->_private == &kNodeElement;
}

int32_t xmlParseParamFile(kavor_fcom_t *fcom, const char *path, struct load_ctx *lc)
{
    assert(fcom != NULL && path != NULL);
    struct load_ctx plain = {NULL, file_policies(fcom), 1, false, NULL};
    if (lc == NULL)
        lc = &plain;
    xmlDocPtr doc = NULL;
    int32_t why = 0;
    int32_t ret = kavor_read_copy_why(path, fcom->rt_node, &doc, &why, lc->rep, lc->copy);
    if (ret == KAVOR_COPY_UNUSABLE) {
        KV_LOG(4, kRefused[why], path);
        return -1;
    }
    if (ret == KAVOR_COPY_RECOVERED && lc->partial != NULL) {
        // The file's own part waits: a backup read in part is no better.
        KV_LOG(5, "file (%s) read only in part, not taken.", path);
        xmlFreeDoc(doc);
        return -1;
    }
    if (ret == KAVOR_COPY_RECOVERED && lc->prefer_backup && lc->copy == 1) {
        KV_LOG(5, "file (%s) read only in part, trying the backup.", path);
        lc->partial = doc;
        return kWaiting;
    }
    return fill_nodes(fcom, doc, path, ret, lc);
}

int32_t load_xml(kavor_fcom_t *fcom, const char *path, struct load_ctx *lc)
{
    assert(fcom->mobj != NULL);
    struct load_ctx plain = {NULL, file_policies(fcom), 1, false, NULL};
    if (lc == NULL)
        lc = &plain;
    if (get_gz_filesize(path) == 0) {
        KV_LOG(5, "file (%s) size is 0!", path);
        return -1;
    }
    vn_mutex_lock(&fcom->mobj->mtx_ld);
    int32_t ret = xmlParseParamFile(fcom, path, lc);
    vn_mutex_unlock(&fcom->mobj->mtx_ld);
    if (ret == kWaiting)
        return ret;
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
    uint32_t policies = file_policies(fcom);
    struct load_ctx lc = {status_report(fcom), policies, 1,
                          (policies & KAVOR_POLICY_PREFER_BACKUP) != 0, NULL};
    // The pair of paths to read, in order; the record's own pair stays put.
    char *path = fcom->filename;
    char *other = fcom->file_bak;
    int32_t ret = load_xml(fcom, path, &lc);
    if (ret < 0 || ret == kWaiting) {
        string_swap(&path, &other);
        lc.copy = 2;
        int32_t bak = load_xml(fcom, path, &lc);
        if (ret == kWaiting && bak >= 0) {
            xmlFreeDoc(lc.partial);
        } else if (ret == kWaiting) {
            // No complete backup: the file's part is taken after all.
            lc.copy = 1;
            vn_mutex_lock(&fcom->mobj->mtx_ld);
            bak = fill_nodes(fcom, lc.partial, other, KAVOR_COPY_RECOVERED, &lc);
            vn_mutex_unlock(&fcom->mobj->mtx_ld);
            KV_LOGF("load_xml", 7, "succeed to load file (%s).", other);
        }
        ret = bak;
    }
    if (lc.rep != NULL)
        lc.rep->result = ret;
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
