// The manager's 32 handlers as member pointers, indexed by kind, for tests that call them
// directly, and what each answers when it refuses a record.
#pragma once

#include <VistelManager.h>

#include <iterator>

namespace vistel_test {

using Handler = int (orv::VistelManager::*)(std::shared_ptr<orv::VistelEventBase>);

inline constexpr Handler kHandlers[] = {
        &orv::VistelManager::sendEventMemLeak,
        &orv::VistelManager::sendEventMemShortage,
        &orv::VistelManager::sendEventMemLimit,
        &orv::VistelManager::sendEventMemEfficiencyWarning,
        &orv::VistelManager::sendEventMemAllocFail,
        &orv::VistelManager::sendEventPreviewBufferRefLeak,
        &orv::VistelManager::sendEventCaptureBufferRefLeak,
        &orv::VistelManager::sendEventAlgoProcessTimeoutWarning,
        &orv::VistelManager::sendEventAlgoProcessTimeoutError,
        &orv::VistelManager::sendEventSnapshotTimeoutWarning,
        &orv::VistelManager::sendEventSnapshotTimeoutError,
        &orv::VistelManager::sendEventOtherTimeoutWarning,
        &orv::VistelManager::sendEventOtherTimeoutError,
        &orv::VistelManager::sendEventSnapshotBigdata,
        &orv::VistelManager::SendEventSnapshotAfBigdata,
        &orv::VistelManager::sendEventStatisticData,
        &orv::VistelManager::sendEventHDRPData,
        &orv::VistelManager::SendEventSnapshotBigdataV2,
        &orv::VistelManager::SendEventAlgoProcessTimeoutDumpSystrace,
        &orv::VistelManager::sendEventFlushProcessTimeoutError,
        &orv::VistelManager::sendEventStopProcessTimeoutError,
        &orv::VistelManager::sendEventSessionUninitProcessTimeoutError,
        &orv::VistelManager::sendEventConfigStreamProcessTimeoutError,
        &orv::VistelManager::sendEventVideoPerfData,
        &orv::VistelManager::sendEventPostProcessTimeoutError,
        &orv::VistelManager::sendBootTimeout,
        &orv::VistelManager::dumpTrace,
        &orv::VistelManager::FrameDropError,
        &orv::VistelManager::sendMemoryExceedThreshold,
        &orv::VistelManager::sendMemoryAllocTimeout,
        &orv::VistelManager::sendDailyTempRise,
        &orv::VistelManager::sendScanMsgReport,
};
static_assert(std::size(kHandlers) == orv::kVistelEventCount);

// What each handler answers when it refuses a record (not initialised, a null record, the
// manager gone): the scan message report -2, the kind-18 trace request 0 (it checks nothing),
// every other -1.
inline int refusedResult(orv::VistelEvent kind) {
    if (kind == orv::kEventScanMsg) return -2;
    if (kind == orv::kEventAlgoProcessTimeoutDumpSystrace) return 0;
    return -1;
}

}  // namespace vistel_test
