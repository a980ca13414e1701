// The whole manager in a process whose service library lacks one of its eleven entry points (the
// ctest entry's LD_LIBRARY_PATH says which): the camera keeps working, and every kind, dispatched
// as usual, answers with its not-initialised result, logs why once, reports nothing and is
// counted so; the dump names the missing entry point.
#include <KindRegistry.h>
#include <LibraryCounters.h>
#include <LogCapture.h>
#include <OvrixEvent.h>
#include <VistelManager.h>
#include <gtest/gtest.h>
#include <orvlog.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace vistel_test {

using vistel_harness::endsWith;
using vistel_harness::LogCapture;
using vistel_harness::LogLine;

namespace {

using orv::VistelEvent;

enum class ErrorLine {
    kNone,
    kInitFailed,  // "<handler>() error: init failed"
    kNotValid,    // "<handler>() error: event=<record address>, inited=0 not valid"
};

struct Refusal {
    VistelEvent kind;
    ErrorLine error;
};

// The kinds that do not log "init failed".
const Refusal kExceptions[] = {
        // Trace requests of time-outs are skipped before any check.
        {orv::kEventAlgoProcessTimeoutDumpSystrace, ErrorLine::kNone},
        {orv::kEventMemoryExceedThreshold, ErrorLine::kNotValid},
        {orv::kEventMemoryAllocTimeout, ErrorLine::kNotValid},
        {orv::kEventDailyTempRise, ErrorLine::kNotValid},
};

ErrorLine errorLineOf(VistelEvent kind) {
    for (const Refusal& refusal : kExceptions) {
        if (refusal.kind == kind) return refusal.error;
    }
    return ErrorLine::kInitFailed;
}

// The body ends so; the temperature report puts its qualified name and line before it.
std::string errorEnding(ErrorLine error, const char* handler, const void* record) {
    if (error == ErrorLine::kInitFailed) return std::string(handler) + "() error: init failed";
    char address[32];
    snprintf(address, sizeof(address), "%p", record);
    return std::string(handler) + "() error: event=" + address + ", inited=0 not valid";
}

TEST(NotInitialisedTest, EveryKindRefusesAndReportsNothing) {
    LogCapture log;
    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    ASSERT_TRUE(log.has(ANDROID_LOG_ERROR, "Init", "Init() VistelLibLoader::getInstance failed"));

    for (const vistel_tools::KindInfo& info : vistel_tools::kinds()) {
        SCOPED_TRACE(info.handler);
        log.clear();
        ovrixhost::reset();
        orvloghost::reset();
        vistel_tools::RecordInstance instance = info.make();
        const ErrorLine error = errorLineOf(info.kind);
        // What the tool's table expects: the trace request of a time-out answers as for a record
        // with nothing to send.
        const vistel_tools::Outcome expected = error == ErrorLine::kNone
                                                       ? vistel_tools::Outcome::kNoEvent
                                                       : vistel_tools::Outcome::kNotInitialised;
        const vistel_tools::LibraryCounters before = vistel_tools::readLibraryCounters();

        std::future<int> result = manager->reportMsgImpl(instance.record);
        ASSERT_TRUE(result.valid());
        EXPECT_EQ(result.get(), info.results[static_cast<size_t>(expected)]);

        std::vector<LogLine> errors;
        for (const LogLine& line : log.lines()) {
            if (line.priority >= ANDROID_LOG_ERROR) errors.push_back(line);
        }
        if (error == ErrorLine::kNone) {
            EXPECT_TRUE(errors.empty());
        } else {
            ASSERT_EQ(errors.size(), 1u) << "one error line, from the handler";
            EXPECT_EQ(errors[0].function, info.handler);
            EXPECT_TRUE(endsWith(errors[0].body,
                                 errorEnding(error, info.handler, instance.record.get())))
                    << errors[0].body;
        }
        EXPECT_TRUE(ovrixhost::reported().empty());
        EXPECT_TRUE(orvloghost::jankPrints().empty());

        const vistel_tools::LibraryCounters after = vistel_tools::readLibraryCounters();
        vistel_tools::CounterRow counted;
        counted.name = info.name;
        counted.records = 1;
        // The trace request of a time-out checks nothing and sends nothing.
        const VistelOutcome outcome = error == ErrorLine::kNone ? VISTEL_OUTCOME_NO_EVENT
                                                                : VISTEL_OUTCOME_NOT_INITIALISED;
        counted[outcome] = 1;
        EXPECT_EQ(after.kinds.at(info.kind) - before.kinds.at(info.kind), counted);
        vistel_tools::CounterRow moved = after.total - before.total;
        moved.name = info.name;
        EXPECT_EQ(moved, counted) << "counted in another row too";
    }
    const char* missing = getenv("VISTEL_MISSING_SYMBOL");
    ASSERT_NE(missing, nullptr) << "the ctest entry names the missing entry point";
    const vistel_tools::LibraryCounters counters = vistel_tools::readLibraryCounters();
    EXPECT_EQ(counters.binding, VISTEL_BINDING_FUNCTION_MISSING);
    EXPECT_EQ(counters.missingFunction, missing);
    EXPECT_FALSE(counters.inited);
    // Refused before the limiter was asked: no record used up a period.
    for (const auto& [policy, keys] : counters.policies) EXPECT_EQ(keys.keys, 0u) << policy;
    EXPECT_EQ(counters.policies.size(), orv::VistelManager::FrequencyLimit::kKeyedPolicies);
}

}  // namespace
}  // namespace vistel_test
