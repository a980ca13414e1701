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
// Each pass is held in a slot that names its thread, so that close() does not wait for passes
// its own thread holds (a service that calls exit() inside a reporter runs the manager's
// destructor on that reporter's thread), and a forked child keeps only its own thread's. No
// thread-local storage is involved: in a dlopen()ed library the C library allocates that on a
// thread's first use, and aborts the process when it cannot. Taking a slot is one
// compare-and-swap, as taking a count would be; more passes at once than there are slots are
// counted without a thread, and a closer holding one of those waits out its bound for it.
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
    // The slot a thread tries first: its own, spread by a multiplicative hash of its id.
    static int firstSlot(uintptr_t thread) {
        return static_cast<int>((thread * 0x9E3779B97F4A7C15ULL) >> 58);
    }
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

    BasicReporterGate() = default;
    BasicReporterGate(const BasicReporterGate&) = delete;
    BasicReporterGate& operator=(const BasicReporterGate&) = delete;

    class Pass {
      public:
        explicit Pass(BasicReporterGate& gate) : mGate(gate), mSlot(gate.enter(&mSeen)) {}
        ~Pass() {
            if (mSeen == State::kOpen && mSlot != kNested) mGate.release(mSlot);
        }
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;

        // False while the gate is not open: the holder must not touch the manager.
        bool entered() const { return mSeen == State::kOpen; }
        // Why a refused pass was refused: kNotOpen or kClosed.
        State seen() const { return mSeen; }

      private:
        BasicReporterGate& mGate;
        State mSeen = State::kNotOpen;
        const int mSlot;  // the slot held, kUntracked or kNested
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
        const uintptr_t self = thisThread();
        mState.store(State::kClosed);
        std::unique_lock<std::mutex> lock(mMutex);
        const auto deadline = std::chrono::steady_clock::now() + bound;
        Hooks::waiting();
        const bool drained =
                mDrained.wait_until(lock, deadline, [this, self] { return !heldByOthers(self); });
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
        const uintptr_t self = thisThread();
        for (std::atomic<uintptr_t>& holder : mHolders) {
            if (holder.load() != self) holder.store(0);
        }
        mUntracked.store(0);
        new (&mMutex) std::mutex();
        new (&mDrained) std::condition_variable();
    }

  private:
    static constexpr int kSlots = 64;  // NoGateHooks::firstSlot picks one of 64: the top six bits
    static constexpr int kUntracked = -1;
    static constexpr int kNested = -2;  // inside another pass of this thread: nothing to give back

    static_assert(sizeof(uintptr_t) == 8, "64-bit thread ids: the slot hash keeps the top bits");
    // The thread's own pointer: one register read (pthread_self() would be a call into the C
    // library), never zero, unique among live threads, and the forking thread's own in its child.
    static uintptr_t thisThread() {
        return reinterpret_cast<uintptr_t>(__builtin_thread_pointer());
    }

    // Takes a slot for this thread (or counts an untracked pass), then checks the gate, both
    // sequentially consistent: a holder that enters either sees the gate closed, or holds its
    // slot before close() looks at the slots. `seen` gets the state it found; a refused pass
    // holds nothing.
    int enter(State* seen) {
        const uintptr_t self = thisThread();
        // Threads start at a slot of their own (Hooks::firstSlot). Only this thread ever puts its
        // id there, and only its own pass takes it out: finding it there
        // means this thread is inside a pass already (a queued record's handler, a primitive a
        // handler calls), which holds the manager for this one too, unless the gate has closed
        // since (the destructor may have run on this very thread).
        const int first = Hooks::firstSlot(self);
        if (mHolders[first].load(std::memory_order_relaxed) == self) {
            *seen = mState.load();
            return kNested;
        }
        int slot = kUntracked;
        for (int i = 0; i < kSlots && slot == kUntracked; ++i) {
            const int at = (first + i) % kSlots;
            uintptr_t free = 0;
            if (mHolders[at].load(std::memory_order_relaxed) == 0 &&
                mHolders[at].compare_exchange_strong(free, self)) {
                slot = at;
            }
        }
        if (slot == kUntracked) mUntracked.fetch_add(1);
        Hooks::entering();
        *seen = mState.load();
        if (*seen != State::kOpen) release(slot);
        return slot;
    }

    void release(int slot) {
        if (slot == kUntracked) {
            mUntracked.fetch_sub(1);
        } else {
            mHolders[slot].store(0);
        }
        if (mState.load() == State::kClosed) {
            // A closer may be waiting. Notified under the mutex, so the wake-up cannot fall
            // between close()'s check and its wait.
            std::lock_guard<std::mutex> lock(mMutex);
            mDrained.notify_all();
        }
    }

    // A pass is held by a thread other than `self`, or by one not known.
    bool heldByOthers(uintptr_t self) const {
        if (mUntracked.load() != 0) return true;
        for (const std::atomic<uintptr_t>& holder : mHolders) {
            const uintptr_t thread = holder.load();
            if (thread != 0 && thread != self) return true;
        }
        return false;
    }

    std::atomic<uintptr_t> mHolders[kSlots] = {};  // the thread holding each slot; 0: free
    std::atomic<int> mUntracked{0};
    std::atomic<State> mState{State::kNotOpen};
    std::atomic<bool> mKept{false};
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
