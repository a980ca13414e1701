// A scenario: a JSON array of steps, each a record of one kind at a time from the start.
//
//     [
//       {"at": 0, "kind": "MemLeak", "name": "FeatureNode", "value1": 3},
//       {"at": 30, "kind": 0, "name": "FeatureNode", "note": "dropped: same name within 1 h"}
//     ]
//
// "at" is in seconds (fractions allowed) and never decreases; "kind" is the kind's number or
// name (see KindRegistry.h); "note" is a comment and is ignored; every other key is a field of
// the record, by the names of VistelRecords.h. Fields left out are zero or empty.
#pragma once

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
};

struct Scenario {
    std::vector<Step> steps;
    // One line per bad step ("step 3 (MemLeak): field "name": ..."); when not empty, the steps
    // must not be run.
    std::vector<std::string> errors;
};

// The latest "at" a step may have: a year of virtual time.
constexpr double kMaxAtSeconds = 365.0 * 24 * 3600;

// Seconds as JSON: a whole number stays an integer (30, not 30.0).
nlohmann::ordered_json secondsJson(double seconds);

// Builds every step's record; a step with any error is reported and the rest are still checked,
// so one run shows every mistake in the file.
Scenario loadScenario(const nlohmann::ordered_json& document);

}  // namespace vistel_replay
