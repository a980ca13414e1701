// What a runaway camera stack costs the process, and what the camera thread meets while another
// thread loads a library.
//
//   BM_Flood/<threads>          1 or 8 camera threads each calling reportMsgImpl in a loop, a new
//                               memory leak record every call: the peak growth of the resident
//                               memory over the run, and every call accounted for (queued and
//                               counted by the library, or shed)
//   BM_ReportDuringSlowDlopen   a camera thread's reportMsgImpl, one call every 50 us, while
//                               another thread dlopen()s a library whose constructor takes
//                               300 ms (the dynamic loader holds its lock all that time): the
//                               calls that waited (a voluntary context switch), and the worst and
//                               99th percentile of those the scheduler did not interrupt
#include <LibraryCounters.h>
#include <QorThreadManager.h>
#include <VistelManager.h>
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "BenchSupport.h"

// Called by the slow library's constructor once it has started: the dynamic loader now holds
// its lock. Exported, so that the library finds it in the executable.
extern "C" __attribute__((visibility("default"))) void vistelBenchSlowModuleLoading();

namespace vistel_bench {

namespace {

constexpr int64_t kFloodCallsPerThread = 1000000;
constexpr auto kCameraReportEvery = std::chrono::microseconds(50);

std::atomic<bool> gSlowModuleLoading{false};

orv::VistelManager* manager() {
    return orv::VistelManager::GetInstance();
}

// The resident memory of the process now (VmRSS), in kilobytes.
int64_t residentKb() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) return std::stoll(line.substr(6));
    }
    return 0;
}

// The highest resident memory, and the highest heap held (what operator new handed out and was
// not yet given back: the records, their tasks and the queue, whatever the allocator keeps
// around them), seen while it lives, sampled every millisecond.
class MemoryPeak {
  public:
    MemoryPeak() : mResidentKb(vistel_bench::residentKb()), mSampler([this] { sample(); }) {}
    ~MemoryPeak() { stop(); }
    MemoryPeak(const MemoryPeak&) = delete;
    MemoryPeak& operator=(const MemoryPeak&) = delete;

    void stop() {
        mStop = true;
        if (mSampler.joinable()) mSampler.join();
    }
    int64_t peakResidentKb() const { return mResidentKb; }
    int64_t peakHeapKb() const { return mHeapBytes / 1024; }

  private:
    void sample() {
        while (!mStop) {
            mResidentKb = std::max<int64_t>(mResidentKb, vistel_bench::residentKb());
            mHeapBytes = std::max<int64_t>(mHeapBytes, mHeld.heldBytes());
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    AllocationWindow mHeld;
    std::atomic<bool> mStop{false};
    std::atomic<int64_t> mResidentKb;
    std::atomic<int64_t> mHeapBytes{0};
    std::thread mSampler;
};

uint64_t recordsCounted() {
    return vistel_tools::readLibraryCounters().total.records;
}

// BM_Flood/<threads>/1 reports; BM_Flood/<threads>/0, its floor, makes and drops the same
// records on the same threads without handing them over: what the threads and their allocator
// arenas take by themselves.
void BM_Flood(benchmark::State& state) {
    ScopedLogSink logOff(LogSink::kOff);
    const int threads = static_cast<int>(state.range(0));
    const bool report = state.range(1) != 0;
    for (auto _ : state) {
        QorThreadManager::GetInstance()->waitIdle();
        const uint64_t countedBefore = recordsCounted();
        const int64_t residentBefore = residentKb();
        MemoryPeak peak;
        std::atomic<int64_t> queued{0};
        std::vector<std::thread> camera;
        for (int t = 0; t < threads; ++t) {
            camera.emplace_back([&queued, report] {
                int64_t mine = 0;
                for (int64_t i = 0; i < kFloodCallsPerThread; ++i) {
                    // The same name every time: the limiter drops all but the first, as it
                    // would a loop's records, so the workers drain as fast as they can.
                    auto leak = std::make_shared<orv::vistelMemLeak>();
                    snprintf(leak->name, sizeof(leak->name), "FloodNode");
                    if (report) mine += manager()->reportMsgImpl(std::move(leak)).valid() ? 1 : 0;
                }
                queued += mine;
            });
        }
        for (std::thread& thread : camera) thread.join();
        QorThreadManager::GetInstance()->waitIdle();
        peak.stop();
        const int64_t calls = report ? threads * kFloodCallsPerThread : 0;
        state.counters["calls"] = static_cast<double>(calls);
        state.counters["shed"] = static_cast<double>(calls - queued);
        state.counters["peak_rss_growth_kb"] =
                static_cast<double>(peak.peakResidentKb() - residentBefore);
        state.counters["peak_heap_kb"] = static_cast<double>(peak.peakHeapKb());
        // Records counted by the library, queued or shed, against the calls: 0 when every call
        // is accounted for.
        state.counters["unaccounted"] =
                static_cast<double>(calls - static_cast<int64_t>(recordsCounted() - countedBefore));
    }
}
BENCHMARK(BM_Flood)
        ->Args({1, 0})
        ->Args({1, 1})
        ->Args({8, 0})
        ->Args({8, 1})
        ->Iterations(1)
        ->Repetitions(2)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);

int64_t monotonicNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kNanosPerSecond + now.tv_nsec;
}

// A second memory leak record type: the camera stack may well have several, and records of
// different types taking turns once cost a loader call each.
struct OtherLeak : orv::vistelMemLeak {};

// Context switches of the calling thread so far: voluntary ones (it waited, on a lock or
// anything else) and involuntary ones (the scheduler took its core).
struct Switches {
    long waited;
    long preempted;
};
Switches switchesOfThisThread() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return {usage.ru_nvcsw, usage.ru_nivcsw};
}

void BM_ReportDuringSlowDlopen(benchmark::State& state) {
    ScopedLogSink logOff(LogSink::kOff);
    // The manager's first GetInstance() binds the service library with dlopen(): that happens
    // once, when the camera stack starts, not on every report.
    manager()->reportMsgImpl(std::make_shared<orv::vistelMemLeak>());
    for (auto _ : state) {
        gSlowModuleLoading = false;
        std::atomic<bool> loaded{false};
        std::thread loader([&loaded] {
            void* module = dlopen(VISTEL_BENCH_SLOW_MODULE, RTLD_NOW | RTLD_LOCAL);
            if (module != nullptr) dlclose(module);
            loaded = true;
        });
        while (!gSlowModuleLoading && !loaded) std::this_thread::yield();
        // Wall-clock time per call, and apart for the calls the scheduler did not interrupt: on a
        // machine with fewer cores than threads, the worker a call wakes often takes its core. A
        // call that waited (for a lock, or anything else) shows as a voluntary switch.
        std::vector<int64_t> callNs;
        int64_t worstNs = 0;
        int64_t preempted = 0;
        int64_t waited = 0;
        for (int64_t i = 0; !loaded; ++i) {
            std::shared_ptr<orv::VistelEventBase> record;
            if (i % 2 == 0) {
                record = std::make_shared<orv::vistelMemLeak>();
            } else {
                record = std::make_shared<OtherLeak>();
            }
            const Switches before = switchesOfThisThread();
            const int64_t start = monotonicNs();
            manager()->reportMsgImpl(std::move(record));
            const int64_t ns = monotonicNs() - start;
            const Switches after = switchesOfThisThread();
            worstNs = std::max(worstNs, ns);
            waited += after.waited > before.waited ? 1 : 0;
            if (after.preempted > before.preempted) {
                ++preempted;
            } else {
                callNs.push_back(ns);
            }
            std::this_thread::sleep_for(kCameraReportEvery);
        }
        loader.join();
        QorThreadManager::GetInstance()->waitIdle();
        if (callNs.empty()) {
            state.SkipWithError("the library loaded before the camera thread could report");
            break;
        }
        std::sort(callNs.begin(), callNs.end());
        state.counters["calls"] = static_cast<double>(callNs.size() + preempted);
        state.counters["preempted"] = static_cast<double>(preempted);
        state.counters["waited"] = static_cast<double>(waited);
        state.counters["p99_us"] = callNs[callNs.size() * 99 / 100] / 1000.0;
        state.counters["worst_us"] = worstNs / 1000.0;
        state.counters["worst_running_us"] = callNs.back() / 1000.0;
    }
}
BENCHMARK(BM_ReportDuringSlowDlopen)
        ->Iterations(1)
        ->Repetitions(3)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace vistel_bench

void vistelBenchSlowModuleLoading() {
    vistel_bench::gSlowModuleLoading = true;
}
