// --list and --describe: what a scenario writer needs to know about the kinds and their records,
// as text or as JSON (one object per kind).
#pragma once

#include <nlohmann/json.hpp>
#include <ostream>

#include "KindRegistry.h"

namespace vistel_replay {

// A kind's limit as data: {"policy": ..., "periodSeconds": ..., "per": ...}, or null for none.
nlohmann::ordered_json limitJson(const vistel_tools::LimitPolicy& limit);

// The 32 kinds: number, name, handler, service, event identifiers, limit policy and what the
// future yields for each outcome. JSON: one object per line.
void printKindList(std::ostream& out, bool json);

// One kind as in the list, with its record: the fields with their types (nested structures
// indented, or as "fields" of their own in JSON) and an example step with every field.
void printKindDescription(const vistel_tools::KindInfo& kind, std::ostream& out, bool json);

}  // namespace vistel_replay
