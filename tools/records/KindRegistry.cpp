#include "KindRegistry.h"

#include <cstdlib>
#include <type_traits>
#include <vector>

namespace vistel_tools {

namespace {

template <orv::VistelEvent Kind, typename Record, typename Body>
RecordInstance makeRecord() {
    static_assert(std::is_same_v<Body, typename orv::VistelKindBody<Kind>::type>,
                  "the table names another body than VistelRecords.h gives the kind");
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

#define VISTEL_KIND(Name, handler, Record, Body, service, events, limit, results)              \
    KindInfo {                                                                                 \
        orv::kEvent##Name, #Name, #handler, #Record, Service::service, events, limit, results, \
                &layoutOf<orv::Body>, &makeRecord<orv::kEvent##Name, orv::Record, orv::Body>   \
    }

// clang-format off
const std::array<KindInfo, orv::kVistelEventCount> kKinds = {{
    VISTEL_KIND(MemLeak, sendEventMemLeak, vistelMemLeak, vistelMemLeak,
                kVistel, "918000000", perName("limitEventMemLeak"), kFaultResults),
    VISTEL_KIND(MemShortage, sendEventMemShortage, vistelMemShortage, vistelMemShortage,
                kVistel, "918000001",
                (LimitPolicy{"limitEventMemShortage", 3600, "value1 (its bytes as text)"}),
                kFaultResults),
    VISTEL_KIND(MemLimit, sendEventMemLimit, vistelMemLimit, vistelMemLimit,
                kVistel, "918001000", perName("limitEventMemLimit"), kFaultResults),
    VISTEL_KIND(MemEfficiencyWarning, sendEventMemEfficiencyWarning, vistelMemEfficiencyWarning,
                vistelMemEfficiencyWarning,
                kVistel, "918001001", perKind("limitEventMemEfficiencyWarning", 3600),
                kFaultResults),
    VISTEL_KIND(MemAllocFail, sendEventMemAllocFail, vistelMemAllocFail, vistelMemAllocFail,
                kVistel, "918000002", perKind("limitEventMemAllocFail", 3600), kFaultResults),
    VISTEL_KIND(PreviewBufferRefLeak, sendEventPreviewBufferRefLeak, vistelPreviewBufferRefLeak,
                vistelPreviewBufferRefLeak,
                kVistel, "918000020", perName("limitEventPreviewBufferRefLeak"), kFaultResults),
    VISTEL_KIND(CaptureBufferRefLeak, sendEventCaptureBufferRefLeak, vistelCaptureBufferRefLeak,
                vistelCaptureBufferRefLeak,
                kVistel, "918000021", perName("limitEventCaptureBufferRefLeak"), kFaultResults),
    VISTEL_KIND(AlgoProcessTimeoutWarning, sendEventAlgoProcessTimeoutWarning,
                vistelAlgoProcessTimeoutWarning, vistelAlgoProcessTimeout,
                kVistel, "918001020", perName("limitEventAlgoProcessTimeoutWarning"),
                kFaultResults),
    VISTEL_KIND(AlgoProcessTimeoutError, sendEventAlgoProcessTimeoutError,
                vistelAlgoProcessTimeoutError, vistelAlgoProcessTimeout,
                kVistel, "918000040", perName("limitEventAlgoProcessTimeoutError"), kFaultResults),
    VISTEL_KIND(SnapshotTimeoutWarning, sendEventSnapshotTimeoutWarning,
                vistelSnapshotTimeoutWarning, vistelSnapshotTimeout,
                kVistel, "918001040", perName("limitEventSnapshotTimeoutWarning"), kFaultResults),
    VISTEL_KIND(SnapshotTimeoutError, sendEventSnapshotTimeoutError,
                vistelSnapshotTimeoutError, vistelSnapshotTimeout,
                kVistel, "918000060", perName("limitEventSnapshotTimeoutError"), kFaultResults),
    VISTEL_KIND(OtherTimeoutWarning, sendEventOtherTimeoutWarning,
                vistelOtherTimeoutWarning, vistelOtherTimeout,
                kVistel, "918001041",
                (LimitPolicy{"limitEventOtherTimeoutWarning", 3600, "(firstName, secondName)"}),
                kFaultResults),
    VISTEL_KIND(OtherTimeoutError, sendEventOtherTimeoutError,
                vistelOtherTimeoutError, vistelOtherTimeout,
                kVistel, "918000061",
                (LimitPolicy{"limitEventOtherTimeoutError", 3600, "(firstName, secondName)"}),
                kFaultResults),
    VISTEL_KIND(SnapshotBigdata, sendEventSnapshotBigdata, vistelSnapshotBigdata,
                vistelSnapshotBigdata, kVistel, "918009000", kNever, kUnlimitedResults),
    VISTEL_KIND(SnapshotAfBigdata, SendEventSnapshotAfBigdata, vistelSnapshotAfBigdata,
                vistelSnapshotAfBigdata, kVistel, "918009001", kNever, kUnlimitedResults),
    VISTEL_KIND(StatisticData, sendEventStatisticData, vistelStatisticData, vistelStatisticData,
                kVistel, "918009002", kNever, kUnlimitedResults),
    VISTEL_KIND(HDRPData, sendEventHDRPData, vistelHDRPData, vistelHDRPData,
                kVistel, "918009003", kNever, kUnlimitedResults),
    VISTEL_KIND(SnapshotBigdataV2, SendEventSnapshotBigdataV2, vistelSnapshotBigdataV2,
                vistelSnapshotBigdataV2, kVistel, "918009005", kNever, kUnlimitedResults),
    // Answered without a report: another component takes these traces.
    VISTEL_KIND(AlgoProcessTimeoutDumpSystrace, SendEventAlgoProcessTimeoutDumpSystrace,
                vistelAlgoProcessTimeoutDumpSystrace, vistelAlgoProcessTimeout,
                kNone, "-", kNever, kAnswersOnly),
    VISTEL_KIND(FlushProcessTimeoutError, sendEventFlushProcessTimeoutError,
                vistelFlushProcessTimeout, vistelOtherTimeout, kVistel, "918001041", kNever,
                kUnlimitedResults),
    VISTEL_KIND(StopProcessTimeoutError, sendEventStopProcessTimeoutError,
                vistelStopProcessTimeout, vistelOtherTimeout, kVistel, "918001041", kNever,
                kUnlimitedResults),
    VISTEL_KIND(SessionUninitProcessTimeoutError, sendEventSessionUninitProcessTimeoutError,
                vistelSessionUninitProcessTimeout, vistelOtherTimeout,
                kVistel, "918001041", kNever, kUnlimitedResults),
    VISTEL_KIND(ConfigStreamProcessTimeoutError, sendEventConfigStreamProcessTimeoutError,
                vistelConfigStreamProcessTimeout, vistelOtherTimeout,
                kVistel, "918001041", kNever, kUnlimitedResults),
    VISTEL_KIND(VideoPerfData, sendEventVideoPerfData, vistelVideoPerfData, vistelVideoPerfData,
                kOvrix, "918009006 [918009007]",
                perKind("limitEventSnapshotRetFrmIntervalError", 60), kLimitedResults),
    VISTEL_KIND(PostProcessTimeoutError, sendEventPostProcessTimeoutError,
                vistelPostProcessTimeOut, vistelPostProcessTimeOut, kVistel, "918000040", kNever,
                kUnlimitedResults),
    VISTEL_KIND(BootTimeout, sendBootTimeout, vistelBootTimeout, vistelBootMsg,
                kOvrix, "918009009 [918009008] per node", perKind("limitEventBootPerf", 600),
                kLimitedMaybeEmpty),
    VISTEL_KIND(DumpTrace, dumpTrace, vistelDumpTrace, vistelDumpTrace,
                kJankPrint, "type 3, id 474", perKind("LimitDumpSysTraceError", 360),
                kLimitedResults),
    VISTEL_KIND(FrameDrop, FrameDropError, vistelFrameDrop, vistelFrameDrop,
                kOvrix, "918009006 [918009007] per group", perKind("limitEventVideoPerf", 600),
                kLimitedMaybeEmpty),
    VISTEL_KIND(MemoryExceedThreshold, sendMemoryExceedThreshold, vistelMemExceedThreshold,
                vistelMemExceedThreshold, kOvrix, "918009011 [918009010]", kNever,
                kUnlimitedResults),
    VISTEL_KIND(MemoryAllocTimeout, sendMemoryAllocTimeout, vistelMemAllocTimeout,
                vistelMemAllocTimeout, kOvrix, "918009013 [918009012 [918009010]]", kNever,
                kUnlimitedResults),
    VISTEL_KIND(DailyTempRise, sendDailyTempRise, vistelDailyTempRise, vistelDailyTempRise,
                kOvrix, "918009009 [918009008] per 60 entries", kNever, kUnlimitedMaybeEmpty),
    VISTEL_KIND(ScanMsg, sendScanMsgReport, vistelScanMsg, vistelBootMsg,
                kOvrix, "918009009 [918009008] per node", kNever, kScanResults),
}};
// clang-format on

#undef VISTEL_KIND

bool isNumber(const std::string& text) {
    return !text.empty() && text.size() <= 3 &&
           text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

const char* outcomeName(Outcome outcome) {
    switch (outcome) {
        case Outcome::kSent:
            return "sent";
        case Outcome::kLimited:
            return "limited";
        case Outcome::kNoEvent:
            return "no-event";
        case Outcome::kNotInitialised:
            return "not-initialised";
        case Outcome::kFailed:
            return "failed";
        case Outcome::kShed:
            return "shed";
        case Outcome::kOff:
            break;
    }
    return "off";
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
