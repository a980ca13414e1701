/*
 * The 32 record kinds as a table: for each, the handler the manager runs, the record the camera
 * stack makes, the service that receives the result, its event identifiers and the limit policy
 * that may drop it. One row per kind, in kind order.
 *
 *     const KindInfo* info = findKind("MemLeak");   // or "sendEventMemLeak", or "0"
 *     RecordInstance instance = info->make();
 *     fillStruct(info->layout(), values, instance.body);
 *     VistelManager::GetInstance()->reportMsgImpl(instance.record);
 */
#pragma once

#include <VistelManager.h>
#include <VistelRecords.h>

#include <array>
#include <climits>
#include <cstddef>
#include <memory>
#include <string>

#include "RecordFields.h"

namespace vistel_tools {

enum class Service { kVistel, kOvrix, kJankPrint, kNone };

const char* serviceName(Service service);  // "vistel", "ovrix", "jank print", "none"

// What became of a record handed to the library: exactly one of these, in the slots and under the
// names of VISTEL_OUTCOMES (VistelManager.h), which the library's dump, vistel-replay and README
// share.
enum class Outcome {
    kSent = VISTEL_OUTCOME_SENT,
    kLimited = VISTEL_OUTCOME_LIMITED,
    kNoEvent = VISTEL_OUTCOME_NO_EVENT,
    kNotInitialised = VISTEL_OUTCOME_NOT_INITIALISED,
    kFailed = VISTEL_OUTCOME_FAILED,
    kShed = VISTEL_OUTCOME_SHED,
    kOff = VISTEL_OUTCOME_OFF,
};
constexpr size_t kOutcomeCount = VISTEL_OUTCOME_COUNT;

const char* outcomeName(Outcome outcome);  // "sent", "limited", "no-event", "not-initialised", ...

// What the future of a kind's record yields, by Outcome; kNoResult where that outcome cannot
// happen to the kind. A shed or switched-off record's future has no value at all (valid() is
// false).
constexpr int kNoResult = INT_MIN;
using KindResults = std::array<int, kOutcomeCount>;

struct LimitPolicy {
    const char* policy;  // the FrequencyLimit method, or nullptr: never dropped
    int periodSeconds;   // quiet period after a record that passed
    const char* scope;   // what the period is counted for: "name", "kind", ...
};

// A new zero-filled record of one kind, and its body: the structure the field table describes
// (the record itself, or the shared body a VistelRecord<kind, body> wraps).
struct RecordInstance {
    std::shared_ptr<orv::VistelEventBase> record;
    void* body;
};

struct KindInfo {
    orv::VistelEvent kind;
    const char* name;        // the enumerator without "kEvent": "MemLeak"
    const char* handler;     // "sendEventMemLeak"
    const char* recordType;  // what the camera stack makes: "vistelAlgoProcessTimeoutWarning"
    Service service;
    // Identifiers of the events sent; the sub-events nested in each are in brackets.
    const char* events;
    LimitPolicy limit;
    KindResults results;
    const StructLayout& (*layout)();  // the body's field table
    RecordInstance (*make)();
};

// Indexed by kind.
const std::array<KindInfo, orv::kVistelEventCount>& kinds();

// The kind named by its number ("7"), its enumerator name without "kEvent" ("MemLeak") or its
// handler ("sendEventMemLeak"); exact spelling. nullptr when none matches.
const KindInfo* findKind(const std::string& text);

// The kind name or handler that `text` most likely misspells, or nullptr: for "did you mean".
const char* closestKindName(const std::string& text);

// "limitEventMemLeak, 3600 s per name", "none".
std::string describeLimit(const LimitPolicy& limit);

// "sent 0, limited 0, not-initialised -1, failed -1": the outcomes that can happen to the kind's
// records and what the future yields for each.
std::string describeResults(const KindResults& results);

}  // namespace vistel_tools
