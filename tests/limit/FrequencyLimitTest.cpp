// The limiter on its own, linked from the library's objects, with the test's clock.
#include <VistelManager.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <future>
#include <type_traits>

#include "FakeClock.h"
#include "LogCapture.h"

namespace vistel_test {
namespace {

using Limit = orv::VistelManager::FrequencyLimit;
using KeyMap = std::map<std::string, long>;
using PairMap = std::map<std::string, std::map<std::string, long>>;
using Lines = std::vector<std::pair<int, std::string>>;  // (priority, body)

class FrequencyLimitTest : public ::testing::Test {
  protected:
    void SetUp() override { FakeClock::setNs(5000 * kNanosPerSecond); }

    // The lines logged since the last call, each of which must come from `function`.
    Lines linesFrom(const std::string& function) {
        Lines lines;
        for (const LogLine& line : mLog.lines()) {
            EXPECT_EQ(line.function, function) << line.body;
            lines.emplace_back(line.priority, line.body);
        }
        mLog.clear();
        return lines;
    }

    LogCapture mLog;
    Limit mLimit;
};

// The expected body with its "%d" placeholder filled in.
std::string withSeconds(std::string format, int seconds) {
    return format.replace(format.find("%d"), 2, std::to_string(seconds));
}

// Every decider lets the first event through; just below its period later it drops the next
// and exactly at it lets one through, as its interval lines say, so a dropped event does not move
// the record. A clock behind the record never blocks, and re-arms the record at the earlier time.
// Each logs in its own words and at its own levels.
TEST_F(FrequencyLimitTest, DecidersDropWithinTheirPeriod) {
    constexpr int I = ANDROID_LOG_INFO, E = ANDROID_LOG_ERROR;
    long stamp = 0;
    KeyMap keys;
    PairMap pairs;
    const struct {
        const char* name;
        std::function<bool()> decide;
        int period;
        int firstPriority;  // of the line the first event logs, if any
        const char* first;
        int priority;         // of the interval lines
        const char* limited;  // the interval line of a dropped event, %d = seconds
        const char* passed;   // of an event let through, if it differs
        int backwardsPriority;
        const char* backwards;
    } kCases[] = {
            {"limitBy0Item", [&] { return mLimit.limitBy0Item(&stamp); }, 3600, 0, nullptr, I,
             "limitBy0Item() timeIntervalInS = %d", nullptr, E,
             "limitBy0Item() timeStamp < timeRecord"},
            {"limitBy1Item", [&] { return mLimit.limitBy1Item(&keys, "cam"); }, 3600, 0, nullptr, I,
             "limitBy1Item() cam timeIntervalInS = %d", nullptr, E,
             "limitBy1Item() cam timeStamp < it->second"},
            {"limitBy2Item", [&] { return mLimit.limitBy2Item(&pairs, "a", "b"); }, 3600, 0,
             nullptr, I, "limitBy2Item() a b timeIntervalInS = %d", nullptr, E,
             "limitBy2Item() a b timeStamp < it2->second"},
            {"LimitDumpSysTraceError", [&] { return mLimit.LimitDumpSysTraceError(); }, 360, E,
             "init last report ts", E, "LimitDumpSysTraceError() timeIntervalInS = %d", nullptr, E,
             "LimitDumpSysTraceError() timeStamp < timeRecord"},
            {"limitEventVideoPerf", [&] { return mLimit.limitEventVideoPerf(); }, 600, 0, nullptr,
             I, "limitEventVideoPerf() timeIntervalInS = %d", nullptr, E,
             "limitEventVideoPerf() timeStamp < timeRecord"},
            {"limitEventBootPerf", [&] { return mLimit.limitEventBootPerf(); }, 600, I,
             "limitEventBootPerf() *time = 0", I,
             "limitEventBootPerf() timeIntervalInS = %d, limit=600, return true",
             "limitEventBootPerf() timeIntervalInS = %d, limit=600, return false", I,
             "limitEventBootPerf() timeStamp < timeRecord"},
            {"limitEventSnapshotRetFrmIntervalError",
             [&] { return mLimit.limitEventSnapshotRetFrmIntervalError(); }, 60, 0, nullptr, I,
             "timeIntervalInS = %d", nullptr, E, "timeStamp < timeRecord, reinit last report ts"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        auto interval = [&c](const char* format, int seconds) {
            return Lines{{c.priority, withSeconds(format, seconds)}};
        };
        mLog.clear();
        EXPECT_FALSE(c.decide());
        EXPECT_EQ(linesFrom(c.name), (c.first ? Lines{{c.firstPriority, c.first}} : Lines{}));
        FakeClock::advanceSeconds(c.period - 0.5);
        EXPECT_TRUE(c.decide());
        EXPECT_EQ(linesFrom(c.name), interval(c.limited, c.period - 1));
        FakeClock::advanceSeconds(0.5);
        EXPECT_FALSE(c.decide());
        EXPECT_EQ(linesFrom(c.name), interval(c.passed != nullptr ? c.passed : c.limited, c.period));
        FakeClock::advanceSeconds(-1);
        EXPECT_FALSE(c.decide());
        EXPECT_EQ(linesFrom(c.name), (Lines{{c.backwardsPriority, c.backwards}}));
        EXPECT_TRUE(c.decide()) << "re-armed at the earlier time";
        mLog.clear();
    }
}

// A zero-filled record of type R whose key holds `key`: the first name of a time-out pair, the
// first integer's bytes of a shortage, the name of the others (which the unkeyed ones ignore).
template <typename R>
std::unique_ptr<R> keyedRecord(const char* key) {
    auto record = std::make_unique<R>();
    if constexpr (std::is_same_v<R, orv::vistelOtherTimeout>) {
        snprintf(record->firstName, sizeof(record->firstName), "%s", key);
    } else if constexpr (std::is_same_v<R, orv::vistelMemShortage>) {
        memcpy(&record->value1, key, std::min(strlen(key), sizeof(record->value1) - 1));
    } else {
        snprintf(record->name, sizeof(record->name), "%s", key);
    }
    return record;
}

// The policy applied to a record of its type whose key holds `key`, or to none for null.
template <typename R>
std::function<bool(const char*)> onRecord(Limit& limit, bool (Limit::*policy)(R*)) {
    return [&limit, policy](const char* key) {
        return (limit.*policy)(key != nullptr ? keyedRecord<R>(key).get() : nullptr);
    };
}

// One row of the table below: the policy's name, whether it is keyed, and the policy.
#define VISTEL_POLICY(policy, keyed) \
    { #policy, keyed, onRecord(mLimit, &Limit::policy) }

// Every record policy keeps its own state: with the same key everywhere, each kind passes its
// first record and drops its second. A null record is dropped with a line naming the policy.
TEST_F(FrequencyLimitTest, RecordPoliciesKeepSeparateStateAndRefuseNull) {
    const std::tuple<std::string, bool, std::function<bool(const char*)>> kPolicies[] = {
            VISTEL_POLICY(limitEventMemLeak, true),
            VISTEL_POLICY(limitEventMemShortage, true),
            VISTEL_POLICY(limitEventMemLimit, true),
            VISTEL_POLICY(limitEventMemEfficiencyWarning, false),
            VISTEL_POLICY(limitEventMemAllocFail, false),
            VISTEL_POLICY(limitEventPreviewBufferRefLeak, true),
            VISTEL_POLICY(limitEventCaptureBufferRefLeak, true),
            VISTEL_POLICY(limitEventAlgoProcessTimeoutWarning, true),
            VISTEL_POLICY(limitEventAlgoProcessTimeoutError, true),
            VISTEL_POLICY(limitEventSnapshotTimeoutWarning, true),
            VISTEL_POLICY(limitEventSnapshotTimeoutError, true),
            VISTEL_POLICY(limitEventOtherTimeoutWarning, true),
            VISTEL_POLICY(limitEventOtherTimeoutError, true),
    };
#undef VISTEL_POLICY
    for (const auto& [name, keyed, decide] : kPolicies) {
        SCOPED_TRACE(name);
        mLog.clear();
        EXPECT_TRUE(decide(nullptr));
        EXPECT_EQ(linesFrom(name),
                  (Lines{{ANDROID_LOG_ERROR, name + "() error: input ptr is NULL"}}));
        EXPECT_FALSE(decide("A"));
        EXPECT_TRUE(decide("A"));
        EXPECT_EQ(decide("B"), !keyed) << "an unkeyed policy holds one time for the whole kind";
    }
}

// An old quirk the reported data depends on: the shortage's key is its first integer's bytes
// read as text up to the first zero byte, running on into the next integer when the first has
// none. Little-endian 0x4241 reads "AB", 0x44434241 then 0x45 "ABCDE"; 0 is the empty key. A
// record with no zero byte at all after the first integer is read up to its own end, never past.
TEST_F(FrequencyLimitTest, MemShortageKeyIsTheFirstIntegersBytes) {
    auto record = std::make_unique<orv::vistelMemShortage>();
    for (auto [first, second, dropped] : {std::tuple(0x4241, 1, false),
                                          {0x4241, 2, true},
                                          {0x4341, 1, false},
                                          {0, 5, false},
                                          {0, 6, true},
                                          {0x44434241, 0x45, false},
                                          {0x44434241, 0x46, false},
                                          {0x44434241, 0x45, true}}) {
        record->value1 = first;
        record->value2 = second;
        EXPECT_EQ(mLimit.limitEventMemShortage(record.get()), dropped) << first << " " << second;
    }
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, "limitBy1Item", "limitBy1Item() AB timeIntervalInS = 0"));
    EXPECT_TRUE(
            mLog.has(ANDROID_LOG_INFO, "limitBy1Item", "limitBy1Item() ABCDE timeIntervalInS = 0"));

    auto* first = reinterpret_cast<char*>(&record->value1);
    const size_t toEnd = reinterpret_cast<char*>(record.get()) + sizeof(*record) - first;
    memset(first, 'x', toEnd);
    mLog.clear();
    EXPECT_FALSE(mLimit.limitEventMemShortage(record.get()));
    EXPECT_TRUE(mLimit.limitEventMemShortage(record.get()));
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, "limitBy1Item",
                         "limitBy1Item() " + std::string(toEnd, 'x') + " timeIntervalInS = 0"));
}

// Camera threads racing on one key: exactly one event per period gets through.
TEST_F(FrequencyLimitTest, RacingThreadsLetOneThrough) {
    auto leak = keyedRecord<orv::vistelMemLeak>("shared");
    std::promise<void> go;
    std::shared_future<void> start = go.get_future().share();
    std::vector<std::future<int>> passed;
    for (int t = 0; t < 8; ++t) {
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
