// fuzz_names.cpp - arbitrary requests through registration and the name
// derivations: the bytes fill a request record as they come (names need not
// be terminated, ugz takes any value), which is registered with a manager
// (twice, to join the file) and standalone, then unregistered; the same
// bytes go through each derivation as a terminated name. Registration
// touches no disk, so nothing here writes a file.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "fuzz_support.h"
#include "kavor_private.h"
#include "vn_mem.h"

namespace {

kavor_hdl g_mgr;
struct pdesc g_table[] = {{0, 0, 0, 0, 0, 0, 0, 0, nullptr, nullptr, 0}};
char g_mem[8];

void derive(const std::string &s)
{
    const char *n = s.c_str();
    char *names[] = {xml_file_name(n, 0), xml_file_name(n, 1), xml_file_bak_name(n),
                     get_file_root_node(n), suffix_name(n, ".tmp")};
    for (char *x : names)
        _vn_free(x, "fuzz");
    (void)isGzFile(n);
    std::string copy = s;
    cut_file_suffix(file_name_pt(&copy[0]));
    std::string v = s.substr(0, s.size() / 2), f = s.substr(s.size() / 2);
    (void)virt_name_refusal(v.c_str(), f.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::setup();
    g_mgr = kavor_create_v2("fuzznames", 3600 * 1000);
    if (g_mgr == nullptr)
        abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // The record on the heap at its exact size, so a read past it shows.
    kavor_file_rgst_t *r = static_cast<kavor_file_rgst_t *>(malloc(sizeof *r));
    memset(r, 0, sizeof *r);
    size_t n = size < sizeof r->filename ? size : sizeof r->filename;
    memcpy(r->filename, data, n);
    size_t off = n;
    n = size - off < sizeof r->node_name ? size - off : sizeof r->node_name;
    memcpy(r->node_name, data + off, n);
    off += n;
    n = size - off < sizeof r->virtfile ? size - off : sizeof r->virtfile;
    memcpy(r->virtfile, data + off, n);
    off += n;
    if (size - off >= sizeof r->ugz)
        memcpy(&r->ugz, data + off, sizeof r->ugz);
    r->param_desc = g_table;
    r->mem = g_mem;

    xml_file_hdl a = kavor_register(g_mgr, r);
    xml_file_hdl b = kavor_register(g_mgr, r);          // the same node again
    if (a != b)
        abort();
    if (r->node_name[0] != '\0') {
        r->node_name[0] ^= 0x55;                        // a second node of the file
        xml_file_hdl c = kavor_register(g_mgr, r);
        kavor_unregister(c);
    }
    (void)kavor_count_all_filename(g_mgr);
    uint8_t buf[64];
    (void)kavor_get_all_filename(g_mgr, buf, sizeof buf);
    kavor_unregister(a);
    if (kavor_count_all_filename(g_mgr) != 0)
        abort();
    xml_file_hdl s = kavor_register(nullptr, r);
    kavor_unregister(s);
    free(r);

    derive(std::string(reinterpret_cast<const char *>(data), size).c_str());
    return 0;
}
