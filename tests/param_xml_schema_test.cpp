// The schema of a table agrees with the writer and the reader: what the
// writer makes for the tables here validates through kavor_validate and
// xmllint --schema; an integer validates exactly when the reader stores it
// whole; the documents of tests/data/schema are refused at their line, or
// taken; what can't be described or checked, and memory running out, fail
// as documented and leak nothing.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "codec_util.h"
#include "kavor_fixture.h"
#include "sweep.h"

namespace {

void collect(void *ctx, int32_t line, const char *message)
{
    *static_cast<std::string *>(ctx) += std::to_string(line) + ": " + message + "\n";
}

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

// What param2xml makes of `mem` under the root `name` must pass both
// validators against the schema of `table`.
void expect_writer_validates(const char *name, struct pdesc *table, void *mem)
{
    SCOPED_TRACE(name);
    TempDir dir;
    xmlDocPtr doc = xmlNewDoc(BAD_CAST "1.0");
    xmlDocSetRootElement(doc, xmlNewDocNode(doc, nullptr, BAD_CAST name, nullptr));
    param2xml(mem, xmlDocGetRootElement(doc), table);
    std::string xml = save(doc, dir.file("doc.xml")), problems, out;
    xmlDocPtr schema = param_xml_schema(name, table);
    ASSERT_NE(schema, nullptr);
    std::string xsd = save(schema, dir.file("doc.xsd"));
    EXPECT_EQ(kavor_validate(xml.c_str(), xsd.c_str(), collect, &problems), 0) << problems << read_file(xml);
    EXPECT_EQ(xmllint(xsd, xml, &out), 0) << out;
}

// Every width of both integer kinds in every form, and floats, at their extremes.
struct Widths {
    int8_t s1[2]; int16_t s2[2]; int32_t s4[2]; int64_t s8[2];
    uint8_t u1[2]; uint16_t u2[2]; uint32_t u4[2]; uint64_t u8[2];
    float f[5]; double d[5];
};
#define UROWS(f, n) PX_UINT_ARR(Widths, f, n), PX_UINT_ARR_HEX(Widths, f, n "x"), PX_UINT_ARR_HEXU(Widths, f, n "X")
struct pdesc g_widths[] = {
    PX_SINT_ARR(Widths, s1, "s1"), PX_SINT_ARR(Widths, s2, "s2"), PX_SINT_ARR(Widths, s4, "s4"),
    PX_SINT_ARR(Widths, s8, "s8"), UROWS(u1, "u1"), UROWS(u2, "u2"), UROWS(u4, "u4"),
    UROWS(u8, "u8"), PX_FLOT_ARR(Widths, f, "f"), PX_FLOT_ARR(Widths, d, "d"), PX_END,
};

// Lists of themselves; variant alternatives giving a child name the same or
// another shape, or none (count 0) first; two rows of one enume table, an
// empty one, a row of count 0 and a variant list without alternatives.
struct Tree { struct znode z; int32_t v; zhead_t kids; };
struct VInt { struct znode z; int32_t v, w; };
struct VText { struct znode z; char v[8]; int32_t w; };
struct Forest { zhead_t trees, mixed, none; int mode, again, empty; };
extern struct pdesc g_tree[];
struct pdesc g_tree[] = {PX_SINT(Tree, v, "v"), PX_LIST(Tree, kids, Tree, "kid", g_tree), PX_END};
struct pdesc g_vint[] = {PX_SINT(VInt, v, "v"), row(PT_SINT, "w", 0, 4), PX_SINT(VInt, w, "v"), PX_END};
struct pdesc g_vsame[] = {PX_SINT(VInt, v, "v"), PX_END};
struct pdesc g_vtext[] = {PX_STRI(VText, v, "v"), PX_SINT(VText, w, "w"), PX_END};
struct adesc g_alts[] = {PX_ADESC(VInt, g_vint, "int"), PX_ADESC(VText, g_vtext, "text"),
                         PX_ADESC(VInt, g_vsame, "same"), PX_ADESC(VInt, g_vsame, "int"), PX_ADESC_END};
struct adesc g_no_alts[] = {PX_ADESC_END};
struct enume g_words[] = {PX_ENUME("a", 0), PX_ENUME("b", 1), PX_ENUME("a", 2), PX_ENUME_END(0)};
struct enume g_no_words[] = {PX_ENUME_END(0)};
struct pdesc g_forest[] = {
    PX_LIST(Forest, trees, Tree, "tree", g_tree), PX_VLST(Forest, mixed, "mixed", g_alts),
    PX_VLST(Forest, none, "none", g_no_alts), PX_ENUM(Forest, mode, "mode", g_words),
    PX_ENUM(Forest, again, "again", g_words), PX_ENUM(Forest, empty, "empty", g_no_words),
    row(PT_SINT, "zero", 0, 4), PX_END};

TEST(ParamXmlSchema, EveryDocumentTheWriterMakesValidates)
{
    static fuzz::RichBlock rich, empty;
    fuzz::reset(&empty), read_rich(&rich);
    snprintf(rich.all.label, sizeof rich.all.label, "h\xc3\xa9 & <x>");   // a two-byte character
    rich.all.da[1] = -0.0, rich.all.da[2] = INFINITY, rich.all.da[3] = NAN;
    expect_writer_validates("dev", fx_table, &rich.all);
    expect_writer_validates("dev", fx_table, &empty.all);
    param_xml_free(&rich.all, fx_table);

    Widths w = {{INT8_MIN, INT8_MAX}, {INT16_MIN, INT16_MAX}, {INT32_MIN, INT32_MAX},
                {INT64_MIN, INT64_MAX}, {0, UINT8_MAX}, {0, UINT16_MAX}, {0, UINT32_MAX},
                {0, UINT64_MAX}, {-3.40282347e38f, 1e-45f, -0.0f, INFINITY, NAN},
                {-1.7976931348623157e308, 5e-324, 1.0 / 3, -INFINITY, NAN}};
    expect_writer_validates("widths", g_widths, &w);

    Forest f = {nullptr, nullptr, nullptr, 0, 1, 0};
    Tree root = {{}, 1, nullptr}, kid = {{}, 2, nullptr}, grandkid = {{}, 3, nullptr};
    VInt vi = {{}, 7, 8}, vs = {{}, 9, 0}; VText vt = {{}, "seven", 6};
    zlst_push(&kid.kids, &grandkid), zlst_push(&root.kids, &kid), zlst_push(&f.trees, &root);
    zlst_set_name(&vi, "int"), zlst_set_name(&vt, "text"), zlst_set_name(&vs, "same");
    zlst_push(&f.mixed, &vi), zlst_push(&f.mixed, &vt), zlst_push(&f.mixed, &vs);
    expect_writer_validates("forest", g_forest, &f);
}

std::string in_base(unsigned __int128 v, unsigned base, bool upper)
{
    // A fixed buffer: the optimised sanitizer build misreads a string grown by insert here.
    const char *digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    char buf[132];
    size_t at = sizeof buf;
    do
        buf[--at] = digits[(unsigned)(v % base)];
    while ((v /= base) != 0);
    return std::string(buf + at, sizeof buf - at);
}

// Whether the reader stores `t` whole in a width whose largest value is `top`.
bool stored_whole(const std::string &t, unsigned __int128 top, bool is_signed)
{
    char *end;
    errno = 0;
    __int128 v = is_signed ? (__int128)strtoimax(t.c_str(), &end, 0) : (__int128)strtoumax(t.c_str(), &end, 0);
    return *end == '\0' && end != t.c_str() && errno == 0 && (is_signed || t.find('-') == std::string::npos) &&
           v <= (__int128)top && v >= -(__int128)top - is_signed;
}

TEST(ParamXmlSchema, AnIntegerValidatesExactlyWhenTheReaderStoresItWhole)
{
    TempDir dir;
    for (size_t size : {1, 2, 4, 8}) {
        for (bool s : {true, false}) {
            struct pdesc table[] = {row(s ? PT_SINT : PT_UINT, "v", 1, size), {}};
            std::string xsd = save(param_xml_schema("doc", table), dir.file("v.xsd"));
            unsigned __int128 top = ((unsigned __int128)1 << (size * 8 - (s ? 1 : 0))) - 1;
            std::vector<std::string> texts = {"0", "-0", "+0", "00", "08", "0x", "0x-1", "1.5", "1e3", "+-1", "x1",
                                             "9", "-0x5", "0xa", "07", "-07"};
            for (unsigned __int128 m : {top - 1, top, top + 1, top + 2})
                for (const char *sign : {"", "+", "-"})
                    for (std::string form : {in_base(m, 10, false), "0x" + in_base(m, 16, false),
                                             "0X00" + in_base(m, 16, true), "0" + in_base(m, 8, false)})
                        texts.push_back(sign + form);
            for (const std::string &t : texts) {
                Doc doc("<doc><v>" + t + "</v></doc>", true);
                EXPECT_EQ(kavor_validate_doc(doc.doc, xsd.c_str(), nullptr, nullptr) == 0, stored_whole(t, top, s))
                    << t << " at width " << size << (s ? " signed" : " unsigned");
            }
        }
    }
}

TEST(ParamXmlSchema, WrongDocumentsAreRefusedAtTheirLine)
{
    TempDir dir;
    std::string xsd = save(param_xml_schema("dev", fx_table), dir.file("dev.xsd"));
    const std::string data = KAVOR_TEST_DATA_DIR "/schema/";
    const std::vector<std::string> names = files_in(data, ".xml");
    EXPECT_GE(names.size(), 16u);
    for (const std::string &name : names) {
        SCOPED_TRACE(name);
        std::string path = data + name, text = read_file(path), problems, out;
        size_t at = text.find("refused at line "), lint = text.find("(xmllint: ");
        int line = at == std::string::npos ? 0 : atoi(text.c_str() + at + 16);
        int lint_line = lint == std::string::npos ? line : atoi(text.c_str() + lint + 10);
        int32_t n = kavor_validate(path.c_str(), xsd.c_str(), collect, &problems);
        int rc = xmllint(xsd, path, &out);
        EXPECT_EQ(std::min(n, 1), line == 0 ? 0 : 1) << problems;
        EXPECT_EQ(rc == 0, line == 0) << out;
        if (line != 0) {
            EXPECT_EQ(problems.substr(0, problems.find(':')), std::to_string(line)) << problems;
            EXPECT_NE(out.find(name + ":" + std::to_string(lint_line) + ":"), std::string::npos) << out;
        }
    }
}

TEST(ParamXmlSchema, BadTablesArgumentsAndRunningOutOfMemoryFailCleanly)
{
    static struct enume words[] = {PX_ENUME("a", 0), PX_ENUME_END(0)};
    static struct pdesc leaf[] = {row(PT_SINT, "v", 1, 4), {}};
    const std::string long_name(400, 'n');
    const struct pdesc bad_rows[] = {
        row(PT_SINT, "v", 1, 3), row(PT_UINT, "v", 1, 16), row(PT_FLOT, "v", 1, 2), row(PT_STRI, "v", 0, 8),
        row(PT_STRI, "v", 4, 0), row(PT_ENUM, "v", 1, 4), row(0xa000, "v", 1, 4), row(PT_STRU, "v", 1, 4),
        row(PT_SINT, nullptr, 1, 4), row(PT_VLST, "v", 1, sizeof(zhead_t)),
        sub(row(PT_STRU, long_name.c_str(), 1, 4), leaf), aux(row(PT_ENUM, long_name.c_str(), 1, 4), words),
        aux(row(PT_VLST, long_name.c_str(), 1, sizeof(zhead_t)), g_alts)};
    for (const struct pdesc &r : bad_rows) {
        struct pdesc table[] = {row(PT_SINT, "ok", 1, 4), r, {}};
        EXPECT_EQ(param_xml_schema("doc", table), nullptr) << r.type << " " << (r.name ? r.name : "(no name)");
    }
    // Tables nested past the names a hint can have; no root name, a bad one; no table.
    std::vector<std::vector<struct pdesc>> chain(1001, {leaf[0], {}});
    for (size_t i = 0; i + 1 < chain.size(); i++)
        chain[i][0] = sub(row(PT_STRU, "s", 1, 4), chain[i + 1].data());
    for (xmlDocPtr none : {param_xml_schema("doc", chain[0].data()), param_xml_schema(nullptr, leaf),
                           param_xml_schema("1doc", leaf), param_xml_schema("doc", nullptr)})
        EXPECT_EQ(none, nullptr);

    TempDir dir;
    kvtest::Blk b;
    xml_file_hdl f = kvtest::reg(nullptr, dir.file("net"), "blk", &b, 1);
    const std::string xsd = dir.file("net.xsd"), doc = dir.file("doc.xml"), full = dir.file("full");
    ASSERT_TRUE(write_file(doc, "<net/>") && mkdir(full.c_str(), 0700) == 0 && write_file(full + "/x", ""));
    ASSERT_EQ(symlink(doc.c_str(), xsd.c_str()), 0);
    struct stat st;
    EXPECT_EQ(kavor_write_schema(f, xsd.c_str()), 0);   // the link is replaced, not followed
    EXPECT_TRUE(read_file(doc) == "<net/>" && lstat(xsd.c_str(), &st) == 0 && S_ISREG(st.st_mode));
    testing::internal::CaptureStderr();   // libxml2's own messages go to the trace
    struct rlimit old, small = {64, 64};   // a write cut short leaves no file
    signal(SIGXFSZ, SIG_IGN), getrlimit(RLIMIT_FSIZE, &old), small.rlim_max = old.rlim_max;
    setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_EQ(kavor_write_schema(f, dir.file("cut.xsd").c_str()), -1);
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_FALSE(file_exists(dir.file("cut.xsd")));
    EXPECT_EQ(kavor_write_schema(f, full.c_str()), -1);
    EXPECT_EQ(kavor_write_schema(f, dir.file("none/net.xsd").c_str()), -1);
    EXPECT_EQ(kavor_write_schema(f, nullptr), -1);
    EXPECT_EQ(kavor_write_schema(nullptr, xsd.c_str()), -1);
    Doc d("<net/>", true);
    std::string problems;
    EXPECT_EQ(kavor_validate(doc.c_str(), xsd.c_str(), collect, &problems), 0);   // nodes may be missing
    EXPECT_EQ(kavor_validate(dir.file("none.xml").c_str(), xsd.c_str(), collect, &problems), 1) << problems;
    EXPECT_EQ(kavor_validate(doc.c_str(), doc.c_str(), collect, &problems), -1);   // no schema
    EXPECT_EQ(kavor_validate(doc.c_str(), dir.file("missing.xsd").c_str(), nullptr, nullptr), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(kavor_validate(nullptr, xsd.c_str(), nullptr, nullptr), -1);
    EXPECT_EQ(kavor_validate(doc.c_str(), nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(kavor_validate_doc(nullptr, xsd.c_str(), nullptr, nullptr), -1);
    EXPECT_EQ(kavor_validate_doc(d.doc, nullptr, nullptr, nullptr), -1);
    kavor_unregister(f);

    // Running out of memory: libxml2 passes over some refused allocations (a
    // property's text, a node's name), so a round may still succeed; one that
    // fails says so and leaves no file, and no round leaks.
    static fuzz::RichBlock rb;
    fuzz::reset(&rb);
    kavor_file_rgst_t r = kvtest::request(dir.file("dev"), "all", fx_table, &rb.all, 1);
    f = kavor_register(nullptr, &r);
    ASSERT_NE(f, nullptr);
    const std::string out = dir.file("out.xsd");
    xmlDocPtr made = nullptr;
    int32_t ret = 0;
    sweep(Alloc::libxml2, [&] { made = param_xml_schema("dev", fx_table); },
          [&](bool refused) { EXPECT_TRUE(made != nullptr || refused); xmlFreeDoc(made); });
    sweep(Alloc::libxml2, [&] { remove(out.c_str()), ret = kavor_write_schema(f, out.c_str()); },
          [&](bool refused) { EXPECT_TRUE(ret == 0 || (refused && ret == -1)); EXPECT_EQ(file_exists(out), ret == 0); });
    kavor_unregister(f);
}

}  // namespace
