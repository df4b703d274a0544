// Hostile documents (tests/data/hostile) loaded beside a good backup in a
// child under CPU and memory limits; the reader's limit in this process,
// where the leak checker sees it.
//
// A data file: lines "# accept <outcome>..." ("0", "1", or "0b": 0 with the
// backup's content) and "# record <record>", then the document; in both
// "@{N*text}" is N copies, "@dir" the test directory and "@xHH" the byte HH.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>

#include <libxml/parser.h>

#include "../fuzz/fuzz_table.h"
#include "kavor_fixture.h"
#include "trace_capture.h"

using namespace kvtest;

namespace {

#if defined(__SANITIZE_ADDRESS__)
const bool kSanitized = true;
#else
const bool kSanitized = false;
#endif

const rlim_t kCpuSeconds = 10;
const long kRssLimitKb = 256 * 1024;
const char kSecret[] = "SEKRET77";   // only foreign content holds it
const std::string kDir = KAVOR_TEST_DATA_DIR "/hostile";

// A data file's name, document, and the outcomes it accepts (" 1 0b ").
struct Hostile {
    std::string name, body, accept;
    std::vector<std::string> records;
};

// The document of a data file, its directives expanded.
std::string expand(const std::string &in, const std::string &dir)
{
    std::string out;
    for (size_t i = 0; i < in.size(); i++) {
        if (in.compare(i, 2, "@{") == 0) {
            size_t star = in.find('*', i), end = in.find('}', star);
            out += repeat(expand(in.substr(star + 1, end - star - 1), dir), std::stoul(in.substr(i + 2, star - i - 2)));
            i = end;
        } else if (in.compare(i, 4, "@dir") == 0) {
            out += dir, i += 3;
        } else if (in.compare(i, 2, "@x") == 0) {
            out += static_cast<char>(std::stoi(in.substr(i + 2, 2), nullptr, 16)), i += 3;
        } else {
            out += in[i];
        }
    }
    return out;
}

std::vector<Hostile> hostile_files()
{
    std::vector<Hostile> out;
    for (const std::string &n : files_in(kDir, ".doc")) {
        std::istringstream in(read_file(kDir + "/" + n));
        Hostile h{n, "", "", {}};
        for (std::string line; in.peek() == '#' && std::getline(in, line);)
            if (line.compare(0, 9, "# accept ") == 0)
                h.accept += line.substr(8) + " ";
            else if (line.compare(0, 9, "# record ") == 0)
                h.records.push_back(line.substr(9));
        h.body.assign(std::istreambuf_iterator<char>(in), {});
        out.push_back(h);
    }
    return out;
}

// What the child saw, in memory it shares with the parent.
struct Outcome {
    int32_t ret;
    int secret, good_backup, opened_other;
    char records[1 << 16];   // level-4 and -5 records, one per line
};

xmlExternalEntityLoader g_default_loader;
std::string g_dir;
Outcome *g_out;

// Counts what libxml2 opens besides the parameter file and its backup.
xmlParserInputPtr recording_loader(const char *url, const char *id, xmlParserCtxtPtr ctxt)
{
    const std::string u = url != nullptr ? url : "";
    g_out->opened_other += u != g_dir + "/cfg.xml" && u != g_dir + "/cfg.xml.bak";
    return g_default_loader(url, id, ctxt);
}

void quiet(void *, const char *, ...) {}

// The child: the limits, an application that turned on everything for its
// own documents, the load of dir/cfg (node "dev", with its backup), and what
// it saw in `o`.
[[noreturn]] void child(const TempDir &dir, Outcome *o)
{
    struct rlimit cpu = {kCpuSeconds, kCpuSeconds + 1}, as = {1ul << 30, 1ul << 30};
    setrlimit(RLIMIT_CPU, &cpu);
    if (!kSanitized)
        setrlimit(RLIMIT_AS, &as);
    xmlSetGenericErrorFunc(nullptr, quiet);
    xmlSubstituteEntitiesDefault(1);
    xmlLoadExtDtdDefaultValue = XML_DETECT_IDS | XML_COMPLETE_ATTRS;
    g_dir = dir.path(), g_out = o, g_default_loader = xmlGetExternalEntityLoader();
    xmlSetExternalEntityLoader(recording_loader);
    TraceCapture cap(5);
    static fuzz::RichBlock b;
    fuzz::reset(&b);
    Mgr mgr;
    kavor_file_rgst_t r = request(dir.file("cfg"), "dev", fx_table, &b.all, 1);
    xml_file_hdl h = kavor_register(mgr.get(), &r);
    o->ret = h != nullptr ? kavor_load_one(h) : -2;
    o->secret = memmem(&b, sizeof b, kSecret, strlen(kSecret)) != nullptr;
    o->good_backup = strcmp(b.all.label, "backup") == 0;
    std::string recs;
    for (const std::string &rec : cap.records())
        recs += rec.substr(0, 200) + "\n";
    snprintf(o->records, sizeof o->records, "%s", recs.c_str());
    _exit(0);
}

TEST(HostileLoad, EveryDocumentLoadsOrFallsBackWithinTheBounds)
{
    const std::vector<Hostile> files = hostile_files();
    ASSERT_GE(files.size(), 27u) << "the data directory " << kDir << " is missing or incomplete";
    TempDir dir;  // with a good backup of cfg.xml and a foreign file a hostile one may point at
    write_file(dir.file("secret.txt"), std::string(kSecret) + "\n");
    write_file(dir.file("cfg.xml.bak"), "<?xml version=\"1.0\"?>\n<cfg><dev><label>backup</label></dev></cfg>\n");
    write_file(dir.file("ext.dtd"),
               "<!ENTITY ext \"" + std::string(kSecret) + "\">\n<!ATTLIST sbuf cnt CDATA \"999999999\">\n");
    void *shared = mmap(nullptr, sizeof(Outcome), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    Outcome &o = *static_cast<Outcome *>(shared);
    for (const Hostile &h : files) {
        SCOPED_TRACE(h.name);
        ASSERT_FALSE(h.accept.empty()) << "no \"# accept\" line";
        ASSERT_TRUE(write_file(dir.file("cfg.xml"), expand(h.body, dir.path())));
        memset(&o, 0, sizeof o), o.ret = -99;
        fflush(nullptr);   // nothing buffered is written twice
        pid_t pid = fork();
        if (pid == 0)
            child(dir, &o);
        int status = 0;
        struct rusage ru = {};
        wait4(pid, &status, 0, &ru);
        EXPECT_FALSE(WIFSIGNALED(status)) << "the child died (SIGXCPU: over " << kCpuSeconds << " s)";
        EXPECT_FALSE(o.secret) << "a foreign file's content reached the block";
        EXPECT_EQ(o.opened_other, 0) << "a file other than the parameter files was opened";
        EXPECT_TRUE(kSanitized || ru.ru_maxrss <= kRssLimitKb) << "peak resident memory " << ru.ru_maxrss;
        const std::string got = o.ret == 0 && o.good_backup ? "0b" : std::to_string(o.ret);
        EXPECT_TRUE(h.accept.find(" " + got + " ") != std::string::npos ||
                    (o.ret == 0 && h.accept.find(" 0 ") != std::string::npos))
            << "result " << got << "\n" << o.records;
        for (const std::string &rec : h.records)
            EXPECT_NE(std::string::npos, ("\n" + std::string(o.records)).find("\n" + expand(rec, dir.path()) + "\n"))
                << rec << "\n" << o.records;
    }
    munmap(shared, sizeof(Outcome));
}

TEST(LoadLimits, TheReaderAllocatesAtMost64MiBAndARefusedBufferSaysNoBuffer)
{
    // In document order: a buffer that leaves exactly one list node's room,
    // that node, and then neither a buffer nor a node fits.
    const size_t left = sizeof(struct fx_node);
    const std::string first = std::to_string(((64u << 20) - left) / sizeof(int32_t));
    TempDir dir;
    write_file(dir.file("cfg.xml"), "<cfg><dev><sbuf cnt=\"" + first + "\"><sbuf>1 2</sbuf></sbuf>"
                                    "<chain><chain><weight>1</weight></chain><chain/></chain>"
                                    "<sbuf cnt=\"1\"><sbuf>5</sbuf></sbuf></dev></cfg>");
    static fuzz::RichBlock b;
    fuzz::reset(&b);
    b.all.sbuf_n[1] = 7;   // what the block held before: a refused buffer leaves 0
    kavor_file_rgst_t r = request(dir.file("cfg"), "dev", fx_table, &b.all, 1);
    TraceCapture cap(4);
    EXPECT_EQ(kavor_file2param(&r), 0);
    ASSERT_TRUE(b.all.sbuf[0] != nullptr && b.all.chain != nullptr);
    EXPECT_EQ(std::make_tuple(b.all.sbuf_n[0], b.all.sbuf[0][1], b.all.sbuf[1], b.all.sbuf_n[1], b.all.chain->next),
              std::make_tuple(std::stoi(first), 2, nullptr, 0, nullptr)) << "the second node is over the limit";
    EXPECT_TRUE(cap.has(4, "xml2sint", "xml2sint: sbuf count of buffer(1) over the reader's limit")) << cap.dump();
    EXPECT_TRUE(cap.has(4, "xml2list", "xml2list: chain node over the reader's limit")) << cap.dump();
    EXPECT_EQ(cap.count_at_most(4), 2u) << cap.dump();
    param_xml_free(&b.all, fx_table);
}

}  // namespace
