// test_util.h - small helpers shared by the tests: a temporary directory that
// removes itself, whole-file reads and writes (plain or gzip), and the XML
// text of an element tree.
#ifndef KAVOR_TEST_UTIL_H
#define KAVOR_TEST_UTIL_H

#include <string>
#include <vector>

#include <libxml/tree.h>

/// A fresh directory under $TMPDIR (or /tmp), removed with its content.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    /// path() + "/" + name
    std::string file(const std::string &name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

/// The whole content of a file; empty if it can't be read.
std::string read_file(const std::string &path);
/// The content of a file, uncompressed if it is gzip data.
std::string gunzip(const std::string &path);
/// Writes `content` to `path`, replacing it, plain or as gzip data.
bool write_file(const std::string &path, const std::string &content, bool gz = false);
/// True if `path` exists (any type, links not followed).
bool file_exists(const std::string &path);
/// The children of `node` as XML text, one after another, unindented.
std::string dump_children(xmlNode *node);
/// `s` repeated `n` times.
std::string repeat(const std::string &s, size_t n);
/// The names of the entries of `dir` that end in `suffix` (not "." or ".."), sorted.
std::vector<std::string> files_in(const std::string &dir, const std::string &suffix = "");
/// Runs `cmd` in a shell; its exit code (-1 if it didn't exit) and, in *out,
/// what it wrote to standard output and error.
int run(const std::string &cmd, std::string *out);

#endif
