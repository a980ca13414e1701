/*
 * QorThreadManager: the process-wide worker pool.
 *
 * Callers queue any callable with its arguments and get a std::future of its result:
 *
 *     QorThreadManager* pool = QorThreadManager::GetInstance();
 *     std::future<int> result = pool->enqueue(handler, event);
 *     ...
 *     int rc = result.get();
 *
 * The pool returned by GetInstance() lives for the whole process and is never stopped by its
 * clients. At exit it stops starting tasks, waits (bounded) for the running ones and breaks the
 * promises of those still queued; QOR_THREAD_MANAGER_EXIT_HOOK=off leaves that exit hook out, so
 * queued tasks go on running while the process's static destructors run, as with a pool that
 * does nothing at exit. Tests and tools may build a private pool of their own, stop it and wait
 * for it to drain; those pools are stopped and joined when destroyed.
 */

#pragma once

#include <android/log.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

// The stopped-pool line is logged under the tag of the file that queues the task, so it shows up
// next to that component's own lines.
#ifdef LOG_TAG
#define QOR_THREAD_MANAGER_LOG_TAG LOG_TAG
#else
#define QOR_THREAD_MANAGER_LOG_TAG "QorThreadManager"
#endif

class __attribute__((visibility("default"))) QorThreadManager {
  public:
    // Four workers: enough that one slow task (a reporter waiting on the service) does not hold
    // up the others, few enough not to crowd a phone's little cores with mostly idle threads.
    static constexpr size_t kDefaultWorkerCount = 4;

    // The shared pool, created on first use with kDefaultWorkerCount workers.
    static QorThreadManager* GetInstance();

    // A private pool, for tests and tools. Its destructor stops it and joins the workers.
    explicit QorThreadManager(size_t workerCount);
    ~QorThreadManager();

    QorThreadManager(const QorThreadManager&) = delete;
    QorThreadManager& operator=(const QorThreadManager&) = delete;

    // Queues f(args...) on a worker and returns the future of its result. f and args are copied
    // (decayed) into the task. On a stopped pool the task is still queued, but no worker is left
    // to run it; that case is logged, nothing is thrown.
    template <class F, class... Args>
    auto enqueue(F&& f, Args&&... args) -> std::future<std::invoke_result_t<F, Args...>>;

    // Sets the stop flag, lets the workers finish what is already queued and joins them.
    // Idempotent. Never called on the shared pool by the library.
    void stop();

    // Blocks until no task is queued or running (on a stopped pool: until no task is running).
    // For tests and tools that need the pool quiet before they look at the results.
    void waitIdle();

    // Number of tasks queued and not yet taken by a worker.
    size_t pendingTasks();

    size_t workerCount() const { return mWorkers.size(); }

  private:
    void workerLoop();
    // Shared pool only, at its first task: has stopAtExit() run when the process exits. Armed
    // after the clients that queue work were built, it runs before their static destructors.
    void armExitHook();
    // The process is exiting: no task starts any more, and the running ones are waited for (up
    // to kExitWaitBound), so none is still at work while its client is destroyed. Queued tasks
    // never run: they are destroyed, and their futures report a broken promise.
    void stopAtExit();
    static constexpr std::chrono::milliseconds kExitWaitBound{500};

    std::vector<std::thread> mWorkers;  // written only by the constructor and stop()

    std::mutex mQueueMutex;
    std::condition_variable mCondition;        // a task was queued, or the pool is stopping
    std::condition_variable mIdleCondition;    // the pool may have become idle
    std::deque<std::function<void()>> mTasks;  // guarded by mQueueMutex
    bool mStop = false;                        // guarded by mQueueMutex
    bool mAbandonQueue = false;                // guarded by mQueueMutex; set at exit
    bool mStopsAtExit = false;                 // the shared pool; set before it is published
    std::atomic<bool> mExitHookArmed{false};   // armExitHook() has nothing left to do
    size_t mRunningTasks = 0;                  // guarded by mQueueMutex
};

template <class F, class... Args>
auto QorThreadManager::enqueue(F&& f, Args&&... args)
        -> std::future<std::invoke_result_t<F, Args...>> {
    using Result = std::invoke_result_t<F, Args...>;
    // make_shared puts the packaged task and its reference count in one block; the task's shared
    // state holds the only copies of f and args. The arguments are moved into the call, so what
    // they own (the caller's record) is released when f returns, not when the future goes.
    auto task = std::make_shared<std::packaged_task<Result()>>(
            [fn = std::decay_t<F>(std::forward<F>(f)),
             boundArgs = std::make_tuple(std::forward<Args>(args)...)]() mutable -> Result {
                return std::apply(fn, std::move(boundArgs));
            });
    std::future<Result> result = task->get_future();
    // Wrapped before the lock is taken, so the lock covers only the append. The queue entry
    // holds the only reference to the task: the caller never ends up destroying a task that a
    // worker has already run.
    std::function<void()> run = [task = std::move(task)] { (*task)(); };
    bool queued = false;
    {
        std::lock_guard<std::mutex> lock(mQueueMutex);
        // The flag is only ever set by stop(), at shutdown or in a test, so this line never
        // costs anything on the normal path even though it is written under the lock.
        if (mStop) {
            __android_log_print(ANDROID_LOG_ERROR, QOR_THREAD_MANAGER_LOG_TAG,
                                "enqueue on stopped QorThreadManager");
        }
        // Once the process is exiting the queue is abandoned and no worker takes from it: the
        // task is let go below, outside the lock, and its future reports a broken promise.
        if (!mAbandonQueue) {
            mTasks.push_back(std::move(run));
            queued = true;
        }
    }
    if (!queued) return result;
    mCondition.notify_one();
    // Checked inline: after the first task this costs one relaxed load per record.
    if (!mExitHookArmed.load(std::memory_order_relaxed)) armExitHook();
    return result;
}
