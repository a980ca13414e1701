// The library's counters as numbers (VistelManager::snapshotCounters()), for the tools that show
// them and the tests that check them against what the services received.
//
//     LibraryCounters before = readLibraryCounters();
//     ... report records ...
//     CounterRow leaks = readLibraryCounters().kinds.at(0) - before.kinds.at(0);
//     EXPECT_EQ(leaks[VISTEL_OUTCOME_SENT], 2u);
#pragma once

#include <VistelManager.h>

#include <array>
#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace vistel_tools {

// One row of the counters: a kind, the direct sendBootMsg calls or the total. Every record ends in
// one outcome, so records is the sum of the outcomes once nothing is in flight; events counts what
// the services took.
struct CounterRow {
    std::string name;
    uint64_t records = 0;
    std::array<uint64_t, VISTEL_OUTCOME_COUNT> outcomes{};  // by VistelOutcome
    uint64_t events = 0;

    uint64_t& operator[](VistelOutcome outcome) { return outcomes[outcome]; }
    uint64_t operator[](VistelOutcome outcome) const { return outcomes[outcome]; }
    // The counts since `earlier`, under this row's name.
    CounterRow operator-(const CounterRow& earlier) const;
    bool operator==(const CounterRow& other) const;
    // The records of every outcome together.
    uint64_t ended() const;
    // Every column under the dump's names: "records", the outcomes, "events".
    std::vector<std::pair<const char*, uint64_t>> columns() const;
};

// "MemLeak: records 3, sent 2, limited 1, ... events 2", for test messages.
std::ostream& operator<<(std::ostream& out, const CounterRow& row);

struct PolicyKeys {
    uint64_t keys = 0;
    uint64_t dropped = 0;
    bool busy = false;  // the limiter's lock could not be had in time: keys is not known
};

struct LibraryCounters {
    std::string buildTag;
    std::map<uint32_t, CounterRow> kinds;  // by kind number, named as the dump names them
    CounterRow direct;                     // sendBootMsg called directly
    CounterRow total;
    uint32_t inFlight = 0;
    uint32_t inFlightPeak = 0;
    uint32_t inFlightBound = 0;
    VistelManagerState manager = VISTEL_MANAGER_NOT_BUILT;
    bool inited = false;
    VistelServiceBinding binding = VISTEL_BINDING_NOT_TRIED;
    std::string missingFunction;
    std::map<std::string, PolicyKeys> policies;  // by keyed limit policy; empty unless alive

    // The service bound and the manager initialised: what a working device shows.
    bool working() const;
    // The rows whose records are not the sum of their outcomes, and "total" when the total is not
    // the sum of the rows: empty when the counters add up, as they must once nothing is in flight.
    std::vector<std::string> rowsNotAddingUp() const;
};

// The counters now.
LibraryCounters readLibraryCounters();

// The row of one kind now.
CounterRow readKindCounters(uint32_t kind);

}  // namespace vistel_tools
