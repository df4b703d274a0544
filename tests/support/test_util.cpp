#include "test_util.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/stat.h>

#include <libxml/xmlsave.h>

TempDir::TempDir()
{
    const char *base = std::getenv("TMPDIR");
    std::string tmpl = std::string(base && *base ? base : "/tmp") + "/kavor-test-XXXXXX";
    char *made = mkdtemp(&tmpl[0]);
    path_ = made ? made : "";
}

TempDir::~TempDir()
{
    if (!path_.empty()) {
        std::string cmd = "rm -rf '" + path_ + "'";
        if (std::system(cmd.c_str()) != 0) {
            // Nothing to do: a leftover temporary directory harms no test.
        }
    }
}

std::string read_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

bool write_file(const std::string &path, const std::string &content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    return static_cast<bool>(out);
}

bool file_exists(const std::string &path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

std::string dump_node(xmlNode *node)
{
    xmlBuffer *buf = xmlBufferCreate();
    xmlNodeDump(buf, node->doc, node, 0, 0);
    std::string out(reinterpret_cast<const char *>(xmlBufferContent(buf)),
                    static_cast<size_t>(xmlBufferLength(buf)));
    xmlBufferFree(buf);
    return out;
}

std::string dump_children(xmlNode *node)
{
    std::string out;
    for (xmlNode *c = node->children; c; c = c->next)
        out += dump_node(c);
    return out;
}
