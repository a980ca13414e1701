#define LOG_TAG "VistelManager"

#include "InFlightBound.h"
#include "Immortal.h"

#include <utils/Timers.h>

#include "VistelCounters.h"
#include "VistelLog.h"

namespace orv {

namespace {

constexpr int64_t kNanosPerMilli = 1000000;
constexpr int64_t kLineIntervalNs = 1000 * kNanosPerMilli;
// The lines are about reportMsgImpl's refusals, whichever thread logs them.
constexpr const char kDoor[] = "reportMsgImpl";

}  // namespace

VISTEL_CONSTINIT InFlightBound gInFlightBound;

void InFlightBound::raisePeak(uint32_t count) {
    uint32_t peak = mPeak.load(std::memory_order_relaxed);
    while (count > peak && !mPeak.compare_exchange_weak(peak, count, std::memory_order_relaxed)) {
    }
}

InFlightBound::SinceLastLine InFlightBound::takeSinceLastLine() {
    SinceLastLine since;
    for (uint32_t kind = 0; kind < kVistelEventCount; ++kind) {
        const uint64_t count = mShedSinceLine[kind].exchange(0, std::memory_order_relaxed);
        since.refused += count;
        if (count > since.mostCount) {
            since.mostCount = count;
            since.mostKind = kind;
        }
    }
    return since;
}

void InFlightBound::shed(VistelEvent kind) {
    counters::of(kind).addEndedRecord(counters::Outcome::kShed);
    // Every record shed since the process started, summed only while tracing.
    traceSettledCounter(kShedTrack, [] {
        uint64_t shedTotal = 0;
        for (const counters::KindCounters& row : counters::gRows) {
            shedTotal += row.outcomes[static_cast<size_t>(counters::Outcome::kShed)].load(
                    std::memory_order_relaxed);
        }
        return shedTotal;
    });
    mShedSinceLine[kind].fetch_add(1, std::memory_order_relaxed);
    const uint64_t refusals = mRefusals.fetch_add(1, std::memory_order_relaxed);

    if (!mShedding.load(std::memory_order_relaxed) && !mShedding.exchange(true)) {
        // Refusals are counted from the one that starts shedding.
        mRefusals.store(1, std::memory_order_relaxed);
        // A restart within an episode says nothing now: the next "still shedding" line counts it.
        if (mEpisode.exchange(true)) return;
        mLastLineNs.store(systemTime(SYSTEM_TIME_MONOTONIC), std::memory_order_relaxed);
        const SinceLastLine since = takeSinceLastLine();
        VISTEL_LOG_AT(ANDROID_LOG_ERROR, kDoor,
                      "%s() error: %u records in flight, shedding from now on: %llu refused, "
                      "most of kind %u (%s)",
                      kDoor, kBound, static_cast<unsigned long long>(since.refused), since.mostKind,
                      counters::kindName(static_cast<VistelEvent>(since.mostKind)));
        return;
    }
    // At most one line a second while it goes on: whoever moves the time of the last line on
    // logs it.
    if (refusals % kRefusalsPerClockRead != 0) return;
    const int64_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    int64_t last = mLastLineNs.load(std::memory_order_relaxed);
    if (now - last < kLineIntervalNs ||
        !mLastLineNs.compare_exchange_strong(last, now, std::memory_order_relaxed)) {
        return;
    }
    const SinceLastLine since = takeSinceLastLine();
    if (since.refused == 0) return;
    VISTEL_LOG_AT(ANDROID_LOG_ERROR, kDoor,
                  "%s() error: still shedding: %llu refused in the last %lld ms, most of kind %u "
                  "(%s)",
                  kDoor, static_cast<unsigned long long>(since.refused),
                  static_cast<long long>((now - last) / kNanosPerMilli), since.mostKind,
                  counters::kindName(static_cast<VistelEvent>(since.mostKind)));
}

void InFlightBound::caughtUp() {
    if (mShedding.exchange(false)) sayStoppedWhenDue();
}

void InFlightBound::sayStoppedWhenDue() {
    const int64_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    int64_t last = mLastLineNs.load(std::memory_order_relaxed);
    if (now - last < kLineIntervalNs || mShedding.load(std::memory_order_relaxed) ||
        !mLastLineNs.compare_exchange_strong(last, now, std::memory_order_relaxed) ||
        !mEpisode.exchange(false)) {
        return;
    }
    const SinceLastLine since = takeSinceLastLine();
    VISTEL_LOG_AT(ANDROID_LOG_INFO, kDoor,
                  "%s() shedding stopped: %llu more refused since the last line, %u records in "
                  "flight",
                  kDoor, static_cast<unsigned long long>(since.refused), inFlight());
}

void InFlightBound::resetAfterFork() {
    mGeneration.fetch_add(1, std::memory_order_relaxed);
    mInFlight.store(0, std::memory_order_relaxed);
    mShedding.store(false, std::memory_order_relaxed);
    mEpisode.store(false, std::memory_order_relaxed);
}

}  // namespace orv
