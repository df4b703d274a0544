// The codec over the every-kind block three levels deep: the expected
// document read and written back with the records of both walks, the
// release walk, and allocation failures inside the reader and the writer.
#include "codec_util.h"
#include "sweep.h"

namespace {

const std::string kData = KAVOR_TEST_DATA_DIR "", kExpected = read_file(kData + "/rich_written.xml");

// The block's document, formatted, as the expected file holds it.
std::string written(fuzz::RichBlock &b)
{
    xmlDoc *doc = xmlNewDoc(BAD_CAST "1.0");
    xmlDocSetRootElement(doc, xmlNewDocNode(doc, nullptr, BAD_CAST "dev", nullptr));
    param2xml(&b.all, xmlDocGetRootElement(doc), fx_table);
    xmlChar *text = nullptr;
    int len = 0;
    xmlDocDumpFormatMemoryEnc(doc, &text, &len, "utf-8", 1);
    std::string out(reinterpret_cast<char *>(text), static_cast<size_t>(len));
    xmlFree(text), xmlFreeDoc(doc);
    return out;
}

TEST(TraceInit, SecondCallChangesNothing)
{
    param_xml_trace_init("kavor", nullptr, 1, nullptr);
    vorn_trace_handle first = param_xml_trace_h;
    ASSERT_NE(nullptr, first);
    param_xml_trace_init("other", "/nonexistent/x.log", 8, nullptr);
    EXPECT_EQ(first, param_xml_trace_h);
}

TEST(RoundTrip, EveryKindInEveryModeReadsAndWritesTheExpectedDocument)
{
    ASSERT_FALSE(kExpected.empty());
    static fuzz::RichBlock b;
    XmlAlloc count;
    {
        Doc corpus(read_file(kData + "/../../fuzz/corpus/fuzz_reader/rich.xml"), true);   // <cfg><dev>...
        fuzz::reset(&b), xml2param(&b.all, xmlFirstElementChild(corpus.root()), fx_table);
    }
    EXPECT_EQ(kExpected, written(b));
    param_xml_free(&b.all, fx_table);
    {
        // The document written is read back and written again unchanged;
        // the walks leave their records of every row, element and value.
        Doc d(kExpected, true);
        TraceCapture cap(8);
        fuzz::reset(&b), xml2param(&b.all, d.root(), fx_table);
        EXPECT_EQ(kExpected, written(b));
        EXPECT_EQ(read_file(kData + "/rich_trace.txt"), cap.dump());
    }
    // Released at every depth, pointers and counts left empty, the
    // application's array behind the pointer row walked, not freed.
    param_xml_free(&b.all, fx_table);
    EXPECT_EQ(0, count.live());
    param_xml_free(&b.all, fx_table);  // a second release finds nothing
    EXPECT_EQ(b.pitems, b.all.pitems);
    EXPECT_TRUE(!b.all.sbuf[0] && !b.all.sbuf_n[0] && !b.all.ibuf[0] && !b.all.ibuf_n[0] && !b.all.chain && !b.all.chains[1] &&
                !b.all.mixed);
    const std::string after = written(b);
    EXPECT_TRUE(after.find("cnt=") == std::string::npos && after.find("<chain/>") != std::string::npos) << after;
}

TEST(Release, NodesOfNoKnownTypeAreFreedWithoutAWalkAndBadRowsSkipped)
{
    XmlAlloc count;
    zhead_t head = nullptr;
    Timer *odd = static_cast<Timer *>(xmlMalloc(sizeof(Timer)));
    std::memset(odd, 0, sizeof *odd);
    zlst_set_name(odd, "unknown");
    zlst_push(&head, odd);
    struct pdesc table[] = {aux(row(PT_VLST, "vl", 1, 0), kAlts), row(0xC000, "odd", 1, 4), {}};
    TraceCapture cap(4);
    param_xml_free(&head, table);
    EXPECT_EQ(nullptr, head);
    EXPECT_EQ(0, count.live());
    EXPECT_TRUE(cap.has(4, "param_xml_free", "param_xml_free: odd bad type(0xC000)")) << cap.dump();
}

// Every libxml2 allocation refused in turn: the reader loses only what it
// reports; the writer reports every loss and what it wrote reads back.
TEST(AllocationFailure, ReaderAndWriterLoseOnlyWhatTheyReportAndLeakNothing)
{
    Doc d(kExpected, true);
    static fuzz::RichBlock b, back;
    TraceCapture cap(4);
    sweep(Alloc::libxml2, [&] { cap.clear(), fuzz::reset(&b), xml2param(&b.all, d.root(), fx_table); }, [&](bool refused) {
        EXPECT_TRUE((refused && cap.count_at_most(4) > 0) || written(b) == kExpected) << cap.dump();
        param_xml_free(&b.all, fx_table);
    });
    read_rich(&b);
    xmlNode *root = xmlNewNode(nullptr, BAD_CAST "dev");
    sweep(Alloc::libxml2, [&] { cap.clear(), param2xml(&b.all, root, fx_table); }, [&](bool refused) {
        EXPECT_EQ(refused, cap.count_at_most(4) > 0) << cap.dump();
        fuzz::reset(&back), xml2param(&back.all, root, fx_table);
        EXPECT_TRUE(refused || written(back) == kExpected);
        param_xml_free(&back.all, fx_table);
        xmlFreeNode(root), root = xmlNewNode(nullptr, BAD_CAST "dev");
    });
    xmlFreeNode(root);
    param_xml_free(&b.all, fx_table);
}

}  // namespace
