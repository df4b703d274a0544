// kavor_schema.cpp - the schema of a whole parameter file and the check of a
// document against a schema.
//
// kavor_write_schema describes what a save of a file writes: a root element
// named after the file's stem, one child per registered node in list order,
// each described by its table (param_xml_schema.cpp). kavor_validate reads a
// document as a load reads it (no DTD, no entity, no network: a document
// type declaration is a problem of its own) and checks it with libxml2's
// schema validator; every problem goes to the caller's function with its
// line. What libxml2 says beside them (a schema file it can't load, a schema
// write cut short, a failed allocation) goes to the trace, never to standard
// error.
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <libxml/parser.h>
#include <libxml/xmlsave.h>
#include <libxml/xmlschemas.h>

#include "kavor_private.h"
#include "schema_private.h"
#include "xml_trace.h"

namespace {

// Writes `doc`, indented, to a file created new at `path` (what stood there
// is removed first, and a link planted in between makes the create fail).
int32_t write_new_file(const char *path, xmlDocPtr doc)
{
    remove(path);
    int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0)
        return -1;
    kavor_xml_errors_t route;   // libxml2's I/O messages go to the trace
    kavor_xml_errors_begin(&route, "kavor_write_schema", path);
    xmlSaveCtxtPtr save = xmlSaveToFd(fd, "utf-8", XML_SAVE_FORMAT);
    int rc = save != nullptr ? xmlSaveDoc(save, doc) : -1;
    if (save != nullptr && xmlSaveClose(save) < 0)
        rc = -1;
    kavor_xml_errors_end(&route);
    if (close(fd) != 0)
        rc = -1;
    if (rc < 0)
        remove(path);
    return rc < 0 ? -1 : 0;
}

// Where the problems of one check go, and how many there were.
struct problems {
    kavor_problem_fn report;
    void *ctx;
    int32_t count;
};

void add_problem(problems *p, int line, const char *message)
{
    char text[512];
    snprintf(text, sizeof text, "%s", message != nullptr ? message : "error");
    size_t n = strlen(text);
    while (n > 0 && (text[n - 1] == '\n' || text[n - 1] == ' '))
        text[--n] = '\0';
    p->count++;
    if (p->report != nullptr)
        p->report(p->ctx, line, text);
}

void on_error(void *data, xmlErrorPtr err)
{
    if (err != nullptr && err->level != XML_ERR_WARNING)
        add_problem(static_cast<problems *>(data), err->line, err->message);
}

// The document at `path` as the strict parser of a load reads it, or NULL
// after reporting why not.
xmlDocPtr read_strict(const char *path, problems *p)
{
    kavor_parse_t how = {false, 0, on_error, p};
    xmlDocPtr doc = kavor_read_doc(path, 0, &how);
    if (how.doctype)
        add_problem(p, how.doctype_line, "a document type declaration, which a load refuses");
    else if (doc == nullptr && p->count == 0)
        add_problem(p, 0, "the file can't be read");
    return doc;
}

// The compiled schema at `path`, or NULL after reporting why not.
xmlSchemaPtr load_schema(const char *path, problems *p)
{
    xmlSchemaParserCtxtPtr pctxt = xmlSchemaNewParserCtxt(path);
    if (pctxt == nullptr)
        return nullptr;
    xmlSchemaSetParserStructuredErrors(pctxt, on_error, p);
    xmlSchemaPtr schema = xmlSchemaParse(pctxt);
    xmlSchemaFreeParserCtxt(pctxt);
    return schema;
}

}  // namespace

extern "C" int32_t kavor_write_schema(xml_file_hdl hdl, const char *path)
{
    if (hdl == nullptr || hdl->fcom == nullptr || path == nullptr) {
        KV_LOG(4, "xml_file_hdl or path is NULL.");
        return -1;
    }
    kavor_fcom_t *fcom = hdl->fcom;
    struct schema_gen *g = schema_begin();
    if (g == nullptr)
        return -1;
    xmlNodePtr root = schema_xs(g, schema_root(g), "element", fcom->rt_node);
    xmlNodePtr seq = schema_xs(g, schema_xs(g, root, "complexType", nullptr), "sequence", nullptr);
    nodes_rdlock(fcom);
    for (struct znode *n = fcom->file_lst; n != nullptr; n = n->next) {
        kavor_file_t *fobj = reinterpret_cast<kavor_file_t *>(n);
        xmlNodePtr child = schema_xs(g, seq, "element", fobj->node_name);
        if (child != nullptr && xmlNewProp(child, BAD_CAST "minOccurs", BAD_CAST "0") == nullptr)
            child = nullptr;
        schema_table_element(g, child, fobj->node_name, fobj->param_desc);
    }
    nodes_unlock(fcom);
    xmlDocPtr doc = schema_end(g);
    if (doc == nullptr) {
        KV_LOG(4, "schema of file (%s) can't be made.", fcom->filename);
        return -1;
    }
    int32_t ret = write_new_file(path, doc);
    xmlFreeDoc(doc);
    if (ret != 0)
        KV_LOG(4, "schema (%s) can't be written.", path);
    return ret;
}

extern "C" int32_t kavor_validate_doc(xmlDocPtr doc, const char *schema_path,
                                      kavor_problem_fn report, void *ctx)
{
    if (doc == nullptr || schema_path == nullptr)
        return -1;
    problems p = {report, ctx, 0};
    kavor_xml_errors_t route;
    kavor_xml_errors_begin(&route, "kavor_validate", schema_path);
    xmlSchemaPtr schema = load_schema(schema_path, &p);
    xmlSchemaValidCtxtPtr vctxt = schema != nullptr ? xmlSchemaNewValidCtxt(schema) : nullptr;
    int32_t ret = -1;
    if (vctxt != nullptr) {
        xmlSchemaSetValidStructuredErrors(vctxt, on_error, &p);
        int rc = xmlSchemaValidateDoc(vctxt, doc);
        if (rc > 0 && p.count == 0)
            add_problem(&p, 0, "the document doesn't match the schema");
        ret = rc < 0 ? -1 : p.count;
        xmlSchemaFreeValidCtxt(vctxt);
    }
    xmlSchemaFree(schema);
    kavor_xml_errors_end(&route);
    return ret;
}

extern "C" int32_t kavor_validate(const char *path, const char *schema_path,
                                  kavor_problem_fn report, void *ctx)
{
    if (path == nullptr || schema_path == nullptr)
        return -1;
    problems p = {report, ctx, 0};
    xmlDocPtr doc = read_strict(path, &p);
    if (doc == nullptr)
        return p.count;
    int32_t ret = kavor_validate_doc(doc, schema_path, report, ctx);
    xmlFreeDoc(doc);
    return ret;
}
