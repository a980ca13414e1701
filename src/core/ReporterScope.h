// The count of what became of one record handed to a reporter: the record and exactly one outcome,
// when the scope ends. The reporter's door (EntryDoor.h) opens
// the scope; the reporter tells it what it decided and what the services answered:
//
//     if (refusedNotInitialised(scope, inited, data)) return -1;  // scope.notInitialised()
//     if (isLimited(data)) { logLimited(scope); return 0; }     // scope.limited()
//     scope.serviceAnswer(sendResult == 0);                      // once per event handed over
//
// The outcome: the one the reporter or its door decided (not initialised, limited, failed when
// the work threw), or else failed if a service refused one of its events, sent if the services
// took at least one, no event otherwise.
#pragma once

#include <cstdint>

#include "VistelCounters.h"

namespace orv {

class ReporterScope {
  public:
    ReporterScope(const char* reporter, counters::KindCounters& row)
        : mReporter(reporter), mRow(row) {}
    // The record and its outcome are counted together, so a dump taken meanwhile sees neither.
    ~ReporterScope() {
        mRow.addEndedRecord(outcome());
        mRow.addEvents(mEventsTaken);
    }
    ReporterScope(const ReporterScope&) = delete;
    ReporterScope& operator=(const ReporterScope&) = delete;

    const char* reporter() const { return mReporter; }

    void notInitialised() { mDecided = counters::Outcome::kNotInitialised; }
    void limited() { mDecided = counters::Outcome::kLimited; }
    // Its kind is switched off (KindSwitch.h).
    void switchedOff() { mDecided = counters::Outcome::kOff; }
    // The reporter's work threw (memory ran out while it built an event, or a service threw).
    void failed() { mDecided = counters::Outcome::kFailed; }
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
        if (mServiceRefused) return counters::Outcome::kFailed;
        return mEventsTaken > 0 ? counters::Outcome::kSent : counters::Outcome::kNoEvent;
    }

    // Any outcome the reporter cannot decide by itself will do.
    static constexpr counters::Outcome kUndecided = counters::Outcome::kShed;

    const char* mReporter;
    counters::KindCounters& mRow;
    counters::Outcome mDecided = kUndecided;
    uint64_t mEventsTaken = 0;
    bool mServiceRefused = false;
};

}  // namespace orv
