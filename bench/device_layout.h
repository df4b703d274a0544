/* device_layout.h - the device block's layout in plain C, shared by the C++
 * benchmarks and the peer that has a C interface only (libcyaml). About
 * 46 KiB: integers of five widths, doubles, strings, structures. */
#ifndef KAVOR_BENCH_DEVICE_LAYOUT_H
#define KAVOR_BENCH_DEVICE_LAYOUT_H

#include <stdint.h>

#define DEV_U8 2048
#define DEV_U16 2048
#define DEV_S32 2048
#define DEV_U32 1024
#define DEV_S64 512
#define DEV_DBL 1000
#define DEV_LABELS 48
#define DEV_PORTS 256

struct dev_port {
    int32_t id;
    uint16_t vlan;
    uint8_t mac[6];
    double gain;
    char name[24];
    int mode; /* 0 off, 1 auto, 2 manual, 3 test */
    uint32_t flags;
};

struct dev_label { char text[64]; };

struct dev_block {
    uint8_t u8[DEV_U8];
    uint16_t u16[DEV_U16];
    int32_t s32[DEV_S32];
    uint32_t u32[DEV_U32]; /* written in hexadecimal */
    int64_t s64[DEV_S64];
    double dbl[DEV_DBL];
    struct dev_label labels[DEV_LABELS];
    struct dev_port ports[DEV_PORTS];
};

#endif
