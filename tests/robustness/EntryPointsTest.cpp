// Every exported entry point survives what a caller can hand it: a null record handed straight
// to any handler, and memory running out at any allocation on the way (in reportMsgImpl while
// it builds the task, in sendBootMsg, in a reporter while it builds its event).
//
// This executable replaces operator new: once armed, the n-th allocation of the arming thread
// throws std::bad_alloc. Each sweep raises n until a call gets through without reaching it.
#include <KindRegistry.h>
#include <VistelHostService.h>
#include <VistelManager.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>

#include "FakeClock.h"
#include "LogCapture.h"

namespace {

// Allocations of this thread left before the one that fails; 0: disarmed.
thread_local long tAllocationsBeforeFailure = 0;

void* allocate(size_t size) {
    if (tAllocationsBeforeFailure > 0 && !vistel_test::LogCapture::capturing() &&
        --tAllocationsBeforeFailure == 0) {
        throw std::bad_alloc();
    }
    void* block = malloc(size == 0 ? 1 : size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

}  // namespace

void* operator new(size_t size) {
    return allocate(size);
}
void* operator new[](size_t size) {
    return allocate(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    try {
        return allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}
void operator delete(void* block) noexcept {
    free(block);
}
void operator delete[](void* block) noexcept {
    free(block);
}
void operator delete(void* block, size_t) noexcept {
    free(block);
}
void operator delete[](void* block, size_t) noexcept {
    free(block);
}

namespace vistel_test {
namespace {

using Handler = int (orv::VistelManager::*)(std::shared_ptr<orv::VistelEventBase>);
using orv::VistelManager;

// Indexed by kind.
constexpr Handler kHandlers[] = {
        &VistelManager::sendEventMemLeak,
        &VistelManager::sendEventMemShortage,
        &VistelManager::sendEventMemLimit,
        &VistelManager::sendEventMemEfficiencyWarning,
        &VistelManager::sendEventMemAllocFail,
        &VistelManager::sendEventPreviewBufferRefLeak,
        &VistelManager::sendEventCaptureBufferRefLeak,
        &VistelManager::sendEventAlgoProcessTimeoutWarning,
        &VistelManager::sendEventAlgoProcessTimeoutError,
        &VistelManager::sendEventSnapshotTimeoutWarning,
        &VistelManager::sendEventSnapshotTimeoutError,
        &VistelManager::sendEventOtherTimeoutWarning,
        &VistelManager::sendEventOtherTimeoutError,
        &VistelManager::sendEventSnapshotBigdata,
        &VistelManager::SendEventSnapshotAfBigdata,
        &VistelManager::sendEventStatisticData,
        &VistelManager::sendEventHDRPData,
        &VistelManager::SendEventSnapshotBigdataV2,
        &VistelManager::SendEventAlgoProcessTimeoutDumpSystrace,
        &VistelManager::sendEventFlushProcessTimeoutError,
        &VistelManager::sendEventStopProcessTimeoutError,
        &VistelManager::sendEventSessionUninitProcessTimeoutError,
        &VistelManager::sendEventConfigStreamProcessTimeoutError,
        &VistelManager::sendEventVideoPerfData,
        &VistelManager::sendEventPostProcessTimeoutError,
        &VistelManager::sendBootTimeout,
        &VistelManager::dumpTrace,
        &VistelManager::FrameDropError,
        &VistelManager::sendMemoryExceedThreshold,
        &VistelManager::sendMemoryAllocTimeout,
        &VistelManager::sendDailyTempRise,
        &VistelManager::sendScanMsgReport,
};
static_assert(std::size(kHandlers) == orv::kVistelEventCount);

// What each handler answers when it refuses: the scan message report -2, the kind-18 trace
// request 0 (it never refuses an uninitialised manager), every other -1.
int refusedResult(orv::VistelEvent kind) {
    if (kind == orv::kEventScanMsg) return -2;
    if (kind == orv::kEventAlgoProcessTimeoutDumpSystrace) return 0;
    return -1;
}

class EntryPointsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        manager();
        vistelhost::reset();
        mLog.clear();
    }
    void TearDown() override {
        tAllocationsBeforeFailure = 0;
        EXPECT_EQ(vistelhost::liveObjects(), 0) << "event object leaked";
    }
    static VistelManager* manager() { return VistelManager::GetInstance(); }

    // The error lines logged since the last clear().
    std::vector<LogLine> errors() const {
        std::vector<LogLine> result;
        for (const LogLine& line : mLog.lines()) {
            if (line.priority == ANDROID_LOG_ERROR) result.push_back(line);
        }
        return result;
    }

    LogCapture mLog;
};

TEST_F(EntryPointsTest, NullRecordIsRefusedByEveryHandlerAlike) {
    for (const vistel_tools::KindInfo& c : vistel_tools::kinds()) {
        SCOPED_TRACE(c.handler);
        mLog.clear();
        EXPECT_EQ((manager()->*kHandlers[c.kind])(nullptr), refusedResult(c.kind));
        std::vector<LogLine> lines = errors();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].function, c.handler);
        const std::string& body = lines[0].body;
        EXPECT_NE(body.find(std::string(c.handler) + "() error: event="), std::string::npos)
                << body;
        // The only error: the limiter was not asked (it would have had its own line).
        EXPECT_NE(body.find(", inited=1 not valid"), std::string::npos) << body;
    }
    EXPECT_TRUE(vistelhost::calls().empty());
}

// Arms the n-th allocation of this thread to fail, runs `call`, and tells whether the failure
// was reached (the call then had to cope with it).
template <typename Call>
bool failingAllocation(long n, Call call) {
    tAllocationsBeforeFailure = n;
    call();
    const bool reached = tAllocationsBeforeFailure == 0;
    tAllocationsBeforeFailure = 0;
    return reached;
}

// Sweeps of more than this many allocations mean the sweep is not ending.
constexpr long kMostAllocations = 400;

TEST_F(EntryPointsTest, ReportMsgImplOutOfMemoryGivesAnInvalidFuture) {
    for (const vistel_tools::KindInfo& c : vistel_tools::kinds()) {
        SCOPED_TRACE(c.handler);
        long n = 1;
        for (; n < kMostAllocations; ++n) {
            std::shared_ptr<orv::VistelEventBase> record = c.make().record;
            FakeClock::expireAllLimits();
            mLog.clear();
            std::future<int> result;
            if (!failingAllocation(n, [&] { result = manager()->reportMsgImpl(record); })) {
                ASSERT_TRUE(result.valid());
                EXPECT_EQ(result.get(), 0);
                break;
            }
            EXPECT_FALSE(result.valid()) << "allocation " << n;
            std::vector<LogLine> lines = errors();
            ASSERT_EQ(lines.size(), 1u) << "allocation " << n;
            EXPECT_EQ(lines[0].function, "reportMsgImpl");
            EXPECT_NE(lines[0].body.find("std::bad_alloc"), std::string::npos) << lines[0].body;
        }
        EXPECT_GT(n, 1);
        EXPECT_LT(n, kMostAllocations);
    }
}

TEST_F(EntryPointsTest, ReporterOutOfMemoryFailsThatReportOnly) {
    for (const vistel_tools::KindInfo& c : vistel_tools::kinds()) {
        SCOPED_TRACE(c.handler);
        for (long n = 1; n < kMostAllocations; ++n) {
            std::shared_ptr<orv::VistelEventBase> record = c.make().record;
            FakeClock::expireAllLimits();
            vistelhost::reset();
            mLog.clear();
            int result = 1;
            if (!failingAllocation(n, [&] { result = (manager()->*kHandlers[c.kind])(record); })) {
                EXPECT_EQ(result, 0);
                break;
            }
            // Failed with an error line: the reporter's own when its code ran out, a
            // primitive's when the service did. Or reported after all, where the allocation
            // that failed was one the service could do without (its call journal). No event
            // object is left behind either way.
            EXPECT_TRUE(result == 0 || (result == -1 && !errors().empty()))
                    << "allocation " << n << ": " << result;
            EXPECT_EQ(vistelhost::liveObjects(), 0) << "allocation " << n;
            ASSERT_LT(n, kMostAllocations - 1);
        }
    }
}

TEST_F(EntryPointsTest, SendBootMsgOutOfMemoryIsLoggedNotThrown) {
    std::vector<orv::SingleBootNode> nodes(2);
    nodes[0].stageCosts["open"] = {{"sensor", 12.5f}, {"isp", 3.0f}};
    nodes[1].stageCosts["preview"] = {{"first frame", 40.0f}};
    long n = 1;
    for (; n < kMostAllocations; ++n) {
        mLog.clear();
        if (!failingAllocation(n, [&] { manager()->sendBootMsg(nodes); })) break;
        std::vector<LogLine> lines = errors();
        ASSERT_EQ(lines.size(), 1u) << "allocation " << n;
        EXPECT_EQ(lines[0].body, "sendBootMsg() error: std::bad_alloc");
    }
    EXPECT_GT(n, 5);
    EXPECT_LT(n, kMostAllocations);
}

}  // namespace
}  // namespace vistel_test
