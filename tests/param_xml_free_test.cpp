// param_xml_free: everything the reader allocated inside a block goes back
// to libxml2's allocator, nested things first; pointers, counts and heads
// are left empty; what the application owns is walked into, never freed.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <libxml/parser.h>
#include <libxml/xmlmemory.h>

#include "param_xml.h"
#include "pdesc_row.h"
#include "trace_capture.h"
#include "xml_alloc.h"

namespace {

// A counted structure row whose structures hold counted buffers and lists,
// whose nodes hold counted buffers again.
struct Node {
    struct znode z;
    int16_t *vals[2];
    int valn[2];
};
struct pdesc kNodeRows[] = {
    [] { struct pdesc r = row_of(PT_SINT | PT_F_COB, "v", 2, 2, offsetof(Node, vals)); r.boffset = offsetof(Node, valn); return r; }(),
    {}};
struct adesc kAlts[] = {{sizeof(Node), kNodeRows, "n"}, {0, nullptr, nullptr}};

struct Inner {
    double *buf[2];
    int bufn[2];
    zhead_t list[1];
    zhead_t vlist[1];
};
struct pdesc kInnerRows[] = {
    [] { struct pdesc r = row_of(PT_FLOT | PT_F_COB, "b", 2, 8, offsetof(Inner, buf)); r.boffset = offsetof(Inner, bufn); return r; }(),
    [] { struct pdesc r = row_of(PT_LIST, "l", 1, sizeof(Node), offsetof(Inner, list)); r.pdesc = kNodeRows; return r; }(),
    [] { struct pdesc r = row_of(PT_VLST, "vl", 1, 0, offsetof(Inner, vlist)); r.aux = reinterpret_cast<intptr_t>(kAlts); return r; }(),
    {}};

struct Outer {
    Inner *cs[2];
    int csn[2];
    Inner *far;     // PT_STRUM: the application's array
    Inner here[1];  // PT_STRU
    char name[8];
};
struct pdesc kOuterRows[] = {
    [] { struct pdesc r = row_of(PT_STRU | PT_F_COB, "cs", 2, sizeof(Inner), offsetof(Outer, cs)); r.boffset = offsetof(Outer, csn); r.pdesc = kInnerRows; return r; }(),
    [] { struct pdesc r = row_of(PT_STRUM, "far", 1, sizeof(Inner), offsetof(Outer, far)); r.pdesc = kInnerRows; return r; }(),
    [] { struct pdesc r = row_of(PT_STRU, "here", 1, sizeof(Inner), offsetof(Outer, here)); r.pdesc = kInnerRows; return r; }(),
    row_of(PT_STRI, "name", 8, 8, offsetof(Outer, name)),
    {}};

const char kInnerDoc[] =
    "<b cnt=\"2\"><b>1 2</b></b><b cnt=\"1\"><b>3</b></b>"
    "<l><l><v cnt=\"3\"><v>1 2 3</v></v></l><l/></l>"
    "<vl><vl typ=\"n\"><v cnt=\"1\"><v>9</v></v><v cnt=\"2\"/></vl><vl typ=\"n\"/></vl>";

std::string outer_doc()
{
    std::string inner = kInnerDoc;
    return "<root><cs cnt=\"2\"><cs>" + inner + "</cs><cs>" + inner + "</cs></cs>"
           "<far>" + inner + "</far><here>" + inner + "</here><name>x</name></root>";
}

TEST(ParamXmlFree, ReleasesEveryBufferAndNodeAtAnyDepth)
{
    std::string text = outer_doc();
    xmlDoc *doc = xmlReadMemory(text.data(), static_cast<int>(text.size()), "t.xml", nullptr, 0);
    ASSERT_NE(nullptr, doc);
    Inner far[1] = {};
    Outer o = {};
    o.far = far;
    long live;
    {
        XmlAlloc count;
        TraceCapture cap(5);
        xml2param(&o, xmlDocGetRootElement(doc), kOuterRows);
        EXPECT_EQ(0u, cap.count_at_most(5)) << cap.dump();
        ASSERT_NE(nullptr, o.cs[0]);
        ASSERT_NE(nullptr, o.cs[0][1].list[0]);
        EXPECT_EQ(2, o.cs[0][1].bufn[0]);
        ASSERT_NE(nullptr, far[0].vlist[0]);
        EXPECT_GT(count.live(), 30);
        param_xml_free(&o, kOuterRows);
        live = count.live();
    }
    EXPECT_EQ(0, live);
    EXPECT_EQ(nullptr, o.cs[0]);
    EXPECT_EQ(0, o.csn[0]);
    EXPECT_EQ(far, o.far);
    EXPECT_EQ(nullptr, far[0].buf[0]);
    EXPECT_EQ(0, far[0].bufn[1]);
    EXPECT_EQ(nullptr, far[0].list[0]);
    EXPECT_EQ(nullptr, far[0].vlist[0]);
    EXPECT_EQ(nullptr, o.here[0].buf[1]);
    EXPECT_EQ(nullptr, o.here[0].vlist[0]);
    EXPECT_STREQ("x", o.name);
    // A second release finds nothing to free.
    param_xml_free(&o, kOuterRows);
    xmlFreeDoc(doc);
}

TEST(ParamXmlFree, NullPointersUnknownTypesAndBadRowsAreSafe)
{
    Outer o = {};  // far is NULL: not followed
    param_xml_free(&o, kOuterRows);
    EXPECT_EQ(nullptr, o.far);

    // A variant node whose type no alternative names is freed without a walk.
    Node *odd = static_cast<Node *>(xmlMalloc(sizeof(Node)));
    std::memset(odd, 0, sizeof *odd);
    zlst_set_name(odd, "unknown");
    Inner in = {};
    zlst_push(&in.vlist[0], odd);
    param_xml_free(&in, kInnerRows);
    EXPECT_EQ(nullptr, in.vlist[0]);

    struct pdesc bad[] = {row_of(0xC000, "odd", 1, 4, 0), {}};
    TraceCapture cap(8);
    param_xml_free(&in, bad);
    EXPECT_TRUE(cap.has(4, "param_xml_free", "param_xml_free: odd bad type(0xC000)")) << cap.dump();
}

}  // namespace
