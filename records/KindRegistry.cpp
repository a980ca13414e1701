#include "KindRegistry.h"

#include <VistelKinds.h>

#include <cstdlib>
#include <type_traits>
#include <vector>

namespace vistel_tools {

namespace {

template <orv::VistelEvent Kind, typename Record>
RecordInstance makeRecord() {
    using Body = typename orv::VistelKindBody<Kind>::type;
    auto record = std::make_shared<Record>();  // value-initialised: every field zero
    Body* body = record.get();
    return {std::move(record), body};
}

constexpr LimitPolicy kNever = {nullptr, 0, ""};
constexpr LimitPolicy perName(const char* policy) {
    return {policy, 3600, "name"};
}
constexpr LimitPolicy perKind(const char* policy, int periodSeconds) {
    return {policy, periodSeconds, "kind"};
}

// Results, by outcome: sent, limited, no-event, not-initialised, failed, shed, off. A failure is a
// service's refusal for the Vistel kinds; the Ovrix client and the jank print answer nothing the
// library reads, so those kinds fail only when memory runs out while the event is built.
constexpr int kNo = kNoResult;
// The fault and time-out kinds answer 0 for a record the limiter dropped, as for one sent.
constexpr KindResults kFaultResults = {0, 0, kNo, -1, -1, kNo, kNo};
constexpr KindResults kUnlimitedResults = {0, kNo, kNo, -1, -1, kNo, kNo};
constexpr KindResults kLimitedResults = {0, -2, kNo, -1, -1, kNo, kNo};
// Kinds whose record may hold nothing to send: no boot nodes, no frame drop groups, no entries.
constexpr KindResults kLimitedMaybeEmpty = {0, -2, 0, -1, -1, kNo, kNo};
constexpr KindResults kUnlimitedMaybeEmpty = {0, kNo, 0, -1, -1, kNo, kNo};
// Never checks anything: answers 0, service or not.
constexpr KindResults kAnswersOnly = {kNo, kNo, 0, kNo, kNo, kNo, kNo};
// Answers -2, not -1, when the service is not bound.
constexpr KindResults kScanResults = {0, kNo, 0, -2, -1, kNo, kNo};

// The contract each kind's records are held to, written here independently of the library: the
// service that receives them, the events sent, the limit that may drop them and what the future
// yields. The kinds' identity (name, handler, record type) comes from the library's kind list.
struct Contract {
    orv::VistelEvent kind;
    Service service;
    const char* events;
    LimitPolicy limit;
    KindResults results;
};

// clang-format off
constexpr Contract kContracts[] = {
    {orv::kEventMemLeak, Service::kVistel, "918000000",
     perName("limitEventMemLeak"), kFaultResults},
    {orv::kEventMemShortage, Service::kVistel, "918000001",
     (LimitPolicy{"limitEventMemShortage", 3600, "value1 (its bytes as text)"}), kFaultResults},
    {orv::kEventMemLimit, Service::kVistel, "918001000",
     perName("limitEventMemLimit"), kFaultResults},
    {orv::kEventMemEfficiencyWarning, Service::kVistel, "918001001",
     perKind("limitEventMemEfficiencyWarning", 3600), kFaultResults},
    {orv::kEventMemAllocFail, Service::kVistel, "918000002",
     perKind("limitEventMemAllocFail", 3600), kFaultResults},
    {orv::kEventPreviewBufferRefLeak, Service::kVistel, "918000020",
     perName("limitEventPreviewBufferRefLeak"), kFaultResults},
    {orv::kEventCaptureBufferRefLeak, Service::kVistel, "918000021",
     perName("limitEventCaptureBufferRefLeak"), kFaultResults},
    {orv::kEventAlgoProcessTimeoutWarning, Service::kVistel, "918001020",
     perName("limitEventAlgoProcessTimeoutWarning"), kFaultResults},
    {orv::kEventAlgoProcessTimeoutError, Service::kVistel, "918000040",
     perName("limitEventAlgoProcessTimeoutError"), kFaultResults},
    {orv::kEventSnapshotTimeoutWarning, Service::kVistel, "918001040",
     perName("limitEventSnapshotTimeoutWarning"), kFaultResults},
    {orv::kEventSnapshotTimeoutError, Service::kVistel, "918000060",
     perName("limitEventSnapshotTimeoutError"), kFaultResults},
    {orv::kEventOtherTimeoutWarning, Service::kVistel, "918001041",
     (LimitPolicy{"limitEventOtherTimeoutWarning", 3600, "(firstName, secondName)"}), kFaultResults},
    {orv::kEventOtherTimeoutError, Service::kVistel, "918000061",
     (LimitPolicy{"limitEventOtherTimeoutError", 3600, "(firstName, secondName)"}), kFaultResults},
    {orv::kEventSnapshotBigdata, Service::kVistel, "918009000",
     kNever, kUnlimitedResults},
    {orv::kEventSnapshotAfBigdata, Service::kVistel, "918009001",
     kNever, kUnlimitedResults},
    {orv::kEventStatisticData, Service::kVistel, "918009002",
     kNever, kUnlimitedResults},
    {orv::kEventHDRPData, Service::kVistel, "918009003",
     kNever, kUnlimitedResults},
    {orv::kEventSnapshotBigdataV2, Service::kVistel, "918009005",
     kNever, kUnlimitedResults},
    // Answered without a report: another component takes these traces.
    {orv::kEventAlgoProcessTimeoutDumpSystrace, Service::kNone, "-",
     kNever, kAnswersOnly},
    {orv::kEventFlushProcessTimeoutError, Service::kVistel, "918001041",
     kNever, kUnlimitedResults},
    {orv::kEventStopProcessTimeoutError, Service::kVistel, "918001041",
     kNever, kUnlimitedResults},
    {orv::kEventSessionUninitProcessTimeoutError, Service::kVistel, "918001041",
     kNever, kUnlimitedResults},
    {orv::kEventConfigStreamProcessTimeoutError, Service::kVistel, "918001041",
     kNever, kUnlimitedResults},
    {orv::kEventVideoPerfData, Service::kOvrix, "918009006 [918009007]",
     perKind("limitEventSnapshotRetFrmIntervalError", 60), kLimitedResults},
    {orv::kEventPostProcessTimeoutError, Service::kVistel, "918000040",
     kNever, kUnlimitedResults},
    {orv::kEventBootTimeout, Service::kOvrix, "918009009 [918009008] per node",
     perKind("limitEventBootPerf", 600), kLimitedMaybeEmpty},
    {orv::kEventDumpTrace, Service::kJankPrint, "type 3, id 474",
     perKind("LimitDumpSysTraceError", 360), kLimitedResults},
    {orv::kEventFrameDrop, Service::kOvrix, "918009006 [918009007] per group",
     perKind("limitEventVideoPerf", 600), kLimitedMaybeEmpty},
    {orv::kEventMemoryExceedThreshold, Service::kOvrix, "918009011 [918009010]",
     kNever, kUnlimitedResults},
    {orv::kEventMemoryAllocTimeout, Service::kOvrix, "918009013 [918009012 [918009010]]",
     kNever, kUnlimitedResults},
    {orv::kEventDailyTempRise, Service::kOvrix, "918009009 [918009008] per 60 entries",
     kNever, kUnlimitedMaybeEmpty},
    {orv::kEventScanMsg, Service::kOvrix, "918009009 [918009008] per node",
     kNever, kScanResults},
};
// clang-format on

constexpr bool contractsInKindOrder() {
    for (size_t i = 0; i < std::size(kContracts); ++i) {
        if (kContracts[i].kind != i) return false;
    }
    return std::size(kContracts) == orv::kVistelEventCount;
}
static_assert(contractsInKindOrder(), "one contract per kind, in kind order");

#define VISTEL_TOOL_KIND(Kind, handler, Record, refused)              \
    KindInfo{orv::kEvent##Kind,                                       \
             #Kind,                                                   \
             #handler,                                                \
             #Record,                                                 \
             kContracts[orv::kEvent##Kind].service,                   \
             kContracts[orv::kEvent##Kind].events,                    \
             kContracts[orv::kEvent##Kind].limit,                     \
             kContracts[orv::kEvent##Kind].results,                   \
             &layoutOf<orv::VistelKindBody<orv::kEvent##Kind>::type>, \
             &makeRecord<orv::kEvent##Kind, orv::Record>},
const std::array<KindInfo, orv::kVistelEventCount> kKinds = {{VISTEL_KINDS(VISTEL_TOOL_KIND)}};
#undef VISTEL_TOOL_KIND

bool isNumber(const std::string& text) {
    return !text.empty() && text.size() <= 3 &&
           text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

const char* outcomeName(Outcome outcome) {
    return vistelOutcomeName(static_cast<uint32_t>(outcome));
}

const char* serviceName(Service service) {
    switch (service) {
        case Service::kVistel:
            return "vistel";
        case Service::kOvrix:
            return "ovrix";
        case Service::kJankPrint:
            return "jank print";
        case Service::kNone:
            break;
    }
    return "none";
}

const std::array<KindInfo, orv::kVistelEventCount>& kinds() {
    return kKinds;
}

const KindInfo* findKind(const std::string& text) {
    if (isNumber(text)) {
        const unsigned long kind = std::strtoul(text.c_str(), nullptr, 10);
        return kind < kKinds.size() ? &kKinds[kind] : nullptr;
    }
    for (const KindInfo& info : kKinds) {
        if (text == info.name || text == info.handler) return &info;
    }
    return nullptr;
}

const char* closestKindName(const std::string& text) {
    static const std::vector<const char*> kNames = [] {
        std::vector<const char*> names;
        for (const KindInfo& info : kKinds) names.insert(names.end(), {info.name, info.handler});
        return names;
    }();
    return closestName(text, kNames);
}

std::string describeLimit(const LimitPolicy& limit) {
    if (limit.policy == nullptr) return "none";
    return std::string(limit.policy) + ", " + std::to_string(limit.periodSeconds) + " s per " +
           limit.scope;
}

std::string describeResults(const KindResults& results) {
    std::string text;
    for (size_t i = 0; i < results.size(); ++i) {
        if (results[i] == kNoResult) continue;
        text += (text.empty() ? "" : ", ") + std::string(outcomeName(static_cast<Outcome>(i))) +
                " " + std::to_string(results[i]);
    }
    return text;
}

}  // namespace vistel_tools
