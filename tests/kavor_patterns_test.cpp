// The patterns applications ask about, through the public calls on real
// files, as docs/application.md tells them: defaults set before a load
// (values, lists, counted buffers), a table that moves from one version of
// a structure to the next, and two processes on one file.
#include <gtest/gtest.h>

#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "kavor.h"
#include "kavor_fixture.h"
#include "trace_capture.h"

namespace {

const char kHead[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

using kvtest::wait_for;

// ---- defaults set before a load --------------------------------------------

struct Rule {
    struct znode z;
    int32_t id;
};
pdesc rule_table[] = {PX_SINT(Rule, id, "id"), PX_END};

struct Cfg {
    int32_t mtu;
    char host[16];
    zhead_t rules;
    int16_t *samples[2];
    int nsamples[2];
};
pdesc cfg_table[] = {
    PX_SINT(Cfg, mtu, "mtu"),
    PX_STRI(Cfg, host, "host"),
    PX_LIST(Cfg, rules, Rule, "rule", rule_table),
    PX_SINT_COB(Cfg, samples, nsamples, "samples"),
    PX_END,
};

TEST(Patterns, DefaultsSetBeforeALoadStayWhereTheFileHasNothingButListsAndBuffersAreNotMerged)
{
    TempDir dir;
    ASSERT_TRUE(write_file(dir.file("cfg.xml"),
                           std::string(kHead) +
                               "<cfg><cfg><mtu>9000</mtu><rule><rule><id>7</id></rule></rule>"
                               "<samples cnt=\"2\"><samples>1 2</samples></samples></cfg></cfg>"));
    kavor_hdl mgr = kavor_create_v2("patterns", 0);
    ASSERT_NE(mgr, nullptr);

    // Everything preset: a value the file lacks (host) keeps its default, the
    // file's value wins where it has one; the preset list is left alone and
    // the file's rules are not read; the preset buffer's pointer is replaced
    // by a new buffer and the preset array itself is not touched.
    Cfg a{};
    a.mtu = 1500;
    strcpy(a.host, "default");
    Rule preset_rule{};
    preset_rule.id = 1;
    zlst_push(&a.rules, &preset_rule);
    int16_t preset_samples[2] = {9, 9};
    a.samples[0] = preset_samples;
    a.nsamples[0] = 2;
    kavor_file_rgst_t ra = kvtest::request(dir.file("cfg"), "cfg", cfg_table, &a, 1);
    xml_file_hdl ha = kavor_register(mgr, &ra);
    TraceCapture trace(4);
    ASSERT_EQ(kavor_load_one(ha), 0);
    EXPECT_EQ(a.mtu, 9000);
    EXPECT_STREQ(a.host, "default");
    EXPECT_EQ(a.rules, &preset_rule.z);
    EXPECT_EQ(preset_rule.z.next, nullptr);
    EXPECT_EQ(trace.count(4, "xml2list", "xml2list: rule not an empty list"), 1u);
    ASSERT_NE(a.samples[0], preset_samples);
    EXPECT_EQ(a.samples[0][1], 2);
    EXPECT_EQ(preset_samples[1], 9);
    xmlFree(a.samples[0]);
    kavor_unregister(ha);

    // The pattern: values preset, lists and buffers empty until after the
    // load; param_xml_free releases what the load made.
    Cfg b{};
    b.mtu = 1500;
    kavor_file_rgst_t rb = kvtest::request(dir.file("cfg"), "cfg", cfg_table, &b, 1);
    xml_file_hdl hb = kavor_register(mgr, &rb);
    ASSERT_EQ(kavor_load_one(hb), 0);
    ASSERT_NE(b.rules, nullptr);
    EXPECT_EQ(reinterpret_cast<Rule *>(b.rules)->id, 7);
    ASSERT_EQ(b.nsamples[0], 2);
    EXPECT_EQ(b.samples[0][0], 1);
    EXPECT_EQ(b.nsamples[1], 0);  // still empty: the application's default goes here
    param_xml_free(&b, cfg_table);
    EXPECT_EQ(b.rules, nullptr);
    EXPECT_EQ(b.samples[0], nullptr);
    kavor_destroy(mgr);
}

// ---- a table from one version of a structure to the next -------------------

enum Mode { MODE_OFF = 0, MODE_ON = 1, MODE_AUTO = 2 };
enume mode_names[] = {PX_ENUME("off", MODE_OFF), PX_ENUME("on", MODE_ON),
                      PX_ENUME("auto", MODE_AUTO), PX_ENUME_END(MODE_OFF)};

struct V1 {
    int32_t mtu, speed, retries, level;
    int8_t duplex;
    float gain;
    int32_t mode, ratio, code;
    int state;
    char label[8];
    int32_t ports[4], vlans[2];
};
pdesc v1_table[] = {
    PX_SINT(V1, mtu, "mtu"),         PX_SINT(V1, speed, "speed"),
    PX_SINT(V1, retries, "retries"), PX_SINT(V1, level, "level"),
    PX_SINT(V1, duplex, "duplex"),   PX_FLOT(V1, gain, "gain"),
    PX_SINT(V1, mode, "mode"),       PX_SINT(V1, ratio, "ratio"),
    PX_SINT(V1, code, "code"),       PX_ENUM(V1, state, "state", mode_names),
    PX_STRI(V1, label, "label"),     PX_SINT_ARR(V1, ports, "port"),
    PX_SINT_ARR(V1, vlans, "vlan"),  PX_END,
};

struct V2 {
    int32_t mtu;            // unchanged
                            // speed: removed
    int32_t max_retries;    // renamed from retries ...
    int32_t old_retries[1]; // ... read through an alias that is never written
    int n_old_retries;
    int8_t level;           // int32 -> int8
    int32_t duplex;         // int8 -> int32
    int32_t gain;           // float -> int32
    int mode;               // int32 -> enumeration
    double ratio;           // int32 -> double
    char code[8];           // int32 -> string
    int32_t state;          // enumeration -> int32
    int32_t label;          // string -> int32
    int32_t ports[2];       // 4 -> 2 entries
    int32_t vlans[3];       // 2 -> 3 entries
    int32_t timeout;        // added
};
pdesc v2_table[] = {
    PX_SINT(V2, mtu, "mtu"),
    PX_SINT(V2, max_retries, "max_retries"),
    PX_SINT_CIA(V2, old_retries, n_old_retries, "retries"),
    PX_SINT(V2, level, "level"),
    PX_SINT(V2, duplex, "duplex"),
    PX_SINT(V2, gain, "gain"),
    PX_ENUM(V2, mode, "mode", mode_names),
    PX_FLOT(V2, ratio, "ratio"),
    PX_STRI(V2, code, "code"),
    PX_SINT(V2, state, "state"),
    PX_SINT(V2, label, "label"),
    PX_SINT_ARR(V2, ports, "port"),
    PX_SINT_ARR(V2, vlans, "vlan"),
    PX_SINT(V2, timeout, "timeout"),
    PX_END,
};

TEST(Patterns, EachChangeOfATableGivesWhatTheMigrationGuideSays)
{
    ASSERT_EQ(param_xml_check(v1_table), 0);
    ASSERT_EQ(param_xml_check(v2_table), 0);
    TempDir dir;
    V1 v1 = {1500, 1000, 5, 300, -1, 2.5f, 2, 7, 404, MODE_AUTO, "eth0", {1, 2, 3, 4}, {10, 20}};
    kavor_file_rgst_t r1 = kvtest::request(dir.file("dev"), "dev", v1_table, &v1, 1);
    ASSERT_EQ(kavor_param2file(&r1), 0);

    V2 v2 = {};
    v2.max_retries = 3;
    v2.level = 7;
    v2.duplex = 9;
    v2.gain = 9;
    v2.mode = MODE_ON;
    v2.state = 9;
    v2.label = 9;
    v2.vlans[2] = 30;
    v2.timeout = 30;
    kavor_file_rgst_t r2 = kvtest::request(dir.file("dev"), "dev", v2_table, &v2, 1);
    TraceCapture trace(5);
    ASSERT_EQ(kavor_file2param(&r2), 0);
    const struct {
        const char *change;
        long got, want;
    } rows[] = {
        {"unchanged row", v2.mtu, 1500},
        {"renamed row: the new name keeps its default", v2.max_retries, 3},
        {"renamed row: the alias read the old name", v2.old_retries[0], 5},
        {"renamed row: the alias's count says it was there", v2.n_old_retries, 1},
        {"narrowed: 300 keeps the low 8 bits", v2.level, 44},
        {"widened", v2.duplex, -1},
        {"float to int: the digits before the point", v2.gain, 2},
        {"number to enumeration: the table's default", v2.mode, MODE_OFF},
        {"integer to float", static_cast<long>(v2.ratio * 2), 14},
        {"number to string", strcmp(v2.code, "404"), 0},
        {"enumeration to number: no number, default kept", v2.state, 9},
        {"string to number: no number, default kept", v2.label, 9},
        {"shorter array: first entries", v2.ports[1], 2},
        {"longer array: the file's entries", v2.vlans[1], 20},
        {"longer array: the others keep their default", v2.vlans[2], 30},
        {"added row: default kept", v2.timeout, 30},
    };
    for (const auto &r : rows)
        EXPECT_EQ(r.got, r.want) << r.change;
    EXPECT_EQ(trace.count(5, "xml2param", "no mark in param is \"speed\""), 1u);

    // The migration step of the application, then the next save: the
    // removed and the renamed names are gone from the file.
    if (v2.n_old_retries > 0) {
        v2.max_retries = v2.old_retries[0];
        v2.n_old_retries = 0;
    }
    ASSERT_EQ(kavor_param2file(&r2), 0);
    std::string saved = read_file(dir.file("dev.xml"));
    EXPECT_NE(saved.find("<max_retries>5</max_retries>"), std::string::npos) << saved;
    EXPECT_EQ(saved.find("<retries>"), std::string::npos) << saved;
    EXPECT_EQ(saved.find("<speed>"), std::string::npos) << saved;
}

// ---- two processes on one file ---------------------------------------------

struct Pair {
    int32_t a, b;
};
pdesc pair_table[] = {PX_SINT(Pair, a, "a"), PX_SINT(Pair, b, "b"), PX_END};

// A child process with a manager of its own on `base`: it holds its file
// lock from the first byte it writes to `up` until it reads one from `down`,
// or, with `gens` > 0, saves generations 1..gens (a = b = g) one by one.
pid_t peer(const std::string &base, int up, int down, int gens)
{
    pid_t pid = fork();
    if (pid != 0)
        return pid;
    Pair p{};
    kavor_hdl mgr = kavor_create_v2("peer", 0);
    kavor_file_rgst_t r = kvtest::request(base, "pair", pair_table, &p, 1);
    xml_file_hdl h = kavor_register(mgr, &r);
    char c = 0;
    int ok = 1;
    if (gens == 0) {
        kavor_file_lock(h);
        ok = write(up, &c, 1) == 1 && read(down, &c, 1) == 1;
        kavor_file_unlock(h);
    }
    for (int g = 1; g <= gens && ok; g++) {
        kavor_file_lock(h);
        p.a = p.b = g;
        kavor_file_unlock(h);
        ok = kavor_save_one(h) == 0 && wait_for([&] { return kavor_file_on_saving(h) == 0; });
    }
    kavor_destroy(mgr);
    _exit(ok ? 0 : 1);
}

TEST(Patterns, TwoProcessesOnOneFileShareNoLockAndAReaderAlwaysFindsAWholeCopy)
{
    TempDir dir;
    const std::string base = dir.file("pair");
    Pair p{};
    kavor_file_rgst_t r = kvtest::request(base, "pair", pair_table, &p, 1);
    ASSERT_EQ(kavor_param2file(&r), 0);

    // The other process holds its file lock: this process's save runs all
    // the same.
    int up[2], down[2];
    ASSERT_EQ(pipe(up), 0);
    ASSERT_EQ(pipe(down), 0);
    pid_t holder = peer(base, up[1], down[0], 0);
    char c;
    ASSERT_EQ(read(up[0], &c, 1), 1);
    kavor_hdl mgr = kavor_create_v2("patterns", 0);
    xml_file_hdl h = kavor_register(mgr, &r);
    p.a = p.b = 42;
    ASSERT_EQ(kavor_save_one(h), 0);
    EXPECT_TRUE(wait_for([&] { return kavor_file_on_saving(h) == 0; }));
    EXPECT_NE(read_file(base + ".xml").find("<a>42</a>"), std::string::npos);
    ASSERT_EQ(write(down[1], &c, 1), 1);
    int st = 0;
    waitpid(holder, &st, 0);
    EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0);

    // One process saves generation after generation: every load of this
    // one that fills the block fills it from one whole copy (the file, or
    // the backup between two renames), whatever its result says.
    const int gens = 20;
    pid_t writer = peer(base, -1, -1, gens);
    int loads = 0;
    bool running = true;
    while (running) {
        running = waitpid(writer, &st, WNOHANG) == 0;
        kavor_load_one(h);
        ASSERT_EQ(p.a, p.b);
        loads++;
    }
    EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0);
    ASSERT_EQ(kavor_load_one(h), 0);
    EXPECT_EQ(p.a, gens);
    EXPECT_GT(loads, 1);
    kavor_destroy(mgr);
    for (int fd : {up[0], up[1], down[0], down[1]})
        close(fd);
}

}  // namespace
