// What became of the records since the process started, per kind, for VistelManager::dump().
//
// Every record handed to the library is counted once, together with its one outcome, where it
// ends: its reporter's ReporterScope (queued or called directly), the door that refuses it once the
// manager is gone, its place in flight when its task never runs, or the camera thread when it is
// shed at the door. So records is the sum of the outcome columns at any moment. The events column
// counts the events the services took, which is not a count of records: one frame drop record
// sends one event per group, one boot record one per node. Work with no record behind it,
// sendBootMsg called directly by the camera stack, has a row of its own, a call counted as a
// record.
//
// Relaxed atomics: every count is exact on its own, and nothing else is ordered by them. A dump
// taken while records are in flight may see a record's outcome counted and its events not yet.
#pragma once

#include <VistelManager.h>
#include <VistelRecords.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace orv {
namespace counters {

// In the dump's column order, as VISTEL_OUTCOMES lists them.
enum class Outcome {
#define VISTEL_COUNTED_OUTCOME(enumerator, slot, name) enumerator,
    VISTEL_OUTCOMES(VISTEL_COUNTED_OUTCOME)
#undef VISTEL_COUNTED_OUTCOME
};
constexpr size_t kOutcomes = VISTEL_OUTCOME_COUNT;
static_assert(kOutcomes <= kVistelSnapshotOutcomes, "a snapshot slot per outcome");

// Each row on cache lines of its own, so that workers running different kinds never write to the
// same one.
struct alignas(64) KindCounters {
    std::atomic<uint64_t> records{0};
    std::atomic<uint64_t> outcomes[kOutcomes] = {};  // indexed by Outcome
    std::atomic<uint64_t> events{0};                 // events the services took

    void addRecord() { records.fetch_add(1, std::memory_order_relaxed); }
    void add(Outcome outcome) {
        outcomes[static_cast<size_t>(outcome)].fetch_add(1, std::memory_order_relaxed);
    }
    // A record, with the outcome it ended in.
    void addEndedRecord(Outcome outcome) {
        addRecord();
        add(outcome);
    }
    void addEvents(uint64_t count) {
        if (count != 0) events.fetch_add(count, std::memory_order_relaxed);
    }
};

// One row per kind, then the row of work without a record. Constant-initialised and never
// destroyed: workers may still count while the process exits.
constexpr uint32_t kOutsideDispatch = kVistelEventCount;
extern KindCounters gRows[kVistelEventCount + 1] __attribute__((visibility("hidden")));

// The row of a registered kind.
inline KindCounters& of(VistelEvent kind) {
    return gRows[kind];
}

inline KindCounters& outsideDispatch() {
    return gRows[kOutsideDispatch];
}

// The kind's name as VistelRecords.h spells it after "kEvent", for the dump's rows; kept with the
// handler table, which is listed by these names.
const char* kindName(VistelEvent kind);

// ---- The service binding ----

enum class Binding : int {
    kNotTried,         // the loader has not been asked yet
    kBound,            // every client function was found
    kLibraryMissing,   // the client library could not be opened
    kFunctionMissing,  // opened, but a client function is missing
};

// `missingFunction`: the first function not found (kFunctionMissing), a text of static storage.
void recordBinding(Binding binding, const char* missingFunction = nullptr);

struct BindingState {
    Binding binding;
    const char* missingFunction;
};
BindingState bindingState();

}  // namespace counters
}  // namespace orv
