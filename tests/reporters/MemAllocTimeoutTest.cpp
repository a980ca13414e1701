#include <cstdint>

#include "HealthTestSupport.h"

namespace vistel_test {
namespace {

using MemAllocTimeoutTest = SingleOvrixReportTest;

TEST_F(MemAllocTimeoutTest, ReportsEachBufferWithOnlyItsOwnProcesses) {
    const std::vector<orv::vistelBufAllocInfo> kBufferLists[] = {
            {},
            {{"preview",
              4096,
              120,
              1714564800123456789ull,
              50,
              {processMemInfo("cameraserver", 10), processMemInfo("vendor.qor", 30)}},
             {"capture", 8192, 300, UINT64_MAX, 40, {}}},
    };
    for (const auto& buffers : kBufferLists) {
        SCOPED_TRACE(buffers.size());
        auto record = std::make_shared<orv::vistelMemAllocTimeout>();
        record->appName = "com.example.camera";
        record->sceneMode = 1;
        record->cameraState = 2;
        record->stateDuration = 3;
        record->isQor = 4;
        record->memoryAlloced = 5;
        record->allocTimeCost = 6;
        record->timeoutCount = -7;
        record->allocBuffers = buffers;
        record->eventTime = "2024-05-01 12:00:00";
        std::string expected =
                "918009013{AppName=\"com.example.camera\" SceneMode=1 CameraState=2 "
                "StateDuration=3 IsQor=4 MemoryAlloced=5 AllocTimeCost=6 TimeoutCount=-7 "
                "EventTime=\"2024-05-01 12:00:00\" AllocInfo=[";
        if (!buffers.empty()) {
            // The second buffer does not repeat the first one's processes; the largest time
            // stamp goes as its decimal text, without a sign.
            expected +=
                    "918009012{BufName=\"preview\" Size=4096 AllocElapsed=120 "
                    "TimeStamp=\"1714564800123456789\" SysMemFree=50 ProcessInfo=[" +
                    processMemText("cameraserver", 10) + "," + processMemText("vendor.qor", 30) +
                    "]},918009012{BufName=\"capture\" Size=8192 AllocElapsed=300 "
                    "TimeStamp=\"18446744073709551615\" SysMemFree=40 ProcessInfo=[]}";
        }
        expectSingleReport("sendMemoryAllocTimeout", record, expected + "]}");
    }
}

}  // namespace
}  // namespace vistel_test
