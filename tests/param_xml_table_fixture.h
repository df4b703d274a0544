/* param_xml_table_fixture.h - a structure with a field for every table macro
 * and the table the macros make of it, three levels deep (a buffer in an item,
 * an item in a node): the block of the codec's round trips (which prove the
 * rows C++ makes; the table test compares C's), the sweeps and the fuzzers. */
#ifndef PARAM_XML_TABLE_FIXTURE_H
#define PARAM_XML_TABLE_FIXTURE_H

#include "param_xml.h"

enum fx_mode { FX_OFF = 0, FX_ON = 1, FX_AUTO = 2 };

struct fx_item { int32_t id; char tag[6]; int32_t *buf[1]; int buf_n[1]; };
struct fx_node { struct znode z; int16_t weight; struct fx_item item; };
struct fx_other { struct znode z; uint64_t stamp; };

typedef struct fx_all fxa;
struct fx_all { /* no two rows share a field */
    int8_t s8;
    int64_t s64a[5], s64b[5];
    int16_t s16c[4];
    int s16c_n;
    int32_t *sbuf[3], *sbufc[3];
    int sbuf_n[3], sbufc_n[3], sbuf_cia;
    uint32_t u32, u32x;
    uint8_t hex_bytes[20], hexu_bytes[20];
    uint16_t hexu;
    uint64_t u64c[2];
    int u64c_n;
    uint16_t *ubuf[2], *ubufx[2];
    int ubuf_n[2], ubufx_n[2];
    float f;
    double da[9];
    float *fbuf[2];
    int fbuf_n[2];
    char label[12], code[16];
    int mode;
    enum fx_mode modes[3];
    struct fx_item one, items[4], itemc[4];
    int items_n;
    struct fx_item *pitems, *pitemc;
    int pitems_n;
    struct fx_item *ibuf[2], *ibufm[2];
    int ibuf_n[2], ibufm_n[2];
    zhead_t chain, chains[3], chainc[3];
    int chains_n;
    zhead_t mixed, mixeds[2], mixedc[2];
    int mixed_n;
};

#define FX_ROWS 34

extern struct enume fx_modes[];
extern struct pdesc fx_item_table[];
extern struct pdesc fx_node_table[];
extern struct pdesc fx_other_table[];
extern struct adesc fx_kinds[];
extern struct pdesc fx_table[];

/* Defines the tables above; one translation unit of a test expands it. */
#define FX_DEFINE_TABLES                                                                                                                \
    struct enume fx_modes[] = { PX_ENUME("off", FX_OFF), PX_ENUME("on", FX_ON), PX_ENUME("auto", FX_AUTO), PX_ENUME_END(FX_OFF) };      \
    struct pdesc fx_item_table[] = { PX_SINT(struct fx_item, id, "id"), PX_STRI(struct fx_item, tag, "tag"),                            \
                                     PX_SINT_COB(struct fx_item, buf, buf_n, "buf"), PX_END };                                          \
    struct pdesc fx_node_table[] = { PX_SINT(struct fx_node, weight, "weight"),                                                         \
                                     PX_STRU(struct fx_node, item, "item", fx_item_table), PX_END };                                    \
    struct pdesc fx_other_table[] = { PX_UINT(struct fx_other, stamp, "stamp"), PX_END };                                               \
    struct adesc fx_kinds[] = { PX_ADESC(struct fx_node, fx_node_table, "node"),                                                        \
                                PX_ADESC(struct fx_other, fx_other_table, "other"), PX_ADESC_END };                                     \
    struct pdesc fx_table[] = {                                                                                                         \
        PX_SINT(fxa, s8, "s8"), PX_SINT_ARR(fxa, s64a, "s64a"),                                                                         \
        PX_SINT_ARR_N(fxa, s64b, 2, "s64n"), PX_SINT_CIA(fxa, s16c, s16c_n, "s16c"),                                                    \
        PX_SINT_COB(fxa, sbuf, sbuf_n, "sbuf"), PX_SINT_COB_CIA(fxa, sbufc, sbufc_n, sbuf_cia, "sbufc"),                                \
        PX_UINT(fxa, u32, "u32"), PX_UINT_HEX(fxa, u32x, "u32x"),                                                                       \
        PX_UINT_HEXU(fxa, hexu, "hexu"), PX_UINT_ARR_HEX(fxa, hex_bytes, "bytes"),                                                      \
        PX_UINT_ARR_HEXU(fxa, hexu_bytes, "bytesu"), PX_UINT_CIA_HEX(fxa, u64c, u64c_n, "u64c"),                                        \
        PX_UINT_COB(fxa, ubuf, ubuf_n, "ubuf"), PX_UINT_COB_HEXU(fxa, ubufx, ubufx_n, "ubufx"),                                         \
        PX_FLOT(fxa, f, "f"), PX_FLOT_ARR(fxa, da, "da"),                                                                               \
        PX_FLOT_COB(fxa, fbuf, fbuf_n, "fbuf"), PX_STRI(fxa, label, "label"),                                                           \
        PX_STRI_N(fxa, code, 10, "code"), PX_ENUM(fxa, mode, "mode", fx_modes),                                                         \
        PX_ENUM_ARR(fxa, modes, "modes", fx_modes), PX_STRU(fxa, one, "one", fx_item_table),                                            \
        PX_STRU_ARR(fxa, items, "items", fx_item_table), PX_STRU_CIA(fxa, itemc, items_n, "itemc", fx_item_table),                      \
        PX_STRU_COB(fxa, ibuf, ibuf_n, "ibuf", fx_item_table), PX_STRUM(fxa, pitems, 4, "pitems", fx_item_table),                       \
        PX_STRUM_CIA(fxa, pitemc, 4, pitems_n, "pitemc", fx_item_table), PX_STRUM_COB(fxa, ibufm, ibufm_n, "ibufm", fx_item_table),     \
        PX_LIST(fxa, chain, struct fx_node, "chain", fx_node_table), PX_LIST_ARR(fxa, chains, struct fx_node, "chains", fx_node_table), \
        PX_LIST_CIA(fxa, chainc, chains_n, struct fx_node, "chainc", fx_node_table), PX_VLST(fxa, mixed, "mixed", fx_kinds),            \
        PX_VLST_ARR(fxa, mixeds, "mixeds", fx_kinds), PX_VLST_CIA(fxa, mixedc, mixed_n, "mixedc", fx_kinds),                            \
        PX_END,                                                                                                                         \
    };

#endif
