// The 32 kinds, once: each kind's handler and the result that handler gives a record it refuses
// without reporting it (not initialised, a null record, the manager not there). Everything that
// enumerates the kinds expands this list; the record body each handler reads comes from
// VistelKindBody in VistelRecords.h.
//
//     #define NAME(Kind, handler, refused) #Kind,
//     constexpr const char* kNames[] = {VISTEL_KINDS(NAME)};
#pragma once

#include <VistelManager.h>

#include <cstddef>
#include <utility>

// The scan message answers -2 when refused, and the kind-18 trace request, which checks nothing,
// 0; every other -1.
#define VISTEL_KINDS(X)                                                                \
    X(MemLeak, sendEventMemLeak, -1)                                                   \
    X(MemShortage, sendEventMemShortage, -1)                                           \
    X(MemLimit, sendEventMemLimit, -1)                                                 \
    X(MemEfficiencyWarning, sendEventMemEfficiencyWarning, -1)                         \
    X(MemAllocFail, sendEventMemAllocFail, -1)                                         \
    X(PreviewBufferRefLeak, sendEventPreviewBufferRefLeak, -1)                         \
    X(CaptureBufferRefLeak, sendEventCaptureBufferRefLeak, -1)                         \
    X(AlgoProcessTimeoutWarning, sendEventAlgoProcessTimeoutWarning, -1)               \
    X(AlgoProcessTimeoutError, sendEventAlgoProcessTimeoutError, -1)                   \
    X(SnapshotTimeoutWarning, sendEventSnapshotTimeoutWarning, -1)                     \
    X(SnapshotTimeoutError, sendEventSnapshotTimeoutError, -1)                         \
    X(OtherTimeoutWarning, sendEventOtherTimeoutWarning, -1)                           \
    X(OtherTimeoutError, sendEventOtherTimeoutError, -1)                               \
    X(SnapshotBigdata, sendEventSnapshotBigdata, -1)                                   \
    X(SnapshotAfBigdata, SendEventSnapshotAfBigdata, -1)                               \
    X(StatisticData, sendEventStatisticData, -1)                                       \
    X(HDRPData, sendEventHDRPData, -1)                                                 \
    X(SnapshotBigdataV2, SendEventSnapshotBigdataV2, -1)                               \
    X(AlgoProcessTimeoutDumpSystrace, SendEventAlgoProcessTimeoutDumpSystrace, 0)      \
    X(FlushProcessTimeoutError, sendEventFlushProcessTimeoutError, -1)                 \
    X(StopProcessTimeoutError, sendEventStopProcessTimeoutError, -1)                   \
    X(SessionUninitProcessTimeoutError, sendEventSessionUninitProcessTimeoutError, -1) \
    X(ConfigStreamProcessTimeoutError, sendEventConfigStreamProcessTimeoutError, -1)   \
    X(VideoPerfData, sendEventVideoPerfData, -1)                                       \
    X(PostProcessTimeoutError, sendEventPostProcessTimeoutError, -1)                   \
    X(BootTimeout, sendBootTimeout, -1)                                                \
    X(DumpTrace, dumpTrace, -1)                                                        \
    X(FrameDrop, FrameDropError, -1)                                                   \
    X(MemoryExceedThreshold, sendMemoryExceedThreshold, -1)                            \
    X(MemoryAllocTimeout, sendMemoryAllocTimeout, -1)                                  \
    X(DailyTempRise, sendDailyTempRise, -1)                                            \
    X(ScanMsg, sendScanMsgReport, -2)

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

#define VISTEL_KIND_INFO(Kind, handler, refused)                                             \
    KindInfo{&VistelManager::handler, #handler, #Kind, kinds_detail::bodyOf<kEvent##Kind>(), \
             kEvent##Kind, refused},
inline constexpr KindInfo kKinds[] = {VISTEL_KINDS(VISTEL_KIND_INFO)};
#undef VISTEL_KIND_INFO

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
