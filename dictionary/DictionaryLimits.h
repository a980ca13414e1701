// The rate limit a source's records meet, found on the virtual clock rather than read from a
// table: the same record twice at once shows whether there is one; the quiet period is the gap
// at which the second record passes (the one a millisecond earlier is limited); the scope is the
// set of fields that, varied, give a record a limit of its own.
//
//     {"kind": 0, "policy": "limitEventMemLeak", "seconds": 3600, "per": [{"field": "name"}],
//      "from": "last let through"}
//     {"kind": 1, ..., "per": [{"field": "value1", "as": "bytes as text", "runsOnInto": []}]}
//     {"kind": 27, ..., "per": [], "from": "last let through", "emptyRecordStartsPeriod": true}
//     {"kind": 24, "policy": null}
//     {"call": "sendBootMsg", "policy": null}
//
// "per" lists the fields in scope, empty for one limit per kind; a field read "as bytes as text"
// is keyed by its bytes up to the first zero byte (values whose low byte is 0 share the empty
// key), and "runsOnInto" the fields that join the key when all of its bytes are non-zero. "from"
// says what the period is measured from: "last let through" (a limited record does not extend
// it) or "last record". "emptyRecordStartsPeriod": a record with every container empty sends
// nothing, yet the next record within the period is limited. The policy's name is the kind
// table's: the library's behaviour does not show it, except in the lines of the policies that
// log their own name, which must agree.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "DictionaryProbe.h"

namespace vistel_replay {

nlohmann::ordered_json deriveLimit(const EventSource& source, std::vector<std::string>& errors);

}  // namespace vistel_replay
