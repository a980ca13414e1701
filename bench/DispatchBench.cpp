// The camera thread's cost of handing over one record, against the floor of the design: the
// same pool taking a bare task that does nothing (one packaged task, one lock, one wake-up).
//
// Each call is measured in three settings of the pool:
//   BM_<call>         every worker is held busy, so nothing competes for the queue and nobody
//                     waits to be woken: the caller's own work, which the ratio target is about;
//   BM_<call>Wake     every worker is asleep, so each call also wakes one, as a sporadic camera
//                     report does;
//   BM_<call>Latency  1, 4 and 8 producers calling freely while the workers run the tasks: the
//                     percentiles of each call's wall-clock time.
#include <QorThreadManager.h>
#include <VistelManager.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "BenchSupport.h"

namespace vistel_bench {

namespace {

// Calls queued behind held workers before they are let go, outside the measured time.
constexpr int64_t kHeldCalls = 2048;
constexpr int64_t kWakeCalls = 20000;
constexpr int64_t kLatencySamplesPerThread = 100000;
// While producers call freely, the queue is kept below kBacklogHigh so a run never builds a
// backlog of millions of records; checked every kBacklogCheckPeriod calls, between calls.
constexpr size_t kBacklogHigh = 512;
constexpr size_t kBacklogLow = 128;
constexpr int64_t kBacklogCheckPeriod = 64;

QorThreadManager* pool() {
    return QorThreadManager::GetInstance();
}

// ---- The two calls compared ----

void enqueueBareTask() {
    pool()->enqueue([] { return 0; });
}

// Kind 18: its handler logs two lines (filtered out here) and answers 0. Each producer thread
// reports its own record, as camera threads do, so they do not share one reference count.
void reportCheapRecord() {
    thread_local const std::shared_ptr<orv::VistelEventBase> record =
            std::make_shared<orv::vistelAlgoProcessTimeoutDumpSystrace>();
    orv::VistelManager::GetInstance()->reportMsgImpl(record);
}

struct DispatchCall {
    const char* name;
    void (*call)();
};

const DispatchCall kCalls[] = {
        {"EnqueueFloor", enqueueBareTask},
        {"ReportMsgImpl", reportCheapRecord},
};

// ---- Pool settings ----

// Keeps every worker of the pool busy on a task that waits for the hold to end, so that what
// is queued meanwhile stays queued. Ending the hold lets the workers drain the queue.
class WorkerHold {
  public:
    WorkerHold() {
        std::shared_future<void> released = mRelease.get_future().share();
        for (size_t i = 0; i < pool()->workerCount(); ++i) {
            pool()->enqueue([released] { released.wait(); });
        }
        // Each worker has taken one waiting task once none is left in the queue.
        while (pool()->pendingTasks() != 0) std::this_thread::yield();
    }
    ~WorkerHold() {
        mRelease.set_value();
        pool()->waitIdle();
    }
    WorkerHold(const WorkerHold&) = delete;
    WorkerHold& operator=(const WorkerHold&) = delete;

  private:
    std::promise<void> mRelease;
};

// Heap blocks one call takes, on whichever thread, counted over calls the workers have run.
// The queue's own storage adds one block per 512 bytes of queued tasks.
double allocationsPerCall(void (*call)()) {
    constexpr int kCalls = 1024;
    pool()->waitIdle();
    AllocationWindow window;
    for (int i = 0; i < kCalls; ++i) call();
    pool()->waitIdle();
    return static_cast<double>(window.allocations()) / kCalls;
}

void measureHeld(benchmark::State& state, void (*call)()) {
    ScopedLogSink logOff(LogSink::kOff);
    state.counters["allocations_per_call"] = allocationsPerCall(call);
    auto hold = std::make_unique<WorkerHold>();
    int64_t calls = 0;
    for (auto _ : state) {
        call();
        if (++calls % kHeldCalls == 0) {
            state.PauseTiming();
            hold.reset();  // the workers drain the queue before the next hold
            hold = std::make_unique<WorkerHold>();
            state.ResumeTiming();
        }
    }
}

// Per call, wall-clock: the waiting for the workers to go back to sleep is not counted.
void measureWake(benchmark::State& state, void (*call)()) {
    ScopedLogSink logOff(LogSink::kOff);
    for (auto _ : state) {
        pool()->waitIdle();
        auto start = std::chrono::steady_clock::now();
        call();
        state.SetIterationTime(
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    pool()->waitIdle();
}

// ---- Caller latency percentiles, 1 to 8 producer threads ----

// The samples of every producer thread of one run. The last thread to finish computes the
// percentiles, so each is reported once however many threads ran.
struct LatencySamples {
    std::mutex mutex;
    std::vector<int64_t> nanos;  // guarded by mutex
    int finishedThreads = 0;     // guarded by mutex
};

void reportPercentiles(benchmark::State& state, LatencySamples& all, std::vector<int64_t>& mine) {
    std::lock_guard<std::mutex> lock(all.mutex);
    all.nanos.insert(all.nanos.end(), mine.begin(), mine.end());
    if (++all.finishedThreads != state.threads()) return;
    std::vector<int64_t>& nanos = all.nanos;
    auto percentile = [&nanos](double p) {
        auto nth = nanos.begin() + static_cast<std::ptrdiff_t>(p * double(nanos.size() - 1));
        std::nth_element(nanos.begin(), nth, nanos.end());
        return static_cast<double>(*nth);
    };
    state.counters["p50_ns"] = percentile(0.50);
    state.counters["p99_ns"] = percentile(0.99);
    state.counters["p999_ns"] = percentile(0.999);
}

// The log sink of a run on several threads, held from before the first thread starts until the
// workers have finished the last record.
std::optional<ScopedLogSink> gRunLogSink;

void logOffForRun(const benchmark::State&) {
    gRunLogSink.emplace(LogSink::kOff);
}

void restoreLogAfterRun(const benchmark::State&) {
    pool()->waitIdle();
    gRunLogSink.reset();
}

void measureLatency(benchmark::State& state, void (*call)()) {
    static LatencySamples samples;
    if (state.thread_index() == 0) {
        // The other threads only touch the samples after the loop, behind the start barrier.
        samples.nanos.clear();
        samples.finishedThreads = 0;
    }
    std::vector<int64_t> mine;
    mine.reserve(static_cast<size_t>(state.max_iterations));
    int64_t calls = 0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        call();
        auto elapsed = std::chrono::steady_clock::now() - start;
        mine.push_back(std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count());
        state.SetIterationTime(std::chrono::duration<double>(elapsed).count());
        if (++calls % kBacklogCheckPeriod == 0 && pool()->pendingTasks() > kBacklogHigh) {
            while (pool()->pendingTasks() > kBacklogLow) std::this_thread::yield();
        }
    }
    reportPercentiles(state, samples, mine);
}

[[maybe_unused]] const bool kRegistered = [] {
    for (const DispatchCall& c : kCalls) {
        const std::string name = std::string("BM_") + c.name;
        benchmark::RegisterBenchmark(name.c_str(), measureHeld, c.call);
        benchmark::RegisterBenchmark((name + "Wake").c_str(), measureWake, c.call)
                ->Iterations(kWakeCalls)
                ->UseManualTime();
        benchmark::RegisterBenchmark((name + "Latency").c_str(), measureLatency, c.call)
                ->Threads(1)
                ->Threads(4)
                ->Threads(8)
                ->Iterations(kLatencySamplesPerThread)
                ->UseManualTime()
                ->Setup(logOffForRun)
                ->Teardown(restoreLogAfterRun);
    }
    return true;
}();

}  // namespace

}  // namespace vistel_bench
