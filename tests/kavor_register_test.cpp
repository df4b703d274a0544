// Registration: refusals, the names of a file and its virtual name, sharing
// under a manager, every allocation failing, unregister/register racing.

#include <sys/stat.h>

#include "kavor_fixture.h"
#include "sweep.h"

using namespace kvtest;

namespace {

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
    Mgr mgr;
    // Empty names, and names a save would write and a load never find again:
    // a stem or node name that is no XML name without ':', or a node "text".
    const std::string no_xml = ") refused: it is no XML name without ':', so its file would never load.";
    const struct { const char *file, *node; std::string msg; } rows[] = {
        {"", "n", "xml file name is empty!"}, {"/d/net", "", "xml file name is empty!"}, {"/d/2nd.cfg", "n", "file stem (2nd" + no_xml},
        {"/d/my net", "n", "file stem (my net" + no_xml}, {"/data/-net", "n", "file stem (-net" + no_xml}, {"..", "n", "file stem (." + no_xml},
        {".net.xml", "n", "file stem (.net" + no_xml}, {"dir/", "n", "file stem (.xml" + no_xml}, {"a/b\\c/d.xml", "n", "file stem (c/d" + no_xml},
        {"/d/net", "a b", "node name (a b" + no_xml}, {"/d/net", "a:b", "node name (a:b" + no_xml},
        {"/d/net", "text", "node name (text) refused: the text between elements bears that name, so its file would never load."},
    };
    for (kavor_hdl hdl : {static_cast<kavor_hdl>(nullptr), mgr.get()}) {   // the standalone rows untraced
        std::optional<TraceCapture> cap = traced_if(hdl != nullptr, 8);
        for (const auto &r : rows) {
            long live = vn_mem_live();
            kavor_file_rgst_t rgst = request(r.file, r.node);
            EXPECT_TRUE(kavor_register(hdl, &rgst) == nullptr && vn_mem_live() == live) << r.msg;
            EXPECT_TRUE(!cap || cap->has(4, "kavor_register", r.msg)) << cap->dump();
        }
    }
    EXPECT_EQ(kavor_count_all_filename(mgr.get()), 0u);
}

// The names of a file: the suffix rule (cut at the base name's first dot, never a leading one; the base name
// behind the last backslash, else the last slash), the backup name "<stem>.xml.bak[.gz]", the stem, and a
// virtual name when its stem is the file's and the gzip command can use it safely.
TEST(KavorRegister, APathGivesItsFileItsNames)
{
    const std::string a118 = "/" + std::string(118, 'a'), b118 = "/" + std::string(118, 'b');
    const std::string full = repeat("v/", 61) + "v/net", full_virt = full + ".xml";   // 127 bytes ending in /net; a 128th ignored
    const struct { std::string file; int32_t ugz; std::string virt, filename, root; const char *virtfile; bool told = false; } rows[] = {
        {"net", 1, "", "net.xml", "net", nullptr},                  {"net.xml.gz", 1, "", "net.xml", "net", nullptr},
        {"net.old.xml", 0, "", "net.xml.gz", "net", nullptr},       {"net.", 100, "", "net.xml.gz", "net", nullptr},
        {"/mnt/a.b/net", 1, "", "/mnt/a.b/net.xml", "net", nullptr}, {"./net.xml", 2, "", "./net.xml.gz", "net", nullptr},
        {"/etc/app/net.cfg", -1, "", "/etc/app/net.xml.gz", "net", nullptr}, {"a\\b.c/d.xml", 1, "", "a\\b.xml", "b", nullptr},
        {"/data/net", 0, "/tmp/net.xml.gz", "/data/net.xml.gz", "net", "/tmp/net.xml"},
        {"/data/net", 1, "/tmp/net", "/data/net.xml", "net", "/tmp/net.xml"},
        {"/d/net.cfg", -3, "/t/net.x.y", "/d/net.xml.gz", "net", "/t/net.xml"}, {"/d/n", 0, "n", "/d/n.xml.gz", "n", "n.xml"},
        {"/d/n-et", 0, "/t/n-et", "/d/n-et.xml.gz", "n-et", "/t/n-et.xml"}, {"/d/net", 0, full + "Z", "/d/net.xml.gz", "net", full_virt.c_str()},
        // Virtual names not used: another stem, the file itself, a character a shell reads, a base name the
        // command would take for an option, a command too long for its buffer.
        {"/data/net", 0, "/tmp/other", "/data/net.xml.gz", "net", nullptr}, {"/data/net", 1, "/data/net", "/data/net.xml", "net", nullptr, true},
        {"/data/net", 0, "/tmp/a b/net", "/data/net.xml.gz", "net", nullptr, true},
        {"/da;ta/net", 0, "/tmp/net", "/da;ta/net.xml.gz", "net", nullptr, true},
        {"d/net", 0, "-S/net", "d/net.xml.gz", "net", nullptr, true}, {"-S/net", 1, "v/net", "-S/net.xml", "net", nullptr, true},
        {a118 + "/net", 0, b118 + "/net", a118 + "/net.xml.gz", "net", nullptr, true},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.file + " | " + r.virt);
        std::string bak = r.filename;
        bak.insert(bak.rfind(".xml") + 4, ".bak");
        for (bool managed : {false, true}) {   // managed traced, standalone untraced
            Mgr mgr;
            long live = vn_mem_live();
            kavor_file_rgst_t rgst = request(r.file, "n", nullptr, nullptr, r.ugz);
            memcpy(rgst.virtfile, r.virt.data(), std::min(r.virt.size(), sizeof rgst.virtfile));
            std::optional<TraceCapture> cap = traced_if(managed, 8);
            kavor_file_t *f = kavor_register(managed ? mgr.get() : nullptr, &rgst);
            ASSERT_NE(f, nullptr);
            EXPECT_EQ(str(f->fcom->filename) + " " + str(f->fcom->file_bak) + " " + str(f->fcom->rt_node) + " " + str(f->fcom->virtfile),
                      r.filename + " " + bak + " " + r.root + " " + str(r.virtfile));
            EXPECT_EQ(f->fcom->mobj, managed ? mgr.get() : nullptr);
            // A virtual name refused for the command is told at level 4; nothing else is.
            EXPECT_TRUE(!cap || cap->count_at_most(8) == (r.told ? 1u : 0u)) << cap->dump();
            kavor_unregister(f);
            EXPECT_TRUE(vn_mem_live() == live && kavor_count_all_filename(mgr.get()) == 0u);
        }
    }
    // Every character a shell reads is refused in either name, and a base name with a leading '-'.
    for (const char *c = " \t\n'\"$`;|&<>*?[]~(){}!#\\=%^,:@"; *c != '\0'; c++) {
        const std::string bad = std::string("/tmp/ne") + *c + "t.xml";
        EXPECT_TRUE(virt_name_refusal(bad.c_str(), "/d/net.xml.gz") && virt_name_refusal("/tmp/net.xml", bad.c_str())) << int(*c);
    }
    EXPECT_EQ(virt_name_refusal("/tmp/A-z_0.9+x/net.xml", "/d/net.xml.gz"), nullptr);
    EXPECT_STREQ(virt_name_refusal("/t/-net.xml", "/d/net.xml"), "a base name begins with '-'");
    EXPECT_STREQ(virt_name_refusal("/t/net.xml", "/d/-net.xml"), "a base name begins with '-'");
    // "gzip -c V > F" needs 11 + |V| + |F| bytes and its NUL, and 2 more for
    // each relative name, which gets "./" in front: no name reads as an option.
    for (std::string lead : {"/", ""}) {
        std::string v = lead + std::string(119, 'v'), f = lead + std::string((lead.empty() ? 240 : 244) - v.size() - lead.size(), 'f');
        EXPECT_EQ(virt_name_refusal(v.c_str(), f.c_str()), nullptr) << lead;
        EXPECT_NE(virt_name_refusal(v.c_str(), (f + "f").c_str()), nullptr) << lead;
    }
    const struct { const char *virt, *file, *cmd; } cmds[] = {
        {"/t/net.xml", "/d/net.xml.gz", "gzip -c /t/net.xml > /d/net.xml.gz"}, {"-S/net.xml", "net.xml.gz", "gzip -c ./-S/net.xml > ./net.xml.gz"},
        {"v/net.xml", "-d/net.xml", "gzip -c ./v/net.xml > ./-d/net.xml"},
    };
    for (const auto &c : cmds) {
        char sh[KAVOR_GZIP_CMD_SIZE];
        EXPECT_TRUE(gzip_command(c.virt, c.file, sh) && std::string(sh) == c.cmd) << c.cmd;
    }
}

// A virtual name in a directory others can write (no sticky bit) or another user owns, or that is the file
// itself under another spelling, is refused; a directory not there yet tells nothing: the save looks again.
TEST(KavorRegister, AVirtualNameIsRefusedByWhatItsDirectoryIsOnDisk)
{
    TempDir dir;
    for (auto d : {std::make_pair("world", 0777), {"group", 0770}, {"sticky", 01777}, {"mine", 0755}, {"theirs", 0755}})
        ASSERT_TRUE(mkdir(dir.file(d.first).c_str(), 0700) == 0 && chmod(dir.file(d.first).c_str(), d.second) == 0);
    ASSERT_EQ(symlink("mine", dir.file("link").c_str()), 0);
    const bool given_away = chown(dir.file("theirs").c_str(), 65534, (gid_t)-1) == 0;   // root only
    const std::string open = "others can write its directory", self = "it is the file name itself";
    const struct { const char *virt, *file; int32_t ugz; std::string why; } rows[] = {
        {"world/net", "d/net", 0, open}, {"group/net", "d/net", 0, open}, {"sticky/net", "d/net", 0, ""},
        {"mine/net", "d/net", 0, ""}, {"theirs/net", "d/net", 0, given_away ? "its directory belongs to another user" : ""},
        {"missing/net", "d/net", 0, ""}, {"mine//net", "mine/net", 1, self}, {"mine/./net", "mine/net", 1, self},
        {"link/net", "mine/net", 1, self}, {"link/../mine/net", "mine/net", 1, self},
        {"link/net", "mine/net", 0, ""},   // the compressed file is net.xml.gz
        {"missing//net", "missing/net", 1, ""},
    };
    for (const auto &r : rows) {
        const std::string virt = dir.file(r.virt) + ".xml";
        kavor_file_rgst_t rgst = request(dir.file(r.file), "n", nullptr, nullptr, r.ugz, dir.file(r.virt));
        TraceCapture cap(8);
        kavor_file_t *f = kavor_register(nullptr, &rgst);
        ASSERT_NE(f, nullptr);
        EXPECT_EQ(str(f->fcom->virtfile), r.why.empty() ? virt : "<NULL>") << r.virt << " | " << r.file;
        EXPECT_TRUE(r.why.empty() ? cap.records().empty() : cap.has(4, "kavor_register", "virtual file (" + virt + ") not used: " + r.why + "."))
            << cap.dump();
        kavor_unregister(f);
    }
    EXPECT_EQ(virt_dir_refusal((std::string(300, 'd') + "/net.xml").c_str()), nullptr) << "a directory name too long tells nothing";
}

TEST(KavorRegister, NodesShareAFileOnlyUnderAManagerAndTheFirstRegistrationNamesIt)
{
    Mgr mgr;
    kavor_hdl m = mgr.get();
    int first = 1, second = 2;
    const struct { const char *file, *node; int32_t ugz; const char *virt; size_t files_after; } rows[] = {
        {"/d/net.old", "a", 0, "/t/net", 1}, {"/d/net.new", "b", 0, "/u/net", 1}, {"/d/net.xml.gz", "c", 2, "", 1},
        {"/d/net", "a", 1, "", 2},         {"/e/net", "a", 0, "", 3},         {"/d/./net", "a", 0, "", 4},
        {"/d/user", "a", 0, "", 5},        {"/d/user", "b", 0, "/t/user", 5},
    };
    std::vector<kavor_file_t *> nodes;
    TraceCapture cap(8);
    for (const auto &r : rows) {
        kavor_file_rgst_t rgst = request(r.file, r.node, nullptr, &first, r.ugz, r.virt);
        nodes.push_back(kavor_register(m, &rgst));
        ASSERT_TRUE(nodes.back() != nullptr && kavor_count_all_filename(m) == r.files_after) << r.file;
    }
    EXPECT_EQ(node_names(nodes[0]->fcom), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_TRUE(nodes[0]->fcom == nodes[2]->fcom && str(nodes[0]->fcom->virtfile) == "/t/net.xml" && nodes[6]->fcom->virtfile == nullptr);
    EXPECT_TRUE(cap.records().empty()) << cap.dump();
    // A node registered again: the first, unchanged; no reference count.
    kavor_file_rgst_t again = request("/d/net.cfg", "a", nullptr, &second);
    long live = vn_mem_live();
    EXPECT_TRUE(kavor_register(m, &again) == nodes[0] && nodes[0]->mem == &first && vn_mem_live() == live);
    EXPECT_TRUE(cap.has(4, "kavor_register", "file node(a) has exist!")) << cap.dump();
    // Standalone: every registration of one path is a file of its own.
    kavor_file_t *s1 = kavor_register(nullptr, &again), *s2 = kavor_register(nullptr, &again);
    ASSERT_TRUE(s1 && s2 && s1->fcom != s2->fcom);
    kavor_unregister(s1), kavor_unregister(s2);
    // The last node ends its file; a new registration starts afresh.
    kavor_unregister(nodes[0]), kavor_unregister(nodes[1]);
    EXPECT_EQ(kavor_count_all_filename(m), 5u);
    kavor_unregister(nodes[2]), kavor_unregister(nullptr);
    EXPECT_EQ(kavor_count_all_filename(m), 4u);
    kavor_file_rgst_t fresh = request("/d/net", "b", nullptr, nullptr, 0, "/v/net");
    kavor_file_t *c = kavor_register(m, &fresh);
    EXPECT_EQ(str(c != nullptr ? c->fcom->virtfile : nullptr), "/v/net.xml");
}

// Whatever allocation fails: NULL and nothing new left, or the node made (a
// virtual name whose copy failed is dropped); an existing file keeps its nodes.
TEST(KavorRegister, EveryFailedAllocationLeavesNothingNewBehind)
{
    const struct { bool managed, existing, virt; } cases[] = {{1, 0, 0}, {1, 0, 1}, {1, 1, 0}, {1, 1, 1}, {0, 0, 0}, {0, 0, 1}};
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.managed ? "managed" : "standalone") + (c.existing ? ", joining" : "") + (c.virt ? ", virtual" : ""));
        Mgr mgr;
        kavor_hdl hdl = c.managed ? mgr.get() : nullptr;
        kavor_file_rgst_t first = request("/d/net", "first");
        kavor_file_rgst_t rgst = request("/d/net", "node", nullptr, nullptr, 0, c.virt ? "/t/net" : "");
        kavor_file_t *old = c.existing ? kavor_register(hdl, &first) : nullptr, *f = nullptr;
        sweep(Alloc::library, [&] { f = kavor_register(hdl, &rgst); }, [&](bool refused) {
            EXPECT_TRUE(refused || f != nullptr);
            EXPECT_EQ(str(f != nullptr ? f->fcom->virtfile : nullptr), c.virt && !c.existing && !refused ? "/t/net.xml" : "<NULL>");
            EXPECT_EQ(kavor_count_all_filename(mgr.get()), (f != nullptr || c.existing) && c.managed ? 1u : 0u);
            EXPECT_TRUE(old == nullptr || node_names(old->fcom).size() == (f != nullptr ? 2u : 1u));
            kavor_unregister(f);
        });
        kavor_unregister(old);
    }
}

// A file ends on one thread while another unregisters its last node or joins
// it; ASan and TSan builds catch any use of a freed record.
TEST(KavorRegisterConcurrency, UnregisterEndingAFileRacesAnUnregisterOrAJoin)
{
    for (bool join : {false, true}) {
        SCOPED_TRACE(join ? "join" : "unregister");
        Mgr mgr;
        kavor_hdl m = mgr.get();
        long live = vn_mem_live();
        for (int i = 0; i < 1000; i++) {
            kavor_file_rgst_t ra = request("/d/net", "a"), rb = request("/d/net", "b");
            kavor_file_t *a = kavor_register(m, &ra), *b = join ? nullptr : kavor_register(m, &rb);
            ASSERT_NE(a, nullptr);
            std::thread t1([a] { kavor_unregister(a); });
            std::thread t2([&] { join ? void(b = kavor_register(m, &rb)) : kavor_unregister(b); });
            t1.join(), t2.join();
            if (join) {
                ASSERT_TRUE(b != nullptr && reinterpret_cast<kavor_fcom_t *>(m->fcom_lst) == b->fcom);
                ASSERT_EQ(node_names(b->fcom), (std::vector<std::string>{"b"}));
                kavor_unregister(b);
            }
            ASSERT_EQ(kavor_count_all_filename(m), 0u);
        }
        EXPECT_EQ(vn_mem_live(), live);
    }
}

}  // namespace
