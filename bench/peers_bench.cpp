// peers_bench.cpp - the device block saved to a file and loaded back by
// kavor (kavor_param2file / kavor_file2param, plain and gzip) and, side by
// side in the same run, by the serialisers an application would otherwise
// pick: Boost.Serialization's and cereal's XML archives, and libcyaml. Each
// peer writes its own format with the same values and reads them back.
// Invariant: every load is compared byte for byte with the block; a peer
// not found at configure time is reported as skipped.
// Names: peer/<save|load>/<kavor_plain|kavor_gzip|boost|cereal|cyaml>.
#include <fstream>
#include <string>

#include "fixture.h"

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

// Copies text into a string field, cut to fit, the rest left as it was.
inline void copy_into(char *dst, size_t cap, const std::string &s)
{
    size_t n = s.size() < cap ? s.size() : cap - 1;
    memcpy(dst, s.data(), n);
    dst[n] = '\0';
}

// ---- Boost.Serialization: strings as text, everything else as it stands ----

#if KAVOR_PEER_BOOST
namespace boost::serialization {

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
}  // namespace boost::serialization
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
// A peer: the path its save and load take, in the scratch directory, and the
// file they write (kavor adds its suffix).
struct Peer {
    const char *name, *file, *written;
    bool gz;
    device::SaveFn save;
    device::LoadFn load;
};

#if KAVOR_PEER_BOOST
bool boost_save(const device::Device *d, const std::string &path, bool)
{
    std::ofstream os(path);
    {
        boost::archive::xml_oarchive oa(os);
        oa << boost::serialization::make_nvp("device", *d);
    }
    return static_cast<bool>(os);
}
bool boost_load(const std::string &path, device::Device *d, bool)
{
    std::ifstream is(path);
    boost::archive::xml_iarchive ia(is);
    ia >> boost::serialization::make_nvp("device", *d);
    return static_cast<bool>(is);
}
#endif

#if KAVOR_PEER_CEREAL
bool cereal_save(const device::Device *d, const std::string &path, bool)
{
    std::ofstream os(path);
    {
        cereal::XMLOutputArchive oa(os);
        oa(cereal::make_nvp("device", *d));
    }
    return static_cast<bool>(os);
}
bool cereal_load(const std::string &path, device::Device *d, bool)
{
    std::ifstream is(path);
    cereal::XMLInputArchive ia(is);
    ia(cereal::make_nvp("device", *d));
    return true;
}
#endif

const Peer kPeers[] = {
    {"kavor_plain", "kv_plain", "kv_plain.xml", false, device::kavor_save, device::kavor_load},
    {"kavor_gzip", "kv_gzip", "kv_gzip.xml.gz", true, device::kavor_save, device::kavor_load},
#if KAVOR_PEER_BOOST
    {"boost", "boost.xml", "boost.xml", false, boost_save, boost_load},
#endif
#if KAVOR_PEER_CEREAL
    {"cereal", "cereal.xml", "cereal.xml", false, cereal_save, cereal_load},
#endif
#if KAVOR_PEER_CYAML
    {"cyaml", "cyaml.yaml", "cyaml.yaml", false,
     [](const device::Device *d, const std::string &p, bool) { return peer_cyaml_save(d, p.c_str()) == 0; },
     [](const std::string &p, device::Device *d, bool) { return peer_cyaml_load(p.c_str(), d) == 0; }},
#endif
};
}  // namespace

int main(int argc, char **argv)
{
    static bench::Scratch dir;
    for (const Peer &p : kPeers)
        device::register_save_load(std::string("peer/save/") + p.name, std::string("peer/load/") + p.name,
                                   p.save, p.load, dir / p.file, p.gz, dir / p.written);
    const std::pair<const char *, bool> found[] = {
        {"boost", KAVOR_PEER_BOOST}, {"cereal", KAVOR_PEER_CEREAL}, {"cyaml", KAVOR_PEER_CYAML}};
    for (const auto &[name, ok] : found)
        if (!ok) {
            fprintf(stderr, "peer %s: not found at configure time, skipped\n", name);
            benchmark::AddCustomContext(std::string("peer_missing_") + name, "skipped");
        }
    return bench::run(argc, argv);
}
