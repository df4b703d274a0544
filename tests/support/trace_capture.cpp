#include "trace_capture.h"

#include <algorithm>
#include <cstdlib>
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

// One module per level, made before any test runs and kept for the whole
// process: a capture allocates nothing through the library's allocator, so
// it neither counts among a test's live blocks nor takes an allocation that
// a test means to fail.
const uint32_t kLevels = 9;
struct Modules {   // a plain array: the leak checker sees the modules live at exit
    vorn_trace_handle by_level[kLevels];
    Modules()
    {
        for (uint32_t l = 0; l < kLevels; l++)
            by_level[l] = vorn_mod_trace_init("test", nullptr, l, collect);
    }
} g_modules;

}  // namespace

TraceCapture::TraceCapture(uint32_t level)
    : previous_(param_xml_trace_h), mine_(g_modules.by_level[level < kLevels ? level : kLevels - 1])
{
    clear();
    param_xml_trace_h = mine_;
}

TraceCapture::~TraceCapture() { param_xml_trace_h = previous_; }

std::vector<std::string> TraceCapture::records() const
{
    std::lock_guard<std::mutex> hold(g_lock);
    return g_records;
}

size_t TraceCapture::count(int level, const std::string &func, const std::string &msg) const
{
    const std::vector<std::string> all = records();
    return std::count(all.begin(), all.end(), std::to_string(level) + " " + func + ": " + msg);
}

size_t TraceCapture::count_containing(const std::string &text) const
{
    const std::vector<std::string> all = records();
    return std::count_if(all.begin(), all.end(), [&](const std::string &r) { return r.find(text) != std::string::npos; });
}

size_t TraceCapture::count_at_most(int level) const
{
    const std::vector<std::string> all = records();
    return std::count_if(all.begin(), all.end(), [&](const std::string &r) { return std::atoi(r.c_str()) <= level; });
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
