/* peers_cyaml.c - the device block saved and loaded by libcyaml, described
 * by libcyaml's own schema of the same fields (its macros need C). Loading
 * allocates a new block, which is copied into the caller's and freed, as an
 * application that keeps its block in place has to. */
#include <stddef.h>
#include <string.h>

#include <cyaml/cyaml.h>

#include "device_layout.h"

int peer_cyaml_save(const struct dev_block *d, const char *path);
int peer_cyaml_load(const char *path, struct dev_block *out);

static const cyaml_config_t config = {
    .log_fn = cyaml_log,
    .mem_fn = cyaml_mem,
    .log_level = CYAML_LOG_ERROR,
    .flags = CYAML_CFG_DEFAULT,
};

static const cyaml_schema_value_t u8_entry = {CYAML_VALUE_UINT(CYAML_FLAG_DEFAULT, uint8_t)};
static const cyaml_schema_value_t u16_entry = {CYAML_VALUE_UINT(CYAML_FLAG_DEFAULT, uint16_t)};
static const cyaml_schema_value_t s32_entry = {CYAML_VALUE_INT(CYAML_FLAG_DEFAULT, int32_t)};
static const cyaml_schema_value_t u32_entry = {CYAML_VALUE_UINT(CYAML_FLAG_DEFAULT, uint32_t)};
static const cyaml_schema_value_t s64_entry = {CYAML_VALUE_INT(CYAML_FLAG_DEFAULT, int64_t)};
static const cyaml_schema_value_t dbl_entry = {CYAML_VALUE_FLOAT(CYAML_FLAG_DEFAULT, double)};

static const cyaml_strval_t mode_strings[] = {
    {"off", 0}, {"auto", 1}, {"manual", 2}, {"test", 3},
};

static const cyaml_schema_field_t port_fields[] = {
    CYAML_FIELD_INT("id", CYAML_FLAG_DEFAULT, struct dev_port, id),
    CYAML_FIELD_UINT("vlan", CYAML_FLAG_DEFAULT, struct dev_port, vlan),
    CYAML_FIELD_SEQUENCE_FIXED("mac", CYAML_FLAG_FLOW, struct dev_port, mac, &u8_entry, 6),
    CYAML_FIELD_FLOAT("gain", CYAML_FLAG_DEFAULT, struct dev_port, gain),
    CYAML_FIELD_STRING("name", CYAML_FLAG_DEFAULT, struct dev_port, name, 0),
    CYAML_FIELD_ENUM("mode", CYAML_FLAG_DEFAULT, struct dev_port, mode, mode_strings, 4),
    CYAML_FIELD_UINT("flags", CYAML_FLAG_DEFAULT, struct dev_port, flags),
    CYAML_FIELD_END,
};
static const cyaml_schema_value_t port_entry = {
    CYAML_VALUE_MAPPING(CYAML_FLAG_DEFAULT, struct dev_port, port_fields),
};

static const cyaml_schema_field_t label_fields[] = {
    CYAML_FIELD_STRING("line", CYAML_FLAG_DEFAULT, struct dev_label, text, 0),
    CYAML_FIELD_END,
};
static const cyaml_schema_value_t label_entry = {
    CYAML_VALUE_MAPPING(CYAML_FLAG_DEFAULT, struct dev_label, label_fields),
};

static const cyaml_schema_field_t device_fields[] = {
    CYAML_FIELD_SEQUENCE_FIXED("u8", CYAML_FLAG_FLOW, struct dev_block, u8, &u8_entry, DEV_U8),
    CYAML_FIELD_SEQUENCE_FIXED("u16", CYAML_FLAG_FLOW, struct dev_block, u16, &u16_entry, DEV_U16),
    CYAML_FIELD_SEQUENCE_FIXED("s32", CYAML_FLAG_FLOW, struct dev_block, s32, &s32_entry, DEV_S32),
    CYAML_FIELD_SEQUENCE_FIXED("u32", CYAML_FLAG_FLOW, struct dev_block, u32, &u32_entry, DEV_U32),
    CYAML_FIELD_SEQUENCE_FIXED("s64", CYAML_FLAG_FLOW, struct dev_block, s64, &s64_entry, DEV_S64),
    CYAML_FIELD_SEQUENCE_FIXED("dbl", CYAML_FLAG_FLOW, struct dev_block, dbl, &dbl_entry, DEV_DBL),
    CYAML_FIELD_SEQUENCE_FIXED("label", CYAML_FLAG_DEFAULT, struct dev_block, labels, &label_entry,
                               DEV_LABELS),
    CYAML_FIELD_SEQUENCE_FIXED("port", CYAML_FLAG_DEFAULT, struct dev_block, ports, &port_entry,
                               DEV_PORTS),
    CYAML_FIELD_END,
};
static const cyaml_schema_value_t device_schema = {
    CYAML_VALUE_MAPPING(CYAML_FLAG_POINTER, struct dev_block, device_fields),
};

int peer_cyaml_save(const struct dev_block *d, const char *path)
{
    return cyaml_save_file(path, &config, &device_schema, d, 0) == CYAML_OK ? 0 : -1;
}

int peer_cyaml_load(const char *path, struct dev_block *out)
{
    struct dev_block *d = NULL;
    if (cyaml_load_file(path, &config, &device_schema, (cyaml_data_t **)&d, NULL) != CYAML_OK)
        return -1;
    memcpy(out, d, sizeof *d);
    cyaml_free(&config, &device_schema, d, 0);
    return 0;
}
