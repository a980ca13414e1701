// Runs scenario steps through the library, one at a time, on a virtual clock, and collects what
// each step made the services receive.
#pragma once

#include <array>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Scenario.h"

namespace vistel_replay {

// What became of one record.
enum class Outcome {
    kSent,            // 0, and at least one event reached a service
    kNoEvent,         // 0, and nothing reached a service (nothing to report, or skipped)
    kDropped,         // dropped by the limiter: -2, or 0 with the limiter's drop line
    kNotInitialised,  // the manager has no service library: the reporter's "not valid" lines
    kFailed,          // -1 for another reason: creation, a parameter or the send refused
    kNotDispatched,   // reportMsgImpl queued nothing (invalid future)
};

const char* outcomeName(Outcome outcome);  // for JSON: "sent", "not-initialised", ...

struct LogLine {
    int priority;
    std::string tag;
    std::string message;  // as the library logged it, prefix included
};

struct StepReport {
    const Step* step;
    int result;  // the handler's result; 0 when not dispatched
    Outcome outcome;
    // What the services received, in order. Each entry is an object with "service" ("vistel",
    // "ovrix" or "jank print") and the event as the host services write it to their JSON logs,
    // except that an indexed Vistel parameter holding the address of one of the record's texts
    // shows the field and its text instead of the address.
    nlohmann::ordered_json events;
    std::vector<LogLine> log;  // the library's lines while the step ran
};

struct KindTally {
    int records = 0;
    int events = 0;
    int dropped = 0;
    int failed = 0;  // not initialised, failed or not dispatched
};

struct Summary {
    std::array<KindTally, orv::kVistelEventCount> kinds;
    KindTally total;

    void add(const StepReport& report);
};

class Replayer {
  public:
    // Captures the library's log and starts a scenario on the virtual clock: every limit of an
    // earlier scenario in this process has run out by this one's "at" 0.
    Replayer();

    // The manager's start-up lines (loading the service library, registering the handlers),
    // from the first Replayer of the process, which builds the manager.
    const std::vector<LogLine>& startupLog() const;
    // False when the manager started without the Vistel service library.
    bool serviceLoaded() const;

    // Sets the clock to the step's time, reports its record and waits for the result.
    StepReport run(const Step& step) const;
};

}  // namespace vistel_replay
