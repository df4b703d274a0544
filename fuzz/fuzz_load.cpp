// fuzz_load.cpp - bytes written as a main file and its backup and loaded
// through kavor_load_one (with the fall-back) under one manager, and the
// main file alone through kavor_file2param.
//
// Input: byte 0 chooses the form of the names (bit 0: ugz), the rest is the
// main file's content up to the first "\n----\n", the backup's after it.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "fuzz_support.h"
#include "fuzz_table.h"
#include "kavor.h"

namespace {

std::string g_dir;
kavor_hdl g_mgr;

void put(const std::string &path, const uint8_t *data, size_t size)
{
    FILE *f = fopen(path.c_str(), "wb");
    if (f == nullptr)
        abort();
    if (size > 0 && fwrite(data, 1, size, f) != size)
        abort();
    fclose(f);
}

kavor_file_rgst_t request(int32_t ugz, fuzz::RichBlock *b)
{
    kavor_file_rgst_t r;
    memset(&r, 0, sizeof r);
    snprintf(r.filename, sizeof r.filename, "%s/cfg", g_dir.c_str());
    snprintf(r.node_name, sizeof r.node_name, "dev");
    r.param_desc = fx_table;
    r.mem = &b->all;
    r.ugz = ugz;
    return r;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::setup();
    char tmpl[] = "/tmp/kavor-fuzz-load.XXXXXX";
    if (mkdtemp(tmpl) == nullptr)
        abort();
    g_dir = tmpl;
    // A long delay: the task never saves while the target runs.
    g_mgr = kavor_create_v2("fuzzload", 3600 * 1000);
    if (g_mgr == nullptr)
        abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1 || size > (1u << 20))
        return 0;
    fuzz::begin_input();
    int32_t ugz = data[0] & 1;
    std::string rest(reinterpret_cast<const char *>(data + 1), size - 1);
    size_t cut = rest.find("\n----\n");
    std::string main_part = rest.substr(0, cut);
    std::string bak_part = cut == std::string::npos ? std::string() : rest.substr(cut + 6);
    std::string main_name = g_dir + (ugz ? "/cfg.xml" : "/cfg.xml.gz");
    std::string bak_name = g_dir + (ugz ? "/cfg.xml.bak" : "/cfg.xml.bak.gz");
    put(main_name, reinterpret_cast<const uint8_t *>(main_part.data()), main_part.size());
    put(bak_name, reinterpret_cast<const uint8_t *>(bak_part.data()), bak_part.size());

    fuzz::RichBlock b;
    fuzz::reset(&b);
    kavor_file_rgst_t r = request(ugz, &b);
    xml_file_hdl h = kavor_register(g_mgr, &r);
    if (h == nullptr)
        abort();
    int32_t ret = kavor_load_one(h);
    kavor_unregister(h);
    if (ret < -1 || ret > 1)
        abort();
    fuzz::release_reader_blocks();

    fuzz::reset(&b);
    ret = kavor_file2param(&r);
    if (ret < -1 || ret > 1)
        abort();
    fuzz::release_reader_blocks();
    unlink(main_name.c_str());
    unlink(bak_name.c_str());
    return 0;
}
