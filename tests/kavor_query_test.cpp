// Queries, deletion and locks: counting and naming a manager's files within
// a caller's buffer, removing a file's copies on disk, and the per-file lock.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/stat.h>
#include <string.h>

#include <string>
#include <thread>

#include "bare_manager.h"
#include "kavor_private.h"
#include "request.h"
#include "test_util.h"
#include "trace_capture.h"

namespace {

kavor_file_rgst_t request(const std::string &file, const char *node, int32_t ugz = 1,
                          const std::string &virt = "")
{
    return make_request(file, node, nullptr, nullptr, ugz, virt);
}

class KavorQuery : public ::testing::Test {
protected:
    kavor_file_t *add(const std::string &file, const char *node, int32_t ugz = 1,
                      const std::string &virt = "")
    {
        kavor_file_rgst_t r = request(file, node, ugz, virt);
        return kavor_register(mgr_.get(), &r);
    }
    TempDir dir_;
    BareManager mgr_;
};

TEST_F(KavorQuery, NamesFillTheBufferUpToTheFirstNameThatDoesNotFit)
{
    ASSERT_NE(add(dir_.file("net"), "a"), nullptr);
    ASSERT_NE(add(dir_.file("net"), "b"), nullptr);  // same file: counted once
    ASSERT_NE(add(dir_.file("user.cfg"), "a", 0), nullptr);
    struct {
        size_t size;
        uint32_t names;
        const char *bytes;  // what the buffer holds, "net\0user\0" as far as written
        size_t len;
        bool message;
    } rows[] = {
        {64, 2, "net\0user", 9, false}, {9, 2, "net\0user", 9, false},
        {8, 1, "net", 4, true},         {4, 1, "net", 4, true},
        {3, 0, "", 0, true},            {0, 0, "", 0, true},
    };
    EXPECT_EQ(kavor_count_all_filename(mgr_.get()), 2u);
    for (const auto &r : rows) {
        SCOPED_TRACE(r.size);
        uint8_t buf[80];
        memset(buf, 0xAA, sizeof(buf));
        TraceCapture cap(8);
        EXPECT_EQ(kavor_get_all_filename(mgr_.get(), buf, r.size), r.names);
        EXPECT_EQ(memcmp(buf, r.bytes, r.len), 0);
        for (size_t i = r.len; i < sizeof(buf); i++)
            ASSERT_EQ(buf[i], 0xAA) << "byte " << i << " written";
        EXPECT_EQ(cap.has(4, "kavor_get_all_filename", "buf is not big enough!"), r.message)
            << cap.dump();
        EXPECT_EQ(cap.records().size(), r.message ? 1u : 0u) << cap.dump();
    }
}

// The first file on saving, copied under the manager's lock: the whole name
// or, when it doesn't fit, an empty string and -1; never a cut name, and
// never a byte past the buffer.
TEST_F(KavorQuery, TheNameOnSavingIsCopiedWholeOrNotAtAll)
{
    kavor_file_t *net = add(dir_.file("net"), "a");
    ASSERT_NE(add(dir_.file("user"), "a"), nullptr);
    const std::string name = dir_.file("net.xml");
    const int32_t len = (int32_t)name.size();
    struct {
        bool marked;
        size_t size;
        int32_t ret;
        const char *text;  // the buffer's string, nullptr: not written at all
        bool message;      // "buf is not big enough!"
    } rows[] = {
        {false, 64 + name.size(), 0, "", false}, {true, 64 + name.size(), len, name.c_str(), false},
        {true, name.size() + 1, len, name.c_str(), false}, {true, name.size(), -1, "", true},
        {true, 1, -1, "", true},                  {true, 0, -1, nullptr, true},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.size);
        saving_set(net->fcom, r.marked ? 1 : 0);
        char buf[256];
        memset(buf, 0x55, sizeof(buf));
        TraceCapture cap(8);
        EXPECT_EQ(kavor_any_on_saving_copy(mgr_.get(), buf, r.size), r.ret);
        size_t written = r.text != nullptr ? strlen(r.text) + 1 : 0;
        if (r.text != nullptr) {
            EXPECT_STREQ(buf, r.text);
        }
        for (size_t i = written; i < sizeof(buf); i++)
            ASSERT_EQ(buf[i], 0x55) << "byte " << i << " written";
        EXPECT_EQ(cap.has(4, "kavor_any_on_saving_copy", "buf is not big enough!"), r.message)
            << cap.dump();
        EXPECT_EQ(cap.records().size(), r.message ? 1u : 0u) << cap.dump();
    }
}

TEST_F(KavorQuery, OneStemInTwoDirectoriesGivesTwoEqualNames)
{
    ASSERT_NE(add(dir_.file("a/net"), "n"), nullptr);
    ASSERT_NE(add(dir_.file("b/net"), "n"), nullptr);
    uint8_t buf[16];
    EXPECT_EQ(kavor_get_all_filename(mgr_.get(), buf, sizeof(buf)), 2u);
    EXPECT_EQ(memcmp(buf, "net\0net", 8), 0);
}

TEST_F(KavorQuery, AnEmptyManagerGivesNothingAndSaysNothing)
{
    uint8_t buf[4] = {1, 2, 3, 4};
    TraceCapture cap(8);
    EXPECT_EQ(kavor_count_all_filename(mgr_.get()), 0u);
    EXPECT_EQ(kavor_get_all_filename(mgr_.get(), buf, 0), 0u);
    EXPECT_EQ(kavor_get_all_filename(mgr_.get(), buf, sizeof(buf)), 0u);
    EXPECT_EQ(buf[0], 1);
    EXPECT_TRUE(cap.records().empty()) << cap.dump();
}

TEST_F(KavorQuery, NullArgumentsAreRefusedWithTheirMessage)
{
    kavor_file_t *f = add(dir_.file("net"), "n");
    uint8_t buf[8];
    struct {
        const char *what;
        void (*call)(kavor_hdl, kavor_file_t *, uint8_t *);
        const char *func, *msg;
    } rows[] = {
        {"count", [](kavor_hdl, kavor_file_t *, uint8_t *) { EXPECT_EQ(kavor_count_all_filename(nullptr), 0u); },
         "kavor_count_all_filename", "kavor mobj is NULL."},
        {"names", [](kavor_hdl, kavor_file_t *, uint8_t *b) { EXPECT_EQ(kavor_get_all_filename(nullptr, b, 8), 0u); },
         "kavor_get_all_filename", "kavor mobj is NULL."},
        {"buf", [](kavor_hdl m, kavor_file_t *, uint8_t *) { EXPECT_EQ(kavor_get_all_filename(m, nullptr, 8), 0u); },
         "kavor_get_all_filename", "buf pointer NULL."},
        {"copy", [](kavor_hdl, kavor_file_t *, uint8_t *b) { EXPECT_EQ(kavor_any_on_saving_copy(nullptr, (char *)b, 8), -1); },
         "kavor_any_on_saving_copy", "kavor mobj is NULL."},
        {"copy buf", [](kavor_hdl m, kavor_file_t *, uint8_t *) { EXPECT_EQ(kavor_any_on_saving_copy(m, nullptr, 8), -1); },
         "kavor_any_on_saving_copy", "buf pointer NULL."},
        {"delete_all", [](kavor_hdl, kavor_file_t *, uint8_t *) { kavor_delete_all(nullptr); },
         "kavor_delete_all", "kavor mobj is NULL."},
        {"lock", [](kavor_hdl, kavor_file_t *, uint8_t *) { kavor_file_lock(nullptr); },
         "kavor_file_lock", "xml_file_hdl is NULL."},
        {"unlock", [](kavor_hdl, kavor_file_t *, uint8_t *) { kavor_file_unlock(nullptr); },
         "kavor_file_unlock", "xml_file_hdl is NULL."},
    };
    for (const auto &r : rows) {
        TraceCapture cap(8);
        r.call(mgr_.get(), f, buf);
        EXPECT_TRUE(cap.has(4, r.func, r.msg)) << r.what << "\n" << cap.dump();
        EXPECT_EQ(cap.records().size(), 1u) << cap.dump();
    }
    TraceCapture cap(8);
    kavor_delete_one(nullptr);
    EXPECT_TRUE(cap.records().empty()) << cap.dump();
}

TEST_F(KavorQuery, DeleteRemovesOnlyTheFileAndItsBackup)
{
    kavor_file_t *net = add(dir_.file("net"), "a", 0, dir_.file("v/net"));
    kavor_file_t *net_b = add(dir_.file("net"), "b", 0);
    kavor_file_t *user = add(dir_.file("user"), "a", 1);
    const std::string net_files[] = {"net.xml.gz", "net.xml.bak.gz"};
    const std::string kept[] = {"v/net.xml", "net.xml.gz.tmp.gz", "user.xml", "user.xml.bak"};
    mkdir(dir_.file("v").c_str(), 0777);
    for (const auto &n : net_files)
        ASSERT_TRUE(write_file(dir_.file(n), "data"));
    for (const auto &n : kept)
        ASSERT_TRUE(write_file(dir_.file(n), "data"));
    TraceCapture cap(8);
    kavor_delete_one(net_b);  // any node of the file deletes the whole file
    for (const auto &n : net_files)
        EXPECT_FALSE(file_exists(dir_.file(n))) << n;
    for (const auto &n : kept)
        EXPECT_TRUE(file_exists(dir_.file(n))) << n;
    kavor_delete_one(net);  // nothing left on disk: nothing visible, nothing said
    EXPECT_TRUE(cap.records().empty()) << cap.dump();
    EXPECT_EQ(net->fcom->is_saving, 0);
    EXPECT_EQ(kavor_count_all_filename(mgr_.get()), 2u);

    kavor_delete_all(mgr_.get());
    EXPECT_FALSE(file_exists(dir_.file("user.xml")));
    EXPECT_FALSE(file_exists(dir_.file("user.xml.bak")));
    EXPECT_TRUE(file_exists(dir_.file("v/net.xml")));
    EXPECT_EQ(kavor_count_all_filename(mgr_.get()), 2u);
    EXPECT_NE(user->fcom, nullptr);
}

// The lock is the file's own mutex, shared by all its nodes: while one node
// holds it, nobody can take it through another node.
TEST_F(KavorQuery, LockingOneNodeLocksTheWholeFile)
{
    kavor_file_t *a = add(dir_.file("net"), "a");
    kavor_file_t *b = add(dir_.file("net"), "b");
    kavor_file_t *other = add(dir_.file("user"), "a");
    auto busy = [](kavor_file_t *f) {
        int rc = -1;
        std::thread t([&] {
            rc = pthread_mutex_trylock(static_cast<pthread_mutex_t *>(f->fcom->f_mutex));
            if (rc == 0)
                pthread_mutex_unlock(static_cast<pthread_mutex_t *>(f->fcom->f_mutex));
        });
        t.join();
        return rc != 0;
    };
    EXPECT_FALSE(busy(a));
    kavor_file_lock(a);
    EXPECT_TRUE(busy(b));
    EXPECT_FALSE(busy(other));
    kavor_file_unlock(b);
    EXPECT_FALSE(busy(a));
}

}  // namespace
