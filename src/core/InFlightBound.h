// The bound on records in flight: queued on the worker pool, or running there.
//
// A camera stack stuck in a loop hands over records far faster than the workers report them, and
// every queued record holds its task and its record until a worker gets to it: without a bound
// the process grows until the low-memory killer ends it. The camera thread must not wait, so past
// the bound a record is shed at the door: reportMsgImpl queues nothing and returns a future with
// no shared state, as it does when nothing was queued for any other reason. A shed record costs a
// few atomic updates; it allocates nothing, takes no lock, and is counted in its kind's row.
//
// Shedding is said without flooding the log: at most one line a second in all, each with the
// records refused since the line before and the kind refused most. An error line when shedding
// starts, "still shedding" lines while it goes on, and an info line once the workers have caught
// up (half the bound) again. Under a steady flood shedding stops and starts many times a second;
// such a restart within a second of the last line is no new episode: the stop line waits until a
// second has passed since the last line (it is said by the next record to finish after that),
// and a restart before it is said just goes on with the "still shedding" lines.
#pragma once

#include <VistelRecords.h>

#include <atomic>
#include <cstdint>
#include <utility>

#include "VistelTrace.h"

namespace orv {

class InFlightBound {
  public:
    // Far above any burst of a working camera stack (a camera day keeps one record in flight,
    // eight camera threads reporting every kind at once about a thousand, a whole day's boot
    // records handed over at once 2,000), and small enough that a runaway caller costs a few
    // megabytes at most: about 240 bytes a queued record (the task, the future's state, the queue's
    // slot) plus the record itself.
    static constexpr uint32_t kBound = 4096;
    // Shedding is over once the records in flight are down to this many.
    static constexpr uint32_t kCaughtUp = kBound / 2;
    // While shedding goes on, the clock is read for the next line only every this many refusals:
    // a refused call stays a few atomic updates.
    static constexpr uint64_t kRefusalsPerClockRead = 64;

    // The bound of the process's manager.
    static InFlightBound& instance();

    // Camera thread, for a record of `kind` about to be queued: true when it may be (it now
    // counts as in flight), false when it is shed (counted, and said when a line is due).
    bool admit(VistelEvent kind) {
        const uint32_t before = mInFlight.fetch_add(1, std::memory_order_relaxed);
        if (before < kBound) {
            if (before + 1 > mPeak.load(std::memory_order_relaxed)) raisePeak(before + 1);
            return true;
        }
        mInFlight.fetch_sub(1, std::memory_order_relaxed);
        shed(kind);
        return false;
    }

    // The count admissions belong to: a forked child starts a count of its own, and what the
    // parent's records do there (if a pool there ever runs them) is not its business.
    uint32_t generation() const { return mGeneration.load(std::memory_order_relaxed); }

    // An admitted record is done with: run, or not queued after all, or its task destroyed unrun.
    void finished(uint32_t generation) {
        if (generation != mGeneration.load(std::memory_order_relaxed)) return;
        const uint32_t before = mInFlight.fetch_sub(1, std::memory_order_relaxed);
        traceSettledCounter(kInFlightTrack, [this] { return inFlight(); });
        if (mShedding.load(std::memory_order_relaxed)) {
            if (before - 1 <= kCaughtUp) caughtUp();
        } else if (mEpisode.load(std::memory_order_relaxed)) {
            sayStoppedWhenDue();
        }
    }

    // In a child process just forked: nothing is in flight there yet.
    void resetAfterFork();

    uint32_t inFlight() const { return mInFlight.load(std::memory_order_relaxed); }
    // The most records in flight at once since the process started.
    uint32_t peak() const { return mPeak.load(std::memory_order_relaxed); }

  private:
    void raisePeak(uint32_t count);
    void shed(VistelEvent kind);
    void caughtUp();
    // The line that ends an episode, once a second has passed since the last line.
    void sayStoppedWhenDue();
    // The records shed since the last line, and the kind shed most.
    struct SinceLastLine {
        uint64_t refused = 0;
        uint32_t mostKind = 0;
        uint64_t mostCount = 0;
    };
    // Takes them, and starts the next line's count from zero.
    SinceLastLine takeSinceLastLine();

    std::atomic<uint32_t> mInFlight{0};
    std::atomic<uint32_t> mPeak{0};
    std::atomic<bool> mShedding{false};
    // Shedding started and its stop line is not said yet.
    std::atomic<bool> mEpisode{false};
    std::atomic<uint32_t> mGeneration{0};
    std::atomic<uint64_t> mRefusals{0};
    // When the last line about shedding was logged, in systemTime() nanoseconds.
    std::atomic<int64_t> mLastLineNs{0};
    // Records shed per kind since the last line; whoever logs a line takes them.
    std::atomic<uint64_t> mShedSinceLine[kVistelEventCount] = {};
};

// Constant-initialised, with nothing to destroy: reports may still come and go at exit.
extern InFlightBound gInFlightBound;

inline InFlightBound& InFlightBound::instance() {
    return gInFlightBound;
}

// An admitted record's place in flight, held by its queued task from admission to the task's
// end, whichever end that is: run, or destroyed unrun (a pool that discards its queue at exit,
// memory running out while the task was being queued, the manager gone before it was queued).
// The place is given back exactly once, by the one object that holds it; a record that never
// reached its reporter is counted here, as not initialised (it was never sent). Move-only.
class InFlightPlace {
  public:
    // For a record InFlightBound::admit() let in.
    explicit InFlightPlace(VistelEvent kind)
        : mKind(kind), mGeneration(InFlightBound::instance().generation()) {}
    InFlightPlace(InFlightPlace&& other) noexcept
        : mKind(other.mKind),
          mGeneration(other.mGeneration),
          mHeld(std::exchange(other.mHeld, false)),
          mReached(other.mReached) {}
    InFlightPlace& operator=(InFlightPlace&&) = delete;
    ~InFlightPlace() {
        if (!mHeld) return;
        if (!mReached) neverReached();
        InFlightBound::instance().finished(mGeneration);
    }

    VistelEvent kind() const { return mKind; }
    // The record is handed to its reporter now, which counts it.
    void reached() { mReached = true; }

  private:
    void neverReached() const;

    VistelEvent mKind;
    uint32_t mGeneration;
    bool mHeld = true;
    bool mReached = false;
};

}  // namespace orv
