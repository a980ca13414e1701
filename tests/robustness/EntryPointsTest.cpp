// Every exported entry point survives what a caller can hand it: a null record handed straight
// to any handler, a record with another kind's body, a service that throws something that is not
// a std::exception, and memory running out at any allocation on the way (in reportMsgImpl while
// it builds the task, in sendBootMsg, in a reporter while it builds its event). Past the end of
// the process, ExitTest's "after" moment calls them all once more.
//
// This executable replaces operator new (FailingAllocations.h). Each sweep raises n until a call
// gets through without reaching it.
#include <KindRegistry.h>
#include <LibraryCounters.h>
#include <LogCapture.h>
#include <OvrixEvent.h>
#include <VirtualClock.h>
#include <VistelHostService.h>
#include <VistelManager.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <string>

#include "FailingAllocations.h"
#include "Handlers.h"

namespace vistel_test {

using vistel_harness::LogCapture;
using vistel_harness::LogLine;
using vistel_harness::VirtualClock;

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
        EXPECT_EQ((manager()->*handlerOf(c.kind))(nullptr), refusedResult(c.kind));
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
            VirtualClock::expireAllLimits();
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

vistel_tools::CounterRow rowOf(orv::VistelEvent kind) {
    return vistel_tools::readKindCounters(kind);
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
            VirtualClock::expireAllLimits();
            vistelhost::reset();
            const vistel_tools::CounterRow before = rowOf(c.kind);
            mLog.clear();
            int result = 1;
            if (!failingAllocation(n, [&] { result = (manager()->*handlerOf(c.kind))(record); })) {
                EXPECT_EQ(result, 0);
                break;
            }
            SCOPED_TRACE("allocation " + std::to_string(n));
            const vistel_tools::CounterRow counted = rowOf(c.kind) - before;
            EXPECT_EQ(counted.records, 1u);
            if (result == 0) {
                // Only where the allocation that failed was the service's own, after it had
                // taken the event: the journal line of the object's destruction, which the
                // service does without.
                EXPECT_EQ(vistelhost::sentEvents().size(), 1u);
                EXPECT_FALSE(journaled("vistel_destroy_eventobj"));
                EXPECT_EQ(counted[VISTEL_OUTCOME_SENT], 1u);
            } else {
                // Failed with an error line: the reporter's own when its code ran out, a
                // primitive's when the service did.
                EXPECT_EQ(result, -1);
                EXPECT_FALSE(errors().empty());
                EXPECT_EQ(counted[VISTEL_OUTCOME_FAILED], 1u);
            }
            EXPECT_EQ(vistelhost::liveObjects(), 0) << "event object leaked";
            ASSERT_LT(n, kMostAllocations - 1);
        }
    }
}

// Every exported symbol that takes or reaches a record or the service, as the ABI's symbol list
// names it, has a row in the tables of this file or ExitTest's "after" moment: a new export
// cannot go without one unnoticed.
TEST_F(EntryPointsTest, EveryExportedEntryPointIsDriven) {
    std::set<std::string> driven = {
            "orv::VistelManager::GetInstance()",
            "orv::VistelManager::reportMsgImpl(std::shared_ptr<orv::VistelEventBase>)",
            "orv::VistelManager::Init()",
            "orv::VistelManager::createEvent(unsigned int, void*&) const",
            "orv::VistelManager::setEventParam(void*&, unsigned short, long) const",
            "orv::VistelManager::SetEventParam(void*&, char const*, long, orv::DATATYPE) const",
            "orv::VistelManager::SetEventParam(void*&, char const*, float, orv::DATATYPE) const",
            "orv::VistelManager::SetEventParam(void*&, char const*, char const*, orv::DATATYPE) "
            "const",
            "orv::VistelManager::sendEvent(void*&) const",
            "orv::VistelManager::sendBootMsg(std::vector<orv::SingleBootNode, "
            "std::allocator<orv::SingleBootNode> >&)",
            "orv::VistelManager::dump(int)",
            "orv::VistelManager::snapshotCounters(VistelCounterSnapshot*)",
    };
    for (const vistel_tools::KindInfo& c : vistel_tools::kinds()) {
        driven.insert(std::string("orv::VistelManager::") + c.handler +
                      "(std::shared_ptr<orv::VistelEventBase>)");
    }
    std::ifstream list(VISTEL_EXPORTED_SYMBOLS);
    ASSERT_TRUE(list.good()) << VISTEL_EXPORTED_SYMBOLS;
    int entries = 0;
    for (std::string line; std::getline(list, line);) {
        const bool entry = line.rfind("orv::VistelManager::", 0) == 0 &&
                           line.find("FrequencyLimit") == std::string::npos &&
                           line.find("VistelManager()") == std::string::npos;
        if (!entry) continue;
        ++entries;
        EXPECT_EQ(driven.count(line), 1u) << "exported, but driven by no hostile table: " << line;
    }
    EXPECT_EQ(entries, static_cast<int>(driven.size()));
}

// A record handed to a handler that reads another body: refused with the handler's
// not-initialised result, nothing sent, counted in the handler's row. A record of another kind
// with the same body is read as it always was.
TEST_F(EntryPointsTest, ARecordWithAnotherBodyIsRefusedOneWithTheSameBodyIsRead) {
    const auto& kinds = vistel_tools::kinds();
    int sameBody = 0;
    for (const vistel_tools::KindInfo& c : kinds) {
        SCOPED_TRACE(c.handler);
        for (const vistel_tools::KindInfo& other : kinds) {
            if (other.kind == c.kind) continue;
            const bool same = &other.layout() == &c.layout();
            if (!same && other.kind != (c.kind + 1) % orv::kVistelEventCount) continue;
            VirtualClock::expireAllLimits();
            vistelhost::reset();
            ovrixhost::reset();
            const vistel_tools::CounterRow before = rowOf(c.kind);
            const int result = (manager()->*handlerOf(c.kind))(other.make().record);
            const vistel_tools::CounterRow counted = rowOf(c.kind) - before;
            EXPECT_EQ(counted.records, 1u) << other.handler;
            if (same) {
                ++sameBody;
                EXPECT_EQ(counted[VISTEL_OUTCOME_NOT_INITIALISED], 0u) << other.handler;
                continue;
            }
            EXPECT_EQ(result, refusedResult(c.kind)) << other.handler;
            EXPECT_EQ(counted[VISTEL_OUTCOME_NOT_INITIALISED], 1u) << other.handler;
            EXPECT_TRUE(vistelhost::calls().empty()) << other.handler;
            EXPECT_TRUE(ovrixhost::reported().empty()) << other.handler;
        }
    }
    // The time-outs (7/8/18, 9/10, 11/12/19-22) and the boot records (25/31).
    EXPECT_EQ(sameBody, 2 * 3 + 2 + 6 * 5 + 2);
}

// A service that throws instead of answering, with something that is not a std::exception: the
// record fails (-1, counted failed), nothing is thrown at the caller, no event object is left
// behind, and the records in flight come back to zero: later records are sent as ever.
TEST_F(EntryPointsTest, AServiceThatThrowsFailsThatRecordOnly) {
    constexpr int kRounds = 2;  // once queued, once called directly
    int failed = 0;
    for (const vistel_tools::KindInfo& c : vistel_tools::kinds()) {
        SCOPED_TRACE(c.handler);
        for (int round = 0; round < kRounds; ++round) {
            VirtualClock::expireAllLimits();
            vistelhost::reset();
            ovrixhost::reset();
            vistelhost::throwFromNextSend();
            ovrixhost::throwFromNextReport();
            std::shared_ptr<orv::VistelEventBase> record = c.make().record;
            const vistel_tools::CounterRow before = rowOf(c.kind);
            int result = 1;
            if (round == 0) {
                std::future<int> future = manager()->reportMsgImpl(record);
                ASSERT_TRUE(future.valid());
                ASSERT_NO_THROW(result = future.get());
            } else {
                ASSERT_NO_THROW(result = (manager()->*handlerOf(c.kind))(record));
            }
            const vistel_tools::CounterRow counted = rowOf(c.kind) - before;
            EXPECT_EQ(counted.records, 1u);
            EXPECT_EQ(counted.records, counted.ended());
            if (counted[VISTEL_OUTCOME_FAILED] == 1) {
                ++failed;
                EXPECT_EQ(result, -1);
                EXPECT_EQ(counted.events, 0u);
            }
            EXPECT_EQ(vistelhost::liveObjects(), 0) << "event object leaked";
        }
    }
    vistelhost::reset();
    ovrixhost::reset();
    // Vistel kinds 0-17 but 14, 19-24 once queued and once called, Ovrix ones whose example
    // record reaches the service.
    EXPECT_GE(failed, 2 * 23);
    EXPECT_EQ(vistel_tools::readLibraryCounters().inFlight, 0u);
    VirtualClock::expireAllLimits();
    EXPECT_EQ(
            manager()->reportMsgImpl(vistel_tools::kinds()[orv::kEventMemLeak].make().record).get(),
            0);
}

// A record reported from a destructor while an exception unwinds ends as what became of it: sent,
// not failed.
TEST_F(EntryPointsTest, AReportFromADestructorWhileUnwindingIsCountedAsItEnds) {
    struct ReportsWhenDestroyed {
        int* result;
        ~ReportsWhenDestroyed() {
            *result = manager()->sendEventMemLeak(
                    vistel_tools::kinds()[orv::kEventMemLeak].make().record);
        }
    };
    VirtualClock::expireAllLimits();
    const vistel_tools::CounterRow before = rowOf(orv::kEventMemLeak);
    int result = 1;
    try {
        ReportsWhenDestroyed reporter{&result};
        throw 1;
    } catch (int) {
    }
    EXPECT_EQ(result, 0);
    const vistel_tools::CounterRow counted = rowOf(orv::kEventMemLeak) - before;
    EXPECT_EQ(counted[VISTEL_OUTCOME_SENT], 1u);
    EXPECT_EQ(counted[VISTEL_OUTCOME_FAILED], 0u);
}

// snapshotCounters() writes nothing past the size its caller says it has, refuses a size smaller
// than its first version's with a line, and zeroes the fields of a later version it does not know.
TEST_F(EntryPointsTest, SnapshotCountersWritesOnlyWhatTheCallerHas) {
    constexpr uint32_t kWhole = sizeof(VistelCounterSnapshot);
    constexpr unsigned char kUntouched = 0xa5;
    struct Case {
        const char* what;
        uint32_t size;
        int result;
    };
    const Case kCases[] = {
            {"no size", 0, -1},
            {"an older, shorter layout", kWhole - sizeof(VistelPolicyKeys), -1},
            {"one byte short", kWhole - 1, -1},
            {"this version's", kWhole, 0},
            {"a later version's", kWhole + 64, 0},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.what);
        std::vector<unsigned char> memory(kWhole + 128, kUntouched);
        auto* snapshot = reinterpret_cast<VistelCounterSnapshot*>(memory.data());
        snapshot->size = c.size;
        mLog.clear();
        EXPECT_EQ(manager()->snapshotCounters(snapshot), c.result);
        const size_t written = c.result == 0 ? c.size : sizeof(snapshot->size);
        for (size_t i = written; i < memory.size(); ++i) {
            ASSERT_EQ(memory[i], kUntouched) << "byte " << i << " of " << c.size;
        }
        EXPECT_EQ(errors().size(), c.result == 0 ? 0u : 1u);
        if (c.result != 0) continue;
        EXPECT_EQ(snapshot->size, c.size);
        EXPECT_EQ(snapshot->version, 1u);
        EXPECT_EQ(snapshot->kindCount, orv::kVistelEventCount);
        for (size_t i = kWhole; i < c.size; ++i) ASSERT_EQ(memory[i], 0) << "byte " << i;
    }
    mLog.clear();
    EXPECT_EQ(manager()->snapshotCounters(nullptr), -1);
    EXPECT_EQ(errors().size(), 1u);
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
