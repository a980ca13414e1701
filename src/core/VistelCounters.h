// What became of the records since the process started, per kind, for VistelManager::dump().
//
// Everything is counted on the worker that runs a record, never on the camera thread that hands
// it over: the dispatch wrapper counts the record, and the reporters count what became of it
// where they decide it (not initialised, dropped by the limiter, each call that hands an event
// to a service). Work with no record behind it, sendBootMsg called directly by the camera stack,
// has a row of its own.
//
// Relaxed atomics: every count is exact on its own, and nothing else is ordered by them. A dump
// taken while records are in flight may see a record counted and its event not yet.
#pragma once

#include <VistelRecords.h>

#include <atomic>
#include <cstdint>

namespace orv {
namespace counters {

// One cache line per row, so that workers running different kinds never write to the same one.
struct alignas(64) KindCounters {
    std::atomic<uint64_t> records{0};  // dispatched to the kind's handler
    std::atomic<uint64_t> sent{0};     // events a service took
    std::atomic<uint64_t> limited{0};  // records the limiter dropped
    std::atomic<uint64_t> notInitialised{0};
    std::atomic<uint64_t> failed{0};  // calls a service refused

    void addRecord() { add(records); }
    void addLimited() { add(limited); }
    void addNotInitialised() { add(notInitialised); }
    // One call that handed an event to a service: taken, or refused.
    void addServiceAnswer(bool accepted) { add(accepted ? sent : failed); }

  private:
    static void add(std::atomic<uint64_t>& counter) {
        counter.fetch_add(1, std::memory_order_relaxed);
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

// The row of a record's kind as the record tells it; records of no known kind and null records
// (handlers called directly) count as work outside dispatch.
KindCounters& ofRecord(VistelEventBase* record);

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
