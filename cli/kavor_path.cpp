// kavor_path.cpp - element paths of the `kavor` command: rows and positions
// as the reader places them, one value read or changed by its path, and the
// values that differ between two documents.
#include <errno.h>
#include <inttypes.h>
#include <stdlib.h>
#include <string.h>

#include <set>

#include "kavor_cli.h"

namespace kvcli {

namespace {

std::string content(xmlNodePtr e)
{
    xmlChar *c = xmlNodeGetContent(e);
    std::string s = c != nullptr ? reinterpret_cast<const char *>(c) : "";
    xmlFree(c);
    return s;
}

std::vector<std::string> tokens(const std::string &s)
{
    std::vector<std::string> out;
    size_t i = 0;
    while (i < s.size()) {
        while (i < s.size() && strchr(" \t\r\n", s[i]) != nullptr)
            i++;
        size_t j = i;
        while (j < s.size() && strchr(" \t\r\n", s[j]) == nullptr)
            j++;
        if (j > i)
            out.push_back(s.substr(i, j - i));
        i = j;
    }
    return out;
}

// A number as the reader's conversions take it, whole: sign and magnitude
// of an integer (any base), else a float.
bool as_integer(const std::string &t, bool *neg, uintmax_t *mag)
{
    const char *p = t.c_str();
    *neg = *p == '-';
    if (*p == '-' || *p == '+')
        p++;
    if (*p < '0' || *p > '9')
        return false;
    char *end;
    errno = 0;
    *mag = strtoumax(p, &end, 0);
    return *end == '\0' && errno == 0;
}

bool as_float(const std::string &t, double *v)
{
    char *end;
    *v = strtod(t.c_str(), &end);
    return !t.empty() && *end == '\0';
}

bool is_number(const std::string &t)
{
    bool neg;
    uintmax_t mag;
    double v;
    return as_integer(t, &neg, &mag) || as_float(t, &v);
}

// The element's numbers, or an empty list when it holds a text that isn't
// all numbers (a string, an enumeration word).
std::vector<std::string> numbers_of(xmlNodePtr e)
{
    std::vector<std::string> t = tokens(content(e));
    for (const std::string &s : t)
        if (!is_number(s))
            return {};
    return t;
}

struct Step {
    std::string name;
    long index;   // -1: none
};

bool parse_path(const std::string &path, std::vector<Step> *steps, std::string *err)
{
    size_t i = 0;
    while (i <= path.size()) {
        size_t j = path.find('/', i);
        if (j == std::string::npos)
            j = path.size();
        std::string seg = path.substr(i, j - i);
        i = j + 1;
        if (seg.empty())
            continue;
        Step s{seg, -1};
        size_t br = seg.find('[');
        if (br != std::string::npos) {
            char *end;
            s.name = seg.substr(0, br);
            s.index = strtol(seg.c_str() + br + 1, &end, 10);
            if (end == seg.c_str() + br + 1 || strcmp(end, "]") != 0 || s.index < 0) {
                *err = "bad position in \"" + seg + "\"";
                return false;
            }
        }
        if (s.name.empty()) {
            *err = "empty name in \"" + path + "\"";
            return false;
        }
        steps->push_back(s);
    }
    if (steps->empty())
        *err = "empty path";
    return !steps->empty();
}

// Follows every step but the last (each names one element with children,
// position 0 when it has no [i]); *row is the last step's row.
int walk(xmlDocPtr doc, const std::string &path, Step *last, Row *row, std::string *err)
{
    std::vector<Step> steps;
    if (!parse_path(path, &steps, err))
        return kUsage;
    xmlNodePtr cur = xmlDocGetRootElement(doc);
    for (size_t i = 0; i + 1 < steps.size(); i++) {
        Row r = row_of(cur, steps[i].name);
        auto it = r.find(steps[i].index < 0 ? 0 : steps[i].index);
        if (it == r.end() || it->second.token >= 0 || !is_container(it->second.elem)) {
            *err = "no element with children at \"" + steps[i].name + "\"";
            return kNo;
        }
        cur = it->second.elem;
    }
    *last = steps.back();
    *row = row_of(cur, last->name);
    if (row->empty()) {
        *err = "nothing at \"" + path + "\"";
        return kNo;
    }
    return kOk;
}

void replace_text(xmlNodePtr e, const std::string &text)
{
    while (e->children != nullptr) {
        xmlNodePtr c = e->children;
        xmlUnlinkNode(c);
        xmlFreeNode(c);
    }
    xmlNodeAddContent(e, BAD_CAST text.c_str());
}

std::string escaped(const std::string &v)
{
    if (v == "-")
        return "\\-";
    std::string out;
    for (char c : v) {
        switch (c) {
        case '\\': out += "\\\\"; break;
        case '\t': out += "\\t"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        default: out += c;
        }
    }
    return out;
}

bool same_value(const std::string &a, const std::string &b)
{
    bool na, nb;
    uintmax_t ma, mb;
    double da, db;
    if (as_integer(a, &na, &ma) && as_integer(b, &nb, &mb))
        return ma == mb && (na == nb || ma == 0);
    if (as_float(a, &da) && as_float(b, &db))
        return da == db || (da != da && db != db);
    return a == b;
}

// An attribute as diff shows it: escaped, or "-" when there is none.
std::string attr(xmlNodePtr e, const char *name)
{
    xmlChar *v = xmlGetProp(e, BAD_CAST name);
    std::string s = v != nullptr ? escaped(reinterpret_cast<const char *>(v)) : "-";
    xmlFree(v);
    return s;
}

}  // namespace

bool is_container(xmlNodePtr e)
{
    for (xmlNodePtr c = e->children; c != nullptr; c = c->next)
        if (c->type == XML_ELEMENT_NODE)
            return true;
    return xmlHasProp(e, BAD_CAST "cnt") != nullptr || tokens(content(e)).empty();
}

Row row_of(xmlNodePtr parent, const std::string &name)
{
    Row row;
    long next = 0;
    for (xmlNodePtr c = parent->children; c != nullptr; c = c->next) {
        if (c->type != XML_ELEMENT_NODE || name != reinterpret_cast<const char *>(c->name))
            continue;
        long start = next;
        xmlChar *idx = xmlGetProp(c, BAD_CAST "idx");
        if (idx != nullptr) {
            start = atoi(reinterpret_cast<const char *>(idx));
            xmlFree(idx);
        }
        if (start < 0)
            continue;  // the reader refuses the element and keeps its place
        std::vector<std::string> nums = is_container(c) ? std::vector<std::string>() : numbers_of(c);
        if (nums.empty()) {
            row[start] = Item{c, -1};
            next = start + 1;
            continue;
        }
        for (size_t k = 0; k < nums.size(); k++)
            row[start + (long)k] = Item{c, (int)k};
        next = start + (long)nums.size();
    }
    return row;
}

std::string value_of(const Item &it)
{
    if (it.token < 0)
        return content(it.elem);
    return numbers_of(it.elem)[(size_t)it.token];
}

int get_value(xmlDocPtr doc, const std::string &path, std::string *out, std::string *err)
{
    Step last;
    Row row;
    int rc = walk(doc, path, &last, &row, err);
    if (rc != kOk)
        return rc;
    if (last.index >= 0) {
        auto it = row.find(last.index);
        if (it == row.end()) {
            *err = "nothing at position " + std::to_string(last.index) + " of \"" + last.name + "\"";
            return kNo;
        }
        row = Row{{last.index, it->second}};
    }
    out->clear();
    for (const auto &kv : row) {
        if (kv.second.token < 0 && is_container(kv.second.elem)) {
            *err = "\"" + path + "\" holds elements, not a value: name one of them";
            return kNo;
        }
        *out += (out->empty() ? "" : " ") + value_of(kv.second);
    }
    return kOk;
}

int set_value(xmlDocPtr doc, const std::string &path, const std::string &value, std::string *err)
{
    Step last;
    Row row;
    int rc = walk(doc, path, &last, &row, err);
    if (rc != kOk)
        return rc;
    Item it = row.begin()->second;
    if (last.index >= 0) {
        auto found = row.find(last.index);
        if (found == row.end()) {
            *err = "nothing at position " + std::to_string(last.index) + " of \"" + last.name + "\"";
            return kNo;
        }
        it = found->second;
    } else {
        for (const auto &kv : row)
            if (kv.second.elem != it.elem) {
                *err = "\"" + path + "\" has several elements: give a position, " + last.name + "[i]";
                return kUsage;
            }
        it.token = -1;
    }
    if (it.token < 0 && is_container(it.elem) && it.elem->children != nullptr) {
        *err = "\"" + path + "\" holds elements, not a value: name one of them";
        return kNo;
    }
    if (it.token < 0) {
        replace_text(it.elem, value);
        return kOk;
    }
    std::vector<std::string> nums = numbers_of(it.elem);
    nums[(size_t)it.token] = value;
    std::string joined;
    for (const std::string &n : nums)
        joined += (joined.empty() ? "" : " ") + n;
    replace_text(it.elem, joined);
    return kOk;
}

void diff_elements(xmlNodePtr a, xmlNodePtr b, const std::string &prefix,
                   std::vector<std::string> *lines)
{
    std::vector<std::string> names;
    std::set<std::string> seen;
    for (xmlNodePtr p : {a, b})
        for (xmlNodePtr c = p->children; c != nullptr; c = c->next)
            if (c->type == XML_ELEMENT_NODE && seen.insert((const char *)c->name).second)
                names.push_back((const char *)c->name);
    auto line = [&](const std::string &path, const std::string &va, const std::string &vb) {
        lines->push_back(path + "\t" + va + "\t" + vb);
    };
    for (const std::string &name : names) {
        Row ra = row_of(a, name), rb = row_of(b, name);
        std::set<long> keys;
        for (const Row *r : {&ra, &rb})
            for (const auto &kv : *r)
                keys.insert(kv.first);
        bool several = ra.size() > 1 || rb.size() > 1;
        for (long k : keys) {
            std::string path = prefix + name + (several ? "[" + std::to_string(k) + "]" : "");
            auto ia = ra.find(k), ib = rb.find(k);
            bool ca = ia != ra.end() && ia->second.token < 0 && is_container(ia->second.elem);
            bool cb = ib != rb.end() && ib->second.token < 0 && is_container(ib->second.elem);
            std::string va = ia == ra.end() ? "-" : ca ? "(elements)" : escaped(value_of(ia->second));
            std::string vb = ib == rb.end() ? "-" : cb ? "(elements)" : escaped(value_of(ib->second));
            if (ca && cb) {
                for (const char *at : {"typ", "cnt"}) {
                    std::string x = attr(ia->second.elem, at), y = attr(ib->second.elem, at);
                    if (x != y)
                        line(path + "@" + at, x, y);
                }
                diff_elements(ia->second.elem, ib->second.elem, path + "/", lines);
            } else if (ca || cb || ia == ra.end() || ib == rb.end() ||
                       !same_value(value_of(ia->second), value_of(ib->second))) {
                line(path, va, vb);
            }
        }
    }
}

}  // namespace kvcli
