// The schema of a table agrees with the writer and the reader: every
// document the writer makes for the tables here (every kind, mode, width
// and form; empty arrays and lists; recursive lists; variant lists) validates
// through kavor_validate and xmllint --schema; an integer text validates
// exactly when the reader stores it whole in its width; and the wrong
// documents of tests/data/schema are refused at their line.
#include <gtest/gtest.h>

#include <errno.h>
#include <inttypes.h>
#include <math.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "../fuzz/fuzz_table.h"
#include "codec_util.h"
#include "kavor.h"

namespace {

void collect(void *ctx, int32_t line, const char *message)
{
    *static_cast<std::string *>(ctx) += std::to_string(line) + ": " + message + "\n";
}

// xmllint's exit code and output for `xml` against `xsd`.
int xmllint(const std::string &xsd, const std::string &xml, std::string *out)
{
    return run("xmllint --noout --schema '" + xsd + "' '" + xml + "'", out);
}

std::string save(xmlDocPtr doc, const std::string &path)
{
    EXPECT_GE(xmlSaveFormatFileEnc(path.c_str(), doc, "utf-8", 1), 0);
    xmlFreeDoc(doc);
    return path;
}

// Writes what param2xml makes of `mem` under the root `name` and the schema
// of `table`; both validators must take the document.
void expect_writer_validates(const char *name, struct pdesc *table, void *mem)
{
    SCOPED_TRACE(name);
    TempDir dir;
    xmlDocPtr doc = xmlNewDoc(BAD_CAST "1.0");
    xmlNodePtr root = xmlNewDocNode(doc, nullptr, BAD_CAST name, nullptr);
    xmlDocSetRootElement(doc, root);
    param2xml(mem, root, table);
    std::string xml = save(doc, dir.file("doc.xml"));
    xmlDocPtr schema = param_xml_schema(name, table);
    ASSERT_NE(schema, nullptr);
    std::string xsd = save(schema, dir.file("doc.xsd"));
    std::string problems, out;
    EXPECT_EQ(kavor_validate(xml.c_str(), xsd.c_str(), collect, &problems), 0)
        << problems << read_file(xml);
    EXPECT_EQ(xmllint(xsd, xml, &out), 0) << out;
}

// ---- blocks --------------------------------------------------------------------

// The every-kind block of the round trip, with a two-byte character in its
// label and floats beyond the finite.
void fill_rich(fuzz::RichBlock &b)
{
    fuzz::reset(&b);
    read_file_into(&b.all, fx_table, KAVOR_TEST_DATA_DIR "/rich_written.xml");
    snprintf(b.all.label, sizeof b.all.label, "h\xc3\xa9 & <x>");
    b.all.da[1] = -0.0, b.all.da[2] = INFINITY, b.all.da[3] = NAN;
}

// Every width of both integer kinds in every form, and floats, at their
// extremes.
struct Widths {
    int8_t s1[2];
    int16_t s2[2];
    int32_t s4[2];
    int64_t s8[2];
    uint8_t u1[2];
    uint16_t u2[2];
    uint32_t u4[2];
    uint64_t u8[2];
    float f[5];
    double d[5];
};
#define UROWS(f, n) PX_UINT_ARR(Widths, f, n), PX_UINT_ARR_HEX(Widths, f, n "x"), PX_UINT_ARR_HEXU(Widths, f, n "X")
struct pdesc g_widths[] = {
    PX_SINT_ARR(Widths, s1, "s1"), PX_SINT_ARR(Widths, s2, "s2"), PX_SINT_ARR(Widths, s4, "s4"),
    PX_SINT_ARR(Widths, s8, "s8"), UROWS(u1, "u1"), UROWS(u2, "u2"), UROWS(u4, "u4"),
    UROWS(u8, "u8"), PX_FLOT_ARR(Widths, f, "f"), PX_FLOT_ARR(Widths, d, "d"), PX_END,
};

// A list whose nodes hold lists of themselves, and variant nodes whose
// alternatives give one child name two different kinds.
struct Tree {
    struct znode z;
    int32_t v;
    zhead_t kids;
};
struct VInt {
    struct znode z;
    int32_t v;
};
struct VText {
    struct znode z;
    char v[8];
};
struct Forest {
    zhead_t trees;
    zhead_t mixed;
};
extern struct pdesc g_tree[];
struct pdesc g_tree[] = {PX_SINT(Tree, v, "v"), PX_LIST(Tree, kids, Tree, "kid", g_tree), PX_END};
struct pdesc g_vint[] = {PX_SINT(VInt, v, "v"), PX_END};
struct pdesc g_vtext[] = {PX_STRI(VText, v, "v"), PX_END};
struct adesc g_alts[] = {PX_ADESC(VInt, g_vint, "int"), PX_ADESC(VText, g_vtext, "text"), PX_ADESC_END};
struct pdesc g_forest[] = {PX_LIST(Forest, trees, Tree, "tree", g_tree),
                           PX_VLST(Forest, mixed, "mixed", g_alts), PX_END};

TEST(ParamXmlSchema, EveryDocumentTheWriterMakesValidates)
{
    static fuzz::RichBlock rich, empty;
    fill_rich(rich);
    fuzz::reset(&empty);
    expect_writer_validates("dev", fx_table, &rich.all);
    expect_writer_validates("dev", fx_table, &empty.all);
    param_xml_free(&rich.all, fx_table);

    Widths w = {{INT8_MIN, INT8_MAX}, {INT16_MIN, INT16_MAX}, {INT32_MIN, INT32_MAX},
                {INT64_MIN, INT64_MAX}, {0, UINT8_MAX}, {0, UINT16_MAX}, {0, UINT32_MAX},
                {0, UINT64_MAX}, {-3.40282347e38f, 1e-45f, -0.0f, INFINITY, NAN},
                {-1.7976931348623157e308, 5e-324, 1.0 / 3, -INFINITY, NAN}};
    expect_writer_validates("widths", g_widths, &w);

    Forest f = {};
    Tree root = {{}, 1, nullptr}, kid = {{}, 2, nullptr}, grandkid = {{}, 3, nullptr};
    VInt vi = {{}, 7};
    VText vt = {{}, "seven"};
    zlst_push(&kid.kids, &grandkid);
    zlst_push(&root.kids, &kid);
    zlst_push(&f.trees, &root);
    zlst_set_name(&vi, "int");
    zlst_set_name(&vt, "text");
    zlst_push(&f.mixed, &vi);
    zlst_push(&f.mixed, &vt);
    expect_writer_validates("forest", g_forest, &f);
}

// ---- integers: the schema against the reader's conversion ----------------------

std::string in_base(unsigned __int128 v, unsigned base, bool upper)
{
    const char *digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    char buf[132];
    size_t at = sizeof buf;
    do {
        buf[--at] = digits[(unsigned)(v % base)];
        v /= base;
    } while (v != 0);
    return std::string(buf + at, sizeof buf - at);
}

// Whether the reader stores `t` whole and unchanged in the width.
bool stored_whole(const std::string &t, size_t size, bool is_signed)
{
    char *end;
    errno = 0;
    const int bits = (int)size * 8;
    if (is_signed) {
        intmax_t v = strtoimax(t.c_str(), &end, 0);
        intmax_t max = (intmax_t)((UINTMAX_C(1) << (bits - 1)) - 1);
        return *end == '\0' && end != t.c_str() && errno == 0 && v <= max && v >= -max - 1;
    }
    uintmax_t v = strtoumax(t.c_str(), &end, 0);
    return *end == '\0' && end != t.c_str() && errno == 0 && t.find('-') == std::string::npos &&
           (bits == 64 || v <= (UINTMAX_C(1) << bits) - 1);
}

TEST(ParamXmlSchema, AnIntegerValidatesExactlyWhenTheReaderStoresItWhole)
{
    TempDir dir;
    int checked = 0;
    for (size_t size : {1, 2, 4, 8}) {
        for (bool s : {true, false}) {
            struct pdesc table[] = {{0, 0, 1, s ? PT_SINT : PT_UINT, 0, 0, 0, size, "v", nullptr, 0}, PX_END};
            std::string xsd = save(param_xml_schema("doc", table), dir.file("v.xsd"));
            unsigned __int128 top = ((unsigned __int128)1 << (size * 8 - (s ? 1 : 0))) - 1;
            std::vector<std::string> texts = {"0", "-0", "+0", "00", "08", "0x", "0x-1", "1.5", "1e3", "+-1", "x1"};
            for (unsigned __int128 m : {top, top + 1, top + 2}) {
                for (const char *sign : {"", "+", "-"}) {
                    for (std::string form : {in_base(m, 10, false), "0x" + in_base(m, 16, false),
                                             "0X00" + in_base(m, 16, true), "0" + in_base(m, 8, false)})
                        texts.push_back(sign + form);
                }
            }
            for (const std::string &t : texts) {
                std::string body = "<doc><v>" + t + "</v></doc>";
                xmlDocPtr doc = xmlReadMemory(body.data(), (int)body.size(), "v.xml", nullptr, 0);
                ASSERT_NE(doc, nullptr);
                EXPECT_EQ(kavor_validate_doc(doc, xsd.c_str(), nullptr, nullptr) == 0,
                          stored_whole(t, size, s))
                    << t << " at width " << size << (s ? " signed" : " unsigned");
                xmlFreeDoc(doc);
                checked++;
            }
        }
    }
    EXPECT_GT(checked, 350);
}

// ---- wrong documents -------------------------------------------------------------

TEST(ParamXmlSchema, WrongDocumentsAreRefusedAtTheirLine)
{
    TempDir dir;
    std::string xsd = save(param_xml_schema("dev", fx_table), dir.file("dev.xsd"));
    const std::string data = KAVOR_TEST_DATA_DIR "/schema/";
    int files = 0;
    for (const std::string &name : files_in(data, ".xml")) {
        SCOPED_TRACE(name);
        files++;
        std::string path = data + name, text = read_file(path), problems, out;
        int line = 0, lint_line = 0;
        size_t at = text.find("refused at line ");
        if (at != std::string::npos) {
            line = lint_line = atoi(text.c_str() + at + 16);
            size_t lint = text.find("(xmllint: ", at);
            if (lint != std::string::npos && lint < text.find("-->", at))
                lint_line = atoi(text.c_str() + lint + 10);
        }
        int32_t n = kavor_validate(path.c_str(), xsd.c_str(), collect, &problems);
        int rc = xmllint(xsd, path, &out);
        if (line == 0) {
            EXPECT_EQ(n, 0) << problems;
            EXPECT_EQ(rc, 0) << out;
            continue;
        }
        EXPECT_GE(n, 1);
        EXPECT_EQ(problems.substr(0, problems.find(':')), std::to_string(line)) << problems;
        EXPECT_NE(rc, 0);
        EXPECT_NE(out.find(name + ":" + std::to_string(lint_line) + ":"), std::string::npos) << out;
    }
    EXPECT_GE(files, 16);
}

}  // namespace
