/* gallery.c - one small structure per kind of row, each described with the
 * table macros, turned into its document and printed; then each document is
 * read back into a fresh structure and written again, and the two documents
 * must be equal. docs/tables.md shows this program's output.
 *
 * Usage: gallery [dir]   (also writes every document to <dir>/<kind>.xml) */
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <libxml/tree.h>
#include <kavor.h>

#include "example_dir.h"

/* ---- integers ---- */
struct ints {
    int8_t level;
    int32_t offsets[10];
    uint16_t vlan;
    uint8_t mac[6];
    uint32_t mask;
};
static struct pdesc ints_table[] = {
    PX_SINT(struct ints, level, "level"),
    PX_SINT_ARR(struct ints, offsets, "offset"),
    PX_UINT(struct ints, vlan, "vlan"),
    PX_UINT_ARR_HEX(struct ints, mac, "mac"),
    PX_UINT_HEXU(struct ints, mask, "mask"),
    PX_END,
};
static struct ints ints_val = { -5, { 0, -1, 2, -3, 4, -5, 6, -7, 8, 2000000000 }, 4094,
                                { 0x00, 0x1b, 0xff, 0x10, 0x02, 0xa0 }, 0xFFFFFF00u };

/* ---- floating point ---- */
struct floats {
    float gain;
    double coeff[5];
};
static struct pdesc floats_table[] = {
    PX_FLOT(struct floats, gain, "gain"),
    PX_FLOT_ARR(struct floats, coeff, "coeff"),
    PX_END,
};
static struct floats floats_val = { 0.75f, { 1.0, -0.5, 3.14159265358979, 1e-9, 2.5e10 } };

/* ---- strings ---- */
struct strings {
    char name[16];
    char code[8];
};
static struct pdesc strings_table[] = {
    PX_STRI(struct strings, name, "name"),
    PX_STRI_N(struct strings, code, 4, "code"), /* 3 characters and the 0 */
    PX_END,
};
static struct strings strings_val = { "edge <1> & co", "AB" };

/* ---- enumerations ---- */
enum mode { MODE_OFF = 0, MODE_ON = 1, MODE_AUTO = 2 };
struct enums {
    enum mode mode;
    enum mode per_port[3];
};
static struct enume mode_names[] = {
    PX_ENUME("off", MODE_OFF),
    PX_ENUME("on", MODE_ON),
    PX_ENUME("auto", MODE_AUTO),
    PX_ENUME_END(MODE_OFF), /* unknown words read as off */
};
static struct pdesc enums_table[] = {
    PX_ENUM(struct enums, mode, "mode", mode_names),
    PX_ENUM_ARR(struct enums, per_port, "port_mode", mode_names),
    PX_END,
};
static struct enums enums_val = { MODE_AUTO, { MODE_ON, MODE_OFF, MODE_ON } };

/* ---- structures, in place and behind a pointer ---- */
struct port {
    int32_t speed;
    int32_t mtu;
};
static struct pdesc port_table[] = {
    PX_SINT(struct port, speed, "speed"),
    PX_SINT(struct port, mtu, "mtu"),
    PX_END,
};
struct structs {
    struct port uplink;
    struct port ports[3];
    int nports;
    struct port *spare;
};
static struct pdesc structs_table[] = {
    PX_STRU(struct structs, uplink, "uplink", port_table),
    PX_STRU_CIA(struct structs, ports, nports, "port", port_table),
    PX_STRUM(struct structs, spare, 1, "spare", port_table),
    PX_END,
};
static struct port spare_val = { 10, 576 };
static struct port spare_back;
static struct structs structs_val = { { 10000, 9000 }, { { 1000, 1500 }, { 100, 1500 }, { 0, 0 } },
                                      2, &spare_val };

/* ---- counted buffers ---- */
struct counted {
    int16_t *samples[3];
    int nsamples[3];
};
static struct pdesc counted_table[] = {
    PX_SINT_COB(struct counted, samples, nsamples, "samples"),
    PX_END,
};
static int16_t buf0[3] = { 1, -2, 3 };
static int16_t buf2[20] = { 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19 };
static struct counted counted_val = { { buf0, NULL, buf2 }, { 3, 0, 20 } };

/* ---- lists ---- */
struct rule {
    struct znode z; /* first: the node's address is the rule's */
    int32_t id;
    char action[8];
};
static struct pdesc rule_table[] = {
    PX_SINT(struct rule, id, "id"),
    PX_STRI(struct rule, action, "action"),
    PX_END,
};
struct lists {
    zhead_t rules;
};
static struct pdesc lists_table[] = {
    PX_LIST(struct lists, rules, struct rule, "rule", rule_table),
    PX_END,
};
static struct rule rules_val[2] = { { { 0 }, 5, "accept" }, { { 0 }, 6, "drop" } };
static struct lists lists_val;

/* ---- variant lists ---- */
struct timer {
    struct znode z;
    int32_t period_ms;
};
struct event {
    struct znode z;
    int32_t code;
    char source[12];
};
static struct pdesc timer_table[] = { PX_SINT(struct timer, period_ms, "period_ms"), PX_END };
static struct pdesc event_table[] = {
    PX_SINT(struct event, code, "code"),
    PX_STRI(struct event, source, "source"),
    PX_END,
};
static struct adesc task_kinds[] = {
    PX_ADESC(struct timer, timer_table, "timer"),
    PX_ADESC(struct event, event_table, "event"),
    PX_ADESC_END,
};
struct variants {
    zhead_t tasks;
};
static struct pdesc variants_table[] = {
    PX_VLST(struct variants, tasks, "task", task_kinds),
    PX_END,
};
static struct event event_val = { { 0 }, 7, "door" };
static struct timer timer_val = { { 0 }, 100 };
static struct variants variants_val;

/* ---- the gallery ---- */
struct exhibit {
    const char *kind;
    struct pdesc *table;
    void *value;
    size_t size;
    void *scratch_ptr; /* a PT_STRUM target for the read-back, or NULL */
};

/* The document of `table` over `mem`, as indented text; NULL on failure. */
static xmlBufferPtr document_of(const char *kind, struct pdesc *table, void *mem)
{
    xmlDocPtr doc = xmlNewDoc(BAD_CAST "1.0");
    xmlNodePtr root = xmlNewDocNode(doc, NULL, BAD_CAST kind, NULL);
    xmlBufferPtr buf = xmlBufferCreate();
    xmlDocSetRootElement(doc, root);
    param2xml(mem, root, table);
    xmlNodeDump(buf, doc, root, 0, 1);
    xmlFreeDoc(doc);
    return buf;
}

static int read_back(const char *kind, struct pdesc *table, void *mem, const char *text)
{
    xmlDocPtr doc = xmlReadMemory(text, (int)strlen(text), kind, NULL, 0);
    if (doc == NULL)
        return -1;
    xml2param(mem, xmlDocGetRootElement(doc), table);
    xmlFreeDoc(doc);
    return 0;
}

static void print_problem(void *ctx, int32_t line, const char *message)
{
    fprintf(stderr, "%s:%d: %s\n", (const char *)ctx, (int)line, message);
}

static int show(const struct exhibit *e, const char *dir)
{
    unsigned char scratch[512];
    char path[160];
    xmlBufferPtr first, second;
    int same;

    first = document_of(e->kind, e->table, e->value);
    printf("== %s ==\n%s\n\n", e->kind, (const char *)xmlBufferContent(first));
    if (dir != NULL && example_path(path, sizeof(path), dir, e->kind) == 0) {
        FILE *f;
        char xsd[168];
        xmlDocPtr schema = param_xml_schema(e->kind, e->table);
        snprintf(xsd, sizeof(xsd), "%s.xsd", path);
        strncat(path, ".xml", sizeof(path) - strlen(path) - 1);
        f = fopen(path, "w");
        if (f != NULL) {
            fprintf(f, "%s\n", (const char *)xmlBufferContent(first));
            fclose(f);
        }
        /* The document must validate against its table's schema. */
        if (schema == NULL || xmlSaveFormatFileEnc(xsd, schema, "utf-8", 1) < 0 ||
            kavor_validate(path, xsd, print_problem, path) != 0) {
            fprintf(stderr, "%s: not valid against its schema\n", e->kind);
            xmlFreeDoc(schema);
            xmlBufferFree(first);
            return -1;
        }
        xmlFreeDoc(schema);
    }

    /* Read it back into zeroed memory and write it again. */
    memset(scratch, 0, sizeof(scratch));
    if (e->scratch_ptr != NULL) /* the PT_STRUM pointer needs a target */
        memcpy(scratch + offsetof(struct structs, spare), &e->scratch_ptr, sizeof(void *));
    if (read_back(e->kind, e->table, scratch, (const char *)xmlBufferContent(first)) != 0) {
        xmlBufferFree(first);
        return -1;
    }
    second = document_of(e->kind, e->table, scratch);
    same = strcmp((const char *)xmlBufferContent(first), (const char *)xmlBufferContent(second)) == 0;
    if (!same)
        fprintf(stderr, "%s: read back differs:\n%s\n", e->kind,
                (const char *)xmlBufferContent(second));
    param_xml_free(scratch, e->table);
    xmlBufferFree(first);
    xmlBufferFree(second);
    return same ? 0 : -1;
}

static int32_t print_record(const char *record)
{
    fprintf(stderr, "%s\n", record);
    return 0;
}

int main(int argc, char **argv)
{
    char dir[96];
    const struct exhibit gallery[] = {
        { "integers", ints_table, &ints_val, sizeof(ints_val), NULL },
        { "floats", floats_table, &floats_val, sizeof(floats_val), NULL },
        { "strings", strings_table, &strings_val, sizeof(strings_val), NULL },
        { "enumerations", enums_table, &enums_val, sizeof(enums_val), NULL },
        { "structures", structs_table, &structs_val, sizeof(structs_val), &spare_back },
        { "buffers", counted_table, &counted_val, sizeof(counted_val), NULL },
        { "lists", lists_table, &lists_val, sizeof(lists_val), NULL },
        { "variants", variants_table, &variants_val, sizeof(variants_val), NULL },
    };
    size_t i;
    int bad = 0;

    param_xml_trace_init("gallery", NULL, 4, print_record);
    if (example_dir(argc, argv, dir, sizeof(dir)) != 0)
        return 1;
    zlst_push(&lists_val.rules, &rules_val[0]);
    zlst_push(&lists_val.rules, &rules_val[1]);
    zlst_set_name(&event_val, "event");
    zlst_set_name(&timer_val, "timer");
    zlst_push(&variants_val.tasks, &event_val);
    zlst_push(&variants_val.tasks, &timer_val);

    for (i = 0; i < sizeof(gallery) / sizeof(gallery[0]); i++) {
        if (gallery[i].size > 512 || param_xml_check(gallery[i].table) != 0 ||
            show(&gallery[i], dir) != 0)
            bad++;
    }
    return bad == 0 ? 0 : 1;
}
