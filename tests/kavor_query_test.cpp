// Queries, deletion, the per-file lock, and the refusals of every entry point.

#include "kavor_fixture.h"

using namespace kvtest;

namespace {

class KavorQuery : public ::testing::Test {
protected:
    TempDir dir_;
    Mgr mgr_;
};

// The files' root names up to the first that doesn't fit, and the first file
// on saving whole or not at all ("" and -1): never a byte past the size given.
// A manager without files is woken all the same; the name on saving follows list order.
TEST_F(KavorQuery, NamesAndTheNameOnSavingFillTheBufferWholeOrNotAtAll)
{
    kavor_hdl m = mgr_.get();
    uint8_t buf[256];
    EXPECT_TRUE(kavor_count_all_filename(m) == 0 && kavor_get_all_filename(m, buf, sizeof buf) == 0);
    EXPECT_TRUE(kavor_save_all(m) == 0 && mgr_.given());
    kavor_file_t *net = reg(m, dir_.file("net"), "a", nullptr, 1), *user = reg(m, dir_.file("user.cfg"), "a", nullptr);
    reg(m, dir_.file("net"), "b", nullptr, 1), reg(m, dir_.file("a/net"), "n", nullptr, 1);
    EXPECT_TRUE(kavor_count_all_filename(m) == 3u && kavor_any_on_saving(m) == nullptr);
    const std::string name = dir_.file("net.xml") + '\0', z(1, '\0'), all("net\0user\0net", 13);
    const int32_t len = (int32_t)name.size() - 1;
    const struct { int marked; size_t size; int32_t ret; std::string bytes; } rows[] = {   // marked -1: the names
        {-1, 64, 3, all}, {-1, 13, 3, all}, {-1, 12, 2, all.substr(0, 9)}, {-1, 8, 1, all.substr(0, 4)}, {-1, 4, 1, all.substr(0, 4)},
        {-1, 3, 0, ""}, {-1, 0, 0, ""}, {0, 64 + name.size(), 0, z}, {1, 64 + name.size(), len, name}, {1, name.size(), len, name},
        {1, name.size() - 1, -1, z}, {1, 1, -1, z}, {1, 0, -1, ""},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(std::to_string(r.marked) + " " + std::to_string(r.size));
        memset(buf, 0xAA, sizeof buf);
        if (r.marked >= 0)
            saving_set(net->fcom, r.marked);
        TraceCapture cap(8);
        long got = r.marked < 0 ? (long)kavor_get_all_filename(m, buf, r.size) : kavor_any_on_saving_copy(m, (char *)buf, r.size);
        EXPECT_TRUE(got == r.ret && std::string((char *)buf, r.bytes.size()) == r.bytes) << got;
        for (size_t i = r.bytes.size(); i < sizeof buf; i++)
            ASSERT_EQ(buf[i], 0xAA) << "byte " << i << " written";
        const bool told = r.marked < 0 ? r.bytes.size() < all.size() : r.ret < 0;
        const char *fn = r.marked < 0 ? "kavor_get_all_filename" : "kavor_any_on_saving_copy";
        EXPECT_EQ(cap.records(), told ? std::vector<std::string>{std::string("4 ") + fn + ": buf is not big enough!"} : std::vector<std::string>{});
    }
    saving_set(net->fcom, 0);
    EXPECT_TRUE(kavor_save_one(user) == 0 && kavor_any_on_saving(m) == dir_.file("user.xml.gz"));
    EXPECT_TRUE(kavor_save_all(m) == 0 && kavor_any_on_saving(m) == dir_.file("net.xml"));
}

// NULL handles and buffers, standalone nodes and nodes of no file, a wake-up that
// fails: the result and, when traced, one level-4 record ("" rows: in silence).
TEST_F(KavorQuery, RefusedArgumentsGiveTheirResultAndOneRecord)
{
    Blk b;
    xml_file_hdl alone = reg(nullptr, dir_.file("alone"), "blk", &b), marked = reg(mgr_.get(), dir_.file("m"), "blk", &b);
    VN_SEM_ID sem = std::exchange(mgr_.get()->sem_sav, nullptr);
    kavor_fcom_t bare_fcom = {};
    kavor_file_t orphan = {}, bare = {};
    orphan.node_name = bare.node_name = const_cast<char *>("orphan");
    bare.fcom = &bare_fcom;
    xmlDocPtr rootless = xmlNewDoc(BAD_CAST "1.0");
    kavor_file_rgst_t one = request(dir_.file("one"), "n", pair_table(), &b, 1);
    char buf[8];
    kavor_hdl m = mgr_.get();
    const std::string N = ": kavor mobj is NULL.", H = ": xml_file_hdl is NULL.", no_doc = "kavor_write_copy: file name or document is NULL.",
                      no_rq = "kavor_register: xmlParamFile pointer NULL!", net = dir_.file("net");
    const struct { std::function<long()> call; long result; std::string record; } rows[] = {
        {[&] { return kavor_save_one(nullptr); }, -1, "kavor_save_one" + H}, {[&] { return kavor_save_all(nullptr); }, -1, "kavor_save_all" + N},
        {[&] { return kavor_save_one(alone); }, -1, "kavor_save_one: file node (blk) has no manager, not saved!"},
        {[&] { return kavor_save_one(&orphan); }, -1, "kavor_save_one: file node (orphan) has no manager, not saved!"},
        {[&] { return saving_set(marked->fcom, 0), kavor_save_one(marked); }, -1, "kavor_save_one: sem_give error!"},
        {[&] { return kavor_save_all(m); }, -1, "kavor_save_all: sem_give error!"},   // the mark stays: see below
        {[&] { return kavor_file_on_saving(nullptr); }, 0, "kavor_file_on_saving: xml file hdl is NULL."},
        {[&] { return kavor_file_on_saving(&orphan) + kavor_file_on_saving(alone); }, 0, ""},
        {[&] { return kavor_any_on_saving(nullptr) != nullptr; }, 0, "kavor_any_on_saving" + N}, {[&] { return kavor_load_one(nullptr); }, -1, "kavor_load_one" + H},
        {[&] { return kavor_load_one(alone); }, -1, "kavor_load_one: file node (blk) has no manager!"},
        {[&] { return kavor_load_one(&orphan); }, -1, "kavor_load_one: file node (orphan) has no manager!"},
        {[&] { return kavor_load_all(nullptr); }, -1, "kavor_load_all: kavor hdl is NULL."},
        {[&] { return kavor_count_all_filename(nullptr); }, 0, "kavor_count_all_filename" + N},
        {[&] { return kavor_get_all_filename(nullptr, reinterpret_cast<uint8_t *>(buf), 8); }, 0, "kavor_get_all_filename" + N},
        {[&] { return kavor_get_all_filename(m, nullptr, 8); }, 0, "kavor_get_all_filename: buf pointer NULL."},
        {[&] { return kavor_any_on_saving_copy(nullptr, buf, 8); }, -1, "kavor_any_on_saving_copy" + N},
        {[&] { return kavor_any_on_saving_copy(m, nullptr, 8); }, -1, "kavor_any_on_saving_copy: buf pointer NULL."},
        {[&] { return kavor_delete_all(nullptr), 0L; }, 0, "kavor_delete_all" + N}, {[&] { return kavor_delete_one(nullptr), kavor_delete_one(&orphan), 0L; }, 0, ""},
        {[&] { return kavor_file_lock(nullptr), 0L; }, 0, "kavor_file_lock" + H}, {[&] { return kavor_file_unlock(nullptr), 0L; }, 0, "kavor_file_unlock" + H},
        {[&] { return kavor_file_lock(&orphan), kavor_file_lock(&bare), kavor_file_unlock(&bare), kavor_file_unlock(&orphan), 0L; }, 0, ""},
        {[&] { return kavor_write_copy(nullptr, rootless); }, -1, no_doc}, {[&] { return kavor_write_copy(net.c_str(), nullptr); }, -1, no_doc},
        {[&] { return kavor_write_copy(net.c_str(), rootless); }, -1, no_doc},
        {[&] { return xmlParseNode(nullptr, alone), 0L; }, 0, "xmlParseNode: xmlParseNode: pRoot or fobj is NULL!"},
        {[&] { return kavor_param2file(nullptr); }, -1, no_rq}, {[&] { return kavor_file2param(nullptr); }, -1, no_rq},
        {[&] { return kavor_create(nullptr) != nullptr; }, 0, "kavor_create_v2: kavor module name NULL!"},
        {[&] { return kavor_param2file_v2(&one, 1u << 31); }, -1, "kavor_param2file_v2: unknown policy 0x80000000."},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.record);
        EXPECT_EQ(r.call(), r.result) << "untraced";
        TraceCapture cap(7);   // a request's progress record (level 8) aside
        EXPECT_EQ(r.call(), r.result);
        EXPECT_EQ(cap.records(), r.record.empty() ? std::vector<std::string>{} : std::vector<std::string>{"4 " + r.record});
    }
    EXPECT_TRUE(files_in(dir_.path()).empty() && kavor_file_on_saving(marked) == 1);
    mgr_.get()->sem_sav = sem;
    xmlFreeDoc(rootless);
    kavor_unregister(alone);
}

TEST_F(KavorQuery, DeleteRemovesOnlyTheFileAndItsBackupAndOneNodesLockHoldsTheFile)
{
    kavor_hdl m = mgr_.get();
    kavor_file_t *net = reg(m, dir_.file("net"), "a", nullptr, 0, dir_.file("v/net"));
    kavor_file_t *net_b = reg(m, dir_.file("net"), "b", nullptr), *user = reg(m, dir_.file("user"), "a", nullptr, 1);
    ASSERT_TRUE(net && net_b && user);
    mkdir(dir_.file("v").c_str(), 0777);
    for (const auto &n : {"net.xml.gz", "net.xml.bak.gz", "v/net.xml", "net.xml.gz.tmp.gz", "user.xml", "user.xml.bak"})
        ASSERT_TRUE(write_file(dir_.file(n), "data"));
    TraceCapture cap(8);
    kavor_delete_one(net_b);   // any node of the file deletes the whole file
    EXPECT_EQ(files_in(dir_.path()), (std::vector<std::string>{"net.xml.gz.tmp.gz", "user.xml", "user.xml.bak", "v"}));
    kavor_delete_one(net);   // nothing left on disk: nothing visible, nothing said
    EXPECT_TRUE(cap.records().empty()) << cap.dump();
    kavor_delete_all(m);
    EXPECT_EQ(files_in(dir_.path()), (std::vector<std::string>{"net.xml.gz.tmp.gz", "v"}));
    EXPECT_TRUE(file_exists(dir_.file("v/net.xml")) && kavor_count_all_filename(m) == 2u) << "registrations stay";
    // While one node holds the file's lock, nobody takes it through another node.
    auto busy = [](kavor_file_t *f) {   // an error-checking mutex: a holder's own try fails too
        pthread_mutex_t *m = static_cast<pthread_mutex_t *>(f->fcom->f_mutex);
        return pthread_mutex_trylock(m) != 0 || pthread_mutex_unlock(m) != 0;
    };
    EXPECT_FALSE(busy(net));
    kavor_file_lock(net);
    EXPECT_TRUE(busy(net_b) && !busy(user));
    kavor_file_unlock(net_b);
    EXPECT_FALSE(busy(net));
}

}  // namespace
