// The save engine, driven by hand on the test thread (no task): the order
// of the outside operations and records on each road, the backups of the
// first, second and third save, failures of every kind leaving the stored
// copies as they were and the file marked for a retry, a failed gzip and
// its retries keeping the backup, a broken file name never replacing the
// backup, requests, queries and the state during the sync calls.
#include <gtest/gtest.h>

#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "kavor_save_fixture.h"
#include "strmisc.h"
#include "trace_capture.h"
#include "vn_mem.h"

using namespace kvtest;

namespace {

// Each test drives the sweeps of a task-less manager itself.
class SaveTest : public ::testing::Test {
protected:
    kavor_mobj_t *m() { return mgr_.get(); }
    bool given() { return mgr_.given(); }
    void sweep() { mgr_.sweep(); }
    // Marks and sweeps, with the block at generation g.
    void save_gen(xml_file_hdl f, Blk &b, int32_t g)
    {
        fill(b, g);
        ASSERT_EQ(kavor_save_one(f), 0);
        sweep();
        ASSERT_EQ(kavor_file_on_saving(f), 0);
        given();
    }

    // Registers `base` (with virtual name `virt`), saves generations 1 and
    // 2, keeps the bytes of both stored copies and asks for generation 3.
    xml_file_hdl third_save_asked(const std::string &base, Blk &b, const std::string &virt = "")
    {
        xml_file_hdl f = reg(m(), base, "blk", &b, 0, virt);
        save_gen(f, b, 1);
        save_gen(f, b, 2);
        f_bytes_ = read_file(base + ".xml.gz");
        b_bytes_ = read_file(base + ".xml.bak.gz");
        fill(b, 3);
        EXPECT_EQ(kavor_save_one(f), 0);
        EXPECT_TRUE(given()) << "a request wakes the task";
        return f;
    }

    TempDir dir_;
    SweepManager mgr_;
    std::string f_bytes_, b_bytes_;
};

// Index of the first record containing `text`, or -1.
long index_of(const std::vector<std::string> &recs, const std::string &text)
{
    for (size_t i = 0; i < recs.size(); i++)
        if (recs[i].find(text) != std::string::npos)
            return (long)i;
    return -1;
}

// Both roads in order: the plain one writes a temporary file and renames
// it; the virtual one writes the virtual file and gzips it over the name.
// Each keeps the last copy as the backup.
TEST_F(SaveTest, EachRoadRunsItsStepsInOrderAndKeepsTheLastCopyAsBackup)
{
    for (int32_t ugz : {0, 1}) {
        for (bool virt : {false, true}) {
            SCOPED_TRACE(std::to_string(ugz) + (virt ? " virtual" : " plain"));
            const std::string sub = "r" + std::to_string(ugz) + (virt ? "v" : "p");
            const std::string base = dir_.file(sub + "/data/net");
            const std::string F = base + (ugz == 1 ? ".xml" : ".xml.gz");
            const std::string B = base + (ugz == 1 ? ".xml.bak" : ".xml.bak.gz");
            const std::string T = F + (ugz == 1 ? ".tmp" : ".tmp.gz");
            const std::string V = dir_.file(sub + "/tmp/net.xml");
            Blk b;
            xml_file_hdl f = reg(m(), base, "blk", &b, ugz, virt ? V + ".gz" : "");
            ASSERT_EQ(str(f->fcom->virtfile), virt ? V : "<NULL>");
            SysRecorder sys;
            save_gen(f, b, 1);  // first save: the file, no backup (its directories made)
            EXPECT_EQ(parse_exact(base, ugz, F).gen(), 1);
            EXPECT_FALSE(file_exists(B));

            sys.clear_log();
            TraceCapture cap(7);
            save_gen(f, b, 2);
            const std::vector<std::string> plain = {
                "remove " + T, "create " + T, "save " + T, "step write", "remove " + B, "step remove_bak",
                "rename " + F + " " + B, "step rename_file",
                "rename " + T + " " + F, "step rename_tmp",
                "sync", "sync", "step sync", "step done",
            };
            const std::vector<std::string> virtual_road = {
                "remove " + V, "create " + V, "save " + V, "step write",
                "rename " + F + " " + B, "step rename_file",
                "system gzip -c " + V + " > " + F, "step gzip",
                "remove " + V, "step remove_virt",
                "sync", "sync", "step sync", "step done",
            };
            EXPECT_EQ(sys.log(), virt ? virtual_road : plain);
            EXPECT_EQ(parse_exact(base, ugz, F).gen(), 2);
            EXPECT_EQ(parse_exact(base, ugz, B).gen(), 1);
            EXPECT_FALSE(file_exists(T));
            EXPECT_FALSE(file_exists(V));
            EXPECT_FALSE(given()) << "a good save gives no semaphore";
            EXPECT_EQ(cap.count_at_most(4), 0u) << cap.dump();
            // The compressed file is gzip data, the plain one is not; the
            // virtual road's file is gzip data whatever the suffix.
            EXPECT_EQ(read_file(F).substr(0, 2) == "\x1f\x8b", virt || ugz != 1);
            if (virt) {
                EXPECT_EQ(cap.count_containing("7 save_para_using_xml: save " + V + " use "), 1u)
                    << cap.dump();
                EXPECT_EQ(cap.count_containing("7 xml_save_process: save " + F +
                                               " into flash, use "),
                          1u)
                    << cap.dump();
                EXPECT_EQ(sys.count("save " + F), 0u);
                for (const auto &e : sys.log())
                    EXPECT_EQ(e.find(".tmp"), std::string::npos) << e;
            } else {
                const std::vector<std::string> recs = cap.records();
                long start = index_of(recs, "7 xmlMakeParamFile: time=");
                long fin = index_of(recs, "end to makeParam of file<" + T + ">.");
                EXPECT_GE(start, 0) << cap.dump();
                EXPECT_EQ(start, index_of(recs, "start makeParam of file<" + T + ">."))
                    << cap.dump();
                EXPECT_GT(fin, start) << cap.dump();
                EXPECT_GT(index_of(recs, "7 save_para_using_xml: save " + F + " use "), fin)
                    << cap.dump();
            }
            save_gen(f, b, 3);
            EXPECT_EQ(parse_exact(base, ugz, F).gen(), 3);
            EXPECT_EQ(parse_exact(base, ugz, B).gen(), 2);
            kavor_unregister(f);
        }
    }
}

TEST_F(SaveTest, OneRequestWritesEveryNodeOfTheFileAndTwoRequestsWriteOnce)
{
    Blk a, c;
    fill(a, 7);
    fill(c, 8);
    xml_file_hdl fa = reg(m(), dir_.file("net"), "a", &a);
    xml_file_hdl fc = reg(m(), dir_.file("net"), "c", &c);
    ASSERT_EQ(fa->fcom, fc->fcom);
    SysRecorder sys;
    ASSERT_EQ(kavor_save_one(fa), 0);
    ASSERT_EQ(kavor_save_one(fa), 0);
    EXPECT_EQ(kavor_file_on_saving(fc), 1);
    sweep();
    EXPECT_EQ(sys.count("save "), 1u);
    EXPECT_EQ(parse_exact(dir_.file("net"), 0, dir_.file("net.xml.gz"), "a").gen(), 7);
    EXPECT_EQ(parse_exact(dir_.file("net"), 0, dir_.file("net.xml.gz"), "c").gen(), 8);
    EXPECT_EQ(kavor_file_on_saving(fc), 0);
}

// A write or backup that fails on either road leaves both stored copies as
// they were, runs no gzip, keeps the file marked and wakes the task for a
// retry, which then saves. A name that something takes between its removal
// and its create, and a virtual file's directory that others can write
// (made so after the registration), fail the write in the same way.
TEST_F(SaveTest, AFailedWriteOrBackupLeavesBothCopiesAsTheyWereAndRetries)
{
    enum Cause { TABLE, TAKEN, VIRT_WRITE, VIRT_BACKUP, VIRT_DIR };
    const struct {
        const char *what;
        Cause cause;
        const char *retry;  // xml_save_process: "xml(F) <retry>, try again later."
        int32_t state;
    } rows[] = {
        {"plain, writer fails", TABLE, "save failed", 1},
        {"plain, temporary name taken before its create", TAKEN, "save failed", 1},
        {"virtual, writer fails", VIRT_WRITE, "save failed", 1},
        {"virtual, backup rename fails", VIRT_BACKUP, "backup failed", 2},
        {"virtual, others can write its directory", VIRT_DIR, "save failed", 1},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        const bool virt = r.cause >= VIRT_WRITE;
        const std::string sub = "c" + std::to_string(r.cause), base = dir_.file(sub + "/net");
        const std::string vdir = dir_.file(sub + "/v");
        const std::string F = base + ".xml.gz", B = base + ".xml.bak.gz", T = F + ".tmp.gz";
        Blk b;
        SysRecorder sys;
        xml_file_hdl f = third_save_asked(base, b, virt ? vdir + "/net" : "");
        switch (r.cause) {
        case TABLE:
            sys.fail_all(SysRecorder::SAVE, true);
            break;
        case TAKEN:
            sys.fail_nth(SysRecorder::CREATE, 1);
            break;
        case VIRT_WRITE:
            sys.fail_nth(SysRecorder::SAVE, 1);
            break;
        case VIRT_DIR:
            ASSERT_EQ(chmod(vdir.c_str(), 0777), 0);
            break;
        default:
            sys.fail_nth(SysRecorder::RENAME, 1);
            break;
        }
        sys.clear_log();
        TraceCapture cap(8);
        sweep();
        EXPECT_EQ(read_file(F), f_bytes_);
        EXPECT_EQ(read_file(B), b_bytes_);
        EXPECT_FALSE(file_exists(T)) << "the temporary file is removed";
        EXPECT_EQ(sys.count("system"), 0u);
        EXPECT_EQ(kavor_file_on_saving(f), r.state);
        EXPECT_TRUE(given()) << "a failed save wakes the task for a retry";
        EXPECT_TRUE(cap.has(4, "xml_save_process",
                            "xml(" + F + ") " + r.retry + ", try again later."))
            << cap.dump();
        if (!virt) {
            EXPECT_TRUE(cap.has(4, "save_para_using_xml", "save " + F + " error!")) << cap.dump();
            EXPECT_EQ(sys.count("rename"), 0u) << "a failed write renames nothing";
        }
        if (r.cause == VIRT_WRITE || r.cause == VIRT_DIR) {
            EXPECT_FALSE(file_exists(vdir + "/net.xml"));
        }
        if (r.cause == VIRT_DIR) {
            EXPECT_TRUE(cap.has(4, "save_para_using_xml", "virtual file (" + vdir +
                                "/net.xml) not written: others can write its directory."))
                << cap.dump();
        }

        // The cause goes; the next sweep writes the file.
        sys.fail_all(SysRecorder::SAVE, false);
        ASSERT_EQ(chmod(vdir.c_str(), 0755), r.cause >= VIRT_WRITE ? 0 : -1);
        sweep();
        EXPECT_EQ(kavor_file_on_saving(f), 0);
        EXPECT_EQ(parse_exact(base, 0, F).gen(), 3);
        EXPECT_EQ(parse_exact(base, 0, B).gen(), 2);
        EXPECT_FALSE(given());
    }
}

// A link planted at the temporary or virtual name, before the save or in the
// moment between the removal of the name and its create, is never followed:
// its target stays as it was, and the file becomes a regular file with the
// new copy. A create that finds the name taken fails the attempt (level 4),
// and the retry saves.
TEST_F(SaveTest, ALinkPlantedAtANameTheSaveWritesIsNeverFollowed)
{
    const struct {
        const char *what;
        int32_t ugz;
        bool virt, racing;
    } rows[] = {
        {"compressed temporary name, before the save", 0, false, false},
        {"plain temporary name, before the save", 1, false, false},
        {"temporary name, after its removal", 0, false, true},
        {"virtual name, after its removal", 0, true, true},
    };
    int i = 0;
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        const std::string sub = dir_.file("l" + std::to_string(i++)), base = sub + "/net";
        const std::string F = base + (r.ugz == 1 ? ".xml" : ".xml.gz");
        const std::string B = base + (r.ugz == 1 ? ".xml.bak" : ".xml.bak.gz");
        const std::string at = r.virt ? sub + "/v/net.xml" : F + (r.ugz == 1 ? ".tmp" : ".tmp.gz");
        const std::string victim = dir_.file("victim");
        ASSERT_TRUE(write_file(victim, "victim"));
        Blk b;
        xml_file_hdl f = reg(m(), base, "blk", &b, r.ugz, r.virt ? sub + "/v/net" : "");
        save_gen(f, b, 1);
        SysRecorder sys;
        bool planted = false;
        auto plant = [&] { planted = symlink(victim.c_str(), at.c_str()) == 0; };
        if (r.racing)
            sys.after_remove = [&](const std::string &p) {
                if (!planted && p == at)
                    plant();
            };
        else
            plant();
        fill(b, 2);
        kavor_save_one(f);
        given();
        TraceCapture cap(4);
        sweep();
        EXPECT_TRUE(planted);
        EXPECT_EQ(given(), r.racing) << cap.dump();
        EXPECT_EQ(cap.count(4, "xml_save_process", "xml(" + F + ") save failed, try again later."),
                  r.racing ? 1u : 0u) << cap.dump();
        sweep();
        EXPECT_EQ(kavor_file_on_saving(f), 0);
        EXPECT_EQ(read_file(victim), "victim");
        struct stat st;
        ASSERT_EQ(lstat(F.c_str(), &st), 0);
        EXPECT_TRUE(S_ISREG(st.st_mode));
        EXPECT_EQ(parse_exact(base, r.ugz, F).gen(), 2);
        EXPECT_EQ(parse_exact(base, r.ugz, B).gen(), 1);
        EXPECT_NE(lstat(at.c_str(), &st), 0);
        kavor_unregister(f);
    }
}

TEST_F(SaveTest, AParentPathThatIsAFileFailsTheSaveUntilItIsGone)
{
    ASSERT_TRUE(write_file(dir_.file("blocker"), "not a directory"));
    Blk b;
    fill(b, 5);
    xml_file_hdl f = reg(m(), dir_.file("blocker/net"), "blk", &b);
    ASSERT_EQ(kavor_save_one(f), 0);
    given();
    TraceCapture cap(4);
    sweep();
    EXPECT_EQ(kavor_file_on_saving(f), 1);
    EXPECT_TRUE(given());
    EXPECT_EQ(cap.count_containing("save failed, try again later."), 1u) << cap.dump();
    ASSERT_EQ(unlink(dir_.file("blocker").c_str()), 0);
    sweep();
    EXPECT_EQ(kavor_file_on_saving(f), 0);
    EXPECT_EQ(parse_exact(dir_.file("blocker/net"), 0, dir_.file("blocker/net.xml.gz")).gen(), 5);
}

TEST_F(SaveTest, ANewCopyThatCannotTakeTheFileNameKeepsTheFileMarked)
{
    const std::string F = dir_.file("net.xml.gz"), B = dir_.file("net.xml.bak.gz");
    Blk b;
    SysRecorder sys;
    xml_file_hdl f = third_save_asked(dir_.file("net"), b);
    sys.fail_nth(SysRecorder::RENAME, 2);   // the temporary file's rename
    TraceCapture cap(4);
    sweep();
    EXPECT_TRUE(cap.has(4, "save_para_using_xml", "save " + F + " error!")) << cap.dump();
    EXPECT_EQ(kavor_file_on_saving(f), 1);
    EXPECT_FALSE(file_exists(F));
    EXPECT_FALSE(file_exists(F + ".tmp.gz"));
    Loaded now = load_as_restart(dir_.file("net"), 0);
    EXPECT_EQ(now.ret, 0);
    EXPECT_EQ(now.gen(), 2) << "the backup holds the last copy";

    // The retry finds no file under the name and leaves the backup alone.
    sys.clear_log();
    sweep();
    EXPECT_EQ(sys.count("remove " + B), 0u);
    EXPECT_EQ(parse_exact(dir_.file("net"), 0, F).gen(), 3);
    EXPECT_EQ(parse_exact(dir_.file("net"), 0, B).gen(), 2);
}

TEST_F(SaveTest, ABrokenFileNameNeverReplacesTheBackup)
{
    // A previous process saved twice and was killed while it rewrote the
    // file: the file name holds half a copy, the backup a whole one.
    for (int32_t ugz : {0, 1}) {
        for (bool virt : {false, true}) {
            SCOPED_TRACE(std::to_string(ugz) + (virt ? " virtual" : " plain"));
            const std::string sub = "b" + std::to_string(ugz) + (virt ? "v" : "p");
            const std::string base = dir_.file(sub + "/net");
            const std::string V = virt ? dir_.file(sub + "/v/net") : "";
            const std::string F = base + (ugz == 1 ? ".xml" : ".xml.gz");
            const std::string B = base + (ugz == 1 ? ".xml.bak" : ".xml.bak.gz");
            Blk b;
            xml_file_hdl f = reg(m(), base, "blk", &b, ugz, V);
            ASSERT_EQ(f->fcom->virtfile != nullptr, virt);
            save_gen(f, b, 1);
            save_gen(f, b, 2);
            kavor_unregister(f);
            std::string whole = read_file(F);
            ASSERT_TRUE(write_file(F, whole.substr(0, whole.size() / 2)));

            f = reg(m(), base, "blk", &b, ugz, V);   // the restarted process
            SysRecorder sys;
            TraceCapture cap(5);
            save_gen(f, b, 3);
            EXPECT_TRUE(cap.has(5, virt ? "xml_save_process" : "save_para_using_xml",
                                "file (" + F + ") holds no complete copy, backup kept."))
                << cap.dump();
            EXPECT_EQ(sys.count("rename " + F + " "), 0u);
            EXPECT_EQ(parse_exact(base, ugz, B).gen(), 1);
            EXPECT_EQ(parse_exact(base, ugz, F).gen(), 3);
            // From now on the file name is known whole: the next save moves it.
            save_gen(f, b, 4);
            EXPECT_EQ(parse_exact(base, ugz, B).gen(), 3);
            kavor_unregister(f);
        }
    }
}

TEST_F(SaveTest, AFailedGzipNeverPutsAPartialFileOverTheBackup)
{
    FakeGzip gz;
    const std::string base = dir_.file("net"), V = dir_.file("v/net.xml");
    const std::string F = base + ".xml.gz", B = base + ".xml.bak.gz";
    Blk b;
    xml_file_hdl f = reg(m(), base, "blk", &b, 0, dir_.file("v/net"));
    SysRecorder sys;
    gz.set(FakeGzip::REAL);
    save_gen(f, b, 1);
    save_gen(f, b, 2);

    int32_t g = 3;
    for (FakeGzip::Mode mode : {FakeGzip::HALF, FakeGzip::HALF, FakeGzip::FAIL}) {
        SCOPED_TRACE(g);
        gz.set(mode);
        fill(b, g++);
        kavor_save_one(f);
        given();
        sys.clear_log();
        TraceCapture cap(4);
        sweep();
        EXPECT_TRUE(cap.has(4, "xml_save_process", "xml(" + F + ") fail to save flash!"))
            << cap.dump();
        EXPECT_EQ(kavor_file_on_saving(f), 2);
        EXPECT_TRUE(given());
        EXPECT_TRUE(file_exists(V)) << "the virtual file stays after a failed gzip";
        EXPECT_EQ(parse_exact(base, 0, B).gen(), 2) << "the backup keeps the last whole copy";
        EXPECT_NE(parse_exact(base, 0, F).ret, 0);
        Loaded now = load_as_restart(base, 0);
        EXPECT_TRUE(now.ret == 1 || (now.ret == 0 && now.gen() == 2)) << now.ret;
    }
    // The retries removed what the failed command left and kept the backup.
    EXPECT_EQ(sys.count("rename"), 0u);
    EXPECT_EQ(sys.count("remove " + F), 1u);

    gz.set(FakeGzip::REAL);
    sweep();
    EXPECT_EQ(kavor_file_on_saving(f), 0);
    EXPECT_EQ(parse_exact(base, 0, F).gen(), 5);
    EXPECT_EQ(parse_exact(base, 0, B).gen(), 2);
    EXPECT_FALSE(file_exists(V));
}

// A virtual name that the road can't use at the time of the save gives way
// to the plain road, with a level-4 record: a command that would be cut (it
// is never run, since its target would be another path), or a virtual file
// that has turned out to be the file itself under another spelling (its
// directory came into being as a link to the file's own after the
// registration), which the road would write over the last complete copy.
TEST_F(SaveTest, AVirtualNameUnusableAtTheSaveGivesWayToThePlainRoad)
{
    for (bool alias : {false, true}) {
        SCOPED_TRACE(alias ? "the file itself" : "command too long");
        const std::string sub = dir_.file(alias ? "alias" : "long"), base = sub + "/d/net";
        const int32_t ugz = alias ? 1 : 0;
        const std::string F = base + (alias ? ".xml" : ".xml.gz");
        const std::string B = base + (alias ? ".xml.bak" : ".xml.bak.gz");
        Blk b;
        xml_file_hdl f = reg(m(), base, "blk", &b, ugz, sub + "/v/net");
        ASSERT_NE(f->fcom->virtfile, nullptr);
        std::string virt = sub + "/v/net.xml", record;
        if (alias) {
            ASSERT_EQ(mkdir(sub.c_str(), 0755), 0);
            ASSERT_EQ(mkdir((sub + "/d").c_str(), 0755), 0);
            ASSERT_EQ(symlink("d", (sub + "/v").c_str()), 0);
            record = "virtual file (" + virt + ") is the file itself, saved without it.";
        } else {
            // Registration refuses such a pair; make one by hand.
            virt = sub + "/" + std::string(230, 'v') + "/net.xml";
            char *own = f->fcom->virtfile;
            f->fcom->virtfile = _string_dup(virt.c_str(), "test");
            _vn_free(own, "test");
            record = "gzip command for " + F + " too long, saved without " + virt + ".";
        }
        SysRecorder sys;
        TraceCapture cap(4);
        save_gen(f, b, 4);
        save_gen(f, b, 5);
        EXPECT_EQ(cap.count(4, "xml_save_process", record), 2u) << cap.dump();
        EXPECT_EQ(sys.count("system"), 0u);
        EXPECT_EQ(sys.count("save " + F + (alias ? ".tmp" : ".tmp.gz")), 2u);
        EXPECT_EQ(parse_exact(base, ugz, F).gen(), 5);
        EXPECT_EQ(parse_exact(base, ugz, B).gen(), 4);
        kavor_unregister(f);
    }
}

TEST_F(SaveTest, AFileWithoutNodesNeverReplacesTheStoredCopy)
{
    const std::string F = dir_.file("net.xml.gz");
    Blk b;
    kavor_fcom_t *fcom = third_save_asked(dir_.file("net"), b)->fcom;
    // As a sweep would see a file whose last node is leaving.
    zhead_t nodes = fcom->file_lst;
    fcom->file_lst = nullptr;
    TraceCapture cap(4);
    sweep();
    fcom->file_lst = nodes;
    EXPECT_EQ(read_file(F), f_bytes_);
    EXPECT_EQ(read_file(dir_.file("net.xml.bak.gz")), b_bytes_);
    EXPECT_FALSE(file_exists(F + ".tmp.gz"));
    EXPECT_EQ(saving_get(fcom), 1);
    EXPECT_GE(cap.count_at_most(4), 1u);
}

TEST_F(SaveTest, TheStateIsTwoDuringTheSyncCallsAndARequestThenWins)
{
    Blk b;
    xml_file_hdl f = reg(m(), dir_.file("net"), "blk", &b);
    SysRecorder sys;
    std::vector<int32_t> during;
    bool request = false;
    sys.on_step = [&](const std::string &step, const kavor_fcom_t *) {
        if (step == "rename_tmp" || step == "sync") {
            during.push_back(kavor_file_on_saving(f));
            if (step == "sync" && request)
                kavor_save_one(f);
        }
    };
    save_gen(f, b, 1);
    EXPECT_EQ(during, (std::vector<int32_t>{1, 2})) << "1 while written under the lock";

    request = true;
    fill(b, 2);
    kavor_save_one(f);
    given();
    sweep();
    EXPECT_EQ(kavor_file_on_saving(f), 1) << "a request during the sync calls is not lost";
    EXPECT_TRUE(given());
    request = false;
    sweep();
    EXPECT_EQ(kavor_file_on_saving(f), 0);
    EXPECT_EQ(sys.count("save "), 3u);
}

TEST_F(SaveTest, RequestsAndQueriesAnswerEveryHandle)
{
    TraceCapture cap(8);
    EXPECT_EQ(kavor_save_one(nullptr), -1);
    EXPECT_TRUE(cap.has(4, "kavor_save_one", "xml_file_hdl is NULL.")) << cap.dump();
    EXPECT_EQ(kavor_save_all(nullptr), -1);
    EXPECT_TRUE(cap.has(4, "kavor_save_all", "kavor mobj is NULL.")) << cap.dump();
    EXPECT_EQ(kavor_file_on_saving(nullptr), 0);
    EXPECT_TRUE(cap.has(4, "kavor_file_on_saving", "xml file hdl is NULL.")) << cap.dump();
    EXPECT_EQ(kavor_any_on_saving(nullptr), nullptr);
    EXPECT_TRUE(cap.has(4, "kavor_any_on_saving", "kavor mobj is NULL.")) << cap.dump();

    // No file: save_all wakes the task all the same; nothing is on saving.
    cap.clear();
    EXPECT_EQ(kavor_save_all(m()), 0);
    EXPECT_TRUE(given());
    EXPECT_EQ(kavor_any_on_saving(m()), nullptr);
    EXPECT_TRUE(cap.records().empty()) << cap.dump();

    // A standalone node has no task to save it.
    Blk b;
    xml_file_hdl alone = reg(nullptr, dir_.file("alone"), "blk", &b);
    EXPECT_EQ(kavor_save_one(alone), -1);
    EXPECT_TRUE(cap.has(4, "kavor_save_one", "file node (blk) has no manager, not saved!"))
        << cap.dump();
    EXPECT_EQ(kavor_file_on_saving(alone), 0);
    kavor_unregister(alone);

    xml_file_hdl f1 = reg(m(), dir_.file("one"), "blk", &b);
    xml_file_hdl f2 = reg(m(), dir_.file("two"), "blk", &b);
    EXPECT_EQ(kavor_any_on_saving(m()), nullptr);
    cap.clear();
    EXPECT_EQ(kavor_save_one(f2), 0);
    EXPECT_TRUE(cap.has(8, "kavor_save_one", "file node (blk) request saving.")) << cap.dump();
    EXPECT_TRUE(cap.has(8, "kavor_save_one", "has send successful.")) << cap.dump();
    EXPECT_EQ(str(kavor_any_on_saving(m())), dir_.file("two.xml.gz"));
    EXPECT_EQ(kavor_file_on_saving(f1), 0);
    EXPECT_EQ(kavor_file_on_saving(f2), 1);
    EXPECT_EQ(kavor_save_all(m()), 0);
    EXPECT_EQ(str(kavor_any_on_saving(m())), dir_.file("one.xml.gz"));
    EXPECT_EQ(kavor_file_on_saving(f1), 1);

    // A semaphore that can't be given: -1, the mark stays.
    VN_SEM_ID sem = m()->sem_sav;
    m()->sem_sav = nullptr;
    cap.clear();
    saving_set(f1->fcom, 0);
    EXPECT_EQ(kavor_save_one(f1), -1);
    EXPECT_EQ(kavor_save_all(m()), -1);
    EXPECT_EQ(cap.count(4, "kavor_save_one", "sem_give error!"), 1u) << cap.dump();
    EXPECT_EQ(cap.count(4, "kavor_save_all", "sem_give error!"), 1u) << cap.dump();
    EXPECT_EQ(kavor_file_on_saving(f1), 1);
    m()->sem_sav = sem;
}

TEST(SaveTables, TablesOfTheseTestsPassTheTableCheck) { EXPECT_EQ(param_xml_check(blk_table()), 0); }

}  // namespace
