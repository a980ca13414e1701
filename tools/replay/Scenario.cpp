#include "Scenario.h"

#include <cmath>

#include "RecordJson.h"

namespace vistel_replay {

namespace {

using nlohmann::ordered_json;
using vistel_tools::KindInfo;

// Keys of a step that are not record fields. No record has a field by these names.
constexpr const char* kAtKey = "at";
constexpr const char* kKindKey = "kind";
constexpr const char* kNoteKey = "note";

// The kind a step names, or why it names none.
const KindInfo* resolveKind(const ordered_json& value, std::string* error) {
    std::string text;
    if (value.is_number_unsigned()) {
        text = std::to_string(value.get<uint64_t>());
    } else if (value.is_string()) {
        text = value.get<std::string>();
    } else {
        *error = "\"kind\" must be a kind's number or name, got " + value.dump();
        return nullptr;
    }
    if (const KindInfo* kind = vistel_tools::findKind(text)) return kind;
    *error = "unknown kind " + value.dump();
    if (const char* nearest = vistel_tools::kindNameIgnoringCase(text)) {
        *error += std::string(" (did you mean \"") + nearest + "\"?)";
    } else {
        *error += " (vistel-replay --list shows them)";
    }
    return nullptr;
}

// Checks "at" and returns "" or what is wrong with it. A valid "at" becomes *previousAt, so the
// next step is compared with this one even when this one has a bad field.
std::string checkTime(const ordered_json& step, double* previousAt, double* at) {
    if (!step.contains(kAtKey)) return "missing \"at\" (seconds from the start)";
    const ordered_json& value = step[kAtKey];
    if (!value.is_number()) return "\"at\" must be a number of seconds, got " + value.dump();
    *at = value.get<double>();
    if (*at < 0 || *at > kMaxAtSeconds) {
        return "\"at\" " + value.dump() + " is outside 0 to " +
               std::to_string(static_cast<long>(kMaxAtSeconds)) + " s";
    }
    // The clock the library reads is monotonic; a scenario cannot turn it back.
    if (*at < *previousAt) {
        return "\"at\" " + value.dump() + " is earlier than the step before it (" +
               secondsJson(*previousAt).dump() + ")";
    }
    *previousAt = *at;
    return "";
}

// Builds one step, or returns what is wrong with it (without the "step N" prefix).
std::string loadStep(const ordered_json& value, double* previousAt, Step* step) {
    if (!value.is_object()) return "expected an object, got " + value.dump();
    // The kind first, so that every later message can name it.
    if (!value.contains(kKindKey)) return "missing \"kind\"";
    std::string error;
    step->kind = resolveKind(value[kKindKey], &error);
    if (step->kind == nullptr) return error;
    error = checkTime(value, previousAt, &step->atSeconds);
    if (!error.empty()) return error;
    if (value.contains(kNoteKey) && !value[kNoteKey].is_string()) {
        return "\"note\" must be a string";
    }
    ordered_json fields = value;
    for (const char* key : {kAtKey, kKindKey, kNoteKey}) fields.erase(key);
    step->instance = step->kind->make();
    return vistel_tools::fillStruct(step->kind->layout(), fields, step->instance.body);
}

}  // namespace

ordered_json secondsJson(double seconds) {
    if (seconds == std::floor(seconds)) return static_cast<int64_t>(seconds);
    return seconds;
}

Scenario loadScenario(const ordered_json& document) {
    Scenario scenario;
    if (!document.is_array()) {
        scenario.errors.push_back("a scenario is a JSON array of steps, got " +
                                  std::string(document.type_name()));
        return scenario;
    }
    double previousAt = 0;
    for (size_t i = 0; i < document.size(); ++i) {
        Step step{static_cast<int>(i + 1), 0, nullptr, {}};
        std::string error = loadStep(document[i], &previousAt, &step);
        if (!error.empty()) {
            std::string where = "step " + std::to_string(step.number);
            if (step.kind != nullptr) where += std::string(" (") + step.kind->name + ")";
            scenario.errors.push_back(where + ": " + error);
            continue;
        }
        scenario.steps.push_back(std::move(step));
    }
    return scenario;
}

}  // namespace vistel_replay
