// trace_capture.h - the library's trace records, collected while a
// TraceCapture lives (it installs its module as the library's handle and
// restores the previous one), in the form "<level> <function>: <message>".
#ifndef KAVOR_TEST_TRACE_CAPTURE_H
#define KAVOR_TEST_TRACE_CAPTURE_H

#include <cstdint>
#include <string>
#include <vector>

#include "vn_trace.h"

class TraceCapture {
public:
    explicit TraceCapture(uint32_t level = 8);   ///< keeps records of `level` and below
    ~TraceCapture();
    TraceCapture(const TraceCapture &) = delete;
    TraceCapture &operator=(const TraceCapture &) = delete;
    std::vector<std::string> records() const;
    /// Records equal to "<level> <func>: <msg>".
    size_t count(int level, const std::string &func, const std::string &msg) const;
    bool has(int level, const std::string &func, const std::string &msg) const { return count(level, func, msg) > 0; }
    size_t count_containing(const std::string &text) const;
    size_t count_at_most(int level) const;   ///< records of `level` or more severe
    void clear();
    std::string dump() const;   ///< all records, one per line, for failure messages

private:
    vorn_trace_handle previous_, mine_;
};

#endif
