// Records per second from reportMsgImpl until the service holds the event, where a record's CPU
// goes on the way, and what the process keeps per record.
#include <OvrixEvent.h>
#include <QorThreadManager.h>
#include <ServiceTaps.h>
#include <VistelClient.h>
#include <VistelHostService.h>
#include <VistelManager.h>
#include <benchmark/benchmark.h>
#include <time.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "BenchSupport.h"

namespace vistel_bench {

namespace {

using orv::VistelManager;
using Records = std::vector<std::shared_ptr<orv::VistelEventBase>>;

// Records per batch: enough that the pauses between batches (checking, resetting the services'
// memory of what they received) cost nothing per record.
constexpr size_t kBatch = 256;

VistelManager* manager() {
    return VistelManager::GetInstance();
}

// ---- The two reporters measured ----

// A Vistel reporter: one memory leak event, five parameters by index. Every record of a batch
// names its own node, so the limiter lets all of them through; the clock moves an hour between
// batches, so the same keys pass again and the limiter's maps stop growing after the first.
Records memLeakRecords(size_t count, size_t firstKey) {
    Records records;
    for (size_t i = 0; i < count; ++i) {
        auto record = std::make_shared<orv::vistelMemLeak>();
        std::snprintf(record->name, sizeof(record->name), "FeatureNode.stage.%06zu", firstKey + i);
        std::snprintf(record->secondName, sizeof(record->secondName), "ion");
        record->value1 = 4096;
        record->value2 = static_cast<int32_t>(i);
        record->value3 = 3;
        records.push_back(std::move(record));
    }
    return records;
}

// An Ovrix reporter with nested arrays: memory over threshold, never rate-limited, with one
// sub-event per process.
Records memThresholdRecords(size_t count, size_t /*firstKey*/) {
    static const char* const kProcesses[] = {"camerahalserver", "cameraserver", "com.vendor.camera",
                                             "surfaceflinger"};
    Records records;
    for (size_t i = 0; i < count; ++i) {
        auto record = std::make_shared<orv::vistelMemExceedThreshold>();
        record->maxUsableSize = 2048;
        record->usedTotalSizePeak = 2300;
        int32_t pid = 1000;
        for (const char* process : kProcesses) {
            record->processes.push_back({process, ++pid, 120, 380, 300, 150, 90, 12, 0});
        }
        record->sysMemFree = 512;
        record->captureGoingCount = 2;
        record->jpegName = "IMG_20240101_120000_" + std::to_string(i) + ".jpg";
        record->sceneMode = 1;
        record->zoom = 10;
        record->multiCamMask = 3;
        record->snapshotId = static_cast<int32_t>(i);
        record->switchFlag = 0;
        record->eventTime = "2024-01-01 12:00:00";
        records.push_back(std::move(record));
    }
    return records;
}

size_t vistelEventsReceived() {
    return vistelhost::sentEvents().size();
}

size_t ovrixEventsReceived() {
    return ovrixhost::reported().size();
}

// The service's side of one record: the calls the library made for the last event, made again
// straight to the service.
std::function<void()> resendLastVistelEvent() {
    std::vector<vistelhost::SentEvent> sent = vistelhost::sentEvents();
    if (sent.empty()) return nullptr;
    return [event = sent.back()] {
        void* object = vistel_create_eventobj(event.id);
        for (const vistelhost::Param& param : event.params) {
            // The memory leak event is indexed only.
            vistel_set_param(object, param.index, param.intValue);
        }
        vistel_send_event(object);
        vistel_destroy_eventobj(object);
    };
}

std::function<void()> resendLastOvrixEvent() {
    std::vector<OvrixEvent> reported = ovrixhost::reported();
    if (reported.empty()) return nullptr;
    return [event = reported.back()]() mutable { Ovrix::Report(event); };
}

struct Workload {
    const char* name;
    // `count` records; where records carry a limiter key, keys firstKey, firstKey + 1, ...
    Records (*makeRecords)(size_t count, size_t firstKey);
    VistelManager::HandlerMethod handler;
    size_t (*eventsReceived)();
    std::function<void()> (*resendLastEvent)();
};

const Workload kWorkloads[] = {
        {"vistel_mem_leak", memLeakRecords, &VistelManager::sendEventMemLeak, vistelEventsReceived,
         resendLastVistelEvent},
        {"ovrix_mem_threshold", memThresholdRecords, &VistelManager::sendMemoryExceedThreshold,
         ovrixEventsReceived, resendLastOvrixEvent},
};

// ---- The batch loop every benchmark here shares ----

// Clears what the services remember, so memory does not grow with the records sent, and moves
// the clock past every quiet period.
void startOver() {
    vistel_harness::resetServices();
    VirtualClock::advanceSeconds(kHourSeconds);
}

// Delivers a batch of records one way or another; false when a reporter refused a record.
using Delivery = std::function<bool(const Records&)>;

// Whether the service received each of `records` exactly once since the last start; starts
// over either way.
bool receivedEach(const Workload& workload, const Records& records) {
    bool each = workload.eventsReceived() == records.size();
    startOver();
    return each;
}

// Reports every record through the manager and waits until the last reporter has returned.
// Waiting for the pool to go idle rather than on each future in turn: a thread that sleeps on
// every future makes each reporter's result a wake-up, which a camera thread never asks for.
bool dispatchAll(const Records& records) {
    std::vector<std::future<int>> results;
    results.reserve(records.size());
    for (const auto& record : records) results.push_back(manager()->reportMsgImpl(record));
    QorThreadManager::GetInstance()->waitIdle();
    int failures = 0;
    for (std::future<int>& result : results) failures += result.get() != 0;
    return failures == 0;
}

Delivery callDirectly(const Workload& workload) {
    return [&workload](const Records& records) {
        int failures = 0;
        for (const auto& record : records) failures += (manager()->*workload.handler)(record) != 0;
        return failures == 0;
    };
}

// The reporter called directly on as many threads as the manager's pool has workers, each on
// its share of the records: reporters side by side, as the pool runs them, without handing
// over each record. What this adds to a direct call is the waiting on the locks concurrent
// reporters share (the limiter's, the services', the log's).
Delivery callSideBySide(const Workload& workload) {
    static QorThreadManager helpers(QorThreadManager::kDefaultWorkerCount);
    return [&workload](const Records& records) {
        const size_t shares = helpers.workerCount();
        std::vector<std::future<int>> failures;
        for (size_t share = 0; share < shares; ++share) {
            failures.push_back(helpers.enqueue([&workload, &records, share, shares] {
                int failed = 0;
                for (size_t i = share; i < records.size(); i += shares) {
                    failed += (manager()->*workload.handler)(records[i]) != 0;
                }
                return failed;
            }));
        }
        int failed = 0;
        for (std::future<int>& f : failures) failed += f.get();
        return failed == 0;
    };
}

// The service alone, taking again the event the reporter built for the first record.
Delivery resendToService(const Workload& workload, const Records& records) {
    ScopedLogSink logOff(LogSink::kOff);
    startOver();
    (manager()->*workload.handler)(records.front());
    std::function<void()> resend = workload.resendLastEvent();
    startOver();
    if (!resend) return [](const Records&) { return false; };
    return [resend](const Records& batch) {
        for (size_t i = 0; i < batch.size(); ++i) resend();
        return true;
    };
}

// Lines the library logs per record: one batch through the manager, counted.
double linesPerRecord(const Workload& workload, const Records& records) {
    ScopedLogSink counted(LogSink::kCounted);
    int64_t before = loggedLines();
    dispatchAll(records);
    receivedEach(workload, records);
    return static_cast<double>(loggedLines() - before) / static_cast<double>(records.size());
}

// ---- Benchmarks ----

// Records per second through the manager until the service has each event: wall-clock rate,
// and the CPU of every thread of the process.
void BM_EndToEnd(benchmark::State& state, const Workload& workload, LogSink sink) {
    const Records records = workload.makeRecords(kBatch, 0);
    startOver();
    state.counters["log_lines_per_record"] = linesPerRecord(workload, records);
    ScopedLogSink logSink(sink);
    for (auto _ : state) {
        bool reported = dispatchAll(records);
        state.PauseTiming();
        bool received = receivedEach(workload, records);
        state.ResumeTiming();
        if (!reported || !received) {
            state.SkipWithError("a record was refused, dropped or doubled");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(records.size()));
}

int64_t processCpuNs() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<int64_t>(now.tv_sec) * kNanosPerSecond + now.tv_nsec;
}

// Where a record's CPU goes. Each iteration takes the same batch five ways in turn, each timed
// by the CPU of the whole process: through the manager; side by side on the pool's number of
// threads; directly on this thread with the sink; directly with logging off; and the finished
// event to the service alone. Taken in turn, a burst of load from elsewhere on the machine
// falls on all five alike, so their differences (the dispatch, the contention between
// concurrent reporters, the logging, the reporter's own work) hold up.
void BM_Split(benchmark::State& state, const Workload& workload, LogSink sink) {
    const Records records = workload.makeRecords(kBatch, 0);
    struct Way {
        const char* counter;
        LogSink sink;
        Delivery deliver;
        int64_t cpuNs;
    };
    Way ways[] = {
            {"end_to_end_ns", sink, dispatchAll, 0},
            {"side_by_side_ns", sink, callSideBySide(workload), 0},
            {"direct_ns", sink, callDirectly(workload), 0},
            {"direct_log_off_ns", LogSink::kOff, callDirectly(workload), 0},
            {"service_ns", LogSink::kOff, resendToService(workload, records), 0},
    };
    startOver();
    for (auto _ : state) {
        for (Way& way : ways) {
            ScopedLogSink logSink(way.sink);
            int64_t start = processCpuNs();
            bool reported = way.deliver(records);
            way.cpuNs += processCpuNs() - start;
            if (!receivedEach(workload, records) || !reported) {
                state.SkipWithError("a record was refused, dropped or doubled");
                return;
            }
        }
    }
    const double sent = static_cast<double>(state.iterations()) * records.size();
    for (const Way& way : ways) state.counters[way.counter] = way.cpuNs / sent;
}

// Heap the process keeps per record once every key has been seen: the records go through the
// manager in rounds over the same keys, the services forget each round, and whatever the
// library, the pool or the limiter kept shows up here.
void BM_SteadyMemory(benchmark::State& state, const Workload& workload) {
    constexpr int kRounds = 40;
    const Records records = workload.makeRecords(kBatch, 0);
    ScopedLogSink logOff(LogSink::kOff);
    int64_t bytes = 0;
    int64_t allocations = 0;
    bool allReceived = true;
    for (auto _ : state) {
        dispatchAll(records);  // records every key
        allReceived = receivedEach(workload, records);
        AllocationWindow window;
        for (int round = 0; round < kRounds; ++round) {
            dispatchAll(records);
            allReceived = receivedEach(workload, records) && allReceived;
        }
        bytes = window.heldBytes();
        allocations = window.allocations();
    }
    const double sent = static_cast<double>(kRounds * records.size());
    state.counters["held_bytes_per_record"] = static_cast<double>(bytes) / sent;
    state.counters["allocations_per_record"] = static_cast<double>(allocations) / sent;
    if (!allReceived) state.SkipWithError("a record was refused, dropped or doubled");
    if (vistelhost::liveObjects() != 0) state.SkipWithError("a Vistel event object leaked");
}

[[maybe_unused]] const bool kRegistered = [] {
    for (const Workload& w : kWorkloads) {
        const std::string name = w.name;
        for (LogSink sink : {LogSink::kNoop, LogSink::kDefault}) {
            const std::string run = name + "/" + logSinkName(sink);
            // Process CPU time counts the workers too; real time gives the rate.
            benchmark::RegisterBenchmark(("BM_EndToEnd/" + run).c_str(), BM_EndToEnd, w, sink)
                    ->MeasureProcessCPUTime()
                    ->UseRealTime();
            // Its figures are differences of five measurements: more records, less noise.
            benchmark::RegisterBenchmark(("BM_Split/" + run).c_str(), BM_Split, w, sink)
                    ->MinTime(1.0);
        }
        benchmark::RegisterBenchmark(("BM_SteadyMemory/" + name).c_str(), BM_SteadyMemory, w)
                ->Iterations(1);
    }
    return true;
}();

}  // namespace

}  // namespace vistel_bench
