/* kavor_demo.c - kavor's main job, end to end.
 *
 * A device keeps its parameters in plain C structures. The demo describes
 * them with descriptor tables, registers them with a manager, loads what an
 * earlier run saved, changes them and lets the manager's task save them.
 * Then it "restarts": the manager is destroyed, the memory cleared, a new
 * manager loads the files, and the demo shows what came back and the
 * document on disk. Run it twice: the boot counter goes on from the files.
 *
 * Usage: kavor_demo [dir]     (default /tmp/kavor-demo)
 * The library's trace goes to stderr (level 5: failures and oddities). */
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <libxml/parser.h>

#include <kavor.h>

/* ---- the device's parameters and their tables ------------------------- */

struct network {
    char hostname[32];
    uint8_t ip[4];
    uint16_t ports[3];
};

struct sensor {
    char label[16];
    int16_t offset;
};

struct device {
    uint32_t boot_count;
    struct network net;
    struct sensor sensors[2];
};

static struct pdesc network_table[] = {
    PX_STRI(struct network, hostname, "hostname"),
    PX_UINT_ARR(struct network, ip, "ip"),
    PX_UINT_ARR(struct network, ports, "ports"),
    PX_END,
};
static struct pdesc sensor_table[] = {
    PX_STRI(struct sensor, label, "label"),
    PX_SINT(struct sensor, offset, "offset"),
    PX_END,
};
static struct pdesc device_table[] = {
    PX_UINT(struct device, boot_count, "boot_count"),
    PX_STRU(struct device, net, "network", network_table),
    PX_STRU_ARR(struct device, sensors, "sensor", sensor_table),
    PX_END,
};

/* A second block in the same file: one file, two nodes. */
struct owner {
    char name[32];
    char phone[16];
};
static struct pdesc owner_table[] = {
    PX_STRI(struct owner, name, "name"),
    PX_STRI(struct owner, phone, "phone"),
    PX_END,
};

static struct device dev;
static struct owner own;

static void defaults(void)
{
    static const uint8_t ip[4] = { 192, 168, 1, 20 };
    memset(&dev, 0, sizeof(dev));
    strcpy(dev.net.hostname, "pump-station-7");
    memcpy(dev.net.ip, ip, sizeof(ip));
    dev.net.ports[0] = 22;
    dev.net.ports[1] = 502;
    strcpy(dev.sensors[0].label, "inlet");
    strcpy(dev.sensors[1].label, "outlet");
    memset(&own, 0, sizeof(own));
    strcpy(own.name, "Water Works");
}

static void show(const char *when)
{
    printf("%s:\n  boot_count %u, hostname %s, ip %u.%u.%u.%u, ports %u %u %u\n", when,
           (unsigned)dev.boot_count, dev.net.hostname, dev.net.ip[0], dev.net.ip[1],
           dev.net.ip[2], dev.net.ip[3], dev.net.ports[0], dev.net.ports[1], dev.net.ports[2]);
    printf("  sensors %s %+d, %s %+d; owner %s, phone %s\n", dev.sensors[0].label,
           dev.sensors[0].offset, dev.sensors[1].label, dev.sensors[1].offset, own.name,
           own.phone[0] ? own.phone : "-");
}

/* ---- the manager -------------------------------------------------------- */

/* Makes a manager and registers both blocks as nodes of <dir>/params. */
static kavor_hdl open_params(const char *dir, xml_file_hdl *node)
{
    kavor_file_rgst_t rq;
    kavor_hdl mgr = kavor_create_v2("demo", 500); /* save 500 ms after the last request */
    if (mgr == NULL)
        return NULL;
    memset(&rq, 0, sizeof(rq));
    snprintf(rq.filename, sizeof(rq.filename), "%s/params", dir);
    rq.ugz = 0; /* gzip-compressed: params.xml.gz */
    strcpy(rq.node_name, "device");
    rq.param_desc = device_table;
    rq.mem = &dev;
    *node = kavor_register(mgr, &rq);
    strcpy(rq.node_name, "owner");
    rq.param_desc = owner_table;
    rq.mem = &own;
    if (*node == NULL || kavor_register(mgr, &rq) == NULL) {
        kavor_destroy(mgr);
        return NULL;
    }
    return mgr;
}

/* Waits (at most 10 s) until the task has saved every marked file. */
static int wait_saved(kavor_hdl mgr)
{
    struct timespec tick = { 0, 20 * 1000000L };
    int i;
    for (i = 0; i < 500 && kavor_any_on_saving(mgr) != NULL; i++)
        nanosleep(&tick, NULL);
    return kavor_any_on_saving(mgr) == NULL ? 0 : -1;
}

static void print_document(const char *path)
{
    xmlDocPtr doc = xmlParseFile(path); /* reads gzip as it comes */
    if (doc != NULL) {
        xmlDocFormatDump(stdout, doc, 1);
        xmlFreeDoc(doc);
    }
}

int main(int argc, char **argv)
{
    const char *dir = argc > 1 ? argv[1] : "/tmp/kavor-demo";
    char path[160];
    xml_file_hdl node;
    kavor_hdl mgr;

    param_xml_trace_init("demo", NULL, 5, NULL); /* level 5 and below, to stderr */
    printf("parameter files in %s\n\n", dir);

    /* 1. Start: defaults, then whatever an earlier run saved. */
    defaults();
    mgr = open_params(dir, &node);
    if (mgr == NULL)
        return 1;
    if (kavor_load_all(mgr) < 0)
        printf("nothing saved yet: defaults stay\n");
    show("after start");

    /* 2. Change the parameters under the file's lock, and ask for a save. */
    kavor_file_lock(node);
    dev.boot_count++;
    dev.net.ports[2] = 8080;
    dev.sensors[1].offset = -3;
    strcpy(own.phone, "+41 44 555 01");
    kavor_file_unlock(node);
    if (kavor_save_one(node) != 0 || wait_saved(mgr) != 0) {
        fprintf(stderr, "the save did not end\n");
        kavor_destroy(mgr);
        return 1;
    }
    show("changed and saved");

    /* 3. Restart: a new manager loads into cleared memory. */
    kavor_destroy(mgr);
    memset(&dev, 0, sizeof(dev));
    memset(&own, 0, sizeof(own));
    mgr = open_params(dir, &node);
    if (mgr == NULL || kavor_load_all(mgr) != 0) {
        fprintf(stderr, "the load after the restart failed\n");
        kavor_destroy(mgr);
        return 1;
    }
    show("after restart");
    kavor_destroy(mgr);

    snprintf(path, sizeof(path), "%s/params.xml.gz", dir);
    printf("\n%s (the copy before it is params.xml.bak.gz):\n", path);
    print_document(path);
    return 0;
}
