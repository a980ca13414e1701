#include "QorThreadManager.h"

QorThreadManager* QorThreadManager::GetInstance() {
    // Deliberately leaked and never joined. Clients hold the pointer for the life of the
    // process and tasks may still be queued while static destructors run at exit; a pool that
    // outlives them all keeps its mutex, condition variables and threads valid until the
    // process is gone, and leaked std::thread objects never reach std::terminate.
    static QorThreadManager* const sInstance = new QorThreadManager(kDefaultWorkerCount);
    return sInstance;
}

QorThreadManager::QorThreadManager(size_t workerCount) {
    mWorkers.reserve(workerCount);
    for (size_t i = 0; i < workerCount; ++i) {
        mWorkers.emplace_back([this] { workerLoop(); });
    }
}

QorThreadManager::~QorThreadManager() {
    stop();
}

void QorThreadManager::stop() {
    {
        std::lock_guard<std::mutex> lock(mQueueMutex);
        mStop = true;
    }
    mCondition.notify_all();
    for (std::thread& worker : mWorkers) {
        if (worker.joinable()) {
            worker.join();
        }
    }
    // A waitIdle() caller may be waiting for a queue that no worker will ever drain now.
    mIdleCondition.notify_all();
}

void QorThreadManager::waitIdle() {
    std::unique_lock<std::mutex> lock(mQueueMutex);
    mIdleCondition.wait(lock, [this] { return mRunningTasks == 0 && (mTasks.empty() || mStop); });
}

size_t QorThreadManager::pendingTasks() {
    std::lock_guard<std::mutex> lock(mQueueMutex);
    return mTasks.size();
}

void QorThreadManager::workerLoop() {
    std::unique_lock<std::mutex> lock(mQueueMutex);
    for (;;) {
        mCondition.wait(lock, [this] { return mStop || !mTasks.empty(); });
        if (mTasks.empty()) {
            return;  // stopping, and everything queued before stop() has been run
        }
        std::function<void()> task = std::move(mTasks.front());
        mTasks.pop_front();
        ++mRunningTasks;
        lock.unlock();
        task();
        // Release what the task captured (the caller's record, among others) before taking the
        // lock again, so its destructor never runs under the queue mutex.
        task = nullptr;
        lock.lock();
        --mRunningTasks;
        if (mRunningTasks == 0 && mTasks.empty()) {
            mIdleCondition.notify_all();
        }
    }
}
