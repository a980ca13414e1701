// The one way into the library: every exported entry point runs its work through one of these
// doors, and no other code of the library guards anything.
//
// A door
//   - takes a pass of the manager's gate (ReporterGate.h): the manager is not destroyed under a
//     caller that is inside, and nothing of it is touched before it is built or once it is being
//     destroyed; a refused call gets its entry's not-initialised answer (a handler's refused
//     result, -1 for a primitive, nothing to do for the others) and a line, at most one a second
//     for all refused calls together;
//   - for a handler, counts the record (ReporterScope.h) and checks that it carries the body the
//     handler reads: a record of another kind with the same body (a time-out warning handed to
//     the error handler) is read as it always was, a record with another body is refused;
//   - for a handler, puts the record's work in a section of the system trace named after its kind
//     (VistelTrace.h), ended however the work ends;
//   - catches everything its work throws, `...` included, logs it and answers the entry's failure
//     result (-1, or nothing): no exception reaches the camera stack, and a record whose reporter
//     threw is counted failed.
//
//     int VistelManager::sendEventMemLimit(std::shared_ptr<VistelEventBase> event) {
//         return enterHandler(kEventMemLimit, __func__, event.get(), [&](ReporterScope& scope) {
//             return reportFields(scope, kMemLimit, {*this, mInited, mFrequencyLimit}, event);
//         });
//     }
//
// Thread cancellation (glibc's forced unwinding, no C++ exception) is let through: it must not be
// caught.
#pragma once

#ifndef LOG_TAG
#define LOG_TAG "VistelManager"
#endif

#include <VistelRecords.h>
#include <cxxabi.h>

#include <atomic>
#include <cstdint>
#include <exception>

#include "KindSwitch.h"
#include "ReporterGate.h"
#include "ReporterScope.h"
#include "VistelCounters.h"
#include "VistelKinds.h"
#include "VistelTrace.h"

namespace orv {

// At most one line a second from one call site; the lines held back in between are counted, and
// the next line says how many. Lock-free, for any thread.
class RateLimitedLine {
  public:
    static constexpr int64_t kIntervalNs = 1000000000;

    // True when a line is due now; `heldBack` then gets the lines held back since the last one.
    bool due(uint64_t* heldBack);

  private:
    std::atomic<int64_t> mLastNs{INT64_MIN};
    std::atomic<uint64_t> mHeldBack{0};
};

// Inside `catch (...)`: what was caught is no C++ exception. glibc's thread cancellation unwinds
// so, and must be let through (`throw;`), or the C library aborts the process.
inline bool caughtForeignUnwinding() {
    return abi::__cxa_current_exception_type() == nullptr;
}

// The refused call's line: "<entry>() error: manager <state>, <what>", rate-limited.
void logRefusedEntry(const char* entry, ReporterGate::State seen, const char* what);
// A record whose body is not the one `kind`'s handler reads, rate-limited.
void logForeignRecord(const char* handler, VistelEvent kind, VistelEventBase& record);
// Work that threw: "<entry>() error: <what()>", or "unknown exception".
void logThrown(const char* entry, const std::exception* error);

// What `kind`'s handler answers a record it refuses; sendBootMsg, which has no kind, -1.
inline int refusedResultOf(VistelEvent kind) {
    return kind < kVistelEventCount ? kindInfo(kind).refusedResult : -1;
}

// A record refused because the manager is not there: counted not initialised in `kind`'s row,
// said (rate-limited), and answered with the handler's refused result.
int refuseRecord(VistelEvent kind, const char* handler, ReporterGate::State seen);

// True when `record` carries the body `kind`'s handler reads.
inline bool carriesBodyOf(VistelEvent kind, VistelEventBase& record) {
    const VistelEvent own = record.GetEventType();
    return own < kVistelEventCount && kindInfo(own).body == kindInfo(kind).body;
}

// Runs `work(scope)` for a record handed to `kind`'s handler, queued or called directly. The
// record is counted in the kind's row and ends in exactly one outcome. sendBootMsg, which has no
// record, passes the kind counters::kOutsideDispatch and a null record.
template <typename Work>
int enterHandler(VistelEvent kind, const char* handler, VistelEventBase* record, Work&& work) {
    // The record's section in the system trace, refused or thrown through as much as sent.
    TraceSection section(recordSection(kind));
    ReporterGate::Pass pass(reporterGate());
    if (!pass.entered()) return refuseRecord(kind, handler, pass.seen());
    ReporterScope scope(handler, counters::of(kind));
    if (KindSwitch::instance().isOffAtDoor(kind)) {
        scope.switchedOff();
        return refusedResultOf(kind);
    }
    try {
        // A null record goes on: every reporter refuses it with a line of its own.
        if (record != nullptr && !carriesBodyOf(kind, *record)) {
            scope.notInitialised();
            logForeignRecord(handler, kind, *record);
            return kindInfo(kind).refusedResult;
        }
        return work(scope);
    } catch (const std::exception& e) {
        scope.failed();
        logThrown(handler, &e);
    } catch (...) {
        scope.failed();
        if (caughtForeignUnwinding()) throw;
        logThrown(handler, nullptr);
    }
    return -1;
}

// Runs `work()` for any other entry point, answering `refused` when the manager is not there
// and `failed` when the work throws. `work` returns what the entry returns.
template <typename Result, typename Work>
Result enterCall(const char* entry, Result refused, Result failed, Work&& work) {
    ReporterGate::Pass pass(reporterGate());
    if (!pass.entered()) {
        logRefusedEntry(entry, pass.seen(), "call refused");
        return refused;
    }
    try {
        return work();
    } catch (const std::exception& e) {
        logThrown(entry, &e);
    } catch (...) {
        if (caughtForeignUnwinding()) throw;
        logThrown(entry, nullptr);
    }
    return failed;
}

}  // namespace orv
