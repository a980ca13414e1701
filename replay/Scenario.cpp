#include "Scenario.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <iterator>
#include <map>
#include <set>
#include <system_error>
#include <utility>

#include "RecordJson.h"

namespace vistel_replay {

namespace {

using nlohmann::ordered_json;
using vistel_tools::KindInfo;

// kStepKeys, one by one.
constexpr const char* kAtKey = kStepKeys[0];
constexpr const char* kKindKey = kStepKeys[1];
constexpr const char* kNoteKey = kStepKeys[2];
constexpr const char* kRepeatKey = kStepKeys[3];
constexpr const char* kSpacingKey = kStepKeys[4];

std::string systemReason(int error) {
    return std::error_code(error, std::generic_category()).message();
}

// ---- Reading the text -------------------------------------------------------------------------

// The parser's events, followed to bound the nesting and to find keys given twice: the parsed
// document keeps only the last value of a key, so a step would silently lose the others.
class DocumentWatch {
  public:
    // Thrown out of the parser at the first array or object nested too deep.
    struct TooDeep {
        int step;  // 0: not inside a step
    };

    bool onEvent(ordered_json::parse_event_t event, const ordered_json& parsed) {
        using Event = ordered_json::parse_event_t;
        switch (event) {
            case Event::object_start:
            case Event::array_start:
                open(event == Event::object_start);
                break;
            case Event::key:
                addKey(parsed.get<std::string>());
                break;
            case Event::value:
                if (!mOpen.empty() && !mOpen.back().object) ++mOpen.back().elements;
                break;
            case Event::object_end:
            case Event::array_end:
                mOpen.pop_back();
                break;
        }
        return true;  // keep everything
    }

    // By step number: the first key given twice in the step, with its path ("bootNodes[0].cpu").
    const std::map<int, std::string>& keysGivenTwice() const { return mKeysGivenTwice; }

  private:
    struct Container {
        bool object;
        int step;          // the step it is part of; 0 for the scenario's own array
        std::string path;  // within the step, as field errors name it; "" for the step itself
        size_t elements;   // an array's elements so far
        std::string key;   // an object's key being read
        std::set<std::string> keys;
    };

    void open(bool object) {
        Container child{object, 0, "", 0, "", {}};
        if (!mOpen.empty()) {
            Container& parent = mOpen.back();
            if (mOpen.size() >= kMaxNesting) throw TooDeep{parent.step};
            if (mOpen.size() == 1 && !parent.object) {
                child.step = static_cast<int>(++parent.elements);
            } else {
                child.step = parent.step;
                child.path = parent.object
                                     ? member(parent.path, parent.key)
                                     : parent.path + "[" + std::to_string(parent.elements++) + "]";
            }
        }
        mOpen.push_back(std::move(child));
    }

    void addKey(const std::string& key) {
        Container& object = mOpen.back();
        object.key = key;
        if (!object.keys.insert(key).second && object.step > 0) {
            mKeysGivenTwice.emplace(object.step, member(object.path, key));
        }
    }

    static std::string member(const std::string& path, const std::string& key) {
        return path.empty() ? key : path + "." + key;
    }

    std::vector<Container> mOpen;
    std::map<int, std::string> mKeysGivenTwice;
};

// ---- Building the steps -----------------------------------------------------------------------

// The kind a step names, or why it names none.
const KindInfo* resolveKind(const ordered_json& value, std::string* error) {
    std::string text;
    if (value.is_number_unsigned()) {
        text = std::to_string(value.get<uint64_t>());
    } else if (value.is_string()) {
        text = value.get<std::string>();
    } else {
        *error = "\"kind\" must be a kind's number or name, got " + vistel_tools::shownValue(value);
        return nullptr;
    }
    if (const KindInfo* kind = vistel_tools::findKind(text)) return kind;
    *error = "unknown kind " + vistel_tools::shownValue(value);
    if (const char* closest = vistel_tools::closestKindName(text)) {
        *error += std::string(" (did you mean \"") + closest + "\"?)";
    } else {
        *error += " (vistel-replay --list shows them)";
    }
    return nullptr;
}

// A number of seconds the step gives under `key`, within 0 to kMaxAtSeconds: "" and *seconds
// set, or what is wrong with it.
std::string readSeconds(const ordered_json& step, const char* key, double* seconds) {
    const ordered_json& value = step[key];
    const std::string quoted = std::string("\"") + key + "\"";
    if (!value.is_number()) {
        return quoted + " must be a number of seconds, got " + vistel_tools::shownValue(value);
    }
    *seconds = value.get<double>();
    if (*seconds < 0 || *seconds > kMaxAtSeconds) {
        return quoted + " " + vistel_tools::shownValue(value) + " is outside 0 to " +
               std::to_string(static_cast<long>(kMaxAtSeconds)) + " s";
    }
    return "";
}

// Checks "at", "repeat" and "spacing" and returns "" or what is wrong with them. A valid step's
// last time becomes *previousAt, so the next step is compared with this one even when this one
// has a bad field.
std::string checkTiming(const ordered_json& value, double* previousAt, Step* step) {
    if (!value.contains(kAtKey)) return "missing \"at\" (seconds from the start)";
    std::string error = readSeconds(value, kAtKey, &step->atSeconds);
    if (!error.empty()) return error;
    if (value.contains(kRepeatKey)) {
        const ordered_json& repeat = value[kRepeatKey];
        if (!repeat.is_number_integer() || repeat.get<int64_t>() < 1 ||
            repeat.get<int64_t>() > kMaxRepeat) {
            return "\"repeat\" must be a number of records from 1 to " +
                   std::to_string(kMaxRepeat) + ", got " + vistel_tools::shownValue(repeat);
        }
        step->repeat = repeat.get<int>();
    }
    if (value.contains(kSpacingKey)) {
        // Alone it would be silently ignored: the step is one record, handed over once.
        if (!value.contains(kRepeatKey)) return "\"spacing\" without \"repeat\" spaces nothing";
        error = readSeconds(value, kSpacingKey, &step->spacingSeconds);
        if (!error.empty()) return error;
    }
    if (step->lastAtSeconds() > kMaxAtSeconds) {
        return "the last of the " + std::to_string(step->repeat) + " records comes after " +
               std::to_string(static_cast<long>(kMaxAtSeconds)) + " s";
    }
    // The clock the library reads is monotonic; a scenario cannot turn it back.
    if (step->atSeconds < *previousAt) {
        return "\"at\" " + vistel_tools::shownValue(value[kAtKey]) +
               " is earlier than the step before it (" + secondsJson(*previousAt).dump() + ")";
    }
    *previousAt = step->lastAtSeconds();
    return "";
}

// Builds one step, or returns what is wrong with it (without the "step N" prefix).
std::string loadStep(const ordered_json& value, double* previousAt, Step* step) {
    if (!value.is_object()) return "expected an object, got " + vistel_tools::shownValue(value);
    // The kind first, so that every later message can name it.
    if (!value.contains(kKindKey)) return "missing \"kind\"";
    std::string error;
    step->kind = resolveKind(value[kKindKey], &error);
    if (step->kind == nullptr) return error;
    error = checkTiming(value, previousAt, step);
    if (!error.empty()) return error;
    if (value.contains(kNoteKey) && !value[kNoteKey].is_string()) {
        return "\"note\" must be a string";
    }
    step->instance = step->kind->make();
    return vistel_tools::fillStruct(step->kind->layout(), value, step->instance.body,
                                    {std::begin(kStepKeys), std::end(kStepKeys)});
}

// loadScenario, with the keys given twice in each step (by step number) found while parsing.
Scenario loadSteps(const ordered_json& document, const std::map<int, std::string>& keysGivenTwice) {
    Scenario scenario;
    if (!document.is_array()) {
        scenario.errors.push_back("a scenario is a JSON array of steps, got " +
                                  std::string(document.type_name()));
        return scenario;
    }
    double previousAt = 0;
    size_t badSteps = 0;
    for (size_t i = 0; i < document.size(); ++i) {
        Step step{static_cast<int>(i + 1), 0, nullptr, {}};
        std::string error = loadStep(document[i], &previousAt, &step);
        const auto twice = keysGivenTwice.find(step.number);
        if (twice != keysGivenTwice.end()) error = "\"" + twice->second + "\" is given twice";
        if (error.empty()) {
            scenario.steps.push_back(std::move(step));
            continue;
        }
        if (++badSteps > kMaxErrorsListed) continue;
        std::string where = "step " + std::to_string(step.number);
        if (step.kind != nullptr) where += std::string(" (") + step.kind->name + ")";
        scenario.errors.push_back(vistel_tools::cutText(where + ": " + error, kMaxErrorLength));
    }
    if (badSteps > kMaxErrorsListed) {
        scenario.errors.push_back("and " + std::to_string(badSteps - kMaxErrorsListed) +
                                  " more bad steps");
    }
    if (badSteps > 0) scenario.steps.clear();  // none of them may run
    return scenario;
}

}  // namespace

ordered_json secondsJson(double seconds) {
    if (seconds == std::floor(seconds)) return static_cast<int64_t>(seconds);
    return seconds;
}

std::string readScenarioText(const std::string& source, std::string* text) {
    const bool standardInput = source == "-";
    const int fd = standardInput ? STDIN_FILENO : open(source.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return "cannot be read: " + systemReason(errno);
    std::string error;
    char buffer[1 << 16];
    for (;;) {
        const ssize_t got = read(fd, buffer, sizeof(buffer));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            error = "cannot be read: " + systemReason(errno);
            break;
        }
        if (got == 0) break;
        if (text->size() + static_cast<size_t>(got) > kMaxScenarioBytes) {
            error = "larger than " + std::to_string(kMaxScenarioBytes >> 20) +
                    " MiB, more than a scenario holds";
            break;
        }
        text->append(buffer, static_cast<size_t>(got));
    }
    if (!standardInput) close(fd);
    return error;
}

Scenario parseScenario(const std::string& text) {
    DocumentWatch watch;
    ordered_json document;
    Scenario failed;
    // The parser would call it a syntax error at column 1.
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
        failed.errors.push_back("empty: a scenario is a JSON array of steps");
        return failed;
    }
    try {
        document = ordered_json::parse(
                text,
                [&watch](int /*depth*/, ordered_json::parse_event_t event, ordered_json& parsed) {
                    return watch.onEvent(event, parsed);
                },
                /*allow_exceptions=*/true, /*ignore_comments=*/true);
    } catch (const ordered_json::exception& error) {
        // what() is "[json.exception.parse_error.101] parse error at line 3, column 5: ..." or,
        // for a number beyond a double's range, "[json.exception.out_of_range.406] number
        // overflow parsing '1e400'".
        const std::string what = error.what();
        failed.errors.push_back(vistel_tools::cutText(
                "not valid JSON: " + what.substr(what.find("] ") + 2), kMaxErrorLength));
        return failed;
    } catch (const DocumentWatch::TooDeep& tooDeep) {
        const std::string nesting =
                "arrays and objects nested deeper than " + std::to_string(kMaxNesting) + " levels";
        failed.errors.push_back(tooDeep.step == 0
                                        ? nesting
                                        : "step " + std::to_string(tooDeep.step) + ": " + nesting);
        return failed;
    }
    return loadSteps(document, watch.keysGivenTwice());
}

Scenario loadScenario(const ordered_json& document) {
    return loadSteps(document, {});
}

}  // namespace vistel_replay
