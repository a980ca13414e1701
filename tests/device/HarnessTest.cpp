// The harness's own contracts where a fault would not fail the suites that use it: a log line's
// prefix split wrongly, a worker let go too early, a hook that never sees the clock read.
#include <LogCapture.h>
#include <QorThreadManager.h>
#include <VirtualClock.h>
#include <WorkerHold.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <utils/Timers.h>

#include <chrono>
#include <future>
#include <string>
#include <tuple>

namespace {

using vistel_harness::LogCapture;
using vistel_harness::LogLine;
using vistel_harness::VirtualClock;
using vistel_harness::WorkerHold;

TEST(LogCaptureTest, SplitsThePrefixOnlyWhereItIsWhole) {
    struct Case {
        const char* message;
        const char* function;
        int line;
        const char* buildTag;
        const char* body;
    };
    const Case kCases[] = {
            {"sendEvent<42>: [b1] error: x", "sendEvent", 42, "b1", " error: x"},
            {"f<7>: []", "f", 7, "", ""},
            {"f<7>: [b] a <1>: [c] d", "f", 7, "b", " a <1>: [c] d"},
            {"no prefix at all", "", -1, "", "no prefix at all"},
            {"f<>: [b] x", "", -1, "", "f<>: [b] x"},
            {"f<4x>: [b] x", "", -1, "", "f<4x>: [b] x"},
            {"f<4>: [b x", "", -1, "", "f<4>: [b x"},
            {"f<4> [b] x", "", -1, "", "f<4> [b] x"},
    };
    for (const Case& c : kCases) {
        LogCapture log;
        __android_log_write(ANDROID_LOG_WARN, "Tag", c.message);
        const std::vector<LogLine> lines = log.take();
        ASSERT_EQ(lines.size(), 1u) << c.message;
        const LogLine& l = lines[0];
        EXPECT_EQ(std::tie(l.priority, l.tag, l.message),
                  std::make_tuple(ANDROID_LOG_WARN, "Tag", std::string(c.message)));
        EXPECT_EQ(std::tie(l.function, l.line, l.buildTag, l.body),
                  std::make_tuple(c.function, c.line, c.buildTag, c.body))
                << c.message;
        EXPECT_TRUE(log.lines().empty()) << "take() clears";
    }
}

TEST(WorkerHoldTest, QueuedTasksRunOnlyAsWorkersAreLetGo) {
    QorThreadManager pool(2);
    std::future<int> first;
    std::future<int> second;
    {
        WorkerHold hold(pool);
        first = pool.enqueue([] { return 1; });
        second = pool.enqueue([] { return 2; });
        EXPECT_EQ(pool.pendingTasks(), 2u) << "a worker took a task while held";
        hold.release(1);
        EXPECT_EQ(first.get(), 1);
        EXPECT_EQ(second.get(), 2);  // the one worker let go runs the queue in order
    }
    EXPECT_EQ(pool.pendingTasks(), 0u);
}

int gClockReads = 0;

TEST(VirtualClockTest, IsTheClockTheProcessReads) {
    VirtualClock::setNs(5 * vistel_harness::kNanosPerSecond);
    VirtualClock::advanceSeconds(1.5);
    EXPECT_EQ(systemTime(SYSTEM_TIME_MONOTONIC), 6500000000);
    VirtualClock::setReadHook([] { ++gClockReads; });
    systemTime(SYSTEM_TIME_MONOTONIC);
    VirtualClock::setReadHook(nullptr);
    systemTime(SYSTEM_TIME_MONOTONIC);
    EXPECT_EQ(gClockReads, 1);
}

}  // namespace
