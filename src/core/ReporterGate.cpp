#include "ReporterGate.h"

namespace orv {

ReporterGate& ReporterGate::instance() {
    static ReporterGate* const sGate = new ReporterGate();
    return *sGate;
}

bool ReporterGate::enter() {
    mHeld.fetch_add(1);
    if (!mClosed.load()) return true;
    leave();
    return false;
}

void ReporterGate::leave() {
    if (mHeld.fetch_sub(1) == 1 && mClosed.load()) {
        std::lock_guard<std::mutex> lock(mMutex);
        mDrained.notify_all();
    }
}

bool ReporterGate::close(std::chrono::milliseconds bound) {
    mClosed.store(true);
    std::unique_lock<std::mutex> lock(mMutex);
    return mDrained.wait_for(lock, bound, [this] { return mHeld.load() == 0; });
}

}  // namespace orv
