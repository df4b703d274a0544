// What an application can see and choose, through the public calls on real
// files, as docs/application.md tells it: the report of a load, the save
// status, kavor_flush, and the three policies, each off by default.
#include <gtest/gtest.h>

#include <sys/mount.h>

#include <random>

#include "codec_util.h"
#include "kavor.hpp"
#include "kavor_fixture.h"
#include "sweep.h"
#include "trace_capture.h"

static bool g_refuse_new = false;  // kavor::Manager::create()'s own allocation refused
void *operator new(std::size_t n, const std::nothrow_t &) noexcept { return g_refuse_new ? nullptr : ::operator new(n); }

namespace {

enume mode_names[] = {PX_ENUME("off", 0), PX_ENUME("on", 1), PX_ENUME_END(0)};
struct Rep { int8_t level; int32_t retries; int mode; int32_t ports[2]; char host[8]; double gain; int32_t timeout; };
pdesc rep_table[] = {PX_SINT(Rep, level, "level"), PX_SINT(Rep, retries, "retries"), PX_ENUM(Rep, mode, "mode", mode_names),
                     PX_SINT_ARR(Rep, ports, "port"), PX_STRI(Rep, host, "host"), PX_FLOT(Rep, gain, "gain"),
                     PX_SINT(Rep, timeout, "timeout"), PX_END};
const std::string kGood = "<level>1</level><retries>2</retries><mode>on</mode><port>1 2</port>"
                          "<host>h</host><gain>0.5</gain><timeout>5</timeout>";
// The file "rep" with the node "rep" holding kGood with `from` replaced by `to`, then `root` at the root.
std::string doc(const std::string &from = "", const std::string &to = "", const std::string &root = "")
{
    std::string body = kGood;
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<rep><rep>" +
           (from.empty() ? body + to : body.replace(body.find(from), from.size(), to)) + "</rep>" + root + "</rep>\n";
}

// A manager whose task saves at the next tick, with the node "rep" of <dir>/rep.xml
// (and its backup) written as `main` (`bak`) unless "".
struct Fixture {
    explicit Fixture(uint32_t policies = 0, const std::string &main = "", const std::string &bak = "")
        : mgr(kavor_create_v2("status", 0)), rgst(kvtest::request(dir.file("rep"), "rep", rep_table, &blk, 1))
    {
        kavor_set_policy(mgr, policies), node = kavor_register(mgr, &rgst);
        EXPECT_TRUE((main.empty() || write_file(dir.file("rep.xml"), main)) &&
                    (bak.empty() || write_file(dir.file("rep.xml.bak"), bak)));
    }
    ~Fixture() { kavor_destroy(mgr); }
    kavor_load_report_t load(int32_t want)
    {
        kavor_load_report_t r;
        EXPECT_EQ(kavor_load_one(node), want);
        EXPECT_EQ(std::make_tuple(kavor_load_report(node, &r), r.result), std::make_tuple(0, want));
        return r;
    }
    std::string save()  // by the task; what is on disk then
    {
        EXPECT_TRUE(kavor_save_one(node) == 0 && kavor_flush(mgr, 5000) == 0);
        return read_file(dir.file("rep.xml"));
    }
    TempDir dir;
    Rep blk{};
    kavor_hdl mgr; kavor_file_rgst_t rgst; xml_file_hdl node;
};

using R = param_xml_report_t;

// With KAVOR_POLICY_PREFER_BACKUP (P) too: a complete backup over a file read only in part.
TEST(LoadReport, EachFieldTellsWhatTheLoadFoundTheOneShotAndTheCodecTheSameAndXml2paramStaysAsItIs)
{
    const int32_t M = KAVOR_SOURCE_MAIN, MP = KAVOR_SOURCE_MAIN_PARTIAL, B = KAVOR_SOURCE_BACKUP;
    const uint32_t P = KAVOR_POLICY_PREFER_BACKUP;
    const std::string part = doc().substr(0, doc().find("</rep>")), backup = doc(">5<", ">9<");  // part: a write cut short
    const struct {
        uint32_t policies;
        std::string main, bak;  // "" for no file
        int32_t result, source, error_copy;
        param_xml_case_t R::*field; uint32_t count; const char *path;  // the one case counted
    } rows[] = {
        {0, doc(), "", 0, M, 0, nullptr, 0, ""},
        {0, doc(">1<", ">300<"), "", 0, M, 0, &R::narrowed, 1, "/rep/rep/level"},
        {0, doc(">2<", ">abc<"), "", 0, M, 0, &R::not_number, 1, "/rep/rep/retries"},
        {0, doc("0.5", "1e999"), "", 0, M, 0, &R::narrowed, 1, "/rep/rep/gain"},
        {0, doc(">on<", ">maybe<"), "", 0, M, 0, &R::unknown_word, 1, "/rep/rep/mode"},
        {0, doc("1 2", "1 2 3"), "", 0, M, 0, &R::over_capacity, 1, "/rep/rep/port"},
        {0, doc(">h<", ">hostname<"), "", 0, M, 0, &R::over_capacity, 1, "/rep/rep/host"},
        {0, doc("<port>", "<speed/><port unit=\"x\">"), "", 0, M, 0, &R::unknown, 2, "/rep/rep/speed"},
        {0, doc("<timeout>5</timeout>", ""), "", 0, M, 0, &R::missing, 1, "/rep/rep/timeout"},
        {0, doc("</host>", ""), "", 1, MP, 1, nullptr, 0, ""},
        {0, "garbage", backup, 0, B, 1, nullptr, 0, ""},
        {0, "", "", -1, KAVOR_SOURCE_NONE, 0, nullptr, 0, ""},
        {0, part, backup, 1, MP, 1, nullptr, 0, ""},
        {P, part, backup, 0, B, 1, nullptr, 0, ""},
        {P, part, part, 1, MP, 1, nullptr, 0, ""},
        {P, part, "", 1, MP, 1, nullptr, 0, ""},
        {P, "garbage", part, 1, KAVOR_SOURCE_BACKUP_PARTIAL, 1, nullptr, 0, ""},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.main);
        Fixture f(r.policies, r.main, r.bak);
        kavor_load_report_t rep = f.load(r.result);
        EXPECT_EQ(f.blk.timeout == 9, r.source == B);
        EXPECT_EQ(std::make_tuple(rep.source, rep.error_copy, rep.error_line > 0, rep.error_message[0] != '\0'),
                  std::make_tuple(r.source, r.error_copy, r.error_copy != 0, r.error_copy != 0)) << rep.error_message;
        for (param_xml_case_t R::*c : {&R::narrowed, &R::not_number, &R::unknown_word, &R::over_capacity, &R::unknown, &R::missing}) {
            const bool named = c == r.field;
            if (r.result == 1 && !named)
                continue;  // what the recovery parser gives is its own matter
            EXPECT_EQ(std::make_tuple((rep.values.*c).count, std::string((rep.values.*c).path), (rep.values.*c).line),
                      std::make_tuple(named ? r.count : 0u, std::string(named ? r.path : ""), named ? 2 : 0));
        }
        if (r.policies != 0 && r.source == B) {  // a complete file in place, the backup kept
            f.save();
            EXPECT_EQ(read_file(f.dir.file("rep.xml.bak")), backup);
            EXPECT_EQ(f.load(0).source, M);
        }
        if (r.source != M)
            continue;
        kavor_load_report_t shot;  // the one-shot, and the codec with and without a report
        EXPECT_TRUE(kavor_file2param_v2(&f.rgst, 0, &shot) == 0 && memcmp(&shot.values, &rep.values, sizeof rep.values) == 0);
        Doc d(r.main, true);
        Rep blk[2] = {}; param_xml_report_t values; std::vector<std::string> records[2];
        for (int i : {0, 1}) {
            TraceCapture cap(8);
            i == 0 ? xml2param(&blk[0], d.root()->children, rep_table)
                   : xml2param_report(&blk[1], d.root()->children, rep_table, 0, &values);
            records[i] = cap.records();
        }
        EXPECT_TRUE(memcmp(&blk[0], &blk[1], sizeof blk[0]) == 0 && memcmp(&values, &rep.values, sizeof values) == 0);
        EXPECT_EQ(records[0], records[1]);
    }
}

TEST(LoadReport, RefusedArgumentsFillNothingAndSayItAtLevel4)
{
    Fixture f;
    kavor_file_rgst_t alone = kvtest::request(f.dir.file("alone"), "rep", rep_table, &f.blk, 1);
    xml_file_hdl solo = kavor_register(nullptr, &alone);  // no manager
    kavor_load_report_t r; kavor_save_status_t s;
    TraceCapture cap(4);
    for (int32_t got : {kavor_load_report(nullptr, &r), kavor_load_report(f.node, nullptr), kavor_load_report(solo, &r),
                        kavor_save_status(nullptr, &s), kavor_save_status(f.node, nullptr), kavor_save_status(solo, &s),
                        kavor_flush(nullptr, 0), kavor_set_policy(nullptr, 0), kavor_set_policy(f.mgr, 0x8)})
        EXPECT_EQ(got, -1);
    EXPECT_EQ(cap.count_at_most(4), 9u) << cap.dump();
    kavor_unregister(solo);
    EXPECT_EQ(kavor_file2param_v2(&alone, 0x80, &r), -1);
    EXPECT_EQ(kavor_load_report(f.node, &r), 1);  // no load yet
    EXPECT_EQ(std::make_tuple(r.result, r.source), std::make_tuple(-1, int32_t(KAVOR_SOURCE_NONE)));
}

// A device of a few blocks at `at`, filled up (tmpfs; needs root).
bool full_device(const std::string &at)
{
    return geteuid() == 0 && mkdir(at.c_str(), 0700) == 0 && mount("kavor-full", at.c_str(), "tmpfs", 0, "size=16k") == 0 &&
           !write_file(at + "/filler", std::string(1 << 16, 'x'));
}

// Through the C++ face: a file saved, and files whose path meets a regular file or a full device.
TEST(SaveStatus, AFailingSaveTellsItsStepAndErrnoUntilASaveCompletesAndFlushWaitsForTheMarksBeforeIt)
{
    g_refuse_new = true;  // its registry refused: an empty manager (the manager refused is the hpp test's)
    kavor::Manager none = kavor::Manager::create("none");
    g_refuse_new = false;
    EXPECT_FALSE(none || none.flush(0) || none.set_policy(0));
    const int32_t N = KAVOR_STEP_NONE, W = KAVOR_STEP_WRITE;
    auto told = [](const kavor_save_status_t &s) {  // attempts > 0, failed step, errno, saves, last save's times told
        return std::make_tuple(s.attempts > 0, s.failed_step, s.failed_errno, s.saves, s.saved_time > 0 && s.saved_uptime_ms > 0);
    };
    TempDir dir;
    struct Unmount { std::string at; ~Unmount() { umount(at.c_str()); } } unmount{dir.file("full")};
    const int32_t errs[] = {ENOTDIR, full_device(unmount.at) ? ENOSPC : 0};
    if (errs[1] == 0)
        printf("[  SKIPPED ] a full device needs root and tmpfs\n");
    ASSERT_TRUE(write_file(dir.file("blocker"), "a regular file"));
    Rep blk[3] = {};
    kavor::Manager m = kavor::Manager::create("status", 500);
    kavor::Registration good = m.add(dir.file("rep").c_str(), "rep", rep_table, &blk[0], kavor::Storage::plain),
                        failing[] = {m.add(dir.file("blocker/rep").c_str(), "rep", rep_table, &blk[1], kavor::Storage::plain),
                                     m.add(dir.file("full/rep").c_str(), "rep", rep_table, &blk[2], kavor::Storage::plain)};
    bool loaded = true;
    EXPECT_TRUE(good.report(&loaded).source == KAVOR_SOURCE_NONE && !loaded);
    EXPECT_EQ(told(failing[0].save_status()), std::make_tuple(false, N, 0, 0u, false));
    EXPECT_TRUE(m.flush(0));  // nothing marked
    ASSERT_TRUE(good.save());
    std::thread later([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100)), failing[0].save(), errs[1] && failing[1].save();
    });
    EXPECT_TRUE(m.flush(5000));  // not waiting for the files marked after the call
    later.join();
    EXPECT_EQ(told(good.save_status()), std::make_tuple(false, N, 0, 1u, true));
    EXPECT_FALSE(m.flush(1200));
    for (int i : {0, 1})
        EXPECT_TRUE(errs[i] == 0 || told(failing[i].save_status()) == std::make_tuple(true, W, errs[i], 0u, false)) << i;
    ASSERT_TRUE(unlink(dir.file("blocker").c_str()) == 0 && (errs[1] == 0 || unlink(dir.file("full/filler").c_str()) == 0));
    EXPECT_TRUE(m.flush(5000));
    for (int i : {0, 1})  // the last failure stays told
        EXPECT_TRUE(errs[i] == 0 || told(failing[i].save_status()) == std::make_tuple(false, W, errs[i], 1u, true)) << i;
}

struct Floats { float f[256]; double d[256]; };
pdesc floats_table[] = {PX_FLOT_ARR(Floats, f, "f"), PX_FLOT_ARR(Floats, d, "d"), PX_END};

// Floats and doubles (extremes, subnormals, -0, random bits but NaNs) saved by the task, read back in
// one shot: whether all come back bit for bit, and whether the file is free of decimal commas.
std::pair<bool, bool> floats_round_trip(uint32_t policies)
{
    Floats out{}, in{};
    const float fs[] = {0.0f, -0.0f, FLT_MIN, -FLT_MAX, FLT_MAX, FLT_TRUE_MIN, 0.1f, 1.5f};
    const double ds[] = {0.0, -0.0, DBL_MIN, -DBL_MAX, DBL_MAX, DBL_TRUE_MIN, 0.1, 1.5};
    std::mt19937_64 rng(20261123);
    for (size_t i = 0; i < 256; i++) {
        uint64_t b = rng();
        memcpy(&out.f[i], &b, 4), memcpy(&out.d[i], &b, 8);
        out.f[i] = i < 8 || out.f[i] != out.f[i] ? fs[i % 8] : out.f[i];
        out.d[i] = i < 8 || out.d[i] != out.d[i] ? ds[i % 8] : out.d[i];
    }
    TempDir dir;
    kavor_hdl mgr = kavor_create_v2("exact", 0);
    kavor_file_rgst_t r = kvtest::request(dir.file("fl"), "fl", floats_table, &out, 1);
    EXPECT_TRUE(kavor_set_policy(mgr, policies) == 0 && kavor_save_one(kavor_register(mgr, &r)) == 0 &&
                kavor_flush(mgr, 5000) == 0);
    kavor_destroy(mgr);
    r.mem = &in;
    EXPECT_EQ(kavor_file2param_v2(&r, policies, nullptr), 0);
    return {memcmp(&in, &out, sizeof in) == 0, read_file(dir.file("fl.xml")).find(',') == std::string::npos};
}

TEST(Policy, ExactFloatsComeBackBitForBitEvenUnderADecimalComma)
{
    EXPECT_EQ(floats_round_trip(0), std::make_pair(false, true));  // off: 6 and 15 digits
    EXPECT_EQ(floats_round_trip(KAVOR_POLICY_EXACT_FLOATS), std::make_pair(true, true));
    if (setlocale(LC_ALL, "de_DE.UTF-8") == nullptr)
        GTEST_SKIP() << "no de_DE.UTF-8 locale (scripts/deps makes it as root)";
    EXPECT_FALSE(floats_round_trip(0).second);  // the process writes a decimal comma
    EXPECT_EQ(floats_round_trip(KAVOR_POLICY_EXACT_FLOATS), std::make_pair(true, true));
    setlocale(LC_ALL, "C");
}

TEST(Policy, KeepUnknownWritesBackWhatTheTableDoesNotKnowUpToItsCap)
{
    const std::string future = "<future unit=\"ms\"><step>3</step></future>", other = "<other><x>1</x></other>";
    const uint32_t on = KAVOR_POLICY_KEEP_UNKNOWN, max = KAVOR_KEEP_MAX;
    auto sized = [](const char *n, size_t len) { return "<" + (n + (">" + std::string(len - 7, 'x')) + "</") + n + ">"; };
    const struct {
        uint32_t policies; std::string in_node, at_root; bool node_kept, root_kept;
        const char *dropped;  // the path said not kept
    } rows[] = {
        {0, future, sized("r", max + 1), false, false, nullptr},  // off: nothing kept, nothing said
        {on, future, other, true, true, nullptr},
        {on, sized("n", max), "<r/>", true, false, "/rep/r"},
        {on, "", sized("r", max), false, true, nullptr},
        {on, sized("n", max - 10), sized("r", 11), true, false, "/rep/r"},
        {on, sized("n", max + 1), "<small/>", false, true, "/rep/rep/n"},
    };
    for (const auto &r : rows) {
        Fixture f(r.policies, doc("", r.in_node, r.at_root));
        Rep blk2{};  // a second node, which the document lacks
        kavor_file_rgst_t two = kvtest::request(f.dir.file("rep"), "two", rep_table, &blk2, 1);
        ASSERT_NE(kavor_register(f.mgr, &two), nullptr);
        TraceCapture cap(5);
        EXPECT_EQ(f.load(0).values.unknown.count, !r.in_node.empty() + !r.at_root.empty() + 0u);
        EXPECT_EQ(cap.count_containing("not kept: over KAVOR_KEEP_MAX"), r.dropped ? 1u : 0u) << cap.dump();
        EXPECT_TRUE(!r.dropped || cap.has(5, "xmlParseParamFile",
                                          std::string("element (") + r.dropped + ") not kept: over KAVOR_KEEP_MAX"));
        f.blk.timeout = 6;
        const std::string saved = f.save();
        EXPECT_NE(saved.find("<timeout>6</timeout>"), std::string::npos);
        EXPECT_TRUE(r.in_node.empty() || (saved.find(r.in_node + "</rep>") != std::string::npos) == r.node_kept);
        EXPECT_TRUE(r.at_root.empty() ||  // behind the last node
                    (saved.find("</two>" + r.at_root + "</rep>") != std::string::npos) == r.root_kept);
    }
}

// A load that keeps unknown elements, its report, a save that writes them back
// and its status, with each allocation refused in turn: each call fails as
// documented or does its work, and the file is left as it was or whole.
TEST(Policy, KeepUnknownLoadsAndSavesFailCleanlyWhereAnAllocationIsRefused)
{
    TempDir dir;
    // An element past 4 KiB: its text outgrows the dump's first buffer.
    const std::string kept = "<future><step>3</step></future><more>" + std::string(5000, 'x') + "</more>";
    const std::string text = doc("", "<!-- c -->" + kept, "<!-- c --><other/>");
    for (Alloc alloc : {Alloc::library, Alloc::libxml2}) {
        kvtest::Mgr mgr;
        ASSERT_EQ(kavor_set_policy(mgr.get(), KAVOR_POLICY_KEEP_UNKNOWN), 0);
        Rep blk; kavor_file_rgst_t rgst = kvtest::request(dir.file("rep"), "rep", rep_table, &blk, 1);
        xml_file_hdl node; int32_t loaded, told; kavor_load_report_t rep; kavor_save_status_t st;
        sweep(alloc, [&] {
            write_file(dir.file("rep.xml"), text);
            node = kavor_register(mgr.get(), &rgst);
            loaded = kavor_load_one(node), told = kavor_load_report(node, &rep);
            if (kavor_save_one(node) == 0)
                mgr.sweep();
            kavor_save_status(node, &st);
        }, [&](bool refused) {
            const std::string saved = read_file(dir.file("rep.xml"));
            if (node != nullptr) {
                EXPECT_TRUE(told == 0 ? rep.result == loaded : told == 1 && rep.result == -1 && rep.source == 0);
                EXPECT_EQ(st.saves + (st.attempts > 0), 1u);
                EXPECT_TRUE(st.saves == 0 ? saved == text : saved.rfind("</rep>\n") == saved.size() - 7) << saved;
            }
            if (!refused) {
                EXPECT_EQ(std::make_tuple(loaded, told, rep.values.unknown.count), std::make_tuple(0, 0, 3u));
                EXPECT_NE(saved.find(kept + "</rep><other/></rep>"), std::string::npos) << saved;
            }
            kavor_unregister(node);
        });
    }
}

}  // namespace
