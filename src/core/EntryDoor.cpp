#define LOG_TAG "VistelManager"

#include "EntryDoor.h"
#include "Immortal.h"

#include <utils/Timers.h>

#include "InFlightBound.h"
#include "VistelLog.h"

namespace orv {

namespace {

// One limit for every refused call: after destruction a whole queue of records may arrive.
VISTEL_CONSTINIT RateLimitedLine gRefusedLine;
VISTEL_CONSTINIT RateLimitedLine gForeignLine;

const char* describe(ReporterGate::State seen) {
    switch (seen) {
        case ReporterGate::State::kNotOpen:
            return "not built yet";
        case ReporterGate::State::kOpen:
            return "already built";
        case ReporterGate::State::kClosed:
            break;
    }
    return reporterGate().kept() ? "kept at exit" : "destroyed";
}

}  // namespace

Immortal<ReporterGate> gReporterGate;

// Counted only: reportMsgImpl has said why it queued nothing, and a pool that discards its queue
// at exit breaks the task's promise.
void InFlightPlace::neverReached() const {
    counters::of(mKind).addEndedRecord(counters::Outcome::kNotInitialised);
}

bool RateLimitedLine::due(uint64_t* heldBack) {
    const int64_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    int64_t last = mLastNs.load(std::memory_order_relaxed);
    // Whoever moves the time of the last line on logs the next one.
    if ((last != INT64_MIN && now - last < kIntervalNs) ||
        !mLastNs.compare_exchange_strong(last, now, std::memory_order_relaxed)) {
        mHeldBack.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    *heldBack = mHeldBack.exchange(0, std::memory_order_relaxed);
    return true;
}

void logRefusedEntry(const char* entry, ReporterGate::State seen, const char* what) {
    uint64_t heldBack = 0;
    if (!gRefusedLine.due(&heldBack)) return;
    if (heldBack == 0) {
        VISTEL_LOG_AT(ANDROID_LOG_ERROR, entry, "%s() error: manager %s, %s", entry, describe(seen),
                      what);
        return;
    }
    VISTEL_LOG_AT(ANDROID_LOG_ERROR, entry,
                  "%s() error: manager %s, %s (and %llu more refused since the last line)", entry,
                  describe(seen), what, static_cast<unsigned long long>(heldBack));
}

int refuseRecord(VistelEvent kind, const char* handler, ReporterGate::State seen) {
    counters::of(kind).addEndedRecord(counters::Outcome::kNotInitialised);
    logRefusedEntry(handler, seen, "record dropped");
    return refusedResultOf(kind);
}

void logForeignRecord(const char* handler, VistelEvent kind, VistelEventBase& record) {
    uint64_t heldBack = 0;
    if (!gForeignLine.due(&heldBack)) return;
    VISTEL_LOG_AT(ANDROID_LOG_ERROR, handler,
                  "%s() error: record of kind %u does not carry the body of kind %u (%s), "
                  "refused (%llu more since the last line)",
                  handler, static_cast<unsigned>(record.GetEventType()), static_cast<unsigned>(kind),
                  kindInfo(kind).kindName, static_cast<unsigned long long>(heldBack));
}

void logThrown(const char* entry, const std::exception* error) {
    VISTEL_LOG_AT(ANDROID_LOG_ERROR, entry, "%s() error: %s", entry,
                  error != nullptr ? error->what() : "unknown exception");
}

}  // namespace orv
