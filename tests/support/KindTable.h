// The 32 kinds as tests see them: a blank record of each and the handler that must receive it.
#pragma once

#include <VistelManager.h>

#include <memory>

namespace vistel_test {

struct KindCase {
    orv::VistelEvent kind;
    const char* handler;
    std::shared_ptr<orv::VistelEventBase> (*make)();  // zero-filled record of that kind
};

template <typename Record>
std::shared_ptr<orv::VistelEventBase> blankRecord() {
    return std::make_shared<Record>();
}

inline const KindCase kKindCases[] = {
        {orv::kEventMemLeak, "sendEventMemLeak", blankRecord<orv::vistelMemLeak>},
        {orv::kEventMemShortage, "sendEventMemShortage", blankRecord<orv::vistelMemShortage>},
        {orv::kEventMemLimit, "sendEventMemLimit", blankRecord<orv::vistelMemLimit>},
        {orv::kEventMemEfficiencyWarning, "sendEventMemEfficiencyWarning",
         blankRecord<orv::vistelMemEfficiencyWarning>},
        {orv::kEventMemAllocFail, "sendEventMemAllocFail", blankRecord<orv::vistelMemAllocFail>},
        {orv::kEventPreviewBufferRefLeak, "sendEventPreviewBufferRefLeak",
         blankRecord<orv::vistelPreviewBufferRefLeak>},
        {orv::kEventCaptureBufferRefLeak, "sendEventCaptureBufferRefLeak",
         blankRecord<orv::vistelCaptureBufferRefLeak>},
        {orv::kEventAlgoProcessTimeoutWarning, "sendEventAlgoProcessTimeoutWarning",
         blankRecord<orv::vistelAlgoProcessTimeoutWarning>},
        {orv::kEventAlgoProcessTimeoutError, "sendEventAlgoProcessTimeoutError",
         blankRecord<orv::vistelAlgoProcessTimeoutError>},
        {orv::kEventSnapshotTimeoutWarning, "sendEventSnapshotTimeoutWarning",
         blankRecord<orv::vistelSnapshotTimeoutWarning>},
        {orv::kEventSnapshotTimeoutError, "sendEventSnapshotTimeoutError",
         blankRecord<orv::vistelSnapshotTimeoutError>},
        {orv::kEventOtherTimeoutWarning, "sendEventOtherTimeoutWarning",
         blankRecord<orv::vistelOtherTimeoutWarning>},
        {orv::kEventOtherTimeoutError, "sendEventOtherTimeoutError",
         blankRecord<orv::vistelOtherTimeoutError>},
        {orv::kEventSnapshotBigdata, "sendEventSnapshotBigdata",
         blankRecord<orv::vistelSnapshotBigdata>},
        {orv::kEventSnapshotAfBigdata, "SendEventSnapshotAfBigdata",
         blankRecord<orv::vistelSnapshotAfBigdata>},
        {orv::kEventStatisticData, "sendEventStatisticData", blankRecord<orv::vistelStatisticData>},
        {orv::kEventHDRPData, "sendEventHDRPData", blankRecord<orv::vistelHDRPData>},
        {orv::kEventSnapshotBigdataV2, "SendEventSnapshotBigdataV2",
         blankRecord<orv::vistelSnapshotBigdataV2>},
        {orv::kEventAlgoProcessTimeoutDumpSystrace, "SendEventAlgoProcessTimeoutDumpSystrace",
         blankRecord<orv::vistelAlgoProcessTimeoutDumpSystrace>},
        {orv::kEventFlushProcessTimeoutError, "sendEventFlushProcessTimeoutError",
         blankRecord<orv::vistelFlushProcessTimeout>},
        {orv::kEventStopProcessTimeoutError, "sendEventStopProcessTimeoutError",
         blankRecord<orv::vistelStopProcessTimeout>},
        {orv::kEventSessionUninitProcessTimeoutError, "sendEventSessionUninitProcessTimeoutError",
         blankRecord<orv::vistelSessionUninitProcessTimeout>},
        {orv::kEventConfigStreamProcessTimeoutError, "sendEventConfigStreamProcessTimeoutError",
         blankRecord<orv::vistelConfigStreamProcessTimeout>},
        {orv::kEventVideoPerfData, "sendEventVideoPerfData", blankRecord<orv::vistelVideoPerfData>},
        {orv::kEventPostProcessTimeoutError, "sendEventPostProcessTimeoutError",
         blankRecord<orv::vistelPostProcessTimeOut>},
        {orv::kEventBootTimeout, "sendBootTimeout", blankRecord<orv::vistelBootTimeout>},
        {orv::kEventDumpTrace, "dumpTrace", blankRecord<orv::vistelDumpTrace>},
        {orv::kEventFrameDrop, "FrameDropError", blankRecord<orv::vistelFrameDrop>},
        {orv::kEventMemoryExceedThreshold, "sendMemoryExceedThreshold",
         blankRecord<orv::vistelMemExceedThreshold>},
        {orv::kEventMemoryAllocTimeout, "sendMemoryAllocTimeout",
         blankRecord<orv::vistelMemAllocTimeout>},
        {orv::kEventDailyTempRise, "sendDailyTempRise", blankRecord<orv::vistelDailyTempRise>},
        {orv::kEventScanMsg, "sendScanMsgReport", blankRecord<orv::vistelScanMsg>},
};

}  // namespace vistel_test
