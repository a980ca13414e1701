// Holds the first thread that reaches an armed point until the test lets it go: how a test keeps
// a thread at the moment that matters, without sleeping.
//
//     ThreadHold<int> hold;                 // armed at point 0
//     ... on the thread to hold:  hold.holdHere();
//     hold.waitUntilHeld();  /* the moment */  hold.release();
#pragma once

#include <condition_variable>
#include <mutex>

namespace vistel_harness {

template <typename Point>
class ThreadHold {
  public:
    explicit ThreadHold(Point armed = Point{}) : mArmed(armed) {}

    void arm(Point point) {
        std::lock_guard<std::mutex> lock(mMutex);
        mArmed = point;
    }
    // Called at `point`: the first thread to get there while it is armed waits there.
    void holdHere(Point point = Point{}) {
        std::unique_lock<std::mutex> lock(mMutex);
        if (point != mArmed || mEntered) return;
        mEntered = true;
        mChanged.notify_all();
        mChanged.wait(lock, [this] { return mOpen; });
    }
    void waitUntilHeld() {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [this] { return mEntered; });
    }
    void release() {
        std::lock_guard<std::mutex> lock(mMutex);
        mOpen = true;
        mChanged.notify_all();
    }

  private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    Point mArmed;           // guarded by mMutex
    bool mEntered = false;  // guarded by mMutex
    bool mOpen = false;     // guarded by mMutex
};

}  // namespace vistel_harness
