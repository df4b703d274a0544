// kavor_keep.cpp - what the tables don't know, kept from a load for the
// saves that follow (KAVOR_POLICY_KEEP_UNKNOWN): the direct children of a
// node's element that no row of the node's table describes, and the root's
// children that no registered node takes. A save writes them back behind
// the known elements: a node's behind its rows', the root's behind the last
// node.
//
// They are kept as the text that libxml2 serialises them to, at most
// KAVOR_KEEP_MAX bytes per file: the text's length is the bound, it needs no
// document of its own, and a save parses it back as a fragment in the new
// document. An element that doesn't fit what is left is dropped at the load
// (level 5); a fragment that doesn't parse back is dropped at the save
// (level 4), the rest of the document is written.
//
// All of it runs under the file's f_mutex, with its node list held for
// reading: the load that keeps and the save that writes back never meet.
#include <libxml/parser.h>
#include <libxml/xmlIO.h>

#include "kavor_private.h"
#include "xml_trace.h"

namespace {

// True when some row of `table` (its first level) is named `name`.
bool row_known(const struct pdesc *table, const xmlChar *name)
{
    for (const struct pdesc *row = table; row->type != 0; row++)
        if (row->name != NULL && xmlStrEqual(name, BAD_CAST row->name))
            return true;
    return false;
}

// The child of `root` that a node named `name` is filled from: the first
// element of that name.
xmlNodePtr node_element(xmlNodePtr root, const char *name)
{
    for (xmlNodePtr c = root->children; c != NULL; c = c->next)
        if (c->type == XML_ELEMENT_NODE && xmlStrEqual(c->name, BAD_CAST name))
            return c;
    return NULL;
}

// Appends the text of `elem` to `*kept`, made on first use, when it fits the
// file's `*budget`; reports an element that doesn't. The text is made in an
// output buffer, which shows a failed allocation: xmlNodeDump can leave its
// xmlBuffer pointing at text it has freed.
void keep_element(xmlNodePtr elem, xmlBufferPtr *kept, size_t *budget)
{
    xmlOutputBufferPtr one = *budget > 0 ? xmlAllocOutputBuffer(NULL) : NULL;
    if (one != NULL)
        xmlNodeDumpOutput(one, elem->doc, elem, 0, 0, NULL);
    const xmlChar *text = one != NULL && one->error == 0 ? xmlOutputBufferGetContent(one) : NULL;
    size_t len = text != NULL ? xmlOutputBufferGetSize(one) : 0;
    if (len > 0 && len <= *budget) {
        if (*kept == NULL)
            *kept = xmlBufferCreate();
        if (*kept != NULL && xmlBufferAdd(*kept, text, (int)len) == 0)
            *budget -= len;
    } else {
        xmlChar *path = xmlGetNodePath(elem);
        KV_LOGF("xmlParseParamFile", 5, "element (%s) not kept: over KAVOR_KEEP_MAX",
                path != NULL ? (const char *)path : (const char *)elem->name);
        xmlFree(path);
    }
    xmlOutputBufferClose(one);
}

// The text of a buffer, handed over (xmlFree), or NULL for none.
char *take_text(xmlBufferPtr buf)
{
    if (buf == NULL)
        return NULL;
    char *text = (char *)xmlBufferDetach(buf);
    xmlBufferFree(buf);
    return text;
}

// Parses `text` back as elements of `parent` and appends them.
void write_back(xmlNodePtr parent, const char *text, const char *filename)
{
    if (text == NULL)
        return;
    xmlNodePtr list = NULL;
    if (xmlParseBalancedChunkMemory(parent->doc, NULL, NULL, 0, BAD_CAST text, &list) != 0 ||
        list == NULL) {
        xmlFreeNodeList(list);
        KV_LOGF("xmlMakeParamFile", 4, "kept elements of <%s> in file<%s> not written back.",
                (const char *)parent->name, filename);
        return;
    }
    xmlAddChildList(parent, list);
}

}  // namespace

void keep_release(kavor_fcom_t *fcom)
{
    xmlFree(fcom->kept);
    fcom->kept = NULL;
    for (struct znode *n = fcom->file_lst; n != NULL; n = n->next)
        keep_release_node((kavor_file_t *)n);
}

void keep_release_node(kavor_file_t *fobj)
{
    xmlFree(fobj->kept);
    fobj->kept = NULL;
}

void keep_from_load(kavor_fcom_t *fcom, xmlNodePtr root)
{
    keep_release(fcom);
    size_t budget = KAVOR_KEEP_MAX;
    for (struct znode *n = fcom->file_lst; n != NULL; n = n->next) {
        kavor_file_t *fobj = (kavor_file_t *)n;
        xmlNodePtr elem = node_element(root, fobj->node_name);
        if (elem == NULL)
            continue;
        xmlBufferPtr kept = NULL;
        for (xmlNodePtr c = elem->children; c != NULL; c = c->next)
            if (c->type == XML_ELEMENT_NODE && !row_known(fobj->param_desc, c->name))
                keep_element(c, &kept, &budget);
        fobj->kept = take_text(kept);
    }
    xmlBufferPtr kept = NULL;
    for (xmlNodePtr c = root->children; c != NULL; c = c->next)
        if (c->type == XML_ELEMENT_NODE && !is_node_element(c))
            keep_element(c, &kept, &budget);
    fcom->kept = take_text(kept);
}

void keep_write_back(kavor_fcom_t *fcom, xmlNodePtr root)
{
    // xmlMakeNode made one child of the root per node, in list order.
    xmlNodePtr child = root->children;
    for (struct znode *n = fcom->file_lst; n != NULL && child != NULL; n = n->next) {
        write_back(child, ((kavor_file_t *)n)->kept, fcom->filename);
        child = child->next;
    }
    write_back(root, fcom->kept, fcom->filename);
}
