// How many events each source may send a device in a day, from the quiet periods the dictionary
// found on the virtual clock, and what a day shaped like a given scenario can bring:
//
//     {"kind": 0, "recordsPerDay": 24, "day": {"records": 4, "letThrough": 2, "events": 2,
//      "worstDay": 48}}
//     {"kind": 13, "recordsPerDay": "every record", "day": {"records": 1, "letThrough": 1,
//      "events": 1, "worstDay": "every record"}}
//     {"call": "sendBootMsg", "recordsPerDay": "every call", "day": {"records": 0, ...}}
//
// "recordsPerDay": a limited source lets one record of a key through per quiet period, so at
// most ceil(86400 / period) records of one key in any 24 hours; one nothing limits, every one.
// How many events a record sends is the entry's "sent". "day", with a scenario only: its records
// of the source, all handed over at once in a scenario of their own, those that send the most
// events first, so that exactly one of each key passes: how many passed ("letThrough", one per
// key when the source is limited) and the events they sent; "worstDay", those events once every
// period of a day: the most a day of records like the scenario's can bring, or "every record"
// when nothing limits them.
//
// The limiter's state is the camera process's memory: a restart starts every key afresh, so the
// figures hold for a day without a restart of the camera process.
#pragma once

#include <nlohmann/json.hpp>

#include "Scenario.h"

namespace vistel_replay {

constexpr long long kSecondsPerDay = 24LL * 3600;

// The budget of the source whose limit (an entry of a dictionary entry's "limits") is `limit`;
// `day` may be null.
nlohmann::ordered_json deriveBudget(const nlohmann::ordered_json& limit, const Scenario* day);

}  // namespace vistel_replay
