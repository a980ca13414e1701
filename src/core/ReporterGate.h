// Keeps the manager's state alive for everyone still using it, and shuts them out once the
// manager is being destroyed.
//
// The pool belongs to the platform and outlives the manager: at process exit or unload, tasks
// queued before the manager's destructor may still start afterwards, tasks already running may
// still be inside a reporter, and a camera thread may be inside reportMsgImpl or dump(). Each of
// them holds a pass while it reads the manager. Tearing down closes the gate first: no pass is
// granted from then on, and the manager's state is destroyed only once every pass has been
// given back. When that does not happen within the bound, nothing is destroyed at all: whoever
// is still inside keeps working on live state, and the process's exit reclaims it.
//
// Two kinds of holder. A reporter's pass (a queued task, a handler called directly, sendBootMsg)
// is also counted per thread: a handler running inside its task's pass enters again without
// touching the shared count, and a reporter whose service calls exit() runs the manager's
// destructor on its own thread, which must not wait for its own pass. A caller's pass
// (reportMsgImpl, dump) touches only the shared count: the camera thread's path reads no
// thread-local storage, whose first use in a thread can take the dynamic loader's lock.
#pragma once

#include <atomic>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <mutex>

namespace orv {

// Where a test can hold a thread inside the gate's protocol. Production uses NoGateHooks, whose
// calls compile to nothing.
struct NoGateHooks {
    // Between counting a new pass and checking whether the gate is closed.
    static void entering() {}
    // close() is about to wait for the passes still held.
    static void waiting() {}
};

enum class GateHolder { kCaller, kReporter };

template <typename Hooks = NoGateHooks>
class BasicReporterGate {
  public:
    // How long tearing down waits for those still inside. A healthy report takes microseconds (a
    // service call on the device, about a millisecond); only a hung service call takes longer,
    // and that must not hang the camera process's exit with it.
    static constexpr std::chrono::milliseconds kDrainBound{500};

    enum class Entry { kRefused, kEntered, kReentered };

    class Pass {
      public:
        Pass(BasicReporterGate& gate, GateHolder holder)
            : mGate(gate),
              mPasses(holder == GateHolder::kReporter ? &passesOfThisThread() : nullptr),
              mEntry(gate.enter(mPasses)) {}
        ~Pass() {
            if (mEntry != Entry::kRefused) mGate.leave(mPasses);
        }
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;

        // False once the gate is closed: the holder must not touch the manager.
        bool entered() const { return mEntry != Entry::kRefused; }
        // Entered inside another reporter pass of this thread (a handler run by its queued task).
        bool reentered() const { return mEntry == Entry::kReentered; }

      private:
        BasicReporterGate& mGate;
        // This thread's count of reporter passes, looked up once; null for a caller's pass.
        int* const mPasses;
        const Entry mEntry;
    };

    // No new pass is granted from now on (a reporter already inside on this thread still
    // enters again). Waits up to `bound` for the passes held by others; true when they are all
    // given back, false when one is still held after that. The calling thread's own reporter
    // pass, if it holds one, is not waited for: it cannot be given back while this call runs.
    bool close(std::chrono::milliseconds bound) {
        const int own = passesOfThisThread() > 0 ? 1 : 0;
        mClosed.store(true);
        std::unique_lock<std::mutex> lock(mMutex);
        const auto deadline = std::chrono::steady_clock::now() + bound;
        Hooks::waiting();
        return mDrained.wait_until(lock, deadline, [this, own] { return mHeld.load() == own; });
    }

    // Once closed, stays closed. A relaxed read: a hint for callers outside any pass.
    bool closed() const { return mClosed.load(std::memory_order_relaxed); }

  private:
    // The reporter passes this thread holds on gates of this kind. Read only on reporter passes
    // and by close().
    static int& passesOfThisThread() {
        static thread_local int sPasses = 0;
        return sPasses;
    }

    // `passes`: this thread's count of reporter passes, or null for a caller's pass.
    Entry enter(int* passes) {
        if (passes != nullptr && *passes > 0) {
            // Inside this thread's own pass: the shared count already holds the manager.
            ++*passes;
            return Entry::kReentered;
        }
        // Counted before the check, both sequentially consistent: a holder that enters either
        // sees the gate closed, or is counted before close() reads the count.
        mHeld.fetch_add(1);
        Hooks::entering();
        if (mClosed.load()) {
            release();
            return Entry::kRefused;
        }
        if (passes != nullptr) ++*passes;
        return Entry::kEntered;
    }

    void leave(int* passes) {
        if (passes != nullptr && --*passes > 0) return;
        release();
    }

    void release() {
        if (mHeld.fetch_sub(1) <= 2 && mClosed.load()) {
            // The last one out, or the last one besides a closer's own pass. Notified under the
            // mutex, so the wake-up cannot fall between close()'s check and its wait.
            std::lock_guard<std::mutex> lock(mMutex);
            mDrained.notify_all();
        }
    }

    std::atomic<int> mHeld{0};
    std::atomic<bool> mClosed{false};
    std::mutex mMutex;  // pairs close()'s wait with the last release's notification
    std::condition_variable mDrained;
};

using ReporterGate = BasicReporterGate<>;

// The gate of the process's manager. Built in static storage when the library is loaded, before
// anything can report, and never destroyed: late tasks and late callers ask it while the process
// exits. A reference rather than a function keeps the lookup to one load on the camera thread.
extern ReporterGate& gReporterGate;

inline ReporterGate& reporterGate() {
    return gReporterGate;
}

}  // namespace orv
