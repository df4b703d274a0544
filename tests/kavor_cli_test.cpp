// The `kavor` command as a user runs it, on files the library made: each
// subcommand and exit code (tests/data/schema/cli_cases.txt); `status` names
// the copy kavor_load_one takes, and a `set` cut after any step of its write
// leaves a complete copy; the calls it names files and judges copies with.
#include "codec_util.h"
#include "kavor_cli.h"
#include "kavor_fixture.h"
#include "sweep.h"

using namespace kvtest;

namespace {

// `s` with "$D" as `dir`, unescaped.
std::string expand(std::string s, const std::string &dir)
{
    for (size_t p; (p = s.find("$D")) != std::string::npos;)
        s.replace(p, 2, dir);
    return unescaped(s);
}

// The installed command's way: a shell runs it; its exit code and output.
int kavor(const std::string &args, const std::string &dir, std::string *out)
{
    return run(std::string(KAVOR_CLI) + " " + expand(args, dir), out);
}

// dir/net.xml.gz (or .xml for ugz 1) at generation 2 and its backup at
// generation 1, saved by a manager's save road, and the file's schema.
void make_files(const TempDir &dir, int32_t ugz)
{
    Mgr mgr;
    Blk b;
    xml_file_hdl f = reg(mgr.get(), dir.file("net"), "blk", &b, ugz);
    save_gen(mgr, f, b, 1), save_gen(mgr, f, b, 2);
    ASSERT_EQ(kavor_write_schema(f, dir.file("net.xsd").c_str()), 0);
}

TEST(KavorCli, EachSubcommandAndExitCodeOnGoodDamagedAndEditedFiles)
{
    std::unique_ptr<TempDir> dir;
    std::istringstream cases(read_file(KAVOR_TEST_DATA_DIR "/schema/cli_cases.txt"));
    int ran = 0;
    for (std::string line; std::getline(cases, line);) {
        std::string out;
        size_t a = line.find(" | "), b = line.find(" |", a + 3);
        if (line.compare(0, 6, "files ") == 0) {
            dir.reset(new TempDir);
            make_files(*dir, atoi(line.c_str() + 6));
        } else if (line.compare(0, 3, "sh ") == 0) {
            ASSERT_EQ(run("cd '" + dir->path() + "' && " + line.substr(3), &out), 0) << line << out;
        } else if (!line.empty() && line[0] != '#') {
            ASSERT_TRUE(a != std::string::npos && b != std::string::npos) << line;
            EXPECT_EQ(kavor(line.substr(a + 3, b - a - 3), dir->path(), &out), atoi(line.c_str())) << line << "\n" << out;
            std::string text = line.size() > b + 3 ? expand(line.substr(b + 3), dir->path()) : "";
            EXPECT_NE(out.find(text), std::string::npos) << line << "\n" << out;
            ran++;
        }
    }
    EXPECT_EQ(ran, 43);
}

using Files = std::map<std::string, std::string>;   // base name -> bytes

// What stands under the file's four names in `dir`.
Files snapshot(const TempDir &dir)
{
    Files out;
    for (const char *n : {"net.xml", "net.xml.bak", "net.xml.gz", "net.xml.bak.gz"})
        if (file_exists(dir.file(n)))
            out[n] = read_file(dir.file(n));
    return out;
}

std::string doc(const std::string &body, const std::string &prolog = "")
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n" + prolog + "<net><blk>" + body + "</blk></net>\n";
}

// `cut`: a cut `set`, whose load must give the complete copy `want`.
struct Case { Files files; int32_t ugz; bool cut; Blk want; };

// The damaged-file cases of the load and hostile-document tests, by hand;
// the disk after each step of a `set` (run here, cut there) on both forms,
// with the main file present and missing; a cut gzip output.
std::vector<Case> cases()
{
    const std::string good = doc("<name>main</name><gen>2</gen>"), bak = doc("<name>backup</name><gen>1</gen>");
    std::vector<Case> out;
    for (const Files &f : std::vector<Files>{
             {{"net.xml", good}, {"net.xml.bak", bak}}, {{"net.xml.bak", bak}}, {}, {{"net.xml", ""}, {"net.xml.bak", bak}},
             {{"net.xml", "<cfg/>"}, {"net.xml.bak", bak}}, {{"net.xml", "<x/>"}, {"net.xml.bak", "<y/>"}},
             {{"net.xml", good.substr(0, 60)}, {"net.xml.bak", bak}}, {{"net.xml", "<net><blk><na"}, {"net.xml.bak", "<net><bl"}},
             {{"net.xml", doc("<name>&x;</name>", "<!DOCTYPE net [<!ENTITY x \"y\">]>\n")}, {"net.xml.bak", bak}},
             {{"net.xml.bak", doc("", "<!DOCTYPE net>\n")}}, {{"net.xml", doc(repeat("<one>", 100000))}, {"net.xml.bak", bak}},
             {{"net.xml", doc("<name>ab\xff\xfe</name>")}, {"net.xml.bak", bak}}})
        out.push_back({f, 1, false, {}});
    for (int32_t ugz : {1, 0}) {
        for (bool main_present : {true, false}) {
            TempDir d;
            make_files(d, ugz);
            std::string main = d.file(ugz == 1 ? "net.xml" : "net.xml.gz"), steps;
            if (!main_present)
                remove(main.c_str());
            Blk want = load_as_restart(d.file("net"), ugz).blk;
            SysRecorder sys;
            sys.on_step = [&](const std::string &step, const kavor_fcom_t *) {
                want.gen = step == "rename_tmp" ? 9 : want.gen;
                steps += step + " ";
                out.push_back({snapshot(d), ugz, true, want});
            };
            char *argv[] = {(char *)"kavor", (char *)"set", &main[0], (char *)"blk/gen", (char *)"9"};
            EXPECT_EQ(kavor_cli(5, argv), 0);
            EXPECT_EQ(steps, main_present ? "write remove_bak rename_file rename_tmp sync " : "write rename_tmp sync ");
        }
    }
    out.push_back(out.back());
    out.back().cut = false;
    out.back().files["net.xml.gz"].resize(out.back().files["net.xml.gz"].size() / 2);
    return out;
}

TEST(KavorCli, StatusTakesTheCopyTheLoadTakesAndASetCutLeavesACompleteCopy)
{
    int n = 0;
    for (const Case &c : cases()) {
        SCOPED_TRACE("case " + std::to_string(n++));
        TempDir dir;
        for (const auto &kv : c.files)
            ASSERT_TRUE(write_file(dir.file(kv.first), kv.second));
        Loaded load = load_as_restart(dir.file("net"), c.ugz);
        if (c.cut) {
            EXPECT_EQ(load.ret, 0);
            EXPECT_EQ(memcmp(&load.blk, &c.want, sizeof c.want), 0);
        }
        std::string out;
        int rc = kavor(std::string("status $D/net ") + (c.ugz == 1 ? "--plain" : "--gzip"), dir.path(), &out);
        size_t at = out.find("load: ");
        ASSERT_NE(at, std::string::npos) << out;
        std::string verdict = out.substr(at + 6, out.find('\n', at) - at - 6), copy = verdict.substr(0, verdict.find(' '));
        EXPECT_EQ(verdict, load.ret < 0 ? "nothing" : copy + (load.ret == 0 ? " complete" : " recovered"));
        EXPECT_EQ(rc, load.ret < 0 ? 2 : copy == "main" && load.ret == 0 ? 0 : 1);
        if (load.ret < 0)
            continue;
        // The copy named is the one the load read: parsed alone it gives the same block.
        Loaded alone = parse_exact(dir.file("net"), c.ugz,
                                   dir.file((copy == "main" ? "net.xml" : "net.xml.bak") + std::string(c.ugz == 1 ? "" : ".gz")));
        EXPECT_EQ(alone.ret, load.ret);
        EXPECT_EQ(memcmp(&alone.blk, &load.blk, sizeof load.blk), 0);
    }
    EXPECT_GE(n, 28);
}

TEST(KavorCli, FileNamesFitOrFailAndCopyReadRefusesNoPath)
{
    char f[32], b[32], r[32];
    for (size_t size : {size_t{17}, size_t{18}})   // "/d/net.xml.bak.gz" needs 18
        EXPECT_EQ(kavor_file_names("/d/net", 0, f, b, r, size), size == 18 ? 0 : -1);
    EXPECT_EQ(std::string(f) + " " + b + " " + r, "/d/net.xml.gz /d/net.xml.bak.gz net");
    EXPECT_EQ(kavor_file_names("/d/net", 1, nullptr, b, r, sizeof b), -1);
    for (const char *path : {"", (const char *)nullptr})
        EXPECT_EQ(kavor_file_names(path, 1, f, b, r, sizeof f), -1);
    xmlDocPtr doc = reinterpret_cast<xmlDocPtr>(f);   // not NULL: the call clears it
    EXPECT_EQ(kavor_copy_read(nullptr, "net", &doc), KAVOR_COPY_UNUSABLE);
    EXPECT_EQ(doc, nullptr);
    int32_t ret = 0;
    sweep(Alloc::library, [&] { ret = kavor_file_names("/d/net", 1, f, b, r, sizeof f); },
          [&](bool refused) { EXPECT_EQ(ret, refused ? -1 : 0); });
}

}  // namespace
