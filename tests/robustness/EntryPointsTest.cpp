// Every exported entry point survives what a caller can hand it: a null record handed straight
// to any handler, and memory running out at any allocation on the way (in reportMsgImpl while
// it builds the task, in sendBootMsg, in a reporter while it builds its event).
//
// This executable replaces operator new (FailingAllocations.h). Each sweep raises n until a call
// gets through without reaching it.
#include <KindRegistry.h>
#include <LibraryDump.h>
#include <VistelHostService.h>
#include <VistelManager.h>
#include <gtest/gtest.h>

#include <string>

#include "FailingAllocations.h"
#include "FakeClock.h"
#include "Handlers.h"
#include "LogCapture.h"

namespace vistel_test {
namespace {

using orv::VistelManager;

class EntryPointsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        manager();
        vistelhost::reset();
        mLog.clear();
    }
    void TearDown() override {
        disarmAllocationFailure();
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
        EXPECT_NE(body.find(std::string(c.handler) + "() error: event="), std::string::npos) << body;
        // The only error: the limiter was not asked (it would have had its own line).
        EXPECT_NE(body.find(", inited=1 not valid"), std::string::npos) << body;
    }
    EXPECT_TRUE(vistelhost::calls().empty());
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

// The row of `kind` in the library's dump.
vistel_tools::DumpRow rowOf(orv::VistelEvent kind) {
    return vistel_tools::parseLibraryDump(vistel_tools::libraryDumpLines()).kinds.at(kind);
}

bool journaled(const std::string& function) {
    for (const std::string& call : vistelhost::calls()) {
        if (call.rfind(function + "(", 0) == 0) return true;
    }
    return false;
}

TEST_F(EntryPointsTest, ReporterOutOfMemoryFailsThatReportOnly) {
    for (const vistel_tools::KindInfo& c : vistel_tools::kinds()) {
        SCOPED_TRACE(c.handler);
        for (long n = 1; n < kMostAllocations; ++n) {
            std::shared_ptr<orv::VistelEventBase> record = c.make().record;
            FakeClock::expireAllLimits();
            vistelhost::reset();
            const vistel_tools::DumpRow before = rowOf(c.kind);
            mLog.clear();
            int result = 1;
            if (!failingAllocation(n, [&] { result = (manager()->*kHandlers[c.kind])(record); })) {
                EXPECT_EQ(result, 0);
                break;
            }
            SCOPED_TRACE("allocation " + std::to_string(n));
            const vistel_tools::DumpRow counted = rowOf(c.kind) - before;
            EXPECT_EQ(counted.records, 1u);
            if (result == 0) {
                // Only where the allocation that failed was the service's own, after it had
                // taken the event: the journal line of the object's destruction, which the
                // service does without.
                EXPECT_EQ(vistelhost::sentEvents().size(), 1u);
                EXPECT_FALSE(journaled("vistel_destroy_eventobj"));
                EXPECT_EQ(counted.sent, 1u);
            } else {
                // Failed with an error line: the reporter's own when its code ran out, a
                // primitive's when the service did.
                EXPECT_EQ(result, -1);
                EXPECT_FALSE(errors().empty());
                EXPECT_EQ(counted.failed, 1u);
            }
            EXPECT_EQ(vistelhost::liveObjects(), 0) << "event object leaked";
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
