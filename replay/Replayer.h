// Runs scenario steps through the library, one at a time, on a virtual clock, and collects what
// each step made the services receive.
#pragma once

#include <LogCapture.h>

#include <array>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Scenario.h"

namespace vistel_replay {

// What became of a record: the library's vocabulary, shared with its dump.
using vistel_tools::Outcome;
using vistel_tools::outcomeName;

// A line the library logged; `message` is as logged, prefix included.
using vistel_harness::LogLine;

// Records by outcome, and the events the services took from them.
struct Tally {
    std::array<int, vistel_tools::kOutcomeCount> outcomes{};  // by Outcome
    int events = 0;

    int records() const;  // every record counted once, under its outcome
    int operator[](Outcome outcome) const { return outcomes[static_cast<size_t>(outcome)]; }
    void add(Outcome outcome, size_t eventCount);
    void add(const Tally& other);
};

// An event the services received from one of a step's records.
struct ReceivedEvent {
    int record;                    // 1-based, in the order the step handed its records over
    double atSeconds;              // when that record was handed over, from the scenario's start
    nlohmann::ordered_json event;  // as in StepReport::events
};

struct StepReport {
    const Step* step;
    // The step's first record: the handler's result (0 when shed), its outcome, and what the
    // services received, in order. Each event is an object with "service" ("vistel", "ovrix" or
    // "jank print") and the event as the host services write it to their JSON logs, except that
    // an indexed Vistel parameter holding the address of one of the record's texts shows the
    // field and its text instead of the address.
    int result;
    Outcome outcome;
    nlohmann::ordered_json events;
    std::vector<LogLine> log;             // the library's lines while the step ran, every record's
    Tally tally;                          // every record of the step
    std::vector<ReceivedEvent> received;  // every record's events, in the order received
};

struct Summary {
    std::array<Tally, orv::kVistelEventCount> kinds;
    Tally total;

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

    // Sets the clock to the step's time, reports its record and waits for the result. A step
    // that repeats its record with a spacing reports each at its own time, one after the other.
    // Without a spacing, every record is handed over while the pool's workers are held, as behind
    // a runaway caller, and only then run, by one worker in the order handed over: a bound on the
    // records in flight sheds the same ones in every run, and each record's events and log lines
    // are its own.
    StepReport run(const Step& step) const;
};

}  // namespace vistel_replay
