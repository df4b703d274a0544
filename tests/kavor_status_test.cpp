// What an application can see and choose, through the public calls on real
// files, as docs/application.md tells it: the report of a load, the save
// status, kavor_flush, and the three policies, each off by default.
#include <gtest/gtest.h>

#include <errno.h>
#include <float.h>
#include <locale.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iostream>
#include <random>
#include <string>
#include <vector>

#include <libxml/parser.h>

#include "kavor.hpp"
#include "kavor_fixture.h"
#include "trace_capture.h"

namespace {

enume mode_names[] = {PX_ENUME("off", 0), PX_ENUME("on", 1), PX_ENUME_END(0)};

struct Rep {
    int8_t level;
    int32_t retries;
    int mode;
    int32_t ports[2];
    char host[8];
    double gain;
    int32_t timeout;
};
pdesc rep_table[] = {
    PX_SINT(Rep, level, "level"),  PX_SINT(Rep, retries, "retries"),
    PX_ENUM(Rep, mode, "mode", mode_names), PX_SINT_ARR(Rep, ports, "port"),
    PX_STRI(Rep, host, "host"),    PX_FLOT(Rep, gain, "gain"),
    PX_SINT(Rep, timeout, "timeout"), PX_END,
};

const char kHead[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
const char kGood[] = "<level>1</level><retries>2</retries><mode>on</mode><port>1 2</port>"
                     "<host>h</host><gain>0.5</gain><timeout>5</timeout>";

// A document of the file "rep" with one node "rep" holding `body`.
std::string doc(const std::string &body)
{
    return kHead + ("<rep><rep>" + body + "</rep></rep>\n");
}

std::string with(std::string body, const std::string &from, const std::string &to)
{
    return body.replace(body.find(from), from.size(), to);
}

param_xml_case_t param_xml_report_t::*const kCases[] = {
    &param_xml_report_t::narrowed,      &param_xml_report_t::not_number,
    &param_xml_report_t::unknown_word,  &param_xml_report_t::over_capacity,
    &param_xml_report_t::unknown,       &param_xml_report_t::missing,
};

// A manager whose task saves at the next tick, with one node "rep" in
// <dir>/rep.xml.
struct Fixture {
    explicit Fixture(uint32_t policies = 0, const char *base = "rep")
    {
        mgr = kavor_create_v2("status", 0);
        kavor_set_policy(mgr, policies);
        rgst = kvtest::request(dir.file(base), "rep", rep_table, &blk, 1);
        node = kavor_register(mgr, &rgst);
    }
    ~Fixture() { kavor_destroy(mgr); }
    kavor_load_report_t load(int32_t want)
    {
        EXPECT_EQ(kavor_load_one(node), want);
        kavor_load_report_t r;
        EXPECT_EQ(kavor_load_report(node, &r), 0);
        EXPECT_EQ(r.result, want);
        return r;
    }
    TempDir dir;
    Rep blk{};
    kavor_hdl mgr;
    kavor_file_rgst_t rgst;
    xml_file_hdl node;
};

TEST(LoadReport, EachFieldTellsWhatTheLoadFoundAndWhatTheReaderDid)
{
    const struct {
        const char *what;
        std::string main, bak;  // "" for no file
        int32_t result, source, error_copy;
        param_xml_case_t param_xml_report_t::*field;  // the one case counted
        uint32_t count;
        const char *path;
    } rows[] = {
        {"complete file", doc(kGood), "", 0, KAVOR_SOURCE_MAIN, 0, nullptr, 0, ""},
        {"300 in an 8-bit field", doc(with(kGood, ">1<", ">300<")), "", 0, KAVOR_SOURCE_MAIN, 0,
         &param_xml_report_t::narrowed, 1, "/rep/rep/level"},
        {"abc in an integer", doc(with(kGood, ">2<", ">abc<")), "", 0, KAVOR_SOURCE_MAIN, 0,
         &param_xml_report_t::not_number, 1, "/rep/rep/retries"},
        {"a double beyond its range", doc(with(kGood, "0.5", "1e999")), "", 0,
         KAVOR_SOURCE_MAIN, 0, &param_xml_report_t::narrowed, 1, "/rep/rep/gain"},
        {"an unknown enumeration word", doc(with(kGood, ">on<", ">maybe<")), "", 0,
         KAVOR_SOURCE_MAIN, 0, &param_xml_report_t::unknown_word, 1, "/rep/rep/mode"},
        {"more values than entries", doc(with(kGood, "1 2", "1 2 3")), "", 0, KAVOR_SOURCE_MAIN,
         0, &param_xml_report_t::over_capacity, 1, "/rep/rep/port"},
        {"a string longer than its field", doc(with(kGood, ">h<", ">hostname<")), "", 0,
         KAVOR_SOURCE_MAIN, 0, &param_xml_report_t::over_capacity, 1, "/rep/rep/host"},
        {"unknown element and attribute", doc(with(kGood, "<port>", "<speed/><port unit=\"x\">")),
         "", 0, KAVOR_SOURCE_MAIN, 0, &param_xml_report_t::unknown, 2, "/rep/rep/speed"},
        {"a row the file lacks", doc(with(kGood, "<timeout>5</timeout>", "")), "", 0,
         KAVOR_SOURCE_MAIN, 0, &param_xml_report_t::missing, 1, "/rep/rep/timeout"},
        {"one missing closing tag", doc(with(kGood, "</host>", "")), "", 1,
         KAVOR_SOURCE_MAIN_PARTIAL, 1, nullptr, 0, ""},
        {"no XML, backup complete", "garbage", doc(kGood), 0, KAVOR_SOURCE_BACKUP, 1, nullptr, 0,
         ""},
        {"no usable copy", "", "", -1, KAVOR_SOURCE_NONE, 0, nullptr, 0, ""},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        Fixture f;
        ASSERT_TRUE(r.main.empty() || write_file(f.dir.file("rep.xml"), r.main));
        ASSERT_TRUE(r.bak.empty() || write_file(f.dir.file("rep.xml.bak"), r.bak));
        kavor_load_report_t rep = f.load(r.result);
        EXPECT_EQ(rep.source, r.source);
        EXPECT_EQ(rep.error_copy, r.error_copy);
        EXPECT_EQ(rep.error_line > 0, r.error_copy != 0) << rep.error_line;
        EXPECT_EQ(rep.error_message[0] != '\0', r.error_copy != 0) << rep.error_message;
        for (auto c : kCases) {
            const param_xml_case_t &got = rep.values.*c;
            bool named = c == r.field;
            if (r.result == 1 && !named)
                continue;  // what the recovery parser gives is its own matter
            EXPECT_EQ(got.count, named ? r.count : 0u) << got.path;
            EXPECT_STREQ(got.path, named ? r.path : "");
            EXPECT_EQ(got.line, named ? 2 : 0);
        }
    }
}

TEST(LoadReport, TheCodecAndTheOneShotGiveTheSameReportAndXml2paramStaysAsItIs)
{
    TempDir dir;
    std::string text = doc(with(with(kGood, ">1<", ">300<"), ">on<", ">maybe<") + "<extra/>");
    ASSERT_TRUE(write_file(dir.file("rep.xml"), text));
    xmlDocPtr d = xmlReadMemory(text.data(), static_cast<int>(text.size()), "rep.xml", nullptr, 0);
    xmlNodePtr node = xmlDocGetRootElement(d)->children;

    Rep plain{}, reported{};
    param_xml_report_t values;
    std::vector<std::string> plain_records, reported_records;
    {
        TraceCapture cap(8);
        xml2param(&plain, node, rep_table);
        plain_records = cap.records();
    }
    {
        TraceCapture cap(8);
        xml2param_report(&reported, node, rep_table, 0, &values);
        reported_records = cap.records();
    }
    xmlFreeDoc(d);
    EXPECT_EQ(memcmp(&plain, &reported, sizeof plain), 0);
    EXPECT_EQ(plain_records, reported_records);
    EXPECT_EQ(values.narrowed.count, 1u);
    EXPECT_EQ(values.unknown_word.count, 1u);
    EXPECT_STREQ(values.unknown.path, "/rep/rep/extra");

    Rep one{};
    kavor_file_rgst_t r = kvtest::request(dir.file("rep"), "rep", rep_table, &one, 1);
    kavor_load_report_t rep;
    ASSERT_EQ(kavor_file2param_v2(&r, 0, &rep), 0);
    EXPECT_EQ(rep.source, KAVOR_SOURCE_MAIN);
    EXPECT_EQ(memcmp(&rep.values, &values, sizeof values), 0);
    EXPECT_EQ(kavor_file2param_v2(&r, 0x80, &rep), -1);
}

// ---- save status and flush ---------------------------------------------------

// A device of a few blocks, filled up, at <dir>/full (tmpfs; needs root).
bool full_device(const std::string &dir)
{
    std::string at = dir + "/full";
    if (geteuid() != 0 || mkdir(at.c_str(), 0700) != 0 ||
        mount("kavor-full", at.c_str(), "tmpfs", 0, "size=16k") != 0)
        return false;
    FILE *f = fopen((at + "/filler").c_str(), "w");
    while (f != nullptr && fputc('x', f) != EOF && fflush(f) == 0) {
    }
    bool full = f != nullptr && errno == ENOSPC;
    if (f != nullptr)
        fclose(f);
    return full;
}

TEST(SaveStatus, AFailingSaveTellsItsStepAndErrnoAndCountsUntilASaveCompletes)
{
    const struct {
        const char *what, *base, *cause;
        int32_t err;
    } rows[] = {
        {"a path through a regular file", "blocker/sub/rep", "blocker", ENOTDIR},
        {"a full device", "full/rep", "full/filler", ENOSPC},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        Fixture f(0, r.base);
        struct Unmount {
            std::string at;
            ~Unmount() { umount(at.c_str()); }
        } unmount{f.dir.file("full")};
        if (r.err == ENOSPC && !full_device(f.dir.path())) {
            std::cout << "[  SKIPPED ] a full device needs root and tmpfs\n";
            continue;
        }
        kavor_save_status_t st;
        ASSERT_EQ(kavor_save_status(f.node, &st), 0);
        EXPECT_EQ(st.failed_step, KAVOR_STEP_NONE);
        EXPECT_EQ(kavor_flush(f.mgr, 0), 0);  // nothing marked
        ASSERT_TRUE(r.err != ENOTDIR || write_file(f.dir.file(r.cause), "a regular file"));
        ASSERT_EQ(kavor_save_one(f.node), 0);
        EXPECT_EQ(kavor_flush(f.mgr, 1200), -1);
        ASSERT_EQ(kavor_save_status(f.node, &st), 0);
        EXPECT_GE(st.attempts, 1u);
        EXPECT_EQ(st.failed_step, KAVOR_STEP_WRITE);
        EXPECT_EQ(st.failed_errno, r.err);
        EXPECT_EQ(st.saves, 0u);

        ASSERT_EQ(unlink(f.dir.file(r.cause).c_str()), 0);
        EXPECT_EQ(kavor_flush(f.mgr, 5000), 0);
        ASSERT_EQ(kavor_save_status(f.node, &st), 0);
        EXPECT_EQ(st.attempts, 0u);
        EXPECT_EQ(st.failed_step, KAVOR_STEP_WRITE);  // the last failure stays told
        EXPECT_EQ(st.saves, 1u);
        EXPECT_GT(st.saved_time, 0);
    }
}

TEST(Flush, ReturnsOnceTheMarkedFilesAreSavedThroughTheCppFaceToo)
{
    TempDir dir;
    Rep blk{};
    blk.timeout = 7;
    kavor::Manager m = kavor::Manager::create("flush", 500);
    kavor::Registration r =
        m.add(dir.file("rep").c_str(), "rep", rep_table, &blk, kavor::Storage::plain);
    bool loaded = true;
    EXPECT_EQ(r.report(&loaded).source, KAVOR_SOURCE_NONE);
    EXPECT_FALSE(loaded);
    ASSERT_TRUE(r.save());
    EXPECT_TRUE(m.flush(5000));
    EXPECT_EQ(r.save_status().saves, 1u);
    EXPECT_NE(read_file(dir.file("rep.xml")).find("<timeout>7</timeout>"), std::string::npos);
    EXPECT_EQ(r.load(), kavor::Load::ok);
    EXPECT_EQ(r.report(&loaded).source, KAVOR_SOURCE_MAIN);
    EXPECT_FALSE(m.set_policy(KAVOR_POLICY_KEEP_UNKNOWN << 1));
    EXPECT_EQ(kavor_flush(nullptr, 0), -1);
    EXPECT_EQ(kavor_set_policy(nullptr, 0), -1);
}

// ---- policies ----------------------------------------------------------------

TEST(Policy, PreferBackupTakesACompleteBackupOverAFileReadOnlyInPart)
{
    std::string partial = doc(kGood);
    partial.resize(partial.find("</rep>"));  // a write cut short
    const std::string backup = doc(with(kGood, ">5<", ">9<"));
    const struct {
        uint32_t policies;
        std::string main, bak;
        int32_t result, source, timeout;
    } rows[] = {
        {0, partial, backup, 1, KAVOR_SOURCE_MAIN_PARTIAL, 5},
        {KAVOR_POLICY_PREFER_BACKUP, partial, backup, 0, KAVOR_SOURCE_BACKUP, 9},
        {KAVOR_POLICY_PREFER_BACKUP, partial, partial, 1, KAVOR_SOURCE_MAIN_PARTIAL, 5},
        {KAVOR_POLICY_PREFER_BACKUP, partial, "", 1, KAVOR_SOURCE_MAIN_PARTIAL, 5},
        {KAVOR_POLICY_PREFER_BACKUP, "garbage", partial, 1, KAVOR_SOURCE_BACKUP_PARTIAL, 5},
    };
    for (const auto &r : rows) {
        Fixture f(r.policies);
        ASSERT_TRUE(write_file(f.dir.file("rep.xml"), r.main));
        ASSERT_TRUE(r.bak.empty() || write_file(f.dir.file("rep.xml.bak"), r.bak));
        kavor_load_report_t rep = f.load(r.result);
        EXPECT_EQ(rep.source, r.source);
        EXPECT_EQ(rep.error_copy, 1);
        EXPECT_EQ(f.blk.timeout, r.timeout);
        if (r.source == KAVOR_SOURCE_BACKUP) {
            // The save puts a complete file in place and keeps the backup.
            ASSERT_EQ(kavor_save_one(f.node), 0);
            ASSERT_EQ(kavor_flush(f.mgr, 5000), 0);
            EXPECT_EQ(read_file(f.dir.file("rep.xml.bak")), backup);
            EXPECT_EQ(f.load(0).source, KAVOR_SOURCE_MAIN);
        }
    }
}

struct Floats {
    float f[256];
    double d[256];
};
pdesc floats_table[] = {PX_FLOT_ARR(Floats, f, "f"), PX_FLOT_ARR(Floats, d, "d"), PX_END};

// Saves a sweep of floats and doubles by the task (extremes, subnormals,
// negative zero, random bit patterns) with exact floats, and reads the file
// back in one shot: every value must come back bit for bit, and the file
// has no decimal comma whatever the locale.
void exact_float_round_trip()
{
    Floats out{}, in{};
    const float fs[] = {0.0f, -0.0f, FLT_MIN, -FLT_MAX, FLT_MAX, FLT_TRUE_MIN, 0.1f, 1.5f};
    const double ds[] = {0.0, -0.0, DBL_MIN, -DBL_MAX, DBL_MAX, DBL_TRUE_MIN, 0.1, 1.5};
    std::mt19937_64 rng(20261123);
    for (size_t i = 0; i < 256; i++) {
        uint32_t fb;
        uint64_t db;
        do {
            fb = static_cast<uint32_t>(rng());
            memcpy(&out.f[i], &fb, 4);
        } while (out.f[i] != out.f[i]);  // a NaN reads back as a NaN, not its bits
        do {
            db = rng();
            memcpy(&out.d[i], &db, 8);
        } while (out.d[i] != out.d[i]);
        if (i < 8) {
            out.f[i] = fs[i];
            out.d[i] = ds[i];
        }
    }
    TempDir dir;
    kavor_hdl mgr = kavor_create_v2("exact", 0);
    ASSERT_EQ(kavor_set_policy(mgr, KAVOR_POLICY_EXACT_FLOATS), 0);
    kavor_file_rgst_t r = kvtest::request(dir.file("fl"), "fl", floats_table, &out, 1);
    ASSERT_NE(kavor_register(mgr, &r), nullptr);
    ASSERT_EQ(kavor_save_all(mgr), 0);
    ASSERT_EQ(kavor_flush(mgr, 5000), 0);
    kavor_destroy(mgr);
    std::string text = read_file(dir.file("fl.xml"));
    EXPECT_EQ(text.find(','), std::string::npos) << text;
    r.mem = &in;
    ASSERT_EQ(kavor_file2param_v2(&r, KAVOR_POLICY_EXACT_FLOATS, nullptr), 0);
    EXPECT_EQ(memcmp(&in, &out, sizeof in), 0) << text;
}

TEST(Policy, ExactFloatsComeBackBitForBit)
{
    exact_float_round_trip();
}

TEST(Policy, ExactFloatsComeBackBitForBitUnderADecimalComma)
{
    locale_t de = newlocale(LC_ALL_MASK, "de_DE.UTF-8", (locale_t)0);
    if (de == (locale_t)0)
        GTEST_SKIP() << "no de_DE.UTF-8 locale (scripts/deps makes it as root)";
    freelocale(de);
    ASSERT_NE(setlocale(LC_ALL, "de_DE.UTF-8"), nullptr);
    char buf[16];
    snprintf(buf, sizeof buf, "%.1f", 1.5);
    EXPECT_STREQ(buf, "1,5");  // the process really writes a decimal comma
    exact_float_round_trip();
    setlocale(LC_ALL, "C");
}

TEST(Policy, KeepUnknownWritesBackWhatTheTableDoesNotKnow)
{
    const std::string future = "<future unit=\"ms\"><step>3</step></future>";
    const std::string text = kHead + ("<rep><rep>" + std::string(kGood) + future +
                                      "</rep><other><x>1</x></other></rep>\n");
    for (uint32_t policies : {0u, KAVOR_POLICY_KEEP_UNKNOWN}) {
        Fixture f(policies);
        ASSERT_TRUE(write_file(f.dir.file("rep.xml"), text));
        EXPECT_EQ(f.load(0).values.unknown.count, 2u);  // <future>, and <other> at the root
        f.blk.timeout = 6;
        ASSERT_EQ(kavor_save_one(f.node), 0);
        ASSERT_EQ(kavor_flush(f.mgr, 5000), 0);
        std::string saved = read_file(f.dir.file("rep.xml"));
        bool kept = policies != 0;
        EXPECT_NE(saved.find("<timeout>6</timeout>" + (kept ? future + "</rep>" : "")),
                  std::string::npos) << saved;
        EXPECT_EQ(saved.find("</rep><other><x>1</x></other></rep>") != std::string::npos, kept)
            << saved;
    }

    // An element over what a file may keep is dropped, and said so.
    Fixture f(KAVOR_POLICY_KEEP_UNKNOWN);
    std::string big = "<big>" + std::string(KAVOR_KEEP_MAX, 'x') + "</big>";
    ASSERT_TRUE(write_file(f.dir.file("rep.xml"), doc(kGood + big + "<small/>")));
    TraceCapture cap(5);
    f.load(0);
    EXPECT_EQ(cap.count(5, "xmlParseParamFile", "element (/rep/rep/big) not kept: over KAVOR_KEEP_MAX"),
              1u) << cap.dump();
    ASSERT_EQ(kavor_save_one(f.node), 0);
    ASSERT_EQ(kavor_flush(f.mgr, 5000), 0);
    std::string saved = read_file(f.dir.file("rep.xml"));
    EXPECT_EQ(saved.find("<big>"), std::string::npos);
    EXPECT_NE(saved.find("<small/></rep>"), std::string::npos) << saved;
}

}  // namespace
