// Every worker of the pool held in a task of its own until released: what is queued meanwhile
// stays queued, as behind a camera thread that hands records over faster than the workers take
// them.
//
//     {
//         WorkerHold hold;          // returns once every worker is held
//         ... queue records ...
//         hold.release(1);          // one worker runs the queue, in order
//     }                             // every worker let go, the pool idle again
#pragma once

#include <QorThreadManager.h>

#include <condition_variable>
#include <cstddef>
#include <future>
#include <mutex>
#include <vector>

namespace vistel_harness {

class WorkerHold {
  public:
    explicit WorkerHold(QorThreadManager& pool = *QorThreadManager::GetInstance());
    // Lets every worker go and waits until the pool has run everything queued.
    ~WorkerHold();
    WorkerHold(const WorkerHold&) = delete;
    WorkerHold& operator=(const WorkerHold&) = delete;

    // Lets `workers` more of the held workers go.
    void release(size_t workers);
    void releaseAll();

  private:
    void hold();

    QorThreadManager& mPool;
    const size_t mWorkers;
    std::vector<std::future<void>> mHolds;
    std::mutex mMutex;
    std::condition_variable mChanged;
    size_t mHeld = 0;      // guarded by mMutex: workers holding
    size_t mReleases = 0;  // guarded by mMutex: holds that may end
};

}  // namespace vistel_harness
