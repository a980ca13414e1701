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

#include <VistelRecords.h>

#include <array>
#include <memory>
#include <string>

#include "RecordFields.h"

namespace vistel_tools {

enum class Service { kVistel, kOvrix, kJankPrint, kNone };

const char* serviceName(Service service);  // "vistel", "ovrix", "jank print", "none"

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
    const StructLayout& (*layout)();  // the body's field table
    RecordInstance (*make)();
};

// Indexed by kind.
const std::array<KindInfo, orv::kVistelEventCount>& kinds();

// The kind named by its number ("7"), its enumerator name without "kEvent" ("MemLeak") or its
// handler ("sendEventMemLeak"); exact spelling. nullptr when none matches.
const KindInfo* findKind(const std::string& text);

// A name that differs from `text` only in letter case, or nullptr: for "did you mean".
const char* kindNameIgnoringCase(const std::string& text);

// "3600 s per name", "none".
std::string describeLimit(const LimitPolicy& limit);

}  // namespace vistel_tools
