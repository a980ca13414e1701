// The frame every reporter runs in: a pass of the manager's gate, and the count of what became of
// its record.
//
//     int VistelManager::sendEventMemLimit(std::shared_ptr<VistelEventBase> event) try {
//         ReporterScope scope(__func__, counters::of(kEventMemLimit));
//         if (!scope.admitted()) return -1;  // the manager is gone: its not-initialised result
//         ...                                // scope.limited(), scope.serviceAnswer(...)
//     } catch (const std::exception& e) {
//         return reportFailed(__func__, e);
//     }
//
// The scope is the reporter's pass of the gate. A handler run by its queued task enters again
// inside the task's own pass, on the same thread; a handler called directly by the camera stack
// enters on its own, and once the manager is being destroyed is refused and answers its
// not-initialised result at once. It counts the record (a queued one whose task was refused is
// counted by the dispatch wrapper instead), then, when it ends,
// exactly one outcome is counted: the one the reporter decided (not initialised, limited), or else
// failed if a service refused one of its events or memory ran out on the way (an exception is
// leaving the reporter), sent if the services took at least one event, no event otherwise.
#pragma once

#ifndef LOG_TAG
#define LOG_TAG "VistelManager"
#endif

#include <cstdint>
#include <exception>

#include "ReporterGate.h"
#include "VistelCounters.h"
#include "VistelLog.h"

namespace orv {

// The line of work that arrives once the manager is gone, under the handler's name.
inline void logManagerDestroyed(const char* reporter) {
    VISTEL_LOG_AT(ANDROID_LOG_ERROR, reporter, "%s() error: manager destroyed, record dropped",
                  reporter);
}

class ReporterScope {
  public:
    ReporterScope(const char* reporter, counters::KindCounters& row)
        : mReporter(reporter), mRow(row), mPass(reporterGate(), GateHolder::kReporter) {
        mRow.addRecord();
        if (!mPass.entered()) {
            logManagerDestroyed(mReporter);
            mDecided = counters::Outcome::kNotInitialised;
        }
    }
    ~ReporterScope() {
        mRow.add(outcome());
        mRow.addEvents(mEventsTaken);
    }
    ReporterScope(const ReporterScope&) = delete;
    ReporterScope& operator=(const ReporterScope&) = delete;

    // False once the manager is being destroyed: the reporter must answer at once, with its
    // not-initialised result, touching nothing of the manager.
    bool admitted() const { return mPass.entered(); }
    const char* reporter() const { return mReporter; }

    void notInitialised() { mDecided = counters::Outcome::kNotInitialised; }
    void limited() { mDecided = counters::Outcome::kLimited; }
    // One event handed to a service: taken, or refused.
    void serviceAnswer(bool accepted) {
        if (accepted) {
            ++mEventsTaken;
        } else {
            mServiceRefused = true;
        }
    }

  private:
    counters::Outcome outcome() const {
        if (mDecided != kUndecided) return mDecided;
        // An exception leaving the reporter is memory that ran out while it built an event. (A
        // handler called from a destructor while another exception unwinds counts as failed too;
        // none of ours is.)
        if (mServiceRefused || std::uncaught_exceptions() > 0) {
            return counters::Outcome::kFailed;
        }
        return mEventsTaken > 0 ? counters::Outcome::kSent : counters::Outcome::kNoEvent;
    }

    // Any outcome the reporter cannot decide by itself will do.
    static constexpr counters::Outcome kUndecided = counters::Outcome::kShed;

    const char* mReporter;
    counters::KindCounters& mRow;
    ReporterGate::Pass mPass;
    counters::Outcome mDecided = kUndecided;
    uint64_t mEventsTaken = 0;
    bool mServiceRefused = false;
};

}  // namespace orv
