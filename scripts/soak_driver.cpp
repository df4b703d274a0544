// soak_driver.cpp - one process of the soak run (scripts/soak), built against
// the shared library and its public headers only.
//
//   soak_driver run <dir> <seed>    works until killed: several managers with
//                                   many files, random changes under the file
//                                   lock, save requests, loads
//   soak_driver check <dir> <tmp>   loads every file as a restarted process
//                                   does and compares it with the journal
//
// Every block of a file carries one generation number from which all its
// fields follow, so a load gives one whole generation or visibly not. The
// run appends "<file> <gen>" to <dir>/durable once the manager reports the
// file saved (kavor_file_on_saving 0) after the change to <gen>; a killed
// process loses nothing of the page cache, so a check must find every file
// whole, at that generation or a later one; where a kill cut a gzip, the
// load says so with 1 and the backup must hold such a generation. Invariant: a file is lost or
// inconsistent exactly when the check says so; it prints one figure line.
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "kavor.h"

namespace {

const int kManagers = 3;
const int kFilesPerManager = 8;

struct Blk {
    char name[24];
    uint32_t vals[64];
    int32_t gen;
};

struct pdesc blk_table[] = {
    PX_STRI(Blk, name, "name"),
    PX_UINT_ARR(Blk, vals, "vals"),
    PX_SINT(Blk, gen, "gen"),
    PX_END,
};

void fill(Blk *b, int32_t g)
{
    memset(b, 0, sizeof *b);
    snprintf(b->name, sizeof b->name, "gen%d", g);
    for (size_t i = 0; i < sizeof b->vals / sizeof b->vals[0]; i++)
        b->vals[i] = (uint32_t)g * 7919u + (uint32_t)i;
    b->gen = g;
}

bool whole(const Blk &b)
{
    Blk want;
    fill(&want, b.gen);
    return memcmp(&want, &b, sizeof b) == 0;
}

// File k of manager m: plain, compressed, or through a virtual file.
struct FileDef {
    std::string path;
    int32_t ugz;
    std::string virt;
};

FileDef file_def(const std::string &dir, int m, int k)
{
    FileDef s;
    s.path = dir + "/m" + std::to_string(m) + "/f" + std::to_string(k);
    s.ugz = k % 2;
    if (k % 4 == 3)
        s.virt = dir + "/virt/m" + std::to_string(m) + "f" + std::to_string(k) + ".xml";
    return s;
}

kavor_file_rgst_t request(const FileDef &s, const char *node, Blk *mem, bool with_virt)
{
    kavor_file_rgst_t r;
    memset(&r, 0, sizeof r);
    snprintf(r.filename, sizeof r.filename, "%s", s.path.c_str());
    snprintf(r.node_name, sizeof r.node_name, "%s", node);
    if (with_virt)
        snprintf(r.virtfile, sizeof r.virtfile, "%s", s.virt.c_str());
    r.ugz = s.ugz;
    r.mem = mem;
    r.param_desc = blk_table;
    return r;
}

struct Live {
    FileDef s;
    Blk a, b;                 // two nodes of one file
    xml_file_hdl ha, hb;
    int32_t gen;              // the generation in memory
    int32_t asked;            // generation of the last request, 0 none
};

void journal(int fd, const std::string &key, int32_t gen)
{
    char line[256];
    int n = snprintf(line, sizeof line, "%s %d\n", key.c_str(), gen);
    if (n > 0 && write(fd, line, (size_t)n) != n)
        _exit(3);
}

// One random operation on a file: a change under the file lock and its
// request, or a load of a file with nothing pending, which must give back
// what memory holds. Exits the process on a wrong load.
void one_op(Live *f, std::mt19937 &rnd)
{
    switch (rnd() % 6) {
    case 0: case 1: case 2: case 3:
        kavor_file_lock(f->ha);
        f->gen++;
        fill(&f->a, f->gen);
        fill(&f->b, f->gen);
        kavor_file_unlock(f->ha);
        kavor_save_one(rnd() % 2 ? f->ha : f->hb);
        f->asked = f->gen;
        break;
    case 4: {
        if (kavor_file_on_saving(f->ha) != 0 || f->gen == 0)
            break;
        Blk keep_a = f->a, keep_b = f->b;
        int32_t r = kavor_load_one(f->hb);
        if (r != 0 || memcmp(&keep_a, &f->a, sizeof keep_a) != 0 ||
            memcmp(&keep_b, &f->b, sizeof keep_b) != 0) {
            fprintf(stderr, "soak: %s loaded back other content (%d)\n", f->s.path.c_str(), r);
            _exit(4);
        }
        break;
    }
    default:
        break;
    }
}

// Journals every file whose last request has reached the disk.
void journal_saved(int fd, const std::vector<Live *> &files)
{
    for (Live *g : files) {
        if (g->asked != 0 && kavor_file_on_saving(g->ha) == 0) {
            journal(fd, g->s.path, g->asked);
            g->asked = 0;
        }
    }
}

int run(const std::string &dir, unsigned seed)
{
    std::mt19937 rnd(seed);
    int fd = open((dir + "/durable").c_str(), O_WRONLY | O_APPEND | O_CREAT, 0644);
    if (fd < 0)
        return 2;
    std::vector<kavor_hdl> mgrs;
    std::vector<Live *> files;
    for (int m = 0; m < kManagers; m++) {
        kavor_hdl h = kavor_create_v2(("soak" + std::to_string(m)).c_str(), 100);
        if (h == NULL)
            return 2;
        mgrs.push_back(h);
        for (int k = 0; k < kFilesPerManager; k++) {
            Live *f = new Live();
            f->s = file_def(dir, m, k);
            kavor_file_rgst_t ra = request(f->s, "a", &f->a, true);
            kavor_file_rgst_t rb = request(f->s, "b", &f->b, true);
            f->ha = kavor_register(h, &ra);
            f->hb = kavor_register(h, &rb);
            if (f->ha == NULL || f->hb == NULL)
                return 2;
            // Start from what the disk holds, as a restarted device does.
            kavor_load_one(f->ha);
            f->gen = (whole(f->a) && f->a.gen == f->b.gen) ? f->a.gen : 0;
            f->asked = 0;
            files.push_back(f);
        }
    }
    // Bursts of work, each followed by a quiet spell in which the task can
    // save (any request restarts its quiet time).
    for (;;) {
        int burst = 1 + (int)(rnd() % 20);
        for (int i = 0; i < burst; i++)
            one_op(files[rnd() % files.size()], rnd);
        int quiet_ms = (int)(rnd() % 1500);
        for (int t = 0; t <= quiet_ms; t += 20) {
            journal_saved(fd, files);
            struct timespec ts = {0, 20 * 1000000L};
            nanosleep(&ts, NULL);
        }
    }
}

int32_t load_file(const FileDef &s, Blk *a, Blk *b, const std::string &scratch, bool from_bak)
{
    FileDef t = s;
    if (from_bak) {
        std::string suffix = s.ugz ? ".xml" : ".xml.gz";
        std::string bak = s.path + (s.ugz ? ".xml.bak" : ".xml.bak.gz");
        t.path = scratch + "/" + s.path.substr(s.path.rfind('/') + 1);
        std::string cmd = "cp -f '" + bak + "' '" + t.path + suffix + "' 2>/dev/null";
        if (system(cmd.c_str()) != 0)
            return -1;
    }
    kavor_hdl h = kavor_create_v2("soakcheck", 100);
    memset(a, 0, sizeof *a);
    memset(b, 0, sizeof *b);
    kavor_file_rgst_t ra = request(t, "a", a, false);
    kavor_file_rgst_t rb = request(t, "b", b, false);
    xml_file_hdl ha = kavor_register(h, &ra);
    xml_file_hdl hb = kavor_register(h, &rb);
    int32_t r = (ha && hb) ? kavor_load_one(ha) : -2;
    kavor_unregister(ha);
    kavor_unregister(hb);
    kavor_destroy(h);
    return r;
}

bool good(const Blk &a, const Blk &b, int32_t want)
{
    return whole(a) && whole(b) && a.gen == b.gen && a.gen >= want;
}

int check(const std::string &dir, const std::string &scratch)
{
    std::map<std::string, int32_t> durable;
    if (FILE *jf = fopen((dir + "/durable").c_str(), "r")) {
        char key[256];
        int32_t gen;
        while (fscanf(jf, "%255s %d", key, &gen) == 2)
            if (gen > durable[key])
                durable[key] = gen;
        fclose(jf);
    }
    int checked = 0, recovered = 0, lost = 0, bad = 0;
    for (int m = 0; m < kManagers; m++) {
        for (int k = 0; k < kFilesPerManager; k++) {
            FileDef s = file_def(dir, m, k);
            int32_t want = durable.count(s.path) ? durable[s.path] : 0;
            Blk a, b;
            int32_t r = load_file(s, &a, &b, scratch, false);
            checked++;
            if (r == 1 && !good(a, b, want)) {
                // A gzip cut by the kill: the load says so (1), and the
                // backup must then hold the last saved content whole.
                recovered++;
                r = load_file(s, &a, &b, scratch, true);
            }
            if (r < 0 && want > 0) {
                lost++;
                fprintf(stderr, "soak: %s lost (load %d, saved gen %d)\n", s.path.c_str(), r, want);
            } else if (r >= 0 && !good(a, b, want)) {
                bad++;
                fprintf(stderr, "soak: %s inconsistent or old (gens %d/%d, saved gen %d)\n",
                        s.path.c_str(), a.gen, b.gen, want);
            }
        }
    }
    printf("checked %d recovered %d lost %d inconsistent %d\n", checked, recovered, lost, bad);
    return lost + bad == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc == 4 && strcmp(argv[1], "run") == 0)
        return run(argv[2], (unsigned)strtoul(argv[3], NULL, 10));
    if (argc == 4 && strcmp(argv[1], "check") == 0)
        return check(argv[2], argv[3]);
    fprintf(stderr, "usage: soak_driver run <dir> <seed> | check <dir>\n");
    return 2;
}
