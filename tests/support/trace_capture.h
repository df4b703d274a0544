// trace_capture.h - collects the library's trace records in a test, so that
// a test can assert the level and the text of the messages that matter.
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
    /// Records of exactly `level`.
    std::vector<std::string> at_level(int level) const;
    /// Number of records equal to "<level> <func>: <msg>".
    size_t count(int level, const std::string &func, const std::string &msg) const;
    /// True if some record equals "<level> <func>: <msg>".
    bool has(int level, const std::string &func, const std::string &msg) const {
        return count(level, func, msg) > 0;
    }
    /// Number of records that contain `text`.
    size_t count_containing(const std::string &text) const;
    /// Number of records of `level` or below (more severe).
    size_t count_at_most(int level) const;
    /// Forgets the records so far.
    void clear();
    /// All records joined by line ends, for failure messages.
    std::string dump() const;

private:
    vorn_trace_handle previous_;
    vorn_trace_handle mine_;
};

#endif
