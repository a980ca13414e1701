#include <OvrixEvent.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

// Threads reporting at once: every report is kept, and written to OVRIX_EVENT_LOG as one whole
// JSON line with the pairs in put order, nested events in place and texts escaped.
TEST(OvrixEventTest, ConcurrentReportsAreAllRecordedAsWholeJsonLines) {
    constexpr size_t kThreads = 8, kReportsPerThread = 200;
    const std::string path = ::testing::TempDir() + "ovrix-events.jsonl";
    remove(path.c_str());
    setenv("OVRIX_EVENT_LOG", path.c_str(), 1);
    ovrixhost::reset();
    const std::string pad(1000, 'x');  // long enough that a line written in pieces would tear
    OvrixEvent event(918009006);
    event.PutInt("SceneMode", -3)
            .PutOvrixEventArray("PerfDetail", {OvrixEvent(7).PutFloat("Fps", 29.97f), OvrixEvent(8)})
            .PutString("Note", "a \"quoted\" " + pad);
    std::vector<std::thread> reporters;
    for (size_t t = 0; t < kThreads; ++t) {
        reporters.emplace_back([event]() mutable {
            for (size_t i = 0; i < kReportsPerThread; ++i) EXPECT_EQ(Ovrix::Report(event), 0);
        });
    }
    for (std::thread& reporter : reporters) reporter.join();
    unsetenv("OVRIX_EVENT_LOG");

    const std::string expected =
            R"({"id":918009006,"params":[{"key":"SceneMode","type":"int","value":-3},)"
            R"({"key":"PerfDetail","type":"array","value":[{"id":7,"params":[)"
            R"({"key":"Fps","type":"float","value":29.97}]},{"id":8,"params":[]}]},)"
            R"({"key":"Note","type":"string","value":"a \"quoted\" )" +
            pad + R"("}]})";
    EXPECT_EQ(ovrixhost::reported().size(), kThreads * kReportsPerThread);
    std::ifstream file(path);
    size_t lines = 0;
    for (std::string line; std::getline(file, line); ++lines) ASSERT_EQ(line, expected);
    EXPECT_EQ(lines, kThreads * kReportsPerThread);
    remove(path.c_str());
}

}  // namespace
