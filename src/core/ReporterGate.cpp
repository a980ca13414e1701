#include "ReporterGate.h"

#include <new>

namespace orv {

ReporterGate& ReporterGate::instance() {
    // In static storage, not on the heap: the first report may be the one that finds memory
    // exhausted. Never destroyed.
    alignas(ReporterGate) static unsigned char sStorage[sizeof(ReporterGate)];
    static ReporterGate* const sGate = new (sStorage) ReporterGate();
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
