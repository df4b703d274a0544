// Queries, deletion and the per-file lock.
#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "kavor_fixture.h"
#include "trace_capture.h"

using namespace kvtest;

namespace {

class KavorQuery : public ::testing::Test {
protected:
    kavor_file_t *add(const std::string &file, const char *node, int32_t ugz = 1, const std::string &virt = "")
    {
        kavor_file_rgst_t r = request(dir_.file(file), node, nullptr, nullptr, ugz, virt);
        return kavor_register(mgr_.get(), &r);
    }
    TempDir dir_;
    Mgr mgr_;
};

// Each row: a buffer size, the names written, the bytes the buffer then
// holds, and whether "buf is not big enough!" was said. Nothing is ever
// written past the size given.
TEST_F(KavorQuery, NamesFillTheBufferUpToTheFirstNameThatDoesNotFit)
{
    uint8_t buf[80];
    EXPECT_EQ(kavor_count_all_filename(mgr_.get()), 0u);
    EXPECT_EQ(kavor_get_all_filename(mgr_.get(), buf, sizeof buf), 0u);
    add("net", "a"), add("net", "b"), add("user.cfg", "a", 0), add("a/net", "n");   // net counted once
    const struct { size_t size; uint32_t names; const char *bytes; size_t len; bool message; } rows[] = {
        {64, 3, "net\0user\0net", 13, false}, {13, 3, "net\0user\0net", 13, false}, {12, 2, "net\0user", 9, true},
        {8, 1, "net", 4, true}, {4, 1, "net", 4, true}, {3, 0, "", 0, true}, {0, 0, "", 0, true},
    };
    EXPECT_EQ(kavor_count_all_filename(mgr_.get()), 3u);
    for (const auto &r : rows) {
        SCOPED_TRACE(r.size);
        memset(buf, 0xAA, sizeof buf);
        TraceCapture cap(8);
        EXPECT_EQ(kavor_get_all_filename(mgr_.get(), buf, r.size), r.names);
        EXPECT_EQ(memcmp(buf, r.bytes, r.len), 0);
        for (size_t i = r.len; i < sizeof buf; i++)
            ASSERT_EQ(buf[i], 0xAA) << "byte " << i << " written";
        EXPECT_EQ(cap.has(4, "kavor_get_all_filename", "buf is not big enough!"), r.message) << cap.dump();
        EXPECT_EQ(cap.records().size(), r.message ? 1u : 0u) << cap.dump();
    }
}

// The first file on saving, copied under the manager's lock: the whole name
// or, when it doesn't fit, an empty string and -1; never a cut name, and
// never a byte past the buffer.
TEST_F(KavorQuery, TheNameOnSavingIsCopiedWholeOrNotAtAll)
{
    kavor_file_t *net = add("net", "a");
    ASSERT_NE(add("user", "a"), nullptr);
    const std::string name = dir_.file("net.xml");
    const int32_t len = (int32_t)name.size();
    const struct { bool marked; size_t size; int32_t ret; const char *text; bool message; } rows[] = {
        {false, 64 + name.size(), 0, "", false}, {true, 64 + name.size(), len, name.c_str(), false},
        {true, name.size() + 1, len, name.c_str(), false}, {true, name.size(), -1, "", true},
        {true, 1, -1, "", true}, {true, 0, -1, nullptr, true},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.size);
        saving_set(net->fcom, r.marked ? 1 : 0);
        char buf[256];
        memset(buf, 0x55, sizeof buf);
        TraceCapture cap(8);
        EXPECT_EQ(kavor_any_on_saving_copy(mgr_.get(), buf, r.size), r.ret);
        EXPECT_TRUE(r.text == nullptr || std::string(buf) == r.text);
        for (size_t i = r.text != nullptr ? strlen(r.text) + 1 : 0; i < sizeof buf; i++)
            ASSERT_EQ(buf[i], 0x55) << "byte " << i << " written";
        EXPECT_EQ(cap.has(4, "kavor_any_on_saving_copy", "buf is not big enough!"), r.message) << cap.dump();
        EXPECT_EQ(cap.records().size(), r.message ? 1u : 0u) << cap.dump();
    }
}

// Every entry point refuses a NULL handle or buffer, a standalone node and a
// node of no file (or of a file without its lock) with its result and, when
// traced, one level-4 record; "" rows are refused in silence.
TEST_F(KavorQuery, RefusedArgumentsGiveTheirResultAndOneRecord)
{
    Blk b;
    xml_file_hdl alone = reg(nullptr, dir_.file("alone"), "blk", &b);
    kavor_fcom_t bare_fcom = {};
    kavor_file_t orphan = {}, bare = {};
    orphan.node_name = bare.node_name = const_cast<char *>("orphan");
    bare.fcom = &bare_fcom;
    xmlDocPtr rootless = xmlNewDoc(BAD_CAST "1.0");
    char buf[8];
    kavor_hdl m = mgr_.get();
    const std::string null_mgr = ": kavor mobj is NULL.", null_hdl = ": xml_file_hdl is NULL.", no_doc = "kavor_write_copy: file name or document is NULL.";
    const struct { std::function<long()> call; long result; std::string record; } rows[] = {
        {[&] { return kavor_save_one(nullptr); }, -1, "kavor_save_one" + null_hdl},
        {[&] { return kavor_save_one(alone); }, -1, "kavor_save_one: file node (blk) has no manager, not saved!"},
        {[&] { return kavor_save_one(&orphan); }, -1, "kavor_save_one: file node (orphan) has no manager, not saved!"},
        {[&] { return kavor_save_all(nullptr); }, -1, "kavor_save_all" + null_mgr},
        {[&] { return kavor_file_on_saving(nullptr); }, 0, "kavor_file_on_saving: xml file hdl is NULL."},
        {[&] { return kavor_file_on_saving(&orphan) + kavor_file_on_saving(alone); }, 0, ""},
        {[&] { return kavor_any_on_saving(nullptr) != nullptr; }, 0, "kavor_any_on_saving" + null_mgr},
        {[&] { return kavor_load_one(nullptr); }, -1, "kavor_load_one" + null_hdl},
        {[&] { return kavor_load_one(alone); }, -1, "kavor_load_one: file node (blk) has no manager!"},
        {[&] { return kavor_load_one(&orphan); }, -1, "kavor_load_one: file node (orphan) has no manager!"},
        {[&] { return kavor_load_all(nullptr); }, -1, "kavor_load_all: kavor hdl is NULL."},
        {[&] { return kavor_count_all_filename(nullptr); }, 0, "kavor_count_all_filename" + null_mgr},
        {[&] { return kavor_get_all_filename(nullptr, reinterpret_cast<uint8_t *>(buf), 8); }, 0, "kavor_get_all_filename" + null_mgr},
        {[&] { return kavor_get_all_filename(m, nullptr, 8); }, 0, "kavor_get_all_filename: buf pointer NULL."},
        {[&] { return kavor_any_on_saving_copy(nullptr, buf, 8); }, -1, "kavor_any_on_saving_copy" + null_mgr},
        {[&] { return kavor_any_on_saving_copy(m, nullptr, 8); }, -1, "kavor_any_on_saving_copy: buf pointer NULL."},
        {[&] { return kavor_delete_all(nullptr), 0L; }, 0, "kavor_delete_all" + null_mgr},
        {[&] { return kavor_delete_one(nullptr), kavor_delete_one(&orphan), 0L; }, 0, ""},
        {[&] { return kavor_file_lock(nullptr), 0L; }, 0, "kavor_file_lock" + null_hdl},
        {[&] { return kavor_file_unlock(nullptr), 0L; }, 0, "kavor_file_unlock" + null_hdl},
        {[&] { return kavor_file_lock(&orphan), kavor_file_lock(&bare), kavor_file_unlock(&bare), kavor_file_unlock(&orphan), 0L; }, 0, ""},
        {[&] { return kavor_write_copy(nullptr, rootless); }, -1, no_doc},
        {[&] { return kavor_write_copy(dir_.file("net").c_str(), nullptr); }, -1, no_doc},
        {[&] { return kavor_write_copy(dir_.file("net").c_str(), rootless); }, -1, no_doc},
        {[&] { return xmlParseNode(nullptr, alone), 0L; }, 0, "xmlParseNode: xmlParseNode: pRoot or fobj is NULL!"},
        {[&] { return kavor_param2file(nullptr); }, -1, "kavor_register: xmlParamFile pointer NULL!"},
        {[&] { return kavor_file2param(nullptr); }, -1, "kavor_register: xmlParamFile pointer NULL!"},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.record);
        EXPECT_EQ(r.call(), r.result) << "untraced";
        TraceCapture cap(8);
        EXPECT_EQ(r.call(), r.result);
        EXPECT_EQ(cap.records(), r.record.empty() ? std::vector<std::string>{} : std::vector<std::string>{"4 " + r.record});
    }
    EXPECT_TRUE(files_in(dir_.path()).empty());
    xmlFreeDoc(rootless);
    kavor_unregister(alone);
}

TEST_F(KavorQuery, DeleteRemovesOnlyTheFileAndItsBackup)
{
    kavor_file_t *net = add("net", "a", 0, dir_.file("v/net")), *net_b = add("net", "b", 0), *user = add("user", "a", 1);
    ASSERT_TRUE(net && net_b && user);
    const std::string net_files[] = {"net.xml.gz", "net.xml.bak.gz"}, kept[] = {"v/net.xml", "net.xml.gz.tmp.gz"};
    mkdir(dir_.file("v").c_str(), 0777);
    for (const auto &n : {"net.xml.gz", "net.xml.bak.gz", "v/net.xml", "net.xml.gz.tmp.gz", "user.xml", "user.xml.bak"})
        ASSERT_TRUE(write_file(dir_.file(n), "data"));
    TraceCapture cap(8);
    kavor_delete_one(net_b);   // any node of the file deletes the whole file
    for (const auto &n : net_files)
        EXPECT_FALSE(file_exists(dir_.file(n))) << n;
    for (const auto &n : kept)
        EXPECT_TRUE(file_exists(dir_.file(n))) << n;
    EXPECT_TRUE(file_exists(dir_.file("user.xml")));
    kavor_delete_one(net);   // nothing left on disk: nothing visible, nothing said
    EXPECT_TRUE(cap.records().empty()) << cap.dump();
    kavor_delete_all(mgr_.get());
    EXPECT_FALSE(file_exists(dir_.file("user.xml")) || file_exists(dir_.file("user.xml.bak")));
    EXPECT_TRUE(file_exists(dir_.file("v/net.xml")));
    EXPECT_EQ(kavor_count_all_filename(mgr_.get()), 2u) << "registrations stay";
}

// While one node holds the file's lock, nobody takes it through another node.
TEST_F(KavorQuery, LockingOneNodeLocksTheWholeFile)
{
    kavor_file_t *a = add("net", "a"), *b = add("net", "b"), *other = add("user", "a");
    auto busy = [](kavor_file_t *f) {   // whether another thread can't take it
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
