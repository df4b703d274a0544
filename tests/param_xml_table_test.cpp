// Tests of the table macros in C++17: each macro's row equals the row
// written by hand, tables inside functions compile, and a structure described
// only by macros goes to a document and back unchanged.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include <libxml/tree.h>

#include "param_xml.h"
#include "param_xml_table_fixture.h"
#include "test_util.h"
#include "trace_capture.h"

FX_DEFINE_TABLES
FX_DEFINE_EXPECTED

namespace {

TEST(ParamXmlTable, EveryMacroRowEqualsTheRowWrittenByHand)
{
    for (int i = 0; i <= FX_ROWS; i++) {
        const struct pdesc &g = fx_table[i], &w = fx_expected[i];
        SCOPED_TRACE(w.name != nullptr ? w.name : "end row");
        EXPECT_EQ(g.iob, 0);
        EXPECT_EQ(g.ioa, 0);
        EXPECT_EQ(g.count, w.count);
        EXPECT_EQ(g.type, w.type);
        EXPECT_EQ(g.offset, w.offset);
        EXPECT_EQ(g.boffset, w.boffset);
        EXPECT_EQ(g.aoffset, w.aoffset);
        EXPECT_EQ(g.size, w.size);
        EXPECT_EQ(g.pdesc, w.pdesc);
        EXPECT_EQ(g.aux, w.aux);
        if (w.name == nullptr)
            EXPECT_EQ(g.name, nullptr);
        else
            EXPECT_STREQ(g.name, w.name);
    }
}

TEST(ParamXmlTable, CompanionTablesEndWithTheirEndItems)
{
    EXPECT_EQ(fx_modes[3].key, nullptr);
    EXPECT_EQ(fx_modes[3].value, FX_OFF);
    EXPECT_STREQ(fx_modes[2].key, "auto");
    EXPECT_EQ(fx_kinds[0].size, sizeof(struct fx_node));
    EXPECT_EQ(fx_kinds[1].pdesc, fx_other_table);
    EXPECT_EQ(fx_kinds[2].name, nullptr);
    EXPECT_EQ(fx_kinds[2].pdesc, nullptr);
}

TEST(ParamXmlTable, TablesInsideAFunctionAndOfLocalTypesCompile)
{
    struct local {
        uint16_t a[3];
        int n;
        char s[4];
    };
    static struct pdesc t[] = {
        PX_UINT_CIA_HEXU(local, a, n, "a"),
        PX_STRI_N(local, s, 3, "s"),
        PX_END,
    };
    EXPECT_EQ(t[0].count, 3);
    EXPECT_EQ(t[0].type, PT_UINT | PT_F_CIA | PT_FMT_HEXU);
    EXPECT_EQ(t[0].aoffset, offsetof(local, n));
    EXPECT_EQ(t[1].count, 3);
    EXPECT_EQ(t[1].size, 3u);
    EXPECT_EQ(t[2].type, 0);
    EXPECT_EQ(param_xml_check(t), 0);
}

// A device written with the macros alone, converted to a tree and back.
enum dev_mode { DEV_IDLE = 0, DEV_RUN = 1 };
struct dev_port {
    int32_t speed;
    char label[8];
};
struct dev_rule {
    struct znode z;
    uint16_t port;
    int8_t prio;
};
struct dev {
    int32_t id;
    uint8_t mac[6];
    char name[12];
    double gain[2];
    float temp;
    enum dev_mode mode;
    struct dev_port ports[3];
    int nports;
    int64_t *hist[2];
    int histn[2];
    zhead_t rules;
};

struct enume dev_modes[] = { PX_ENUME("idle", DEV_IDLE), PX_ENUME("run", DEV_RUN),
                             PX_ENUME_END(DEV_IDLE) };
struct pdesc dev_port_table[] = {
    PX_SINT(struct dev_port, speed, "speed"),
    PX_STRI(struct dev_port, label, "label"),
    PX_END,
};
struct pdesc dev_rule_table[] = {
    PX_UINT(struct dev_rule, port, "port"),
    PX_SINT(struct dev_rule, prio, "prio"),
    PX_END,
};
struct pdesc dev_table[] = {
    PX_SINT(struct dev, id, "id"),
    PX_UINT_ARR_HEX(struct dev, mac, "mac"),
    PX_STRI(struct dev, name, "name"),
    PX_FLOT_ARR(struct dev, gain, "gain"),
    PX_FLOT(struct dev, temp, "temp"),
    PX_ENUM(struct dev, mode, "mode", dev_modes),
    PX_STRU_CIA(struct dev, ports, nports, "port", dev_port_table),
    PX_SINT_COB(struct dev, hist, histn, "hist"),
    PX_LIST(struct dev, rules, struct dev_rule, "rule", dev_rule_table),
    PX_END,
};

class DeviceRoundTrip : public ::testing::Test {
protected:
    void SetUp() override
    {
        memset(&in, 0, sizeof(in));
        in.id = -7;
        const uint8_t mac[6] = { 0x00, 0x1b, 0xff, 0x10, 0x02, 0xa0 };
        memcpy(in.mac, mac, sizeof(mac));
        strcpy(in.name, "edge-1");
        in.gain[0] = 0.5;
        in.gain[1] = -2.25;
        in.temp = 21.5f;
        in.mode = DEV_RUN;
        in.nports = 2;
        in.ports[0].speed = 1000;
        strcpy(in.ports[0].label, "up");
        in.ports[1].speed = 100;
        strcpy(in.ports[1].label, "down");
        in.ports[2].speed = 99;  // beyond nports: not written
        in.hist[0] = hist0;
        in.histn[0] = 3;
        rule[0].port = 1;
        rule[0].prio = -1;
        rule[1].port = 2;
        rule[1].prio = 5;
        zlst_push(&in.rules, &rule[0]);
        zlst_push(&in.rules, &rule[1]);
        root = xmlNewNode(nullptr, BAD_CAST "dev");
    }
    void TearDown() override
    {
        param_xml_free(&out, dev_table);
        xmlFreeNode(root);
    }

    struct dev in, out = {};
    int64_t hist0[3] = { -9000000000LL, 0, 42 };
    struct dev_rule rule[2] = {};
    xmlNode *root = nullptr;
};

TEST_F(DeviceRoundTrip, TheDocumentHasEachFieldUnderItsName)
{
    ASSERT_EQ(param_xml_check(dev_table), 0);
    TraceCapture cap(5);
    param2xml(&in, root, dev_table);
    EXPECT_EQ(dump_children(root),
              "<id>-7</id>"
              "<mac>0x0 0x1b 0xff 0x10 0x2 0xa0</mac>"
              "<name>edge-1</name>"
              "<gain>0.5 -2.25</gain>"
              "<temp>21.5</temp>"
              "<mode>run</mode>"
              "<port><speed>1000</speed><label>up</label></port>"
              "<port><speed>100</speed><label>down</label></port>"
              "<hist cnt=\"3\"><hist>-9000000000 0 42</hist></hist>"
              "<rule><rule><port>1</port><prio>-1</prio></rule>"
              "<rule><port>2</port><prio>5</prio></rule></rule>");
    // hist[1] has no buffer: one level-5 line, nothing worse.
    EXPECT_EQ(cap.count_at_most(4), 0u) << cap.dump();
}

TEST_F(DeviceRoundTrip, ReadingTheDocumentBackGivesTheSameValues)
{
    param2xml(&in, root, dev_table);
    TraceCapture cap(5);
    xml2param(&out, root, dev_table);
    EXPECT_EQ(cap.count_at_most(4), 0u) << cap.dump();
    EXPECT_EQ(out.id, in.id);
    EXPECT_EQ(0, memcmp(out.mac, in.mac, sizeof(in.mac)));
    EXPECT_STREQ(out.name, "edge-1");
    EXPECT_EQ(out.gain[0], 0.5);
    EXPECT_EQ(out.gain[1], -2.25);
    EXPECT_EQ(out.temp, 21.5f);
    EXPECT_EQ(out.mode, DEV_RUN);
    EXPECT_EQ(out.nports, 2);
    EXPECT_EQ(out.ports[1].speed, 100);
    EXPECT_STREQ(out.ports[1].label, "down");
    EXPECT_EQ(out.ports[2].speed, 0);
    ASSERT_EQ(out.histn[0], 3);
    ASSERT_NE(out.hist[0], nullptr);
    EXPECT_EQ(out.hist[0][0], -9000000000LL);
    EXPECT_EQ(out.hist[0][2], 42);
    ASSERT_NE(out.rules, nullptr);
    const struct dev_rule *r0 = reinterpret_cast<const struct dev_rule *>(out.rules);
    const struct dev_rule *r1 = reinterpret_cast<const struct dev_rule *>(out.rules->next);
    ASSERT_NE(r1, nullptr);
    EXPECT_EQ(r0->port, 1);
    EXPECT_EQ(r0->prio, -1);
    EXPECT_EQ(r1->port, 2);
    EXPECT_EQ(r1->prio, 5);
    EXPECT_EQ(r1->z.next, nullptr);
}

} // namespace
