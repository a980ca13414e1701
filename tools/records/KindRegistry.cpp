#include "KindRegistry.h"

#include <strings.h>

#include <cstdlib>
#include <type_traits>

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

#define VISTEL_KIND(Name, handler, Record, Body, service, events, limit)                     \
    KindInfo {                                                                               \
        orv::kEvent##Name, #Name, #handler, #Record, Service::service, events, limit,        \
                &layoutOf<orv::Body>, &makeRecord<orv::kEvent##Name, orv::Record, orv::Body> \
    }

// clang-format off
const std::array<KindInfo, orv::kVistelEventCount> kKinds = {{
    VISTEL_KIND(MemLeak, sendEventMemLeak, vistelMemLeak, vistelMemLeak,
                kVistel, "918000000", perName("limitEventMemLeak")),
    VISTEL_KIND(MemShortage, sendEventMemShortage, vistelMemShortage, vistelMemShortage,
                kVistel, "918000001",
                (LimitPolicy{"limitEventMemShortage", 3600, "value1 (its bytes as text)"})),
    VISTEL_KIND(MemLimit, sendEventMemLimit, vistelMemLimit, vistelMemLimit,
                kVistel, "918001000", perName("limitEventMemLimit")),
    VISTEL_KIND(MemEfficiencyWarning, sendEventMemEfficiencyWarning, vistelMemEfficiencyWarning,
                vistelMemEfficiencyWarning,
                kVistel, "918001001", perKind("limitEventMemEfficiencyWarning", 3600)),
    VISTEL_KIND(MemAllocFail, sendEventMemAllocFail, vistelMemAllocFail, vistelMemAllocFail,
                kVistel, "918000002", perKind("limitEventMemAllocFail", 3600)),
    VISTEL_KIND(PreviewBufferRefLeak, sendEventPreviewBufferRefLeak, vistelPreviewBufferRefLeak,
                vistelPreviewBufferRefLeak,
                kVistel, "918000020", perName("limitEventPreviewBufferRefLeak")),
    VISTEL_KIND(CaptureBufferRefLeak, sendEventCaptureBufferRefLeak, vistelCaptureBufferRefLeak,
                vistelCaptureBufferRefLeak,
                kVistel, "918000021", perName("limitEventCaptureBufferRefLeak")),
    VISTEL_KIND(AlgoProcessTimeoutWarning, sendEventAlgoProcessTimeoutWarning,
                vistelAlgoProcessTimeoutWarning, vistelAlgoProcessTimeout,
                kVistel, "918001020", perName("limitEventAlgoProcessTimeoutWarning")),
    VISTEL_KIND(AlgoProcessTimeoutError, sendEventAlgoProcessTimeoutError,
                vistelAlgoProcessTimeoutError, vistelAlgoProcessTimeout,
                kVistel, "918000040", perName("limitEventAlgoProcessTimeoutError")),
    VISTEL_KIND(SnapshotTimeoutWarning, sendEventSnapshotTimeoutWarning,
                vistelSnapshotTimeoutWarning, vistelSnapshotTimeout,
                kVistel, "918001040", perName("limitEventSnapshotTimeoutWarning")),
    VISTEL_KIND(SnapshotTimeoutError, sendEventSnapshotTimeoutError,
                vistelSnapshotTimeoutError, vistelSnapshotTimeout,
                kVistel, "918000060", perName("limitEventSnapshotTimeoutError")),
    VISTEL_KIND(OtherTimeoutWarning, sendEventOtherTimeoutWarning,
                vistelOtherTimeoutWarning, vistelOtherTimeout,
                kVistel, "918001041",
                (LimitPolicy{"limitEventOtherTimeoutWarning", 3600, "(firstName, secondName)"})),
    VISTEL_KIND(OtherTimeoutError, sendEventOtherTimeoutError,
                vistelOtherTimeoutError, vistelOtherTimeout,
                kVistel, "918000061",
                (LimitPolicy{"limitEventOtherTimeoutError", 3600, "(firstName, secondName)"})),
    VISTEL_KIND(SnapshotBigdata, sendEventSnapshotBigdata, vistelSnapshotBigdata,
                vistelSnapshotBigdata, kVistel, "918009000", kNever),
    VISTEL_KIND(SnapshotAfBigdata, SendEventSnapshotAfBigdata, vistelSnapshotAfBigdata,
                vistelSnapshotAfBigdata, kVistel, "918009001", kNever),
    VISTEL_KIND(StatisticData, sendEventStatisticData, vistelStatisticData, vistelStatisticData,
                kVistel, "918009002", kNever),
    VISTEL_KIND(HDRPData, sendEventHDRPData, vistelHDRPData, vistelHDRPData,
                kVistel, "918009003", kNever),
    VISTEL_KIND(SnapshotBigdataV2, SendEventSnapshotBigdataV2, vistelSnapshotBigdataV2,
                vistelSnapshotBigdataV2, kVistel, "918009005", kNever),
    // Answered without a report: another component takes these traces.
    VISTEL_KIND(AlgoProcessTimeoutDumpSystrace, SendEventAlgoProcessTimeoutDumpSystrace,
                vistelAlgoProcessTimeoutDumpSystrace, vistelAlgoProcessTimeout,
                kNone, "-", kNever),
    VISTEL_KIND(FlushProcessTimeoutError, sendEventFlushProcessTimeoutError,
                vistelFlushProcessTimeout, vistelOtherTimeout, kVistel, "918001041", kNever),
    VISTEL_KIND(StopProcessTimeoutError, sendEventStopProcessTimeoutError,
                vistelStopProcessTimeout, vistelOtherTimeout, kVistel, "918001041", kNever),
    VISTEL_KIND(SessionUninitProcessTimeoutError, sendEventSessionUninitProcessTimeoutError,
                vistelSessionUninitProcessTimeout, vistelOtherTimeout,
                kVistel, "918001041", kNever),
    VISTEL_KIND(ConfigStreamProcessTimeoutError, sendEventConfigStreamProcessTimeoutError,
                vistelConfigStreamProcessTimeout, vistelOtherTimeout,
                kVistel, "918001041", kNever),
    VISTEL_KIND(VideoPerfData, sendEventVideoPerfData, vistelVideoPerfData, vistelVideoPerfData,
                kOvrix, "918009006 [918009007]",
                perKind("limitEventSnapshotRetFrmIntervalError", 60)),
    VISTEL_KIND(PostProcessTimeoutError, sendEventPostProcessTimeoutError,
                vistelPostProcessTimeOut, vistelPostProcessTimeOut, kVistel, "918000040", kNever),
    VISTEL_KIND(BootTimeout, sendBootTimeout, vistelBootTimeout, vistelBootMsg,
                kOvrix, "918009009 [918009008] per node", perKind("limitEventBootPerf", 600)),
    VISTEL_KIND(DumpTrace, dumpTrace, vistelDumpTrace, vistelDumpTrace,
                kJankPrint, "type 3, id 474", perKind("LimitDumpSysTraceError", 360)),
    VISTEL_KIND(FrameDrop, FrameDropError, vistelFrameDrop, vistelFrameDrop,
                kOvrix, "918009006 [918009007] per group", perKind("limitEventVideoPerf", 600)),
    VISTEL_KIND(MemoryExceedThreshold, sendMemoryExceedThreshold, vistelMemExceedThreshold,
                vistelMemExceedThreshold, kOvrix, "918009011 [918009010]", kNever),
    VISTEL_KIND(MemoryAllocTimeout, sendMemoryAllocTimeout, vistelMemAllocTimeout,
                vistelMemAllocTimeout, kOvrix, "918009013 [918009012 [918009010]]", kNever),
    VISTEL_KIND(DailyTempRise, sendDailyTempRise, vistelDailyTempRise, vistelDailyTempRise,
                kOvrix, "918009009 [918009008] per 60 entries", kNever),
    VISTEL_KIND(ScanMsg, sendScanMsgReport, vistelScanMsg, vistelBootMsg,
                kOvrix, "918009009 [918009008] per node", kNever),
}};
// clang-format on

#undef VISTEL_KIND

bool isNumber(const std::string& text) {
    return !text.empty() && text.size() <= 3 &&
           text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

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

const char* kindNameIgnoringCase(const std::string& text) {
    for (const KindInfo& info : kKinds) {
        for (const char* name : {info.name, info.handler}) {
            if (strcasecmp(text.c_str(), name) == 0) return name;
        }
    }
    return nullptr;
}

std::string describeLimit(const LimitPolicy& limit) {
    if (limit.policy == nullptr) return "none";
    return std::string(limit.policy) + ", " + std::to_string(limit.periodSeconds) + " s per " +
           limit.scope;
}

}  // namespace vistel_tools
