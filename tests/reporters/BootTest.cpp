#include <cstdint>
#include <thread>

#include "HealthTestSupport.h"

namespace vistel_test {
namespace {

using orv::SingleBootNode;
using BootTest = ReporterTest;

SingleBootNode bootNode(int32_t base, uint64_t openTime) {
    SingleBootNode node;
    node.thermalLevel = base + 1;
    node.startMemory = base + 2;
    node.endMemory = base + 3;
    node.cpuSceneMode = base + 4;
    node.threshold = "limit";
    node.actualCost = UINT64_MAX;  // decimal text, no sign
    node.firstFrameCost = 4000000000ull;
    node.firstFrame2ScanClose = "scan";
    node.cameraSceneMode = base + 5;
    node.openTime = openTime;
    node.appName = "app";
    return node;
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

TEST_F(BootTest, SendBootMsgReportsOneEventPerNode) {
    SingleBootNode open = bootNode(10, 1714564800000ull);
    open.stageCosts["Open"] = {{"sensor", 12.5f}, {"isp", 2.25f}, {"idle", 0.0f}, {"x", 1e-4f}};
    SingleBootNode flush = bootNode(20, 7);
    flush.stageCosts["Flush"] = {};
    const std::string enter = "I sendBootMsg: enter sendBootMsg(), size:";
    const struct {
        std::vector<SingleBootNode> nodes;
        std::vector<std::string> reports;
        std::vector<std::string> lines;
    } kCases[] = {
            {{}, {}, {enter + "0"}},
            {{bootNode(1, 100), bootNode(2, 200)},
             {bootNodeText(1, 100) + "}", bootNodeText(2, 200) + "}"},
             {enter + "2"}},
            {{open},
             {bootNodeText(10, 1714564800000ull) +
              " OpenCOST=[918009008{CR=\"sensor\" TimeCost=\"12.500\"},"
              "918009008{CR=\"isp\" TimeCost=\"2.250\"},918009008{CR=\"idle\" TimeCost=\"0.000\"},"
              "918009008{CR=\"x\" TimeCost=\"0.000\"}]}"},
             {enter + "1",
              "I sendBootMsg: sendBootMsg() time(1714564800000)(Open) packing size:4"}},
            {{flush},
             {bootNodeText(20, 7) + " FlushCOST=[]}"},
             {enter + "1", "I sendBootMsg: sendBootMsg() time(7)(Flush) packing size:0"}},
    };
    for (auto c : kCases) {
        SCOPED_TRACE(c.lines[0]);
        ovrixhost::reset();
        mLog.clear();
        manager()->sendBootMsg(c.nodes);
        EXPECT_EQ(reportedTexts(), c.reports);
        EXPECT_EQ(managerLines(mLog), c.lines);
    }
}

// The boot time-out takes the 600 s boot policy; the scan message, with the same record, none.
TEST_F(BootTest, OnlyTheBootTimeoutIsRateLimited) {
    auto boot = std::make_shared<orv::vistelBootTimeout>();
    auto scan = std::make_shared<orv::vistelScanMsg>();
    boot->bootNodes = scan->bootNodes = {bootNode(0, 1)};
    ASSERT_EQ(report(boot), 0);  // starts the quiet period
    const std::string bootMsg = "I sendBootMsg: enter sendBootMsg(), size:1";
    const struct {
        std::shared_ptr<orv::VistelEventBase> record;
        double advanceS;
        int result;
        std::vector<std::string> lines;
    } kSteps[] = {
            {boot,
             599,
             -2,
             {"I sendBootTimeout: enter sendBootTimeout()",
              "I limitEventBootPerf: limitEventBootPerf() timeIntervalInS = 599, limit=600, "
              "return true",
              "I sendBootTimeout: sendBootTimeout() is limited, drop this event"}},
            {scan,
             0,
             0,
             {"I sendScanMsgReport: enter sendScanMsgReport()", bootMsg,
              "I sendScanMsgReport: exit sendScanMsgReport()"}},
            {boot,
             1,
             0,
             {"I sendBootTimeout: enter sendBootTimeout()",
              "I limitEventBootPerf: limitEventBootPerf() timeIntervalInS = 600, limit=600, "
              "return false",
              bootMsg, "I sendBootTimeout: exit sendBootTimeout()"}},
    };
    for (const auto& step : kSteps) {
        SCOPED_TRACE(step.lines[0] + " +" + std::to_string(step.advanceS));
        ovrixhost::reset();
        mLog.clear();
        FakeClock::advanceSeconds(step.advanceS);
        EXPECT_EQ(report(step.record), step.result);
        EXPECT_EQ(ovrixhost::reported().size(), step.result == 0 ? 1u : 0u);
        EXPECT_EQ(managerLines(mLog), step.lines);
    }
}

// Camera threads call sendBootMsg directly, several at once: every node of every caller is
// reported, each caller's in its own order.
TEST_F(BootTest, SendBootMsgFromManyThreads) {
    constexpr int kThreads = 8;
    constexpr int kNodesPerThread = 25;
    std::vector<std::thread> callers;
    for (int t = 0; t < kThreads; ++t) {
        callers.emplace_back([t] {
            std::vector<SingleBootNode> nodes;
            for (int n = 0; n < kNodesPerThread; ++n) nodes.push_back(bootNode(t, n));
            manager()->sendBootMsg(nodes);
        });
    }
    for (std::thread& caller : callers) caller.join();
    std::vector<std::vector<std::string>> perThread(kThreads);
    for (const std::string& text : reportedTexts()) {
        perThread.at(std::stoi(text.substr(text.find('=') + 1)) - 1).push_back(text);
    }
    for (int t = 0; t < kThreads; ++t) {
        for (int n = 0; n < kNodesPerThread; ++n) {
            EXPECT_EQ(perThread[t].at(n), bootNodeText(t, n) + "}");
        }
    }
}

}  // namespace
}  // namespace vistel_test
