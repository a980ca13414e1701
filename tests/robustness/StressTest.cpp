// Many camera threads reporting every kind at once while the clock moves: every future resolves,
// the services receive exactly the records the limiter lets through, each once, and the
// library's own counters (its dump) agree exactly with what the services received.
//
// Every record carries a serial number (its "mark") in a field that reaches the service, so
// each event received names the record it came from. The clock runs through phases: within a
// phase the camera threads themselves move it forward by at most kPhaseSpanS, between phases it
// jumps far enough that every policy's answer is decided whatever the interleaving. Each
// record's fate is then known: in every phase, a limited key lets exactly its first record
// through if its quiet period has run out since the phase in which it last let one through.
#include <KindRegistry.h>
#include <LibraryCounters.h>
#include <LogCapture.h>
#include <OvrixEvent.h>
#include <RecordJson.h>
#include <ServiceTaps.h>
#include <VirtualClock.h>
#include <VistelHostService.h>
#include <VistelManager.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <orvlog.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <future>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace vistel_test {

using vistel_harness::kNanosPerSecond;
using vistel_harness::VirtualClock;

namespace {

using orv::VistelEvent;
using vistel_tools::KindInfo;
using vistel_tools::Service;

// Record contents per kind, with one line per kind: "$KEY" / "$KEYNUM" are the limiter key (as
// text, or as the shortage's first integer), "$MARK" the record's serial. Each record gives
// exactly one event (kind 18 none), whose mark sits in an integer or a decimal text.
struct LoadKind {
    VistelEvent kind;
    int limitedResult;  // what a record the limiter drops yields
    const char* contents;
};

// clang-format off
const LoadKind kLoadKinds[] = {
        {orv::kEventMemLeak, 0, R"({"name": "$KEY", "value1": $MARK})"},
        {orv::kEventMemShortage, 0, R"({"value1": $KEYNUM, "value2": $MARK})"},
        {orv::kEventMemLimit, 0, R"({"name": "$KEY", "value1": $MARK})"},
        {orv::kEventMemEfficiencyWarning, 0, R"({"value1": $MARK, "name": "$KEY"})"},
        {orv::kEventMemAllocFail, 0, R"({"values": [$MARK], "name": "$KEY"})"},
        {orv::kEventPreviewBufferRefLeak, 0, R"({"name": "$KEY", "value1": $MARK})"},
        {orv::kEventCaptureBufferRefLeak, 0, R"({"name": "$KEY", "value1": $MARK})"},
        {orv::kEventAlgoProcessTimeoutWarning, 0, R"({"name": "$KEY", "value1": $MARK})"},
        {orv::kEventAlgoProcessTimeoutError, 0, R"({"name": "$KEY", "value1": $MARK})"},
        {orv::kEventSnapshotTimeoutWarning, 0, R"({"name": "$KEY", "values": [$MARK]})"},
        {orv::kEventSnapshotTimeoutError, 0, R"({"name": "$KEY", "values": [$MARK]})"},
        {orv::kEventOtherTimeoutWarning, 0, R"({"firstName": "$KEY", "value1": $MARK})"},
        {orv::kEventOtherTimeoutError, 0, R"({"firstName": "$KEY", "value1": $MARK})"},
        {orv::kEventSnapshotBigdata, 0, R"({"iso": $MARK})"},
        {orv::kEventSnapshotAfBigdata, 0, R"({"Distance": $MARK})"},
        {orv::kEventStatisticData, 0, R"({"hdr_3": $MARK})"},
        {orv::kEventHDRPData, 0, R"({"hasface": $MARK})"},
        {orv::kEventSnapshotBigdataV2, 0, R"({"iso": $MARK})"},
        {orv::kEventAlgoProcessTimeoutDumpSystrace, 0, R"({"name": "$KEY", "value1": $MARK})"},
        {orv::kEventFlushProcessTimeoutError, 0, R"({"firstName": "$KEY", "value1": $MARK})"},
        {orv::kEventStopProcessTimeoutError, 0, R"({"firstName": "$KEY", "value1": $MARK})"},
        {orv::kEventSessionUninitProcessTimeoutError, 0,
         R"({"firstName": "$KEY", "value1": $MARK})"},
        {orv::kEventConfigStreamProcessTimeoutError, 0,
         R"({"firstName": "$KEY", "value1": $MARK})"},
        {orv::kEventVideoPerfData, -2, R"({"SceneMode": $MARK})"},
        {orv::kEventPostProcessTimeoutError, 0, R"({"name": "$KEY", "value2": $MARK})"},
        {orv::kEventBootTimeout, -2, R"({"bootNodes": [{"thermalLevel": $MARK}]})"},
        {orv::kEventDumpTrace, -2, R"({"traceName": "$MARK"})"},
        {orv::kEventFrameDrop, -2, R"({"groups": [{"SceneMode": $MARK}]})"},
        {orv::kEventMemoryExceedThreshold, 0, R"({"maxUsableSize": $MARK})"},
        {orv::kEventMemoryAllocTimeout, 0, R"({"sceneMode": $MARK})"},
        {orv::kEventDailyTempRise, 0, R"({"openTime": "$MARK", "costEntries": ["1.5"]})"},
        {orv::kEventScanMsg, 0, R"({"bootNodes": [{"thermalLevel": $MARK}]})"},
};
// clang-format on
static_assert(std::size(kLoadKinds) == orv::kVistelEventCount);

constexpr int kThreads = 8;
// Each thread sends every kind four times per phase: twice under keys it shares with other
// threads, twice under a key of its own. Last, it hands one boot node straight to sendBootMsg,
// as camera threads may; that counts as one more scan message (the kind that sends the same way,
// without a limit).
constexpr int kSharedKeys = 3;
constexpr int kRounds = 4;
constexpr int kDispatchedPerThreadPerPhase = kRounds * orv::kVistelEventCount;
constexpr int kRecordsPerThreadPerPhase = kDispatchedPerThreadPerPhase + 1;
// Within a phase the clock moves by at most this much, in 1 s steps taken by the camera threads.
constexpr int kPhaseSpanS = 8;
constexpr int kTickEvery = 16;  // records a thread sends between two steps of the clock
// Phase starts, in seconds after the first. The gaps are chosen so that, with kPhaseSpanS, every
// quiet period (60, 360, 600, 3600 s) has surely run out or surely not; the expectation below
// checks that and refuses an undecided schedule.
constexpr int kPhaseStartsS[] = {0, 30, 100, 400, 700, 2000, 3700, 3750, 7400};
constexpr int kPhases = std::size(kPhaseStartsS);
// Serials: unique, well above every other integer the sample contents send, and within int16
// for the statistic counters.
constexpr int kFirstMark = 10000;
constexpr int kRecords = kThreads * kRecordsPerThreadPerPhase * kPhases;
static_assert(kFirstMark + kRecords <= INT16_MAX);

const KindInfo& infoOf(VistelEvent kind) {
    return vistel_tools::kinds()[kind];
}

bool limitedPerKey(const KindInfo& info) {
    return std::string(info.limit.scope) != "kind";
}

// What the test knows about one record it sent.
struct Sent {
    VistelEvent kind;
    bool direct = false;  // handed to sendBootMsg, not dispatched
    std::string group;    // the limiter's unit: kind, key (if per key) and phase
    int phase;
    std::optional<int> result;
    int events = 0;  // events received that carry its mark
};

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
        text.replace(at, from.size(), to);
        at += to.size();
    }
}

std::shared_ptr<orv::VistelEventBase> makeRecord(const LoadKind& load, const std::string& key,
                                                 int keyNumber, int mark) {
    std::string contents = load.contents;
    replaceAll(contents, "$KEYNUM", std::to_string(keyNumber));
    replaceAll(contents, "$KEY", key);
    replaceAll(contents, "$MARK", std::to_string(mark));
    const KindInfo& info = infoOf(load.kind);
    vistel_tools::RecordInstance instance = info.make();
    std::string error = vistel_tools::fillStruct(
            info.layout(), nlohmann::ordered_json::parse(contents), instance.body);
    EXPECT_EQ(error, "") << info.name;
    return instance.record;
}

// sendBootMsg answers nothing; the record's answer is "reported", at once.
std::future<int> sendBootMsgDirectly(int mark) {
    std::vector<orv::SingleBootNode> nodes(1);
    nodes[0].thermalLevel = mark;
    orv::VistelManager::GetInstance()->sendBootMsg(nodes);
    std::promise<int> answered;
    answered.set_value(0);
    return answered.get_future();
}

// ---- Marks found in what the services received ------------------------------------------------

bool isMark(long value) {
    return value >= kFirstMark && value < kFirstMark + kRecords;
}

void collectMark(long value, std::vector<int>& marks) {
    if (isMark(value)) marks.push_back(static_cast<int>(value));
}

void collectMark(const std::string& text, std::vector<int>& marks) {
    char* end = nullptr;
    long value = std::strtol(text.c_str(), &end, 10);
    if (!text.empty() && *end == '\0') collectMark(value, marks);
}

std::vector<int> marksOf(const vistelhost::SentEvent& event) {
    std::vector<int> marks;
    for (const vistelhost::Param& param : event.params) {
        collectMark(param.intValue, marks);
        for (long value : param.intArray) collectMark(value, marks);
    }
    return marks;
}

void collectMarks(const OvrixEvent& event, std::vector<int>& marks) {
    for (const OvrixEvent::Param& param : event.params()) {
        if (param.type == OvrixEvent::ParamType::kInt) collectMark(param.intValue, marks);
        if (param.type == OvrixEvent::ParamType::kString) collectMark(param.stringValue, marks);
        for (const OvrixEvent& nested : param.arrayValue) collectMarks(nested, marks);
    }
}

std::vector<int> marksOf(const OvrixEvent& event) {
    std::vector<int> marks;
    collectMarks(event, marks);
    return marks;
}

std::vector<int> marksOf(const orvloghost::JankPrint& print) {
    // "#ARG1:<name>#ARG2:<300>", the trace name being the mark.
    std::vector<int> marks;
    const std::string prefix = "#ARG1:<";
    if (print.msg.rfind(prefix, 0) == 0) {
        collectMark(print.msg.substr(prefix.size(), print.msg.find('>') - prefix.size()), marks);
    }
    return marks;
}

// ---- The run ----------------------------------------------------------------------------------

class StressTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        // Tens of thousands of lines would only slow the run down; nothing here reads them.
        __android_log_set_logger(vistel_harness::discardLogLine);
        orv::VistelManager::GetInstance();
    }

    void SetUp() override {
        VirtualClock::expireAllLimits();
        vistel_harness::resetServices();
        mCountersBefore = vistel_tools::readLibraryCounters();
    }

    void TearDown() override {
        EXPECT_EQ(vistelhost::liveObjects(), 0) << "event object leaked";
        EXPECT_EQ(vistelhost::invalidObjectCalls(), 0) << "object used after it was destroyed";
    }

    // Runs every phase; `armFault`, when given, is called by the camera threads after each record
    // with its serial, to make the service refuse calls while the others report.
    void run(const std::function<void(int mark)>& armFault = nullptr) {
        const int64_t startNs = VirtualClock::nowNs();
        for (int phase = 0; phase < kPhases; ++phase) {
            VirtualClock::setNs(startNs + kPhaseStartsS[phase] * kNanosPerSecond);
            runPhase(phase, armFault);
        }
        attributeEvents();
    }

    void runPhase(int phase, const std::function<void(int mark)>& armFault) {
        std::atomic<int> ticks{0};
        std::vector<std::vector<std::future<int>>> futures(kThreads);
        const size_t firstIndex = mSent.size();
        mSent.resize(firstIndex + kThreads * kRecordsPerThreadPerPhase);
        std::vector<std::thread> cameras;
        for (int t = 0; t < kThreads; ++t) {
            cameras.emplace_back([&, t] {
                for (int i = 0; i < kRecordsPerThreadPerPhase; ++i) {
                    const size_t index = firstIndex + t * kRecordsPerThreadPerPhase + i;
                    const int mark = kFirstMark + static_cast<int>(index);
                    const bool direct = i == kDispatchedPerThreadPerPhase;
                    const LoadKind& load =
                            kLoadKinds[direct ? orv::kEventScanMsg : i % orv::kVistelEventCount];
                    const int round = i / orv::kVistelEventCount;
                    const int keyNumber =
                            round < kRounds / 2 ? 1 + (t + phase + round) % kSharedKeys : 100 + t;
                    const std::string key = "key" + std::to_string(keyNumber);
                    Sent& sent = mSent[index];
                    const KindInfo& info = infoOf(load.kind);
                    sent.kind = load.kind;
                    sent.direct = direct;
                    sent.phase = phase;
                    sent.group = std::string(info.name) + "/" + (limitedPerKey(info) ? key : "") +
                                 "/" + std::to_string(phase);
                    futures[t].push_back(direct ? sendBootMsgDirectly(mark)
                                                : orv::VistelManager::GetInstance()->reportMsgImpl(
                                                          makeRecord(load, key, keyNumber, mark)));
                    if (armFault) armFault(mark);
                    if (i % kTickEvery == kTickEvery - 1 && ticks.fetch_add(1) < kPhaseSpanS) {
                        VirtualClock::advanceSeconds(1);
                    }
                }
            });
        }
        for (std::thread& camera : cameras) camera.join();
        for (int t = 0; t < kThreads; ++t) {
            for (int i = 0; i < kRecordsPerThreadPerPhase; ++i) {
                std::future<int>& future = futures[t][i];
                ASSERT_TRUE(future.valid());
                mSent[firstIndex + t * kRecordsPerThreadPerPhase + i].result = future.get();
            }
        }
    }

    // Gives each event received to the record whose mark it carries.
    void attributeEvents() {
        auto attribute = [this](const std::vector<int>& marks, unsigned id, Service service) {
            ASSERT_EQ(marks.size(), 1u) << "event " << id << " names no single record";
            Sent& sent = mSent[marks[0] - kFirstMark];
            const KindInfo& info = infoOf(sent.kind);
            EXPECT_EQ(info.service, service) << info.name;
            if (service != Service::kJankPrint) {
                EXPECT_EQ(id, std::strtoul(info.events, nullptr, 10)) << info.name;
            }
            ++sent.events;
        };
        for (const vistelhost::SentEvent& event : vistelhost::sentEvents()) {
            attribute(marksOf(event), event.id, Service::kVistel);
        }
        for (const OvrixEvent& event : ovrixhost::reported()) {
            attribute(marksOf(event), event.id(), Service::kOvrix);
        }
        for (const orvloghost::JankPrint& print : orvloghost::jankPrints()) {
            EXPECT_EQ(print.type, 3);
            EXPECT_EQ(print.id, 474);
            attribute(marksOf(print), 0, Service::kJankPrint);
        }
    }

    // How many records of each group the limiter lets through, from the policies alone.
    std::map<std::string, int> expectedPasses() const {
        std::map<std::string, int> passes;
        std::map<std::string, int> lastPassPhase;  // by group without its phase
        for (const Sent& sent : mSent) {
            const KindInfo& info = infoOf(sent.kind);
            const std::string unit = sent.group.substr(0, sent.group.rfind('/'));
            if (info.limit.policy == nullptr) {
                if (info.service != Service::kNone) ++passes[sent.group];
                continue;
            }
            if (passes.count(sent.group) != 0) continue;  // decided by the phase's first record
            auto last = lastPassPhase.find(unit);
            bool pass = last == lastPassPhase.end();
            if (!pass) {
                const int gapS = kPhaseStartsS[sent.phase] - kPhaseStartsS[last->second];
                const int periodS = info.limit.periodSeconds;
                pass = gapS - kPhaseSpanS >= periodS;
                EXPECT_TRUE(pass || gapS + kPhaseSpanS < periodS)
                        << "schedule leaves " << info.limit.policy << " undecided in phase "
                        << sent.phase;
            }
            passes[sent.group] = pass ? 1 : 0;
            if (pass) lastPassPhase[unit] = sent.phase;
        }
        return passes;
    }

    // Each record was delivered at most once and answered as its fate says; per group, the
    // records the limiter let through are exactly those the policies allow. When the service may
    // refuse, a record it refused was let through too. Returns the number refused.
    int expectLimiterHonoured(bool serviceMayRefuse) {
        std::map<std::string, int> letThrough;
        int refused = 0;
        for (const Sent& sent : mSent) {
            SCOPED_TRACE(sent.group);
            const KindInfo& info = infoOf(sent.kind);
            EXPECT_LE(sent.events, 1) << "doubled";
            int expectedResult = kLoadKinds[sent.kind].limitedResult;
            if (sent.events == 1 || info.service == Service::kNone) {
                expectedResult = 0;
            } else if (serviceMayRefuse && sent.result == -1) {
                EXPECT_EQ(info.service, Service::kVistel) << "only that service refuses";
                expectedResult = -1;
                ++refused;
            }
            EXPECT_EQ(sent.result, expectedResult);
            letThrough[sent.group] += sent.events + (expectedResult == -1 ? 1 : 0);
        }
        for (const auto& [group, passes] : expectedPasses()) {
            EXPECT_EQ(letThrough[group], passes) << group;
        }
        RecordProperty("records", static_cast<int>(mSent.size()));
        return refused;
    }

    // The library counted every record once, in its kind's row (the direct sendBootMsg calls in
    // their own), with the outcome it had and the events the services took; and every row of the
    // dump adds up, nothing being in flight any more.
    void expectCountersAgree() {
        using vistel_tools::CounterRow;
        std::map<uint32_t, CounterRow> expected;
        CounterRow direct;
        for (const Sent& sent : mSent) {
            CounterRow& row = sent.direct ? direct : expected[sent.kind];
            ++row.records;
            row.events += sent.events;
            if (sent.result == -1) {
                ++row[VISTEL_OUTCOME_FAILED];  // only ever the service refusing: it is bound
            } else if (sent.events > 0) {
                ++row[VISTEL_OUTCOME_SENT];
            } else if (infoOf(sent.kind).service == Service::kNone) {
                ++row[VISTEL_OUTCOME_NO_EVENT];
            } else {
                ++row[VISTEL_OUTCOME_LIMITED];
            }
        }
        const vistel_tools::LibraryCounters after = vistel_tools::readLibraryCounters();
        for (const KindInfo& info : vistel_tools::kinds()) {
            expected[info.kind].name = info.name;
            EXPECT_EQ(after.kinds.at(info.kind) - mCountersBefore.kinds.at(info.kind),
                      expected[info.kind]);
        }
        direct.name = after.direct.name;
        EXPECT_EQ(after.direct - mCountersBefore.direct, direct);
        EXPECT_EQ(after.rowsNotAddingUp(), std::vector<std::string>{});
        RecordProperty("inFlight", after.inFlight);
    }

    std::vector<Sent> mSent;  // indexed by mark - kFirstMark
    vistel_tools::LibraryCounters mCountersBefore;
};

TEST_F(StressTest, EveryKindAtOnceDeliversExactlyWhatTheLimiterAllows) {
    run();
    expectLimiterHonoured(/*serviceMayRefuse=*/false);
    expectCountersAgree();
}

// The service refuses creations, parameters and sends at arbitrary moments while every kind is
// reported: no object is left alive or used after its destruction, and a refused record is
// answered -1 and still counts for its limiter (it was let through, then failed).
TEST_F(StressTest, ServiceFailuresUnderLoadLeaveNothingBehind) {
    std::atomic<int> armed{0};
    run([&armed](int mark) {
        if (mark % 5 != 0) return;
        ++armed;  // every fifth mark, whichever thread sends it
        switch (mark / 5 % 3) {
            case 0:
                vistelhost::failNextCreate();
                break;
            case 1:
                vistelhost::failParamCall(1 + mark % 11);
                break;
            default:
                vistelhost::failNextSend();
                break;
        }
    });
    const int refused = expectLimiterHonoured(/*serviceMayRefuse=*/true);
    EXPECT_GT(refused, 0) << "no fault was hit: the test proves nothing";
    expectCountersAgree();
    RecordProperty("faultsArmed", armed.load());
    RecordProperty("refused", refused);
}

}  // namespace
}  // namespace vistel_test
