// vn_trace.cpp - trace modules of the engine stand-in.
//
// A module keeps records whose level is at most its default level. The
// level test comes first and costs no formatting, so that a record that is
// dropped (the common case for per-value progress lines) is cheap. A kept
// record is "<level> <function>: <message>", delivered whole to the callback,
// appended to the module's file with a line end, or written to stderr.
// A record is always one line: after formatting, its control bytes are
// escaped (see shown_size), whatever text the message carried.
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

// What a byte of a record shows as: itself, or an escape of 2 ("\\n", "\\t",
// "\\r", "\\\\") or 4 ("\\xNN") characters. Control bytes and DEL are escaped
// so that no text (a name, a value read from a document) can end a record
// or start what looks like another one; the backslash so that an escape in
// a record always means an escaped byte.
size_t shown_size(unsigned char c)
{
    if (c == '\n' || c == '\t' || c == '\r' || c == '\\')
        return 2;
    return c < 0x20 || c == 0x7f ? 4 : 1;
}

size_t escaped_length(const char *s)
{
    size_t n = 0;
    for (; *s != '\0'; s++)
        n += shown_size(static_cast<unsigned char>(*s));
    return n;
}

void escape_into(const char *s, char *out)
{
    static const char hex[] = "0123456789abcdef";
    for (; *s != '\0'; s++) {
        unsigned char c = static_cast<unsigned char>(*s);
        switch (shown_size(c)) {
        case 1:
            *out++ = static_cast<char>(c);
            break;
        case 2:
            *out++ = '\\';
            *out++ = c == '\n' ? 'n' : c == '\t' ? 't' : c == '\r' ? 'r' : '\\';
            break;
        default:
            *out++ = '\\';
            *out++ = 'x';
            *out++ = hex[c >> 4];
            *out++ = hex[c & 0xf];
            break;
        }
    }
    *out = '\0';
}

// Delivers `record` with its control bytes escaped.
void deliver_escaped(trace_module *m, const char *record)
{
    size_t len = std::strlen(record);
    size_t shown = escaped_length(record);
    if (shown == len) {
        deliver(m, record);
        return;
    }
    std::string esc(shown + 1, '\0');
    escape_into(record, &esc[0]);
    deliver(m, esc.c_str());
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
        deliver_escaped(m, small);
        return;
    }
    std::string big(static_cast<size_t>(head_len + body) + 1, '\0');
    std::memcpy(&big[0], head, static_cast<size_t>(head_len));
    std::vsnprintf(&big[static_cast<size_t>(head_len)], static_cast<size_t>(body) + 1, fmt, again);
    va_end(again);
    big.resize(static_cast<size_t>(head_len + body));
    deliver_escaped(m, big.c_str());
}
