// A scenario: a JSON array of steps, each a record of one kind at a time from the start.
//
//     [
//       {"at": 0, "kind": "MemLeak", "name": "FeatureNode", "value1": 3},
//       {"at": 30, "kind": 0, "name": "FeatureNode", "note": "limited: same name within 1 h"},
//       {"at": 60, "kind": "MemLeak", "name": "Loop", "repeat": 10000, "note": "a runaway caller"}
//     ]
//
// "at" is in seconds (fractions allowed) and never decreases; "kind" is the kind's number or
// name (see KindRegistry.h); "repeat" hands the record over that many times, "spacing" seconds
// apart (by default 0: all at once, as a caller stuck in a loop does); "note" is a comment and is
// ignored; every other key is a field of the record, by the names of VistelRecords.h. Fields left
// out are zero or empty.
//
// Whatever the text, it is read without harm or refused with the reason: nesting is bounded, a
// key given twice in one object is refused, and every message is cut to a readable length.
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "KindRegistry.h"

namespace vistel_replay {

struct Step {
    int number;  // 1-based, as error messages and reports count them
    double atSeconds;
    const vistel_tools::KindInfo* kind;
    vistel_tools::RecordInstance instance;  // built and filled, ready to report
    int repeat = 1;                         // times the record is handed over
    double spacingSeconds = 0;              // between two of them; 0: all at once

    // When the step's last record is handed over.
    double lastAtSeconds() const { return atSeconds + (repeat - 1) * spacingSeconds; }
};

// The steps, or what is wrong with the scenario: never both.
struct Scenario {
    std::vector<Step> steps;
    // One line per bad step ("step 3 (MemLeak): field "name": ..."), or one for the whole text.
    std::vector<std::string> errors;
};

// A step's own keys; every other key of a step is a field of its record, and no record has a
// field by these names.
constexpr const char* kStepKeys[] = {"at", "kind", "note", "repeat", "spacing"};

// The latest time a step may have: a year of virtual time.
constexpr double kMaxAtSeconds = 365.0 * 24 * 3600;
// The most records one step hands over: far more than any bound on the records in flight.
constexpr int kMaxRepeat = 100000;
// Arrays and objects inside one another, the scenario's own array included. The deepest record
// needs 7: a boot node's stage costs ([{"bootNodes": [{"stageCosts": {"Open": [{...}]}}]}]).
constexpr size_t kMaxNesting = 32;
// Far larger than any scenario written by hand or by a tool (a step takes about 100 bytes), and
// small enough that its parsed document fits in memory.
constexpr size_t kMaxScenarioBytes = size_t{16} << 20;
// An error line's length at most, and the most bad steps listed one by one.
constexpr size_t kMaxErrorLength = 200;
constexpr size_t kMaxErrorsListed = 50;

// Seconds as JSON: a whole number stays an integer (30, not 30.0).
nlohmann::ordered_json secondsJson(double seconds);

// Reads a scenario file, or standard input for "-", into *text. Returns "" or why it cannot:
// "cannot be read: No such file or directory", "cannot be read: Is a directory", ...
std::string readScenarioText(const std::string& source, std::string* text);

// Parses a scenario's text and builds every step's record. A text that is not JSON, or nested
// too deep, gives one error; otherwise every bad step is listed (up to kMaxErrorsListed), a key
// given twice in a step included.
Scenario parseScenario(const std::string& text);

// Builds every step's record; a step with any error is reported and the rest are still checked,
// so one run shows every mistake in the file.
Scenario loadScenario(const nlohmann::ordered_json& document);

}  // namespace vistel_replay
