// What a runaway camera stack costs the process, and what the camera thread meets while another
// thread loads a library.
//
//   BM_Flood/<threads>          1 or 8 camera threads each calling reportMsgImpl in a loop, a new
//                               memory leak record every call: the peak growth of the resident
//                               memory over the run, and every call accounted for (queued and
//                               counted by the library, or shed)
//   BM_ReportDuringSlowDlopen   the worst and the 99th percentile of a camera thread's
//                               reportMsgImpl, one call every 50 us, while another thread
//                               dlopen()s a library whose constructor takes 300 ms: the dynamic
//                               loader holds its lock all that time
#include <LibraryDump.h>
#include <QorThreadManager.h>
#include <VistelManager.h>
#include <benchmark/benchmark.h>
#include <dlfcn.h>
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

// The highest resident memory seen while it lives, sampled every millisecond.
class ResidentPeak {
  public:
    ResidentPeak() : mPeakKb(residentKb()), mSampler([this] { sample(); }) {}
    ~ResidentPeak() { stop(); }
    ResidentPeak(const ResidentPeak&) = delete;
    ResidentPeak& operator=(const ResidentPeak&) = delete;

    int64_t stop() {
        mStop = true;
        if (mSampler.joinable()) mSampler.join();
        return mPeakKb;
    }

  private:
    void sample() {
        while (!mStop) {
            mPeakKb = std::max<int64_t>(mPeakKb, residentKb());
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    std::atomic<bool> mStop{false};
    std::atomic<int64_t> mPeakKb;
    std::thread mSampler;
};

uint64_t recordsCounted() {
    return vistel_tools::parseLibraryDump(vistel_tools::libraryDumpLines()).total.records;
}

void BM_Flood(benchmark::State& state) {
    ScopedLogSink logOff(LogSink::kOff);
    const int threads = static_cast<int>(state.range(0));
    for (auto _ : state) {
        QorThreadManager::GetInstance()->waitIdle();
        const uint64_t countedBefore = recordsCounted();
        const int64_t residentBefore = residentKb();
        ResidentPeak peak;
        std::atomic<int64_t> queued{0};
        std::vector<std::thread> camera;
        for (int t = 0; t < threads; ++t) {
            camera.emplace_back([&queued] {
                int64_t mine = 0;
                for (int64_t i = 0; i < kFloodCallsPerThread; ++i) {
                    // The same name every time: the limiter drops all but the first, as it
                    // would a loop's records, so the workers drain as fast as they can.
                    auto leak = std::make_shared<orv::vistelMemLeak>();
                    snprintf(leak->name, sizeof(leak->name), "FloodNode");
                    mine += manager()->reportMsgImpl(std::move(leak)).valid() ? 1 : 0;
                }
                queued += mine;
            });
        }
        for (std::thread& thread : camera) thread.join();
        QorThreadManager::GetInstance()->waitIdle();
        const int64_t peakKb = peak.stop();
        const int64_t calls = threads * kFloodCallsPerThread;
        state.counters["calls"] = static_cast<double>(calls);
        state.counters["shed"] = static_cast<double>(calls - queued);
        state.counters["peak_rss_growth_kb"] = static_cast<double>(peakKb - residentBefore);
        // Records counted by the library, queued or shed, against the calls: 0 when every call
        // is accounted for.
        state.counters["unaccounted"] =
                static_cast<double>(calls - static_cast<int64_t>(recordsCounted() - countedBefore));
    }
}
BENCHMARK(BM_Flood)->Arg(1)->Arg(8)->Iterations(1)->Repetitions(2)->UseRealTime()->Unit(
        benchmark::kMillisecond);

int64_t monotonicNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kNanosPerSecond + now.tv_nsec;
}

// A second memory leak record type: the camera stack may well have several, and records of
// different types taking turns once cost a loader call each.
struct OtherLeak : orv::vistelMemLeak {};

void BM_ReportDuringSlowDlopen(benchmark::State& state) {
    ScopedLogSink logOff(LogSink::kOff);
    for (auto _ : state) {
        gSlowModuleLoading = false;
        std::atomic<bool> loaded{false};
        std::thread loader([&loaded] {
            void* module = dlopen(VISTEL_BENCH_SLOW_MODULE, RTLD_NOW | RTLD_LOCAL);
            if (module != nullptr) dlclose(module);
            loaded = true;
        });
        while (!gSlowModuleLoading && !loaded) std::this_thread::yield();
        std::vector<int64_t> callNs;
        for (int64_t i = 0; !loaded; ++i) {
            std::shared_ptr<orv::VistelEventBase> record;
            if (i % 2 == 0) {
                record = std::make_shared<orv::vistelMemLeak>();
            } else {
                record = std::make_shared<OtherLeak>();
            }
            const int64_t start = monotonicNs();
            manager()->reportMsgImpl(std::move(record));
            callNs.push_back(monotonicNs() - start);
            std::this_thread::sleep_for(kCameraReportEvery);
        }
        loader.join();
        QorThreadManager::GetInstance()->waitIdle();
        if (callNs.empty()) {
            state.SkipWithError("the library loaded before the camera thread could report");
            break;
        }
        std::sort(callNs.begin(), callNs.end());
        state.counters["calls"] = static_cast<double>(callNs.size());
        state.counters["p99_us"] = callNs[callNs.size() * 99 / 100] / 1000.0;
        state.counters["worst_us"] = callNs.back() / 1000.0;
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
