// The reporters that go to the system event and logging services, end to end from the manager:
// memory, temperature, boot, trace and video performance reports.
#include <LibraryCounters.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <tuple>

#include "ReporterText.h"

namespace vistel_test {

using vistel_harness::VirtualClock;

namespace {

using namespace orv;
using HealthReportersTest = ReporterTest;

vistel_tools::CounterRow dumpRow(VistelEvent kind) {
    return vistel_tools::readKindCounters(kind);
}

// One process's figures, each distinct (base + 1 to base + 7) so that a figure put under another
// key shows; the reserved word is never reported.
vistelProcessMemInfo processMemInfo(const char* name, int32_t base) {
    return {name, base + 1, base + 2, base + 3, base + 4, base + 5, base + 6, base + 7, 999};
}

std::string processMemText(const char* name, int32_t base) {
    std::string text = std::string("918009010{ProcessName=\"") + name + "\"";
    const char* keys[] = {"PID", "Ion", "Rss", "Pss", "NativePss", "JavaPss", "Swap"};
    for (int i = 0; i < 7; ++i)
        text += " " + std::string(keys[i]) + "=" + std::to_string(base + i + 1);
    return text + "}";
}

// Scalars in table order, then one sub-event per process; each buffer of the allocation time-out
// carries only its own processes, and the largest time stamp goes as decimal text. Reported
// twice back to back: neither report is limited.
TEST_F(HealthReportersTest, MemoryReports) {
    auto t = std::make_shared<vistelMemExceedThreshold>();
    t->maxUsableSize = 1, t->usedTotalSizePeak = INT_MIN, t->sysMemFree = 3, t->zoom = INT_MAX;
    t->captureGoingCount = 4, t->jpegName = "IMG_0001.jpg", t->sceneMode = 5, t->multiCamMask = 7;
    t->snapshotId = 8, t->switchFlag = 9, t->eventTime = "2024-05-01 12:00:00";
    t->processes = {processMemInfo("cameraserver", 10), processMemInfo("", -30)};
    auto a = std::make_shared<vistelMemAllocTimeout>();
    a->appName = "com.example.camera", a->sceneMode = 1, a->cameraState = 2, a->stateDuration = 3;
    a->isQor = 4, a->memoryAlloced = 5, a->allocTimeCost = 6, a->timeoutCount = -7;
    a->eventTime = "2024-05-01 12:00:00";
    a->allocBuffers = {{"preview", 4096, 120, 1714564800123456789ull, 50, {}},
                       {"capture", 8192, 300, UINT64_MAX, 40, {}}};
    a->allocBuffers[0].processes = {processMemInfo("cameraserver", 10), processMemInfo("qor", 30)};
    const struct {
        const char* reporter;
        std::shared_ptr<VistelEventBase> record;
        std::string expected;
    } kCases[] = {
            {"sendMemoryExceedThreshold", t,
             "918009011{MaxUsableSize=1 UsedTotalSizePeak=-2147483648 SysMemFree=3 "
             "CaptureGoingCount=4 JpegName=\"IMG_0001.jpg\" SceneMode=5 Zoom=2147483647 "
             "MultiCamMask=7 SnapshotID=8 SwitchFlag=9 EventTime=\"2024-05-01 12:00:00\" "
             "ProcessInfo=[" +
                     processMemText("cameraserver", 10) + "," + processMemText("", -30) + "]}"},
            {"sendMemoryAllocTimeout", a,
             "918009013{AppName=\"com.example.camera\" SceneMode=1 CameraState=2 StateDuration=3 "
             "IsQor=4 MemoryAlloced=5 AllocTimeCost=6 TimeoutCount=-7 EventTime=\"2024-05-01 "
             "12:00:00\" AllocInfo=[918009012{BufName=\"preview\" Size=4096 AllocElapsed=120 "
             "TimeStamp=\"1714564800123456789\" SysMemFree=50 ProcessInfo=[" +
                     processMemText("cameraserver", 10) + "," + processMemText("qor", 30) +
                     "]},918009012{BufName=\"capture\" Size=8192 AllocElapsed=300 "
                     "TimeStamp=\"18446744073709551615\" SysMemFree=40 ProcessInfo=[]}]}"},
    };
    for (const auto& c : kCases) {
        for (int i = 0; i < 2; ++i) {
            SCOPED_TRACE(c.reporter);
            ovrixhost::reset();
            mLog.clear();
            EXPECT_EQ(report(c.record), 0);
            EXPECT_EQ(reportedTexts(), Strings{c.expected});
            EXPECT_EQ(managerLines(mLog), enterExitLines(c.reporter));
        }
    }
}

// The handlers are exported, so the camera stack may call one directly; an empty record is
// refused with the line that shows its address, never read through.
TEST_F(HealthReportersTest, NullRecordCalledDirectlyIsRefused) {
    const struct {
        std::string name;
        VistelManager::HandlerMethod handler;
        int result;
        std::string location;  // the temperature report's lines carry a second one
    } kHandlers[] = {
            {"sendMemoryExceedThreshold", &VistelManager::sendMemoryExceedThreshold, -1, ""},
            {"sendMemoryAllocTimeout", &VistelManager::sendMemoryAllocTimeout, -1, ""},
            {"sendDailyTempRise", &VistelManager::sendDailyTempRise, -1, "@ "},
            {"sendBootTimeout", &VistelManager::sendBootTimeout, -1, ""},
            {"sendScanMsgReport", &VistelManager::sendScanMsgReport, -2, ""},
            {"dumpTrace", &VistelManager::dumpTrace, -1, ""},
    };
    char null[32];
    snprintf(null, sizeof(null), "%p", static_cast<void*>(nullptr));
    for (const auto& h : kHandlers) {
        SCOPED_TRACE(h.name);
        mLog.clear();
        EXPECT_EQ((manager()->*h.handler)(nullptr), h.result);
        const Strings lines = managerLines(mLog);
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_EQ(lines[1], "E " + h.name + ": " + h.location + h.name + "() error: event=" + null +
                                    ", inited=1 not valid");
    }
    EXPECT_TRUE(ovrixhost::reported().empty());
    EXPECT_TRUE(orvloghost::jankPrints().empty());
}

// Sixty entries per report; "TimeCost" is the entry's position across all of them.
TEST_F(HealthReportersTest, TempRiseBatchesSixtyEntriesPerReport) {
    const struct {
        int entryCount;
        std::vector<int> batchSizes;
    } kCases[] = {{0, {}}, {60, {60}}, {61, {60, 1}}, {130, {60, 60, 10}}};
    const std::string d = "D sendDailyTempRise: @ ";
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.entryCount);
        ovrixhost::reset();
        mLog.clear();
        auto record = std::make_shared<vistelDailyTempRise>();
        record->appName = "cam", record->openTime = "08:00:00";
        for (int i = 0; i < c.entryCount; ++i)
            record->costEntries.push_back("cr" + std::to_string(i));
        EXPECT_EQ(report(record), 0);

        const std::string counts = std::to_string(c.entryCount) + ", numOf90009 " +
                                   std::to_string(c.batchSizes.size());
        Strings reports, lines = {d + "CameraHeatBigData enter sendDailyTempRise()",
                                  d + "cameraheatbigdata numOf9008 " + counts};
        for (int batch = 0, i = 0; batch < static_cast<int>(c.batchSizes.size()); ++batch) {
            std::string text = "918009009{AppName=\"cam\" OpenTime=\"08:00:00\" ROOTCOST=[";
            for (int end = i + c.batchSizes[batch]; i < end; ++i) {
                const std::string n = std::to_string(i);
                text += std::string(text.back() == '[' ? "" : ",") + "918009008{CR=\"cr" + n +
                        "\" TimeCost=\"" + n + "\"}";
            }
            reports.push_back(text + "]}");
            lines.push_back(d + "cameraheatbigdata Report90009 " + std::to_string(batch) +
                            ", index " + std::to_string(i - 1));
        }
        lines.push_back(d + "CameraHeatBigData exit sendDailyTempRise()");
        EXPECT_EQ(reportedTexts(), reports);
        EXPECT_EQ(managerLines(mLog), lines);
    }
}

SingleBootNode bootNode(int32_t base, uint64_t openTime) {
    // The largest cost goes as decimal text, without a sign.
    return {{},         base + 1,      base + 2, base + 3, base + 4, "limit",
            UINT64_MAX, 4000000000ull, "scan",   base + 5, openTime, "app"};
}

// Up to the end of the scalars; the stage arrays and the closing brace follow.
std::string bootNodeText(int32_t base, uint64_t openTime) {
    auto plus = [base](int n) { return std::to_string(base + n); };
    return "918009009{THERMALLEVEL=" + plus(1) + " STARTMEMORY=" + plus(2) +
           " ENDMEMORY=" + plus(3) + " CPUSCENEMODE=" + plus(4) +
           " THRESHOLD=\"limit\" ACTUALCOST=\"18446744073709551615\" OPENTIME=\"" +
           std::to_string(openTime) + "\" CAMERASCENEMODE=" + plus(5) +
           " APPNAME=\"app\" FirstFrameCost=\"4000000000\" FirstFrame2ScanClose=\"scan\"";
}

// One event per node, in order, each stage's steps as an array with costs to three decimals.
TEST_F(HealthReportersTest, SendBootMsgReportsOneEventPerNode) {
    std::vector<SingleBootNode> nodes = {bootNode(1, 100), bootNode(10, 1714564800000ull),
                                         bootNode(20, 7)};
    nodes[1].stageCosts["Open"] = {{"sensor", 12.5f}, {"isp", 2.25f}, {"idle", 0}, {"x", 1e-4f}};
    nodes[2].stageCosts["Flush"] = {};
    manager()->sendBootMsg(nodes);
    EXPECT_EQ(reportedTexts(),
              (Strings{bootNodeText(1, 100) + "}",
                       bootNodeText(10, 1714564800000ull) +
                               " OpenCOST=[918009008{CR=\"sensor\" TimeCost=\"12.500\"},"
                               "918009008{CR=\"isp\" TimeCost=\"2.250\"},918009008{CR=\"idle\" "
                               "TimeCost=\"0.000\"},918009008{CR=\"x\" TimeCost=\"0.000\"}]}",
                       bootNodeText(20, 7) + " FlushCOST=[]}"}));
    EXPECT_EQ(managerLines(mLog),
              (Strings{"I sendBootMsg: enter sendBootMsg(), size:3",
                       "I sendBootMsg: sendBootMsg() time(1714564800000)(Open) packing size:4",
                       "I sendBootMsg: sendBootMsg() time(7)(Flush) packing size:0"}));
}

// The trace request goes to the logging service as its jank event 474 of type 3, with the name
// as an argument, never as a format. Kind 18 is answered without a trace or a limiter decision.
TEST_F(HealthReportersTest, TraceRequests) {
    auto record = std::make_shared<vistelDumpTrace>();
    record->traceName = "Capture %s <1>";
    EXPECT_EQ(report(record), 0);
    const auto prints = orvloghost::jankPrints();
    ASSERT_EQ(prints.size(), 1u);
    EXPECT_EQ(std::tie(prints[0].type, prints[0].id, prints[0].msg),
              std::make_tuple(3, 474, std::string("#ARG1:<Capture %s <1>>#ARG2:<300>")));
    EXPECT_EQ(managerLines(mLog, false),
              (Strings{"I dumpTrace: enter dumpTrace()",
                       "I dumpTrace: dumpTrace() calling systrace for Capture %s <1> begin",
                       "I dumpTrace: dumpTrace() calling systrace for Capture %s <1> end"}));

    orvloghost::reset();
    mLog.clear();
    EXPECT_EQ(report(std::make_shared<vistelAlgoProcessTimeoutDumpSystrace>()), 0);
    const std::string s = "SendEventAlgoProcessTimeoutDumpSystrace";
    EXPECT_EQ(managerLines(mLog),
              (Strings{"I " + s + ": enter " + s + "()",
                       "I " + s + ": " + s + "() skipped, brontix is used instread"}));
    EXPECT_TRUE(orvloghost::jankPrints().empty());
}

// Group g (from 1) with n stretches, and the event reported for it: the first ten stretches.
vistelVideoPerfInfo group(int g, int n) {
    vistelVideoPerfInfo info{g, 10 + g, 20 + g, -g, {}};
    for (int i = 0; i < n; ++i) {
        const std::string tag = std::to_string(g) + "." + std::to_string(i);
        info.perfDetail.push_back(
                {"s" + tag, "d" + tag, 100 + i, -i, "r" + tag, 200 + i, g, i + .5f});
    }
    return info;
}

std::string groupText(int g, int n) {
    auto s = [](auto value) { return std::to_string(value); };
    std::string text = "918009006{SceneMode=" + s(g) + " ZoomRatio=" + s(10 + g) +
                       " SensorModIdx=" + s(20 + g) + " SensorModCap=" + s(-g) + " PerfDetail=[";
    for (int i = 0; i < std::min(n, 10); ++i) {
        const std::string tag = s(g) + "." + s(i);
        text += std::string(i > 0 ? "," : "") + "918009007{SensorTime=\"s" + tag +
                "\" TimeOfDay=\"d" + tag + "\" TotalSensorCnt=" + s(100 + i) +
                " ErrSensorCnt=" + s(-i) + " RequestId=\"r" + tag +
                "\" TotalRequestCnt=" + s(200 + i) + " ErrRequestCnt=" + s(g) +
                " Fps=" + s(i + .5f) + "f}";
    }
    return text + "]}";
}

// One event per group, with at most ten stretches, and a count line for each: under the handler
// for a video performance record, under the per-group function object for a frame drop record.
TEST_F(HealthReportersTest, VideoPerfOneEventPerGroup) {
    auto video = std::make_shared<vistelVideoPerfData>();
    static_cast<vistelVideoPerfInfo&>(*video) = group(1, 15);
    auto drop = std::make_shared<vistelFrameDrop>();
    drop->groups = {group(1, 2), group(2, 12), group(3, 0)};
    const std::string count = "I operator(): operator()() ";
    const struct {
        std::shared_ptr<VistelEventBase> record;
        Strings reports;
        Strings lines;
    } kCases[] = {
            {video,
             {groupText(1, 15)},
             {"I sendEventVideoPerfData: enter sendEventVideoPerfData()",
              "I sendEventVideoPerfData: sendEventVideoPerfData() 10 subEvent is contained"}},
            {drop,
             {groupText(1, 2), groupText(2, 12), groupText(3, 0)},
             {"I FrameDropError: enter FrameDropError()", count + "2 subEvent is contained",
              count + "10 subEvent is contained", count + "0 subEvent is contained"}},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.lines[0]);
        ovrixhost::reset();
        mLog.clear();
        EXPECT_EQ(report(c.record), 0);
        EXPECT_EQ(reportedTexts(), c.reports);
        EXPECT_EQ(managerLines(mLog, false), c.lines);
    }
}

// A service that takes one event of a record and refuses the next: the record failed, whatever
// it took before, and the events it took are still counted. The reporter goes on (a lost report
// is not retried) and answers 0.
TEST_F(HealthReportersTest, ARecordWhoseSecondEventIsRefusedFailed) {
    auto drop = std::make_shared<vistelFrameDrop>();
    drop->groups = {group(1, 2), group(2, 12), group(3, 0)};
    const vistel_tools::CounterRow before = dumpRow(kEventFrameDrop);
    ovrixhost::refuseReport(2);
    EXPECT_EQ(report(drop), 0);
    EXPECT_EQ(reportedTexts(), (Strings{groupText(1, 2), groupText(3, 0)}));
    const vistel_tools::CounterRow counted = dumpRow(kEventFrameDrop) - before;
    EXPECT_EQ(counted.records, 1u);
    EXPECT_EQ(counted[VISTEL_OUTCOME_FAILED], 1u);
    EXPECT_EQ(counted[VISTEL_OUTCOME_SENT], 0u);
    EXPECT_EQ(counted.events, 2u);
}

// One report per quiet period; within it a record answers -2, reports nothing and logs the drop.
TEST_F(HealthReportersTest, RateLimits) {
    auto boot = std::make_shared<vistelBootTimeout>();
    boot->bootNodes = {bootNode(0, 1)};
    auto trace = std::make_shared<vistelDumpTrace>();
    auto video = std::make_shared<vistelVideoPerfData>();
    auto noGroups = std::make_shared<vistelFrameDrop>();
    auto drop = std::make_shared<vistelFrameDrop>();
    drop->groups = {group(1, 0)};
    const struct {
        std::shared_ptr<VistelEventBase> first, later;
        int periodS;
        std::string dropLine;
    } kCases[] = {
            {boot, boot, 600, "I sendBootTimeout: sendBootTimeout() is limited, drop this event"},
            {trace, trace, 360, "I dumpTrace: dumpTrace() is limited, drop this event"},
            {video, video, 60,
             "I sendEventVideoPerfData: snapshot return frame interval error report is limited, "
             "drop this event"},
            // A record without groups reports nothing, yet takes the period.
            {noGroups, drop, 600, "I FrameDropError: FrameDropError() is limited, drop this event"},
    };
    auto outputs = [] { return ovrixhost::reported().size() + orvloghost::jankPrints().size(); };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.dropLine);
        VirtualClock::expireAllLimits();
        ASSERT_EQ(report(c.first), 0);
        VirtualClock::advanceSeconds(c.periodS - 1);
        ovrixhost::reset();
        orvloghost::reset();
        mLog.clear();
        EXPECT_EQ(report(c.later), -2);
        EXPECT_EQ(outputs(), 0u);
        EXPECT_EQ(managerLines(mLog, false).back(), c.dropLine);
        VirtualClock::advanceSeconds(1);
        EXPECT_EQ(report(c.later), 0);
        EXPECT_EQ(outputs(), 1u);
    }

    // The scan message shares the boot record and is never limited.
    auto scan = std::make_shared<vistelScanMsg>();
    scan->bootNodes = boot->bootNodes;
    ovrixhost::reset();
    mLog.clear();
    EXPECT_EQ(report(scan), 0);
    EXPECT_EQ(report(scan), 0);
    EXPECT_EQ(ovrixhost::reported().size(), 2u);
    EXPECT_EQ(managerLines(mLog, false).front(), "I sendScanMsgReport: enter sendScanMsgReport()");
    EXPECT_EQ(managerLines(mLog, false).back(), "I sendScanMsgReport: exit sendScanMsgReport()");
}

}  // namespace
}  // namespace vistel_test
