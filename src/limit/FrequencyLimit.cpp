// Report rate limiter: one last-report time per kind, per key or per key pair.
#define LOG_TAG "VistelManager"

#include <VistelManager.h>
#include <utils/Timers.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <type_traits>

#include "../core/FieldText.h"
#include "../core/Immortal.h"
#include "../core/VistelLog.h"

namespace orv {

namespace {

constexpr int32_t kQuietPeriodS = 3600;
constexpr int32_t kDumpSysTracePeriodS = 360;
constexpr int32_t kVideoPerfPeriodS = 600;
constexpr int32_t kBootPerfPeriodS = 600;
constexpr int32_t kSnapshotRetFrmIntervalPeriodS = 60;
constexpr long kNanosPerSecond = 1000000000;

// A keyed map holds one key per distinct text for as long as the process lives unless something
// drops it, and a leaking caller that names every record differently grows it without end: a
// million distinct 24-character memory leak names take ~125 MB resident, ~128 bytes a key. So
// once a map holds more than kKeyBound keys, adding one may drop the keys whose quiet period has
// run out, whose next record passes anyway. The camera keeps far fewer: the camera day names at
// most 2 keys per map, the 8-thread stress test 11. While fewer than kKeyBound - kScanStep (1,536)
// keys of a map are younger than an hour, the map never holds more than kKeyBound + 1 keys:
// ~260 KB at 128 bytes a key, under 3 MB for all 11 maps. Keys younger than an hour are never
// dropped: a larger burst stays for its hour, and after it until new keys bring on a scan. The
// pair maps are bounded level by level, their first names and, under each, its second names, so
// the same condition caps one at (kKeyBound + 1)^2 pairs; the camera sends one second name per
// first name.
constexpr size_t kKeyBound = 2048;
// How much a map above the bound grows before it is scanned again, when the last scan kept fewer
// than 4 * kScanStep keys (otherwise a quarter of what it kept): a map whose keys are all still
// fresh costs a scan per step, a few node visits per key added, not a scan per key.
constexpr size_t kScanStep = 512;

long now() {
    return systemTime(SYSTEM_TIME_MONOTONIC);
}

// Whole seconds since `since`, truncated, as the 32-bit value the log lines print.
int32_t intervalSeconds(long now, long since) {
    return static_cast<int32_t>((now - since) / kNanosPerSecond);
}

// The rule under which a decider lets a record of a known key through after its quiet period,
// without the clock running backwards. A key for which it holds at `now` is one whose next record
// passes at any later time, so it may be dropped; a key stored after `now` may not: once the clock
// is back past it, the key's next record would be limited.
bool quietPeriodOver(long stored, long now) {
    return now >= stored && intervalSeconds(now, stored) >= kQuietPeriodS;
}

using KeyMap = std::map<std::string, long>;
using PairMap = std::map<std::string, KeyMap>;

// What the bound keeps per keyed map, outside the limiter's layout: the keys dropped for the life
// of the process (pairs for a pair map), and the size at which the map is next scanned. Only the
// manager's limiter lives in a process; a second one (as tests build) shares these schedules,
// which then only move when a scan happens, never what a decision answers. The last slot serves
// maps a caller hands the deciders itself.
struct KeyedMapState {
    std::atomic<uint64_t> dropped{0};
    std::atomic<size_t> scanAt{0};       // of the map, or of a pair map's first names
    std::atomic<size_t> innerScanAt{0};  // of a pair map's second names, one for all its names
};
// Constant-initialised and never destroyed: nothing runs for it at load or at exit.
static_assert(std::is_trivially_destructible_v<KeyedMapState>);
VISTEL_CONSTINIT KeyedMapState gKeyedMaps[VistelManager::FrequencyLimit::kKeyedPolicies + 1];
constexpr auto kRelaxed = std::memory_order_relaxed;

// The slot of `map` among `maps` (the limiter's own, in keyCounts() order), or the last one.
KeyedMapState& keyedMapState(
        const std::array<const void*, VistelManager::FrequencyLimit::kKeyedPolicies>& maps,
        const void* map) {
    const auto it = std::find(maps.begin(), maps.end(), map);
    return gKeyedMaps[it - maps.begin()];
}

size_t dropExpired(KeyMap& keys, long now) {
    size_t dropped = 0;
    for (auto it = keys.begin(); it != keys.end();) {
        if (quietPeriodOver(it->second, now)) {
            it = keys.erase(it);
            ++dropped;
        } else {
            ++it;
        }
    }
    return dropped;
}

// Every expired pair, and a first name once none of its pairs is left.
size_t dropExpired(PairMap& pairs, long now) {
    size_t dropped = 0;
    for (auto it = pairs.begin(); it != pairs.end();) {
        dropped += dropExpired(it->second, now);
        it = it->second.empty() ? pairs.erase(it) : std::next(it);
    }
    return dropped;
}

// Called once a key was added at `now`: a map above the bound that has grown to its scan size
// drops what has expired. The key just added is fresh, so it stays.
template <typename Map>
void boundKeys(Map& map, long now, std::atomic<size_t>& scanAt, std::atomic<uint64_t>& dropped) {
    if (map.size() <= kKeyBound || map.size() < scanAt.load(kRelaxed)) return;
    dropped.fetch_add(dropExpired(map, now), kRelaxed);
    const size_t kept = map.size();
    scanAt.store(kept + std::max(kScanStep, kept / 4), kRelaxed);
}

size_t keysIn(const KeyMap& keys) {
    return keys.size();
}

size_t keysIn(const PairMap& pairs) {
    size_t count = 0;
    for (const auto& [first, seconds] : pairs) count += seconds.size();
    return count;
}

// The thread holding a limiter's lock, and which lock: the limiter logs while it decides, and a
// process logger that reports (or dumps) on one of those lines comes back on the same thread.
VISTEL_CONSTINIT std::atomic<uintptr_t> gLockHolder{0};
VISTEL_CONSTINIT std::atomic<const VistelManager::FrequencyLimit::Mutex*> gLockHeld{nullptr};

uintptr_t thisThread() {
    return reinterpret_cast<uintptr_t>(__builtin_thread_pointer());
}

bool heldByThisThread(const VistelManager::FrequencyLimit::Mutex* mutex) {
    return gLockHolder.load(std::memory_order_relaxed) == thisThread() &&
           gLockHeld.load(std::memory_order_relaxed) == mutex;
}

// The limiter's mutex type. Clang does not carry the capability over to an alias, so this one
// repeats it.
typedef VistelManager::FrequencyLimit::Mutex Mutex VISTEL_THREAD_ATTRIBUTE(capability("mutex"));

// Holds a limiter's mutex for a scope, and tells heldByThisThread() so while it does. The lock's
// own functions are where clang's checking stops: the POSIX calls inside carry no attributes.
class VISTEL_THREAD_ATTRIBUTE(scoped_lockable) ScopedLock {
  public:
    explicit ScopedLock(Mutex& mutex) VISTEL_THREAD_ATTRIBUTE(acquire_capability(mutex))
        : mMutex(mutex) {
        pthread_mutex_lock(&mMutex);
        held(&mMutex);
    }
    ~ScopedLock() VISTEL_THREAD_ATTRIBUTE(release_capability()) { unlock(mMutex); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

    // Waits at most `bound` for the lock, and not at all when this thread holds it already.
    static bool tryLockFor(Mutex& mutex, std::chrono::milliseconds bound)
            VISTEL_THREAD_ATTRIBUTE(try_acquire_capability(true, mutex))
                    VISTEL_THREAD_ATTRIBUTE(no_thread_safety_analysis) {
        timespec until{};
        clock_gettime(CLOCK_REALTIME, &until);
        const long long ns = until.tv_nsec + std::chrono::nanoseconds(bound).count();
        until.tv_sec += static_cast<time_t>(ns / 1000000000);
        until.tv_nsec = static_cast<long>(ns % 1000000000);
        if (heldByThisThread(&mutex) || pthread_mutex_timedlock(&mutex, &until) != 0) return false;
        held(&mutex);
        return true;
    }
    static void unlock(Mutex& mutex) VISTEL_THREAD_ATTRIBUTE(release_capability(mutex))
            VISTEL_THREAD_ATTRIBUTE(no_thread_safety_analysis) {
        gLockHolder.store(0, std::memory_order_relaxed);
        pthread_mutex_unlock(&mutex);
    }

  private:
    static void held(const Mutex* mutex) {
        gLockHeld.store(mutex, std::memory_order_relaxed);
        gLockHolder.store(thisThread(), std::memory_order_relaxed);
    }

    Mutex& mMutex;
};

// The shape every record policy shares: refuse a null record (without locking), otherwise
// decide under the limiter's mutex. A decision asked again on the thread that is making one (its
// log line went to a process logger that reports) would wait on itself for ever: it is limited
// instead, and the limiter's state is left alone. Each policy's `decide` declares that it needs
// the limiter's mutex, which clang then checks against every map it touches; that this function
// holds it when calling `decide` is the one step clang takes on trust.
template <typename Record, typename Decide>
bool decideLocked(const char* policy, const Record* data, Mutex& mutex, Decide decide)
        VISTEL_THREAD_ATTRIBUTE(no_thread_safety_analysis) {
    if (data == nullptr) {
        VISTEL_LOG_AT(ANDROID_LOG_ERROR, policy, "%s() error: input ptr is NULL", policy);
        return true;
    }
    if (heldByThisThread(&mutex)) return true;
    ScopedLock lock(mutex);
    return decide();
}

// The rule of the self-contained policies, made atomic: two simultaneous events never both
// pass. Returns what happened so the caller can log it in its own words.
enum class Outcome { kFirst, kPassed, kLimited, kBackwards };
struct Decision {
    Outcome outcome;
    int32_t intervalS;
};

Decision decideAtomically(std::atomic<long>& last, int32_t periodS) {
    long stored = last.load();
    for (;;) {
        // Read the clock after every lost race: the winner's time is newer than ours was.
        long current = now();
        if (stored == 0) {
            if (last.compare_exchange_weak(stored, current)) return {Outcome::kFirst, 0};
        } else if (current >= stored) {
            int32_t intervalS = intervalSeconds(current, stored);
            if (intervalS < periodS) return {Outcome::kLimited, intervalS};
            if (last.compare_exchange_weak(stored, current)) return {Outcome::kPassed, intervalS};
        } else if (last.compare_exchange_weak(stored, current)) {
            return {Outcome::kBackwards, 0};
        }
    }
}

}  // namespace

// The keyed policies in the order of keyCounts() and the dump, each with the map it keeps.
#define VISTEL_KEYED_POLICIES(X)                                             \
    X(limitEventMemLeak, mMemLeakRecord)                                     \
    X(limitEventMemShortage, mMemShortageRecord)                             \
    X(limitEventMemLimit, mMemLimitRecord)                                   \
    X(limitEventPreviewBufferRefLeak, mPreviewBufferRefLeakRecord)           \
    X(limitEventCaptureBufferRefLeak, mCaptureBufferRefLeakRecord)           \
    X(limitEventAlgoProcessTimeoutWarning, mAlgoProcessTimeoutWarningRecord) \
    X(limitEventAlgoProcessTimeoutError, mAlgoProcessTimeoutErrorRecord)     \
    X(limitEventSnapshotTimeoutWarning, mSnapshotTimeoutWarningRecord)       \
    X(limitEventSnapshotTimeoutError, mSnapshotTimeoutErrorRecord)           \
    X(limitEventOtherTimeoutWarning, mOtherTimeoutWarningRecord)             \
    X(limitEventOtherTimeoutError, mOtherTimeoutErrorRecord)
#define VISTEL_MAP_ADDRESS(policy, map) static_cast<const void*>(&(map)),

VistelManager::FrequencyLimit::FrequencyLimit()
    : mMemEfficiencyWarningTime(0),
      mMemAllocFailTime(0),
      mDumpSysTraceTime(0),
      mVideoPerfTime(0),
      mBootPerfTime(0),
      mSnapshotRetFrmIntervalTime(0) {
    pthread_mutex_init(&mMutex, nullptr);
    // A new limiter starts with empty maps, so with no scan put off by a previous one's.
    for (KeyedMapState& state : gKeyedMaps) {
        state.scanAt.store(0, kRelaxed);
        state.innerScanAt.store(0, kRelaxed);
    }
}

VistelManager::FrequencyLimit::~FrequencyLimit() {
    pthread_mutex_destroy(&mMutex);
}

bool VistelManager::FrequencyLimit::limitBy0Item(long* time) const {
    if (time == nullptr) return true;
    long current = now();
    if (*time == 0) {
        *time = current;
        return false;
    }
    if (current >= *time) {
        int32_t timeIntervalInS = intervalSeconds(current, *time);
        VLOGI("%s() timeIntervalInS = %d", __func__, timeIntervalInS);
        if (timeIntervalInS < kQuietPeriodS) return true;
        *time = current;
        return false;
    }
    // The stored time lies ahead (the clock went back): never block reporting on it.
    VLOGE("%s() timeStamp < timeRecord", __func__);
    *time = current;
    return false;
}

bool VistelManager::FrequencyLimit::limitBy1Item(std::map<std::string, long>* record,
                                                 std::string key) const {
    if (record == nullptr) return true;
    long current = now();
    auto it = record->find(key);
    if (it == record->end()) {
        record->emplace(std::move(key), current);
        KeyedMapState& state = keyedMapState({VISTEL_KEYED_POLICIES(VISTEL_MAP_ADDRESS)}, record);
        boundKeys(*record, current, state.scanAt, state.dropped);
        return false;
    }
    if (current >= it->second) {
        int32_t timeIntervalInS = intervalSeconds(current, it->second);
        VLOGI("%s() %s timeIntervalInS = %d", __func__, key.c_str(), timeIntervalInS);
        if (timeIntervalInS < kQuietPeriodS) return true;
        it->second = current;
        return false;
    }
    VLOGE("%s() %s timeStamp < it->second", __func__, key.c_str());
    it->second = current;
    return false;
}

bool VistelManager::FrequencyLimit::limitBy2Item(
        std::map<std::string, std::map<std::string, long>>* record, std::string key1,
        std::string key2) const {
    if (record == nullptr) return true;
    long current = now();
    auto outer = record->find(key1);
    if (outer == record->end()) {
        record->emplace(std::move(key1), std::map<std::string, long>{{std::move(key2), current}});
        KeyedMapState& state = keyedMapState({VISTEL_KEYED_POLICIES(VISTEL_MAP_ADDRESS)}, record);
        boundKeys(*record, current, state.scanAt, state.dropped);
        return false;
    }
    auto it = outer->second.find(key2);
    if (it == outer->second.end()) {
        outer->second.emplace(std::move(key2), current);
        KeyedMapState& state = keyedMapState({VISTEL_KEYED_POLICIES(VISTEL_MAP_ADDRESS)}, record);
        boundKeys(outer->second, current, state.innerScanAt, state.dropped);
        return false;
    }
    if (current >= it->second) {
        int32_t timeIntervalInS = intervalSeconds(current, it->second);
        VLOGI("%s() %s %s timeIntervalInS = %d", __func__, key1.c_str(), key2.c_str(),
              timeIntervalInS);
        if (timeIntervalInS < kQuietPeriodS) return true;
        it->second = current;
        return false;
    }
    VLOGE("%s() %s %s timeStamp < it2->second", __func__, key1.c_str(), key2.c_str());
    it->second = current;
    return false;
}

bool VistelManager::FrequencyLimit::limitEventMemLeak(vistelMemLeak* data) {
    return decideLocked(__func__, data, mMutex, [&]() VISTEL_REQUIRES(mMutex) {
        return limitBy1Item(&mMemLeakRecord, FieldText(data->name).str());
    });
}

bool VistelManager::FrequencyLimit::limitEventMemShortage(vistelMemShortage* data) {
    // Keyed by the raw bytes of the first integer read as text, up to the first zero byte: an
    // old quirk the reported data depends on, kept as it is. An integer without a zero byte runs
    // on into the fields after it, as it always has; the record's end bounds the read.
    return decideLocked(__func__, data, mMutex, [&]() VISTEL_REQUIRES(mMutex) {
        const auto* first = reinterpret_cast<const char*>(&data->value1);
        const auto* end = reinterpret_cast<const char*>(data) + sizeof(*data);
        const FieldText key(first, static_cast<size_t>(end - first));
        return limitBy1Item(&mMemShortageRecord, key.str());
    });
}

bool VistelManager::FrequencyLimit::limitEventMemLimit(vistelMemLimit* data) {
    return decideLocked(__func__, data, mMutex, [&]() VISTEL_REQUIRES(mMutex) {
        return limitBy1Item(&mMemLimitRecord, FieldText(data->name).str());
    });
}

bool VistelManager::FrequencyLimit::limitEventMemEfficiencyWarning(vistelMemEfficiencyWarning* data) {
    return decideLocked(__func__, data, mMutex, [&]() VISTEL_REQUIRES(mMutex) {
        return limitBy0Item(&mMemEfficiencyWarningTime);
    });
}

bool VistelManager::FrequencyLimit::limitEventMemAllocFail(vistelMemAllocFail* data) {
    return decideLocked(__func__, data, mMutex,
                        [&]() VISTEL_REQUIRES(mMutex) { return limitBy0Item(&mMemAllocFailTime); });
}

bool VistelManager::FrequencyLimit::limitEventPreviewBufferRefLeak(vistelPreviewBufferRefLeak* data) {
    return decideLocked(__func__, data, mMutex, [&]() VISTEL_REQUIRES(mMutex) {
        return limitBy1Item(&mPreviewBufferRefLeakRecord, FieldText(data->name).str());
    });
}

bool VistelManager::FrequencyLimit::limitEventCaptureBufferRefLeak(vistelCaptureBufferRefLeak* data) {
    return decideLocked(__func__, data, mMutex, [&]() VISTEL_REQUIRES(mMutex) {
        return limitBy1Item(&mCaptureBufferRefLeakRecord, FieldText(data->name).str());
    });
}

bool VistelManager::FrequencyLimit::limitEventAlgoProcessTimeoutWarning(
        vistelAlgoProcessTimeout* data) {
    return decideLocked(__func__, data, mMutex, [&]() VISTEL_REQUIRES(mMutex) {
        return limitBy1Item(&mAlgoProcessTimeoutWarningRecord, FieldText(data->name).str());
    });
}

bool VistelManager::FrequencyLimit::limitEventAlgoProcessTimeoutError(vistelAlgoProcessTimeout* data) {
    return decideLocked(__func__, data, mMutex, [&]() VISTEL_REQUIRES(mMutex) {
        return limitBy1Item(&mAlgoProcessTimeoutErrorRecord, FieldText(data->name).str());
    });
}

bool VistelManager::FrequencyLimit::limitEventSnapshotTimeoutWarning(vistelSnapshotTimeout* data) {
    return decideLocked(__func__, data, mMutex, [&]() VISTEL_REQUIRES(mMutex) {
        return limitBy1Item(&mSnapshotTimeoutWarningRecord, FieldText(data->name).str());
    });
}

bool VistelManager::FrequencyLimit::limitEventSnapshotTimeoutError(vistelSnapshotTimeout* data) {
    return decideLocked(__func__, data, mMutex, [&]() VISTEL_REQUIRES(mMutex) {
        return limitBy1Item(&mSnapshotTimeoutErrorRecord, FieldText(data->name).str());
    });
}

bool VistelManager::FrequencyLimit::limitEventOtherTimeoutWarning(vistelOtherTimeout* data) {
    return decideLocked(__func__, data, mMutex, [&]() VISTEL_REQUIRES(mMutex) {
        return limitBy2Item(&mOtherTimeoutWarningRecord, FieldText(data->firstName).str(),
                            FieldText(data->secondName).str());
    });
}

bool VistelManager::FrequencyLimit::limitEventOtherTimeoutError(vistelOtherTimeout* data) {
    return decideLocked(__func__, data, mMutex, [&]() VISTEL_REQUIRES(mMutex) {
        return limitBy2Item(&mOtherTimeoutErrorRecord, FieldText(data->firstName).str(),
                            FieldText(data->secondName).str());
    });
}

std::array<VistelManager::FrequencyLimit::KeyCount, VistelManager::FrequencyLimit::kKeyedPolicies>
VistelManager::FrequencyLimit::keyCounts() const {
#define VISTEL_KEY_COUNT(policy, map) {#policy, keysIn(map), 0},
    // A dump waits for a decision in progress, but not for ever: a reporter stuck under the lock
    // (its log line went to a logger that blocks) must not take the dump with it.
    if (!ScopedLock::tryLockFor(mMutex, std::chrono::milliseconds(100))) {
#define VISTEL_KEY_BUSY(policy, map) {#policy, KeyCount::kBusy, 0},
        return {{VISTEL_KEYED_POLICIES(VISTEL_KEY_BUSY)}};
#undef VISTEL_KEY_BUSY
    }
    std::array<KeyCount, kKeyedPolicies> counts = {{VISTEL_KEYED_POLICIES(VISTEL_KEY_COUNT)}};
#undef VISTEL_KEY_COUNT
    ScopedLock::unlock(mMutex);
    for (size_t i = 0; i < counts.size(); ++i) {
        counts[i].dropped = gKeyedMaps[i].dropped.load(kRelaxed);
    }
    return counts;
}

#undef VISTEL_MAP_ADDRESS
#undef VISTEL_KEYED_POLICIES

// The four self-contained policies log in their own words and at their own levels.

namespace {

// The trace-dump and video policies share their words; the trace-dump policy logs its interval
// at error level and also logs its first event.
bool decideWithIntervalLine(std::atomic<long>& last, int32_t periodS, const char* policy,
                            int intervalPriority, bool logFirst) {
    Decision decision = decideAtomically(last, periodS);
    switch (decision.outcome) {
        case Outcome::kFirst:
            if (logFirst) VISTEL_LOG_AT(ANDROID_LOG_ERROR, policy, "init last report ts");
            return false;
        case Outcome::kBackwards:
            VISTEL_LOG_AT(ANDROID_LOG_ERROR, policy, "%s() timeStamp < timeRecord", policy);
            return false;
        case Outcome::kPassed:
        case Outcome::kLimited:
            VISTEL_LOG_AT(intervalPriority, policy, "%s() timeIntervalInS = %d", policy,
                          decision.intervalS);
            break;
    }
    return decision.outcome == Outcome::kLimited;
}

}  // namespace

bool VistelManager::FrequencyLimit::LimitDumpSysTraceError() {
    return decideWithIntervalLine(mDumpSysTraceTime, kDumpSysTracePeriodS, __func__,
                                  ANDROID_LOG_ERROR, /*logFirst=*/true);
}

bool VistelManager::FrequencyLimit::limitEventVideoPerf() {
    return decideWithIntervalLine(mVideoPerfTime, kVideoPerfPeriodS, __func__, ANDROID_LOG_INFO,
                                  /*logFirst=*/false);
}

bool VistelManager::FrequencyLimit::limitEventBootPerf() {
    Decision decision = decideAtomically(mBootPerfTime, kBootPerfPeriodS);
    switch (decision.outcome) {
        case Outcome::kFirst:
            VLOGI("%s() *time = 0", __func__);
            return false;
        case Outcome::kBackwards:
            VLOGI("%s() timeStamp < timeRecord", __func__);
            return false;
        case Outcome::kLimited:
            VLOGI("%s() timeIntervalInS = %d, limit=%d, return true", __func__, decision.intervalS,
                  kBootPerfPeriodS);
            return true;
        case Outcome::kPassed:
            VLOGI("%s() timeIntervalInS = %d, limit=%d, return false", __func__, decision.intervalS,
                  kBootPerfPeriodS);
            return false;
    }
    return false;
}

bool VistelManager::FrequencyLimit::limitEventSnapshotRetFrmIntervalError() {
    Decision decision =
            decideAtomically(mSnapshotRetFrmIntervalTime, kSnapshotRetFrmIntervalPeriodS);
    switch (decision.outcome) {
        case Outcome::kFirst:
            return false;
        case Outcome::kBackwards:
            VLOGE("timeStamp < timeRecord, reinit last report ts");
            return false;
        case Outcome::kPassed:
        case Outcome::kLimited:
            VLOGI("timeIntervalInS = %d", decision.intervalS);
            break;
    }
    return decision.outcome == Outcome::kLimited;
}

}  // namespace orv
