// The event dictionary: every event the library can send, with every parameter, its type on the
// wire and its limits, derived by running the library rather than written by hand, so it cannot
// drift from the code.
//
// Each source of events (a kind's records, and sendBootMsg called directly) gets records filled
// with distinct sentinel values (DictionaryProbe.h); what the services received is matched back
// to the fields (DictionaryMatch.h). Records with one container filled far beyond its usual size
// show how events multiply (one per element, a cap, batches); records with one container empty
// show what a consumer cannot count on; a second run with other sentinels tells constants from
// coincidences; the rate limits are found on the virtual clock (DictionaryLimits.h).
//
//     const Dictionary dictionary = deriveDictionary(&cameraDay, "examples/camera-day.json");
//     if (dictionary.errors.empty()) printDictionaryMarkdown(dictionary, std::cout);
#pragma once

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "Scenario.h"

namespace vistel_replay {

struct Dictionary {
    // One object per event shape, in identifier order, then one per kind that sends nothing:
    //   {"id": 918000000, "service": "vistel", "schema": "vistel-918000000", "kinds": [0],
    //    "sent": {"per": "record"},
    //    "limits": [{"kind": 0, "policy": "limitEventMemLeak", "seconds": 3600, ...}],
    //    "params": [{"index": 0, "type": "text", "source": "char[64]", "field": "name"}, ...]}
    //
    // "schema" names the shape's definition in the JSON Schema (eventSchema()); "calls" lists
    // sources that are not kinds ("sendBootMsg"); "limits" has one entry per kind and call (see
    // DictionaryLimits.h), "budget" one per kind and call too, in the same order (see
    // DictionaryBudget.h). "sent" says how many a record sends: "per" is "record", "element"
    // (one per element of the container "of", at most "cap") or "batch" (one per "size"
    // elements of "of"); "noneWhenEmpty" lists containers with which, empty, nothing is sent.
    // "tellApart" says how a consumer tells this shape from the others of its identifier
    // ({"by": "parameter count" | "key" | "form of <param>" | "nothing", "value": ...}), and
    // "sourcesAlike" that nothing in the event tells its several sources apart. "unread" lists
    // the record's fields no parameter carries.
    //
    // A parameter has "index" (Vistel, by index) or "key" (a name; "{m}COST" is one parameter
    // per entry of the map m, named by the entry's key: "optional", "perEntryOf", "keyPattern");
    // "keyIsOurs" marks a label of ours for the argument at "argument" (the jank print's). Its
    // "type" on the wire is "int32", "int64", "float", "text", "decimal text" (with its
    // "decimals"), "list" (of "of", "count" elements) or "events" (nested events "id", "params",
    // at most "cap" or "batch", "mayBeEmpty"); "source" is the record field's C type where it
    // differs. Then "field", the record field it comes from, or "computed": {"constant": v},
    // {"position": container, "from": 0}, {"joined": fields, "each": type, "count": n,
    // "in": "decimal", "separator": ","}, {"format": "...{field}..."} or {"varies": true}.
    std::vector<nlohmann::ordered_json> events;
    // The scenario whose shape the budget's "day" figures take, as named on the command line;
    // empty without one.
    std::string day;
    // Why the library's behaviour could not be described; empty on success.
    std::vector<std::string> errors;
};

// With `day`, the budget also says what a day of that scenario's shape can bring.
Dictionary deriveDictionary(const Scenario* day = nullptr, const std::string& dayName = "");

// One JSON object per line, keys and values separated as the objects above show.
void printDictionaryJson(const Dictionary& dictionary, std::ostream& out);
// The same as Markdown: an index, then one section per event with a table of its parameters.
void printDictionaryMarkdown(const Dictionary& dictionary, std::ostream& out);

// The JSON Schema (draft 2020-12) of every event as the services receive it: one definition
// per shape, named by the entries' "schema", nested events by reference.
nlohmann::ordered_json eventSchema(const Dictionary& dictionary);
// Written indented, short objects and arrays on one line.
void printEventSchema(const Dictionary& dictionary, std::ostream& out);

}  // namespace vistel_replay
