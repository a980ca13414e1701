#include <QorThreadManager.h>
#include <android/log.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "LogCapture.h"

// Queues through a file that defines LOG_TAG, as the telemetry library does.
std::future<int> enqueueWithManagerTag(QorThreadManager& pool, int value);

namespace {

TEST(QorThreadManagerTest, EveryTaskRunsOnceAndItsFutureCarriesItsResult) {
    constexpr int kThreads = 4;
    constexpr int kTasksPerThread = 250;
    QorThreadManager pool(QorThreadManager::kDefaultWorkerCount);
    std::atomic<int> runs{0};
    auto triple = [&runs](int value) {
        ++runs;
        return value * 3;
    };
    std::vector<std::future<int>> results(kThreads * kTasksPerThread);
    std::vector<std::thread> producers;
    for (int t = 0; t < kThreads; ++t) {
        producers.emplace_back([&, t] {
            for (int i = t; i < kThreads * kTasksPerThread; i += kThreads) {
                results[i] = pool.enqueue(triple, i);
            }
        });
    }
    for (std::thread& producer : producers) producer.join();
    for (size_t i = 0; i < results.size(); ++i) EXPECT_EQ(results[i].get(), int(i) * 3);
    pool.waitIdle();
    EXPECT_EQ(runs.load(), kThreads * kTasksPerThread);
}

// The form the telemetry library uses: a std::function handler and a shared record, both by
// lvalue reference. The queued task must hold its own reference to the record and drop it once
// the handler has run, even while the caller still holds the future.
TEST(QorThreadManagerTest, QueuedTaskKeepsRecordUntilItHasRunThenReleasesIt) {
    QorThreadManager pool(1);
    std::promise<void> gate;
    pool.enqueue([opened = gate.get_future()] { opened.wait(); });  // holds the one worker
    std::function<int(std::shared_ptr<int>)> handler = [](std::shared_ptr<int> record) {
        return *record + 1;
    };
    auto record = std::make_shared<int>(41);
    std::future<int> result = pool.enqueue(handler, record);
    EXPECT_EQ(record.use_count(), 2);
    gate.set_value();
    pool.waitIdle();
    EXPECT_EQ(record.use_count(), 1) << "a caller that keeps the future keeps the record";
    EXPECT_EQ(result.get(), 42);
}

TEST(QorThreadManagerTest, EnqueueOnStoppedPoolLogsAndStillQueues) {
    struct Case {
        const char* name;
        std::function<std::future<int>(QorThreadManager&)> enqueue;
        const char* tag;
    };
    const Case cases[] = {
            {"default tag", [](QorThreadManager& pool) { return pool.enqueue([] { return 1; }); },
             "QorThreadManager"},
            {"caller's LOG_TAG",
             [](QorThreadManager& pool) { return enqueueWithManagerTag(pool, 1); },
             "VistelManager"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        QorThreadManager pool(2);
        pool.stop();
        vistel_test::LogCapture log;
        std::future<int> result = c.enqueue(pool);
        EXPECT_TRUE(result.valid());
        EXPECT_EQ(result.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
        EXPECT_EQ(pool.pendingTasks(), 1u);
        std::vector<vistel_test::LogLine> lines = log.lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].priority, ANDROID_LOG_ERROR);
        EXPECT_EQ(lines[0].tag, c.tag);
        EXPECT_EQ(lines[0].message, "enqueue on stopped QorThreadManager");
        pool.waitIdle();  // returns although the task can never run
    }
}

}  // namespace
