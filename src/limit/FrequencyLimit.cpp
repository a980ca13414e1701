// Report rate limiter: one last-report time per kind, per key or per key pair.
#define LOG_TAG "VistelManager"

#include <VistelManager.h>
#include <utils/Timers.h>

#include <cstdint>

#include "../core/FieldText.h"
#include "../core/VistelLog.h"

namespace orv {

namespace {

constexpr int32_t kQuietPeriodS = 3600;
constexpr int32_t kDumpSysTracePeriodS = 360;
constexpr int32_t kVideoPerfPeriodS = 600;
constexpr int32_t kBootPerfPeriodS = 600;
constexpr int32_t kSnapshotRetFrmIntervalPeriodS = 60;
constexpr long kNanosPerSecond = 1000000000;

long now() {
    return systemTime(SYSTEM_TIME_MONOTONIC);
}

// Whole seconds since `since`, truncated, as the 32-bit value the log lines print.
int32_t intervalSeconds(long now, long since) {
    return static_cast<int32_t>((now - since) / kNanosPerSecond);
}

class ScopedLock {
  public:
    explicit ScopedLock(pthread_mutex_t* mutex) : mMutex(mutex) { pthread_mutex_lock(mMutex); }
    ~ScopedLock() { pthread_mutex_unlock(mMutex); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

  private:
    pthread_mutex_t* mMutex;
};

// The shape every record policy shares: refuse a null record (without locking), otherwise
// decide under the limiter's mutex.
template <typename Record, typename Decide>
bool decideLocked(const char* policy, const Record* data, pthread_mutex_t* mutex, Decide decide) {
    if (data == nullptr) {
        VISTEL_LOG_AT(ANDROID_LOG_ERROR, policy, "%s() error: input ptr is NULL", policy);
        return true;
    }
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

VistelManager::FrequencyLimit::FrequencyLimit()
    : mMemEfficiencyWarningTime(0),
      mMemAllocFailTime(0),
      mDumpSysTraceTime(0),
      mVideoPerfTime(0),
      mBootPerfTime(0),
      mSnapshotRetFrmIntervalTime(0) {
    pthread_mutex_init(&mMutex, nullptr);
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
        return false;
    }
    auto it = outer->second.find(key2);
    if (it == outer->second.end()) {
        outer->second.emplace(std::move(key2), current);
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
    return decideLocked(__func__, data, &mMutex,
                        [&] { return limitBy1Item(&mMemLeakRecord, FieldText(data->name).str()); });
}

bool VistelManager::FrequencyLimit::limitEventMemShortage(vistelMemShortage* data) {
    // Keyed by the raw bytes of the first integer read as text, up to the first zero byte: an
    // old quirk the reported data depends on, kept as it is. An integer without a zero byte runs
    // on into the fields after it, as it always has; the record's end bounds the read.
    return decideLocked(__func__, data, &mMutex, [&] {
        const auto* first = reinterpret_cast<const char*>(&data->value1);
        const auto* end = reinterpret_cast<const char*>(data) + sizeof(*data);
        const FieldText key(first, static_cast<size_t>(end - first));
        return limitBy1Item(&mMemShortageRecord, key.str());
    });
}

bool VistelManager::FrequencyLimit::limitEventMemLimit(vistelMemLimit* data) {
    return decideLocked(__func__, data, &mMutex, [&] {
        return limitBy1Item(&mMemLimitRecord, FieldText(data->name).str());
    });
}

bool VistelManager::FrequencyLimit::limitEventMemEfficiencyWarning(vistelMemEfficiencyWarning* data) {
    return decideLocked(__func__, data, &mMutex,
                        [&] { return limitBy0Item(&mMemEfficiencyWarningTime); });
}

bool VistelManager::FrequencyLimit::limitEventMemAllocFail(vistelMemAllocFail* data) {
    return decideLocked(__func__, data, &mMutex, [&] { return limitBy0Item(&mMemAllocFailTime); });
}

bool VistelManager::FrequencyLimit::limitEventPreviewBufferRefLeak(vistelPreviewBufferRefLeak* data) {
    return decideLocked(__func__, data, &mMutex, [&] {
        return limitBy1Item(&mPreviewBufferRefLeakRecord, FieldText(data->name).str());
    });
}

bool VistelManager::FrequencyLimit::limitEventCaptureBufferRefLeak(vistelCaptureBufferRefLeak* data) {
    return decideLocked(__func__, data, &mMutex, [&] {
        return limitBy1Item(&mCaptureBufferRefLeakRecord, FieldText(data->name).str());
    });
}

bool VistelManager::FrequencyLimit::limitEventAlgoProcessTimeoutWarning(
        vistelAlgoProcessTimeout* data) {
    return decideLocked(__func__, data, &mMutex, [&] {
        return limitBy1Item(&mAlgoProcessTimeoutWarningRecord, FieldText(data->name).str());
    });
}

bool VistelManager::FrequencyLimit::limitEventAlgoProcessTimeoutError(vistelAlgoProcessTimeout* data) {
    return decideLocked(__func__, data, &mMutex, [&] {
        return limitBy1Item(&mAlgoProcessTimeoutErrorRecord, FieldText(data->name).str());
    });
}

bool VistelManager::FrequencyLimit::limitEventSnapshotTimeoutWarning(vistelSnapshotTimeout* data) {
    return decideLocked(__func__, data, &mMutex, [&] {
        return limitBy1Item(&mSnapshotTimeoutWarningRecord, FieldText(data->name).str());
    });
}

bool VistelManager::FrequencyLimit::limitEventSnapshotTimeoutError(vistelSnapshotTimeout* data) {
    return decideLocked(__func__, data, &mMutex, [&] {
        return limitBy1Item(&mSnapshotTimeoutErrorRecord, FieldText(data->name).str());
    });
}

bool VistelManager::FrequencyLimit::limitEventOtherTimeoutWarning(vistelOtherTimeout* data) {
    return decideLocked(__func__, data, &mMutex, [&] {
        return limitBy2Item(&mOtherTimeoutWarningRecord, FieldText(data->firstName).str(),
                            FieldText(data->secondName).str());
    });
}

bool VistelManager::FrequencyLimit::limitEventOtherTimeoutError(vistelOtherTimeout* data) {
    return decideLocked(__func__, data, &mMutex, [&] {
        return limitBy2Item(&mOtherTimeoutErrorRecord, FieldText(data->firstName).str(),
                            FieldText(data->secondName).str());
    });
}

std::array<VistelManager::FrequencyLimit::KeyCount, VistelManager::FrequencyLimit::kKeyedPolicies>
VistelManager::FrequencyLimit::keyCounts() const {
    auto pairs = [](const std::map<std::string, std::map<std::string, long>>& record) {
        size_t count = 0;
        for (const auto& [first, seconds] : record) count += seconds.size();
        return count;
    };
    ScopedLock lock(&mMutex);
    return {{
            {"limitEventMemLeak", mMemLeakRecord.size()},
            {"limitEventMemShortage", mMemShortageRecord.size()},
            {"limitEventMemLimit", mMemLimitRecord.size()},
            {"limitEventPreviewBufferRefLeak", mPreviewBufferRefLeakRecord.size()},
            {"limitEventCaptureBufferRefLeak", mCaptureBufferRefLeakRecord.size()},
            {"limitEventAlgoProcessTimeoutWarning", mAlgoProcessTimeoutWarningRecord.size()},
            {"limitEventAlgoProcessTimeoutError", mAlgoProcessTimeoutErrorRecord.size()},
            {"limitEventSnapshotTimeoutWarning", mSnapshotTimeoutWarningRecord.size()},
            {"limitEventSnapshotTimeoutError", mSnapshotTimeoutErrorRecord.size()},
            {"limitEventOtherTimeoutWarning", pairs(mOtherTimeoutWarningRecord)},
            {"limitEventOtherTimeoutError", pairs(mOtherTimeoutErrorRecord)},
    }};
}

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
