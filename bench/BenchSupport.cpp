#include "BenchSupport.h"

#include <LogCapture.h>
#include <android/log.h>
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <optional>

namespace vistel_bench {

namespace {

// Heap accounting. The flag is read on every allocation of the process, so the counters are
// only touched while a window is open and the timed benchmarks pay one relaxed load.
std::atomic<bool> gCounting{false};
std::atomic<int64_t> gAllocations{0};
std::atomic<int64_t> gLiveBlocks{0};
std::atomic<int64_t> gUsableBytes{0};
// glibc keeps one size word in front of every block it hands out.
constexpr int64_t kMallocHeaderBytes = sizeof(size_t);

std::atomic<int64_t> gLoggedLines{0};
int gDefaultMinimumPriority = ANDROID_LOG_DEFAULT;

void* allocate(size_t size) {
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) throw std::bad_alloc();
    if (gCounting.load(std::memory_order_relaxed)) {
        gAllocations.fetch_add(1, std::memory_order_relaxed);
        gLiveBlocks.fetch_add(1, std::memory_order_relaxed);
        gUsableBytes.fetch_add(malloc_usable_size(block), std::memory_order_relaxed);
    }
    return block;
}

void release(void* block) noexcept {
    if (block == nullptr) return;
    if (gCounting.load(std::memory_order_relaxed)) {
        gLiveBlocks.fetch_sub(1, std::memory_order_relaxed);
        gUsableBytes.fetch_sub(malloc_usable_size(block), std::memory_order_relaxed);
    }
    std::free(block);
}

void countLine(const struct __android_logger_data*, const char*) {
    gLoggedLines.fetch_add(1, std::memory_order_relaxed);
}

// Remembers liblog's own minimum priority before any benchmark changes it.
[[maybe_unused]] const bool kDefaultsSaved = [] {
    gDefaultMinimumPriority = __android_log_get_minimum_priority();
    return true;
}();

}  // namespace

AllocationWindow::AllocationWindow()
    : mAllocationsAtOpen(gAllocations.load()),
      mBlocksAtOpen(gLiveBlocks.load()),
      mUsableBytesAtOpen(gUsableBytes.load()) {
    gCounting.store(true);
}

AllocationWindow::~AllocationWindow() {
    gCounting.store(false);
}

int64_t AllocationWindow::allocations() const {
    return gAllocations.load() - mAllocationsAtOpen;
}

int64_t AllocationWindow::heldBytes() const {
    return gUsableBytes.load() - mUsableBytesAtOpen +
           (gLiveBlocks.load() - mBlocksAtOpen) * kMallocHeaderBytes;
}

const char* logSinkName(LogSink sink) {
    switch (sink) {
        case LogSink::kOff:
            return "log_off";
        case LogSink::kNoop:
            return "noop_logger";
        case LogSink::kDefault:
            return "default_logger";
        case LogSink::kCounted:
            return "counted";
    }
    return "?";
}

ScopedLogSink::ScopedLogSink(LogSink sink) {
    switch (sink) {
        case LogSink::kOff:
            __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
            break;
        case LogSink::kNoop:
            __android_log_set_logger(vistel_harness::discardLogLine);
            break;
        case LogSink::kDefault:
            // liblog's host logger writes every line to stderr; the lines still cost their
            // write(2) but stay out of the benchmark's table.
            std::fflush(stderr);
            mSavedStderr = dup(STDERR_FILENO);
            if (int devNull = open("/dev/null", O_WRONLY | O_CLOEXEC); devNull >= 0) {
                dup2(devNull, STDERR_FILENO);
                close(devNull);
            }
            __android_log_set_logger(__android_log_stderr_logger);
            break;
        case LogSink::kCounted:
            __android_log_set_logger(countLine);
            break;
    }
}

ScopedLogSink::~ScopedLogSink() {
    __android_log_set_minimum_priority(gDefaultMinimumPriority);
    __android_log_set_logger(__android_log_stderr_logger);
    if (mSavedStderr >= 0) {
        std::fflush(stderr);
        dup2(mSavedStderr, STDERR_FILENO);
        close(mSavedStderr);
    }
}

namespace {
std::optional<ScopedLogSink> gRunLogSink;
}  // namespace

void setRunLogSink(LogSink sink) {
    gRunLogSink.emplace(sink);
}

void restoreRunLogSink() {
    gRunLogSink.reset();
}

int64_t loggedLines() {
    return gLoggedLines.load();
}

}  // namespace vistel_bench

// The process's heap goes through these, so that AllocationWindow sees the library's, the
// pool's and the services' allocations alike. Exported, so that they take the place of the
// standard library's for every library of the process.
#define VISTEL_BENCH_EXPORT __attribute__((visibility("default")))
VISTEL_BENCH_EXPORT void* operator new(size_t size) {
    return vistel_bench::allocate(size);
}
VISTEL_BENCH_EXPORT void* operator new[](size_t size) {
    return vistel_bench::allocate(size);
}
VISTEL_BENCH_EXPORT void* operator new(size_t size, const std::nothrow_t&) noexcept {
    try {
        return vistel_bench::allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
VISTEL_BENCH_EXPORT void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}
VISTEL_BENCH_EXPORT void operator delete(void* block) noexcept {
    vistel_bench::release(block);
}
VISTEL_BENCH_EXPORT void operator delete[](void* block) noexcept {
    vistel_bench::release(block);
}
VISTEL_BENCH_EXPORT void operator delete(void* block, size_t) noexcept {
    vistel_bench::release(block);
}
VISTEL_BENCH_EXPORT void operator delete[](void* block, size_t) noexcept {
    vistel_bench::release(block);
}
VISTEL_BENCH_EXPORT void operator delete(void* block, const std::nothrow_t&) noexcept {
    vistel_bench::release(block);
}
VISTEL_BENCH_EXPORT void operator delete[](void* block, const std::nothrow_t&) noexcept {
    vistel_bench::release(block);
}
