// The save engine on both roads, driven by hand (no task): backups, syncs,
// faults, broken files, planted links, unusable virtual names, states.

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>


#include "kavor_fixture.h"
#include "strmisc.h"
#include "sweep.h"
#include "vn_mem.h"

using namespace kvtest;

namespace {

class SaveTest : public ::testing::Test {
protected:
    // Registers the file of `r`, saves generations 1 and 2, keeps the bytes
    // of both stored copies and marks generation 3.
    xml_file_hdl third_save_asked(const Road &r, Blk &b)
    {
        xml_file_hdl f = r.reg_in(mgr_.get(), &b);
        save_gen(mgr_, f, b, 1), save_gen(mgr_, f, b, 2);
        file_ = read_file(r.file()), bak_ = read_file(r.bak());
        fill(b, 3);
        EXPECT_TRUE(kavor_save_one(f) == 0 && mgr_.given()) << "a request wakes the task";
        return f;
    }
    TempDir dir_;
    Mgr mgr_;
    std::string file_, bak_;
};

TEST_F(SaveTest, EachRoadKeepsTheLastCopyAsTheBackupSyncsTwiceAndNeverBacksUpABrokenFile)
{
    for (const Road &r : roads(dir_.path())) {
        SCOPED_TRACE(r.base());
        Blk b;
        xml_file_hdl f = r.reg_in(mgr_.get(), &b);
        ASSERT_EQ(f->fcom->virtfile != nullptr, r.virt);
        SysRecorder sys;
        std::string during;   // the state after each write (under the lock) and after its sync calls
        bool request = false;
        sys.on_step = [&](const std::string &step, const kavor_fcom_t *) {
            during += step == "write" || step == "sync" ? std::to_string(kavor_file_on_saving(f)) : "";
            if (step == "sync" && request)
                kavor_save_one(f);
        };
        save_gen(mgr_, f, b, 1);   // the first save: the file, its directories, no backup
        EXPECT_TRUE(gen_at(r, r.file()) == 1 && !file_exists(r.bak()));
        for (int32_t g : {2, 3}) {
            TraceCapture cap(4);
            size_t syncs = sys.count("sync");
            save_gen(mgr_, f, b, g);
            EXPECT_TRUE(sys.count("sync") - syncs == 2 && gens(r) == std::to_string(g) + "/" + std::to_string(g - 1));
            EXPECT_FALSE(file_exists(r.tmp()) || file_exists(r.virt_file()) || mgr_.given()) << "no leftovers, no semaphore";
            EXPECT_EQ(cap.count_at_most(4), 0u) << cap.dump();
        }
        // Gzip data for a compressed name, and always on the virtual road.
        EXPECT_EQ(read_file(r.file()).substr(0, 2) == "\x1f\x8b", r.virt || r.ugz != 1);
        EXPECT_EQ(std::to_string(sys.count("system ")) + "/" + std::to_string(sys.count("save " + r.tmp())), r.virt ? "3/0" : "0/3");
        // The process is killed while it rewrites the file: the file name holds
        // half a copy or none; the restarted process never moves it to the backup.
        kavor_unregister(f);
        std::string whole = read_file(r.file());
        ASSERT_TRUE(write_file(r.file(), r.ugz == 1 ? "" : whole.substr(0, whole.size() / 2)));
        f = r.reg_in(mgr_.get(), &b);
        size_t moves = sys.count("rename " + r.file() + " ");
        save_gen(mgr_, f, b, 4);
        EXPECT_TRUE(sys.count("rename " + r.file() + " ") == moves && gens(r) == "4/2") << "the broken file is not moved";
        request = true, fill(b, 5), kavor_save_one(f), mgr_.given(), mgr_.sweep();   // a request in the syncs wins
        EXPECT_TRUE(kavor_file_on_saving(f) == 1 && mgr_.given() && gen_at(r, r.bak()) == 4) << "4: known whole";
        request = false, mgr_.sweep();
        EXPECT_TRUE(kavor_file_on_saving(f) == 0 && gens(r) == "5/5" && during == repeat("12", 6)) << during;
    }
}

// A fault before two failed attempts: the file and the backup stay byte for byte (or, moved first for gzip, the
// backup holds the last whole copy); the file stays marked; the task is woken; no temporary is left; no gzip
// runs over the only copy. Once the cause has gone the next sweep saves.
enum Cause { WRITER, TAKEN, RENAME, NO_ROOM, V_OPEN, V_FILE, V_LOOP, GZIP_FAIL, GZIP_HALF };

bool cause(Cause c, const Road &r, SysRecorder &sys, bool on)
{
    const std::string v = r.dir + "/v";
    switch (c) {
    case WRITER: return sys.fail_all(SysRecorder::SAVE, on), true;
    case TAKEN: return sys.fail_all(SysRecorder::CREATE, on), true;   // something took the name before its create
    case RENAME: return sys.fail_all(SysRecorder::RENAME, on), true;
    case NO_ROOM: {   // writes past 64 bytes fail, as on a full device
        struct rlimit rl;
        getrlimit(RLIMIT_FSIZE, &rl);
        rl.rlim_cur = on ? 64 : rl.rlim_max;
        signal(SIGXFSZ, on ? SIG_IGN : SIG_DFL);
        return setrlimit(RLIMIT_FSIZE, &rl) == 0;
    }
    case V_OPEN: return chmod(v.c_str(), on ? 0777 : 0755) == 0;   // others came to be able to write it
    case V_FILE: case V_LOOP:
        return system(("rm -rf '" + v + "'").c_str()) == 0 &&
               (!on || (c == V_FILE ? write_file(v, "a file") : symlink("v", v.c_str()) == 0));
    default: return sys.gzip_mode = !on ? SysRecorder::REAL : c == GZIP_FAIL ? SysRecorder::FAIL : SysRecorder::HALF, true;
    }
}

TEST_F(SaveTest, EveryFaultKeepsTheStoredCopiesAndTheFileIsSavedOnceItHasGone)
{
    const struct { Cause c; int32_t ugz; bool virt, moved; int32_t state; } faults[] = {
        {WRITER, 0, false, false, 1}, {WRITER, 0, true, false, 1},   {TAKEN, 1, false, false, 1},
        {RENAME, 1, true, false, 2},  {NO_ROOM, 1, false, false, 1}, {NO_ROOM, 0, false, false, 1},
        {V_OPEN, 1, true, false, 1},  {V_FILE, 0, true, false, 1},   {V_LOOP, 1, true, false, 1},
        {GZIP_FAIL, 0, true, true, 2}, {GZIP_HALF, 1, true, true, 2},
    };
    int round = 0;
    for (const auto &f : faults) {
        SCOPED_TRACE(round);
        Road r{dir_.file("r" + std::to_string(round++)), f.ugz, f.virt};
        Blk b;
        SysRecorder sys;
        xml_file_hdl h = third_save_asked(r, b);
        for (int attempt = 0; attempt < 2; attempt++) {
            ASSERT_TRUE(cause(f.c, r, sys, true));
            size_t gzips = sys.count("system ");
            std::optional<TraceCapture> cap = traced_if(attempt == 0, 4);   // the second attempt untraced
            testing::internal::CaptureStderr();
            mgr_.sweep();
            EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "libxml2's messages go to the trace";
            EXPECT_TRUE(kavor_file_on_saving(h) == f.state && mgr_.given() && (!cap || cap->count_at_most(4) >= 1)) << "told, woken";
            EXPECT_EQ(read_file(r.bak()), f.moved ? file_ : bak_) << "the backup holds the last whole copy";
            EXPECT_TRUE(f.moved || read_file(r.file()) == file_) << "the file, byte for byte";
            Loaded now = load_as_restart(r.base(), r.ugz);
            EXPECT_TRUE((now.gen() == 2 || (f.moved && now.ret == 1)) && !file_exists(r.tmp())) << now.ret;
            EXPECT_TRUE(f.c != RENAME || sys.count("system ") == gzips) << "no gzip over the only copy";
        }
        ASSERT_TRUE(cause(f.c, r, sys, false));
        mgr_.sweep();
        EXPECT_TRUE(kavor_file_on_saving(h) == 0 && gens(r) == "3/2");
    }
}

// A file with no copy yet where none can be written: nothing comes into being, the blocker stays, the first
// save after it has gone creates the file. A new copy that can't take the file name keeps the file marked.
TEST_F(SaveTest, AFileThatCannotBeCreatedOrRenamedStaysMarkedAndIsSavedLater)
{
    for (const char *link : {"", "p", "nowhere/at/all"}) {   // the parent: a file, a loop, a dangling link
        for (int32_t ugz : {0, 1}) {
            SCOPED_TRACE(std::string(link) + (ugz ? ", plain" : ", compressed"));
            const std::string blocker = dir_.file("p");
            ASSERT_TRUE(*link ? symlink(link, blocker.c_str()) == 0 : write_file(blocker, "keep me"));
            const std::string before = read_file(blocker);
            Road r{blocker + "/sub", ugz, false};
            Blk b;
            xml_file_hdl f = r.reg_in(mgr_.get(), &b);
            fill(b, 7), kavor_save_one(f), mgr_.given(), mgr_.sweep();
            EXPECT_TRUE(kavor_file_on_saving(f) == 1 && mgr_.given() && read_file(blocker) == before);
            ASSERT_EQ(unlink(blocker.c_str()), 0);
            mgr_.sweep();
            EXPECT_TRUE(kavor_file_on_saving(f) == 0 && gen_at(r, r.file()) == 7);
            kavor_unregister(f);
            ASSERT_EQ(system(("rm -rf '" + blocker + "'").c_str()), 0);
        }
    }
    Road r{dir_.path(), 0, false};
    Blk b;
    SysRecorder sys;
    xml_file_hdl f = third_save_asked(r, b);
    sys.fail_nth(SysRecorder::RENAME, 2);   // the temporary file's rename
    TraceCapture cap(4);
    mgr_.sweep();
    EXPECT_TRUE(cap.has(4, "save_para_using_xml", "save " + r.file() + " error!")) << cap.dump();
    EXPECT_TRUE(kavor_file_on_saving(f) == 1 && !file_exists(r.file()) && !file_exists(r.tmp()));
    EXPECT_EQ(load_as_restart(r.base(), 0).gen(), 2) << "the backup holds the last copy";
    size_t removes = sys.count("remove " + r.bak());
    mgr_.sweep();   // the retry finds no file under the name and leaves the backup alone
    EXPECT_TRUE(sys.count("remove " + r.bak()) == removes && gens(r) == "3/2");
}

// A link planted at the temporary or virtual name, before the save or between
// the removal of the name and its create, is never followed; a create that
// finds the name taken fails the attempt; the retry saves a regular file.
TEST_F(SaveTest, ALinkPlantedAtANameTheSaveWritesIsNeverFollowed)
{
    const struct { int32_t ugz; bool virt, racing; } rows[] = {{0, false, false}, {1, false, false}, {0, false, true}, {0, true, true}};
    int i = 0;
    const std::string victim = dir_.file("victim");
    for (const auto &c : rows) {
        SCOPED_TRACE(i);
        Road r{dir_.file("l" + std::to_string(i++)), c.ugz, c.virt};
        const std::string at = c.virt ? r.virt_file() : r.tmp();
        ASSERT_TRUE(write_file(victim, "victim"));
        Blk b;
        xml_file_hdl f = r.reg_in(mgr_.get(), &b);
        save_gen(mgr_, f, b, 1);
        SysRecorder sys;
        bool planted = false;
        auto plant = [&] { planted = symlink(victim.c_str(), at.c_str()) == 0; };
        sys.after_remove = [&](const std::string &p) { planted || !c.racing || p != at ? void() : plant(); };
        if (!c.racing)
            plant();
        fill(b, 2), kavor_save_one(f), mgr_.given(), mgr_.sweep();
        EXPECT_TRUE(planted && mgr_.given() == c.racing) << "the racing link fails the attempt";
        mgr_.sweep();
        EXPECT_TRUE(kavor_file_on_saving(f) == 0 && read_file(victim) == "victim" && gens(r) == "2/1");
        struct stat st;
        EXPECT_TRUE(lstat(r.file().c_str(), &st) == 0 && S_ISREG(st.st_mode) && lstat(at.c_str(), &st) != 0);
    }
}

// A virtual name unusable at the save gives way to the plain road, with a level-4 record: a command that would
// be cut (its target another path), or a virtual file that has come to be the file itself (a linked directory).
TEST_F(SaveTest, AVirtualNameUnusableAtTheSaveGivesWayToThePlainRoad)
{
    for (bool alias : {false, true}) {
        const std::string sub = dir_.file(alias ? "alias" : "long");
        Road r{sub + "/d", alias ? 1 : 0, false};
        Blk b;
        xml_file_hdl f = reg(mgr_.get(), r.base(), "blk", &b, r.ugz, sub + "/v/net");
        ASSERT_NE(f->fcom->virtfile, nullptr);
        if (alias)
            ASSERT_TRUE(mkdir(sub.c_str(), 0755) == 0 && mkdir(r.dir.c_str(), 0755) == 0 && symlink("d", (sub + "/v").c_str()) == 0);
        else   // registration refuses such a pair; made by hand
            _vn_free(std::exchange(f->fcom->virtfile, _string_dup((sub + "/" + std::string(230, 'v') + "/net.xml").c_str(), "test")), "test");
        SysRecorder sys;
        for (bool traced : {true, false}) {   // told at level 4 when traced
            std::optional<TraceCapture> cap = traced_if(traced, 4);
            save_gen(mgr_, f, b, traced ? 4 : 5);
            EXPECT_TRUE(!cap || cap->count_at_most(4) == 1u) << cap->dump();
        }
        EXPECT_TRUE(sys.count("system") == 0 && sys.count("save " + r.tmp()) == 2 && gens(r) == "5/4");
    }
}

// A copy given from outside takes the plain road with its backup and two syncs; a root that isn't the stem, a
// temporary name that can't be formed or a refused allocation write nothing and leave the stored copies whole.
TEST_F(SaveTest, ACopyGivenFromOutsideTakesThePlainRoadOrWritesNothing)
{
    Road r{dir_.path(), 1, false};
    Blk b;
    fill(b, 7);
    kavor_file_rgst_t rq = request(dir_.file("o/net"), "blk", blk_table(), &b, 1);
    ASSERT_EQ(kavor_param2file(&rq), 0);
    xmlDocPtr doc = xmlReadFile(dir_.file("o/net.xml").c_str(), nullptr, 0), lng = xmlNewDoc(BAD_CAST "1.0");
    const std::string stem(250, 'n');
    xmlDocSetRootElement(lng, xmlNewDocNode(lng, nullptr, BAD_CAST stem.c_str(), nullptr));
    SysRecorder sys;
    int32_t ret = 0, written = 0;   // round 0 writes the file, the next ones its backup; odd rounds traced
    std::optional<TraceCapture> cap;
    sweep(Alloc::library, [&] { cap ? cap.reset() : void(cap.emplace(4)), ret = kavor_write_copy(r.base().c_str(), doc); }, [&](bool refused) {
        EXPECT_TRUE(((ret == 0 && ++written) || (refused && ret == -1)) && gen_at(r, r.file()) == 7 && !file_exists(r.tmp()));
    });
    EXPECT_TRUE(gens(r) == "7/7" && sys.count("sync") == 2u * written) << "synced twice";
    for (bool traced : {false, true}) {
        cap.reset(), traced ? void(cap.emplace(4)) : void();
        EXPECT_TRUE(kavor_write_copy(dir_.file("other").c_str(), doc) == -1 && kavor_write_copy(dir_.file(stem).c_str(), lng) == -1);
    }
    EXPECT_TRUE(cap->has(4, "kavor_write_copy", "root element of (" + dir_.file("other.xml") + ") isn't other, not written.") &&
                cap->has(4, "save_para_using_xml", "save " + dir_.file(stem + ".xml") + " error!")) << cap->dump();
    EXPECT_EQ(files_in(dir_.path()), (std::vector<std::string>{"net.xml", "net.xml.bak", "o"}));
    xmlFreeDoc(doc), xmlFreeDoc(lng);
}

// The records of the roads and of a load that falls back, as the save
// engine and the load lay them down (times and the directory left out).
TEST_F(SaveTest, TheRoadsAndAFallBackWriteTheirRecords)
{
    TraceCapture cap(8);
    for (const Road &r : {Road{dir_.file("p"), 1, false}, Road{dir_.file("v"), 0, true}}) {
        Pair p = {"one", "x"};
        kavor_file_rgst_t rq = request(r.base(), "p", pair_table(), &p, r.ugz, r.virt ? r.dir + "/v/net" : "");
        xml_file_hdl f = kavor_register(mgr_.get(), &rq);
        kavor_save_one(f), mgr_.sweep(), strcpy(p.label, "two"), kavor_save_one(f), mgr_.sweep();
        write_file(r.file(), "broken");
        EXPECT_EQ(kavor_load_one(f), 0);
        kavor_unregister(f);
    }
    std::string got = cap.dump();   // "time=12" and "use 3 ms" read N (std::regex trips -Wmaybe-uninitialized under ASan)
    for (const std::string pre : {"time=", "use "})
        for (size_t at = 0; (at = got.find(pre, at)) != std::string::npos; at++) {
            size_t end = got.find_first_not_of("0123456789", at + pre.size()), ms = pre == "use " ? 3 : 0;
            if (end > at + pre.size() && got.compare(end, ms, " ms", ms) == 0)
                got.replace(at, end + ms - at, "N");
        }
    for (size_t at; (at = got.find(dir_.path())) != std::string::npos;)
        got.replace(at, dir_.path().size(), "@D");
    EXPECT_EQ(read_file(KAVOR_TEST_DATA_DIR "/file_trace.txt"), got);
}

}  // namespace
