#include "WorkerHold.h"

namespace vistel_harness {

WorkerHold::WorkerHold(QorThreadManager& pool) : mPool(pool), mWorkers(pool.workerCount()) {
    for (size_t i = 0; i < mWorkers; ++i) mHolds.push_back(mPool.enqueue([this] { hold(); }));
    std::unique_lock<std::mutex> lock(mMutex);
    mChanged.wait(lock, [this] { return mHeld == mWorkers; });
}

WorkerHold::~WorkerHold() {
    releaseAll();
    for (std::future<void>& held : mHolds) held.wait();
    mPool.waitIdle();
}

void WorkerHold::release(size_t workers) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mReleases += workers;
    }
    mChanged.notify_all();
}

void WorkerHold::releaseAll() {
    release(mWorkers);
}

void WorkerHold::hold() {
    std::unique_lock<std::mutex> lock(mMutex);
    ++mHeld;
    mChanged.notify_all();
    mChanged.wait(lock, [this] { return mReleases > 0; });
    --mReleases;
}

}  // namespace vistel_harness
