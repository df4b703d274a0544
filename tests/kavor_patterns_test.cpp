// The patterns applications ask about, as docs/application.md tells them and
// as nothing else proves: lists and buffers preset before a load are not
// merged, a migration's end result on disk, and a reader beside a writing
// process. (How the reader converts each kind is param_xml_read_test's part.)
#include <gtest/gtest.h>

#include <sys/wait.h>

#include "kavor_fixture.h"
#include "trace_capture.h"

namespace {

const std::string kHead = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

struct Rule { struct znode z; int32_t id; };
pdesc rule_table[] = {PX_SINT(Rule, id, "id"), PX_END};
struct Cfg { int32_t mtu; char host[16]; zhead_t rules; int16_t *samples[2]; int nsamples[2]; };
pdesc cfg_table[] = {PX_SINT(Cfg, mtu, "mtu"), PX_STRI(Cfg, host, "host"), PX_LIST(Cfg, rules, Rule, "rule", rule_table),
                     PX_SINT_COB(Cfg, samples, nsamples, "samples"), PX_END};

TEST(Patterns, DefaultsSetBeforeALoadStayWhereTheFileHasNothingButListsAndBuffersAreNotMerged)
{
    TempDir dir;
    ASSERT_TRUE(write_file(dir.file("cfg.xml"), kHead + "<cfg><cfg><mtu>9000</mtu><rule><rule><id>7</id></rule></rule>"
                                                        "<samples cnt=\"2\"><samples>1 2</samples></samples></cfg></cfg>"));
    // The file's value wins, the default stays; the preset list stays, the preset buffer is replaced.
    Cfg a{};
    a.mtu = 9, strcpy(a.host, "default");
    Rule preset_rule{{}, 1};
    int16_t preset_samples[2] = {9, 9};
    zlst_push(&a.rules, &preset_rule), a.samples[0] = preset_samples, a.nsamples[0] = 2;
    kavor_file_rgst_t r = kvtest::request(dir.file("cfg"), "cfg", cfg_table, &a, 1);
    TraceCapture trace(4);
    ASSERT_EQ(kavor_file2param(&r), 0);
    EXPECT_EQ(std::make_tuple(a.mtu, std::string(a.host), a.rules, preset_rule.z.next),
              std::make_tuple(9000, std::string("default"), &preset_rule.z, (znode *)nullptr));
    EXPECT_EQ(trace.count(4, "xml2list", "xml2list: rule not an empty list"), 1u);
    ASSERT_NE(a.samples[0], preset_samples);
    EXPECT_EQ(std::make_tuple(a.samples[0][1], preset_samples[1]), std::make_tuple(int16_t(2), int16_t(9)));
    xmlFree(a.samples[0]);
}

// Version 1 and 2 of a structure: a row removed, one renamed (read through an
// alias), two whose text no longer reads as their kind, one added.
enume mode_names[] = {PX_ENUME("off", 0), PX_ENUME("on", 1), PX_ENUME_END(0)};
struct V1 { int32_t mtu, speed, retries; int state; char label[8]; };
pdesc v1_table[] = {PX_SINT(V1, mtu, "mtu"), PX_SINT(V1, speed, "speed"), PX_SINT(V1, retries, "retries"),
                    PX_ENUM(V1, state, "state", mode_names), PX_STRI(V1, label, "label"), PX_END};
struct V2 { int32_t mtu, max_retries, old_retries[1]; int n_old_retries; int32_t state, label, timeout; };
pdesc v2_table[] = {PX_SINT(V2, mtu, "mtu"), PX_SINT(V2, max_retries, "max_retries"),
                    PX_SINT_CIA(V2, old_retries, n_old_retries, "retries"), PX_SINT(V2, state, "state"),
                    PX_SINT(V2, label, "label"), PX_SINT(V2, timeout, "timeout"), PX_END};

TEST(Patterns, AMigrationGivesWhatTheGuideSaysAndItsNextSaveLeavesTheOldNamesOut)
{
    TempDir dir;
    V1 v1 = {1500, 1000, 5, 1, "eth0"};
    V2 v2 = {0, 3, {0}, 0, 9, 9, 30};
    kavor_file_rgst_t r1 = kvtest::request(dir.file("dev"), "dev", v1_table, &v1, 1),
                      r2 = kvtest::request(dir.file("dev"), "dev", v2_table, &v2, 1);
    ASSERT_EQ(kavor_param2file(&r1), 0);
    TraceCapture trace(5);
    ASSERT_EQ(kavor_file2param(&r2), 0);
    // mtu; the new name's default and the alias; "on" and "eth0" no numbers: defaults; added: default
    EXPECT_EQ(std::vector<int32_t>(
                  {v2.mtu, v2.max_retries, v2.old_retries[0], v2.n_old_retries, v2.state, v2.label, v2.timeout}),
              std::vector<int32_t>({1500, 3, 5, 1, 9, 9, 30}));
    EXPECT_EQ(trace.count(5, "xml2param", "no mark in param is \"speed\""), 1u);
    if (v2.n_old_retries > 0)  // the application's migration step
        v2.max_retries = v2.old_retries[0], v2.n_old_retries = 0;
    ASSERT_EQ(kavor_param2file(&r2), 0);
    EXPECT_EQ(read_file(dir.file("dev.xml")),
              kHead + "<dev><dev><mtu>1500</mtu><max_retries>5</max_retries><state>9</state><label>9</label>"
                      "<timeout>30</timeout></dev></dev>\n");
}

// One process saves generation after generation of a file that another loads meanwhile:
// every load of the reader fills its block from one whole copy, whatever its result says.
TEST(Patterns, AProcessLoadingAFileThatAnotherSavesAlwaysFindsAWholeCopy)
{
    TempDir dir;
    kvtest::Blk b;
    kvtest::fill(b, 0);
    kavor_file_rgst_t r = kvtest::request(dir.file("blk"), "blk", kvtest::blk_table(), &b, 1);
    ASSERT_EQ(kavor_param2file(&r), 0);
    const int gens = 20;
    pid_t writer = fork();
    if (writer == 0) {
        kavor_hdl mgr = kavor_create_v2("writer", 0);
        xml_file_hdl h = kavor_register(mgr, &r);
        bool ok = h != nullptr;
        for (int g = 1; g <= gens && ok; g++) {
            kvtest::set_locked(h, b, g);
            ok = kavor_save_one(h) == 0 && kvtest::wait_for([&] { return kavor_file_on_saving(h) == 0; });
        }
        kavor_destroy(mgr);
        _exit(ok ? 0 : 1);
    }
    kavor_hdl mgr = kavor_create_v2("reader", 0);
    xml_file_hdl h = kavor_register(mgr, &r);
    int loads = 0, st = 0;
    for (bool running = true; running; loads++) {
        running = waitpid(writer, &st, WNOHANG) == 0;
        kavor_load_one(h);
        ASSERT_NE(kvtest::whole_gen(b), -1);
    }
    EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0);
    EXPECT_EQ(kavor_load_one(h), 0);
    EXPECT_EQ(std::make_tuple(kvtest::whole_gen(b), loads > 1), std::make_tuple(gens, true));
    kavor_destroy(mgr);
}

}  // namespace
