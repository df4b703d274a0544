// Registration: refused requests, the names of a new file, sharing of a file
// by several nodes, the virtual name and the names it may not hold, the
// end of a file with its last node, allocation failures at every step, and
// unregister/register racing on one file.
#include <gtest/gtest.h>

#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "bare_manager.h"
#include "kavor_private.h"
#include "request.h"
#include "test_util.h"
#include "trace_capture.h"
#include "vn_mem_hook.h"

namespace {

kavor_file_rgst_t request(const std::string &file, const char *node, int32_t ugz = 0,
                          const std::string &virt = "", void *mem = nullptr)
{
    return make_request(file, node, nullptr, mem, ugz, virt);
}

size_t file_count(kavor_hdl m)
{
    size_t n = 0;
    for (struct znode *z = m->fcom_lst; z != nullptr; z = z->next)
        n++;
    return n;
}

std::vector<std::string> node_names(const kavor_fcom_t *fcom)
{
    std::vector<std::string> out;
    for (struct znode *z = fcom->file_lst; z != nullptr; z = z->next)
        out.push_back(reinterpret_cast<kavor_file_t *>(z)->node_name);
    return out;
}

std::string str(const char *s) { return s != nullptr ? s : "<NULL>"; }

TEST(KavorRegister, RefusedRequestsSayWhyAndBuildNothing)
{
    BareManager mgr;
    kavor_file_rgst_t no_file = request("", "n");
    kavor_file_rgst_t no_node = request("/d/net", "");
    // Names a save would write and a load never find again.
    kavor_file_rgst_t digit_stem = request("/d/2nd.cfg", "n"), blank_stem = request("/d/my net", "n");
    kavor_file_rgst_t blank_node = request("/d/net", "a b"), colon_node = request("/d/net", "a:b");
    kavor_file_rgst_t dash_stem = request("/data/-net", "n");
    kavor_file_rgst_t text_node = request("/d/net", "text");
    const std::string no_xml = " refused: it is no XML name without ':', so its file would never load.";
    struct {
        kavor_file_rgst_t *rgst;
        std::string msg;
    } rows[] = {
        {nullptr, "xmlParamFile pointer NULL!"},
        {&no_file, "xml file name is empty!"},
        {&no_node, "xml file name is empty!"},
        {&digit_stem, "file stem (2nd)" + no_xml},
        {&blank_stem, "file stem (my net)" + no_xml},
        {&dash_stem, "file stem (-net)" + no_xml},
        {&blank_node, "node name (a b)" + no_xml},
        {&colon_node, "node name (a:b)" + no_xml},
        {&text_node, "node name (text) refused: the text between elements bears that name, so "
                     "its file would never load."},
    };
    for (kavor_hdl hdl : {static_cast<kavor_hdl>(nullptr), mgr.get()}) {
        for (const auto &r : rows) {
            long live = vn_mem_live();
            TraceCapture cap(8);
            EXPECT_EQ(kavor_register(hdl, r.rgst), nullptr);
            EXPECT_TRUE(cap.has(4, "kavor_register", r.msg)) << cap.dump();
            EXPECT_EQ(cap.records().size(), 1u) << cap.dump();
            EXPECT_EQ(vn_mem_live(), live);
        }
    }
    EXPECT_EQ(file_count(mgr.get()), 0u);
}

struct NameRow {
    std::string file;
    int32_t ugz;
    std::string virt;
    std::string filename, file_bak, rt_node;
    const char *virtfile;  // nullptr: no virtual name
    const char *msg;       // level-4 message of a refused virtual name, or nullptr
};

TEST(KavorRegister, NewFileTakesItsNamesAndAVirtualNameOnlyWhenSafe)
{
    const std::string dir118 = "/" + std::string(118, 'a');
    const std::string vdir118 = "/" + std::string(118, 'b');
    const std::string long_virt = vdir118 + "/net.xml";
    const std::string long_msg =
        "virtual file (" + long_virt + ") not used: the gzip command would not fit its buffer.";
    // 127 bytes ending in /net, and a 128th byte that must be ignored.
    std::string full = std::string(123, 'v');
    for (size_t i = 1; i < full.size(); i += 2)
        full[i] = '/';
    full += "/net";
    const std::string full_virt = full + ".xml";
    const std::string unsafe = ") not used: a name holds a character outside [A-Za-z0-9._/+-].";
    const std::string msg_space = "virtual file (/tmp/a b/net.xml" + unsafe;
    const std::string msg_semi = "virtual file (/tmp/net.xml" + unsafe;
    const std::vector<NameRow> table = {
        {"/data/net", 0, "/tmp/net.xml.gz", "/data/net.xml.gz", "/data/net.xml.bak.gz", "net",
         "/tmp/net.xml", nullptr},
        {"/data/net", 1, "/tmp/net", "/data/net.xml", "/data/net.xml.bak", "net", "/tmp/net.xml",
         nullptr},
        {"/data/net", 2, "", "/data/net.xml.gz", "/data/net.xml.bak.gz", "net", nullptr, nullptr},
        {"/data/net", 0, "/tmp/other", "/data/net.xml.gz", "/data/net.xml.bak.gz", "net", nullptr,
         nullptr},
        {"/d/net.cfg", -3, "/t/net.x.y", "/d/net.xml.gz", "/d/net.xml.bak.gz", "net", "/t/net.xml",
         nullptr},
        {"/data/net", 1, "/data/net", "/data/net.xml", "/data/net.xml.bak", "net", nullptr,
         "virtual file (/data/net.xml) not used: it is the file name itself."},
        {"/data/net", 0, "/tmp/a b/net", "/data/net.xml.gz", "/data/net.xml.bak.gz", "net", nullptr,
         msg_space.c_str()},
        {"/da;ta/net", 0, "/tmp/net", "/da;ta/net.xml.gz", "/da;ta/net.xml.bak.gz", "net", nullptr,
         msg_semi.c_str()},
        {"d/net", 0, "-S/net", "d/net.xml.gz", "d/net.xml.bak.gz", "net", nullptr,
         "virtual file (-S/net.xml) not used: a name begins with '-'."},
        {"-S/net", 1, "v/net", "-S/net.xml", "-S/net.xml.bak", "net", nullptr,
         "virtual file (v/net.xml) not used: a name begins with '-'."},
        {dir118 + "/net", 0, vdir118 + "/net", dir118 + "/net.xml.gz", dir118 + "/net.xml.bak.gz",
         "net", nullptr, long_msg.c_str()},
        {"/d/net", 0, full + "Z", "/d/net.xml.gz", "/d/net.xml.bak.gz", "net", full_virt.c_str(),
         nullptr},
    };

    for (const NameRow &r : table) {
        SCOPED_TRACE(r.file + " | " + r.virt);
        for (bool managed : {false, true}) {
            BareManager mgr;
            long live = vn_mem_live();
            {
                kavor_file_rgst_t rgst = request(r.file, "n", r.ugz);
                memcpy(rgst.virtfile, r.virt.data(), std::min(r.virt.size(), sizeof(rgst.virtfile)));
                TraceCapture cap(8);
                kavor_file_t *f = kavor_register(managed ? mgr.get() : nullptr, &rgst);
                ASSERT_NE(f, nullptr) << cap.dump();
                EXPECT_EQ(str(f->fcom->filename), r.filename);
                EXPECT_EQ(str(f->fcom->file_bak), r.file_bak);
                EXPECT_EQ(str(f->fcom->rt_node), r.rt_node);
                EXPECT_EQ(str(f->fcom->virtfile), str(r.virtfile));
                EXPECT_EQ(f->fcom->mobj, managed ? mgr.get() : nullptr);
                EXPECT_EQ(f->fcom->is_saving, 0);
                if (!r.virt.empty()) {
                    EXPECT_EQ(rgst.virtfile[sizeof(rgst.virtfile) - 1], '\0');
                }
                if (r.msg != nullptr) {
                    EXPECT_TRUE(cap.has(4, "kavor_register", r.msg)) << cap.dump();
                    EXPECT_EQ(cap.records().size(), 1u) << cap.dump();
                } else {
                    EXPECT_TRUE(cap.records().empty()) << cap.dump();
                }
                kavor_unregister(f);
            }
            EXPECT_EQ(vn_mem_live(), live);
            EXPECT_EQ(file_count(mgr.get()), 0u);
        }
    }
}

// What the directories on disk say about a virtual name: one that others
// can write (without the sticky bit) or that another user owns is no place
// for it, and one that is the file itself under another spelling is not a
// second file. A directory that doesn't exist yet tells nothing: the save
// looks again before each write.
TEST(KavorRegister, AVirtualNameIsRefusedByWhatItsDirectoryIsOnDisk)
{
    TempDir dir;
    const struct {
        const char *sub;
        mode_t mode;
    } dirs[] = {{"world", 0777}, {"group", 0770}, {"sticky", 01777}, {"mine", 0755},
                {"theirs", 0755}};
    for (const auto &d : dirs) {
        ASSERT_EQ(mkdir(dir.file(d.sub).c_str(), 0700), 0);
        ASSERT_EQ(chmod(dir.file(d.sub).c_str(), d.mode), 0);
    }
    ASSERT_EQ(symlink("mine", dir.file("link").c_str()), 0);
    // Only root can give a directory away.
    const bool given_away = chown(dir.file("theirs").c_str(), 65534, (gid_t)-1) == 0;
    const std::string open = "others can write its directory", self = "it is the file name itself";
    const struct {
        const char *virt, *file;   // relative to the test directory
        int32_t ugz;
        std::string why;           // empty: the virtual name is used
    } rows[] = {
        {"world/net", "d/net", 0, open},
        {"group/net", "d/net", 0, open},
        {"sticky/net", "d/net", 0, ""},
        {"mine/net", "d/net", 0, ""},
        {"theirs/net", "d/net", 0, given_away ? "its directory belongs to another user" : ""},
        {"missing/net", "d/net", 0, ""},
        {"mine//net", "mine/net", 1, self},
        {"mine/./net", "mine/net", 1, self},
        {"link/net", "mine/net", 1, self},
        {"link/../mine/net", "mine/net", 1, self},
        {"link/net", "mine/net", 0, ""},   // the compressed file is net.xml.gz
        {"missing//net", "missing/net", 1, ""},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(std::string(r.virt) + " | " + r.file);
        const std::string virt = dir.file(r.virt) + ".xml";
        kavor_file_rgst_t rgst = request(dir.file(r.file), "n", r.ugz, dir.file(r.virt));
        TraceCapture cap(8);
        kavor_file_t *f = kavor_register(nullptr, &rgst);
        ASSERT_NE(f, nullptr);
        EXPECT_EQ(str(f->fcom->virtfile), r.why.empty() ? virt : "<NULL>");
        if (r.why.empty()) {
            EXPECT_TRUE(cap.records().empty()) << cap.dump();
        } else {
            EXPECT_TRUE(cap.has(4, "kavor_register",
                                "virtual file (" + virt + ") not used: " + r.why + "."))
                << cap.dump();
        }
        kavor_unregister(f);
    }
}

TEST(KavorRegister, RefusalOfAVirtualNameCoversEveryShellCharacter)
{
    const char bad[] = " \t\n'\"$`;|&<>*?[]~(){}!#\\=%^,:@";
    for (const char *c = bad; *c != '\0'; c++) {
        std::string virt = std::string("/tmp/ne") + *c + "t.xml";
        EXPECT_NE(virt_name_refusal(virt.c_str(), "/d/net.xml.gz"), nullptr) << int(*c);
        EXPECT_NE(virt_name_refusal("/tmp/net.xml", virt.c_str()), nullptr) << int(*c);
    }
    EXPECT_EQ(virt_name_refusal("/tmp/A-z_0.9+x/net.xml", "/d/net.xml.gz"), nullptr);
    EXPECT_NE(virt_name_refusal("-net.xml", "d/-net.xml.gz"), nullptr);
    EXPECT_EQ(virt_name_refusal("/t/n-et.xml", "/d/n-et.xml.gz"), nullptr);
    // The command "gzip -c V > F" needs 11 + |V| + |F| bytes and its NUL,
    // and 2 more for each relative name, which gets "./" in front.
    for (const char *lead : {"/", ""}) {
        SCOPED_TRACE(lead);
        size_t room = lead[0] == '/' ? 244 : 240;
        std::string v = lead + std::string(119, 'v');
        std::string f = lead + std::string(room - v.size() - strlen(lead), 'f');
        EXPECT_EQ(virt_name_refusal(v.c_str(), f.c_str()), nullptr);  // fits
        f += 'f';
        EXPECT_STREQ(virt_name_refusal(v.c_str(), f.c_str()),
                     "the gzip command would not fit its buffer");
    }
    // No name reaches gzip as an option.
    const struct {
        const char *virt, *file, *cmd;
    } cmds[] = {
        {"/t/net.xml", "/d/net.xml.gz", "gzip -c /t/net.xml > /d/net.xml.gz"},
        {"-S/net.xml", "net.xml.gz", "gzip -c ./-S/net.xml > ./net.xml.gz"},
        {"v/net.xml", "-d/net.xml", "gzip -c ./v/net.xml > ./-d/net.xml"},
    };
    for (const auto &c : cmds) {
        char sh[KAVOR_GZIP_CMD_SIZE];
        EXPECT_TRUE(gzip_command(c.virt, c.file, sh));
        EXPECT_STREQ(sh, c.cmd);
    }
}

TEST(KavorRegister, NodesShareAFileOnlyUnderAManagerAndOnlyForOneNormalName)
{
    BareManager mgr;
    kavor_hdl m = mgr.get();
    TraceCapture cap(8);
    struct {
        const char *file;
        const char *node;
        int32_t ugz;
        size_t files_after;
    } rows[] = {
        {"/d/net.old", "a", 0, 1}, {"/d/net.new", "b", 0, 1}, {"/d/net.xml.gz", "c", 2, 1},
        {"/d/net", "a", 1, 2},     {"/e/net", "a", 0, 3},     {"/d/./net", "a", 0, 4},
    };
    std::vector<kavor_file_t *> nodes;
    for (const auto &r : rows) {
        kavor_file_rgst_t rgst = request(r.file, r.node, r.ugz);
        nodes.push_back(kavor_register(m, &rgst));
        ASSERT_NE(nodes.back(), nullptr);
        EXPECT_EQ(file_count(m), r.files_after) << r.file;
    }
    EXPECT_EQ(nodes[0]->fcom, nodes[1]->fcom);
    EXPECT_EQ(nodes[0]->fcom, nodes[2]->fcom);
    EXPECT_EQ(node_names(nodes[0]->fcom), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_STREQ(nodes[3]->fcom->rt_node, nodes[0]->fcom->rt_node);
    EXPECT_TRUE(cap.records().empty()) << cap.dump();

    // Standalone: every registration of one path is a file of its own.
    kavor_file_rgst_t rgst = request("/d/net", "a");
    kavor_file_t *s1 = kavor_register(nullptr, &rgst);
    kavor_file_t *s2 = kavor_register(nullptr, &rgst);
    ASSERT_NE(s1, nullptr);
    ASSERT_NE(s2, nullptr);
    EXPECT_NE(s1->fcom, s2->fcom);
    EXPECT_EQ(file_count(m), 4u);
    EXPECT_TRUE(cap.records().empty()) << cap.dump();
    kavor_unregister(s1);
    kavor_unregister(s2);
}

TEST(KavorRegister, SecondRegistrationOfANodeReturnsTheFirstUnchanged)
{
    BareManager mgr;
    int first = 1, second = 2;
    kavor_file_rgst_t r1 = request("/d/net", "a", 0, "", &first);
    kavor_file_rgst_t r2 = request("/d/net.cfg", "a", 0, "", &second);
    kavor_file_t *f1 = kavor_register(mgr.get(), &r1);
    long live = vn_mem_live();
    TraceCapture cap(8);
    kavor_file_t *f2 = kavor_register(mgr.get(), &r2);
    EXPECT_EQ(f1, f2);
    EXPECT_EQ(f1->mem, &first);
    EXPECT_TRUE(cap.has(4, "kavor_register", "file node(a) has exist!")) << cap.dump();
    EXPECT_EQ(vn_mem_live(), live);
    EXPECT_EQ(node_names(f1->fcom).size(), 1u);
    // No reference count: one unregister ends the node for both holders.
    kavor_unregister(f1);
    EXPECT_EQ(file_count(mgr.get()), 0u);
}

TEST(KavorRegister, AFileKeepsTheVirtualNameOfItsFirstRegistration)
{
    BareManager mgr;
    kavor_file_rgst_t with = request("/d/net", "a", 0, "/t/net");
    kavor_file_rgst_t other = request("/d/net", "b", 0, "/u/net");
    kavor_file_rgst_t none = request("/d/net", "c", 0);
    kavor_file_t *a = kavor_register(mgr.get(), &with);
    ASSERT_NE(kavor_register(mgr.get(), &other), nullptr);
    ASSERT_NE(kavor_register(mgr.get(), &none), nullptr);
    EXPECT_STREQ(a->fcom->virtfile, "/t/net.xml");

    kavor_file_rgst_t plain = request("/d/user", "a", 0);
    kavor_file_rgst_t late = request("/d/user", "b", 0, "/t/user");
    kavor_file_t *u = kavor_register(mgr.get(), &plain);
    ASSERT_NE(kavor_register(mgr.get(), &late), nullptr);
    EXPECT_EQ(u->fcom->virtfile, nullptr);
}

TEST(KavorRegister, LastUnregisterEndsTheFileAndANewRegistrationStartsAfresh)
{
    BareManager mgr;
    kavor_hdl m = mgr.get();
    long live = vn_mem_live();
    kavor_file_rgst_t ra = request("/d/net", "a", 0, "/t/net");
    kavor_file_rgst_t rb = request("/d/net", "b", 0);
    kavor_file_t *a = kavor_register(m, &ra);
    kavor_file_t *b = kavor_register(m, &rb);
    TraceCapture cap(8);
    kavor_unregister(a);
    EXPECT_EQ(file_count(m), 1u);
    EXPECT_EQ(node_names(b->fcom), (std::vector<std::string>{"b"}));
    kavor_unregister(b);
    EXPECT_EQ(file_count(m), 0u);
    EXPECT_EQ(vn_mem_live(), live);
    kavor_unregister(nullptr);
    EXPECT_TRUE(cap.records().empty()) << cap.dump();

    kavor_file_rgst_t again = request("/d/net", "b", 0, "/v/net");
    kavor_file_t *c = kavor_register(m, &again);
    ASSERT_NE(c, nullptr);
    EXPECT_STREQ(c->fcom->virtfile, "/v/net.xml");
}

// What the nth allocation failing does. FAIL: NULL with `msg` from
// kavor_register (nullptr: no message of kavor_register at all). NOVIRT: the
// node is made but the file has no virtual name.
enum Outcome { FAIL, NOVIRT };
struct Step {
    Outcome outcome;
    const char *msg;
};

const Step kName[] = {{FAIL, "copy xml file name fail!"}, {FAIL, "copy xml file name fail!"}};
const Step kVirt[] = {{NOVIRT, nullptr}, {NOVIRT, nullptr}, {NOVIRT, nullptr}, {NOVIRT, nullptr}};
const Step kFile[] = {{FAIL, "malloc kavor_fcom_t failed."},
                      {FAIL, nullptr},  // backup name copy
                      {FAIL, nullptr},  // backup name join
                      {FAIL, nullptr},  // root name copy
                      {FAIL, nullptr},  // root name stem
                      {FAIL, "f_mutex init failed!"}};
const Step kNode[] = {{FAIL, "malloc kavor_file_t failed."}, {FAIL, "copy xml node name failed."}};

std::vector<Step> steps(bool virt, bool new_file)
{
    std::vector<Step> s(std::begin(kName), std::end(kName));
    if (virt)
        s.insert(s.end(), std::begin(kVirt), std::end(kVirt));
    if (new_file)
        s.insert(s.end(), std::begin(kFile), std::end(kFile));
    s.insert(s.end(), std::begin(kNode), std::end(kNode));
    return s;
}

TEST(KavorRegister, EveryFailedAllocationIsReportedAndLeavesNothingBehind)
{
    struct {
        const char *what;
        bool managed, existing, virt;
    } rows[] = {
        {"new managed file", true, false, false},
        {"new managed file with virtual name", true, false, true},
        {"node joining a file", true, true, false},
        {"node joining a file, with virtual name", true, true, true},
        {"standalone file", false, false, false},
        {"standalone file with virtual name", false, false, true},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        BareManager mgr;
        kavor_hdl hdl = r.managed ? mgr.get() : nullptr;
        kavor_file_rgst_t first = request("/d/net", "first", 0);
        kavor_file_t *existing = r.existing ? kavor_register(hdl, &first) : nullptr;
        std::vector<Step> expect = steps(r.virt, !r.existing);
        for (unsigned long n = 1;; n++) {
            ASSERT_LE(n, expect.size() + 1);
            long live = vn_mem_live();
            kavor_file_rgst_t rgst = request("/d/net", "node", 0, r.virt ? "/t/net" : "");
            TraceCapture cap(8);
            unsigned long calls = vn_mem_calls();
            vn_mem_fail_nth(n);
            kavor_file_t *f = kavor_register(hdl, &rgst);
            vn_mem_fail_nth(0);
            bool fired = vn_mem_calls() - calls >= n;
            if (!fired) {
                ASSERT_NE(f, nullptr) << cap.dump();
                EXPECT_EQ(n, expect.size() + 1);
                EXPECT_EQ(str(f->fcom->virtfile), r.virt && !r.existing ? "/t/net.xml" : "<NULL>");
                EXPECT_TRUE(cap.records().empty()) << cap.dump();
                kavor_unregister(f);
                EXPECT_EQ(vn_mem_live(), live);
                break;
            }
            SCOPED_TRACE("n=" + std::to_string(n) + "\n" + cap.dump());
            const Step &s = expect[n - 1];
            if (s.outcome == NOVIRT) {
                ASSERT_NE(f, nullptr);
                EXPECT_EQ(f->fcom->virtfile, nullptr);
                kavor_unregister(f);
            } else {
                EXPECT_EQ(f, nullptr);
                if (s.msg != nullptr) {
                    EXPECT_TRUE(cap.has(4, "kavor_register", s.msg));
                } else {
                    EXPECT_EQ(cap.count_containing("kavor_register:"), 0u);
                }
            }
            EXPECT_EQ(vn_mem_live(), live);
            EXPECT_EQ(file_count(mgr.get()), r.managed && r.existing ? 1u : 0u);
            if (existing != nullptr) {
                EXPECT_EQ(node_names(existing->fcom), (std::vector<std::string>{"first"}));
            }
        }
        kavor_unregister(existing);
    }
}

// A thread ends a file by unregistering its last-but-one node while another
// unregisters the last one or joins the file with a new node; ASan and TSan
// builds catch any use of a freed record.
TEST(KavorRegisterConcurrency, UnregisterEndingAFileRacesAnUnregisterOrAJoin)
{
    for (bool join : {false, true}) {
        SCOPED_TRACE(join ? "join" : "unregister");
        BareManager mgr;
        kavor_hdl m = mgr.get();
        long live = vn_mem_live();
        for (int i = 0; i < 1000; i++) {
            kavor_file_rgst_t ra = request("/d/net", "a"), rb = request("/d/net", "b");
            kavor_file_t *a = kavor_register(m, &ra);
            kavor_file_t *b = join ? nullptr : kavor_register(m, &rb);
            ASSERT_NE(a, nullptr);
            ASSERT_EQ(b == nullptr, join);
            std::thread t1([a] { kavor_unregister(a); });
            std::thread t2([&] {
                if (join)
                    b = kavor_register(m, &rb);
                else
                    kavor_unregister(b);
            });
            t1.join();
            t2.join();
            if (join) {
                ASSERT_NE(b, nullptr);
                ASSERT_EQ(file_count(m), 1u);
                ASSERT_EQ(reinterpret_cast<kavor_fcom_t *>(m->fcom_lst), b->fcom);
                ASSERT_EQ(node_names(b->fcom), (std::vector<std::string>{"b"}));
                kavor_unregister(b);
            }
            ASSERT_EQ(file_count(m), 0u);
        }
        EXPECT_EQ(vn_mem_live(), live);
    }
}

}  // namespace
