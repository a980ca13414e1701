// Keeps the manager's state alive for the reporters that run on the worker pool, and shuts them
// out once the manager is being destroyed.
//
// The pool belongs to the platform and outlives the manager: at process exit or unload, tasks
// queued before the manager's destructor may still start afterwards, and tasks already running
// may still be inside a reporter. Every queued reporter runs inside a ReporterGate::Pass; the
// manager's destructor closes the gate first and waits for the passes still held before it lets
// go of the limiter, the handler table and the service library.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace orv {

class ReporterGate {
  public:
    // How long the manager's destructor waits for the reporters still running. A healthy report
    // takes microseconds (a service call on the device, about a millisecond); only a hung
    // service call takes longer, and that must not hang the camera process's exit with it.
    static constexpr std::chrono::milliseconds kDrainBound{500};

    // The gate of the process's manager. Never destroyed: late tasks ask it during exit.
    static ReporterGate& instance();

    // Held for the whole of one reporter. Costs two atomic updates of one counter.
    class Pass {
      public:
        explicit Pass(ReporterGate& gate) : mGate(gate), mEntered(gate.enter()) {}
        ~Pass() {
            if (mEntered) mGate.leave();
        }
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;

        // False once the gate is closed: the reporter must not touch the manager.
        bool entered() const { return mEntered; }

      private:
        ReporterGate& mGate;
        const bool mEntered;
    };

    // No pass is granted from now on. Waits up to `bound` for the passes held; true when none is
    // left, false when a reporter is still running after that.
    bool close(std::chrono::milliseconds bound);

    // Once closed, stays closed. A relaxed read: a hint for callers outside any pass.
    bool closed() const { return mClosed.load(std::memory_order_relaxed); }

  private:
    bool enter();
    void leave();

    // Both sequentially consistent: a reporter that enters either sees the gate closed, or is
    // counted before close() reads the count.
    std::atomic<int> mHeld{0};
    std::atomic<bool> mClosed{false};
    // close() sleeps on mDrained; the last pass out after closing wakes it under mMutex, so the
    // wake-up cannot fall between close()'s check and its wait.
    std::mutex mMutex;
    std::condition_variable mDrained;
};

}  // namespace orv
