// What the library hands the platform's trace markers, captured in the process: the executable
// that links this harness defines libcutils' trace entry points itself (atrace_get_enabled_tags,
// atrace_begin_body, atrace_end_body, atrace_int_body), so the library's calls, which go through
// the dynamic linker, reach these definitions instead of libcutils'. The library calls the real
// trace API unchanged; only where the markers land differs.
//
//     tracecapture::start();                       // tracing on: the camera tag is enabled
//     ... report records ...
//     std::vector<TraceMark> marks = tracecapture::stop();
//
// Until start() (and after stop()) tracing is off, as with libcutils on a host.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tracecapture {

struct TraceMark {
    enum class Type { kBegin, kEnd, kCounter };
    Type type;
    std::string name;  // empty for an end
    int64_t value;     // a counter's value
    pid_t tid;         // the thread that wrote it
    int64_t atNs;      // systemTime() when it was written: the process's clock, virtual or not
};

// Tracing on; forgets what an earlier capture held.
void start();
// Tracing off; the marks written since start(), in the order written.
std::vector<TraceMark> stop();

// The marks as a trace the platform's trace viewer opens (its JSON trace-event format): "B"/"E"
// for sections, "C" for counters, times in microseconds of the process's clock, threads numbered
// from 1 in the order they first wrote a mark.
std::string toTraceEventJson(const std::vector<TraceMark>& marks);

}  // namespace tracecapture
