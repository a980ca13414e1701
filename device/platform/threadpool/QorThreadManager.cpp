#include "QorThreadManager.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace {

// The pool whose task the calling thread is running, if any.
thread_local const QorThreadManager* tRunningTaskOf = nullptr;

// The process that armed the exit hook; a child forked later inherits the hook, not the workers.
pid_t gExitHookPid = 0;

}  // namespace

QorThreadManager* QorThreadManager::GetInstance() {
    // Deliberately leaked and never joined. Clients hold the pointer for the life of the
    // process and tasks may still be queued while static destructors run at exit; a pool that
    // outlives them all keeps its mutex, condition variables and threads valid until the
    // process is gone, and leaked std::thread objects never reach std::terminate.
    static QorThreadManager* const sInstance = [] {
        auto* pool = new QorThreadManager(kDefaultWorkerCount);
        // QOR_THREAD_MANAGER_EXIT_HOOK=off runs the process without the exit hook, the way a
        // pool that knows nothing of its clients' exit behaves.
        const char* hook = getenv("QOR_THREAD_MANAGER_EXIT_HOOK");
        pool->mStopsAtExit = hook == nullptr || strcmp(hook, "off") != 0;
        return pool;
    }();
    return sInstance;
}

void QorThreadManager::armExitHook() {
    mExitHookArmed.store(true, std::memory_order_relaxed);
    if (!mStopsAtExit) return;
    // Clients are built before they queue work (the telemetry manager, a function-local
    // static, is complete before its first report), so a hook armed at the first task is
    // registered after their destructors and runs before them.
    static std::once_flag armed;
    std::call_once(armed, [] {
        gExitHookPid = getpid();
        // Only when the C library's table of exit handlers is full; the pool then behaves like
        // one without a hook, which the library is safe against, and says so once.
        if (atexit([] { GetInstance()->stopAtExit(); }) != 0) {
            __android_log_print(ANDROID_LOG_ERROR, "QorThreadManager",
                                "exit hook not registered: atexit() failed");
        }
    });
}

void QorThreadManager::stopAtExit() {
    if (getpid() != gExitHookPid) return;
    std::deque<std::function<void()>> abandoned;
    {
        std::unique_lock<std::mutex> lock(mQueueMutex);
        mStop = true;
        mAbandonQueue = true;
        abandoned.swap(mTasks);
        // exit() called from one of this pool's own tasks: that task is running, and stays so.
        const size_t exitingTask = tRunningTaskOf == this ? 1 : 0;
        // Bounded: a task stuck in a call that never returns must not hang the exit with it.
        mIdleCondition.wait_for(lock, kExitWaitBound,
                                [this, exitingTask] { return mRunningTasks == exitingTask; });
    }
    // Destroyed unrun, each queued task breaks its promise: a thread waiting on its future
    // wakes with an error instead of waiting for a worker that never comes.
    abandoned.clear();
}

QorThreadManager::QorThreadManager(size_t workerCount) {
    try {
        mWorkers.reserve(workerCount);
        for (size_t i = 0; i < workerCount; ++i) {
            mWorkers.emplace_back([this] { workerLoop(); });
        }
    } catch (...) {
        // A worker could not be started (memory ran out): the ones already running are stopped
        // and joined before the failure goes on, or their threads would end the process.
        stop();
        throw;
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
        // Once the process is exiting, workers park here for good: the queue is abandoned, and
        // a thread that stays blocked is no leak of a finished thread left unjoined.
        mCondition.wait(lock, [this] { return !mAbandonQueue && (mStop || !mTasks.empty()); });
        if (mTasks.empty()) {
            return;  // stopping, and everything queued before stop() has been run
        }
        std::function<void()> task = std::move(mTasks.front());
        mTasks.pop_front();
        ++mRunningTasks;
        lock.unlock();
        tRunningTaskOf = this;
        task();
        // Release what the task captured (the caller's record, among others) before taking the
        // lock again, so its destructor never runs under the queue mutex.
        task = nullptr;
        tRunningTaskOf = nullptr;
        lock.lock();
        --mRunningTasks;
        // Once stopping, every finished task may be the one stopAtExit() waits for.
        if ((mRunningTasks == 0 && mTasks.empty()) || mStop) {
            mIdleCondition.notify_all();
        }
    }
}
