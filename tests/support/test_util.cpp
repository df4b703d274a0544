#include "test_util.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

TempDir::TempDir()
{
    const char *base = std::getenv("TMPDIR");
    std::string tmpl = std::string(base && *base ? base : "/tmp") + "/kavor-test-XXXXXX";
    path_ = mkdtemp(&tmpl[0]) != nullptr ? tmpl : "";
}

TempDir::~TempDir()
{
    std::error_code ignored;   // a leftover temporary directory harms no test
    std::filesystem::remove_all(path_, ignored);
}

std::string read_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string gunzip(const std::string &path)
{
    gzFile gz = gzopen(path.c_str(), "rb");
    std::string out;
    char buf[4096];
    for (int n; gz != nullptr && (n = gzread(gz, buf, sizeof buf)) > 0;)
        out.append(buf, static_cast<size_t>(n));
    gzclose(gz);   // nothing for a file not opened
    return out;
}

bool write_file(const std::string &path, const std::string &content, bool gz)
{
    if (gz) {
        gzFile f = gzopen(path.c_str(), "wb");
        int n = f != nullptr ? gzwrite(f, content.data(), static_cast<unsigned>(content.size())) : -1;
        return f != nullptr && gzclose(f) == Z_OK && n == static_cast<int>(content.size());
    }
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    return static_cast<bool>(out << content);
}

bool file_exists(const std::string &path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

std::string dump_children(xmlNode *node)
{
    xmlBuffer *buf = xmlBufferCreate();
    for (xmlNode *c = node->children; c; c = c->next)
        xmlNodeDump(buf, c->doc, c, 0, 0);
    std::string out(reinterpret_cast<const char *>(xmlBufferContent(buf)),
                    static_cast<size_t>(xmlBufferLength(buf)));
    xmlBufferFree(buf);
    return out;
}

std::string repeat(const std::string &s, size_t n)
{
    std::string out;
    while (n-- > 0)
        out += s;
    return out;
}

std::vector<std::string> files_in(const std::string &dir, const std::string &suffix)
{
    std::vector<std::string> out;
    std::error_code ignored;   // no directory, no names
    for (const auto &e : std::filesystem::directory_iterator(dir, ignored)) {
        const std::string n = e.path().filename().string();
        if (n.size() >= suffix.size() && n.compare(n.size() - suffix.size(), suffix.size(), suffix) == 0)
            out.push_back(n);
    }
    std::sort(out.begin(), out.end());
    return out;
}

int run(const std::string &cmd, std::string *out)
{
    FILE *p = popen((cmd + " 2>&1").c_str(), "r");
    char buf[4096];
    out->clear();
    for (size_t n; p != nullptr && (n = fread(buf, 1, sizeof buf, p)) > 0;)
        out->append(buf, n);
    int st = p != nullptr ? pclose(p) : -1;
    return st != -1 && WIFEXITED(st) ? WEXITSTATUS(st) : -1;
}
