// vistel_bench: runs every benchmark of the library, then prints the table of figures, each
// beside its floor. Any Google Benchmark flag may be given; the defaults below come first, so
// a flag on the command line wins (e.g. --benchmark_repetitions=1 for a quick look).
#include <android/log.h>
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vistel_bench {

namespace {

using Run = benchmark::BenchmarkReporter::Run;

// Repetitions run interleaved, so that a burst of load from other work on the machine falls on
// different benchmarks each time, and each figure is the best of them: on a shared machine
// other work only ever adds time, so the best run is the one closest to the code's own cost.
const char* const kDefaultFlags[] = {
        "--benchmark_repetitions=5",
        "--benchmark_enable_random_interleaving=true",
};

enum class Field { kCpuNs, kRealNs, kCounter };

// One number taken from the runs: the best of a field over the repetitions of one benchmark
// (its name as registered, "/"-joined with its arguments) run on `threads` threads. Costs are
// best when lowest, rates when highest.
struct Quantity {
    std::string run;
    Field field;
    const char* counter = nullptr;  // kCounter only
    int threads = 1;
    bool higherIsBetter = false;
};

struct Figure {
    std::string label;
    const char* unit;
    Quantity value;
    std::optional<Quantity> floor;  // none: the target column says what is expected
    const char* target;
};

Quantity cpu(const std::string& run) {
    return {run, Field::kCpuNs};
}

// What a benchmark timed itself (UseManualTime): its real time is that time.
Quantity manualTime(const std::string& run) {
    return {run, Field::kRealNs};
}

Quantity counter(const std::string& run, const char* name) {
    return {run, Field::kCounter, name};
}

Quantity latency(const std::string& run, const char* percentile, int threads) {
    return {run, Field::kCounter, percentile, threads};
}

Quantity endToEndRate(const std::string& run) {
    return {run, Field::kCounter, "items_per_second", 1, true};
}

// The highest of a counter over the repetitions: for figures that promise a ceiling.
Quantity worst(const std::string& run, const char* name) {
    return {run, Field::kCounter, name, 1, true};
}

const Figure kFigures[] = {
        {"reportMsgImpl, caller CPU, workers busy", "ns", cpu("BM_ReportMsgImpl"),
         cpu("BM_EnqueueFloor"), "<= 1.25"},
        {"  heap blocks per call", "", counter("BM_ReportMsgImpl", "allocations_per_call"),
         counter("BM_EnqueueFloor", "allocations_per_call"), ""},
        {"reportMsgImpl waking a worker, caller CPU", "ns", manualTime("BM_ReportMsgImplWake"),
         manualTime("BM_EnqueueFloorWake"), ""},
        {"limiter decision, 1 key", "ns", cpu("BM_LimiterDecision/1"), cpu("BM_LimiterDecision/1"),
         ""},
        {"limiter decision, 1,000 keys", "ns", cpu("BM_LimiterDecision/1000"),
         cpu("BM_LimiterDecision/1"), "log growth"},
        {"limiter decision, 100,000 keys", "ns", cpu("BM_LimiterDecision/100000"),
         cpu("BM_LimiterDecision/1"), "<= 3"},
        {"  shuffled keys, 1,000 keys", "ns", cpu("BM_LimiterDecisionShuffled/1000"),
         cpu("BM_LimiterDecision/1"), ""},
        {"  shuffled keys, 100,000 keys", "ns", cpu("BM_LimiterDecisionShuffled/100000"),
         cpu("BM_LimiterDecision/1"), ""},
        {"limiter heap per key, 8-char key", "B",
         counter("BM_LimiterBytesPerKey/8", "bytes_per_key"),
         counter("BM_LimiterBytesPerKey/8", "expected_bytes_per_key"), "node only"},
        {"limiter heap per key, 24-char key", "B",
         counter("BM_LimiterBytesPerKey/24", "bytes_per_key"),
         counter("BM_LimiterBytesPerKey/24", "expected_bytes_per_key"), "node + text"},
        {"heap kept per record, keys repeating: vistel", "B",
         counter("BM_SteadyMemory/vistel_mem_leak", "held_bytes_per_record"), std::nullopt, "0"},
        {"heap kept per record, keys repeating: ovrix", "B",
         counter("BM_SteadyMemory/ovrix_mem_threshold", "held_bytes_per_record"), std::nullopt, "0"},
        {"reportMsgImpl shed at the bound, caller CPU", "ns", cpu("BM_ReportMsgImplRefused"),
         cpu("BM_ReportMsgImpl"), ""},
        {"reportMsgImpl during a 300 ms dlopen: calls that waited", "",
         worst("BM_ReportDuringSlowDlopen", "waited"), std::nullopt, "0 (worst)"},
        {"  worst call", "us", worst("BM_ReportDuringSlowDlopen", "worst_us"), std::nullopt,
         "(worst)"},
        {"  worst call the scheduler did not interrupt", "us",
         worst("BM_ReportDuringSlowDlopen", "worst_running_us"), std::nullopt, "<= 1000 (worst)"},
        {"  99th percentile of those", "us", worst("BM_ReportDuringSlowDlopen", "p99_us"),
         std::nullopt, "(worst)"},
        {"  calls the scheduler interrupted", "", worst("BM_ReportDuringSlowDlopen", "preempted"),
         std::nullopt, "(worst)"},
};

// Shows the console output as usual (only the aggregates when a benchmark was repeated) and
// keeps every repetition for the table.
class SummaryReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        std::vector<Run> shown;
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate || run.repetitions <= 1) shown.push_back(run);
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) mRuns.push_back(run);
        }
        if (!shown.empty()) ConsoleReporter::ReportRuns(shown);
    }

    // The mean of a per-record counter over every record of every repetition of `run`, for
    // figures whose parts must come from the same records and whose differences the best of a
    // few runs would make noisy.
    std::optional<double> meanCounter(const std::string& run, const char* counter) const {
        double sum = 0;
        double iterations = 0;
        for (const Run& r : mRuns) {
            auto found = r.counters.find(counter);
            if (nameOf(r) != run || found == r.counters.end()) continue;
            sum += found->second.value * static_cast<double>(r.iterations);
            iterations += static_cast<double>(r.iterations);
        }
        if (iterations == 0) return std::nullopt;
        return sum / iterations;
    }

    std::optional<double> best(const Quantity& q) const {
        std::optional<double> found;
        for (const Run& run : mRuns) {
            if (nameOf(run) != q.run || run.threads != q.threads) continue;
            std::optional<double> v = fieldOf(run, q);
            if (v && (!found || (q.higherIsBetter ? *v > *found : *v < *found))) found = v;
        }
        return found;
    }

  private:
    static std::string nameOf(const Run& run) {
        const benchmark::BenchmarkName& name = run.run_name;
        return name.args.empty() ? name.function_name : name.function_name + "/" + name.args;
    }

    static std::optional<double> fieldOf(const Run& run, const Quantity& q) {
        const double toNs = 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
        switch (q.field) {
            case Field::kCpuNs:
                return run.GetAdjustedCPUTime() * toNs;
            case Field::kRealNs:
                return run.GetAdjustedRealTime() * toNs;
            case Field::kCounter: {
                auto counter = run.counters.find(q.counter);
                if (counter == run.counters.end()) return std::nullopt;
                return counter->second.value;
            }
        }
        return std::nullopt;
    }

    std::vector<Run> mRuns;
};

std::string formatValue(std::optional<double> value) {
    if (!value) return "n/a";
    char text[32];
    std::snprintf(text, sizeof(text), std::fabs(*value) >= 100 ? "%.0f" : "%.2f", *value);
    return text;
}

void printRow(const std::string& label, std::optional<double> value, const char* unit,
              std::optional<double> floor, const char* target) {
    std::string ratio = value && floor && *floor != 0 ? formatValue(*value / *floor) : "";
    std::printf("%-50s %12s %6s %12s %7s  %s\n", label.c_str(), formatValue(value).c_str(), unit,
                floor ? formatValue(floor).c_str() : "", ratio.c_str(), target);
}

void printFigure(const SummaryReporter& results, const Figure& f) {
    printRow(f.label, results.best(f.value), f.unit,
             f.floor ? results.best(*f.floor) : std::nullopt, f.target);
}

// The caller's wall-clock percentiles, reportMsgImpl against the bare task.
void printLatencyFigures(const SummaryReporter& results) {
    const std::pair<const char*, const char*> kPercentiles[] = {
            {"p50", "p50_ns"}, {"p99", "p99_ns"}, {"p99.9", "p999_ns"}};
    for (int producers : {1, 4, 8}) {
        for (const auto& [percentile, counter] : kPercentiles) {
            std::string label = std::string("caller latency ") + percentile + ", " +
                                std::to_string(producers) + " producer" + (producers > 1 ? "s" : "");
            printFigure(results,
                        {label, "ns", latency("BM_ReportMsgImplLatency", counter, producers),
                         latency("BM_EnqueueFloorLatency", counter, producers), ""});
        }
    }
}

// The two reporters measured end to end and the loggers they were measured with.
const char* const kWorkloads[] = {"vistel_mem_leak", "ovrix_mem_threshold"};
const char* const kEndToEndSinks[] = {"noop_logger", "default_logger"};

// Records per second through the manager, then the CPU each record took there against the
// same reporter called directly (no dispatch), both from the same repetition of BM_Split.
void printEndToEndFigures(const SummaryReporter& results) {
    for (const char* workload : kWorkloads) {
        for (const char* sink : kEndToEndSinks) {
            const std::string run = std::string(workload) + "/" + sink;
            printFigure(results, {"end to end, " + run, "rec/s", endToEndRate("BM_EndToEnd/" + run),
                                  std::nullopt, ""});
            const std::string split = "BM_Split/" + run;
            printRow("  CPU per record vs direct call", results.meanCounter(split, "end_to_end_ns"),
                     "ns", results.meanCounter(split, "direct_ns"), "");
        }
    }
}

// A flood by 1 and by 8 camera threads, each figure beside its floor where the floor is the same
// threads making and dropping the records without reporting them.
void printFloodFigures(const SummaryReporter& results) {
    for (const char* threads : {"1", "8"}) {
        const std::string run = std::string("BM_Flood/") + threads;
        const std::string label = std::string("flood, ") + threads + " thread" +
                                  (threads[0] == '1' ? "" : "s") + " x 1M records: peak RSS growth";
        printFigure(results, {label, "KB", worst(run + "/1", "peak_rss_growth_kb"),
                              worst(run + "/0", "peak_rss_growth_kb"), "<= 4096 (worst)"});
        printFigure(results, {"  peak heap held", "KB", worst(run + "/1", "peak_heap_kb"),
                              worst(run + "/0", "peak_heap_kb"), "(worst)"});
        printFigure(results,
                    {"  records shed", "", worst(run + "/1", "shed"), std::nullopt, "(worst)"});
        printFigure(results, {"  calls the library did not count", "",
                              worst(run + "/1", "unaccounted"), std::nullopt, "0 (worst)"});
    }
}

void printFigures(const SummaryReporter& results) {
    std::printf("\n%-50s %12s %6s %12s %7s  %s\n", "figure (best of repetitions)", "measured",
                "unit", "floor", "ratio", "target");
    for (const Figure& f : kFigures) printFigure(results, f);
    printEndToEndFigures(results);
    printLatencyFigures(results);
    printFloodFigures(results);
}

// Where a record's CPU goes, over every repetition of BM_Split: its five ways of taking the
// same records differ by one part each.
void printSplit(const SummaryReporter& results, const char* workload, const char* sink) {
    const std::string run = std::string(workload) + "/" + sink;
    const char* const kWays[] = {"end_to_end_ns", "side_by_side_ns", "direct_ns",
                                 "direct_log_off_ns", "service_ns"};
    std::map<std::string, double> ns;
    for (const char* way : kWays) {
        std::optional<double> value = results.meanCounter("BM_Split/" + run, way);
        if (!value) {
            std::printf("%-38s n/a\n", run.c_str());
            return;
        }
        ns[way] = *value;
    }
    const double total = ns["end_to_end_ns"];
    const std::pair<const char*, double> parts[] = {
            {"dispatch", total - ns["side_by_side_ns"]},
            {"contention", ns["side_by_side_ns"] - ns["direct_ns"]},
            {"reporter", ns["direct_log_off_ns"] - ns["service_ns"]},
            {"service", ns["service_ns"]},
            {"logging", ns["direct_ns"] - ns["direct_log_off_ns"]},
    };
    std::printf("%-38s %7.0f ns:", run.c_str(), total);
    for (const auto& [part, partNs] : parts) {
        std::printf("  %s %.0f (%.0f%%)", part, partNs, 100.0 * partNs / total);
    }
    std::printf("\n");
}

}  // namespace

}  // namespace vistel_bench

int main(int argc, char** argv) {
    std::vector<char*> args = {argv[0]};
    for (const char* flag : vistel_bench::kDefaultFlags) args.push_back(const_cast<char*>(flag));
    args.insert(args.end(), argv + 1, argv + argc);
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;

    vistel_bench::SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    vistel_bench::printFigures(reporter);
    std::printf(
            "\nCPU per record, split (process CPU, mean of all repetitions; host service "
            "stand-ins)\n");
    for (const char* workload : vistel_bench::kWorkloads) {
        for (const char* sink : vistel_bench::kEndToEndSinks) {
            vistel_bench::printSplit(reporter, workload, sink);
        }
    }
    std::printf(
            "\nCaller figures are the calling thread's CPU time; latencies are wall-clock per "
            "call.\nThe default logger's stderr goes to /dev/null while it runs. Load average at "
            "start: %.1f\n",
            benchmark::CPUInfo::Get().load_avg.empty() ? 0.0
                                                       : benchmark::CPUInfo::Get().load_avg[0]);
    std::fflush(stdout);
    // The manager's tear-down lines at exit are no part of the figures.
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    return 0;
}
