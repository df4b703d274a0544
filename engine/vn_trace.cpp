// vn_trace.cpp - trace modules of the engine stand-in.
//
// A module keeps records whose level is at most its default level. The
// level test comes first and costs no formatting, so that a record that is
// dropped (the common case for per-value progress lines) is cheap. A kept
// record is "<level> <function>: <message>", delivered whole to the callback,
// appended to the module's file with a line end, or written to stderr.
#include "vn_trace.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

namespace {

struct trace_module {
    uint32_t level;
    user_func func;
    std::string mod_name;
    std::string filename;
    std::mutex file_lock;   // one writer at a time for the file and stderr
};

void deliver(trace_module *m, const char *record)
{
    if (m->func) {
        m->func(record);
        return;
    }
    std::lock_guard<std::mutex> hold(m->file_lock);
    if (!m->filename.empty()) {
        FILE *f = std::fopen(m->filename.c_str(), "a");
        if (f) {
            std::fprintf(f, "%s\n", record);
            std::fclose(f);
        }
        return;
    }
    std::fprintf(stderr, "%s\n", record);
}

}  // namespace

extern "C" vorn_trace_handle vorn_mod_trace_init(const char *mod_name, const char *filename,
                                                 uint32_t dft_lvl, user_func func)
{
    trace_module *m = new (std::nothrow) trace_module;
    if (!m)
        return nullptr;
    m->level = dft_lvl;
    m->func = func;
    m->mod_name = mod_name ? mod_name : "";
    m->filename = filename ? filename : "";
    return m;
}

extern "C" void vorn_mod_trace_free(vorn_trace_handle handle)
{
    delete static_cast<trace_module *>(handle);
}

extern "C" int vorn_trace_enabled(vorn_trace_handle handle, uint32_t level)
{
    return handle && level <= static_cast<trace_module *>(handle)->level;
}

extern "C" void vorn_trace_log(vorn_trace_handle handle, const char *file, const char *func,
                               int line, uint32_t level, const char *fmt, ...)
{
    (void)file;
    (void)line;
    if (!vorn_trace_enabled(handle, level) || !fmt)
        return;
    trace_module *m = static_cast<trace_module *>(handle);

    char head[96];
    int head_len = std::snprintf(head, sizeof head, "%u %s: ", level, func ? func : "?");
    if (head_len < 0)
        return;
    if (static_cast<size_t>(head_len) >= sizeof head)
        head_len = sizeof head - 1;

    va_list ap;
    va_start(ap, fmt);
    va_list again;
    va_copy(again, ap);
    char small[1024];
    std::memcpy(small, head, static_cast<size_t>(head_len));
    int body = std::vsnprintf(small + head_len, sizeof small - static_cast<size_t>(head_len), fmt, ap);
    va_end(ap);
    if (body < 0) {
        va_end(again);
        return;
    }
    if (static_cast<size_t>(head_len + body) < sizeof small) {
        va_end(again);
        deliver(m, small);
        return;
    }
    std::string big(static_cast<size_t>(head_len + body) + 1, '\0');
    std::memcpy(&big[0], head, static_cast<size_t>(head_len));
    std::vsnprintf(&big[static_cast<size_t>(head_len)], static_cast<size_t>(body) + 1, fmt, again);
    va_end(again);
    big.resize(static_cast<size_t>(head_len + body));
    deliver(m, big.c_str());
}
