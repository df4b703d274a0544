// The `kavor` command as a user runs it, on files the library made: each
// subcommand and exit code, damaged, missing and hand-edited files; `status`
// names the copy kavor_load_one takes; a `set` cut after each step of its
// write leaves a complete copy.
#include <gtest/gtest.h>

#include <stdio.h>
#include <sys/wait.h>

#include <set>

#include "kavor_cli.h"
#include "kavor_fixture.h"

using namespace kvtest;

namespace {

struct Ran {
    int rc;
    std::string out;   // standard output and error
};

// The installed command's way: a shell runs it; $D is the directory.
Ran kavor(const std::string &args, const std::string &dir)
{
    std::string cmd = args;
    for (size_t p; (p = cmd.find("$D")) != std::string::npos;)
        cmd.replace(p, 2, dir);
    Ran r{-1, ""};
    r.rc = run(std::string(KAVOR_CLI) + " " + cmd, &r.out);
    return r;
}

// dir/net.xml.gz (generation 2) and its backup (generation 1), saved by a
// manager's save road, and the schema of the file in dir/net.xsd.
void make_files(const TempDir &dir, int32_t ugz = 0)
{
    Mgr mgr;
    Blk b;
    xml_file_hdl f = reg(mgr.get(), dir.file("net"), "blk", &b, ugz);
    save_gen(mgr, f, b, 1), save_gen(mgr, f, b, 2);
    ASSERT_EQ(kavor_write_schema(f, dir.file("net.xsd").c_str()), 0);
}

struct Case {
    const char *args;
    int rc;
    std::string out;   // a text the output must hold ("" none)
};

void run_cases(const std::vector<Case> &cases, const TempDir &dir)
{
    for (const Case &c : cases) {
        Ran r = kavor(c.args, dir.path());
        EXPECT_EQ(r.rc, c.rc) << c.args << "\n" << r.out;
        EXPECT_NE(r.out.find(c.out), std::string::npos) << c.args << "\n" << r.out;
    }
}

TEST(KavorCli, EachSubcommandOnFilesTheLibraryMade)
{
    TempDir dir;
    make_files(dir);
    run_cases({
        {"status $D/net", 0, "load: main complete"},
        {"status $D/net.xml.gz $D/other", 2, "load: nothing"},
        {"get $D/net blk/gen", 0, "2\n"},
        {"get $D/net 'blk/vals[255]'", 0, "2255\n"},
        {"get $D/net blk/name", 0, "gen2\n"},
        {"get $D/net blk/nope", 1, "nothing at"},
        {"get $D/net 'blk/vals[x]'", 64, "bad position"},
        {"show $D/net --node blk", 0, "  <gen>2</gen>\n"},
        {"show $D/net --backup", 0, "<gen>1</gen>"},
        {"check $D/net.xml.gz --schema $D/net.xsd", 0, ""},
        {"check $D/net.xml.gz --schema $D/none.xsd", 2, "no usable schema"},
        {"diff $D/net.xml.gz $D/net.xml.bak.gz", 1, "blk/gen\t2\t1\n"},
        {"diff $D/net.xml.gz $D/net.xml.gz", 0, ""},
        {"set $D/net blk/gen 99999999999 --schema $D/net.xsd", 1, "refused by the schema"},
        {"set $D/net 'blk/vals[3]' 0x10 --schema $D/net.xsd", 0, ""},
        {"get $D/net 'blk/vals[3]'", 0, "0x10\n"},
        {"diff $D/net.xml.gz $D/net.xml.bak.gz", 1, "blk/vals[3]\t0x10\t2003\n"},
        {"convert $D/net --plain", 0, "/net.xml\n"},
        {"convert $D/net.xml --plain", 64, "in that form"},
        {"status $D/net.xml", 0, "form=plain state=complete root=net nodes=blk"},
        {"status", 64, "usage: kavor status"},
        {"get $D/net --bogus", 64, "unknown option"},
        {"frobnicate", 64, "unknown subcommand"},
    }, dir);
    for (const char *sub : {"status", "show", "check", "get", "set", "diff", "convert"})
        run_cases({{(std::string(sub) + " --help").c_str(), 0, "usage: kavor "}}, dir);
}

TEST(KavorCli, DamagedMainFileMissingBackupAndHandEditedFile)
{
    TempDir dir;
    make_files(dir, 1);
    std::string main = read_file(dir.file("net.xml"));
    // Hand-edited: one value changed in a text editor, then one out of range.
    std::string edited = main;
    edited.replace(edited.find("<gen>2</gen>"), 12, "<gen>5</gen>");
    ASSERT_TRUE(write_file(dir.file("net.xml"), edited));
    std::string bad = edited;
    bad.replace(bad.find("<gen>5</gen>"), 12, "<gen>5x</gen>");
    ASSERT_TRUE(write_file(dir.file("bad.xml"), bad));
    run_cases({
        {"get $D/net.xml blk/gen", 0, "5\n"},
        {"check $D/net.xml --schema $D/net.xsd", 0, ""},
        {"check $D/bad.xml --schema $D/net.xsd", 1, "bad.xml:2: "},
    }, dir);
    // Damaged: cut in the middle; the load recovers it and keeps the backup.
    ASSERT_TRUE(write_file(dir.file("net.xml"), main.substr(0, main.size() / 2)));
    run_cases({
        {"status $D/net.xml", 1, "load: main recovered"},
        {"set $D/net.xml blk/gen 3", 2, "only recovered"},
        {"show $D/net.xml", 1, "<net>"},
    }, dir);
    // Gone: the backup is taken; with the backup gone too, nothing.
    remove(dir.file("net.xml").c_str());
    run_cases({{"status $D/net.xml", 1, "load: backup complete"},
               {"set $D/net.xml blk/gen 4", 0, "using the backup"},
               {"status $D/net.xml", 0, "backup: " + dir.file("net.xml.bak") + " present"}},
              dir);
    remove(dir.file("net.xml.bak").c_str());
    run_cases({{"status $D/net.xml", 0, "net.xml.bak missing"}, {"get $D/net.xml blk/gen", 0, "4\n"}},
              dir);
    remove(dir.file("net.xml").c_str());
    run_cases({{"status $D/net.xml", 2, "load: nothing"}, {"get $D/net.xml blk/gen", 2, "no usable"}},
              dir);
}

// ---- status decides as the load does ---------------------------------------

std::string doc(const std::string &body, const std::string &prolog = "")
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n" + prolog + "<net><blk>" + body +
           "</blk></net>\n";
}

struct Files {
    std::string label;
    std::map<std::string, std::string> content;   // base name -> bytes
    int32_t ugz;
};

// The damaged-file cases of the load, hostile-document and crash tests.
std::vector<Files> damaged_cases()
{
    const std::string good = doc("<name>main</name><gen>2</gen>"), bak = doc("<name>backup</name><gen>1</gen>");
    const std::string nested = repeat("<one>", 100000);
    std::vector<Files> out = {
        {"good main", {{"net.xml", good}, {"net.xml.bak", bak}}, 1},
        {"main missing", {{"net.xml.bak", bak}}, 1},
        {"both missing", {}, 1},
        {"empty main", {{"net.xml", ""}, {"net.xml.bak", bak}}, 1},
        {"wrong root", {{"net.xml", "<cfg/>"}, {"net.xml.bak", bak}}, 1},
        {"both wrong root", {{"net.xml", "<x/>"}, {"net.xml.bak", "<y/>"}}, 1},
        {"truncated main", {{"net.xml", good.substr(0, 60)}, {"net.xml.bak", bak}}, 1},
        {"truncated both", {{"net.xml", "<net><blk><na"}, {"net.xml.bak", "<net><bl"}}, 1},
        {"doctype entity", {{"net.xml", doc("<name>&x;</name>", "<!DOCTYPE net [<!ENTITY x \"y\">]>\n")}, {"net.xml.bak", bak}}, 1},
        {"doctype in the backup", {{"net.xml.bak", doc("", "<!DOCTYPE net>\n")}}, 1},
        {"deep nesting", {{"net.xml", doc(nested)}, {"net.xml.bak", bak}}, 1},
        {"invalid utf-8", {{"net.xml", doc("<name>ab\xff\xfe</name>")}, {"net.xml.bak", bak}}, 1},
    };
    // The crash cases: the disk after each step of a save on the plain road,
    // plain and gzip, and a cut gzip output under the file name.
    for (int32_t ugz : {1, 0}) {
        TempDir d;
        Mgr mgr;
        Blk b;
        xml_file_hdl f = reg(mgr.get(), d.file("net"), "blk", &b, ugz);
        SysRecorder sys;
        sys.on_step = [&](const std::string &step, const kavor_fcom_t *) {
            Files snap{std::string(ugz ? "plain" : "gzip") + " save cut after " + step, {}, ugz};
            for (const char *n : {"net.xml", "net.xml.bak", "net.xml.gz", "net.xml.bak.gz"})
                if (file_exists(d.file(n)))
                    snap.content[n] = read_file(d.file(n));
            out.push_back(snap);
        };
        for (int g : {1, 2, 3})
            save_gen(mgr, f, b, g);
        if (ugz == 0) {
            Files cut = out.back();
            cut.label = "cut gzip output";
            cut.content["net.xml.gz"].resize(cut.content["net.xml.gz"].size() / 2);
            out.push_back(cut);
        }
    }
    return out;
}

TEST(KavorCli, StatusTakesTheCopyTheLoadTakesInEveryDamagedFileCase)
{
    int cases = 0;
    for (const Files &c : damaged_cases()) {
        SCOPED_TRACE(c.label);
        TempDir dir;
        for (const auto &kv : c.content)
            ASSERT_TRUE(write_file(dir.file(kv.first), kv.second));
        Loaded load = load_as_restart(dir.file("net"), c.ugz);
        Ran st = kavor(std::string("status $D/net ") + (c.ugz == 1 ? "--plain" : "--gzip"), dir.path());
        size_t at = st.out.find("load: ");
        ASSERT_NE(at, std::string::npos) << st.out;
        std::string verdict = st.out.substr(at + 6, st.out.find('\n', at) - at - 6);
        cases++;
        if (load.ret < 0) {
            EXPECT_EQ(verdict, "nothing");
            EXPECT_EQ(st.rc, 2);
            continue;
        }
        std::string copy = verdict.substr(0, verdict.find(' '));
        EXPECT_EQ(verdict.substr(copy.size() + 1), load.ret == 0 ? "complete" : "recovered");
        EXPECT_EQ(st.rc, copy == "main" && load.ret == 0 ? 0 : 1);
        // The copy named is the one the load read: parsed alone it gives the
        // same block.
        std::string name = (copy == "main" ? "net.xml" : "net.xml.bak") + std::string(c.ugz ? "" : ".gz");
        Loaded alone = parse_exact(dir.file("net"), c.ugz, dir.file(name));
        EXPECT_EQ(alone.ret, load.ret);
        EXPECT_EQ(memcmp(&alone.blk, &load.blk, sizeof load.blk), 0);
    }
    EXPECT_GE(cases, 20);
}

// ---- set survives a cut after every step of its write ---------------------------

TEST(KavorCli, SetCutAfterEachStepLeavesACompleteCopy)
{
    for (bool main_present : {true, false}) {
        SCOPED_TRACE(main_present ? "main file present" : "main file missing");
        TempDir dir;
        make_files(dir);
        if (!main_present)
            remove(dir.file("net.xml.gz").c_str());
        Blk before = load_as_restart(dir.file("net"), 0).blk, after = before;
        after.gen = 9;
        std::map<std::string, std::map<std::string, std::string>> at;
        SysRecorder sys;
        sys.on_step = [&](const std::string &step, const kavor_fcom_t *) {
            for (const char *n : {"net.xml.gz", "net.xml.bak.gz"})
                if (file_exists(dir.file(n)))
                    at[step][n] = read_file(dir.file(n));
        };
        std::string file = dir.file("net");
        char *argv[] = {(char *)"kavor", (char *)"set", &file[0], (char *)"blk/gen", (char *)"9"};
        ASSERT_EQ(kavor_cli(5, argv), 0);
        std::set<std::string> steps;
        for (const auto &kv : at)
            steps.insert(kv.first);
        std::set<std::string> want = {"write", "rename_tmp", "sync"};
        if (main_present)
            want.insert({"remove_bak", "rename_file"});
        EXPECT_EQ(steps, want);
        for (const auto &kv : at) {
            SCOPED_TRACE(kv.first);
            TempDir other;
            for (const auto &f : kv.second)
                ASSERT_TRUE(write_file(other.file(f.first), f.second));
            Loaded l = load_as_restart(other.file("net"), 0);
            EXPECT_EQ(l.ret, 0);
            bool is_new = kv.first == "rename_tmp" || kv.first == "sync";
            EXPECT_EQ(memcmp(&l.blk, is_new ? &after : &before, sizeof l.blk), 0);
        }
    }
}

}  // namespace
