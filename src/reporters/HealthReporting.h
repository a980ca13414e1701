// What the system health reporters share: the checks each dispatched one starts with, and the
// per-process memory sub-events of the two memory reports.
#pragma once

#include <OvrixEvent.h>
#include <VistelManager.h>

#include <optional>
#include <vector>

#include "ReporterScope.h"

namespace orv {

// How a health reporter turns a record away before doing any work.
struct HealthAdmission {
    // What an uninitialised manager logs: the plain "init failed" line, or the line that also
    // shows the record's address and the flag.
    enum class NotInitialisedLine { kInitFailed, kRecordNotValid };
    using Policy = bool (VistelManager::FrequencyLimit::*)();

    VistelEvent kind;  // its handler's name and its refused result come from the kind list
    NotInitialisedLine notInitialisedLine;
    Policy policy;  // null: never rate-limited; a limited record gives -2
};

// Logs the reporter's entry line, then refuses an uninitialised manager, a null record (treated the
// same way, so a direct call with nothing to read cannot crash the camera process) and a record the
// policy limits. Returns the result the reporter must give back, with its reason already logged and
// counted in `scope`, or nothing when it is to go on.
std::optional<int> refuseHealthRecord(ReporterScope& scope, const HealthAdmission& admission,
                                      const bool& inited, const VistelEventBase* record,
                                      VistelManager::FrequencyLimit& limit);

// Puts "ProcessInfo": one 918009010 sub-event per process, in order; an empty array when the
// list is empty.
void putProcessInfo(OvrixEvent& event, const std::vector<vistelProcessMemInfo>& processes);

}  // namespace orv
