#include <LogCapture.h>
#include <QorThreadManager.h>
#include <gtest/gtest.h>

#include <chrono>
#include <tuple>

// Queues through a file that defines LOG_TAG, as the telemetry library does.
std::future<int> enqueueWithManagerTag(QorThreadManager& pool, int value);

namespace {

// The task is queued but never runs; the line carries the tag of the file that queued it.
TEST(QorThreadManagerTest, EnqueueOnStoppedPoolLogsAndStillQueues) {
    for (const std::string tag : {"QorThreadManager", "VistelManager"}) {
        QorThreadManager pool(2);
        pool.stop();
        vistel_harness::LogCapture log;
        std::future<int> result = tag == "VistelManager" ? enqueueWithManagerTag(pool, 1)
                                                         : pool.enqueue([] { return 1; });
        EXPECT_EQ(result.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
        EXPECT_EQ(pool.pendingTasks(), 1u);
        std::vector<vistel_harness::LogLine> lines = log.lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(std::tie(lines[0].priority, lines[0].tag, lines[0].message),
                  std::make_tuple(ANDROID_LOG_ERROR, tag, "enqueue on stopped QorThreadManager"));
        pool.waitIdle();  // returns although the task can never run
    }
}

}  // namespace
