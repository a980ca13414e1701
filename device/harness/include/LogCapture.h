// Captures every line the process logs through liblog, verbose included, in place of liblog's
// stderr output.
//
//     LogCapture log;                     // installs the capturing logger, clears the lines
//     ... the library logs ...
//     log.has(ANDROID_LOG_ERROR, "sendEvent", " error: ...");
//     for (const LogLine& line : log.take()) ...   // the lines, now cleared
#pragma once

#include <android/log.h>

#include <string>
#include <vector>

namespace vistel_harness {

struct LogLine {
    int priority;
    std::string tag;
    std::string message;  // as logged
    // The common prefix "<function><<line>>: [<build tag>]" split off, when present.
    std::string function;
    int line;
    std::string buildTag;
    std::string body;  // what follows the prefix
};

class LogCapture {
  public:
    // Installs the capturing logger (once per process) and clears what was captured. Every
    // LogCapture of the process shares the one list of lines.
    LogCapture();
    std::vector<LogLine> lines() const;
    // The lines captured so far, which are cleared.
    std::vector<LogLine> take();
    // Lines whose body is exactly `body` (any function, priority and tag).
    std::vector<LogLine> withBody(const std::string& body) const;
    bool has(int priority, const std::string& function, const std::string& body) const;
    void clear();
    // True on a thread while it records a line: tests that count the library's allocations
    // leave the capture's own out.
    static bool capturing();
};

// A liblog logger that drops every line once liblog has formatted it: for runs that log far
// more than anyone reads.
void discardLogLine(const struct __android_logger_data* data, const char* message);

// Whether `text` ends with `end`: the library's lines are told apart by their endings.
bool endsWith(const std::string& text, const std::string& end);

}  // namespace vistel_harness
