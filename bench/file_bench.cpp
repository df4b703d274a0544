// file_bench.cpp - whole files of the device block: kavor_param2file and
// kavor_file2param, plain and gzip, beside the floor that saves and loads
// the same document with libxml2 alone. Invariant: every load gives back the
// block it came from (checked outside the timed part).
// Names: file/<save|load>_<plain|gzip>/<kavor|floor>.
#include "fixture.h"

int main(int argc, char **argv)
{
    static bench::Scratch dir;
    for (bool gz : {false, true}) {
        std::string form = gz ? "gzip" : "plain", file = dir / "device";
        std::string path = file + (gz ? ".xml.gz" : ".xml"), floor = path + ".floor";
        device::register_save_load("file/save_" + form + "/kavor", "file/load_" + form + "/kavor",
                                   device::kavor_save, device::kavor_load, file, gz, path);
        device::register_save_load("file/save_" + form + "/floor", "file/load_" + form + "/floor",
                                   device::floor_save, device::floor_load, floor, gz, floor);
    }
    return bench::run(argc, argv);
}
