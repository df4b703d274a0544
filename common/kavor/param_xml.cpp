// param_xml.cpp - the codec's frames and what all kinds share.
//
// param2xml walks a table and hands each row to its kind's writer;
// xml2param walks an element's children and hands each to the reader of the
// first row of its name. A handler is chosen by one switch on the kind, and
// a row of no known kind is reported and skipped. Both frames return 0:
// what went wrong inside a row is told through the trace alone.
//
// Invariant: a table ends at its first row whose type is 0; nothing of that
// row or of any row behind it is read or written. A row without a name is
// a bad row (it could neither make nor match an element).
#include "param_xml.h"

#include <cstdio>
#include <cstdlib>

#include "param_xml_private.h"
#include "xml_trace.h"

vorn_trace_handle param_xml_trace_h = nullptr;

const xmlChar *const xStrIdx = BAD_CAST "idx";
const xmlChar *const xStrCnt = BAD_CAST "cnt";
const xmlChar *const xStrTyp = BAD_CAST "typ";

namespace {
int has_init = 0;
}

extern "C" void param_xml_trace_init(const char *mod_name, const char *filename,
                                     uint32_t dft_lvl, user_func func)
{
    if (has_init)
        return;
    param_xml_trace_h = vorn_mod_trace_init(mod_name, filename, dft_lvl, func);
    has_init = 1;
}

// ---- the kinds that share the array frame ----------------------------------

const struct array_kind kSintKind = {"sint2xml", "sint2xml", "xml2sint", "xml2sint",
                                     sint2node, node2sint, false, true};
const struct array_kind kUintKind = {"uint2xml", "uint2xml", "xml2uint", "xml2uint",
                                     uint2node, node2uint, false, true};
const struct array_kind kFlotKind = {"flot2xml", "flot2xml", "xml2flot", "xml2flot",
                                     flot2node, node2flot, false, true};
const struct array_kind kStruKind = {"stru2xml", "stru2xml", "xml2stru", "xml2stru",
                                     stru2node, node2stru, false, false};
const struct array_kind kStruMKind = {"struM2xml", "stru2xml", "xml2struM", "xml2stru",
                                      stru2node, node2stru, true, false};

// ---- frames ----------------------------------------------------------------

extern "C" int param2xml(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    for (struct pdesc *row = pdesc; row->type != 0; row++) {
        if (!row->name) {
            KV_LOG(4, "param2xml: row without name, type(0x%X)", static_cast<unsigned>(row->type));
            continue;
        }
        switch (row->type & PT_KIND_MASK) {
        case PT_SINT: sint2xml(mem_base, xnode, row); break;
        case PT_UINT: uint2xml(mem_base, xnode, row); break;
        case PT_FLOT: flot2xml(mem_base, xnode, row); break;
        case PT_STRI: stri2xml(mem_base, xnode, row); break;
        case PT_ENUM: enum2xml(mem_base, xnode, row); break;
        case PT_STRU: stru2xml(mem_base, xnode, row); break;
        case PT_LIST: list2xml(mem_base, xnode, row); break;
        case PT_VLST: vlst2xml(mem_base, xnode, row); break;
        case PT_STRUM: struM2xml(mem_base, xnode, row); break;
        default:
            KV_LOG(4, "param2xml: %s bad type(0x%X)", row->name, static_cast<unsigned>(row->type));
            break;
        }
    }
    return 0;
}

namespace {

struct pdesc *row_named(struct pdesc *pdesc, const xmlChar *name)
{
    for (struct pdesc *row = pdesc; row->type != 0; row++)
        if (row->name && xmlStrEqual(name, BAD_CAST row->name))
            return row;
    return nullptr;
}

}  // namespace

extern "C" int xml2param(void *mem_base, xmlNode *xnode, struct pdesc *pdesc)
{
    for (struct pdesc *row = pdesc; row->type != 0; row++)
        row->ioa = 0;
    for (xmlNode *child = xnode->children; child; child = child->next) {
        struct pdesc *row = row_named(pdesc, child->name);
        if (!row) {
            if (!xmlStrEqual(child->name, BAD_CAST "text"))
                KV_LOG(5, "no mark in param is \"%s\"", shown(reinterpret_cast<const char *>(child->name)));
            continue;
        }
        switch (row->type & PT_KIND_MASK) {
        case PT_SINT: xml2sint(mem_base, child, row); break;
        case PT_UINT: xml2uint(mem_base, child, row); break;
        case PT_FLOT: xml2flot(mem_base, child, row); break;
        case PT_STRI: xml2stri(mem_base, child, row); break;
        case PT_ENUM: xml2enum(mem_base, child, row); break;
        case PT_STRU: xml2stru(mem_base, child, row); break;
        case PT_LIST: xml2list(mem_base, child, row); break;
        case PT_VLST: xml2vlst(mem_base, child, row); break;
        case PT_STRUM: xml2struM(mem_base, child, row); break;
        default:
            KV_LOG(4, "xml2param: %s bad type(0x%X)", row->name, static_cast<unsigned>(row->type));
            break;
        }
    }
    return 0;
}

// ---- shared helpers ----------------------------------------------------------

int row_entries(void *mem_base, const struct pdesc *pdesc)
{
    int n = pdesc->count;
    if (pdesc->type & PT_F_CIA) {
        int cia = load_int(at(mem_base, pdesc->aoffset));
        if (cia < n)
            n = cia;
    }
    return n;
}

void store_cia(void *mem_base, const struct pdesc *pdesc)
{
    if (pdesc->type & PT_F_CIA)
        store_int(at(mem_base, pdesc->aoffset), pdesc->ioa);
}

namespace {

// False when xmlGetProp would surely find nothing: no attribute on the
// element and no DTD that could give it a default. Saves an allocation on
// most elements of a document.
bool may_have_attr(const xmlNode *xnode)
{
    return xnode->properties || (xnode->doc && (xnode->doc->intSubset || xnode->doc->extSubset));
}

}  // namespace

bool take_index(xmlNode *xnode, const char *func, const char *text, const char *name,
                int count, int *idx)
{
    int v = *idx;
    xmlChar *xIdx = may_have_attr(xnode) ? xmlGetProp(xnode, xStrIdx) : nullptr;
    if (xIdx) {
        v = std::atoi(reinterpret_cast<const char *>(xIdx));
        xmlFree(xIdx);
    }
    if (v < 0) {
        KV_LOGF(func, 5, "%s: %s idx(%d) < 0, ignore", text, name, v);
        return false;
    }
    *idx = v;
    if (v >= count) {
        KV_LOGF(func, 5, "%s: %s idx(%d) >= count(%d), ignore", text, name, v, count);
        return false;
    }
    return true;
}

bool number_text(char *buf, int v)
{
    // "%d" by hand: one call per element would otherwise go through printf
    char text[16];
    size_t n = 0;
    unsigned mag = v < 0 ? 0u - static_cast<unsigned>(v) : static_cast<unsigned>(v);
    do {
        text[n++] = static_cast<char>('0' + mag % 10);
        mag /= 10;
    } while (mag != 0);
    if (v < 0)
        text[n++] = '-';
    size_t kept = n < kNumTextLen ? n : kNumTextLen - 1;  // cut as snprintf cuts
    for (size_t i = 0; i < kept; i++)
        buf[i] = text[n - 1 - i];
    buf[kept] = '\0';
    return n < kNumTextLen;
}

xmlNode *new_element(const char *name)
{
    xmlNode *node = xmlNewNode(nullptr, BAD_CAST name);
    if (node && !node->name) {
        xmlFreeNode(node);
        return nullptr;
    }
    return node;
}

bool set_attr(xmlNode *elem, const xmlChar *attr, const char *value)
{
    xmlAttr *prop = xmlNewProp(elem, attr, BAD_CAST value);
    if (!prop || !prop->name)
        return false;
    if (value && *value && !(prop->children && prop->children->content))
        return false;
    return true;
}

bool add_text(xmlNode *elem, const char *text)
{
    if (!text || !*text)
        return true;
    xmlNode *before = elem->last;
    xmlNodeAddContent(elem, BAD_CAST text);
    xmlNode *last = elem->last;
    return last && last != before && last->content;
}

xmlChar *node_content(xmlNode *node)
{
    if (node->type != XML_ELEMENT_NODE)  // a text node, a comment: one piece
        return xmlNodeGetContent(node);
    size_t len = 0;
    // Two walks of the subtree in document order: count, then copy.
    for (int pass = 0; pass < 2; pass++) {
        xmlChar *out = nullptr;
        if (pass == 1) {
            out = static_cast<xmlChar *>(xmlMalloc(len + 1));
            if (!out)
                return nullptr;
        }
        size_t at_byte = 0;
        xmlNode *cur = node->children;
        while (cur) {
            if (cur->type == XML_ENTITY_REF_NODE) {
                xmlFree(out);
                return xmlNodeGetContent(node);
            }
            if ((cur->type == XML_TEXT_NODE || cur->type == XML_CDATA_SECTION_NODE) && cur->content) {
                size_t n = std::strlen(reinterpret_cast<const char *>(cur->content));
                if (out)
                    std::memcpy(out + at_byte, cur->content, n);
                at_byte += n;
            }
            if (cur->type == XML_ELEMENT_NODE && cur->children) {
                cur = cur->children;
                continue;
            }
            while (cur != node && !cur->next)
                cur = cur->parent;
            cur = cur == node ? nullptr : cur->next;
        }
        if (out) {
            out[at_byte] = '\0';
            return out;
        }
        len = at_byte;
    }
    return nullptr;
}

namespace {

// Bytes of the one XML character in valid UTF-8 at `p`, or 0 when `p` holds
// none (an invalid or cut sequence, a control, a surrogate, U+FFFE, U+FFFF).
// Never reads past a 0 byte.
size_t xml_char_len(const unsigned char *p)
{
    unsigned c = p[0];
    if (c < 0x80)
        return (c >= 0x20 || c == 0x9 || c == 0xA || c == 0xD) ? 1 : 0;
    size_t n;
    uint32_t cp;
    if (c >= 0xC2 && c <= 0xDF) {
        n = 2;
        cp = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
        n = 3;
        cp = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4;
        cp = c & 0x07;
    } else {
        return 0;
    }
    for (size_t i = 1; i < n; i++) {
        if ((p[i] & 0xC0) != 0x80)
            return 0;
        cp = (cp << 6) | (p[i] & 0x3F);
    }
    if ((n == 3 && cp < 0x800) || (n == 4 && (cp < 0x10000 || cp > 0x10FFFF)))
        return 0;  // overlong or beyond Unicode
    if ((cp >= 0xD800 && cp <= 0xDFFF) || cp == 0xFFFE || cp == 0xFFFF)
        return 0;
    return n;
}

// Number of bytes of `text` that belong to no XML character.
int bad_bytes(const unsigned char *text)
{
    int bad = 0;
    for (const unsigned char *p = text; *p;) {
        size_t n = xml_char_len(p);
        if (n == 0) {
            bad++;
            n = 1;
        }
        p += n;
    }
    return bad;
}

}  // namespace

const char *xml_text(const char *text, const char *func, const char *name, char **copy)
{
    *copy = nullptr;
    if (!text)
        return nullptr;
    const unsigned char *in = reinterpret_cast<const unsigned char *>(text);
    const unsigned char *p = in;  // printable ASCII, the common case, needs no decoding
    while (*p >= 0x20 && *p < 0x80)
        p++;
    if (*p == 0)
        return text;
    int bad = bad_bytes(p);
    if (bad == 0)
        return text;
    KV_LOGF(func, 5, "%s: %s has %d bytes that XML can't hold, each written as '?'", func,
            shown(name), bad);
    size_t len = std::strlen(text);
    char *out = static_cast<char *>(xmlMalloc(len + 1));
    if (!out)
        return nullptr;
    for (size_t i = 0; i < len;) {
        size_t n = xml_char_len(in + i);
        if (n == 0) {
            out[i++] = '?';
            continue;
        }
        std::memcpy(out + i, in + i, n);
        i += n;
    }
    out[len] = '\0';
    *copy = out;
    return out;
}

const struct adesc *find_alternative(const struct adesc *table, const char *type)
{
    const struct adesc *alt = table;
    while (alt->name && !xmlStrEqual(BAD_CAST alt->name, BAD_CAST type))
        alt++;
    return alt->name ? alt : nullptr;
}
