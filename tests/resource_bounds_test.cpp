// Every allocation of both allocators failing in turn over a managed save, a
// one-shot save and a load: the documented result, never an incomplete
// document handed to the writer, and no leak.
#include "codec_util.h"
#include "kavor_fixture.h"
#include "sweep.h"

using namespace kvtest;

namespace {

class ResourceBounds : public ::testing::TestWithParam<Alloc> {
protected:
    TempDir dir_;
    std::unique_ptr<Mgr> mgr_{new Mgr};   // made anew after each round, outside its failure
};

// A managed file of two nodes, its directory there with both copies, or one
// the save has to make (a new one each round, so the directory maker is
// swept too, and some refusal of it must fail the save).
TEST_P(ResourceBounds, AManagedSaveKeepsTheCopiesOrSavesTheWholeDocument)
{
    Pair a = {"alpha", "bob"}, b = {"beta", "eve"};
    SysRecorder sys;   // sync does nothing here
    sys.nodes = 2;
    for (bool new_dir : {false, GetParam() == Alloc::library}) {   // the directory maker allocates from the library
        SCOPED_TRACE(new_dir ? "a directory to make" : "both copies there");
        std::string base = dir_.file("net"), F, B, file_before, bak_before, want;
        auto request_of = [&](Pair &p, const char *node) { return request(base, node, pair_table(), &p, 0); };
        kavor_file_rgst_t ra = request_of(a, "a"), rb = request_of(b, "b");
        xml_file_hdl fa = kavor_register(mgr_->get(), &ra), fb = kavor_register(mgr_->get(), &rb);
        for (int g = 0; g < 2 && !new_dir; g++)   // a file and a backup on disk
            kavor_save_one(fa), mgr_->sweep();
        kavor_unregister(fa), kavor_unregister(fb);
        int round = 0, unmade = 0;
        TraceCapture cap(4);
        sweep(GetParam(), [&] {
            base = new_dir ? dir_.file("new" + std::to_string(round++) + "/net") : base;
            F = base + ".xml.gz", B = base + ".xml.bak.gz", file_before = read_file(F), bak_before = read_file(B);
            ra = request_of(a, "a"), rb = request_of(b, "b");
            cap.clear();
            fa = kavor_register(mgr_->get(), &ra), fb = kavor_register(mgr_->get(), &rb);
            if (fa != nullptr && fb != nullptr && kavor_save_one(fb) == 0)
                mgr_->sweep();
        }, [&](bool) {
            if (fa != nullptr && fb != nullptr && kavor_file_on_saving(fa) != 0) {
                unmade += !file_exists(base.substr(0, base.rfind('/')));
                EXPECT_EQ(read_file(F), file_before) << "the file, byte for byte";
                EXPECT_EQ(read_file(B), bak_before) << "the backup, byte for byte";
                EXPECT_GT(cap.count_at_most(4), 0u);
                EXPECT_TRUE(mgr_->given()) << "a failed save wakes the task";
                mgr_->sweep();
                EXPECT_EQ(kavor_file_on_saving(fa), 0);
            }
            // The last copy became the backup, unless the failure made the
            // file look broken to the save, which then keeps the backup.
            EXPECT_TRUE(read_file(B) == file_before || read_file(B) == bak_before);
            if (want.empty())
                want = gunzip(F);   // round 0, without a failure
            EXPECT_TRUE(fa == nullptr || fb == nullptr || gunzip(F) == want ||
                        (read_file(F) == file_before && read_file(B) == bak_before)) << "a document short of a row was saved";
            EXPECT_EQ(sys.incomplete.load(), 0) << "an incomplete document was handed to the writer";
            kavor_unregister(fa), kavor_unregister(fb);
            mgr_.reset(new Mgr);
        });
        EXPECT_TRUE(!new_dir || GetParam() != Alloc::library || unmade > 0) << "no refusal in the directory maker failed the save";
    }
}

// The one-shot save: -1, or a target that holds the whole document. (It
// writes in place: a write that failed may have cut the target, which is
// its documented risk.)
TEST_P(ResourceBounds, AOneShotSaveWritesTheDocumentOrFails)
{
    Pair blk = {"alpha", "bob"};
    kavor_file_rgst_t r = request(dir_.file("one"), "dev", pair_table(), &blk, 1);
    int32_t rc = -2;
    std::string want;
    sweep(GetParam(), [&] { rc = kavor_param2file(&r); }, [&](bool) {
        EXPECT_TRUE(rc == -1 || rc == 0);
        if (want.empty()) {
            want = read_file(dir_.file("one.xml"));
            EXPECT_NE(std::string::npos, want.find("<dev><label>alpha</label><owner>bob</owner></dev>"));
        }
        EXPECT_TRUE(rc != 0 || read_file(dir_.file("one.xml")) == want);
    });
}

// A main file that neither parser can use beside a whole backup, so the
// load runs both parsers and the fall-back; then a whole main file.
TEST_P(ResourceBounds, ALoadGivesADocumentedResultAndTouchesNoBlockOnMinusOne)
{
    static fuzz::RichBlock want, got;
    read_rich(&want);
    const std::string base = dir_.file("cfg"), text = write_table(&want.all, fx_table);
    kavor_file_rgst_t r = request(base, "dev", fx_table, &want.all, 0);
    ASSERT_EQ(kavor_param2file(&r), 0);
    param_xml_free(&want.all, fx_table);
    const std::string whole = read_file(base + ".xml.gz");
    ASSERT_TRUE(write_file(base + ".xml.bak.gz", whole));
    for (bool bad_main : {true, false}) {
        ASSERT_TRUE(write_file(base + ".xml.gz", bad_main ? "<?xml version=\"1.0\"?>\n<<<not a document" + text : whole, bad_main));
        int32_t rc = -2;
        sweep(GetParam(), [&] {
            fuzz::reset(&got);
            strcpy(got.all.label, "untouched");
            r = request(base, "dev", fx_table, &got.all, 0);
            xml_file_hdl h = kavor_register(mgr_->get(), &r);
            rc = h != nullptr ? kavor_load_one(h) : -1;
            kavor_unregister(h);
        }, [&](bool refused) {
            EXPECT_TRUE(rc == 0 || rc == 1 || (rc == -1 && std::string(got.all.label) == "untouched")) << rc;
            EXPECT_TRUE(refused || (rc == 0 && write_table(&got.all, fx_table) == text));
            param_xml_free(&got.all, fx_table);
            mgr_.reset(new Mgr);
        });
    }
}

INSTANTIATE_TEST_SUITE_P(Allocators, ResourceBounds, ::testing::Values(Alloc::library, Alloc::libxml2),
                         [](const ::testing::TestParamInfo<Alloc> &i) { return i.param == Alloc::library ? "Library" : "Libxml2"; });

}  // namespace
