// kavor_cli.h - the `kavor` command: its entry point, which main() and the
// tests call, and the element paths that get, set and diff share.
//
// A path names values the way the reader places them, with no table: the
// children of one name form a row; each takes the positions its "idx" gives
// (else the ones after the element before it): an element of numbers one
// position per number, any other element (a text, a structure, a list, a
// buffer's wrapper) one position.
#ifndef KAVOR_CLI_H
#define KAVOR_CLI_H

#include <map>
#include <string>
#include <vector>

#include <libxml/tree.h>

/// Runs the command line `argv` (argv[0] is the program's name), writing to
/// standard output and error; returns the exit code.
int kavor_cli(int argc, char **argv);

namespace kvcli {

/// Exit codes: see docs/cli.md.
enum Exit { kOk = 0, kNo = 1, kTrouble = 2, kUsage = 64 };

/// One position of a row: an element as a whole (token -1), or one number
/// of an element of numbers.
struct Item {
    xmlNodePtr elem;
    int token;
};
using Row = std::map<long, Item>;

/// The row of `name` among the children of `parent`.
Row row_of(xmlNodePtr parent, const std::string &name);
/// Whether `e` holds children rather than a value (child elements, "cnt",
/// or nothing at all).
bool is_container(xmlNodePtr e);
/// The text of one position.
std::string value_of(const Item &it);

/// `get`: the value(s) at `path` below the root of `doc` into *out;
/// kOk, kNo (nothing there) or kUsage (a bad path), with *err.
int get_value(xmlDocPtr doc, const std::string &path, std::string *out, std::string *err);
/// `set`: puts `value` at `path`; the same results.
int set_value(xmlDocPtr doc, const std::string &path, const std::string &value, std::string *err);
/// `diff`: one line "<path>\t<a>\t<b>" per position whose values differ.
void diff_elements(xmlNodePtr a, xmlNodePtr b, const std::string &prefix,
                   std::vector<std::string> *lines);

}  // namespace kvcli

#endif
