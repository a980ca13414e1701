#include "DictionaryBudget.h"

#include <algorithm>

#include "Replayer.h"

namespace vistel_replay {

namespace {

using nlohmann::ordered_json;

// `step`'s record once, at the start of a scenario.
Step once(const Step& step) {
    Step record = step;
    record.atSeconds = 0;
    record.repeat = 1;
    record.spacingSeconds = 0;
    return record;
}

// The day's records of `kind`, at once, the most events first: how many passed and what they
// sent, counted by the library's own outcomes.
ordered_json dayOf(uint32_t kind, const Scenario& day, const ordered_json& recordsPerDay) {
    std::vector<std::pair<int, Step>> records;  // events alone, the record
    for (const Step& step : day.steps) {
        if (step.kind->kind != kind) continue;
        const Step record = once(step);
        records.emplace_back(Replayer().run(record).tally.events, record);
    }
    std::stable_sort(records.begin(), records.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    const Replayer together;
    Tally tally;
    for (const auto& [events, record] : records) tally.add(together.run(record).tally);
    const int letThrough = tally.records() - tally[Outcome::kLimited];
    ordered_json worst = recordsPerDay.is_number()
                                 ? ordered_json(recordsPerDay.get<long long>() * tally.events)
                                 : recordsPerDay;
    if (tally.events == 0) worst = 0;
    return {{"records", records.size()},
            {"letThrough", letThrough},
            {"events", tally.events},
            {"worstDay", std::move(worst)}};
}

}  // namespace

ordered_json deriveBudget(const ordered_json& limit, const Scenario* day) {
    ordered_json budget = limit.contains("call") ? ordered_json{{"call", limit["call"]}}
                                                 : ordered_json{{"kind", limit["kind"]}};
    if (limit["policy"].is_null()) {
        budget["recordsPerDay"] = limit.contains("call") ? "every call" : "every record";
    } else {
        const long long period = limit["seconds"];
        budget["recordsPerDay"] = (kSecondsPerDay + period - 1) / period;
    }
    if (day == nullptr) return budget;
    if (limit.contains("call")) {
        // A scenario's steps are records of kinds; it never calls sendBootMsg itself.
        budget["day"] = {{"records", 0}, {"letThrough", 0}, {"events", 0}, {"worstDay", 0}};
    } else {
        budget["day"] = dayOf(limit["kind"].get<uint32_t>(), *day, budget["recordsPerDay"]);
    }
    return budget;
}

}  // namespace vistel_replay
