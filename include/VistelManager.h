/*
 * libc_vistel: turns camera records into numbered big-data events of the device's reporting
 * services, rate-limited, without blocking the camera thread.
 *
 * Usage (any thread):
 *
 *     #include <VistelManager.h>
 *
 *     auto record = std::make_shared<orv::vistelMemLeak>();  // zero-filled
 *     snprintf(record->name, sizeof(record->name), "%s", "FeatureNode");
 *     std::future<int> result = orv::VistelManager::GetInstance()->reportMsgImpl(record);
 *     // The work runs on the platform worker pool. The future is invalid (valid() == false)
 *     // when nothing was queued: a null record, a kind the manager does not know, or a
 *     // record shed because too many are in flight. Otherwise get() yields the reporter's
 *     // result: 0 sent or nothing to send, -1 not initialised or refused by the service,
 *     // -2 limited. The fault and time-out kinds answer 0 when limited, the scan message
 *     // -2 when not initialised (README's table gives every kind's results).
 *
 * Dropping the future does not cancel the report, and the record may be released right away:
 * the queued work keeps its own reference until the reporter returns.
 *
 * Modules that create records: a worker releases a record after its reporter returns, and the
 * record's destructor is code of the module that made it. So a module that creates records, or
 * declares record types of its own, links with -Wl,-z,nodelete (ldflags in Android.bp); one that
 * must really be unloaded waits, before dlclose(), for the future of every report it made and
 * reports nothing from its static destructors. The library never unloads itself.
 */
#pragma once

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "VistelRecords.h"

#define VISTEL_EXPORT __attribute__((visibility("default")))
#define VISTEL_HIDDEN __attribute__((visibility("hidden")))

// Which lock guards which state, in a form clang checks (-Wthread-safety). The attributes change
// no layout or symbol; other compilers see nothing.
#if defined(__clang__)
#define VISTEL_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define VISTEL_THREAD_ATTRIBUTE(x)
#endif
#define VISTEL_GUARDED_BY(x) VISTEL_THREAD_ATTRIBUTE(guarded_by(x))
#define VISTEL_REQUIRES(x) VISTEL_THREAD_ATTRIBUTE(requires_capability(x))

class QorThreadManager;

// ---- The counters as numbers, for VistelManager::snapshotCounters() ----
// Plain C structures of fixed-width fields. Later versions only append fields: a caller sets `size`
// to the sizeof it was compiled with, and the library fills the fields that fit in it.

// What became of a record, one slot per outcome in the dump's column order, with the name the dump
// and the tools print. One list: the library's counters, its dump, the snapshot and the tools'
// reader all expand it.
//   sent             every event it handed to a service was taken
//   limited          the rate limiter dropped it
//   no-event         answered without handing any event to a service
//   not-initialised  refused unsent: no service bound, a null record, the manager destroyed
//   failed           a service refused one of its events, or memory ran out building one
//   shed             refused at the door: too many records in flight
//   off              refused because its kind is switched off; not counted yet, always 0
#define VISTEL_OUTCOMES(X)                                                \
    X(kSent, VISTEL_OUTCOME_SENT, "sent")                                 \
    X(kLimited, VISTEL_OUTCOME_LIMITED, "limited")                        \
    X(kNoEvent, VISTEL_OUTCOME_NO_EVENT, "no-event")                      \
    X(kNotInitialised, VISTEL_OUTCOME_NOT_INITIALISED, "not-initialised") \
    X(kFailed, VISTEL_OUTCOME_FAILED, "failed")                           \
    X(kShed, VISTEL_OUTCOME_SHED, "shed")                                 \
    X(kOff, VISTEL_OUTCOME_OFF, "off")

enum VistelOutcome : uint32_t {
#define VISTEL_OUTCOME_SLOT(enumerator, slot, name) slot,
    VISTEL_OUTCOMES(VISTEL_OUTCOME_SLOT)
#undef VISTEL_OUTCOME_SLOT
            VISTEL_OUTCOME_COUNT
};

// "sent", "limited", ... "off"; null for a slot past the list.
inline const char* vistelOutcomeName(uint32_t slot) {
    static constexpr const char* kNames[] = {
#define VISTEL_OUTCOME_NAME(enumerator, slot, name) name,
            VISTEL_OUTCOMES(VISTEL_OUTCOME_NAME)
#undef VISTEL_OUTCOME_NAME
    };
    return slot < VISTEL_OUTCOME_COUNT ? kNames[slot] : nullptr;
}

// Room in the snapshot: rows for more kinds, outcomes and keyed policies than there are today.
constexpr uint32_t kVistelSnapshotKinds = 64;
constexpr uint32_t kVistelSnapshotOutcomes = 8;
constexpr uint32_t kVistelSnapshotPolicies = 16;

// One row of the dump: the records, each counted once under the one outcome it ended in, and the
// events the services took (a frame drop record sends one per group).
struct VistelCountsRow {
    uint64_t records;
    uint64_t outcomes[kVistelSnapshotOutcomes];  // by VistelOutcome
    uint64_t events;
};

enum VistelManagerState : uint32_t {
    VISTEL_MANAGER_NOT_BUILT,  // asked while GetInstance() was still building it
    VISTEL_MANAGER_RUNNING,
    VISTEL_MANAGER_KEPT,       // still in use at exit: kept, nothing destroyed
    VISTEL_MANAGER_DESTROYED,  // the counters remain, nothing of the manager
};

enum VistelServiceBinding : uint32_t {
    VISTEL_BINDING_NOT_TRIED,
    VISTEL_BINDING_BOUND,
    VISTEL_BINDING_LIBRARY_MISSING,   // the service library could not be opened
    VISTEL_BINDING_FUNCTION_MISSING,  // opened, without `missingFunction`
};

// The keys a keyed limit policy holds, and those it let go once its map grew past its bound.
struct VistelPolicyKeys {
    const char* policy;  // "limitEventMemLeak": the library's text, valid for the process's life
    uint64_t keys;       // 0 when busy
    uint64_t dropped;
    uint32_t busy;  // 1: a decision held the limiter's lock too long to read the keys
    uint32_t reserved;
};

struct VistelCounterSnapshot {
    uint32_t size;          // set by the caller: sizeof(VistelCounterSnapshot)
    uint32_t version;       // set by the library: 1
    const char* buildTag;   // the library's build, as the dump's title and every log line show it
    uint32_t kindCount;     // rows filled in kinds: one per VistelEvent kind
    uint32_t outcomeCount;  // slots filled in each row: VISTEL_OUTCOME_COUNT
    VistelCountsRow kinds[kVistelSnapshotKinds];  // by kind
    VistelCountsRow direct;  // the camera stack's own sendBootMsg calls, a call as a record
    uint32_t inFlight;       // records queued and not yet ended
    uint32_t inFlightPeak;
    uint32_t inFlightBound;       // beyond it reportMsgImpl sheds
    uint32_t manager;             // VistelManagerState
    uint32_t inited;              // 1: the manager is initialised (RUNNING or KEPT)
    uint32_t binding;             // VistelServiceBinding
    const char* missingFunction;  // VISTEL_BINDING_FUNCTION_MISSING: the first one not found
    uint32_t policyCount;         // rows filled in policies
    uint32_t reserved;
    VistelPolicyKeys policies[kVistelSnapshotPolicies];  // limitEventMemLeak first, dump order
};

namespace orv {

class VistelLibLoader;

// Type of a named parameter; each SetEventParam overload accepts its own two values.
enum DATATYPE {
    TYPE_INT = 1,
    TYPE_INT_ARRAY = 2,
    TYPE_FLOAT = 3,
    TYPE_FLOAT_ARRAY = 4,
    TYPE_STRING = 5,
    TYPE_STRING_ARRAY = 6,
};

class VistelManager {
  public:
    using Handler = std::function<int(std::shared_ptr<VistelEventBase>)>;
    using HandlerMethod = int (VistelManager::*)(std::shared_ptr<VistelEventBase>);

    // Process-wide report rate limiter. Every policy answers true to drop the event, false to
    // report it. Times are CLOCK_MONOTONIC nanoseconds from systemTime(); a stored 0 means
    // "never reported".
    class FrequencyLimit {
      public:
        FrequencyLimit();
        virtual ~FrequencyLimit();
        FrequencyLimit(const FrequencyLimit&) = delete;
        FrequencyLimit& operator=(const FrequencyLimit&) = delete;

        // The limiter's mutex: a plain POSIX mutex, named as a lock for clang's checks.
        typedef pthread_mutex_t Mutex VISTEL_THREAD_ATTRIBUTE(capability("mutex"));

        // Generic deciders over one hour. They update the state they are handed and never
        // lock: the caller holds mMutex. A map past a few thousand keys drops, as keys are added,
        // those whose hour has run out; their next record passes as it would have.
        bool limitBy0Item(long* time) const VISTEL_REQUIRES(mMutex);
        bool limitBy1Item(std::map<std::string, long>* record, std::string key) const
                VISTEL_REQUIRES(mMutex);
        bool limitBy2Item(std::map<std::string, std::map<std::string, long>>* record,
                          std::string key1, std::string key2) const VISTEL_REQUIRES(mMutex);

        // Per-kind policies; the keyed ones lock mMutex around the whole decision.
        VISTEL_EXPORT bool limitEventMemLeak(vistelMemLeak* data);
        VISTEL_EXPORT bool limitEventMemShortage(vistelMemShortage* data);
        VISTEL_EXPORT bool limitEventMemLimit(vistelMemLimit* data);
        VISTEL_EXPORT bool limitEventMemEfficiencyWarning(vistelMemEfficiencyWarning* data);
        VISTEL_EXPORT bool limitEventMemAllocFail(vistelMemAllocFail* data);
        VISTEL_EXPORT bool limitEventPreviewBufferRefLeak(vistelPreviewBufferRefLeak* data);
        VISTEL_EXPORT bool limitEventCaptureBufferRefLeak(vistelCaptureBufferRefLeak* data);
        VISTEL_EXPORT bool limitEventAlgoProcessTimeoutWarning(vistelAlgoProcessTimeout* data);
        VISTEL_EXPORT bool limitEventAlgoProcessTimeoutError(vistelAlgoProcessTimeout* data);
        VISTEL_EXPORT bool limitEventSnapshotTimeoutWarning(vistelSnapshotTimeout* data);
        VISTEL_EXPORT bool limitEventSnapshotTimeoutError(vistelSnapshotTimeout* data);
        VISTEL_EXPORT bool limitEventOtherTimeoutWarning(vistelOtherTimeout* data);
        VISTEL_EXPORT bool limitEventOtherTimeoutError(vistelOtherTimeout* data);

        // Self-contained policies with their own periods; lock-free.
        VISTEL_EXPORT bool LimitDumpSysTraceError();                 // 360 s
        VISTEL_EXPORT bool limitEventVideoPerf();                    // 600 s
        VISTEL_EXPORT bool limitEventBootPerf();                     // 600 s
        VISTEL_EXPORT bool limitEventSnapshotRetFrmIntervalError();  // 60 s

        // The keys each keyed policy holds (pairs of names for the two keyed by two), and how
        // many it dropped since the process started once its map grew past the bound, for the
        // manager's dump. Holds mMutex just long enough to read the sizes.
        struct KeyCount {
            // keys, when the lock could not be had in time (a decision stuck under it).
            static constexpr size_t kBusy = static_cast<size_t>(-1);
            const char* policy;
            size_t keys;
            uint64_t dropped;
        };
        static constexpr size_t kKeyedPolicies = 11;
        std::array<KeyCount, kKeyedPolicies> keyCounts() const;

      private:
        // Keyed by a record text, per kind.
        std::map<std::string, long> mMemLeakRecord VISTEL_GUARDED_BY(mMutex);
        std::map<std::string, long> mMemShortageRecord VISTEL_GUARDED_BY(mMutex);
        std::map<std::string, long> mMemLimitRecord VISTEL_GUARDED_BY(mMutex);
        long mMemEfficiencyWarningTime VISTEL_GUARDED_BY(mMutex);
        long mMemAllocFailTime VISTEL_GUARDED_BY(mMutex);
        // The self-contained policies take no lock; a compare-and-swap on the stored time lets
        // exactly one of two simultaneous events through.
        std::atomic<long> mDumpSysTraceTime;
        std::atomic<long> mVideoPerfTime;
        std::atomic<long> mBootPerfTime;
        std::atomic<long> mSnapshotRetFrmIntervalTime;
        std::map<std::string, long> mPreviewBufferRefLeakRecord VISTEL_GUARDED_BY(mMutex);
        std::map<std::string, long> mCaptureBufferRefLeakRecord VISTEL_GUARDED_BY(mMutex);
        std::map<std::string, long> mAlgoProcessTimeoutWarningRecord VISTEL_GUARDED_BY(mMutex);
        std::map<std::string, long> mAlgoProcessTimeoutErrorRecord VISTEL_GUARDED_BY(mMutex);
        std::map<std::string, long> mSnapshotTimeoutWarningRecord VISTEL_GUARDED_BY(mMutex);
        std::map<std::string, long> mSnapshotTimeoutErrorRecord VISTEL_GUARDED_BY(mMutex);
        // Keyed by (first name, second name).
        std::map<std::string, std::map<std::string, long>> mOtherTimeoutErrorRecord
                VISTEL_GUARDED_BY(mMutex);
        std::map<std::string, std::map<std::string, long>> mOtherTimeoutWarningRecord
                VISTEL_GUARDED_BY(mMutex);
        mutable Mutex mMutex;
    };

    VISTEL_EXPORT static VistelManager* GetInstance();

    // Queues the handler of the record's kind on the worker pool. Never blocks on the work.
    VISTEL_EXPORT std::future<int> reportMsgImpl(std::shared_ptr<VistelEventBase> event);

    // Run by the manager's construction, inside the first GetInstance(). Any other call changes
    // nothing: it is refused with an error line.
    VISTEL_EXPORT void Init();

    // ---- Event object primitives: 0 on success, -1 on failure. ----
    // A primitive that destroys the object on failure also clears the caller's handle.
    VISTEL_EXPORT int createEvent(unsigned int eventId, void*& eventObj) const;
    VISTEL_EXPORT int setEventParam(void*& eventObj, unsigned short paramIndex, long value) const;
    VISTEL_EXPORT int SetEventParam(void*& eventObj, const char* paramName, long value,
                                    DATATYPE type) const;
    VISTEL_EXPORT int SetEventParam(void*& eventObj, const char* paramName, float value,
                                    DATATYPE type) const;
    VISTEL_EXPORT int SetEventParam(void*& eventObj, const char* paramName, const char* value,
                                    DATATYPE type) const;
    // Sends and destroys the object, whatever the outcome.
    VISTEL_EXPORT int sendEvent(void*& eventObj) const;

    // "1,2,3": decimal elements joined by single commas.
    template <typename T, size_t N>
    VISTEL_HIDDEN std::string Array2String(const T (&array)[N]) const {
        std::string text;
        for (size_t i = 0; i < N; ++i) {
            if (i != 0) text += ',';
            text += std::to_string(array[i]);
        }
        return text;
    }

    // ---- Handlers, one per kind ----
    // Each may also be called directly, from any thread. A record whose kind has another body
    // than the one the handler reads is refused with the handler's not-initialised result, as a
    // null record is; nothing a reporter or the service throws reaches the caller.
    VISTEL_EXPORT int sendEventMemLeak(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventMemShortage(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventMemLimit(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventMemEfficiencyWarning(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventMemAllocFail(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventPreviewBufferRefLeak(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventCaptureBufferRefLeak(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventAlgoProcessTimeoutWarning(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventAlgoProcessTimeoutError(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventSnapshotTimeoutWarning(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventSnapshotTimeoutError(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventOtherTimeoutWarning(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventOtherTimeoutError(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventSnapshotBigdata(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int SendEventSnapshotAfBigdata(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventStatisticData(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventHDRPData(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int SendEventSnapshotBigdataV2(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int SendEventAlgoProcessTimeoutDumpSystrace(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventFlushProcessTimeoutError(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventStopProcessTimeoutError(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventSessionUninitProcessTimeoutError(
            std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventConfigStreamProcessTimeoutError(
            std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventVideoPerfData(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendEventPostProcessTimeoutError(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendBootTimeout(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int dumpTrace(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int FrameDropError(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendMemoryExceedThreshold(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendMemoryAllocTimeout(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendDailyTempRise(std::shared_ptr<VistelEventBase> event);
    VISTEL_EXPORT int sendScanMsgReport(std::shared_ptr<VistelEventBase> event);

    // Reports every boot node as one event; callable directly from any thread. The vector
    // must not change during the call.
    VISTEL_EXPORT void sendBootMsg(std::vector<SingleBootNode>& nodes);

    // Writes what became of the records since the process started to `fd`, for the HAL's
    // dump/debug entry point (dumpsys): one line per kind (the records, each counted once with
    // one outcome: sent, limited, no-event, not-initialised, failed or shed; then the events the
    // services took), the records in flight, the service binding and how many keys each keyed
    // limit policy holds. Any thread, but not a signal handler. A reporter never waits on it
    // longer than reading the limiter's key counts takes; the writing happens after every figure
    // has been read, once. A reader that went away ends it quietly, whatever the process does
    // with SIGPIPE; an fd that would block cuts it short, with an error line in the log.
    //
    //     VistelManager::GetInstance()->dump(fd);
    VISTEL_EXPORT void dump(int fd);

    // Fills `snapshot` with the numbers dump() prints, for a caller that reads them as numbers
    // (a test, a tool, a health check). The caller sets `size`; every other field is written, the
    // fields past this library's version zeroed. Returns 0, or -1 for a null snapshot or a `size`
    // smaller than the first version's. Any thread, no heap, never waits longer than dump() does.
    // After the manager was destroyed it still fills the counters, with manager DESTROYED.
    //
    //     VistelCounterSnapshot counts = {};
    //     counts.size = sizeof(counts);
    //     if (VistelManager::GetInstance()->snapshotCounters(&counts) == 0) {
    //         const uint64_t shed = counts.kinds[kEventMemLeak].outcomes[VISTEL_OUTCOME_SHED];
    //     }
    VISTEL_EXPORT int snapshotCounters(VistelCounterSnapshot* snapshot);

  private:
    VISTEL_EXPORT VistelManager();
    VISTEL_EXPORT virtual ~VistelManager();
    VistelManager(const VistelManager&) = delete;
    VistelManager& operator=(const VistelManager&) = delete;

    void registerFunction(VistelEvent event, HandlerMethod func);
    // What snapshotCounters() and dump() read; `counts` is zeroed. Static: both may be called on
    // a manager already destroyed at exit, whose members are read only once it is known alive.
    static void fillSnapshot(VistelManager* manager, VistelCounterSnapshot& counts);

    // The reporters' way to the primitives' work: they already hold a pass of their door.
    friend struct PrimitiveAccess;

    // Time-out event builders; isError selects the event identifier.
    int sendEventAlgoProcessTimeout(vistelAlgoProcessTimeout* data, bool isError) const;
    int sendEventSnapshotTimeout(vistelSnapshotTimeout* data, bool isError) const;
    int sendEventOtherTimeout(vistelOtherTimeout* data, bool isError) const;
    int sendEventFlushProcessTimeout(vistelOtherTimeout* data, bool isError) const;
    int sendEventStopProcessTimeout(vistelOtherTimeout* data, bool isError) const;
    int sendEventSessionUninitProcessTimeout(vistelOtherTimeout* data, bool isError) const;
    int sendEventConfigStreamProcessTimeout(vistelOtherTimeout* data, bool isError) const;
    int sendEventPostProcessTimeout(vistelPostProcessTimeOut* data, bool isError) const;

    // Written during construction only, read without a lock afterwards.
    std::map<VistelEvent, Handler> mFuncMap;
    QorThreadManager* mThreadManager;  // platform pool, never released
    bool mInited;
    VistelLibLoader* mLibLoader;  // one counted reference, or null
    FrequencyLimit mFrequencyLimit;
};

}  // namespace orv
