#include "trace_capture.h"

#include <mutex>

#include "xml_trace.h"

namespace {
std::mutex g_lock;
std::vector<std::string> g_records;

int32_t collect(const char *record)
{
    std::lock_guard<std::mutex> hold(g_lock);
    g_records.emplace_back(record);
    return 0;
}
}  // namespace

TraceCapture::TraceCapture(uint32_t level) : previous_(param_xml_trace_h)
{
    clear();
    mine_ = vorn_mod_trace_init("test", nullptr, level, collect);
    param_xml_trace_h = mine_;
}

TraceCapture::~TraceCapture()
{
    param_xml_trace_h = previous_;
    vorn_mod_trace_free(mine_);
}

std::vector<std::string> TraceCapture::records() const
{
    std::lock_guard<std::mutex> hold(g_lock);
    return g_records;
}

std::vector<std::string> TraceCapture::at_level(int level) const
{
    std::string prefix = std::to_string(level) + " ";
    std::vector<std::string> out;
    for (const auto &r : records())
        if (r.compare(0, prefix.size(), prefix) == 0)
            out.push_back(r);
    return out;
}

size_t TraceCapture::count(int level, const std::string &func, const std::string &msg) const
{
    std::string want = std::to_string(level) + " " + func + ": " + msg;
    size_t n = 0;
    for (const auto &r : records())
        n += (r == want);
    return n;
}

size_t TraceCapture::count_containing(const std::string &text) const
{
    size_t n = 0;
    for (const auto &r : records())
        n += (r.find(text) != std::string::npos);
    return n;
}

size_t TraceCapture::count_at_most(int level) const
{
    size_t n = 0;
    for (const auto &r : records())
        n += (std::atoi(r.c_str()) <= level);
    return n;
}

void TraceCapture::clear()
{
    std::lock_guard<std::mutex> hold(g_lock);
    g_records.clear();
}

std::string TraceCapture::dump() const
{
    std::string out;
    for (const auto &r : records())
        out += r + "\n";
    return out;
}
