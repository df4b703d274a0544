// Allocation failures over a full save and a full load: the Nth allocation
// of the library's own allocator (the stand-in hook) and the Nth allocation
// of libxml2 (a failing xmlMemSetup) fail in turn, for every N that the
// operation reaches. Each run ends without a crash, with a documented result
// (a save writes the whole new document or leaves the stored copies byte
// for byte; a load gives 0, 1 or -1 and touches no block on -1), and
// without a leak of a library block or, after the reader's buffers are
// freed, of a libxml2 block.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <string.h>

#include <string>
#include <utility>

#include <libxml/parser.h>
#include <libxml/xmlmemory.h>
#include <zlib.h>

#include "kavor_save_fixture.h"
#include "request.h"
#include "trace_capture.h"
#include "vn_mem.h"
#include "vn_mem_hook.h"
#include "xml_alloc.h"

using namespace kvtest;

namespace {

// ---- a block with a row of every kind ------------------------------------------

struct RNode {
    struct znode z;
    int32_t v;
};
struct RAlt {
    struct znode z;
    char s[8];
};
struct RItem {
    int32_t id;
    char tag[6];
};
struct RBlk {
    char name[16];
    int32_t s[4];
    uint16_t u;
    double d[2];
    int mode;
    struct RItem items[2];
    int32_t *buf[2];
    int buf_n[2];
    struct RItem *ibuf[1];
    int ibuf_n[1];
    zhead_t list;
    zhead_t vl;
};

struct enume r_modes[] = {PX_ENUME("off", 0), PX_ENUME("on", 1), PX_ENUME_END(0)};
struct pdesc r_node_table[] = {PX_SINT(RNode, v, "v"), PX_END};
struct pdesc r_alt_table[] = {PX_STRI(RAlt, s, "s"), PX_END};
struct pdesc r_item_table[] = {PX_SINT(RItem, id, "id"), PX_STRI(RItem, tag, "tag"), PX_END};
struct adesc r_alts[] = {PX_ADESC(RNode, r_node_table, "num"), PX_ADESC(RAlt, r_alt_table, "txt"),
                         PX_ADESC_END};
struct pdesc r_table[] = {
    PX_STRI(RBlk, name, "name"),
    PX_SINT_ARR(RBlk, s, "s"),
    PX_UINT_HEX(RBlk, u, "u"),
    PX_FLOT_ARR(RBlk, d, "d"),
    PX_ENUM(RBlk, mode, "mode", r_modes),
    PX_STRU_ARR(RBlk, items, "items", r_item_table),
    PX_SINT_COB(RBlk, buf, buf_n, "buf"),
    PX_STRU_COB(RBlk, ibuf, ibuf_n, "ibuf", r_item_table),
    PX_LIST(RBlk, list, RNode, "list", r_node_table),
    PX_VLST(RBlk, vl, "vl", r_alts),
    PX_END,
};

// Generation g of the block, its buffers and nodes from malloc (the
// reader's are freed through free_block as well: both use the C heap).
void make_block(RBlk *b, int g)
{
    memset(b, 0, sizeof *b);
    snprintf(b->name, sizeof b->name, "dev%d", g);
    for (int i = 0; i < 4; i++)
        b->s[i] = g * 10 - i;
    b->u = (uint16_t)(0xab00 + g);
    b->d[0] = g + 0.5;
    b->d[1] = -g;
    b->mode = g % 2;
    for (int i = 0; i < 2; i++) {
        b->items[i].id = g + i;
        snprintf(b->items[i].tag, sizeof b->items[i].tag, "t%d", i);
        b->buf_n[i] = 3 + i;
        b->buf[i] = static_cast<int32_t *>(calloc((size_t)b->buf_n[i], sizeof(int32_t)));
        for (int k = 0; k < b->buf_n[i]; k++)
            b->buf[i][k] = g * 100 + k;
    }
    b->ibuf_n[0] = 2;
    b->ibuf[0] = static_cast<RItem *>(calloc(2, sizeof(RItem)));
    b->ibuf[0][1].id = g;
    for (int i = 0; i < 3; i++) {
        RNode *n = static_cast<RNode *>(calloc(1, sizeof(RNode)));
        n->v = g + i;
        zlst_push(&b->list, n);
    }
    RAlt *a = static_cast<RAlt *>(calloc(1, sizeof(RAlt)));
    zlst_set_name(a, "txt");
    snprintf(a->s, sizeof a->s, "g%d", g);
    zlst_push(&b->vl, a);
    RNode *n = static_cast<RNode *>(calloc(1, sizeof(RNode)));
    zlst_set_name(n, "num");
    n->v = -g;
    zlst_push(&b->vl, n);
}

void free_block(RBlk *b)
{
    param_xml_free(b, r_table);
    memset(b, 0, sizeof *b);
}

// The document of a block's node, for comparing blocks.
std::string text_of(RBlk *b)
{
    xmlNodePtr n = xmlNewNode(nullptr, BAD_CAST "x");
    param2xml(b, n, r_table);
    std::string s = dump_children(n);
    xmlFreeNode(n);
    return s;
}

kavor_file_rgst_t request(const std::string &path, RBlk *b, const char *node = "dev")
{
    return make_request(path, node, r_table, b, 0);
}

// Which allocator fails in a sweep.
enum Source { LIBRARY, LIBXML2 };
const char *name_of(Source s) { return s == LIBRARY ? "library allocator" : "libxml2 allocator"; }

// Runs `op` with the nth allocation of `src` failing; returns false once n
// lies beyond what the operation allocates (the run then had no failure).
bool with_failure(Source src, XmlAlloc &xa, long n, const std::function<void()> &op)
{
    unsigned long lib0 = vn_mem_calls();
    long xml0 = xa.calls();
    if (src == LIBRARY)
        vn_mem_fail_nth((unsigned long)n);
    else
        xa.fail_nth(n);
    unsigned long refused0 = vn_mem_refused();
    op();
    bool refused = src == LIBRARY ? vn_mem_refused() > refused0 : xa.failed();
    vn_mem_fail_nth(0);
    xa.fail_nth(0);
    bool reached = src == LIBRARY ? vn_mem_calls() - lib0 >= (unsigned long)n
                                  : xa.calls() - xml0 >= n;
    // A sweep proves something only if the chosen allocation was refused.
    EXPECT_EQ(refused, reached) << name_of(src) << ", allocation " << n;
    return reached;
}

class ResourceBounds : public ::testing::TestWithParam<Source> {
protected:
    TempDir dir_;
};

// ---- a full save ----------------------------------------------------------------

// What a file holds, read into a fresh block, as a document text; "" when
// it can't be loaded.
std::string stored_text(const std::string &base, const char *node)
{
    RBlk got;
    memset(&got, 0, sizeof got);
    kavor_file_rgst_t r = request(base, &got, node);
    std::string s = kavor_file2param(&r) == 0 ? text_of(&got) : "";
    free_block(&got);
    return s;
}

// A save followed by a load, once, so that libxml2 has set up what it keeps
// for the whole process before blocks are counted.
void warm_up(const std::string &dir)
{
    RBlk b;
    make_block(&b, 0);
    kavor_file_rgst_t r = request(dir + "/warm", &b, "dev");
    kavor_param2file(&r);
    stored_text(dir + "/warm", "dev");
    free_block(&b);
}

// A managed file of two nodes with a file and a backup on disk is
// registered and saved under the failure: a failed save leaves the stored
// copies byte for byte and the file marked, and its retry saves; a save
// that went through holds the new document, short of a row only where the
// writer said so at level 4.
TEST_P(ResourceBounds, EveryFailedAllocationOfAManagedSaveKeepsTheCopiesOrSavesTheDocument)
{
    const Source src = GetParam();
    SysRecorder sys;   // sync does nothing here
    XmlAlloc xa;
    warm_up(dir_.path());
    RBlk a, b;
    make_block(&a, 1);
    make_block(&b, 1);
    {
        const std::string base = dir_.file("net");
        SweepManager mgr;
        kavor_file_rgst_t ra = request(base, &a, "a"), rb = request(base, &b, "b");
        xml_file_hdl fa = kavor_register(mgr.get(), &ra);
        ASSERT_NE(kavor_register(mgr.get(), &rb), nullptr);
        for (int g = 1; g <= 2; g++) {
            kavor_save_one(fa);
            mgr.sweep();
        }
    }
    // The file's directory is there with both copies, or the save has to
    // make it (a new one each run), so the directory maker is swept too.
    for (bool new_dir : {false, true}) {
        long n = 1, unmade = 0;
        for (;; n++) {
            SCOPED_TRACE(std::string(name_of(src)) + (new_dir ? ", new directory" : "") +
                         ", allocation " + std::to_string(n));
            const std::string dir = new_dir ? dir_.file("new" + std::to_string(n)) : dir_.path();
            const std::string base = dir + "/net", F = base + ".xml.gz", B = base + ".xml.bak.gz";
            a.s[0] = b.s[0] = (int32_t)n + 2;
            const std::string file_before = read_file(F), bak_before = read_file(B);
            long lib_live = vn_mem_live(), xml_live = xa.live();
            bool reached;
            {
                SweepManager mgr;
                kavor_file_rgst_t ra = request(base, &a, "a"), rb = request(base, &b, "b");
                xml_file_hdl fa = nullptr, fb = nullptr;
                TraceCapture cap(4);
                reached = with_failure(src, xa, n, [&] {
                    fa = kavor_register(mgr.get(), &ra);
                    fb = kavor_register(mgr.get(), &rb);
                    if (fa != nullptr && fb != nullptr) {
                        kavor_save_one(fb);
                        mgr.sweep();
                    }
                });
                if (fa == nullptr || fb == nullptr) {
                    // A refused registration (in silence where a name can't be
                    // copied) touches no disk.
                    EXPECT_EQ(read_file(F), file_before);
                    EXPECT_EQ(read_file(B), bak_before);
                } else {
                    if (kavor_file_on_saving(fa) != 0) {
                        unmade += !file_exists(dir);
                        EXPECT_EQ(read_file(F), file_before) << "the file, byte for byte";
                        EXPECT_EQ(read_file(B), bak_before) << "the backup, byte for byte";
                        EXPECT_TRUE(cap.has(4, "xml_save_process",
                                            "xml(" + F + ") save failed, try again later."))
                            << cap.dump();
                        EXPECT_TRUE(mgr.given()) << "a failed save wakes the task";
                        cap.clear();
                        mgr.sweep();
                    }
                    EXPECT_EQ(kavor_file_on_saving(fa), 0);
                    // The last copy became the backup, unless the failure made the
                    // file look broken to the save, which then keeps the backup.
                    const std::string bak = read_file(B);
                    EXPECT_TRUE(bak == file_before || bak == bak_before)
                        << "the backup is a stored copy";
                    for (auto node : {std::make_pair("a", &a), std::make_pair("b", &b)}) {
                        std::string got = stored_text(base, node.first);
                        EXPECT_FALSE(got.empty()) << "the saved file loads";
                        if (got != text_of(node.second)) {
                            EXPECT_GT(cap.count_at_most(4), 0u)
                                << "a row lost without a word: " << got;
                        }
                    }
                }
                kavor_unregister(fa);
                kavor_unregister(fb);
            }
            EXPECT_EQ(vn_mem_live(), lib_live) << "library blocks leaked";
            EXPECT_EQ(xa.live(), xml_live) << "libxml2 blocks leaked";
            if (!reached || ::testing::Test::HasFailure())
                break;
        }
        EXPECT_GT(n, 1) << "the save allocates";
        if (new_dir && src == LIBRARY) {
            EXPECT_GT(unmade, 0) << "no failed allocation of the directory maker failed the save";
        }
    }
    free_block(&a);
    free_block(&b);
}

// The one-shot save: -1, or a target that holds the document, short of a
// row only where the writer said so.
TEST_P(ResourceBounds, EveryFailedAllocationOfAOneShotSaveLeavesTheTargetWholeOrUntouched)
{
    const Source src = GetParam();
    XmlAlloc xa;
    warm_up(dir_.path());
    RBlk blk;
    make_block(&blk, 4);
    const std::string F = dir_.file("one.xml.gz");
    const std::string before = "not yet written";
    long n = 1;
    for (;; n++) {
        SCOPED_TRACE(std::string(name_of(src)) + ", allocation " + std::to_string(n));
        ASSERT_TRUE(write_file(F, before));
        long lib_live = vn_mem_live(), xml_live = xa.live();
        kavor_file_rgst_t r = request(dir_.file("one"), &blk, "dev");
        int32_t rc = -2;
        TraceCapture cap(4);
        bool reached = with_failure(src, xa, n, [&] { rc = kavor_param2file(&r); });
        if (rc == 0) {
            std::string got = stored_text(dir_.file("one"), "dev");
            EXPECT_FALSE(got.empty()) << "the written file loads";
            if (got != text_of(&blk)) {
                EXPECT_GT(cap.count_at_most(4), 0u) << "a row lost without a word: " << got;
            }
        } else {
            // The one-shot save writes in place: a write that failed may
            // have cut the target, which is its documented risk.
            EXPECT_EQ(rc, -1);
        }
        EXPECT_EQ(vn_mem_live(), lib_live);
        EXPECT_EQ(xa.live(), xml_live);
        if (!reached || ::testing::Test::HasFailure())
            break;
    }
    EXPECT_GT(n, 1);
    free_block(&blk);
}

// ---- a full load -------------------------------------------------------------------

// A main file that neither parser can use beside a whole backup, so the
// load runs both parsers and the fall-back; then a whole main file.
TEST_P(ResourceBounds, EveryFailedAllocationOfALoadGivesADocumentedResultAndLeaksNothing)
{
    const Source src = GetParam();
    XmlAlloc xa;
    warm_up(dir_.path());
    RBlk want;
    make_block(&want, 6);
    const std::string base = dir_.file("cfg");
    {
        kavor_file_rgst_t r = request(base, &want, "dev");
        ASSERT_EQ(kavor_param2file(&r), 0);
    }
    const std::string whole = read_file(base + ".xml.gz");
    ASSERT_TRUE(write_file(base + ".xml.bak.gz", whole));
    const std::string expected = text_of(&want);

    for (bool bad_main : {true, false}) {
        if (bad_main) {
            gzFile gz = gzopen((base + ".xml.gz").c_str(), "wb");
            ASSERT_NE(gz, nullptr);
            const std::string doc = "<?xml version=\"1.0\"?>\n<<<not a document" + expected;
            gzwrite(gz, doc.data(), (unsigned)doc.size());
            gzclose(gz);
        } else {
            ASSERT_TRUE(write_file(base + ".xml.gz", whole));
        }
        long n = 1;
        for (;; n++) {
            SCOPED_TRACE(std::string(name_of(src)) + (bad_main ? ", bad main" : ", whole main") +
                         ", allocation " + std::to_string(n));
            long lib_live = vn_mem_live(), xml_live = xa.live();
            RBlk got;
            memset(&got, 0, sizeof got);
            strcpy(got.name, "untouched");
            int32_t rc = -2;
            bool reached;
            {
                BareManager mgr;
                kavor_file_rgst_t r = request(base, &got, "dev");
                reached = with_failure(src, xa, n, [&] {
                    xml_file_hdl h = kavor_register(mgr.get(), &r);
                    rc = h != nullptr ? kavor_load_one(h) : -1;
                    kavor_unregister(h);
                });
            }
            EXPECT_TRUE(rc == 0 || rc == 1 || rc == -1) << rc;
            if (rc == -1) {
                EXPECT_STREQ(got.name, "untouched") << "-1 touches no block";
            } else if (!reached) {
                EXPECT_EQ(rc, 0);
                EXPECT_EQ(text_of(&got), expected);
            }
            free_block(&got);
            EXPECT_EQ(vn_mem_live(), lib_live) << "library blocks leaked";
            EXPECT_EQ(xa.live(), xml_live) << "libxml2 blocks leaked";
            if (!reached || ::testing::Test::HasFailure())
                break;
        }
        EXPECT_GT(n, 1);
    }
    free_block(&want);
}

INSTANTIATE_TEST_SUITE_P(Allocators, ResourceBounds, ::testing::Values(LIBRARY, LIBXML2),
                         [](const ::testing::TestParamInfo<Source> &i) {
                             return std::string(i.param == LIBRARY ? "Library" : "Libxml2");
                         });

TEST(ResourceBoundsTables, TheTableOfTheseTestsPassesTheTableCheck)
{
    EXPECT_EQ(param_xml_check(r_table), 0);
}

}  // namespace
