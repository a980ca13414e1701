// What every benchmark of vistel_bench shares beside the harness (whose virtual clock the
// library reads, and which only moves when a benchmark moves it): a count of the heap the process
// holds, and where the library's log lines go.
#pragma once

#include <VirtualClock.h>

#include <cstdint>

namespace vistel_bench {

using vistel_harness::kNanosPerSecond;
using vistel_harness::VirtualClock;
// The limiter's longest quiet period: a key seen again this much later is reported again.
constexpr int64_t kHourSeconds = 3600;

// Counts what operator new hands out while it is open. Every allocation of the process counts,
// whichever thread makes it; one window at a time.
class AllocationWindow {
  public:
    AllocationWindow();
    ~AllocationWindow();
    AllocationWindow(const AllocationWindow&) = delete;
    AllocationWindow& operator=(const AllocationWindow&) = delete;

    // Calls of operator new since the window opened.
    int64_t allocations() const;
    // Heap held now minus heap held when the window opened: the usable size of every block
    // plus the allocator's own header per block, as malloc accounts for it.
    int64_t heldBytes() const;

  private:
    int64_t mAllocationsAtOpen;
    int64_t mBlocksAtOpen;
    int64_t mUsableBytesAtOpen;
};

// Where the library's log lines go while a benchmark runs.
enum class LogSink {
    kOff,      // below the minimum priority: liblog returns before formatting anything
    kNoop,     // formatted by liblog, then handed to a logger that drops them
    kDefault,  // liblog's own host logger, writing to stderr (sent to /dev/null meanwhile)
    kCounted,  // formatted, then counted (see loggedLines)
};

const char* logSinkName(LogSink sink);

// Routes the log to a sink for its lifetime and restores the process default afterwards.
// Nothing may log from another thread when it is destroyed.
class ScopedLogSink {
  public:
    explicit ScopedLogSink(LogSink sink);
    ~ScopedLogSink();
    ScopedLogSink(const ScopedLogSink&) = delete;
    ScopedLogSink& operator=(const ScopedLogSink&) = delete;

  private:
    int mSavedStderr = -1;
};

// The sink of a benchmark run on several threads, whose scope no one thread spans: set from the
// benchmark's Setup hook and restored from its Teardown hook, once nothing logs any more.
void setRunLogSink(LogSink sink);
void restoreRunLogSink();

// Lines the kCounted sink has received since the process started.
int64_t loggedLines();

}  // namespace vistel_bench
