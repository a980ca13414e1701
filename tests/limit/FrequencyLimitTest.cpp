// The limiter on its own, linked from the library's objects, with the test's clock.
#include <VistelManager.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <future>

#include "FakeClock.h"
#include "LogCapture.h"

namespace vistel_test {
namespace {

using Limit = orv::VistelManager::FrequencyLimit;
using KeyMap = std::map<std::string, long>;
using PairMap = std::map<std::string, std::map<std::string, long>>;

class FrequencyLimitTest : public ::testing::Test {
  protected:
    void SetUp() override { FakeClock::setNs(5000 * kNanosPerSecond); }
    LogCapture mLog;
    Limit mLimit;
};

// The expected body with its "%d" placeholder filled in.
std::string withSeconds(const std::string& format, int seconds) {
    std::string body = format;
    body.replace(body.find("%d"), 2, std::to_string(seconds));
    return body;
}

// One decision under test, on fresh state, with the name the decider logs under.
struct Decider {
    const char* name;
    std::function<bool()> decide;
    const char* intervalFormat;  // body of the interval line, %d = seconds
    const char* backwardsBody;
};

TEST_F(FrequencyLimitTest, GenericDecidersShareTheHourRule) {
    long stamp = 0;
    KeyMap keys;
    PairMap pairs;
    const Decider kDeciders[] = {
            {"limitBy0Item", [&] { return mLimit.limitBy0Item(&stamp); },
             "limitBy0Item() timeIntervalInS = %d", "limitBy0Item() timeStamp < timeRecord"},
            {"limitBy1Item", [&] { return mLimit.limitBy1Item(&keys, "cam"); },
             "limitBy1Item() cam timeIntervalInS = %d", "limitBy1Item() cam timeStamp < it->second"},
            {"limitBy2Item", [&] { return mLimit.limitBy2Item(&pairs, "a", "b"); },
             "limitBy2Item() a b timeIntervalInS = %d",
             "limitBy2Item() a b timeStamp < it2->second"},
    };
    for (const Decider& d : kDeciders) {
        SCOPED_TRACE(d.name);
        auto intervalLine = [&](int seconds) { return withSeconds(d.intervalFormat, seconds); };
        mLog.clear();
        EXPECT_FALSE(d.decide()) << "first event passes";
        EXPECT_TRUE(mLog.lines().empty()) << "and logs nothing";

        FakeClock::advanceSeconds(3599.9);
        EXPECT_TRUE(d.decide());
        EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, d.name, intervalLine(3599)));

        // Dropped events do not move the record: 0.1 s later the hour is complete.
        FakeClock::advanceSeconds(0.1);
        EXPECT_FALSE(d.decide());
        EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, d.name, intervalLine(3600)));

        // A clock behind the record never blocks, and re-arms the record at the earlier time.
        FakeClock::advanceSeconds(-100);
        mLog.clear();
        EXPECT_FALSE(d.decide());
        EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, d.name, d.backwardsBody));
        FakeClock::advanceSeconds(3599);
        EXPECT_TRUE(d.decide());
        FakeClock::advanceSeconds(1);
        EXPECT_FALSE(d.decide());
    }
}

TEST_F(FrequencyLimitTest, NullStateAlwaysDropsSilently) {
    EXPECT_TRUE(mLimit.limitBy0Item(nullptr));
    EXPECT_TRUE(mLimit.limitBy1Item(nullptr, "k"));
    EXPECT_TRUE(mLimit.limitBy2Item(nullptr, "k", "l"));
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(FrequencyLimitTest, BurstPassesOncePerHour) {
    KeyMap keys;
    std::vector<int> passedAt;
    for (int t = 0; t <= 7200; t += 10) {
        if (!mLimit.limitBy1Item(&keys, "burst")) passedAt.push_back(t);
        FakeClock::advanceSeconds(10);
    }
    EXPECT_EQ(passedAt, (std::vector<int>{0, 3600, 7200}));
}

TEST_F(FrequencyLimitTest, KeysAndPairsAreIndependent) {
    KeyMap keys;
    EXPECT_FALSE(mLimit.limitBy1Item(&keys, "a"));
    EXPECT_FALSE(mLimit.limitBy1Item(&keys, "b"));
    EXPECT_FALSE(mLimit.limitBy1Item(&keys, "")) << "the empty text is a key like any other";
    EXPECT_TRUE(mLimit.limitBy1Item(&keys, "a"));
    EXPECT_TRUE(mLimit.limitBy1Item(&keys, ""));

    PairMap pairs;
    EXPECT_FALSE(mLimit.limitBy2Item(&pairs, "first", "second"));
    EXPECT_FALSE(mLimit.limitBy2Item(&pairs, "first", "third"));
    EXPECT_FALSE(mLimit.limitBy2Item(&pairs, "other", "second"));
    EXPECT_TRUE(mLimit.limitBy2Item(&pairs, "first", "second"));
}

// Records are zero-filled, as make_shared leaves them.
template <typename Record>
std::unique_ptr<Record> blank() {
    return std::make_unique<Record>();
}

TEST_F(FrequencyLimitTest, RecordPoliciesKeepSeparateState) {
    auto leak = blank<orv::vistelMemLeak>();
    strcpy(leak->name, "node");
    auto limit = blank<orv::vistelMemLimit>();
    strcpy(limit->name, "node");
    auto algo = blank<orv::vistelAlgoProcessTimeout>();
    strcpy(algo->name, "node");
    auto snap = blank<orv::vistelSnapshotTimeout>();
    strcpy(snap->name, "node");
    auto other = blank<orv::vistelOtherTimeout>();
    strcpy(other->firstName, "node");
    strcpy(other->secondName, "stage");
    auto preview = blank<orv::vistelPreviewBufferRefLeak>();
    strcpy(preview->name, "node");
    auto capture = blank<orv::vistelCaptureBufferRefLeak>();
    strcpy(capture->name, "node");
    auto efficiency = blank<orv::vistelMemEfficiencyWarning>();
    auto allocFail = blank<orv::vistelMemAllocFail>();

    const std::pair<const char*, std::function<bool()>> kPolicies[] = {
            {"MemLeak", [&] { return mLimit.limitEventMemLeak(leak.get()); }},
            {"MemLimit", [&] { return mLimit.limitEventMemLimit(limit.get()); }},
            {"MemEfficiencyWarning",
             [&] { return mLimit.limitEventMemEfficiencyWarning(efficiency.get()); }},
            {"MemAllocFail", [&] { return mLimit.limitEventMemAllocFail(allocFail.get()); }},
            {"PreviewBufferRefLeak",
             [&] { return mLimit.limitEventPreviewBufferRefLeak(preview.get()); }},
            {"CaptureBufferRefLeak",
             [&] { return mLimit.limitEventCaptureBufferRefLeak(capture.get()); }},
            {"AlgoWarning", [&] { return mLimit.limitEventAlgoProcessTimeoutWarning(algo.get()); }},
            {"AlgoError", [&] { return mLimit.limitEventAlgoProcessTimeoutError(algo.get()); }},
            {"SnapshotWarning", [&] { return mLimit.limitEventSnapshotTimeoutWarning(snap.get()); }},
            {"SnapshotError", [&] { return mLimit.limitEventSnapshotTimeoutError(snap.get()); }},
            {"OtherWarning", [&] { return mLimit.limitEventOtherTimeoutWarning(other.get()); }},
            {"OtherError", [&] { return mLimit.limitEventOtherTimeoutError(other.get()); }},
    };
    // Same key everywhere: each kind passes its first event, then drops its second.
    for (const auto& [name, decide] : kPolicies) EXPECT_FALSE(decide()) << name;
    for (const auto& [name, decide] : kPolicies) EXPECT_TRUE(decide()) << name;

    // The two unkeyed memory policies hold one time for the kind, whatever the record says.
    auto differentFail = blank<orv::vistelMemAllocFail>();
    differentFail->values[0] = 99;
    strcpy(differentFail->name, "elsewhere");
    FakeClock::advanceSeconds(600);
    EXPECT_TRUE(mLimit.limitEventMemAllocFail(differentFail.get()));
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, "limitBy0Item", "limitBy0Item() timeIntervalInS = 600"));
}

TEST_F(FrequencyLimitTest, MemShortageKeyIsTheFirstIntegersBytes) {
    auto record = [](int32_t first, int32_t second) {
        auto r = blank<orv::vistelMemShortage>();
        r->value1 = first;
        r->value2 = second;
        return r;
    };
    // Little-endian "AB\0\0": the key is "AB", whatever follows.
    EXPECT_FALSE(mLimit.limitEventMemShortage(record(0x4241, 1).get()));
    EXPECT_TRUE(mLimit.limitEventMemShortage(record(0x4241, 2).get()));
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, "limitBy1Item", "limitBy1Item() AB timeIntervalInS = 0"));
    EXPECT_FALSE(mLimit.limitEventMemShortage(record(0x4341, 1).get()));
    // A first integer of 0 is the empty key, shared by all such records.
    EXPECT_FALSE(mLimit.limitEventMemShortage(record(0, 5).get()));
    EXPECT_TRUE(mLimit.limitEventMemShortage(record(0, 6).get()));
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, "limitBy1Item", "limitBy1Item()  timeIntervalInS = 0"));
}

TEST_F(FrequencyLimitTest, NullRecordIsDroppedWithItsPolicyName) {
    const std::pair<const char*, std::function<bool()>> kPolicies[] = {
            {"limitEventMemLeak", [&] { return mLimit.limitEventMemLeak(nullptr); }},
            {"limitEventMemShortage", [&] { return mLimit.limitEventMemShortage(nullptr); }},
            {"limitEventMemLimit", [&] { return mLimit.limitEventMemLimit(nullptr); }},
            {"limitEventMemEfficiencyWarning",
             [&] { return mLimit.limitEventMemEfficiencyWarning(nullptr); }},
            {"limitEventMemAllocFail", [&] { return mLimit.limitEventMemAllocFail(nullptr); }},
            {"limitEventPreviewBufferRefLeak",
             [&] { return mLimit.limitEventPreviewBufferRefLeak(nullptr); }},
            {"limitEventCaptureBufferRefLeak",
             [&] { return mLimit.limitEventCaptureBufferRefLeak(nullptr); }},
            {"limitEventAlgoProcessTimeoutWarning",
             [&] { return mLimit.limitEventAlgoProcessTimeoutWarning(nullptr); }},
            {"limitEventAlgoProcessTimeoutError",
             [&] { return mLimit.limitEventAlgoProcessTimeoutError(nullptr); }},
            {"limitEventSnapshotTimeoutWarning",
             [&] { return mLimit.limitEventSnapshotTimeoutWarning(nullptr); }},
            {"limitEventSnapshotTimeoutError",
             [&] { return mLimit.limitEventSnapshotTimeoutError(nullptr); }},
            {"limitEventOtherTimeoutWarning",
             [&] { return mLimit.limitEventOtherTimeoutWarning(nullptr); }},
            {"limitEventOtherTimeoutError",
             [&] { return mLimit.limitEventOtherTimeoutError(nullptr); }},
    };
    for (const auto& [name, decide] : kPolicies) {
        mLog.clear();
        EXPECT_TRUE(decide()) << name;
        ASSERT_EQ(mLog.lines().size(), 1u) << name;
        EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, name,
                             std::string(name) + "() error: input ptr is NULL"));
    }
}

// The self-contained policies: own period, own words, own levels.
TEST_F(FrequencyLimitTest, SelfContainedPolicies) {
    struct Case {
        const char* name;
        std::function<bool(Limit&)> decide;
        int period;
        std::vector<std::pair<int, std::string>> first;  // (priority, body) of the first event
        int intervalPriority;
        const char* limitedFormat;  // %d = seconds
        const char* passedFormat;
        std::pair<int, std::string> backwards;
    };
    const std::string trace = "LimitDumpSysTraceError", video = "limitEventVideoPerf",
                      boot = "limitEventBootPerf";
    const Case kCases[] = {
            {"LimitDumpSysTraceError", [](Limit& l) { return l.LimitDumpSysTraceError(); }, 360,
             {{ANDROID_LOG_ERROR, "init last report ts"}}, ANDROID_LOG_ERROR,
             "LimitDumpSysTraceError() timeIntervalInS = %d",
             "LimitDumpSysTraceError() timeIntervalInS = %d",
             {ANDROID_LOG_ERROR, trace + "() timeStamp < timeRecord"}},
            {"limitEventVideoPerf", [](Limit& l) { return l.limitEventVideoPerf(); }, 600, {},
             ANDROID_LOG_INFO, "limitEventVideoPerf() timeIntervalInS = %d",
             "limitEventVideoPerf() timeIntervalInS = %d",
             {ANDROID_LOG_ERROR, video + "() timeStamp < timeRecord"}},
            {"limitEventBootPerf", [](Limit& l) { return l.limitEventBootPerf(); }, 600,
             {{ANDROID_LOG_INFO, "limitEventBootPerf() *time = 0"}}, ANDROID_LOG_INFO,
             "limitEventBootPerf() timeIntervalInS = %d, limit=600, return true",
             "limitEventBootPerf() timeIntervalInS = %d, limit=600, return false",
             {ANDROID_LOG_INFO, boot + "() timeStamp < timeRecord"}},
            {"limitEventSnapshotRetFrmIntervalError",
             [](Limit& l) { return l.limitEventSnapshotRetFrmIntervalError(); }, 60, {},
             ANDROID_LOG_INFO, "timeIntervalInS = %d", "timeIntervalInS = %d",
             {ANDROID_LOG_ERROR, "timeStamp < timeRecord, reinit last report ts"}},
    };
    auto format = withSeconds;
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        Limit limit;
        auto bodies = [&] {
            std::vector<std::pair<int, std::string>> seen;
            for (const LogLine& line : mLog.lines()) {
                EXPECT_EQ(line.function, c.name);
                seen.emplace_back(line.priority, line.body);
            }
            mLog.clear();
            return seen;
        };
        mLog.clear();
        EXPECT_FALSE(c.decide(limit));
        EXPECT_EQ(bodies(), c.first);

        FakeClock::advanceSeconds(c.period - 0.5);
        EXPECT_TRUE(c.decide(limit));
        EXPECT_EQ(bodies(), (std::vector<std::pair<int, std::string>>{
                                    {c.intervalPriority, format(c.limitedFormat, c.period - 1)}}));

        FakeClock::advanceSeconds(0.5);
        EXPECT_FALSE(c.decide(limit));
        EXPECT_EQ(bodies(), (std::vector<std::pair<int, std::string>>{
                                    {c.intervalPriority, format(c.passedFormat, c.period)}}));

        FakeClock::advanceSeconds(-1);
        EXPECT_FALSE(c.decide(limit));
        EXPECT_EQ(bodies(), (std::vector<std::pair<int, std::string>>{c.backwards}));
        EXPECT_TRUE(c.decide(limit)) << "re-armed at the earlier time";
        mLog.clear();
    }
}

// Camera threads racing on one key: exactly one event per period gets through.
TEST_F(FrequencyLimitTest, RacingThreadsLetOneThrough) {
    constexpr int kThreads = 8;
    auto leak = blank<orv::vistelMemLeak>();
    strcpy(leak->name, "shared");
    std::promise<void> go;
    std::shared_future<void> start = go.get_future().share();
    std::vector<std::future<int>> passed;
    for (int t = 0; t < kThreads; ++t) {
        passed.push_back(std::async(std::launch::async, [&, start] {
            start.wait();
            int count = 0;
            for (int i = 0; i < 100; ++i) {
                count += !mLimit.limitEventMemLeak(leak.get());
                count += !mLimit.limitEventBootPerf();
            }
            return count;
        }));
    }
    go.set_value();
    int total = 0;
    for (auto& p : passed) total += p.get();
    EXPECT_EQ(total, 2) << "one leak report and one boot report";
}

}  // namespace
}  // namespace vistel_test
