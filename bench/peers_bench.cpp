// peers_bench.cpp - the device block saved to a file and loaded back by
// kavor (kavor_param2file / kavor_file2param, plain and gzip, no sync) and,
// side by side in the same run, by the serialisers an application would
// otherwise pick: Boost.Serialization's XML archives, cereal's XML archives
// and libcyaml. Each peer writes its own format with the same values and
// reads them back; every load is compared byte for byte with the block.
// A peer whose package was not found at configure time is reported as
// skipped.
//
// Names: peer/<save|load>/<kavor_plain|kavor_gzip|boost|cereal|cyaml>.
#include <benchmark/benchmark.h>

#include <fstream>
#include <string>

#include "device_block.h"
#include "kavor.h"

#if KAVOR_PEER_BOOST
#include <boost/archive/xml_iarchive.hpp>
#include <boost/archive/xml_oarchive.hpp>
#include <boost/serialization/nvp.hpp>
#include <boost/serialization/split_free.hpp>
#include <boost/serialization/string.hpp>
#endif
#if KAVOR_PEER_CEREAL
#include <cereal/archives/xml.hpp>
#include <cereal/types/string.hpp>
#endif

#if KAVOR_PEER_CYAML
extern "C" int peer_cyaml_save(const struct dev_block *d, const char *path);
extern "C" int peer_cyaml_load(const char *path, struct dev_block *out);
#endif

#if KAVOR_PEER_BOOST || KAVOR_PEER_CEREAL
namespace {

// Copies text into a string field, cut to fit, the rest left as it was.
void copy_into(char *dst, size_t cap, const std::string &s)
{
    size_t n = s.size() < cap ? s.size() : cap - 1;
    memcpy(dst, s.data(), n);
    dst[n] = '\0';
}

}  // namespace
#endif

// ---- Boost.Serialization: strings as text, everything else as it stands ----

#if KAVOR_PEER_BOOST
namespace boost {
namespace serialization {

template <class A>
void save(A &ar, const dev_label &l, unsigned)
{
    std::string s(l.text);
    ar << make_nvp("line", s);
}
template <class A>
void load(A &ar, dev_label &l, unsigned)
{
    std::string s;
    ar >> make_nvp("line", s);
    copy_into(l.text, sizeof l.text, s);
}
template <class A>
void save(A &ar, const dev_port &p, unsigned)
{
    std::string name(p.name);
    ar << make_nvp("id", p.id) << make_nvp("vlan", p.vlan) << make_nvp("mac", p.mac)
       << make_nvp("gain", p.gain) << make_nvp("name", name) << make_nvp("mode", p.mode)
       << make_nvp("flags", p.flags);
}
template <class A>
void load(A &ar, dev_port &p, unsigned)
{
    std::string name;
    ar >> make_nvp("id", p.id) >> make_nvp("vlan", p.vlan) >> make_nvp("mac", p.mac) >>
        make_nvp("gain", p.gain) >> make_nvp("name", name) >> make_nvp("mode", p.mode) >>
        make_nvp("flags", p.flags);
    copy_into(p.name, sizeof p.name, name);
}
template <class A>
void serialize(A &ar, dev_block &d, unsigned)
{
    ar &make_nvp("u8", d.u8) & make_nvp("u16", d.u16) & make_nvp("s32", d.s32) &
        make_nvp("u32", d.u32) & make_nvp("s64", d.s64) & make_nvp("dbl", d.dbl) &
        make_nvp("label", d.labels) & make_nvp("port", d.ports);
}

}  // namespace serialization
}  // namespace boost
BOOST_SERIALIZATION_SPLIT_FREE(dev_label)
BOOST_SERIALIZATION_SPLIT_FREE(dev_port)
#endif

// ---- cereal: the same split ---------------------------------------------------

#if KAVOR_PEER_CEREAL
template <class A>
void save(A &ar, const dev_label &l)
{
    ar(cereal::make_nvp("line", std::string(l.text)));
}
template <class A>
void load(A &ar, dev_label &l)
{
    std::string s;
    ar(cereal::make_nvp("line", s));
    copy_into(l.text, sizeof l.text, s);
}
template <class A>
void save(A &ar, const dev_port &p)
{
    ar(cereal::make_nvp("id", p.id), cereal::make_nvp("vlan", p.vlan),
       cereal::make_nvp("mac", p.mac), cereal::make_nvp("gain", p.gain),
       cereal::make_nvp("name", std::string(p.name)), cereal::make_nvp("mode", p.mode),
       cereal::make_nvp("flags", p.flags));
}
template <class A>
void load(A &ar, dev_port &p)
{
    std::string name;
    ar(cereal::make_nvp("id", p.id), cereal::make_nvp("vlan", p.vlan),
       cereal::make_nvp("mac", p.mac), cereal::make_nvp("gain", p.gain),
       cereal::make_nvp("name", name), cereal::make_nvp("mode", p.mode),
       cereal::make_nvp("flags", p.flags));
    copy_into(p.name, sizeof p.name, name);
}
template <class A>
void serialize(A &ar, dev_block &d)
{
    ar(cereal::make_nvp("u8", d.u8), cereal::make_nvp("u16", d.u16),
       cereal::make_nvp("s32", d.s32), cereal::make_nvp("u32", d.u32),
       cereal::make_nvp("s64", d.s64), cereal::make_nvp("dbl", d.dbl),
       cereal::make_nvp("label", d.labels), cereal::make_nvp("port", d.ports));
}
#endif

namespace {

struct Peer {
    const char *name;
    const char *suffix;
    bool (*save)(const device::Device *d, const std::string &path);
    bool (*load)(const std::string &path, device::Device *d);
};

std::string g_dir;

kavor_file_rgst_t request(const std::string &path, void *mem, bool gz)
{
    kavor_file_rgst_t r;
    memset(&r, 0, sizeof r);
    snprintf(r.filename, sizeof r.filename, "%s", path.c_str());
    snprintf(r.node_name, sizeof r.node_name, "dev");
    r.param_desc = device::table();
    r.mem = mem;
    r.ugz = gz ? 0 : 1;
    return r;
}

template <bool Gz>
bool kavor_save(const device::Device *d, const std::string &path)
{
    kavor_file_rgst_t r = request(path, const_cast<device::Device *>(d), Gz);
    return kavor_param2file(&r) == 0;
}
template <bool Gz>
bool kavor_load(const std::string &path, device::Device *d)
{
    kavor_file_rgst_t r = request(path, d, Gz);
    return kavor_file2param(&r) == 0;
}

#if KAVOR_PEER_BOOST
bool boost_save(const device::Device *d, const std::string &path)
{
    std::ofstream os(path);
    {
        boost::archive::xml_oarchive oa(os);
        oa << boost::serialization::make_nvp("device", *d);
    }
    return static_cast<bool>(os);
}
bool boost_load(const std::string &path, device::Device *d)
{
    std::ifstream is(path);
    boost::archive::xml_iarchive ia(is);
    ia >> boost::serialization::make_nvp("device", *d);
    return static_cast<bool>(is);
}
#endif

#if KAVOR_PEER_CEREAL
bool cereal_save(const device::Device *d, const std::string &path)
{
    std::ofstream os(path);
    {
        cereal::XMLOutputArchive oa(os);
        oa(cereal::make_nvp("device", *d));
    }
    return static_cast<bool>(os);
}
bool cereal_load(const std::string &path, device::Device *d)
{
    std::ifstream is(path);
    cereal::XMLInputArchive ia(is);
    ia(cereal::make_nvp("device", *d));
    return true;
}
#endif

#if KAVOR_PEER_CYAML
bool cyaml_save(const device::Device *d, const std::string &path)
{
    return peer_cyaml_save(d, path.c_str()) == 0;
}
bool cyaml_load(const std::string &path, device::Device *d)
{
    return peer_cyaml_load(path.c_str(), d) == 0;
}
#endif

const Peer kPeers[] = {
    {"kavor_plain", "/kv_plain", kavor_save<false>, kavor_load<false>},
    {"kavor_gzip", "/kv_gzip", kavor_save<true>, kavor_load<true>},
#if KAVOR_PEER_BOOST
    {"boost", "/boost.xml", boost_save, boost_load},
#endif
#if KAVOR_PEER_CEREAL
    {"cereal", "/cereal.xml", cereal_save, cereal_load},
#endif
#if KAVOR_PEER_CYAML
    {"cyaml", "/cyaml.yaml", cyaml_save, cyaml_load},
#endif
};

// The file a peer writes; kavor adds its own suffix.
std::string written(const Peer &p)
{
    std::string base = g_dir + p.suffix;
    if (strcmp(p.name, "kavor_plain") == 0)
        return base + ".xml";
    if (strcmp(p.name, "kavor_gzip") == 0)
        return base + ".xml.gz";
    return base;
}

device::Device *block()
{
    static device::Device *b = device::make();
    return b;
}

void run_save(benchmark::State &st, const Peer *p)
{
    std::string path = g_dir + p->suffix;
    for (auto _ : st)
        if (!p->save(block(), path))
            st.SkipWithError("save failed");
    st.counters["file_bytes"] = static_cast<double>(bench::file_size(written(*p)));
}

void run_load(benchmark::State &st, const Peer *p)
{
    std::string path = g_dir + p->suffix;
    device::Device *out = static_cast<device::Device *>(calloc(1, sizeof(device::Device)));
    if (!p->save(block(), path))
        st.SkipWithError("save failed");
    for (auto _ : st)
        if (!p->load(path, out))
            st.SkipWithError("load failed");
    if (!device::same(out, block()))
        st.SkipWithError("read back another block");
    free(out);
}

}  // namespace

int main(int argc, char **argv)
{
    bench::keep_heap();
    g_dir = bench::scratch_dir();
    for (const Peer &p : kPeers) {
        benchmark::RegisterBenchmark((std::string("peer/save/") + p.name).c_str(), run_save, &p)
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark((std::string("peer/load/") + p.name).c_str(), run_load, &p)
            ->Unit(benchmark::kMicrosecond);
    }
    const char *missing[] = {
#if !KAVOR_PEER_BOOST
        "boost",
#endif
#if !KAVOR_PEER_CEREAL
        "cereal",
#endif
#if !KAVOR_PEER_CYAML
        "cyaml",
#endif
        nullptr};
    for (const char **m = missing; *m; m++)
        fprintf(stderr, "peer %s: not found at configure time, skipped\n", *m);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    for (const char **m = missing; *m; m++)
        benchmark::AddCustomContext(std::string("peer_missing_") + *m, "skipped");
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    bench::remove_tree(g_dir);
    return 0;
}
