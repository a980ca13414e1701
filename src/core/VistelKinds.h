// The 32 kinds, once: each kind's handler, the record type the camera stack makes for it, and the
// result that handler gives a record it refuses without reporting it (not initialised, a null
// record, the manager not there). Everything that enumerates the kinds expands this list: the
// manager's table below, the tools' kind table, the tests' handler list. The record body each
// handler reads comes from VistelKindBody in VistelRecords.h.
//
//     #define NAME(Kind, handler, Record, refused) #Kind,
//     constexpr const char* kNames[] = {VISTEL_KINDS(NAME)};
#pragma once

#include <VistelManager.h>

#include <cstddef>
#include <type_traits>
#include <utility>

// The scan message answers -2 when refused, and the kind-18 trace request, which checks nothing,
// 0; every other -1.
#define VISTEL_KINDS(X)                                                                             \
    X(MemLeak, sendEventMemLeak, vistelMemLeak, -1)                                                 \
    X(MemShortage, sendEventMemShortage, vistelMemShortage, -1)                                     \
    X(MemLimit, sendEventMemLimit, vistelMemLimit, -1)                                              \
    X(MemEfficiencyWarning, sendEventMemEfficiencyWarning, vistelMemEfficiencyWarning, -1)          \
    X(MemAllocFail, sendEventMemAllocFail, vistelMemAllocFail, -1)                                  \
    X(PreviewBufferRefLeak, sendEventPreviewBufferRefLeak, vistelPreviewBufferRefLeak, -1)          \
    X(CaptureBufferRefLeak, sendEventCaptureBufferRefLeak, vistelCaptureBufferRefLeak, -1)          \
    X(AlgoProcessTimeoutWarning, sendEventAlgoProcessTimeoutWarning,                                \
      vistelAlgoProcessTimeoutWarning, -1)                                                          \
    X(AlgoProcessTimeoutError, sendEventAlgoProcessTimeoutError, vistelAlgoProcessTimeoutError, -1) \
    X(SnapshotTimeoutWarning, sendEventSnapshotTimeoutWarning, vistelSnapshotTimeoutWarning, -1)    \
    X(SnapshotTimeoutError, sendEventSnapshotTimeoutError, vistelSnapshotTimeoutError, -1)          \
    X(OtherTimeoutWarning, sendEventOtherTimeoutWarning, vistelOtherTimeoutWarning, -1)             \
    X(OtherTimeoutError, sendEventOtherTimeoutError, vistelOtherTimeoutError, -1)                   \
    X(SnapshotBigdata, sendEventSnapshotBigdata, vistelSnapshotBigdata, -1)                         \
    X(SnapshotAfBigdata, SendEventSnapshotAfBigdata, vistelSnapshotAfBigdata, -1)                   \
    X(StatisticData, sendEventStatisticData, vistelStatisticData, -1)                               \
    X(HDRPData, sendEventHDRPData, vistelHDRPData, -1)                                              \
    X(SnapshotBigdataV2, SendEventSnapshotBigdataV2, vistelSnapshotBigdataV2, -1)                   \
    X(AlgoProcessTimeoutDumpSystrace, SendEventAlgoProcessTimeoutDumpSystrace,                      \
      vistelAlgoProcessTimeoutDumpSystrace, 0)                                                      \
    X(FlushProcessTimeoutError, sendEventFlushProcessTimeoutError, vistelFlushProcessTimeout, -1)   \
    X(StopProcessTimeoutError, sendEventStopProcessTimeoutError, vistelStopProcessTimeout, -1)      \
    X(SessionUninitProcessTimeoutError, sendEventSessionUninitProcessTimeoutError,                  \
      vistelSessionUninitProcessTimeout, -1)                                                        \
    X(ConfigStreamProcessTimeoutError, sendEventConfigStreamProcessTimeoutError,                    \
      vistelConfigStreamProcessTimeout, -1)                                                         \
    X(VideoPerfData, sendEventVideoPerfData, vistelVideoPerfData, -1)                               \
    X(PostProcessTimeoutError, sendEventPostProcessTimeoutError, vistelPostProcessTimeOut, -1)      \
    X(BootTimeout, sendBootTimeout, vistelBootTimeout, -1)                                          \
    X(DumpTrace, dumpTrace, vistelDumpTrace, -1)                                                    \
    X(FrameDrop, FrameDropError, vistelFrameDrop, -1)                                               \
    X(MemoryExceedThreshold, sendMemoryExceedThreshold, vistelMemExceedThreshold, -1)               \
    X(MemoryAllocTimeout, sendMemoryAllocTimeout, vistelMemAllocTimeout, -1)                        \
    X(DailyTempRise, sendDailyTempRise, vistelDailyTempRise, -1)                                    \
    X(ScanMsg, sendScanMsgReport, vistelScanMsg, -2)

namespace orv {

struct KindInfo {
    VistelManager::HandlerMethod handler;
    const char* handlerName;  // as its log lines give it
    const char* kindName;     // as VistelRecords.h spells it after "kEvent"
    const void* body;  // identifies the record body the handler reads (same body, same value)
    VistelEvent kind;
    int refusedResult;
};

namespace kinds_detail {

template <typename Body>
struct BodyTag {
    static constexpr char id = 0;
};

template <VistelEvent Kind>
constexpr const void* bodyOf() {
    return &BodyTag<typename VistelKindBody<Kind>::type>::id;
}

}  // namespace kinds_detail

#define VISTEL_KIND_INFO(Kind, handler, Record, refused) \
    KindInfo{&VistelManager::handler,                    \
             #handler,                                   \
             #Kind,                                      \
             kinds_detail::bodyOf<kEvent##Kind>(),       \
             kEvent##Kind,                               \
             refused},
inline constexpr KindInfo kKinds[] = {VISTEL_KINDS(VISTEL_KIND_INFO)};
#undef VISTEL_KIND_INFO

// The record type named for a kind is one its handler reads: the kind's body, or a record
// wrapping it.
#define VISTEL_KIND_RECORD(Kind, handler, Record, refused)                       \
    static_assert(std::is_base_of_v<VistelKindBody<kEvent##Kind>::type, Record>, \
                  #Record " does not carry " #Kind "'s record body");
VISTEL_KINDS(VISTEL_KIND_RECORD)
#undef VISTEL_KIND_RECORD

constexpr bool kindsInOrder() {
    for (size_t i = 0; i < std::size(kKinds); ++i) {
        if (kKinds[i].kind != i) return false;
    }
    return std::size(kKinds) == kVistelEventCount;
}
static_assert(kindsInOrder(), "one entry per kind, in kind order");

inline const KindInfo& kindInfo(VistelEvent kind) {
    return kKinds[kind];
}

}  // namespace orv
