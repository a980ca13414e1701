// JSON Schema (draft 2020-12) of the events the dictionary describes, in the form vistel-replay
// --json prints what the services received:
//
//     {"service": "vistel", "id": 918000000, "params": [
//         {"index": 0, "field": "name", "text": "FeatureNode"}, {"index": 2, "value": 64}, ...]}
//     {"service": "vistel", "id": 918009000, "params": [
//         {"name": "iso", "type": "int", "value": 200}, ...]}
//     {"service": "ovrix", "id": 918009006, "params": [{"key": "SceneMode", "type": "int",
//         "value": 1}, ..., {"key": "PerfDetail", "type": "array", "value": [
//         {"id": 918009007, "params": [...]}]}]}
//     {"service": "jank print", "type": 3, "id": 474, "msg": "#ARG1:<Preview>#ARG2:<300>"}
//
// Parameters are an array in the order they were set: the schema pins each one's place, index
// or name, type and range (from the record field's C type), and the places optional parameters
// may take after them (a boot node's "<stage>COST" lists).
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace vistel_replay {

// The schema of one shape: a dictionary entry, or a parameter's nested events. With `defs`,
// nested events are references to "#/$defs/<their schema name>", added to `defs`; without,
// they are inline, so that two shapes compare equal exactly when the same events satisfy them.
nlohmann::ordered_json shapeSchema(const nlohmann::ordered_json& shape,
                                   nlohmann::ordered_json* defs = nullptr);

// A parameter's label in the dictionary: "#3" for a Vistel parameter by index, else its key.
std::string labelOf(const nlohmann::ordered_json& param);

// `text` as a regular expression that matches it alone.
std::string escapeRegex(const std::string& text);

// "kinds 25 BootTimeout, 31 ScanMsg, direct sendBootMsg calls": where a dictionary entry's
// events come from.
std::string sourcesText(const nlohmann::ordered_json& entry);

}  // namespace vistel_replay
