/* minimal.c - the smallest use of kavor: one structure, its table written
 * with the macros, written to a plain XML file and read back into a second
 * structure. No manager, no task: the one-shot calls.
 *
 * Usage: minimal [dir]   (writes <dir>/net.xml; a fresh /tmp dir if none) */
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <kavor.h>

#include "example_dir.h"

struct net_cfg {
    char host[32];
    uint16_t port;
    int32_t retries;
    uint8_t mac[6];
};

/* No offset, size or count by hand: the macros take them from the type. */
static struct pdesc net_table[] = {
    PX_STRI(struct net_cfg, host, "host"),
    PX_UINT(struct net_cfg, port, "port"),
    PX_SINT(struct net_cfg, retries, "retries"),
    PX_UINT_ARR_HEX(struct net_cfg, mac, "mac"),
    PX_END,
};

static int32_t print_record(const char *record)
{
    fprintf(stderr, "%s\n", record);
    return 0;
}

static int fill_request(kavor_file_rgst_t *rq, const char *dir, struct net_cfg *mem)
{
    memset(rq, 0, sizeof(*rq));
    if (example_path(rq->filename, sizeof(rq->filename), dir, "net") != 0)
        return -1;
    strcpy(rq->node_name, "net_cfg");
    rq->param_desc = net_table;
    rq->mem = mem;
    rq->ugz = 1; /* plain net.xml */
    return 0;
}

static void print_problem(void *ctx, int32_t line, const char *message)
{
    fprintf(stderr, "%s:%d: %s\n", (const char *)ctx, (int)line, message);
}

/* <dir>/net.xsd for the file of `rq`, and <dir>/net.xml checked against it. */
static int write_and_check_schema(kavor_file_rgst_t *rq, const char *dir)
{
    char xsd[128], xml[128];
    xml_file_hdl node = kavor_register(NULL, rq); /* a standalone node: no manager needed */
    int rc = node != NULL && example_path(xsd, sizeof(xsd), dir, "net.xsd") == 0 &&
                     example_path(xml, sizeof(xml), dir, "net.xml") == 0 &&
                     kavor_write_schema(node, xsd) == 0
                 ? (int)kavor_validate(xml, xsd, print_problem, xml)
                 : -1;
    kavor_unregister(node);
    return rc;
}

int main(int argc, char **argv)
{
    char dir[96];
    struct net_cfg saved = { "gateway.local", 8443, -1, { 0x00, 0x1b, 0x21, 0x3c, 0x4d, 0x5e } };
    struct net_cfg loaded;
    kavor_file_rgst_t rq;

    /* Failures only (level 4), to standard error. */
    param_xml_trace_init("minimal", NULL, 4, print_record);
    if (param_xml_check(net_table) != 0)
        return 1;
    if (example_dir(argc, argv, dir, sizeof(dir)) != 0)
        return 1;

    if (fill_request(&rq, dir, &saved) != 0 || kavor_param2file(&rq) != 0) {
        fprintf(stderr, "write failed\n");
        return 1;
    }
    /* The file's schema, as an application writes it at start-up, and the
     * file checked against it (xmllint --schema does the same). */
    if (write_and_check_schema(&rq, dir) != 0) {
        fprintf(stderr, "schema check failed\n");
        return 1;
    }
    memset(&loaded, 0, sizeof(loaded));
    if (fill_request(&rq, dir, &loaded) != 0 || kavor_file2param(&rq) != 0) {
        fprintf(stderr, "read failed\n");
        return 1;
    }
    printf("%s/net.xml: host=%s port=%u retries=%d mac=%02x:%02x:%02x:%02x:%02x:%02x\n", dir,
           loaded.host, loaded.port, loaded.retries, loaded.mac[0], loaded.mac[1], loaded.mac[2],
           loaded.mac[3], loaded.mac[4], loaded.mac[5]);
    if (strcmp(saved.host, loaded.host) != 0 || saved.port != loaded.port ||
        saved.retries != loaded.retries || memcmp(saved.mac, loaded.mac, sizeof(saved.mac)) != 0) {
        fprintf(stderr, "what was read differs from what was written\n");
        return 1;
    }
    return 0;
}
