// The three forms of a replay's report: readable text, one JSON object per line, or the stream of
// events the services received, one per line.
#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Replayer.h"

namespace vistel_replay {

struct ReportOptions {
    bool json = false;     // one JSON object per step, then one with the summary
    bool full = false;     // text: every parameter, nested events indented (JSON always has all)
    bool verbose = false;  // the library's own log lines with each step
    bool dump = false;     // the library's own counters after the summary
    bool events = false;   // only the events, one per line, with where each came from
};

class ReportWriter {
  public:
    virtual ~ReportWriter() = default;
    virtual void start(const std::string& source, const Scenario& scenario,
                       const Replayer& replayer) = 0;
    virtual void step(const StepReport& report) = 0;
    virtual void finish(const Summary& summary) = 0;
    // The library's own counters, after the summary: as dump() writes them, or as numbers.
    virtual void dump() = 0;
};

std::unique_ptr<ReportWriter> makeReportWriter(const ReportOptions& options, std::ostream& out);

}  // namespace vistel_replay
