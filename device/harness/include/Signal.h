// A one-shot signal between threads: raised once, and from then on every wait returns.
#pragma once

#include <condition_variable>
#include <mutex>

namespace vistel_harness {

class Signal {
  public:
    void raise() {
        std::lock_guard<std::mutex> lock(mMutex);
        mRaised = true;
        mChanged.notify_all();
    }
    void wait() {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [this] { return mRaised; });
    }

  private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mRaised = false;  // guarded by mMutex
};

}  // namespace vistel_harness
