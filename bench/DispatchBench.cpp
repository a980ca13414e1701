// The camera thread's cost of handing over one record, against the floor of the design: the
// same pool taking a bare task that does nothing (one packaged task, one lock, one wake-up).
//
// Each call is measured in three settings of the pool:
//   BM_<call>         every worker is held busy, so nothing competes for the queue and nobody
//                     waits to be woken: the caller's own work, which the ratio target is about;
//   BM_<call>Wake     every worker is asleep, so each call also wakes one, as a sporadic camera
//                     report does: the caller's CPU per call;
//   BM_<call>Latency  1, 4 and 8 producers calling freely while the workers run the tasks: the
//                     percentiles of each call's wall-clock time.
#include <QorThreadManager.h>
#include <VistelManager.h>
#include <WorkerHold.h>
#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "BenchSupport.h"
#include "InFlightBound.h"

namespace vistel_bench {

namespace {

using vistel_harness::WorkerHold;

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
// Each call is handed a record the camera thread made beforehand, as camera code does, so the
// record's reference count starts on the caller's core. The bare task carries none. Never
// inlined into the loops, so that dispatch-instructions.sh finds each as a call of its own.

using Record = std::shared_ptr<orv::VistelEventBase>;

[[gnu::noinline]] void enqueueBareTask(const Record&) {
    pool()->enqueue([] { return 0; });
}

[[gnu::noinline]] void reportRecord(const Record& record) {
    orv::VistelManager::GetInstance()->reportMsgImpl(record);
}

// Kind 18: its handler logs two lines (filtered out here) and answers 0.
Record makeRecord() {
    return std::make_shared<orv::vistelAlgoProcessTimeoutDumpSystrace>();
}

std::vector<Record> makeRecords(size_t count) {
    std::vector<Record> records(count);
    std::generate(records.begin(), records.end(), makeRecord);
    return records;
}

using Call = void (*)(const Record&);

struct DispatchCall {
    const char* name;
    Call call;
};

const DispatchCall kCalls[] = {
        {"EnqueueFloor", enqueueBareTask},
        {"ReportMsgImpl", reportRecord},
};

// ---- Pool settings ----

// Heap blocks one call takes, on whichever thread, counted over calls the workers have run.
// The queue's own storage adds one block per 512 bytes of queued tasks.
double allocationsPerCall(Call call) {
    constexpr int kCalls = 1024;
    std::vector<Record> records = makeRecords(kCalls);
    pool()->waitIdle();
    AllocationWindow window;
    for (const Record& record : records) call(record);
    pool()->waitIdle();
    return static_cast<double>(window.allocations()) / kCalls;
}

void measureHeld(benchmark::State& state, Call call) {
    ScopedLogSink logOff(LogSink::kOff);
    state.counters["allocations_per_call"] = allocationsPerCall(call);
    std::vector<Record> records = makeRecords(kHeldCalls);
    auto hold = std::make_unique<WorkerHold>();
    size_t next = 0;
    for (auto _ : state) {
        call(records[next]);
        if (++next == records.size()) {
            state.PauseTiming();
            hold.reset();  // the workers drain the queue before the next hold
            records = makeRecords(kHeldCalls);
            hold = std::make_unique<WorkerHold>();
            next = 0;
            state.ResumeTiming();
        }
    }
}

// How long one call on a fresh record takes by `clock`, in nanoseconds.
int64_t timeOneCall(Call call, clockid_t clock) {
    Record record = makeRecord();
    timespec start{};
    timespec end{};
    clock_gettime(clock, &start);
    call(record);
    clock_gettime(clock, &end);
    return (end.tv_sec - start.tv_sec) * kNanosPerSecond + (end.tv_nsec - start.tv_nsec);
}

// The calling thread's own CPU per call, the wake-up's system call included. Wall-clock time
// would also count the moments the woken worker takes this thread's core, which on a machine
// with fewer cores than threads it often does. Waiting for the workers to go back to sleep
// between calls is not counted.
void measureWake(benchmark::State& state, Call call) {
    ScopedLogSink logOff(LogSink::kOff);
    for (auto _ : state) {
        pool()->waitIdle();
        int64_t ns = timeOneCall(call, CLOCK_THREAD_CPUTIME_ID);
        state.SetIterationTime(static_cast<double>(ns) / kNanosPerSecond);
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

void logOffForRun(const benchmark::State&) {
    setRunLogSink(LogSink::kOff);
}

void restoreLogAfterRun(const benchmark::State&) {
    pool()->waitIdle();  // the workers may still be running the last records
    restoreRunLogSink();
}

void measureLatency(benchmark::State& state, Call call) {
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
        mine.push_back(timeOneCall(call, CLOCK_MONOTONIC));
        state.SetIterationTime(static_cast<double>(mine.back()) / kNanosPerSecond);
        if (++calls % kBacklogCheckPeriod == 0 && pool()->pendingTasks() > kBacklogHigh) {
            while (pool()->pendingTasks() > kBacklogLow) std::this_thread::yield();
        }
    }
    reportPercentiles(state, samples, mine);
}

// ---- A refused call: the records in flight at the bound ----

// The same code as reportRecord: noipa keeps GCC from folding the two into one function, which
// dispatch-instructions.sh could then no longer tell apart.
[[gnu::noipa]] void refuseRecord(const Record& record) {
    orv::VistelManager::GetInstance()->reportMsgImpl(record);
}

// Every worker held and the bound filled, so each call is shed at the door.
void BM_ReportMsgImplRefused(benchmark::State& state) {
    ScopedLogSink logOff(LogSink::kOff);
    WorkerHold hold;
    std::vector<Record> queued = makeRecords(orv::InFlightBound::kBound);
    for (const Record& record : queued) reportRecord(record);
    const Record record = makeRecord();
    for (auto _ : state) refuseRecord(record);
}
BENCHMARK(BM_ReportMsgImplRefused);

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
