// The memory fault, buffer leak and time-out reporters (kinds 0 to 12, 19 to 22 and 24), end to
// end from reportMsgImpl to the host Vistel service.
#define LOG_TAG "VistelManager"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <iterator>
#include <thread>

#include "../../src/reporters/FaultReporter.h"
#include "ReporterTest.h"

namespace vistel_test {
namespace {

using orv::VistelEvent;

template <size_t N>
void setText(char (&field)[N], const char* text) {
    snprintf(field, N, "%s", text);
}

long address(const char* text) {
    return reinterpret_cast<long>(text);
}

// What the limiter tells records apart by: the text key(s), or the shortage's first integer.
// The rest of each record is fixed, with negative integers and flags of 255 so that a lost sign
// or zero extension shows.
struct Key {
    const char* name = "FeatureNode";
    const char* second = "Stage";
    int32_t number = 7;
};

// A record and its parameters as the service must receive them, index by index.
struct Sample {
    std::shared_ptr<orv::VistelEventBase> record;
    std::vector<long> params;
};
using Maker = Sample (*)(const Key&);

Sample memLeak(const Key& key) {
    auto r = std::make_shared<orv::vistelMemLeak>();
    setText(r->name, key.name);
    setText(r->secondName, "ion");
    r->value1 = -1, r->value2 = INT32_MIN, r->value3 = 3;
    return {r, {address(r->name), address(r->secondName), -1, INT32_MIN, 3}};
}

Sample memShortage(const Key& key) {
    auto r = std::make_shared<orv::vistelMemShortage>();
    r->value1 = key.number, r->value2 = -2, r->value3 = INT32_MAX;
    setText(r->firstName, key.name);
    setText(r->secondName, "camera.provider");
    return {r, {key.number, -2, INT32_MAX, address(r->firstName), address(r->secondName)}};
}

Sample memLimit(const Key& key) {
    auto r = std::make_shared<orv::vistelMemLimit>();
    setText(r->name, key.name);
    setText(r->secondName, "gralloc");
    r->value1 = -3, r->value2 = 4;
    return {r, {address(r->name), address(r->secondName), -3, 4}};
}

Sample memEfficiencyWarning(const Key& key) {
    auto r = std::make_shared<orv::vistelMemEfficiencyWarning>();
    r->value1 = key.number, r->value2 = -5;
    setText(r->shortName, "dma");
    setText(r->name, key.name);
    return {r, {key.number, address(r->shortName), -5, address(r->name)}};
}

Sample memAllocFail(const Key& key) {
    auto r = std::make_shared<orv::vistelMemAllocFail>();
    const int32_t values[6] = {key.number, -1, 2, INT32_MIN, 4, -5};
    std::copy(std::begin(values), std::end(values), r->values);
    r->flag = 255;
    setText(r->shortName, "ion");
    setText(r->name, key.name);
    setText(r->secondName, "heap");
    return {r,
            {values[0], values[1], values[2], values[3], values[4], values[5], 255,
             address(r->shortName), address(r->name), address(r->secondName)}};
}

Sample previewBufferRefLeak(const Key& key) {
    auto r = std::make_shared<orv::vistelPreviewBufferRefLeak>();
    setText(r->name, key.name);
    r->value1 = -1, r->value2 = 2, r->value3 = INT32_MIN;
    return {r, {address(r->name), -1, 2, INT32_MIN}};
}

Sample captureBufferRefLeak(const Key& key) {
    auto r = std::make_shared<orv::vistelCaptureBufferRefLeak>();
    setText(r->name, key.name);
    r->value1 = -1, r->value2 = 2, r->flag = 255, r->value3 = -3, r->value4 = 4;
    return {r, {address(r->name), -1, 2, 255, -3, 4}};
}

template <typename Record>
Sample algoTimeout(const Key& key) {
    auto r = std::make_shared<Record>();
    setText(r->name, key.name);
    setText(r->shortName, "mfnr");
    r->value1 = -1, r->value2 = 3000, r->value3 = INT32_MIN;
    return {r, {address(r->name), -1, address(r->shortName), 3000, INT32_MIN}};
}

template <typename Record>
Sample snapshotTimeout(const Key& key) {
    auto r = std::make_shared<Record>();
    setText(r->name, key.name);
    const int32_t values[5] = {-1, 2, -3, 4, INT32_MIN};
    std::copy(std::begin(values), std::end(values), r->values);
    return {r, {address(r->name), -1, 2, -3, 4, INT32_MIN}};
}

template <typename Record>
Sample otherTimeout(const Key& key) {
    auto r = std::make_shared<Record>();
    setText(r->firstName, key.name);
    setText(r->secondName, key.second);
    setText(r->shortName, "flush");
    r->value1 = -1, r->value2 = 2, r->value3 = INT32_MIN;
    return {r,
            {address(r->firstName), address(r->secondName), -1, address(r->shortName), 2,
             INT32_MIN}};
}

Sample postProcessTimeout(const Key& key) {
    auto r = std::make_shared<orv::vistelPostProcessTimeOut>();
    setText(r->name, key.name);
    r->flag1 = 255, r->flag2 = 2, r->flag3 = 128, r->flag4 = 4;
    r->value1 = -0x123456789AL, r->value2 = -2, r->value3 = 3, r->value4 = INT32_MIN;
    setText(r->description, "jpeg encode stalled");
    r->value5 = -5;
    // Each flag next to its value, then value 5, then the description.
    return {r,
            {address(r->name), 255, -0x123456789AL, 2, -2, 128, 3, 4, INT32_MIN, -5,
             address(r->description)}};
}

struct FaultCase {
    VistelEvent kind;
    const char* reporter;
    unsigned eventId;
    Maker make;
    const char* loggingBuilder = nullptr;  // the one builder with enter and exit lines of its own
};

const FaultCase kCases[] = {
        {orv::kEventMemLeak, "sendEventMemLeak", 918000000, memLeak},
        {orv::kEventMemShortage, "sendEventMemShortage", 918000001, memShortage},
        {orv::kEventMemLimit, "sendEventMemLimit", 918001000, memLimit},
        {orv::kEventMemEfficiencyWarning, "sendEventMemEfficiencyWarning", 918001001,
         memEfficiencyWarning},
        {orv::kEventMemAllocFail, "sendEventMemAllocFail", 918000002, memAllocFail},
        {orv::kEventPreviewBufferRefLeak, "sendEventPreviewBufferRefLeak", 918000020,
         previewBufferRefLeak},
        {orv::kEventCaptureBufferRefLeak, "sendEventCaptureBufferRefLeak", 918000021,
         captureBufferRefLeak},
        {orv::kEventAlgoProcessTimeoutWarning, "sendEventAlgoProcessTimeoutWarning", 918001020,
         algoTimeout<orv::vistelAlgoProcessTimeoutWarning>},
        {orv::kEventAlgoProcessTimeoutError, "sendEventAlgoProcessTimeoutError", 918000040,
         algoTimeout<orv::vistelAlgoProcessTimeoutError>},
        {orv::kEventSnapshotTimeoutWarning, "sendEventSnapshotTimeoutWarning", 918001040,
         snapshotTimeout<orv::vistelSnapshotTimeoutWarning>},
        {orv::kEventSnapshotTimeoutError, "sendEventSnapshotTimeoutError", 918000060,
         snapshotTimeout<orv::vistelSnapshotTimeoutError>},
        {orv::kEventOtherTimeoutWarning, "sendEventOtherTimeoutWarning", 918001041,
         otherTimeout<orv::vistelOtherTimeoutWarning>},
        {orv::kEventOtherTimeoutError, "sendEventOtherTimeoutError", 918000061,
         otherTimeout<orv::vistelOtherTimeoutError>},
        // Errors sent under the other time-out's warning id, on purpose.
        {orv::kEventFlushProcessTimeoutError, "sendEventFlushProcessTimeoutError", 918001041,
         otherTimeout<orv::vistelFlushProcessTimeout>},
        {orv::kEventStopProcessTimeoutError, "sendEventStopProcessTimeoutError", 918001041,
         otherTimeout<orv::vistelStopProcessTimeout>},
        {orv::kEventSessionUninitProcessTimeoutError, "sendEventSessionUninitProcessTimeoutError",
         918001041, otherTimeout<orv::vistelSessionUninitProcessTimeout>},
        {orv::kEventConfigStreamProcessTimeoutError, "sendEventConfigStreamProcessTimeoutError",
         918001041, otherTimeout<orv::vistelConfigStreamProcessTimeout>},
        {orv::kEventPostProcessTimeoutError, "sendEventPostProcessTimeoutError", 918000040,
         postProcessTimeout, "sendEventPostProcessTimeout"},
};

const char* reporterOf(VistelEvent kind) {
    for (const FaultCase& c : kCases) {
        if (c.kind == kind) return c.reporter;
    }
    return "";
}

class FaultReportersTest : public ReporterTest {
  protected:
    // The flow's own lines: everything but the limiter's, as (function, body) at info level.
    std::vector<std::pair<std::string, std::string>> flowLines() const {
        std::vector<std::pair<std::string, std::string>> lines;
        for (const LogLine& line : mLog.lines()) {
            if (line.function.rfind("limit", 0) == 0) continue;
            EXPECT_EQ(line.priority, ANDROID_LOG_INFO) << line.message;
            lines.emplace_back(line.function, line.body);
        }
        return lines;
    }
};

int countPrefixed(const std::vector<std::string>& calls, const std::string& prefix) {
    int count = 0;
    for (const std::string& call : calls) count += call.rfind(prefix, 0) == 0;
    return count;
}

TEST_F(FaultReportersTest, EveryKindSendsItsIdAndFieldsInOrder) {
    for (const FaultCase& c : kCases) {
        SCOPED_TRACE(c.reporter);
        vistelhost::reset();
        mLog.clear();
        Sample sample = c.make({});
        ASSERT_EQ(sample.record->GetEventType(), c.kind);

        EXPECT_EQ(report(sample.record), 0);
        auto sent = vistelhost::sentEvents();
        ASSERT_EQ(sent.size(), 1u);
        EXPECT_EQ(sent[0].id, c.eventId);
        std::vector<long> values;
        for (size_t i = 0; i < sent[0].params.size(); ++i) {
            EXPECT_EQ(sent[0].params[i].type, vistelhost::ParamType::kIndexed);
            EXPECT_EQ(sent[0].params[i].index, i);
            values.push_back(sent[0].params[i].intValue);
        }
        EXPECT_EQ(values, sample.params);

        std::string r = c.reporter;
        std::vector<std::pair<std::string, std::string>> expected = {{r, "enter " + r + "()"}};
        if (c.loggingBuilder != nullptr) {
            std::string b = c.loggingBuilder;
            expected.insert(expected.end(), {{b, "enter " + b + "()"}, {b, "exit " + b + "()"}});
        }
        expected.push_back({r, "exit " + r + "()"});
        EXPECT_EQ(flowLines(), expected);
    }
}

// The service refuses the creation, each parameter in turn, or the send.
TEST_F(FaultReportersTest, ServiceFailureAtEveryStepSendsNothing) {
    for (const FaultCase& c : kCases) {
        const int paramCount = static_cast<int>(c.make({}).params.size());
        for (int step = -1; step <= paramCount; ++step) {  // -1 create, paramCount the send
            SCOPED_TRACE(std::string(c.reporter) + " step " + std::to_string(step));
            FakeClock::expireAllLimits();
            vistelhost::reset();
            mLog.clear();
            Sample sample = c.make({});
            // The one line the refusing primitive logs.
            std::string primitiveError;
            if (step < 0) {
                vistelhost::failNextCreate();
                primitiveError = "createEvent() error: LINK_Vistel_Create_EventObj() return null, ";
                primitiveError += "eventId(" + std::to_string(c.eventId) + ")";
            } else if (step < paramCount) {
                vistelhost::failParamCall(step + 1);
                primitiveError = "setEventParam() error: LINK_Vistel_Set_Param() failed ret = -5, ";
                primitiveError += "paramIndex(" + std::to_string(step) + ") value(" +
                                  std::to_string(sample.params[step]) + ")";
            } else {
                vistelhost::failNextSend();
                primitiveError = "sendEvent() error: LINK_Vistel_Send_Event() failed";
            }

            EXPECT_EQ(report(sample.record), -1);
            EXPECT_TRUE(vistelhost::sentEvents().empty());
            EXPECT_EQ(vistelhost::liveObjects(), 0);
            auto calls = vistelhost::calls();
            EXPECT_EQ(countPrefixed(calls, "vistel_set_param("),
                      std::max(0, std::min(step + 1, paramCount)));
            EXPECT_EQ(countPrefixed(calls, "vistel_send_event("), step == paramCount ? 1 : 0);
            EXPECT_EQ(mLog.withBody(primitiveError).size(), 1u);
            std::string r = c.reporter;
            EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, r, "enter " + r + "()"));
            EXPECT_TRUE(mLog.withBody("exit " + r + "()").empty());
            if (c.loggingBuilder != nullptr) {
                EXPECT_TRUE(mLog.withBody("exit " + std::string(c.loggingBuilder) + "()").empty());
            }
        }
    }
}

// One report of a sequence: the record, how long after the previous one it comes, and whether
// the limiter lets it through.
struct Step {
    Maker make;
    Key key;
    double afterS;
    bool sent;
};

TEST_F(FaultReportersTest, LimiterStatePerKind) {
    using orv::vistelAlgoProcessTimeoutError;
    using orv::vistelAlgoProcessTimeoutWarning;
    using orv::vistelOtherTimeoutError;
    using orv::vistelOtherTimeoutWarning;
    const Key a{"NodeA"}, b{"NodeB"}, ab{"NodeA", "Second"}, ac{"NodeA", "Third"};
    const struct {
        const char* what;
        std::vector<Step> steps;
    } kScenarios[] = {
            {"per key, for an hour",
             {{memLeak, a, 0, true},
              {memLeak, a, 3599, false},
              {memLeak, b, 0, true},
              {memLeak, a, 1, true},
              {memLimit, a, 0, true},
              {memLimit, a, 0, false}}},
            {"warnings and errors keep separate state",
             {{algoTimeout<vistelAlgoProcessTimeoutWarning>, a, 0, true},
              {algoTimeout<vistelAlgoProcessTimeoutError>, a, 0, true},
              {algoTimeout<vistelAlgoProcessTimeoutWarning>, a, 0, false},
              {algoTimeout<vistelAlgoProcessTimeoutError>, a, 0, false},
              {snapshotTimeout<orv::vistelSnapshotTimeoutWarning>, a, 0, true},
              {snapshotTimeout<orv::vistelSnapshotTimeoutError>, a, 0, true},
              {snapshotTimeout<orv::vistelSnapshotTimeoutWarning>, a, 0, false}}},
            {"other time-outs per key pair",
             {{otherTimeout<vistelOtherTimeoutWarning>, ab, 0, true},
              {otherTimeout<vistelOtherTimeoutWarning>, ac, 0, true},
              {otherTimeout<vistelOtherTimeoutWarning>, ab, 0, false},
              {otherTimeout<vistelOtherTimeoutError>, ab, 0, true},
              {otherTimeout<vistelOtherTimeoutError>, ab, 0, false}}},
            {"one timestamp for the whole kind",
             {{memAllocFail, {"NodeA", "", 1}, 0, true},
              {memAllocFail, {"NodeB", "", 2}, 600, false},
              {memEfficiencyWarning, {"NodeA", "", 1}, 0, true},
              {memEfficiencyWarning, {"NodeB", "", 2}, 0, false},
              {memAllocFail, {"NodeB", "", 2}, 3000, true}}},
            {"shortage keyed by the bytes of its first integer",
             {{memShortage, {"NodeA", "", 7}, 0, true},
              {memShortage, {"NodeA", "", 8}, 0, true},
              {memShortage, {"NodeB", "", 7}, 0, false},
              {memShortage, {"NodeA", "", 0}, 0, true},
              {memShortage, {"NodeB", "", 0}, 0, false}}},
            {"preview and capture leaks apart",
             {{previewBufferRefLeak, a, 0, true},
              {previewBufferRefLeak, a, 0, false},
              {captureBufferRefLeak, a, 0, true},
              {captureBufferRefLeak, a, 0, false}}},
            {"error-only time-outs are never limited",
             {{otherTimeout<orv::vistelFlushProcessTimeout>, a, 0, true},
              {otherTimeout<orv::vistelFlushProcessTimeout>, a, 1, true},
              {otherTimeout<orv::vistelStopProcessTimeout>, a, 1, true},
              {otherTimeout<orv::vistelStopProcessTimeout>, a, 1, true},
              {otherTimeout<orv::vistelSessionUninitProcessTimeout>, a, 1, true},
              {otherTimeout<orv::vistelSessionUninitProcessTimeout>, a, 1, true},
              {otherTimeout<orv::vistelConfigStreamProcessTimeout>, a, 1, true},
              {otherTimeout<orv::vistelConfigStreamProcessTimeout>, a, 1, true},
              {postProcessTimeout, a, 1, true},
              {postProcessTimeout, a, 1, true}}},
    };
    for (const auto& scenario : kScenarios) {
        FakeClock::expireAllLimits();
        for (size_t i = 0; i < scenario.steps.size(); ++i) {
            const Step& step = scenario.steps[i];
            SCOPED_TRACE(std::string(scenario.what) + ", step " + std::to_string(i));
            FakeClock::advanceSeconds(step.afterS);
            vistelhost::reset();
            mLog.clear();
            Sample sample = step.make(step.key);
            EXPECT_EQ(report(sample.record), 0);
            EXPECT_EQ(vistelhost::sentEvents().size(), step.sent ? 1u : 0u);
            std::vector<LogLine> drops =
                    mLog.withBody(std::string(reporterOf(sample.record->GetEventType())) +
                                  "() is limited, drop this event");
            EXPECT_EQ(drops.size(), step.sent ? 0u : 1u);
        }
    }
}

// Camera threads reporting at once: one key passes once, the unlimited kind every time.
TEST_F(FaultReportersTest, ConcurrentReportsNeitherDropNorDouble) {
    constexpr int kThreads = 8;
    constexpr int kPerThread = 25;
    std::vector<std::thread> threads;
    std::vector<std::vector<std::future<int>>> results(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kPerThread; ++i) {
                results[t].push_back(manager()->reportMsgImpl(memLeak({}).record));
                results[t].push_back(manager()->reportMsgImpl(
                        otherTimeout<orv::vistelFlushProcessTimeout>({}).record));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (auto& futures : results) {
        for (auto& result : futures) EXPECT_EQ(result.get(), 0);
    }
    int leaks = 0, flushes = 0;
    for (const vistelhost::SentEvent& event : vistelhost::sentEvents()) {
        leaks += event.id == 918000000;
        flushes += event.id == 918001041;
    }
    EXPECT_EQ(leaks, 1);
    EXPECT_EQ(flushes, kThreads * kPerThread);
    EXPECT_EQ(mLog.withBody("sendEventMemLeak() is limited, drop this event").size(),
              static_cast<size_t>(kThreads * kPerThread - 1));
}

// A manager without its service refuses before asking the limiter, so the record does not use
// up its hour. White-box: this process always has the service, so the flow is driven directly.
TEST_F(FaultReportersTest, NotInitialisedRefusesBeforeTheLimiter) {
    bool limiterAsked = false, sendCalled = false;
    int result = orv::reportFault<orv::vistelMemLeak>(
            "sendEventMemLeak", false, memLeak({}).record,
            [&](orv::vistelMemLeak*) { return limiterAsked = true; },
            [&](orv::vistelMemLeak*) {
                sendCalled = true;
                return 0;
            });
    EXPECT_EQ(result, -1);
    EXPECT_FALSE(limiterAsked);
    EXPECT_FALSE(sendCalled);
    EXPECT_TRUE(vistelhost::calls().empty());
    std::vector<std::pair<int, std::string>> lines;
    for (const LogLine& line : mLog.lines()) {
        EXPECT_EQ(line.function, "sendEventMemLeak");
        lines.emplace_back(line.priority, line.body);
    }
    EXPECT_EQ(lines, (std::vector<std::pair<int, std::string>>{
                             {ANDROID_LOG_INFO, "enter sendEventMemLeak()"},
                             {ANDROID_LOG_ERROR, "sendEventMemLeak() error: init failed"}}));
}

}  // namespace
}  // namespace vistel_test
