// cpp_face.cpp - the C++ face: a manager, registrations and a file lock as
// owning objects. Two blocks share one file; a change is made under the lock
// and saved by the task; a second manager reads the file back.
//
// Usage: cpp_face [dir]   (writes <dir>/station.xml.gz)
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include <kavor.hpp>

extern "C" {
#include "example_dir.h"
}

namespace {

struct radio {
    char ssid[33];
    uint8_t channel;
    int8_t power_dbm;
};

struct schedule {
    uint16_t on_minutes[7];   // minute of the day the radio comes on, per weekday
    int days;                 // how many entries are valid
};

struct pdesc radio_table[] = {
    PX_STRI(radio, ssid, "ssid"),
    PX_UINT(radio, channel, "channel"),
    PX_SINT(radio, power_dbm, "power_dbm"),
    PX_END,
};

struct pdesc schedule_table[] = {
    PX_UINT_CIA(schedule, on_minutes, days, "on"),
    PX_END,
};

int32_t print_record(const char *record)
{
    std::fprintf(stderr, "%s\n", record);
    return 0;
}

// Polls every 10 ms for up to 20 s.
template <class F> bool eventually(F done)
{
    for (int i = 0; i < 2000 && !done(); i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return done();
}

} // namespace

int main(int argc, char **argv)
{
    char dir[96];
    param_xml_trace_init("cpp_face", nullptr, 4, print_record);
    if (kavor::check(radio_table) != 0 || kavor::check(schedule_table) != 0 ||
        example_dir(argc, argv, dir, sizeof(dir)) != 0)
        return 1;
    const std::string file = std::string(dir) + "/station";

    radio r = {};
    std::strcpy(r.ssid, "plant-floor");
    r.channel = 6;
    r.power_dbm = 14;
    schedule s = {};
    s.on_minutes[0] = 6 * 60;
    s.on_minutes[1] = 7 * 60 + 30;
    s.days = 2;
    {
        kavor::Manager mgr = kavor::Manager::create("station", 0);
        kavor::Registration radio_node = mgr.add(file.c_str(), "radio", radio_table, &r);
        kavor::Registration sched_node = mgr.add(file.c_str(), "schedule", schedule_table, &s);
        if (!mgr || !radio_node || !sched_node)
            return 1;
        radio_node.locked([&] { r.channel = 11; });  // no save reads a half-changed block
        if (!radio_node.save() ||
            !eventually([&] { return radio_node.saving() == kavor::Saving::done; }))
            return 1;
        std::printf("saved %s (%u file)\n", file.c_str(), mgr.file_count());
    }   // registrations end first, then the manager

    radio r2 = {};
    schedule s2 = {};
    kavor::Manager mgr = kavor::Manager::create("station", 0);
    kavor::Registration radio_node = mgr.add(file.c_str(), "radio", radio_table, &r2);
    kavor::Registration sched_node = mgr.add(file.c_str(), "schedule", schedule_table, &s2);
    if (mgr.load_all() != kavor::Load::ok)
        return 1;
    std::printf("loaded %s: ssid=%s channel=%u power=%d dBm, %d days, first on at %u min\n",
                mgr.file_names().front().c_str(), r2.ssid, r2.channel, r2.power_dbm, s2.days,
                s2.on_minutes[0]);
    bool same = std::strcmp(r.ssid, r2.ssid) == 0 && r2.channel == 11 &&
                r.power_dbm == r2.power_dbm && s2.days == 2 && s2.on_minutes[1] == 450;
    return same ? 0 : 1;
}
