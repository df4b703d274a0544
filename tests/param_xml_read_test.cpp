// The reader: what each kind stores from the documents the writer makes and
// from many it doesn't, the count fields, the records of the refusals, and
// what the report counts.
#include <random>

#include "codec_util.h"

namespace {

// The values of an array, "a b c".
template <typename T>
std::string join(const T *v, size_t n)
{
    std::ostringstream out;
    for (size_t i = 0; i < n; i++)
        out << (i ? " " : "") << +v[i];
    return out.str();
}

// Reads each document of the section `name` of the reader's expected file
// (one line, a line end spelled "\n") through `r` into the block that `fresh`
// gives; below it "= " and what `shown` makes of the block (releasing what
// the read allocated), then its records.
void expect_read(const std::string &name, struct pdesc r, const std::function<void *()> &fresh,
                 const std::function<std::string()> &shown)
{
    std::vector<std::string> docs;
    std::istringstream in(expected_section("read.txt", name));
    for (std::string line; std::getline(in, line);)
        if (line.rfind("= ", 0) != 0 && line.rfind("  ", 0) != 0)
            docs.push_back(line);
    expect_cases("read.txt", name, 5, docs.size(), [&](size_t i) {
        read_row(fresh(), r, unescaped(docs[i]));
        return docs[i] + "\n= " + shown();
    });
}

// Every text of numbers fills an array of each width and signedness as the
// C library's base-0 conversion, called from where the last number ended and
// cut to the width, fills it.
template <typename T>
void expect_as_library(const std::string &t)
{
    const bool s = std::is_signed<T>::value;
    std::vector<T> want, got(4096, 0);
    char *end;
    for (const char *p = t.c_str(); want.size() < got.size(); p = end) {
        intmax_t v = s ? std::strtoimax(p, &end, 0) : static_cast<intmax_t>(std::strtoumax(p, &end, 0));
        if (end == p)
            break;
        want.push_back(static_cast<T>(v));
    }
    want.resize(got.size(), 0);
    read_row(got.data(), row(s ? PT_SINT : PT_UINT, "v", 4096, sizeof(T)), "<v>" + t + "</v>");
    EXPECT_EQ(want, got) << sizeof(T) << (s ? " signed: " : " unsigned: ") << t.substr(0, 80);
}

TEST(Reader, IntegerTextsAreReadAsTheLibraryReadsThem)
{
    std::vector<std::string> texts;
    std::istringstream in(expected_section("read.txt", "integer texts"));
    for (std::string line; std::getline(in, line);)
        texts.push_back(unescaped(line));
    texts.emplace_back();   // and 4000 random ones
    ASSERT_EQ(26u, texts.size());
    std::mt19937_64 rng(7);
    char buf[64];
    const char *fmt[] = {"%" PRIu64, "-%" PRIu64, "0x%" PRIx64, "-0x%" PRIX64};
    for (int i = 0; i < 4000; i++) {
        std::snprintf(buf, sizeof buf, fmt[i % 4], static_cast<uint64_t>(rng() >> (rng() % 64)));
        texts.back() += std::string(" ") + buf;
    }
    for (const std::string &t : texts) {
        expect_as_library<int8_t>(t), expect_as_library<int16_t>(t), expect_as_library<int32_t>(t), expect_as_library<int64_t>(t);
        expect_as_library<uint8_t>(t), expect_as_library<uint16_t>(t), expect_as_library<uint32_t>(t), expect_as_library<uint64_t>(t);
    }
}

// Integers placed by "idx" moving their count field, and bad sizes of each kind.
TEST(Reader, StringsIntegersFloatsAndEnumerations)
{
    char s[16];
    auto chars = [&] { return std::memset(s, '#', sizeof s); };
    auto shown = [&] { return printable(s, sizeof s); };
    expect_read("strings", row(PT_STRI, "s", 16, 16), chars, shown);
    expect_read("strings of size 4", row(PT_STRI, "s", 16, 4), chars, shown);
    expect_read("a string named text", row(PT_STRI, "text", 16, 16), chars, shown);
    struct { int32_t v[8]; int n; } b;
    expect_read("idx", cia(row(PT_SINT, "v", 8, 4), offsetof(decltype(b), n)), [&] { return std::memset(&b, 0xFF, sizeof b); },
                [&] { return join(b.v, 8) + " n=" + std::to_string(b.n); });
    expect_read("integers of size 3", row(PT_SINT, "v", 4, 3), [&] { return std::memset(&b, 0, sizeof b); }, [&] { return join(b.v, 2); });
    float f[4];
    double d[4];
    auto floats = [&] { std::fill(f, f + 4, -7.0f); return f; };
    expect_read("floats", row(PT_FLOT, "x", 4, 4), floats, [&] { return join(f, 4); });
    expect_read("doubles", row(PT_FLOT, "x", 4, 8), [&] { std::fill(d, d + 4, -7.0); return d; }, [&] { return join(d, 4); });
    expect_read("floats of size 2", row(PT_FLOT, "x", 2, 2), floats, [&] { return join(f, 4); });
    struct enume on_off[] = {{"on", 1}, {"off", 0}, {nullptr, 5}};
    int v[4];
    auto ints = [&] { return std::memset(v, 0xFF, sizeof v); };
    auto values = [&] { return join(v, 4); };
    expect_read("enumerations", aux(row(PT_ENUM, "mode", 3, 4), on_off), ints, values);
    expect_read("enumerations of count 0", aux(row(PT_ENUM, "mode", 0, 4), on_off), ints, values);
    expect_read("enumerations of size 2", aux(row(PT_ENUM, "mode", 3, 2), on_off), ints, values);
    expect_read("enumerations of size 8", aux(row(PT_ENUM, "mode", 2, 8), on_off), ints, values);
}

struct Counted { int32_t *p[3]; int n[3]; int cia; };

pdesc counted_row(int type = PT_SINT, size_t size = 4) { return cia(cob(row(type, "c", 3, size), offsetof(Counted, n)), offsetof(Counted, cia)); }

// Structures in place and behind a pointer. Counted buffers: empty entries close
// up; a new buffer starts zeroed; an entry no element reaches keeps its pointer.
// Wrappers refused for their count or index; a refused count leaves its entry
// saying "no buffer", whatever it held. "idx" on wrappers, surplus values inside.
TEST(Reader, StructuresAndCountedBuffers)
{
    struct Ports { Port p[4]; int n; Port *far; } b;
    auto speeds = [&] {
        int v[] = {b.p[0].speed, b.p[1].speed, b.p[2].speed, b.p[3].speed};
        return join(v, 4) + " n=" + std::to_string(b.n);
    };
    auto port_row = [](int type) {
        return cia(sub(row(type, "port", 4, sizeof(Port), type == PT_STRUM ? offsetof(Ports, far) : 0), kPortRows), offsetof(Ports, n));
    };
    for (int type : {PT_STRU, PT_STRUM})
        expect_read("structures", port_row(type), [&] { std::memset(&b, 0xFF, sizeof b), b.far = b.p; return &b; }, speeds);
    expect_read("structures behind no pointer", port_row(PT_STRUM), [&] { std::memset(&b, 0xFF, sizeof b), b.far = nullptr; return &b; }, speeds);
    int32_t keep = 0;
    Counted r;
    auto shown = [&](int type) {
        std::string out;
        for (int k = 0; k < 3; k++)
            out += !r.p[k] ? "- " : r.p[k] == &keep ? "kept " : (type == PT_FLOT ? join(reinterpret_cast<float *>(r.p[k]), r.n[k]) : join(r.p[k], r.n[k])) + " ";
        out += "n=" + join(r.n, 3) + " cia=" + std::to_string(r.cia);
        struct pdesc table[] = {counted_row(type), {}};
        r.p[2] = r.p[2] == &keep ? nullptr : r.p[2];
        param_xml_free(&r, table);
        return out;
    };
    auto fresh = [&] { r = {{nullptr, nullptr, nullptr}, {-9, -9, -9}, -9}; return &r; };
    expect_read("buffers", counted_row(), [&] { r = {{nullptr, nullptr, &keep}, {0, 0, 77}, 0}; return &r; }, [&] { return shown(PT_SINT); });
    expect_read("refused buffers", counted_row(), fresh, [&] { return shown(PT_SINT); });
    expect_read("refused buffers of bytes", counted_row(PT_SINT, 1), fresh, [&] { return shown(PT_SINT); });
    expect_read("buffers too large", counted_row(PT_UINT, SIZE_MAX / 2), fresh, [&] { return shown(PT_UINT); });
    expect_read("float buffers", counted_row(PT_FLOT), [&] { r = {}; return &r; }, [&] { return shown(PT_FLOT); });
}

// Each list as "name:value" of its nodes (a rule's id, a timer's period and
// an event's code share their place), "|" between lists; then released.
std::string lists(zhead_t *heads, int n, struct pdesc r)
{
    std::string out;
    for (int i = 0; i < n; i++) {
        for (struct znode *z = heads[i]; z; z = z->next)
            out += std::string(z->name ? z->name : "") + ":" + (r.size == sizeof *z ? "" : std::to_string(reinterpret_cast<Timer *>(z)->period)) + " ";
        out += "|";
    }
    struct pdesc table[] = {r, {}};
    param_xml_free(heads, table);
    EXPECT_EQ(nullptr, heads[0]);
    return out;
}

TEST(Reader, Lists)
{
    struct { zhead_t h[2]; int n; } b;
    const struct pdesc r = cia(sub(row(PT_LIST, "rule", 2, sizeof(Rule)), kRuleRows), offsetof(decltype(b), n));
    auto fresh = [&] { b = {{nullptr, nullptr}, -9}; return &b; };
    expect_read("lists", r, fresh, [&] { return lists(b.h, 2, r) + " n=" + std::to_string(b.n); });
    expect_read("lists of small nodes", sub(row(PT_LIST, "rule", 2, 4), kRuleRows), fresh, [&] { return lists(b.h, 2, r); });
    const struct pdesc bare = sub(row(PT_LIST, "rule", 2, sizeof(struct znode)), kRuleRows + 1);
    expect_read("lists of bare nodes", bare, fresh, [&] { return lists(b.h, 2, bare); });
    zhead_t head;
    auto one = [&] { head = nullptr; return &head; };
    const struct pdesc v = aux(row(PT_VLST, "task", 1, 0), kAlts), no_adesc = row(PT_VLST, "task", 1, 0);
    struct adesc none[] = {{sizeof(Timer), nullptr, nullptr}};
    expect_read("variant lists", v, one, [&] { return lists(&head, 1, v); });
    expect_read("variant lists without adesc", no_adesc, one, [&] { return lists(&head, 1, no_adesc); });
    expect_read("variant lists of no alternative", aux(no_adesc, none), one, [&] { return lists(&head, 1, aux(no_adesc, none)); });
}

TEST(Reader, TheFrameMatchesChildrenToTheFirstRowOfTheirName)
{
    int32_t v[2] = {0, 0};
    struct pdesc table[] = {row(PT_SINT, "v", 1, 4), row(0xB000, "odd", 1, 4), row(PT_SINT, "v", 1, 4, 4), {},
                            row(PT_SINT, "late", 1, 4, 4), {}};
    Doc d("\n<v>3</v><!-- note --><zz/><odd>1</odd><odd/><late>9</late><text>t</text><v idx=\"0\">2</v>");
    expect_cases("read.txt", "frame", 5, 1, [&](size_t) {
        const int result = xml2param(v, d.root(), table);
        return std::to_string(result) + " " + join(v, 2);
    });
}

// What the report counts: the kinds of case with a count or a path, each
// with its count and path ("-" for none). Past the first 256 rows, rows are
// found by their names: rows r0 to r259 beside elements of all but r258.
TEST(Reader, TheReportCountsWhatTheReaderDidToTheValues)
{
    struct enume on[] = {{"on", 1}, {nullptr, 0}};
    std::vector<std::string> names;
    std::vector<struct pdesc> many;
    std::string doc;
    for (int i = 0; i < 260; i++)
        names.push_back("r" + std::to_string(i)), doc += i == 258 ? "" : "<" + names[i] + ">1</" + names[i] + ">";
    for (int i = 0; i <= 260; i++)
        many.push_back(i < 260 ? row(PT_SINT, names[i].c_str(), 1, 4, 4 * i) : pdesc{});
    std::vector<std::pair<std::vector<struct pdesc>, std::string>> cases = {
        {{row(PT_SINT, "v", 2, 4), {}}, "<v idx=\"2\">1</v><v idx=\"-1\">1</v><v>1</v>"},
        {{row(PT_SINT, "v", 4, 1), {}}, "<v>-128 127 -129 128</v>"},
        {{row(PT_STRI, "s", 4, 4), {}}, "<s>abc</s><s>abcd</s>"},
        {{aux(row(PT_ENUM, "e", 2, 4), on), {}}, "<e>on</e><e>On</e>"},
        {{row(PT_SINT, "v", 2, 4), {}}, "<v>99999999999999999999 -99999999999999999999</v>"},
        {{row(PT_UINT, "v", 2, 8), {}}, "<v>18446744073709551616</v>"},
        {{row(PT_FLOT, "v", 2, 4), {}}, "<v> -1e39</v>"},
        {{row(PT_FLOT, "v", 2, 4), {}}, "<v> -inf +Infinity</v>"},
        {{row(PT_FLOT, "v", 2, 8), {}}, "<v>1e999</v>"},
        // A list row named "text" (a bad row) takes the text between its nodes as a node.
        {{sub(row(PT_LIST, "text", 1, sizeof(Rule)), kRuleRows), {}}, "<text>\n<text><id>1</id></text></text>"},
        {many, doc}};
    const char *kinds[] = {"narrowed", "not_number", "unknown_word", "over_capacity", "unknown", "missing"};
    expect_cases("read.txt", "report", 3, cases.size(), [&](size_t i) {
        int32_t mem[260] = {};
        param_xml_report_t rep;
        Doc d(cases[i].second);
        xml2param_report(mem, d.root(), cases[i].first.data(), 0, &rep);
        param_xml_free(mem, cases[i].first.data());
        const param_xml_case_t *counted[] = {&rep.narrowed, &rep.not_number, &rep.unknown_word, &rep.over_capacity, &rep.unknown, &rep.missing};
        std::string out;
        for (int k = 0; k < 6; k++)
            if (counted[k]->count || counted[k]->path[0])
                out += std::string(out.empty() ? "" : " ") + kinds[k] + " " + std::to_string(counted[k]->count) + " " + counted[k]->path;
        return out.empty() ? "-" : out;
    });
}

}  // namespace
