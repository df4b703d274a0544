/* device.c - a device's configuration under a manager: nested structures,
 * enumerations, a counted buffer and a list, described only with the table
 * macros. The configuration is changed under the file lock, saved twice by
 * the manager's task, loaded by a second manager as after a restart, and
 * loaded once more with the main file gone, from the backup that the
 * second save left.
 *
 * Usage: device [dir]   (writes <dir>/device.xml.gz and its backup) */
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <kavor.h>

#include "example_dir.h"

enum role { ROLE_EDGE = 0, ROLE_CORE = 1, ROLE_LAB = 2 };
enum severity { SEV_INFO = 0, SEV_WARN = 1, SEV_CRIT = 2 };

struct identity {
    char hostname[32];
    enum role role;
};

struct iface {
    char name[8];
    uint8_t mac[6];
    uint16_t mtu;
    enum role zone[2];
};

struct alarm {
    struct znode z; /* first member: the list links */
    int32_t threshold;
    enum severity severity;
};

struct device {
    struct identity ident;
    struct iface ifaces[4];
    int n_ifaces;          /* how many of ifaces are in use */
    int16_t *calib[2];     /* calibration curves, allocated separately */
    int n_calib[2];        /* their lengths */
    zhead_t alarms;
};

static struct enume roles[] = {
    PX_ENUME("edge", ROLE_EDGE), PX_ENUME("core", ROLE_CORE), PX_ENUME("lab", ROLE_LAB),
    PX_ENUME_END(ROLE_EDGE),
};
static struct enume severities[] = {
    PX_ENUME("info", SEV_INFO), PX_ENUME("warn", SEV_WARN), PX_ENUME("crit", SEV_CRIT),
    PX_ENUME_END(SEV_INFO),
};
static struct pdesc identity_table[] = {
    PX_STRI(struct identity, hostname, "hostname"),
    PX_ENUM(struct identity, role, "role", roles),
    PX_END,
};
static struct pdesc iface_table[] = {
    PX_STRI(struct iface, name, "name"),
    PX_UINT_ARR_HEX(struct iface, mac, "mac"),
    PX_UINT(struct iface, mtu, "mtu"),
    PX_ENUM_ARR(struct iface, zone, "zone", roles),
    PX_END,
};
static struct pdesc alarm_table[] = {
    PX_SINT(struct alarm, threshold, "threshold"),
    PX_ENUM(struct alarm, severity, "severity", severities),
    PX_END,
};
static struct pdesc device_table[] = {
    PX_STRU(struct device, ident, "identity", identity_table),
    PX_STRU_CIA(struct device, ifaces, n_ifaces, "iface", iface_table),
    PX_SINT_COB(struct device, calib, n_calib, "calibration"),
    PX_LIST(struct device, alarms, struct alarm, "alarm", alarm_table),
    PX_END,
};

static int32_t print_record(const char *record)
{
    fprintf(stderr, "%s\n", record);
    return 0;
}

static void sleep_ms(long ms)
{
    struct timespec ts = { ms / 1000, (ms % 1000) * 1000000L };
    nanosleep(&ts, NULL);
}

/* Waits up to 20 s for the task to finish the file's save. */
static int wait_saved(xml_file_hdl node)
{
    int i;
    for (i = 0; i < 2000; i++) {
        if (kavor_file_on_saving(node) == 0)
            return 0;
        sleep_ms(10);
    }
    fprintf(stderr, "save did not end\n");
    return -1;
}

static int register_device(kavor_hdl mgr, const char *dir, struct device *dev, xml_file_hdl *node)
{
    kavor_file_rgst_t rq;
    memset(&rq, 0, sizeof(rq));
    if (example_path(rq.filename, sizeof(rq.filename), dir, "device") != 0)
        return -1;
    strcpy(rq.node_name, "device");
    rq.param_desc = device_table;
    rq.mem = dev;
    rq.ugz = 0; /* gzip: device.xml.gz */
    *node = kavor_register(mgr, &rq);
    return *node != NULL ? 0 : -1;
}

static int16_t curve0[4] = { -40, 0, 25, 85 };
static struct alarm hot = { { 0 }, 70, SEV_WARN };
static struct alarm burning = { { 0 }, 90, SEV_CRIT };

static void fill(struct device *dev)
{
    static const uint8_t mac0[6] = { 0x02, 0x00, 0x00, 0x00, 0x00, 0x01 };
    memset(dev, 0, sizeof(*dev));
    strcpy(dev->ident.hostname, "sw-hall-3");
    dev->ident.role = ROLE_EDGE;
    strcpy(dev->ifaces[0].name, "eth0");
    memcpy(dev->ifaces[0].mac, mac0, sizeof(mac0));
    dev->ifaces[0].mtu = 1500;
    dev->ifaces[0].zone[0] = ROLE_EDGE;
    dev->ifaces[0].zone[1] = ROLE_LAB;
    strcpy(dev->ifaces[1].name, "eth1");
    dev->ifaces[1].mtu = 9000;
    dev->ifaces[1].zone[0] = ROLE_CORE;
    dev->n_ifaces = 2;
    dev->calib[0] = curve0;
    dev->n_calib[0] = 4;
    zlst_push(&dev->alarms, &hot);
    zlst_push(&dev->alarms, &burning);
}

static int check_loaded(const struct device *d, enum role role, const char *when)
{
    const struct alarm *a = (const struct alarm *)d->alarms;
    const struct alarm *b = a != NULL ? (const struct alarm *)a->z.next : NULL;
    int ok = strcmp(d->ident.hostname, "sw-hall-3") == 0 && d->ident.role == role &&
             d->n_ifaces == 2 && d->ifaces[1].mtu == 9000 && d->ifaces[0].zone[1] == ROLE_LAB &&
             d->n_calib[0] == 4 && d->calib[0] != NULL && d->calib[0][3] == 85 && a != NULL &&
             b != NULL && a->threshold == 70 && b->severity == SEV_CRIT && b->z.next == NULL;
    printf("%s: host=%s role=%s ifaces=%d calib[0]=%d values alarms=%d,%d -> %s\n", when,
           d->ident.hostname, roles[d->ident.role].key, d->n_ifaces, d->n_calib[0],
           a ? a->threshold : -1, b ? b->threshold : -1, ok ? "as saved" : "DIFFERENT");
    return ok ? 0 : -1;
}

int main(int argc, char **argv)
{
    char dir[96], path[128];
    struct device dev, back;
    kavor_hdl mgr;
    xml_file_hdl node;
    int rc = 1;

    memset(&back, 0, sizeof(back));
    param_xml_trace_init("device", NULL, 4, print_record);
    if (param_xml_check(device_table) != 0 || example_dir(argc, argv, dir, sizeof(dir)) != 0)
        return 1;

    /* Run: register, change under the lock, save twice. */
    fill(&dev);
    mgr = kavor_create_v2("device", 500);
    if (mgr == NULL || register_device(mgr, dir, &dev, &node) != 0)
        return 1;
    /* At start-up: the schema of the file, for xmllint --schema and kavor check. */
    if (example_path(path, sizeof(path), dir, "device.xsd") != 0 || kavor_write_schema(node, path) != 0)
        goto out;
    if (kavor_save_one(node) != 0 || wait_saved(node) != 0) /* first copy: role edge */
        goto out;
    kavor_file_lock(node);
    dev.ident.role = ROLE_CORE; /* the task can't read the block meanwhile */
    kavor_file_unlock(node);
    if (kavor_save_one(node) != 0 || wait_saved(node) != 0) /* edge copy becomes the backup */
        goto out;
    kavor_destroy(mgr);

    /* Restart: a new manager loads into empty memory. */
    mgr = kavor_create_v2("device", 500);
    if (mgr == NULL || register_device(mgr, dir, &back, &node) != 0)
        return 1;
    if (kavor_load_all(mgr) != 0 || check_loaded(&back, ROLE_CORE, "loaded") != 0)
        goto out;

    /* The main file lost: the load falls back to the backup. */
    if (example_path(path, sizeof(path), dir, "device.xml.gz") != 0 || remove(path) != 0)
        goto out;
    param_xml_free(&back, device_table); /* buffers and list nodes of the load */
    if (kavor_load_one(node) != 0 || check_loaded(&back, ROLE_EDGE, "from backup") != 0)
        goto out;
    rc = 0;
out:
    param_xml_free(&back, device_table);
    kavor_destroy(mgr);
    return rc;
}
