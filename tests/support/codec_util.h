// codec_util.h - what the codec's tests share: descriptor rows on one line, a
// parsed document, one row written or read on its own, the every-kind block
// read in, and the small structures (a port, a rule, two variants) of tables.
#ifndef KAVOR_TEST_CODEC_UTIL_H
#define KAVOR_TEST_CODEC_UTIL_H

#include <gtest/gtest.h>

#include <cinttypes>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <algorithm>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <libxml/parser.h>

#include "../../fuzz/fuzz_table.h"
#include "param_xml.h"
#include "test_util.h"
#include "trace_capture.h"

/// A row of kind `type` named `name`: `count` values of `size` bytes each at
/// `offset` in the block; every other field zero.
inline struct pdesc row(int type, const char *name, int count, size_t size, size_t offset = 0)
{
    struct pdesc r = {};
    r.type = type, r.name = name, r.count = count, r.size = size, r.offset = offset;
    return r;
}
/// Row modifiers: a count field, a counted mode, a sub-table, an aux table.
inline struct pdesc cia(struct pdesc r, size_t aoffset) { return r.type |= PT_F_CIA, r.aoffset = aoffset, r; }
inline struct pdesc cob(struct pdesc r, size_t boffset) { return r.type |= PT_F_COB, r.boffset = boffset, r; }
inline struct pdesc sub(struct pdesc r, struct pdesc *table) { return r.pdesc = table, r; }
inline struct pdesc aux(struct pdesc r, const void *table) { return r.aux = reinterpret_cast<intptr_t>(table), r; }

/// A parsed document; "<root>children</root>" when given children only (a
/// text with its own DOCTYPE is taken whole).
struct Doc {
    xmlDoc *doc;
    explicit Doc(const std::string &children, bool whole = false)
    {
        std::string text = whole || children.rfind("<!DOCTYPE", 0) == 0 ? children : "<root>" + children + "</root>";
        doc = xmlReadMemory(text.data(), static_cast<int>(text.size()), "t.xml", nullptr, 0);
        EXPECT_NE(nullptr, doc) << text;
    }
    ~Doc() { xmlFreeDoc(doc); }
    Doc(const Doc &) = delete;
    Doc &operator=(const Doc &) = delete;
    xmlNode *root() const { return xmlDocGetRootElement(doc); }
};

/// `b` emptied, then filled from the every-kind block's expected document.
inline void read_rich(fuzz::RichBlock *b)
{
    Doc d(read_file(KAVOR_TEST_DATA_DIR "/rich_written.xml"), true);
    fuzz::reset(b), xml2param(&b->all, d.root(), fx_table);
}

/// The elements param2xml_opt makes of `table` over `mem`, as text.
inline std::string write_table(void *mem, struct pdesc *table, uint32_t options = 0)
{
    xmlNode *root = xmlNewNode(nullptr, BAD_CAST "root");
    EXPECT_EQ(0, param2xml_opt(mem, root, table, options));
    std::string out = dump_children(root);
    xmlFreeNode(root);
    return out;
}
/// Reads "<root>children</root>" into `mem` through a one-row table.
inline void read_row(void *mem, struct pdesc r, const std::string &children)
{
    struct pdesc table[2] = {r, {}};
    Doc d(children);
    if (d.doc != nullptr)
        xml2param(mem, d.root(), table);
}

/// `s` with a backslash and a letter made the character: "\n", "\t", "\r"
/// as the controls, any other as the letter itself.
inline std::string unescaped(std::string s)
{
    for (size_t at = 0; (at = s.find('\\', at)) != std::string::npos && at + 1 < s.size(); at++)
        s.replace(at, 2, s[at + 1] == 'n' ? "\n" : s[at + 1] == 't' ? "\t" : s[at + 1] == 'r' ? "\r" : s.substr(at + 1, 1));
    return s;
}

/// The `n` bytes at `p` as printable text: a zero byte as \0, a line end as
/// \n, other controls and bytes past ASCII as \xNN.
inline std::string printable(const char *p, size_t n)
{
    std::string out;
    for (const unsigned char c : std::string(p, n)) {
        char hex[8];
        std::snprintf(hex, sizeof hex, c == 0 ? "\\0" : c == '\n' ? "\\n" : c < 0x20 || c > 0x7e ? "\\x%02x" : "%c", c);
        out += hex;
    }
    return out;
}

/// The section `name` of the expected file tests/data/codec/<file>: the
/// lines after "== name" up to the next such line, without "#" comments;
/// {Z}, {Z+n} and {Z-n} in it are the size of a znode and n more or less,
/// {MAX} is SIZE_MAX.
inline std::string expected_section(const std::string &file, const std::string &name)
{
    std::string text = read_file(KAVOR_TEST_DATA_DIR "/codec/" + file), out;
    size_t at = text.find("== " + name + "\n");
    EXPECT_NE(std::string::npos, at) << file << ": " << name;
    for (at = text.find('\n', at) + 1; at != 0 && at < text.size() && text.compare(at, 3, "== ") != 0;) {
        size_t end = text.find('\n', at) + 1;
        out += text[at] == '#' ? "" : text.substr(at, end - at);
        at = end;
    }
    for (size_t end; (at = out.find('{')) != std::string::npos;) {
        end = out.find('}', at);
        const std::string what = out.substr(at + 1, end - at - 1);
        out.replace(at, end - at + 1, std::to_string(what == "MAX" ? SIZE_MAX : sizeof(struct znode) + std::atoi(what.c_str() + 1)));
    }
    return out;
}

/// Runs cases 0 to n - 1, and checks what `run` says of each (a line or
/// more), each followed by its records at `level` and below, indented,
/// against the section `name` of the expected file <file>.
inline void expect_cases(const std::string &file, const std::string &name, uint32_t level, size_t n,
                         const std::function<std::string(size_t)> &run)
{
    std::string got;
    EXPECT_GT(n, 0u) << name;
    for (size_t i = 0; i < n; i++) {
        TraceCapture cap(level);
        got += run(i) + "\n";
        for (const std::string &rec : cap.records())
            got += "  " + rec + "\n";
    }
    EXPECT_EQ(expected_section(file, name), got);
}

struct Port { int32_t speed, mtu; };
struct Rule { struct znode z; int32_t id, extra; };
struct Timer { struct znode z; int32_t period; };
struct Event { struct znode z; int32_t code; };
inline struct pdesc kPortRows[] = {row(PT_SINT, "speed", 1, 4, offsetof(Port, speed)),
                                   row(PT_SINT, "mtu", 1, 4, offsetof(Port, mtu)), {}};
inline struct pdesc kRuleRows[] = {row(PT_SINT, "id", 1, 4, offsetof(Rule, id)), {}};
inline struct pdesc kTimerRows[] = {row(PT_SINT, "period", 1, 4, offsetof(Timer, period)), {}};
inline struct pdesc kEventRows[] = {row(PT_SINT, "code", 1, 4, offsetof(Event, code)), {}};
inline struct adesc kAlts[] = {{sizeof(Timer), kTimerRows, "timer"},
                               {sizeof(Event), kEventRows, "event"}, {0, nullptr, nullptr}};

#endif
