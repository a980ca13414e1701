#include <OvrixEvent.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

// Points OVRIX_EVENT_LOG at a fresh file for the life of the test.
class OvrixEventTest : public ::testing::Test {
  protected:
    void SetUp() override {
        remove(mPath.c_str());
        setenv("OVRIX_EVENT_LOG", mPath.c_str(), 1);
        ovrixhost::reset();
    }
    void TearDown() override { unsetenv("OVRIX_EVENT_LOG"); }

    std::vector<std::string> loggedLines() const {
        std::vector<std::string> lines;
        std::ifstream file(mPath);
        for (std::string line; std::getline(file, line);) lines.push_back(line);
        return lines;
    }

    const std::string mPath = ::testing::TempDir() + "ovrix-events.jsonl";
};

TEST_F(OvrixEventTest, ReportWritesOneJsonLineWithPairsInPutOrder) {
    OvrixEvent detail(918009007);
    detail.PutString("SensorTime", "12:00:01").PutInt("ErrSensorCnt", -3).PutFloat("Fps", 29.97f);
    OvrixEvent nested(7);
    nested.PutOvrixEventArray("Inner", {OvrixEvent(8).PutInt("Depth", 2)});
    OvrixEvent event(918009006);
    event.PutInt("SceneMode", 1)
            .PutOvrixEventArray("PerfDetail", {detail, nested})
            .PutOvrixEventArray("Empty", {})
            .PutString("Note", "a \"quoted\" text");
    const std::string expected =
            R"({"id":918009006,"params":[)"
            R"({"key":"SceneMode","type":"int","value":1},)"
            R"({"key":"PerfDetail","type":"array","value":[)"
            R"({"id":918009007,"params":[{"key":"SensorTime","type":"string","value":"12:00:01"},)"
            R"({"key":"ErrSensorCnt","type":"int","value":-3},)"
            R"({"key":"Fps","type":"float","value":29.97}]},)"
            R"({"id":7,"params":[{"key":"Inner","type":"array","value":[)"
            R"({"id":8,"params":[{"key":"Depth","type":"int","value":2}]}]}]}]},)"
            R"({"key":"Empty","type":"array","value":[]},)"
            R"({"key":"Note","type":"string","value":"a \"quoted\" text"}]})";

    EXPECT_EQ(Ovrix::Report(event), 0);
    EXPECT_EQ(Ovrix::Report(event), 0);
    EXPECT_EQ(loggedLines(), (std::vector<std::string>{expected, expected}));
    std::vector<OvrixEvent> reported = ovrixhost::reported();
    ASSERT_EQ(reported.size(), 2u);
    EXPECT_EQ(ovrixhost::toJson(reported[1]), expected);
}

TEST_F(OvrixEventTest, ConcurrentReportsAreAllRecordedAsWholeLines) {
    constexpr int kThreads = 8;
    constexpr int kReportsPerThread = 50;
    std::vector<std::thread> reporters;
    for (int t = 0; t < kThreads; ++t) {
        reporters.emplace_back([t] {
            for (int i = 0; i < kReportsPerThread; ++i) {
                OvrixEvent event(t);
                Ovrix::Report(event.PutString("Pad", std::string(1000, 'x')));
            }
        });
    }
    for (std::thread& reporter : reporters) reporter.join();

    EXPECT_EQ(ovrixhost::reported().size(), size_t(kThreads * kReportsPerThread));
    std::vector<std::string> lines = loggedLines();
    EXPECT_EQ(lines.size(), size_t(kThreads * kReportsPerThread));
    for (const std::string& line : lines) {
        EXPECT_EQ(std::count(line.begin(), line.end(), 'x'), 1000) << "torn line: " << line;
    }
}

}  // namespace
