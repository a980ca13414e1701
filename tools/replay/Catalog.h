// --list and --describe: what a scenario writer needs to know about the kinds and their records.
#pragma once

#include <ostream>

#include "KindRegistry.h"

namespace vistel_replay {

// The 32 kinds: number, name, handler, service, event identifiers and limit policy.
void printKindList(std::ostream& out);

// One kind: its handler, record, service and limit, the record's fields with their types (nested
// structures indented) and an example step with every field.
void printKindDescription(const vistel_tools::KindInfo& kind, std::ostream& out);

}  // namespace vistel_replay
