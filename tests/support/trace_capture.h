// trace_capture.h - collects the library's trace records in a test, so that
// a test can assert the records the documentation names.
//
// A TraceCapture installs a trace module of its own as the library's handle
// for its lifetime and restores the previous handle afterwards. Records are
// kept in the form "<level> <function>: <message>".
#ifndef KAVOR_TEST_TRACE_CAPTURE_H
#define KAVOR_TEST_TRACE_CAPTURE_H

#include <cstdint>
#include <string>
#include <vector>

#include "vn_trace.h"

class TraceCapture {
public:
    /// Keeps records of `level` and below.
    explicit TraceCapture(uint32_t level = 8);
    ~TraceCapture();
    TraceCapture(const TraceCapture &) = delete;
    TraceCapture &operator=(const TraceCapture &) = delete;

    /// All records so far, in order.
    std::vector<std::string> records() const;
    /// Number of records equal to "<level> <func>: <msg>".
    size_t count(int level, const std::string &func, const std::string &msg) const;
    bool has(int level, const std::string &func, const std::string &msg) const
    {
        return count(level, func, msg) > 0;
    }
    /// Number of records that contain `text`.
    size_t count_containing(const std::string &text) const;
    /// Number of records of `level` or below (more severe).
    size_t count_at_most(int level) const;
    void clear();
    /// All records joined by line ends, for failure messages.
    std::string dump() const;

private:
    vorn_trace_handle previous_;
    vorn_trace_handle mine_;
};

#endif
