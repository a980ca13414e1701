// A runaway caller costs bounded memory: past InFlightBound::kBound records in flight,
// reportMsgImpl sheds at the door. Every test holds the pool's workers while it reports, so the
// records in flight are exactly those handed over, and lets them go before it ends.
#include <InFlightBound.h>
#include <KindRegistry.h>
#include <LibraryCounters.h>
#include <QorThreadManager.h>
#include <VistelTrace.h>
#include <WorkerHold.h>

#include <algorithm>
#include <future>
#include <optional>
#include <regex>
#include <thread>

#include "FailingAllocations.h"
#include "ReporterTest.h"
#include "TraceCapture.h"

namespace vistel_test {

using vistel_harness::LogLine;
using vistel_harness::VirtualClock;
using vistel_harness::WorkerHold;

namespace {

using orv::InFlightBound;

constexpr uint32_t kBound = InFlightBound::kBound;

std::shared_ptr<orv::VistelEventBase> recordOf(orv::VistelEvent kind) {
    return vistel_tools::kinds()[kind].make().record;
}

vistel_tools::LibraryCounters libraryCounters() {
    return vistel_tools::readLibraryCounters();
}

class InFlightBoundTest : public ReporterTest {
  protected:
    // Hands over records of `kind` until `count` were queued (valid futures), and none shed.
    void fill(uint32_t count, orv::VistelEvent kind) {
        for (uint32_t i = 0; i < count; ++i) {
            ASSERT_TRUE(manager()->reportMsgImpl(recordOf(kind)).valid()) << i;
        }
    }
    // Hands over `count` records of `kind` that must all be shed.
    static void shed(int count, orv::VistelEvent kind) {
        for (int i = 0; i < count; ++i) {
            EXPECT_FALSE(manager()->reportMsgImpl(recordOf(kind)).valid()) << i;
        }
    }
    // The library's error and info lines about shedding.
    std::vector<std::string> sheddingLines() const {
        std::vector<std::string> lines;
        for (const LogLine& line : mLog.lines()) {
            if (line.function == "reportMsgImpl") lines.push_back(line.body);
        }
        return lines;
    }
};

// One line when shedding starts, at most one a second while it goes on, each with the records
// refused since the last line and the kind refused most, one when the workers have caught up;
// every refusal counted in its kind's row.
TEST_F(InFlightBoundTest, ShedsPastTheBoundSaysSoSparinglyAndCountsIt) {
    const vistel_tools::LibraryCounters before = libraryCounters();
    std::optional<WorkerHold> held(std::in_place);
    fill(kBound, orv::kEventDumpTrace);
    ASSERT_TRUE(sheddingLines().empty());

    // The clock is read at every kRefusals-th refusal counted from the one that started
    // shedding: a line can only come at one of those.
    constexpr int kRefusals = InFlightBound::kRefusalsPerClockRead;
    shed(1, orv::kEventMemLeak);
    shed(kRefusals - 1, orv::kEventFrameDrop);
    EXPECT_EQ(sheddingLines(),
              std::vector<std::string>{"reportMsgImpl() error: 4096 records in flight, shedding "
                                       "from now on: 1 refused, most of kind 0 (MemLeak)"});
    VirtualClock::advanceSeconds(0.5);
    shed(kRefusals, orv::kEventFrameDrop);
    EXPECT_EQ(sheddingLines().size(), 1u) << "a second has not passed";
    VirtualClock::advanceSeconds(0.6);
    shed(kRefusals - 1, orv::kEventMemLeak);
    ASSERT_EQ(sheddingLines().size(), 2u);
    EXPECT_EQ(sheddingLines()[1],
              "reportMsgImpl() error: still shedding: 128 refused in the last 1100 ms, most of "
              "kind 27 (FrameDrop)");
    shed(kRefusals, orv::kEventMemLeak);
    EXPECT_EQ(sheddingLines().size(), 2u) << "a second has not passed since the last line";

    mLog.clear();
    held.reset();  // the workers run everything queued
    EXPECT_TRUE(sheddingLines().empty()) << "caught up within a second of the last line";
    VirtualClock::advanceSeconds(1);
    // The stop line is said by the next record to finish.
    manager()->reportMsgImpl(recordOf(orv::kEventDumpTrace)).wait();
    const std::vector<std::string> after = sheddingLines();
    ASSERT_EQ(after.size(), 1u);
    EXPECT_TRUE(std::regex_match(after[0], std::regex(R"(reportMsgImpl\(\) shedding stopped: 126 )"
                                                      R"(more refused since the last line, )"
                                                      R"(\d+ records in flight)")))
            << after[0];
    EXPECT_EQ(mLog.lines().back().priority, ANDROID_LOG_INFO);

    const vistel_tools::LibraryCounters dump = libraryCounters();
    EXPECT_EQ((dump.kinds.at(orv::kEventMemLeak) -
               before.kinds.at(orv::kEventMemLeak))[VISTEL_OUTCOME_SHED],
              2u * kRefusals);
    EXPECT_EQ((dump.kinds.at(orv::kEventFrameDrop) -
               before.kinds.at(orv::kEventFrameDrop))[VISTEL_OUTCOME_SHED],
              2u * kRefusals - 1);
    EXPECT_EQ((dump.total - before.total).records, kBound + 4u * kRefusals);
    EXPECT_EQ(dump.rowsNotAddingUp(), std::vector<std::string>{});
    EXPECT_EQ(dump.inFlight, 0u);
    EXPECT_EQ(dump.inFlightPeak, kBound);
    EXPECT_EQ(dump.inFlightBound, kBound);
}

// A steady flood stops and starts shedding many times a second: a restart within a second of
// the last line is no new episode, so the log gets at most one line a second in all, and the
// counts of the lines still add up to every record refused.
TEST_F(InFlightBoundTest, AFloodThatFlapsSaysAtMostOneLineASecond) {
    constexpr int kRefusals = InFlightBound::kRefusalsPerClockRead;
    constexpr int kRounds = 5;
    for (int round = 0; round < kRounds; ++round) {
        WorkerHold held;
        fill(kBound, orv::kEventDumpTrace);
        shed(kRefusals, orv::kEventMemLeak);
        VirtualClock::advanceSeconds(0.1);
    }
    VirtualClock::advanceSeconds(1);
    manager()->reportMsgImpl(recordOf(orv::kEventDumpTrace)).wait();
    const std::vector<std::string> lines = sheddingLines();
    ASSERT_EQ(lines.size(), 2u) << ::testing::PrintToString(lines);
    EXPECT_EQ(lines[0],
              "reportMsgImpl() error: 4096 records in flight, shedding from now on: 1 refused, "
              "most of kind 0 (MemLeak)");
    // Four restarts within the second: no line each; the stop line, once the second is over,
    // counts the other refusals of all five rounds.
    EXPECT_EQ(lines[1],
              "reportMsgImpl() shedding stopped: 319 more refused since the last line, 0 records "
              "in flight");
}

// A refused call allocates nothing: with the first allocation of the calling thread armed to
// fail, it is never reached.
TEST_F(InFlightBoundTest, ARefusedCallAllocatesNothing) {
    WorkerHold held;
    fill(kBound, orv::kEventDumpTrace);
    shed(1, orv::kEventDumpTrace);  // the line that says shedding starts is logged now
    std::shared_ptr<orv::VistelEventBase> record = recordOf(orv::kEventMemLeak);
    for (int i = 0; i < 100; ++i) {
        EXPECT_FALSE(failingAllocation(
                1, [&] { EXPECT_FALSE(manager()->reportMsgImpl(record).valid()); }));
    }
}

// Camera threads in a loop: whatever the timing, every call is either queued or shed, and
// exactly the bound is queued while the workers are held.
TEST_F(InFlightBoundTest, EveryCallOfAFloodIsAccountedFor) {
    constexpr int kThreads = 8;
    constexpr int kCallsPerThread = 5000;
    const vistel_tools::LibraryCounters before = libraryCounters();
    std::atomic<int> queued{0};
    {
        WorkerHold held;
        std::vector<std::thread> camera;
        for (int t = 0; t < kThreads; ++t) {
            camera.emplace_back([&queued] {
                std::shared_ptr<orv::VistelEventBase> record = recordOf(orv::kEventMemLeak);
                for (int i = 0; i < kCallsPerThread; ++i) {
                    queued += manager()->reportMsgImpl(record).valid() ? 1 : 0;
                }
            });
        }
        for (std::thread& thread : camera) thread.join();
    }
    EXPECT_EQ(queued.load(), static_cast<int>(kBound));
    const vistel_tools::CounterRow counted =
            libraryCounters().kinds.at(orv::kEventMemLeak) - before.kinds.at(orv::kEventMemLeak);
    EXPECT_EQ(counted.records, static_cast<uint64_t>(kThreads * kCallsPerThread));
    EXPECT_EQ(counted[VISTEL_OUTCOME_SHED],
              static_cast<uint64_t>(kThreads * kCallsPerThread - kBound));
    EXPECT_EQ(counted.records, counted.ended());
}

// Far below the bound: a whole day of a busy camera's boot records handed over at once.
TEST_F(InFlightBoundTest, ABootBurstShedsNothing) {
    constexpr int kCameraOpens = 1000;  // a boot time-out and a scan message each
    const vistel_tools::LibraryCounters before = libraryCounters();
    {
        WorkerHold held;
        for (int open = 0; open < kCameraOpens; ++open) {
            for (orv::VistelEvent kind : {orv::kEventBootTimeout, orv::kEventScanMsg}) {
                const vistel_tools::RecordInstance instance = vistel_tools::kinds()[kind].make();
                static_cast<orv::vistelBootMsg*>(instance.body)->bootNodes.resize(1);
                ASSERT_TRUE(manager()->reportMsgImpl(instance.record).valid());
            }
        }
    }
    EXPECT_EQ((libraryCounters().total - before.total)[VISTEL_OUTCOME_SHED], 0u);
}

// With tracing on, the records in flight and the records shed are counter tracks: in flight up to
// the bound and back to none, shed counting every record refused since the process started.
TEST_F(InFlightBoundTest, TheTraceCountsRecordsInFlightAndShed) {
    constexpr int kRefusals = 3;
    tracecapture::start();
    {
        WorkerHold held;
        fill(kBound, orv::kEventMemLeak);
        shed(kRefusals, orv::kEventFrameDrop);
    }
    const std::vector<tracecapture::TraceMark> marks = tracecapture::stop();
    std::vector<int64_t> inFlight;
    std::vector<int64_t> shedTotals;
    for (const tracecapture::TraceMark& mark : marks) {
        if (mark.type != tracecapture::TraceMark::Type::kCounter) continue;
        if (mark.name == "vistel records in flight") inFlight.push_back(mark.value);
        if (mark.name == "vistel records shed") shedTotals.push_back(mark.value);
    }
    ASSERT_FALSE(inFlight.empty());
    EXPECT_EQ(*std::max_element(inFlight.begin(), inFlight.end()), kBound);
    EXPECT_EQ(*std::min_element(inFlight.begin(), inFlight.end()), 0);
    const uint64_t shedSoFar = libraryCounters().total[VISTEL_OUTCOME_SHED];
    std::vector<int64_t> expected;
    for (int i = kRefusals - 1; i >= 0; --i) {
        expected.push_back(static_cast<int64_t>(shedSoFar) - i);
    }
    EXPECT_EQ(shedTotals, expected);
}

// A count that moved while its track was written is written again: writers on several workers
// land out of order, and the track must end where the count does.
TEST(TraceCounterTest, ACountThatMovedWhileWrittenIsWrittenAgain) {
    int reads = 0;
    tracecapture::start();
    orv::traceSettledCounter("vistel test track", [&] { return ++reads == 1 ? 1u : 0u; });
    std::vector<int64_t> written;
    for (const tracecapture::TraceMark& mark : tracecapture::stop()) {
        if (mark.name == "vistel test track") written.push_back(mark.value);
    }
    EXPECT_EQ(written, (std::vector<int64_t>{1, 0}));
}

}  // namespace
}  // namespace vistel_test
