// Keeps the manager's state alive for everyone still using it, and shuts them out while it is
// not there: before it is built, and once it is being destroyed.
//
// The pool belongs to the platform and outlives the manager: at process exit or unload, tasks
// queued before the manager's destructor may still start afterwards, tasks already running may
// still be inside a reporter, and any thread may be inside an exported entry point. Each of them
// holds a pass while it reads the manager. Tearing down closes the gate first: no pass is granted
// from then on, and the manager's state is destroyed only once every pass has been given back.
// When that does not happen within the bound, nothing is destroyed at all ("kept"): whoever is
// still inside keeps working on live state, and the process's exit reclaims it.
//
// A pass is counted twice: in the shared count close() waits on, and per thread, so that close()
// does not wait for passes its own thread holds (a service that calls exit() inside a reporter
// runs the manager's destructor on that reporter's thread). The per-thread count lives in a
// POSIX thread-specific slot whose key is created with the gate, when the library loads: unlike a
// C++ thread_local in a dlopen()ed library, reading and writing it never makes the C library
// allocate per-thread storage on a thread's first use, whose failure aborts the process. If a
// slot cannot be written, that pass is simply not known to its thread; close() then waits out its
// bound for it, and keeps the manager.
#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <new>

#include "Immortal.h"

namespace orv {

// Where a test can hold a thread inside the gate's protocol. Production uses NoGateHooks, whose
// calls compile to nothing.
struct NoGateHooks {
    // Between counting a new pass and checking whether the gate is open.
    static void entering() {}
    // close() is about to wait for the passes still held.
    static void waiting() {}
};

template <typename Hooks = NoGateHooks>
class BasicReporterGate {
  public:
    // How long tearing down waits for those still inside. A healthy report takes microseconds (a
    // service call on the device, about a millisecond); only a hung service call takes longer,
    // and that must not hang the camera process's exit with it.
    static constexpr std::chrono::milliseconds kDrainBound{500};

    enum class State : int {
        kNotOpen,  // the manager is not built yet
        kOpen,
        kClosed,  // being destroyed, destroyed, or kept
    };

    BasicReporterGate() : mHaveThreadKey(pthread_key_create(&mThreadKey, nullptr) == 0) {}
    // Only gates of tests are ever destroyed; the manager's is immortal.
    ~BasicReporterGate() {
        if (mHaveThreadKey) pthread_key_delete(mThreadKey);
    }
    BasicReporterGate(const BasicReporterGate&) = delete;
    BasicReporterGate& operator=(const BasicReporterGate&) = delete;

    class Pass {
      public:
        explicit Pass(BasicReporterGate& gate)
            : mGate(gate),
              mSeen(gate.enter()),
              mCountedOnThread(mSeen == State::kOpen && gate.addThreadPasses(1)) {}
        ~Pass() {
            if (mSeen != State::kOpen) return;
            if (mCountedOnThread) mGate.addThreadPasses(-1);
            mGate.release();
        }
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;

        // False while the gate is not open: the holder must not touch the manager.
        bool entered() const { return mSeen == State::kOpen; }
        // Why a refused pass was refused: kNotOpen or kClosed.
        State seen() const { return mSeen; }

      private:
        BasicReporterGate& mGate;
        const State mSeen;
        const bool mCountedOnThread;
    };

    // The manager is built: passes are granted from now on. Opens only a gate never opened.
    void open() {
        State expected = State::kNotOpen;
        mState.compare_exchange_strong(expected, State::kOpen);
    }

    // No new pass is granted from now on. Waits up to `bound` for the passes held by other
    // threads; true when they are all given back, false (the manager is to be kept) when one is
    // still held after that. The passes the calling thread holds itself are not waited for: they
    // cannot be given back while this call runs.
    bool close(std::chrono::milliseconds bound) {
        const intptr_t own = passesOfThisThread();
        mState.store(State::kClosed);
        std::unique_lock<std::mutex> lock(mMutex);
        const auto deadline = std::chrono::steady_clock::now() + bound;
        Hooks::waiting();
        const bool drained =
                mDrained.wait_until(lock, deadline, [this, own] { return mHeld.load() <= own; });
        if (!drained) mKept.store(true, std::memory_order_relaxed);
        return drained;
    }

    // For callers outside any pass: a hint, exact once closed (it stays closed).
    State state() const { return mState.load(std::memory_order_acquire); }
    // close() gave up: the manager was kept, whole, for the rest of the process.
    bool kept() const { return mKept.load(std::memory_order_relaxed); }

    // In a child process just forked: only the forking thread exists there, so the passes other
    // threads held belong to the parent, and a lock one of them held would never be released.
    void resetAfterFork() {
        mHeld.store(static_cast<int>(passesOfThisThread()));
        new (&mMutex) std::mutex();
        new (&mDrained) std::condition_variable();
    }

  private:
    intptr_t passesOfThisThread() const {
        return mHaveThreadKey ? reinterpret_cast<intptr_t>(pthread_getspecific(mThreadKey)) : 0;
    }
    // False when the thread's slot could not be written: the pass is then not counted on it.
    bool addThreadPasses(intptr_t delta) {
        if (!mHaveThreadKey) return false;
        const intptr_t passes = passesOfThisThread() + delta;
        return pthread_setspecific(mThreadKey, reinterpret_cast<void*>(passes)) == 0;
    }

    State enter() {
        // Counted before the check, both sequentially consistent: a holder that enters either
        // sees the gate closed, or is counted before close() reads the count.
        mHeld.fetch_add(1);
        Hooks::entering();
        const State state = mState.load();
        if (state != State::kOpen) release();
        return state;
    }

    void release() {
        mHeld.fetch_sub(1);
        if (mState.load() == State::kClosed) {
            // A closer may be waiting. Notified under the mutex, so the wake-up cannot fall
            // between close()'s check and its wait.
            std::lock_guard<std::mutex> lock(mMutex);
            mDrained.notify_all();
        }
    }

    std::atomic<int> mHeld{0};
    std::atomic<State> mState{State::kNotOpen};
    std::atomic<bool> mKept{false};
    pthread_key_t mThreadKey{};
    const bool mHaveThreadKey;
    std::mutex mMutex;  // pairs close()'s wait with a release's notification
    std::condition_variable mDrained;
};

using ReporterGate = BasicReporterGate<>;

// The gate of the process's manager: built when the library loads, never destroyed.
extern Immortal<ReporterGate> gReporterGate;

inline ReporterGate& reporterGate() {
    return gReporterGate.get();
}

}  // namespace orv
