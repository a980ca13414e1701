#include <climits>

#include "HealthTestSupport.h"

namespace vistel_test {
namespace {

using MemoryThresholdTest = SingleOvrixReportTest;

// Reported back to back without moving the clock: no limiter stands in the way.
TEST_F(MemoryThresholdTest, ReportsScalarsThenOneSubEventPerProcess) {
    const std::vector<orv::vistelProcessMemInfo> kProcessLists[] = {
            {},
            {processMemInfo("cameraserver", 10), processMemInfo("", -30)},
    };
    for (const auto& processes : kProcessLists) {
        SCOPED_TRACE(processes.size());
        auto record = std::make_shared<orv::vistelMemExceedThreshold>();
        record->maxUsableSize = 1;
        record->usedTotalSizePeak = INT_MIN;  // passed on unchanged
        record->processes = processes;
        record->sysMemFree = 3;
        record->captureGoingCount = 4;
        record->jpegName = "IMG_0001.jpg";
        record->sceneMode = 5;
        record->zoom = INT_MAX;
        record->multiCamMask = 7;
        record->snapshotId = 8;
        record->switchFlag = 9;
        record->eventTime = "2024-05-01 12:00:00";
        std::string expected =
                "918009011{MaxUsableSize=1 UsedTotalSizePeak=-2147483648 SysMemFree=3 "
                "CaptureGoingCount=4 JpegName=\"IMG_0001.jpg\" SceneMode=5 Zoom=2147483647 "
                "MultiCamMask=7 SnapshotID=8 SwitchFlag=9 EventTime=\"2024-05-01 12:00:00\" "
                "ProcessInfo=[";
        if (!processes.empty()) {
            expected += processMemText("cameraserver", 10) + "," + processMemText("", -30);
        }
        expectSingleReport("sendMemoryExceedThreshold", record, expected + "]}");
    }
}

}  // namespace
}  // namespace vistel_test
