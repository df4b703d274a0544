// Hostile documents (tests/data/hostile) loaded beside a good backup in a
// child under CPU and memory limits; the reader's limit in this process,
// where the leak checker sees it.
//
// A data file: lines "# accept <outcome>..." ("0", "1", or "0b": 0 with the
// backup's content) and "# record <record>" (@F: the file's path), then the
// document, where "@{N*text}" is N copies, "@dir" the test directory and
// "@xHH" the byte HH.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

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

const long kCpuSeconds = 10;
const long kRssLimitKb = 256 * 1024;
const char kSecret[] = "SEKRET77";   // only foreign content holds it
const std::string kDir = KAVOR_TEST_DATA_DIR "/hostile";

struct Hostile {
    std::string name, body;
    std::vector<std::string> accept, records;
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
        std::string text = read_file(kDir + "/" + n);
        Hostile h{n, "", {}, {}};
        size_t at = 0;
        for (size_t eol; text.compare(at, 2, "# ") == 0 && (eol = text.find('\n', at)) != std::string::npos; at = eol + 1) {
            std::string line = text.substr(at + 2, eol - at - 2);
            if (line.compare(0, 7, "accept ") == 0)
                for (size_t p = 7, q; p < line.size(); p = q + 1)
                    q = std::min(line.find(' ', p), line.size()), h.accept.push_back(line.substr(p, q - p));
            else if (line.compare(0, 7, "record ") == 0)
                h.records.push_back(line.substr(7));
        }
        h.body = text.substr(at);
        out.push_back(h);
    }
    return out;
}

// What the child saw.
struct Outcome {
    int ret = -99, secret = 0, good_backup = 0, opened_other = 0, signal = 0;
    long rss_kb = 0, cpu_ms = 0;
    std::string records;   // level-4 and -5 records, one per line
};

xmlExternalEntityLoader g_default_loader;
std::vector<std::string> *g_loads;

xmlParserInputPtr recording_loader(const char *url, const char *id, xmlParserCtxtPtr ctxt)
{
    g_loads->push_back(url != nullptr ? url : "(null)");
    return g_default_loader(url, id, ctxt);
}

void quiet(void *, const char *, ...) {}

// A good backup of dir/cfg.xml and a foreign file a hostile one may point at.
void seed(const TempDir &dir)
{
    write_file(dir.file("secret.txt"), std::string(kSecret) + "\n");
    write_file(dir.file("cfg.xml.bak"), "<?xml version=\"1.0\"?>\n<cfg><dev><label>backup</label></dev></cfg>\n");
    write_file(dir.file("ext.dtd"), "<!ENTITY ext \"" + std::string(kSecret) + "\">\n<!ATTLIST sbuf cnt CDATA \"999999999\">\n");
}

// Loads dir/cfg (node "dev", plain XML) with its backup into `b`.
int32_t load_cfg(const TempDir &dir, fuzz::RichBlock &b)
{
    fuzz::reset(&b);
    Mgr mgr;
    kavor_file_rgst_t r = request(dir.file("cfg"), "dev", fx_table, &b.all, 1);
    xml_file_hdl h = kavor_register(mgr.get(), &r);
    return h != nullptr ? kavor_load_one(h) : -2;
}

bool has_secret(const fuzz::RichBlock &b)
{
    return memmem(&b, sizeof b, kSecret, strlen(kSecret)) != nullptr;
}

// The child: the limits, an application that turned on everything for its
// own documents, the load, and its report on `fd`.
[[noreturn]] void child(const TempDir &dir, int fd)
{
    struct rlimit cpu = {static_cast<rlim_t>(kCpuSeconds), static_cast<rlim_t>(kCpuSeconds + 1)};
    setrlimit(RLIMIT_CPU, &cpu);
    struct rlimit as = {1ul << 30, 1ul << 30};
    if (!kSanitized)
        setrlimit(RLIMIT_AS, &as);
    xmlSetGenericErrorFunc(nullptr, quiet);
    xmlSubstituteEntitiesDefault(1);
    xmlLoadExtDtdDefaultValue = XML_DETECT_IDS | XML_COMPLETE_ATTRS;
    std::vector<std::string> loads;
    g_loads = &loads;
    g_default_loader = xmlGetExternalEntityLoader();
    xmlSetExternalEntityLoader(recording_loader);
    TraceCapture cap(5);
    static fuzz::RichBlock b;
    int32_t ret = load_cfg(dir, b);
    int other = 0;
    for (const std::string &l : loads)
        other += l != dir.file("cfg.xml") && l != dir.file("cfg.xml.bak");
    struct rusage ru;
    getrusage(RUSAGE_SELF, &ru);
    std::string recs;
    for (const std::string &rec : cap.records())
        recs += rec.substr(0, 200) + "\n";
    long cpu_ms = (ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) * 1000L + (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1000L;
    dprintf(fd, "%d %ld %d %d %d %ld\n%s", ret, ru.ru_maxrss, has_secret(b), strcmp(b.all.label, "backup") == 0, other,
            cpu_ms, recs.c_str());
    close(fd);
    _exit(0);
}

Outcome load_in_child(const TempDir &dir)
{
    int fds[2];
    EXPECT_EQ(pipe(fds), 0);
    fflush(nullptr);   // nothing buffered is written twice
    pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        child(dir, fds[1]);
    }
    close(fds[1]);
    Outcome out;
    std::string msg;
    char buf[4096];
    for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;)
        msg.append(buf, static_cast<size_t>(n));
    close(fds[0]);
    int status = 0, used = 0;
    waitpid(pid, &status, 0);
    out.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    if (sscanf(msg.c_str(), "%d %ld %d %d %d %ld %n", &out.ret, &out.rss_kb, &out.secret, &out.good_backup,
               &out.opened_other, &out.cpu_ms, &used) >= 6)
        out.records = msg.substr(static_cast<size_t>(used));
    return out;
}

TEST(HostileLoad, EveryDocumentLoadsOrFallsBackWithinTheBounds)
{
    const std::vector<Hostile> files = hostile_files();
    ASSERT_GE(files.size(), 27u) << "the data directory " << kDir << " is missing or incomplete";
    TempDir dir;
    seed(dir);
    for (const Hostile &h : files) {
        SCOPED_TRACE(h.name);
        ASSERT_FALSE(h.accept.empty()) << "no \"# accept\" line";
        ASSERT_TRUE(write_file(dir.file("cfg.xml"), expand(h.body, dir.path())));
        Outcome o = load_in_child(dir);
        printf("  %-36s result %d, peak %ld kB, %ld ms CPU\n", h.name.c_str(), o.ret, o.rss_kb, o.cpu_ms);
        EXPECT_EQ(o.signal, 0) << "the child died (SIGXCPU: over " << kCpuSeconds << " s)";
        EXPECT_FALSE(o.secret) << "a foreign file's content reached the block";
        EXPECT_EQ(o.opened_other, 0) << "a file other than the parameter files was opened";
        EXPECT_TRUE(kSanitized || o.rss_kb <= kRssLimitKb) << "peak resident memory " << o.rss_kb;
        const std::string got = o.ret == 0 && o.good_backup ? "0b" : std::to_string(o.ret);
        EXPECT_TRUE(std::count(h.accept.begin(), h.accept.end(), got) ||
                    (o.ret == 0 && std::count(h.accept.begin(), h.accept.end(), "0")))
            << "result " << got << "\n" << o.records;
        for (std::string rec : h.records) {
            size_t f = rec.find("@F");
            if (f != std::string::npos)
                rec.replace(f, 2, dir.file("cfg.xml"));
            EXPECT_NE(std::string::npos, ("\n" + o.records).find("\n" + rec + "\n")) << rec << "\n" << o.records;
        }
    }
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
    ASSERT_NE(b.all.sbuf[0], nullptr);
    EXPECT_EQ(b.all.sbuf_n[0], std::stoi(first));
    EXPECT_EQ(b.all.sbuf[0][1], 2);
    EXPECT_EQ(b.all.sbuf[1], nullptr);
    EXPECT_EQ(b.all.sbuf_n[1], 0);
    ASSERT_NE(b.all.chain, nullptr);
    EXPECT_EQ(b.all.chain->next, nullptr) << "the second node is over the limit";
    EXPECT_TRUE(cap.has(4, "xml2sint", "xml2sint: sbuf count of buffer(1) over the reader's limit")) << cap.dump();
    EXPECT_TRUE(cap.has(4, "xml2list", "xml2list: chain node over the reader's limit")) << cap.dump();
    EXPECT_EQ(cap.count_at_most(4), 2u) << cap.dump();
    param_xml_free(&b.all, fx_table);
}

}  // namespace
