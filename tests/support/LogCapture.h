// Captures every line the process logs through liblog, verbose included.
#pragma once

#include <android/log.h>

#include <mutex>
#include <string>
#include <vector>

namespace vistel_test {

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
    // Installs the capturing logger (once per process) and clears what was captured.
    LogCapture();
    std::vector<LogLine> lines() const;
    // Lines whose body is exactly `body` (any function, priority and tag).
    std::vector<LogLine> withBody(const std::string& body) const;
    bool has(int priority, const std::string& function, const std::string& body) const;
    void clear();
    // True on a thread while it records a line: tests that count the library's allocations
    // leave the capture's own out.
    static bool capturing();
};

}  // namespace vistel_test
