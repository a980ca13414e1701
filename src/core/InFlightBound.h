// The bound on records in flight: queued on the worker pool, or running there.
//
// A camera stack stuck in a loop hands over records far faster than the workers report them, and
// every queued record holds its task and its record until a worker gets to it: without a bound
// the process grows until the low-memory killer ends it. The camera thread must not wait, so past
// the bound a record is shed at the door: reportMsgImpl queues nothing and returns a future with
// no shared state, as it does when nothing was queued for any other reason. A shed record costs a
// few atomic updates; it allocates nothing, takes no lock, and is counted in its kind's row.
//
// Shedding is said without flooding the log: one error line when it starts, then at most one a
// second while it goes on, each with the records refused since the last line and the kind refused
// most, and one info line when the workers have caught up (half the bound) again.
#pragma once

#include <VistelRecords.h>

#include <atomic>
#include <cstdint>

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

    // An admitted record is done with: run, or not queued after all.
    void finished() {
        const uint32_t before = mInFlight.fetch_sub(1, std::memory_order_relaxed);
        if (mShedding.load(std::memory_order_relaxed) && before - 1 <= kCaughtUp) caughtUp();
    }

    uint32_t inFlight() const { return mInFlight.load(std::memory_order_relaxed); }
    // The most records in flight at once since the process started.
    uint32_t peak() const { return mPeak.load(std::memory_order_relaxed); }

  private:
    void raisePeak(uint32_t count);
    void shed(VistelEvent kind);
    void caughtUp();
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

}  // namespace orv
