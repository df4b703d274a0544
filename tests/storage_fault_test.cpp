// Storage faults made for real on the file system (the tests run as root,
// so permissions can't stop a write): a write that runs out of room (the
// process's file size limit, as on a full device), a parent path that is a
// regular file, a missing directory that can't be made, a virtual file's
// directory that others came to be able to write, and a gzip that fails or
// writes half. Every failed
// save keeps the stored copies as they were (on the plain road the file and
// its backup byte for byte), keeps the file marked, wakes the task for a
// retry, and the file is saved by itself once the cause is gone.
#include <gtest/gtest.h>

#include <stdio.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "kavor_save_fixture.h"
#include "trace_capture.h"

using namespace kvtest;

namespace {

// The names of one file under test.
struct Names {
    std::string base, file, bak, tmp, virt_req, virt;
};

Names names_in(const std::string &dir, int32_t ugz, const std::string &virt_dir)
{
    Names n;
    n.base = dir + "/net";
    n.file = n.base + (ugz == 1 ? ".xml" : ".xml.gz");
    n.bak = n.base + (ugz == 1 ? ".xml.bak" : ".xml.bak.gz");
    n.tmp = n.file + (ugz == 1 ? ".tmp" : ".tmp.gz");
    if (!virt_dir.empty()) {
        n.virt_req = virt_dir + "/net";
        n.virt = n.virt_req + ".xml";
    }
    return n;
}

struct Fault {
    const char *what;
    int32_t ugz;
    const char *virt_dir;  // relative to the test directory; "" for the plain road
    // Makes the cause (before each attempt) and takes it away.
    std::function<void(const std::string &dir, const Names &n, FakeGzip &gz)> make, clear;
    const char *record;    // the level-4 record of the failed attempt, "%s" the file name
    bool file_moved;       // the failed attempt moved the file to the backup name first
};

void must(bool ok, const std::string &what)
{
    ASSERT_TRUE(ok) << what << ": " << strerror(errno);
}

// Removes whatever stands at `path` (the virtual file's directories that
// the good saves made), so that a cause can take its place.
void clear_path(const std::string &path)
{
    std::string rm = "rm -rf '" + path + "'";
    must(system(rm.c_str()) == 0, rm);
}

// Writes of this process into files past `bytes` fail (EFBIG, SIGXFSZ
// ignored), as on a full device; RLIM_INFINITY lifts the limit again.
void file_size_limit(rlim_t bytes)
{
    struct rlimit rl;
    must(getrlimit(RLIMIT_FSIZE, &rl) == 0, "getrlimit");
    rl.rlim_cur = bytes == RLIM_INFINITY ? rl.rlim_max : bytes;
    signal(SIGXFSZ, bytes == RLIM_INFINITY ? SIG_DFL : SIG_IGN);
    must(setrlimit(RLIMIT_FSIZE, &rl) == 0, "setrlimit");
}

class StorageFault : public ::testing::Test {
protected:
    void save_gen(xml_file_hdl f, Blk &b, int32_t g)
    {
        fill(b, g);
        ASSERT_EQ(kavor_save_one(f), 0);
        mgr_.sweep();
        ASSERT_EQ(kavor_file_on_saving(f), 0);
        mgr_.given();
    }
    TempDir dir_;
    SweepManager mgr_;
    FakeGzip gz_;
};

TEST_F(StorageFault, EveryFaultKeepsTheStoredCopiesAndTheFileIsSavedOnceItIsGone)
{
    ASSERT_EQ(geteuid(), 0u) << "these faults need root";
    const Fault faults[] = {
        {"no room for the temporary file", 1, "",
         [](const std::string &, const Names &, FakeGzip &) { file_size_limit(64); },
         [](const std::string &, const Names &, FakeGzip &) { file_size_limit(RLIM_INFINITY); },
         "xml(%s) save failed, try again later.", false},
        {"no room for the compressed temporary file", 0, "",
         [](const std::string &, const Names &, FakeGzip &) { file_size_limit(64); },
         [](const std::string &, const Names &, FakeGzip &) { file_size_limit(RLIM_INFINITY); },
         "xml(%s) save failed, try again later.", false},
        {"virtual file in a directory others can write", 1, "vopen",
         [](const std::string &d, const Names &, FakeGzip &) {
             must(chmod((d + "/vopen").c_str(), 0777) == 0, "chmod");
         },
         [](const std::string &d, const Names &, FakeGzip &) {
             must(chmod((d + "/vopen").c_str(), 0755) == 0, "chmod");
         },
         "xml(%s) save failed, try again later.", false},
        {"virtual file under a regular file", 0, "vblock/v",
         [](const std::string &d, const Names &, FakeGzip &) {
             clear_path(d + "/vblock");
             must(write_file(d + "/vblock", "a regular file"), "vblock");
         },
         [](const std::string &d, const Names &, FakeGzip &) { unlink((d + "/vblock").c_str()); },
         "xml(%s) save failed, try again later.", false},
        {"virtual file in a directory that can't be made", 1, "vloop/v",
         [](const std::string &d, const Names &, FakeGzip &) {
             clear_path(d + "/vloop");
             must(symlink("vloop", (d + "/vloop").c_str()) == 0, "vloop");
         },
         [](const std::string &d, const Names &, FakeGzip &) { unlink((d + "/vloop").c_str()); },
         "xml(%s) save failed, try again later.", false},
        {"gzip that fails", 0, "v",
         [](const std::string &, const Names &, FakeGzip &gz) { gz.set(FakeGzip::FAIL); },
         [](const std::string &, const Names &, FakeGzip &gz) { gz.set(FakeGzip::REAL); },
         "xml(%s) fail to save flash!", true},
        {"gzip that writes half", 1, "v",
         [](const std::string &, const Names &, FakeGzip &gz) { gz.set(FakeGzip::HALF); },
         [](const std::string &, const Names &, FakeGzip &gz) { gz.set(FakeGzip::REAL); },
         "xml(%s) fail to save flash!", true},
    };
    int round = 0;
    for (const Fault &c : faults) {
        SCOPED_TRACE(c.what);
        gz_.set(FakeGzip::REAL);
        const std::string d = dir_.file("r" + std::to_string(round++));
        ASSERT_EQ(mkdir(d.c_str(), 0755), 0);
        const std::string vdir = c.virt_dir[0] != '\0' ? d + "/" + c.virt_dir : "";
        const Names n = names_in(d, c.ugz, vdir);
        Blk b;
        xml_file_hdl f = reg(mgr_.get(), n.base, "blk", &b, c.ugz, n.virt_req);
        ASSERT_NE(f, nullptr);
        save_gen(f, b, 1);
        save_gen(f, b, 2);
        const std::string file_before = read_file(n.file), bak_before = read_file(n.bak);
        ASSERT_FALSE(file_before.empty());
        ASSERT_FALSE(bak_before.empty());

        char record[512];
        snprintf(record, sizeof record, c.record, n.file.c_str());
        fill(b, 3);
        ASSERT_EQ(kavor_save_one(f), 0);
        mgr_.given();
        for (int attempt = 0; attempt < 2; attempt++) {
            SCOPED_TRACE(attempt);
            c.make(d, n, gz_);
            TraceCapture cap(4);
            StderrCapture err;
            mgr_.sweep();
            EXPECT_EQ(err.text(), "") << "libxml2's messages go to the trace";
            EXPECT_GT(kavor_file_on_saving(f), 0);
            EXPECT_TRUE(mgr_.given()) << "a failed save wakes the task for a retry";
            EXPECT_TRUE(cap.has(4, "xml_save_process", record)) << cap.dump();
            if (c.file_moved) {
                // The last whole copy stands under the backup name; a load
                // gives it, or says with 1 that it read a cut file.
                EXPECT_EQ(read_file(n.bak), file_before);
                Loaded now = load_as_restart(n.base, c.ugz);
                EXPECT_TRUE(now.ret == 1 || (now.ret == 0 && now.gen() == 2)) << now.ret;
            } else {
                EXPECT_EQ(read_file(n.file), file_before) << "the file, byte for byte";
                EXPECT_EQ(read_file(n.bak), bak_before) << "the backup, byte for byte";
                EXPECT_EQ(load_as_restart(n.base, c.ugz).gen(), 2);
            }
            if (vdir.empty()) {
                struct stat st;
                EXPECT_NE(lstat(n.tmp.c_str(), &st), 0) << "no temporary file is left";
            }
        }
        c.clear(d, n, gz_);
        mgr_.sweep();
        EXPECT_EQ(kavor_file_on_saving(f), 0);
        EXPECT_EQ(parse_exact(n.base, c.ugz, n.file).gen(), 3);
        EXPECT_EQ(parse_exact(n.base, c.ugz, n.bak).gen(), 2);
        kavor_unregister(f);
    }
}

// A file with no copy yet, in a place where none can be written: nothing
// comes into being, the blocking file stays as it was, and the first save
// after the cause has gone creates the file.
TEST_F(StorageFault, AFileThatCannotBeCreatedIsSavedOnceThePathIsFree)
{
    struct Case {
        const char *what;
        const char *blocker;    // relative to the test directory
        std::function<void(const std::string &p)> make;
    } cases[] = {
        {"parent is a regular file", "pfile",
         [](const std::string &p) { must(write_file(p, "keep me"), p); }},
        {"parent is a symlink loop", "ploop",
         [](const std::string &p) { must(symlink("ploop", p.c_str()) == 0, p); }},
        {"parent is a dangling link into a missing directory", "pdang",
         [](const std::string &p) { must(symlink("nowhere/at/all", p.c_str()) == 0, p); }},
    };
    for (const Case &c : cases) {
        for (int32_t ugz : {0, 1}) {
            SCOPED_TRACE(std::string(c.what) + (ugz ? ", plain" : ", compressed"));
            const std::string blocker = dir_.file(c.blocker);
            unlink(blocker.c_str());
            c.make(blocker);
            const std::string before = read_file(blocker);
            const Names n = names_in(blocker + "/sub", ugz, "");
            Blk b;
            fill(b, 7);
            xml_file_hdl f = reg(mgr_.get(), n.base, "blk", &b, ugz);
            ASSERT_NE(f, nullptr);
            ASSERT_EQ(kavor_save_one(f), 0);
            mgr_.given();
            TraceCapture cap(4);
            mgr_.sweep();
            EXPECT_EQ(kavor_file_on_saving(f), 1);
            EXPECT_TRUE(mgr_.given());
            EXPECT_TRUE(cap.has(4, "save_para_using_xml", "save " + n.file + " error!")) << cap.dump();
            EXPECT_TRUE(cap.has(4, "xml_save_process", "xml(" + n.file + ") save failed, try again later."))
                << cap.dump();
            EXPECT_EQ(read_file(blocker), before);
            ASSERT_EQ(unlink(blocker.c_str()), 0);
            mgr_.sweep();
            EXPECT_EQ(kavor_file_on_saving(f), 0);
            EXPECT_EQ(parse_exact(n.base, ugz, n.file).gen(), 7);
            kavor_unregister(f);
            std::string rm = "rm -rf '" + blocker + "'";
            ASSERT_EQ(system(rm.c_str()), 0);
        }
    }
}

}  // namespace
