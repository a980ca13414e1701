// The limiter's keyed decision as the number of keys it has seen grows, and what each key holds.
#include <VistelManager.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "BenchSupport.h"

namespace vistel_bench {

namespace {

using Limit = orv::VistelManager::FrequencyLimit;

// Node names as the camera stack writes them: long enough that the key does not fit
// std::string's inline buffer, so each decision copies it to the heap, as most real ones do.
constexpr int kLongKeyLength = 24;
constexpr int kShortKeyLength = 8;
constexpr size_t kKeysForMemory = 100000;

// Records named by distinct keys of `length` characters: "n00000000000000000000042".
std::vector<orv::vistelMemLeak> distinctRecords(size_t count, int length) {
    std::vector<orv::vistelMemLeak> records(count);
    for (size_t i = 0; i < count; ++i) {
        std::snprintf(records[i].name, sizeof(records[i].name), "n%0*zu", length - 1, i);
    }
    return records;
}

// The heap glibc gives one block of `size` bytes: the size word, rounded up to 16, at least 32.
int64_t mallocChunk(size_t size) {
    return std::max<int64_t>(32, static_cast<int64_t>((size + sizeof(size_t) + 15) & ~size_t{15}));
}

// What one key must hold in a std::map<std::string, long>: the tree node (three links and the
// colour, then the key and the time) and, for a key longer than the inline buffer, its text.
int64_t expectedBytesPerKey(int length) {
    constexpr size_t kTreeNodeHeader = 4 * sizeof(void*);
    int64_t bytes = mallocChunk(kTreeNodeHeader + sizeof(std::pair<const std::string, long>));
    if (static_cast<size_t>(length) > std::string().capacity()) {
        bytes += mallocChunk(static_cast<size_t>(length) + 1);
    }
    return bytes;
}

// One keyed decision (lock, key copy, lookup, clock) with `keys` keys already recorded, each
// asked again within its hour, so dropped and left unchanged. `order` lists the records asked,
// in turn.
void measureDecisions(benchmark::State& state, bool shuffled) {
    ScopedLogSink logOff(LogSink::kOff);
    const size_t keys = static_cast<size_t>(state.range(0));
    Limit limit;
    std::vector<orv::vistelMemLeak> records = distinctRecords(keys, kLongKeyLength);
    for (orv::vistelMemLeak& record : records) limit.limitEventMemLeak(&record);
    std::vector<uint32_t> order(shuffled ? keys : 1, static_cast<uint32_t>(keys / 2));
    if (shuffled) {
        std::iota(order.begin(), order.end(), 0);
        std::shuffle(order.begin(), order.end(), std::mt19937(42));
    }
    size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(limit.limitEventMemLeak(&records[order[next]]));
        if (++next == order.size()) next = 0;
    }
}

// The same node reporting again and again, as the camera's few recurring nodes do: the path to
// its key stays in the cache and the cost is the comparisons down the tree.
void BM_LimiterDecision(benchmark::State& state) {
    measureDecisions(state, false);
}

// Every key in turn, in a shuffled order: each decision walks the tree from memory, the worst
// case of a map with many keys that are each asked rarely.
void BM_LimiterDecisionShuffled(benchmark::State& state) {
    measureDecisions(state, true);
}

// Heap held per recorded key, for a key that fits std::string's inline buffer and one that
// does not, against what the map's node and the key text must take.
void BM_LimiterBytesPerKey(benchmark::State& state) {
    ScopedLogSink logOff(LogSink::kOff);
    const int length = static_cast<int>(state.range(0));
    std::vector<orv::vistelMemLeak> records = distinctRecords(kKeysForMemory, length);
    int64_t bytes = 0;
    int64_t allocations = 0;
    for (auto _ : state) {
        Limit limit;
        AllocationWindow window;
        for (orv::vistelMemLeak& record : records) limit.limitEventMemLeak(&record);
        bytes = window.heldBytes();
        allocations = window.allocations();
    }
    const double keys = static_cast<double>(kKeysForMemory);
    state.counters["bytes_per_key"] = static_cast<double>(bytes) / keys;
    state.counters["allocations_per_key"] = static_cast<double>(allocations) / keys;
    state.counters["expected_bytes_per_key"] = static_cast<double>(expectedBytesPerKey(length));
}

}  // namespace

BENCHMARK(BM_LimiterDecision)->Arg(1)->Arg(1000)->Arg(100000);
BENCHMARK(BM_LimiterDecisionShuffled)->Arg(1000)->Arg(100000);
BENCHMARK(BM_LimiterBytesPerKey)->Arg(kShortKeyLength)->Arg(kLongKeyLength)->Iterations(1);

}  // namespace vistel_bench
