// device_block.h - the realistic device block of the file figures and the
// peers: about 46 KiB in memory, thousands of integers of several widths, a
// thousand doubles, strings that need escaping and 256 structures of mixed
// fields with an enumeration; its table, a filler, and the floor that builds
// and walks the same document with libxml2 alone.
//
// The doubles are multiples of 1/8 with at most six significant digits, so
// that every serialiser's text form (kavor's "%.15g", libcyaml's "%g",
// the archives' full precision) reads back exact and blocks compare equal
// byte for byte.
#ifndef KAVOR_BENCH_DEVICE_BLOCK_H
#define KAVOR_BENCH_DEVICE_BLOCK_H

#include <inttypes.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <libxml/parser.h>
#include <libxml/tree.h>

#include "bench_util.h"
#include "device_layout.h"
#include "param_xml.h"

namespace device {

enum { kU8 = DEV_U8, kU16 = DEV_U16, kS32 = DEV_S32, kU32 = DEV_U32, kS64 = DEV_S64,
       kDbl = DEV_DBL, kLabels = DEV_LABELS, kPorts = DEV_PORTS };

enum Mode { kOff = 0, kAuto = 1, kManual = 2, kTest = 3 };

using Port = dev_port;
using Label = dev_label;
using Device = dev_block;

inline struct enume *modes()
{
    static struct enume t[] = {PX_ENUME("off", kOff), PX_ENUME("auto", kAuto),
                               PX_ENUME("manual", kManual), PX_ENUME("test", kTest),
                               PX_ENUME_END(kOff)};
    return t;
}
inline const char *mode_name(int m)
{
    static const char *const names[] = {"off", "auto", "manual", "test"};
    return m >= 0 && m < 4 ? names[m] : names[0];
}

inline struct pdesc *table()
{
    static struct pdesc port_rows[] = {
        PX_SINT(Port, id, "id"),
        PX_UINT(Port, vlan, "vlan"),
        PX_UINT_ARR_HEX(Port, mac, "mac"),
        PX_FLOT(Port, gain, "gain"),
        PX_STRI(Port, name, "name"),
        PX_ENUM(Port, mode, "mode", modes()),
        PX_UINT_HEXU(Port, flags, "flags"),
        PX_END,
    };
    static struct pdesc label_rows[] = {PX_STRI(Label, text, "line"), PX_END};
    static struct pdesc rows[] = {
        PX_UINT_ARR(Device, u8, "u8"),
        PX_UINT_ARR(Device, u16, "u16"),
        PX_SINT_ARR(Device, s32, "s32"),
        PX_UINT_ARR_HEX(Device, u32, "u32"),
        PX_SINT_ARR(Device, s64, "s64"),
        PX_FLOT_ARR(Device, dbl, "dbl"),
        PX_STRU_ARR(Device, labels, "label", label_rows),
        PX_STRU_ARR(Device, ports, "port", port_rows),
        PX_END,
    };
    return rows;
}

// A zeroed block with the benchmark's values.
inline Device *make()
{
    Device *d = static_cast<Device *>(calloc(1, sizeof(Device)));
    bench::fill_random(d->u8, sizeof d->u8);
    bench::fill_random(d->u16, sizeof d->u16);
    bench::fill_random(d->s32, sizeof d->s32);
    bench::fill_random(d->u32, sizeof d->u32);
    bench::fill_random(d->s64, sizeof d->s64);
    for (int i = 0; i < kDbl; i++)
        d->dbl[i] = static_cast<double>(static_cast<int>(bench::next_random() % 800000) - 400000) / 8.0;
    static const char *const parts[] = {"in <", "> & out", "\"quoted\"", "it's", "a&b<c>d", "plain"};
    for (int i = 0; i < kLabels; i++)
        snprintf(d->labels[i].text, sizeof d->labels[i].text, "label %d %s %s", i, parts[i % 6],
                 parts[(i / 6) % 6]);
    for (int i = 0; i < kPorts; i++) {
        Port &p = d->ports[i];
        p.id = static_cast<int32_t>(bench::next_random()) / 3;
        p.vlan = static_cast<uint16_t>(bench::next_random() % 4095);
        bench::fill_random(p.mac, sizeof p.mac);
        p.gain = static_cast<double>(static_cast<int>(bench::next_random() % 80000) - 40000) / 8.0;
        snprintf(p.name, sizeof p.name, "port<%d>&\"%d\"", i, i % 7);
        p.mode = i % 4;
        p.flags = static_cast<uint32_t>(bench::next_random());
    }
    return d;
}

inline bool same(const Device *a, const Device *b)
{
    return memcmp(a, b, sizeof(Device)) == 0;
}

// ---- floor: the same document with libxml2 alone -----------------------------

inline void floor_write_port(const Port &p, xmlNode *parent)
{
    xmlNode *e = xmlNewNode(nullptr, BAD_CAST "port");
    char buf[128];
    char *q = bench::put_int<int32_t, 10, false>(buf, p.id);
    *q = '\0';
    bench::text_element(e, "id", buf);
    q = bench::put_int<uint16_t, 10, false>(buf, p.vlan);
    *q = '\0';
    bench::text_element(e, "vlan", buf);
    bench::floor_write_array<uint8_t, 16, false>(p.mac, 6, "mac", e);
    bench::floor_write_array<double>(&p.gain, 1, "gain", e);
    char name[sizeof p.name];
    memcpy(name, p.name, sizeof name);
    name[sizeof name - 1] = '\0';
    bench::text_element(e, "name", name);
    bench::text_element(e, "mode", mode_name(p.mode));
    q = bench::put_int<uint32_t, 16, true>(buf, p.flags);
    *q = '\0';
    bench::text_element(e, "flags", buf);
    xmlAddChild(parent, e);
}

inline void floor_write(const Device *d, xmlNode *node)
{
    bench::floor_write_array<uint8_t>(d->u8, kU8, "u8", node);
    bench::floor_write_array<uint16_t>(d->u16, kU16, "u16", node);
    bench::floor_write_array<int32_t>(d->s32, kS32, "s32", node);
    bench::floor_write_array<uint32_t, 16, false>(d->u32, kU32, "u32", node);
    bench::floor_write_array<int64_t>(d->s64, kS64, "s64", node);
    bench::floor_write_array<double>(d->dbl, kDbl, "dbl", node);
    for (int i = 0; i < kLabels; i++) {
        xmlNode *l = xmlNewNode(nullptr, BAD_CAST "label");
        char text[sizeof d->labels[i].text];
        memcpy(text, d->labels[i].text, sizeof text);
        text[sizeof text - 1] = '\0';
        bench::text_element(l, "line", text);
        xmlAddChild(node, l);
    }
    for (int i = 0; i < kPorts; i++)
        floor_write_port(d->ports[i], node);
}

// The file's document: root `stem`, one child `node` holding the block.
inline xmlDocPtr floor_doc(const Device *d, const char *stem, const char *node)
{
    xmlDocPtr doc = xmlNewDoc(BAD_CAST "1.0");
    xmlNode *root = xmlNewDocNode(doc, nullptr, BAD_CAST stem, nullptr);
    xmlNode *child = xmlNewNode(nullptr, BAD_CAST node);
    floor_write(d, child);
    xmlAddChild(root, child);
    xmlDocSetRootElement(doc, root);
    return doc;
}

// One element's text into a string field of `cap` bytes.
inline void floor_copy_text(xmlNode *e, char *dst, size_t cap)
{
    xmlChar *c = xmlNodeGetContent(e);
    size_t n = strlen(reinterpret_cast<const char *>(c));
    if (n >= cap)
        n = cap - 1;
    memcpy(dst, c, n);
    dst[n] = '\0';
    xmlFree(c);
}

inline void floor_read_port(Port &p, xmlNode *e)
{
    xmlNode *f = bench::elem(e->children);
    xmlChar *c = xmlNodeGetContent(f);
    p.id = static_cast<int32_t>(strtoimax(reinterpret_cast<char *>(c), nullptr, 0));
    xmlFree(c);
    f = bench::elem(f->next);
    c = xmlNodeGetContent(f);
    p.vlan = static_cast<uint16_t>(strtoumax(reinterpret_cast<char *>(c), nullptr, 0));
    xmlFree(c);
    f = bench::floor_read_array<uint8_t>(f->next, p.mac, 6);
    f = bench::floor_read_array<double>(f, &p.gain, 1);
    floor_copy_text(f, p.name, sizeof p.name);
    f = bench::elem(f->next);
    c = xmlNodeGetContent(f);
    const struct enume *it = modes();
    while (it->key && strcmp(it->key, reinterpret_cast<char *>(c)) != 0)
        it++;
    p.mode = it->value;
    xmlFree(c);
    f = bench::elem(f->next);
    c = xmlNodeGetContent(f);
    p.flags = static_cast<uint32_t>(strtoumax(reinterpret_cast<char *>(c), nullptr, 0));
    xmlFree(c);
}

// Walks the node's children in their known order.
inline void floor_read(Device *d, xmlNode *node)
{
    xmlNode *e = node->children;
    e = bench::floor_read_array<uint8_t>(e, d->u8, kU8);
    e = bench::floor_read_array<uint16_t>(e, d->u16, kU16);
    e = bench::floor_read_array<int32_t>(e, d->s32, kS32);
    e = bench::floor_read_array<uint32_t>(e, d->u32, kU32);
    e = bench::floor_read_array<int64_t>(e, d->s64, kS64);
    e = bench::floor_read_array<double>(e, d->dbl, kDbl);
    e = bench::elem(e);
    for (int i = 0; i < kLabels && e; i++, e = bench::elem(e->next))
        floor_copy_text(bench::elem(e->children), d->labels[i].text, sizeof d->labels[i].text);
    for (int i = 0; i < kPorts && e; i++, e = bench::elem(e->next))
        floor_read_port(d->ports[i], e);
}

// Parses the file as the load does (no network) and walks it; false when
// the file gives no document of that shape.
inline bool floor_load(const char *path, Device *d)
{
    xmlDocPtr doc = xmlReadFile(path, nullptr, XML_PARSE_NONET);
    if (!doc)
        return false;
    xmlNode *root = xmlDocGetRootElement(doc);
    bool ok = root && bench::elem(root->children);
    if (ok)
        floor_read(d, bench::elem(root->children));
    xmlFreeDoc(doc);
    return ok;
}

inline bool floor_save(const Device *d, const char *path, bool gz)
{
    xmlDocPtr doc = floor_doc(d, "device", "dev");
    if (gz)
        xmlSetDocCompressMode(doc, 1);
    int rc = xmlSaveFormatFileEnc(path, doc, "utf-8", gz ? 1 : 0);
    xmlFreeDoc(doc);
    return rc >= 0;
}

}  // namespace device

#endif
