// vn_trace.cpp - trace modules of the engine stand-in.
//
// A module keeps records whose level is at most its default level. The
// level test comes first and costs no formatting, so that a record that is
// dropped (the common case for per-value progress lines) is cheap. A kept
// record is "<level> <function>: <message>", delivered whole to the callback,
// appended to the module's file with a line end, or written to stderr.
// A record is always one line: after formatting, its control bytes are
// escaped (see shown_size), whatever text the message carried.
//
// Memory comes from the engine's allocator, like every block of the
// library: a module is one block with its copied names, and a record goes
// through stack buffers unless it is longer. When a longer record's block
// can't be had, the record is delivered cut to what the stack buffer holds
// (never cut inside an escape), so tracing never fails an operation.
#include "vn_trace.h"

#include <pthread.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "vn_mem.h"

namespace {

const char kTag[] = "vn_trace";
const size_t kStackRecord = 1024;   // a record this long (NUL included) needs no block

struct trace_module {
    uint32_t level;
    user_func func;
    const char *mod_name;    // copies, in the module's own block
    const char *filename;
    pthread_mutex_t file_lock;   // one writer at a time for the file and stderr
};

void deliver(trace_module *m, const char *record)
{
    if (m->func) {
        m->func(record);
        return;
    }
    pthread_mutex_lock(&m->file_lock);
    if (m->filename[0] != '\0') {
        FILE *f = std::fopen(m->filename, "a");
        if (f) {
            std::fprintf(f, "%s\n", record);
            std::fclose(f);
        }
    } else {
        std::fprintf(stderr, "%s\n", record);
    }
    pthread_mutex_unlock(&m->file_lock);
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

// Writes `s` escaped into `out`, `cap` bytes at most (NUL included), and
// stops before the first byte whose escape would not fit.
void escape_into(const char *s, char *out, size_t cap)
{
    static const char hex[] = "0123456789abcdef";
    char *end = out + cap - 1;
    for (; *s != '\0'; s++) {
        unsigned char c = static_cast<unsigned char>(*s);
        size_t n = shown_size(c);
        if (n > static_cast<size_t>(end - out))
            break;
        if (n == 1) {
            *out++ = static_cast<char>(c);
        } else if (n == 2) {
            *out++ = '\\';
            *out++ = c == '\n' ? 'n' : c == '\t' ? 't' : c == '\r' ? 'r' : '\\';
        } else {
            *out++ = '\\';
            *out++ = 'x';
            *out++ = hex[c >> 4];
            *out++ = hex[c & 0xf];
        }
    }
    *out = '\0';
}

// Delivers `record` with its control bytes escaped.
void deliver_escaped(trace_module *m, const char *record)
{
    size_t shown = escaped_length(record);
    if (shown == std::strlen(record)) {
        deliver(m, record);
        return;
    }
    char small[kStackRecord];
    char *esc = shown < sizeof small ? nullptr : static_cast<char *>(_vn_malloc(shown + 1, kTag));
    if (esc != nullptr) {
        escape_into(record, esc, shown + 1);
        deliver(m, esc);
        _vn_free(esc, kTag);
    } else {
        escape_into(record, small, sizeof small);
        deliver(m, small);
    }
}

}  // namespace

extern "C" vorn_trace_handle vorn_mod_trace_init(const char *mod_name, const char *filename,
                                                 uint32_t dft_lvl, user_func func)
{
    const char *mod = mod_name ? mod_name : "";
    const char *file = filename ? filename : "";
    size_t mod_len = std::strlen(mod) + 1;
    size_t file_len = std::strlen(file) + 1;
    char *block = static_cast<char *>(_vn_malloc(sizeof(trace_module) + mod_len + file_len, kTag));
    if (!block)
        return nullptr;
    trace_module *m = reinterpret_cast<trace_module *>(block);
    char *names = block + sizeof(trace_module);
    std::memcpy(names, mod, mod_len);
    std::memcpy(names + mod_len, file, file_len);
    m->level = dft_lvl;
    m->func = func;
    m->mod_name = names;
    m->filename = names + mod_len;
    if (pthread_mutex_init(&m->file_lock, nullptr) != 0) {
        _vn_free(block, kTag);
        return nullptr;
    }
    return m;
}

extern "C" void vorn_mod_trace_free(vorn_trace_handle handle)
{
    if (!handle)
        return;
    pthread_mutex_destroy(&static_cast<trace_module *>(handle)->file_lock);
    _vn_free(handle, kTag);
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
    const size_t hl = static_cast<size_t>(head_len);

    va_list ap;
    va_start(ap, fmt);
    va_list again;
    va_copy(again, ap);
    char small[kStackRecord];
    std::memcpy(small, head, hl);
    int body = std::vsnprintf(small + hl, sizeof small - hl, fmt, ap);
    va_end(ap);
    char *big = nullptr;
    if (body >= 0 && hl + static_cast<size_t>(body) >= sizeof small) {
        // Longer than the stack buffer: format again into a block of its
        // size, or deliver what the stack buffer holds.
        big = static_cast<char *>(_vn_malloc(hl + static_cast<size_t>(body) + 1, kTag));
        if (big != nullptr) {
            std::memcpy(big, head, hl);
            std::vsnprintf(big + hl, static_cast<size_t>(body) + 1, fmt, again);
        }
    }
    va_end(again);
    if (body >= 0)
        deliver_escaped(m, big != nullptr ? big : small);
    _vn_free(big, kTag);
}
