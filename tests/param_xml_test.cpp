// The codec over the every-kind block three levels deep: the expected
// document read and written back, the release walk, and every libxml2
// allocation failing inside the reader and the writer.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "../fuzz/fuzz_table.h"
#include "codec_util.h"
#include "sweep.h"
#include "trace_capture.h"

namespace {

const std::string kData = KAVOR_TEST_DATA_DIR "";

// The block's document, formatted, as the expected file holds it.
std::string written(fuzz::RichBlock &b)
{
    xmlDoc *doc = xmlNewDoc(BAD_CAST "1.0");
    xmlNode *root = xmlNewDocNode(doc, nullptr, BAD_CAST "dev", nullptr);
    xmlDocSetRootElement(doc, root);
    param2xml(&b.all, root, fx_table);
    xmlChar *text = nullptr;
    int len = 0;
    xmlDocDumpFormatMemoryEnc(doc, &text, &len, "utf-8", 1);
    std::string out(reinterpret_cast<char *>(text), static_cast<size_t>(len));
    xmlFree(text);
    xmlFreeDoc(doc);
    return out;
}

// Reads the root's children of `text` into a fresh block.
void read_into(fuzz::RichBlock &b, const std::string &text, const char *root_child = nullptr)
{
    fuzz::reset(&b);
    Doc d(text, true);
    xmlNode *at = d.root();
    if (root_child != nullptr)  // the corpus file wraps the block in <cfg><dev>
        for (at = at->children; at != nullptr && !xmlStrEqual(at->name, BAD_CAST root_child); at = at->next) {
        }
    ASSERT_NE(nullptr, at);
    xml2param(&b.all, at, fx_table);
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
    const std::string expected = read_file(kData + "/rich_written.xml");
    ASSERT_FALSE(expected.empty());
    static fuzz::RichBlock b;
    {
        XmlAlloc count;
        read_into(b, read_file(KAVOR_TEST_DATA_DIR "/../../fuzz/corpus/fuzz_reader/rich.xml"), "dev");
        EXPECT_EQ(expected, written(b));
        param_xml_free(&b.all, fx_table);
        // The document written is read back and written again unchanged.
        {
            TraceCapture cap(8);   // every record of the walk is formed
            read_into(b, expected);
            EXPECT_EQ(0u, cap.count_at_most(5)) << cap.dump();
        }
        EXPECT_EQ(expected, written(b));
        ASSERT_NE(nullptr, b.all.chain);
        ASSERT_NE(nullptr, b.all.ibuf[0]);
        ASSERT_EQ(2, b.all.ibuf[0][0].buf_n[0]);

        // Released at every depth, pointers and counts left empty, the
        // application's array behind the pointer row walked, not freed.
        param_xml_free(&b.all, fx_table);
        EXPECT_EQ(0, count.live());
        param_xml_free(&b.all, fx_table);  // a second release finds nothing
        EXPECT_EQ(b.pitems, b.all.pitems);
        EXPECT_TRUE(!b.all.sbuf[0] && !b.all.sbuf_n[0] && !b.all.ibuf[0] && !b.all.ibuf_n[0] &&
                    !b.all.chain && !b.all.chains[1] && !b.all.mixed);
        const std::string after = written(b);
        EXPECT_EQ(std::string::npos, after.find("cnt=")) << after;
        EXPECT_NE(std::string::npos, after.find("<chain/>")) << after;
    }
}

// The records of the walks: every kind's writer and reader, each row,
// element and value, as the handlers' records are laid down.
TEST(RoundTrip, TheWalksWriteTheirRecordsOfEveryRowAndValue)
{
    static fuzz::RichBlock b;
    std::string records;
    {
        TraceCapture cap(8);
        read_into(b, read_file(kData + "/rich_written.xml"));
        written(b);
        records = cap.dump();
    }
    param_xml_free(&b.all, fx_table);
    EXPECT_EQ(read_file(kData + "/rich_trace.txt"), records);
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

TEST(AllocationFailure, TheReaderLosesOnlyWhatItReportsAndLeaksNothing)
{
    const std::string expected = read_file(kData + "/rich_written.xml");
    Doc d(expected, true);
    static fuzz::RichBlock b;
    TraceCapture cap(4);
    sweep(Alloc::libxml2, [&] { cap.clear(); fuzz::reset(&b); xml2param(&b.all, d.root(), fx_table); },
          [&](bool refused) {
              if (!refused || cap.count_at_most(4) == 0) {
                  EXPECT_EQ(expected, written(b)) << cap.dump();
              }
              param_xml_free(&b.all, fx_table);
          });
}

TEST(AllocationFailure, TheWriterReportsEveryLossAndWhatItWroteReadsBack)
{
    const std::string expected = read_file(kData + "/rich_written.xml");
    static fuzz::RichBlock src, back;
    read_into(src, expected);
    xmlNode *root = xmlNewNode(nullptr, BAD_CAST "dev");
    TraceCapture cap(4);
    sweep(Alloc::libxml2, [&] { cap.clear(); param2xml(&src.all, root, fx_table); },
          [&](bool refused) {
              EXPECT_EQ(refused, cap.count_at_most(4) > 0) << cap.dump();
              fuzz::reset(&back);
              xml2param(&back.all, root, fx_table);
              if (!refused) {
                  EXPECT_EQ(expected, written(back));
              }
              param_xml_free(&back.all, fx_table);
              xmlFreeNode(root);
              root = xmlNewNode(nullptr, BAD_CAST "dev");
          });
    xmlFreeNode(root);
    param_xml_free(&src.all, fx_table);
}

}  // namespace
