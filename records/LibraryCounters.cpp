#include "LibraryCounters.h"

#include "KindRegistry.h"
#include "VistelCounters.h"

namespace vistel_tools {

namespace {

CounterRow rowOf(const char* name, const VistelCountsRow& counts) {
    CounterRow row;
    row.name = name;
    row.records = counts.records;
    for (size_t i = 0; i < row.outcomes.size(); ++i) row.outcomes[i] = counts.outcomes[i];
    row.events = counts.events;
    return row;
}

CounterRow& operator+=(CounterRow& sum, const CounterRow& row) {
    sum.records += row.records;
    for (size_t i = 0; i < sum.outcomes.size(); ++i) sum.outcomes[i] += row.outcomes[i];
    sum.events += row.events;
    return sum;
}

VistelCounterSnapshot snapshot() {
    VistelCounterSnapshot counts = {};
    counts.size = sizeof(counts);
    orv::VistelManager::GetInstance()->snapshotCounters(&counts);
    return counts;
}

}  // namespace

CounterRow CounterRow::operator-(const CounterRow& earlier) const {
    CounterRow since = *this;
    since.records -= earlier.records;
    for (size_t i = 0; i < outcomes.size(); ++i) since.outcomes[i] -= earlier.outcomes[i];
    since.events -= earlier.events;
    return since;
}

bool CounterRow::operator==(const CounterRow& other) const {
    return name == other.name && records == other.records && outcomes == other.outcomes &&
           events == other.events;
}

uint64_t CounterRow::ended() const {
    uint64_t sum = 0;
    for (uint64_t count : outcomes) sum += count;
    return sum;
}

std::vector<std::pair<const char*, uint64_t>> CounterRow::columns() const {
    std::vector<std::pair<const char*, uint64_t>> values = {{"records", records}};
    for (size_t i = 0; i < VISTEL_OUTCOME_COUNT; ++i) {
        values.emplace_back(vistelOutcomeName(static_cast<uint32_t>(i)), outcomes[i]);
    }
    values.emplace_back("events", events);
    return values;
}

std::ostream& operator<<(std::ostream& out, const CounterRow& row) {
    out << row.name << ":";
    const char* separator = " ";
    for (const auto& [name, count] : row.columns()) {
        out << separator << name << " " << count;
        separator = ", ";
    }
    return out;
}

bool LibraryCounters::working() const {
    return manager == VISTEL_MANAGER_RUNNING && binding == VISTEL_BINDING_BOUND && inited;
}

std::vector<std::string> LibraryCounters::rowsNotAddingUp() const {
    std::vector<std::string> wrong;
    CounterRow sum = direct;
    for (const auto& [kind, row] : kinds) {
        if (row.records != row.ended()) wrong.push_back(row.name);
        sum += row;
    }
    if (direct.records != direct.ended()) wrong.push_back(direct.name);
    sum.name = total.name;
    if (total.records != total.ended() || !(sum == total)) wrong.push_back("total");
    return wrong;
}

LibraryCounters readLibraryCounters() {
    const VistelCounterSnapshot counts = snapshot();
    LibraryCounters library;
    library.buildTag = counts.buildTag != nullptr ? counts.buildTag : "";
    library.total.name = "total";
    for (uint32_t kind = 0; kind < counts.kindCount && kind < kinds().size(); ++kind) {
        CounterRow row = rowOf(kinds()[kind].name, counts.kinds[kind]);
        library.total += row;
        library.kinds.emplace(kind, std::move(row));
    }
    library.direct = rowOf("direct sendBootMsg calls", counts.direct);
    library.total += library.direct;
    library.inFlight = counts.inFlight;
    library.inFlightPeak = counts.inFlightPeak;
    library.inFlightBound = counts.inFlightBound;
    library.manager = static_cast<VistelManagerState>(counts.manager);
    library.inited = counts.inited != 0;
    library.binding = static_cast<VistelServiceBinding>(counts.binding);
    if (counts.missingFunction != nullptr) library.missingFunction = counts.missingFunction;
    for (uint32_t i = 0; i < counts.policyCount; ++i) {
        const VistelPolicyKeys& keys = counts.policies[i];
        library.policies[keys.policy] = {keys.keys, keys.dropped, keys.busy != 0};
    }
    return library;
}

CounterRow readKindCounters(uint32_t kind) {
    const VistelCounterSnapshot counts = snapshot();
    return rowOf(kinds().at(kind).name, counts.kinds[kind]);
}

}  // namespace vistel_tools
