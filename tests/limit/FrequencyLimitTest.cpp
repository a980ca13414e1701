// The limiter on its own, linked from the library's objects, with the test's clock.
#include <LogCapture.h>
#include <VirtualClock.h>
#include <VistelManager.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <future>
#include <optional>
#include <type_traits>

namespace vistel_test {

using vistel_harness::kNanosPerSecond;
using vistel_harness::LogCapture;
using vistel_harness::LogLine;
using vistel_harness::VirtualClock;

namespace {

using Limit = orv::VistelManager::FrequencyLimit;
using KeyMap = std::map<std::string, long>;
using PairMap = std::map<std::string, std::map<std::string, long>>;
using Lines = std::vector<std::pair<int, std::string>>;  // (priority, body)

class FrequencyLimitTest : public ::testing::Test {
  protected:
    void SetUp() override { VirtualClock::setNs(5000 * kNanosPerSecond); }

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
        VirtualClock::advanceSeconds(c.period - 0.5);
        EXPECT_TRUE(c.decide());
        EXPECT_EQ(linesFrom(c.name), interval(c.limited, c.period - 1));
        VirtualClock::advanceSeconds(0.5);
        EXPECT_FALSE(c.decide());
        EXPECT_EQ(linesFrom(c.name), interval(c.passed != nullptr ? c.passed : c.limited, c.period));
        VirtualClock::advanceSeconds(-1);
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

// ---- The bound on keyed maps ------------------------------------------------------------------

// The limiter's own figures: past kKeyBound keys a keyed map drops the keys whose quiet period
// has run out, scanning again after kScanStep more keys (or a quarter of what it kept).
constexpr size_t kKeyBound = 2048;
constexpr size_t kScanStep = 512;
constexpr int64_t kHourNs = 3600 * kNanosPerSecond;

// The key whose fate a test follows, and distinct others, all of three characters: short enough
// for the shortage's first integer.
constexpr char kProbe[] = "p_0";
std::string keyText(size_t i) {
    static const char kDigits[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    constexpr size_t kBase = sizeof(kDigits) - 1;
    return {kDigits[i / kBase / kBase % kBase], kDigits[i / kBase % kBase], kDigits[i % kBase]};
}

std::unique_ptr<orv::vistelOtherTimeout> pairRecord(const std::string& first,
                                                    const std::string& second) {
    auto record = std::make_unique<orv::vistelOtherTimeout>();
    snprintf(record->firstName, sizeof(record->firstName), "%s", first.c_str());
    snprintf(record->secondName, sizeof(record->secondName), "%s", second.c_str());
    return record;
}

// One keyed map of a limiter, its keys varied by `decide`: a single-key map, the first names of a
// pair map (under one second name) or the second names under one first name, or a map the
// caller keeps itself. `slot` is its row in keyCounts(), none for the caller's own.
struct KeyedMap {
    std::string name;
    std::optional<size_t> slot;
    // The interval line of a known key's record, "$" for the key, "%d" for the seconds.
    const char* intervalLine;
    std::function<bool(Limit&, const std::string& key)> decide;
};

template <typename R>
KeyedMap singleKeyMap(const char* name, size_t slot, bool (Limit::*policy)(R*)) {
    return {name, slot, "limitBy1Item() $ timeIntervalInS = %d",
            [policy](Limit& limit, const std::string& key) {
                return (limit.*policy)(keyedRecord<R>(key.c_str()).get());
            }};
}

KeyedMap firstNames(const char* name, size_t slot, bool (Limit::*policy)(orv::vistelOtherTimeout*)) {
    return {name, slot, "limitBy2Item() $ stream timeIntervalInS = %d",
            [policy](Limit& limit, const std::string& key) {
                return (limit.*policy)(pairRecord(key, "stream").get());
            }};
}

KeyedMap secondNames(const char* name, size_t slot,
                     bool (Limit::*policy)(orv::vistelOtherTimeout*)) {
    return {name, slot, "limitBy2Item() node $ timeIntervalInS = %d",
            [policy](Limit& limit, const std::string& key) {
                return (limit.*policy)(pairRecord("node", key).get());
            }};
}

KeyMap gOwnKeys;  // the caller's own map, handed to the decider directly

std::vector<KeyedMap> keyedMaps() {
    return {
            singleKeyMap("limitEventMemLeak", 0, &Limit::limitEventMemLeak),
            singleKeyMap("limitEventMemShortage", 1, &Limit::limitEventMemShortage),
            singleKeyMap("limitEventMemLimit", 2, &Limit::limitEventMemLimit),
            singleKeyMap("limitEventPreviewBufferRefLeak", 3,
                         &Limit::limitEventPreviewBufferRefLeak),
            singleKeyMap("limitEventCaptureBufferRefLeak", 4,
                         &Limit::limitEventCaptureBufferRefLeak),
            singleKeyMap("limitEventAlgoProcessTimeoutWarning", 5,
                         &Limit::limitEventAlgoProcessTimeoutWarning),
            singleKeyMap("limitEventAlgoProcessTimeoutError", 6,
                         &Limit::limitEventAlgoProcessTimeoutError),
            singleKeyMap("limitEventSnapshotTimeoutWarning", 7,
                         &Limit::limitEventSnapshotTimeoutWarning),
            singleKeyMap("limitEventSnapshotTimeoutError", 8,
                         &Limit::limitEventSnapshotTimeoutError),
            firstNames("limitEventOtherTimeoutWarning first names", 9,
                       &Limit::limitEventOtherTimeoutWarning),
            secondNames("limitEventOtherTimeoutWarning second names", 9,
                        &Limit::limitEventOtherTimeoutWarning),
            firstNames("limitEventOtherTimeoutError first names", 10,
                       &Limit::limitEventOtherTimeoutError),
            secondNames("limitEventOtherTimeoutError second names", 10,
                        &Limit::limitEventOtherTimeoutError),
            {"a map of the caller's own", std::nullopt, "limitBy1Item() $ timeIntervalInS = %d",
             [](Limit& limit, const std::string& key) { return limit.limitBy1Item(&gOwnKeys, key); }},
    };
}

// The keys a map holds and the keys each policy dropped since the process started, as the
// limiter counts them and as the manager's snapshot of its counters shows them.
struct Counts {
    size_t keys;
    std::vector<uint64_t> dropped;
    std::vector<uint64_t> snapshotDropped;
};

Counts countsOf(const Limit& limit, const KeyedMap& map) {
    Counts counts{map.slot ? 0 : gOwnKeys.size(), {}, {}};
    for (const Limit::KeyCount& count : limit.keyCounts()) counts.dropped.push_back(count.dropped);
    if (map.slot) counts.keys = limit.keyCounts()[*map.slot].keys;
    VistelCounterSnapshot snapshot = {};
    snapshot.size = sizeof(snapshot);
    EXPECT_EQ(orv::VistelManager::GetInstance()->snapshotCounters(&snapshot), 0);
    for (uint32_t slot = 0; slot < snapshot.policyCount; ++slot) {
        counts.snapshotDropped.push_back(snapshot.policies[slot].dropped);
    }
    return counts;
}

// The dropped counts since `before`, `dropped` expected for the map's own policy and none for
// any other; the snapshot shows the same figures.
void expectDropped(const KeyedMap& map, const Counts& before, const Counts& after,
                   uint64_t dropped) {
    for (size_t slot = 0; slot < Limit::kKeyedPolicies; ++slot) {
        const uint64_t expected = map.slot == slot ? dropped : 0;
        EXPECT_EQ(after.dropped[slot] - before.dropped[slot], expected) << "slot " << slot;
    }
    EXPECT_EQ(after.snapshotDropped, after.dropped);
}

// A key (the probe) recorded at the start, then, at the scan time, enough other keys to bring its
// map to `keys`. Above the bound the probe is dropped exactly when its quiet period has run out
// at the scan time, when its next record passes anyway; a probe recorded after the scan time (the
// clock went back) is kept, as once the clock is past it again its next record is limited. Its
// next record gets what it would have got had nothing been dropped (a limiter that never grew
// says so), and below the bound it is still there: its next record logs its interval, as ever.
TEST_F(FrequencyLimitTest, BoundDropsOnlyKeysWhoseNextRecordPassesAnyway) {
    const int64_t start = VirtualClock::nowNs();
    // 70 years: further than a 32-bit count of seconds reaches, so only the clock's order keeps
    // the probe, not its interval.
    const int64_t seventyYearsNs = int64_t{70} * 365 * 24 * kHourNs;
    const struct {
        const char* name;
        size_t keys;     // the map's keys once filled, the probe's included
        int64_t scanAt;  // when the map is filled, from the start
        int64_t nextAt;  // when the probe's next record comes
        bool dropped;
        bool nextLimited;
    } kCases[] = {
            {"at the bound, long expired", kKeyBound, 10 * kHourNs, 10 * kHourNs, false, false},
            {"above it, just expired", kKeyBound + 1, kHourNs, kHourNs, true, false},
            {"above it, a nanosecond short", kKeyBound + 1, kHourNs - 1, kHourNs - 1, false, true},
            {"above it, recorded after the scan", kKeyBound + 1, -kHourNs, 10 * kNanosPerSecond,
             false, true},
            {"above it, recorded 70 years after the scan", kKeyBound + 1, -seventyYearsNs,
             10 * kNanosPerSecond, false, true},
    };
    for (const KeyedMap& map : keyedMaps()) {
        for (const auto& c : kCases) {
            SCOPED_TRACE(map.name + ": " + c.name);
            bool keptAnswer;
            gOwnKeys.clear();
            {
                Limit unbounded;
                VirtualClock::setNs(start);
                EXPECT_FALSE(map.decide(unbounded, kProbe));
                VirtualClock::setNs(start + c.nextAt);
                keptAnswer = map.decide(unbounded, kProbe);
            }
            EXPECT_EQ(keptAnswer, c.nextLimited) << "what a key that was kept gets";

            gOwnKeys.clear();
            Limit limit;
            VirtualClock::setNs(start);
            EXPECT_FALSE(map.decide(limit, kProbe));
            VirtualClock::setNs(start + c.scanAt);
            const Counts before = countsOf(limit, map);
            for (size_t i = 1; i < c.keys; ++i) EXPECT_FALSE(map.decide(limit, keyText(i)));
            const Counts after = countsOf(limit, map);
            EXPECT_EQ(after.keys, c.keys - c.dropped);
            expectDropped(map, before, after, c.dropped);

            VirtualClock::setNs(start + c.nextAt);
            mLog.clear();
            EXPECT_EQ(map.decide(limit, kProbe), keptAnswer);
            std::string line = map.intervalLine;
            line.replace(line.find('$'), 1, kProbe);
            const int seconds = static_cast<int>(c.nextAt / kNanosPerSecond);
            EXPECT_EQ(mLog.withBody(withSeconds(line, seconds)).size(), c.dropped ? 0u : 1u)
                    << "a kept key's record logs its interval, a dropped one's none";
        }
    }
    VirtualClock::setNs(start);
}

// A scan of a pair map's first names drops every expired pair, keeping the first name while one
// of its pairs is fresh; the fresh pair stays limited, the expired one passes again.
TEST_F(FrequencyLimitTest, BoundDropsExpiredPairsOfAFirstNameItKeeps) {
    for (auto policy :
         {&Limit::limitEventOtherTimeoutWarning, &Limit::limitEventOtherTimeoutError}) {
        Limit limit;
        const size_t slot = policy == &Limit::limitEventOtherTimeoutWarning ? 9 : 10;
        auto decide = [&](const std::string& first, const std::string& second) {
            return (limit.*policy)(pairRecord(first, second).get());
        };
        EXPECT_FALSE(decide("node", "old"));
        VirtualClock::advanceSeconds(1800);
        EXPECT_FALSE(decide("node", "young"));
        VirtualClock::advanceSeconds(1800);
        const uint64_t before = limit.keyCounts()[slot].dropped;
        for (size_t i = 1; i <= kKeyBound; ++i) EXPECT_FALSE(decide(keyText(i), "stream"));
        EXPECT_EQ(limit.keyCounts()[slot].dropped - before, 1u);
        EXPECT_EQ(limit.keyCounts()[slot].keys, kKeyBound + 1);
        EXPECT_TRUE(decide("node", "young"));
        EXPECT_FALSE(decide("node", "old"));
    }
}

// A pair map's first names and the second names under one of them keep separate scan sizes:
// one level grown past the bound with fresh keys (its next scan put off) does not put off the
// other's first scan, which drops the expired pair it finds.
TEST_F(FrequencyLimitTest, PairMapLevelsAreScannedApart) {
    const struct {
        const char* name;
        bool firstNamesGrowFirst;
    } kCases[] = {
            {"first names, then second names", true},
            {"second names, then first names", false},
    };
    for (auto policy :
         {&Limit::limitEventOtherTimeoutWarning, &Limit::limitEventOtherTimeoutError}) {
        for (const auto& c : kCases) {
            SCOPED_TRACE(c.name);
            Limit limit;
            const size_t slot = policy == &Limit::limitEventOtherTimeoutWarning ? 9 : 10;
            auto decide = [&](const std::string& first, const std::string& second) {
                return (limit.*policy)(pairRecord(first, second).get());
            };
            auto growFirstNames = [&](size_t count) {
                for (size_t i = 1; i <= count; ++i) EXPECT_FALSE(decide(keyText(i), "stream"));
            };
            auto growSecondNames = [&](size_t count) {
                for (size_t i = 1; i <= count; ++i) EXPECT_FALSE(decide("node", keyText(i)));
            };
            uint64_t before;
            if (c.firstNamesGrowFirst) {
                // The probe pair ("node", kProbe) and 2,048 other first names, all fresh.
                EXPECT_FALSE(decide("node", kProbe));
                growFirstNames(kKeyBound);
                VirtualClock::advanceSeconds(3600);
                before = limit.keyCounts()[slot].dropped;
                growSecondNames(kKeyBound);  // "node" now has 2,049 second names
            } else {
                // The probe first name, then 2,049 fresh second names under "node", then first
                // names up to 2,049 with "node" and the probe.
                EXPECT_FALSE(decide(kProbe, "stream"));
                VirtualClock::advanceSeconds(3600);
                growSecondNames(kKeyBound + 1);
                before = limit.keyCounts()[slot].dropped;
                growFirstNames(kKeyBound - 1);
            }
            EXPECT_EQ(limit.keyCounts()[slot].dropped - before, 1u);
            EXPECT_EQ(limit.keyCounts()[slot].keys, 2 * kKeyBound);
        }
    }
}

// Above the bound a map is not scanned on every key added: once a scan keeps what it finds (all
// fresh), the next waits until the map has grown by kScanStep keys, or by a quarter of what the
// last scan kept when that is more. Keys that run out meanwhile stay until then.
TEST_F(FrequencyLimitTest, ScansAboveTheBoundAreSpacedOut) {
    const struct {
        size_t freshKeys;  // added within their hour, so every scan keeps them all
        size_t nextScan;   // the map's size at which it is next scanned
    } kCases[] = {
            {kKeyBound + 1, kKeyBound + 1 + kScanStep},
            // Scanned at 2,049, 2,561 (+512), 3,201 (+640), 4,001 (+800); next at 5,001 (+1,000).
            {4001, 5001},
    };
    const std::vector<KeyedMap> maps = keyedMaps();
    // A single-key map, the second names under one first name, the first names of a pair map.
    for (const KeyedMap& map : {maps[0], maps[10], maps[11]}) {
        for (const auto& c : kCases) {
            SCOPED_TRACE(map.name + ", fresh keys " + std::to_string(c.freshKeys));
            Limit limit;
            const Counts before = countsOf(limit, map);
            size_t key = 0;
            while (key < c.freshKeys) EXPECT_FALSE(map.decide(limit, keyText(key++)));
            expectDropped(map, before, countsOf(limit, map), 0);
            VirtualClock::advanceSeconds(3600);
            while (key < c.nextScan - 1) EXPECT_FALSE(map.decide(limit, keyText(key++)));
            Counts counts = countsOf(limit, map);
            EXPECT_EQ(counts.keys, c.nextScan - 1);
            expectDropped(map, before, counts, 0);
            EXPECT_FALSE(map.decide(limit, keyText(key++)));
            counts = countsOf(limit, map);
            EXPECT_EQ(counts.keys, c.nextScan - c.freshKeys) << "those added after the hour";
            expectDropped(map, before, counts, c.freshKeys);
        }
    }
}

// A leaking caller naming every record differently: 100,000 distinct keys, one every 3.6 s, so
// about 1,000 are younger than an hour at any time. The map stays at the bound instead of
// growing by a key a record, and every key it let go is counted.
TEST_F(FrequencyLimitTest, DistinctKeysWithoutEndStayNearTheBound) {
    constexpr size_t kDistinctKeys = 100000;
    const std::vector<KeyedMap> maps = keyedMaps();
    // A single-key map, the first names of a pair map, the second names under one first name.
    for (const KeyedMap& map : {maps[0], maps[9], maps[12]}) {
        SCOPED_TRACE(map.name);
        Limit limit;
        const Counts before = countsOf(limit, map);
        size_t most = 0;
        for (size_t i = 0; i < kDistinctKeys; ++i) {
            EXPECT_FALSE(map.decide(limit, keyText(i)));
            VirtualClock::advanceSeconds(3.6);
            if (i % 64 == 0 || i + 1 == kDistinctKeys) {
                most = std::max(most, countsOf(limit, map).keys);
            }
        }
        const Counts after = countsOf(limit, map);
        EXPECT_LE(most, kKeyBound);
        EXPECT_GT(most, kKeyBound - 64);
        expectDropped(map, before, after, kDistinctKeys - after.keys);
    }
}

}  // namespace
}  // namespace vistel_test
