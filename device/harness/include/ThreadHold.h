// Holds the first thread that reaches an armed point until the test lets it go: how a test keeps
// a thread at the moment that matters, without sleeping.
//
//     ThreadHold<int> hold;                 // armed at point 0
//     ... on the thread to hold:  hold.holdHere();
//     hold.waitUntilHeld();  /* the moment */  hold.release();
#pragma once

#include <mutex>

#include "Signal.h"

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
        {
            std::lock_guard<std::mutex> lock(mMutex);
            if (point != mArmed || mTaken) return;
            mTaken = true;
        }
        mEntered.raise();
        mOpen.wait();
    }
    void waitUntilHeld() { mEntered.wait(); }
    void release() { mOpen.raise(); }

  private:
    std::mutex mMutex;
    Point mArmed;         // guarded by mMutex
    bool mTaken = false;  // guarded by mMutex: a thread has got there
    Signal mEntered;
    Signal mOpen;
};

}  // namespace vistel_harness
