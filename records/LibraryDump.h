// VistelManager::dump() read back, for the tools that show it and the tests that check the
// library's counters against what the services received.
//
//     LibraryDump before = parseLibraryDump(libraryDumpLines());
//     ... report records ...
//     DumpRow leaks = parseLibraryDump(libraryDumpLines()).kinds[0] - before.kinds[0];
#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace vistel_tools {

// What the dump writes now, line by line.
std::vector<std::string> libraryDumpLines();

// One line of the table: a kind, the direct sendBootMsg calls or the total. Every record ends in
// one outcome, so records is the sum of sent to shed once nothing is in flight; events counts
// what the services took.
struct DumpRow {
    std::string name;
    uint64_t records = 0;
    uint64_t sent = 0;
    uint64_t limited = 0;
    uint64_t noEvent = 0;
    uint64_t notInitialised = 0;
    uint64_t failed = 0;
    uint64_t shed = 0;
    uint64_t off = 0;
    uint64_t events = 0;

    // The counts since `earlier`, under this row's name.
    DumpRow operator-(const DumpRow& earlier) const;
    bool operator==(const DumpRow& other) const;
    // sent + limited + no-event + not-initialised + failed + shed + off.
    uint64_t outcomes() const;
    // Every counted column with its name in the dump ("records", "sent", ... "events"), in order;
    // "off" only `withOff`, as the dump shows it only once a record was switched off.
    std::vector<std::pair<const char*, uint64_t>> columns(bool withOff = false) const;
};

// "MemLeak: records 3, sent 2, limited 1, no-event 0, not-initialised 0, failed 0, shed 0,
// events 2", for test messages.
std::ostream& operator<<(std::ostream& out, const DumpRow& row);

struct LibraryDump {
    std::map<uint32_t, DumpRow> kinds;  // by kind number
    DumpRow direct;                     // sendBootMsg called directly
    DumpRow total;
    bool offShown = false;  // the table has the off column: a record was switched off
    std::string inFlight;                         // the records-in-flight line
    std::string service;                          // the binding line
    std::map<std::string, uint64_t> keys;         // keyed limit policy -> keys it holds
    std::map<std::string, uint64_t> droppedKeys;  // keyed limit policy -> keys it let go
    std::vector<std::string> unparsed;            // lines of none of these forms

    // The rows whose records are not the sum of their outcomes, and "total" when the total is
    // not the sum of the rows: empty when the table adds up, as it must once nothing is in
    // flight.
    std::vector<std::string> rowsNotAddingUp() const;
};

LibraryDump parseLibraryDump(const std::vector<std::string>& lines);

}  // namespace vistel_tools
