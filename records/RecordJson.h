// Records from JSON, through the field tables of RecordFields.h: a structure is a JSON object of
// field name -> value, nested vectors are arrays, the boot stage map is an object.
//
//     auto leak = std::make_shared<orv::vistelMemLeak>();
//     std::string error = fillStruct(layoutOf<orv::vistelMemLeak>(),
//                                    nlohmann::ordered_json::parse(R"({"name": "FeatureNode"})"),
//                                    leak.get());
//     // error is empty, or names the field: field "name": 70 bytes do not fit char[64] ...,
//     // field "nmae": no such field in vistelMemLeak (did you mean "name"?)
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "RecordFields.h"

namespace vistel_tools {

// Writes `values` into `object`, a default-constructed structure of `layout`. Fields that
// `values` does not name keep their value; a fixed array given fewer elements keeps the rest.
// Keys of `values` listed in `otherKeys` are not fields: they are skipped, and offered with the
// fields' names in a "did you mean" (a scenario step's own keys).
// Returns "" on success, otherwise what is wrong with the first bad field (its path, e.g.
// "processes[1].pid", what was expected and what was given). `object` may then be partly
// written.
std::string fillStruct(const StructLayout& layout, const nlohmann::ordered_json& values,
                       void* object, const std::vector<const char*>& otherKeys = {});

// A value as an error message shows it: compact JSON, cut to a readable length.
std::string shownValue(const nlohmann::ordered_json& value);

// `text` as a terminal may show it: control characters and bytes that are not UTF-8 written as
// \xNN, then, when longer than `width` bytes, cut between characters with "..." at the end.
std::string cutText(const std::string& text, size_t width);

// An example value of every field, for writing a scenario by hand: numbers 0, texts "", one
// element in each vector and fixed array of structures, one "<key>" entry in each map.
nlohmann::ordered_json skeletonOf(const StructLayout& layout);

}  // namespace vistel_tools
