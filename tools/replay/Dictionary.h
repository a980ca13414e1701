// The event dictionary: every event the library can send, with every parameter, derived by
// running the library rather than written by hand, so it cannot drift from the code.
//
// Each kind's record is filled with distinct sentinel values (every number, every text, every
// map key its own), reported through the host services, and what they received is matched back
// to the fields: a parameter holding a field's sentinel comes from that field; one holding none
// is computed, and the dictionary says how (a constant, a formatted text, a list, an element's
// position). Records whose containers are filled far beyond their usual size show how events
// multiply (one per element, a cap, batches). A second run with other sentinels tells constants
// from values that merely happened to match.
//
//     const Dictionary dictionary = deriveDictionary();
//     if (dictionary.errors.empty()) printDictionaryMarkdown(dictionary, std::cout);
#pragma once

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace vistel_replay {

struct Dictionary {
    // One object per event shape, in identifier order, then one per kind that sends nothing:
    //   {"id": 918000000, "service": "vistel", "kinds": [0],
    //    "params": [{"index": 0, "type": "text", "field": "name"}, ...],
    //    "limits": [{"kind": 0, "policy": "limitEventMemLeak", "seconds": 3600, "per": "name"}]}
    // A parameter has "index" or "key", "type" (integer, integer64, float, text, list, events),
    // then "field" (with "how" when the field is converted or repeated) or "computed" (how).
    // A list of nested events carries their "id" and "params". An event may add "how" (how many
    // a record sends) and "unread" (fields of the kinds' records that no parameter carries).
    std::vector<nlohmann::ordered_json> events;
    // Why the library's behaviour could not be described; empty on success.
    std::vector<std::string> errors;
};

Dictionary deriveDictionary();

// One JSON object per line, keys and values separated as the objects above show.
void printDictionaryJson(const Dictionary& dictionary, std::ostream& out);
// The same as Markdown: an index, then one section per event with a table of its parameters.
void printDictionaryMarkdown(const Dictionary& dictionary, std::ostream& out);

}  // namespace vistel_replay
