// Records per second from reportMsgImpl until the service holds the event, and the parts of a
// record's cost: the same reporter called directly (reporter, service and logging, no dispatch)
// and the service alone, each under the log sinks that separate formatting from writing.
#include <OvrixEvent.h>
#include <QorThreadManager.h>
#include <VistelClient.h>
#include <VistelHostService.h>
#include <VistelManager.h>
#include <benchmark/benchmark.h>

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

// Records per timed batch: enough that the pauses between batches (checking, resetting the
// services' memory of what they received) cost nothing per record.
constexpr size_t kBatch = 256;

VistelManager* manager() {
    return VistelManager::GetInstance();
}

// ---- The two reporters measured ----

// A Vistel reporter: one memory leak event, five parameters by index. Every record of a batch
// names its own node, so the limiter lets all of them through; the clock moves an hour between
// batches, so the same keys pass again and the limiter's maps stop growing after the first.
Records memLeakRecords(size_t count) {
    Records records;
    for (size_t i = 0; i < count; ++i) {
        auto record = std::make_shared<orv::vistelMemLeak>();
        std::snprintf(record->name, sizeof(record->name), "FeatureNode.stage.%04zu", i);
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
Records memThresholdRecords(size_t count) {
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
    Records (*makeRecords)(size_t count);
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
    vistelhost::reset();
    ovrixhost::reset();
    advanceClockSeconds(kHourSeconds);
}

// Runs `deliver(records)` once per iteration on a batch of the workload's records and checks
// that every record was reported (deliver answers true) and received exactly once.
template <typename Deliver>
void runBatches(benchmark::State& state, const Workload& workload, const Records& records,
                Deliver deliver) {
    startOver();
    for (auto _ : state) {
        bool reported = deliver(records);
        state.PauseTiming();
        size_t received = workload.eventsReceived();
        startOver();
        state.ResumeTiming();
        if (!reported || received != records.size()) {
            state.SkipWithError("a record was refused, dropped or doubled");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(records.size()));
}

// Reports every record through the manager and waits until the last reporter has returned.
// Waiting for the pool to go idle rather than on each future in turn: a thread that sleeps on
// every future makes each reporter's result a wake-up, which a camera thread never asks for.
int dispatchAll(const Records& records, std::vector<std::future<int>>& results) {
    results.clear();
    for (const auto& record : records) results.push_back(manager()->reportMsgImpl(record));
    QorThreadManager::GetInstance()->waitIdle();
    int failures = 0;
    for (std::future<int>& result : results) failures += result.get() != 0;
    return failures;
}

// Lines the library logs per record: one batch through the manager, counted.
double linesPerRecord(const Records& records) {
    ScopedLogSink counted(LogSink::kCounted);
    std::vector<std::future<int>> results;
    startOver();
    int64_t before = loggedLines();
    dispatchAll(records, results);
    return static_cast<double>(loggedLines() - before) / static_cast<double>(records.size());
}

void BM_EndToEnd(benchmark::State& state, const Workload& workload, LogSink sink) {
    const Records records = workload.makeRecords(kBatch);
    state.counters["log_lines_per_record"] = linesPerRecord(records);
    ScopedLogSink logSink(sink);
    std::vector<std::future<int>> results;
    results.reserve(records.size());
    runBatches(state, workload, records,
               [&](const Records& batch) { return dispatchAll(batch, results) == 0; });
}

// The reporter on the benchmark's own thread: the record's cost without the dispatch.
void BM_Reporter(benchmark::State& state, const Workload& workload, LogSink sink) {
    const Records records = workload.makeRecords(kBatch);
    ScopedLogSink logSink(sink);
    runBatches(state, workload, records, [&](const Records& batch) {
        int failures = 0;
        for (const auto& record : batch) failures += (manager()->*workload.handler)(record) != 0;
        return failures == 0;
    });
}

// The service alone, taking the event the reporter built for the first record.
void BM_Service(benchmark::State& state, const Workload& workload) {
    const Records records = workload.makeRecords(kBatch);
    ScopedLogSink logOff(LogSink::kOff);
    startOver();
    (manager()->*workload.handler)(records.front());
    std::function<void()> resend = workload.resendLastEvent();
    if (!resend) {
        state.SkipWithError("the reporter sent nothing to copy");
        return;
    }
    runBatches(state, workload, records, [&](const Records& batch) {
        for (size_t i = 0; i < batch.size(); ++i) resend();
        return true;
    });
}

// Heap the process keeps per record once every key has been seen: the records go through the
// manager in rounds over the same keys, the services forget each round, and whatever the
// library, the pool or the limiter kept shows up here.
void BM_SteadyMemory(benchmark::State& state, const Workload& workload) {
    constexpr int kRounds = 40;
    const Records records = workload.makeRecords(kBatch);
    ScopedLogSink logOff(LogSink::kOff);
    std::vector<std::future<int>> results;
    results.reserve(records.size());
    int64_t bytes = 0;
    int64_t allocations = 0;
    for (auto _ : state) {
        dispatchAll(records, results);  // the first round records every key
        startOver();
        AllocationWindow window;
        for (int round = 0; round < kRounds; ++round) {
            dispatchAll(records, results);
            startOver();
        }
        bytes = window.heldBytes();
        allocations = window.allocations();
    }
    const double sent = static_cast<double>(kRounds * records.size());
    state.counters["held_bytes_per_record"] = static_cast<double>(bytes) / sent;
    state.counters["allocations_per_record"] = static_cast<double>(allocations) / sent;
    if (vistelhost::liveObjects() != 0) state.SkipWithError("a Vistel event object leaked");
}

[[maybe_unused]] const bool kRegistered = [] {
    constexpr LogSink kEndToEndSinks[] = {LogSink::kNoop, LogSink::kDefault};
    constexpr LogSink kReporterSinks[] = {LogSink::kOff, LogSink::kNoop, LogSink::kDefault};
    for (const Workload& w : kWorkloads) {
        const std::string name = w.name;
        for (LogSink sink : kEndToEndSinks) {
            // Process CPU time counts the workers too; real time gives the rate.
            benchmark::RegisterBenchmark(("BM_EndToEnd/" + name + "/" + logSinkName(sink)).c_str(),
                                         BM_EndToEnd, w, sink)
                    ->MeasureProcessCPUTime()
                    ->UseRealTime();
        }
        for (LogSink sink : kReporterSinks) {
            benchmark::RegisterBenchmark(("BM_Reporter/" + name + "/" + logSinkName(sink)).c_str(),
                                         BM_Reporter, w, sink);
        }
        benchmark::RegisterBenchmark(("BM_Service/" + name).c_str(), BM_Service, w);
        benchmark::RegisterBenchmark(("BM_SteadyMemory/" + name).c_str(), BM_SteadyMemory, w)
                ->Iterations(1);
    }
    return true;
}();

}  // namespace

}  // namespace vistel_bench
