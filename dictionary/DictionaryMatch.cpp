#include "DictionaryMatch.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <functional>
#include <utility>

#include "EventSchema.h"

namespace vistel_replay {

namespace {

using nlohmann::ordered_json;

// ---- Reading values ---------------------------------------------------------------------------

std::optional<long long> parseInteger(const std::string& text) {
    if (text.empty() || text.size() > 19) return std::nullopt;
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (*end != '\0' || !(isdigit(static_cast<unsigned char>(text[0])) || text[0] == '-')) {
        return std::nullopt;
    }
    return value;
}

// A decimal number with a point: its value and how many decimals it is written with.
std::optional<std::pair<double, size_t>> parseDecimal(const std::string& text) {
    const size_t point = text.find('.');
    if (point == std::string::npos || text.empty() ||
        !isdigit(static_cast<unsigned char>(text[0]))) {
        return std::nullopt;
    }
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (*end != '\0') return std::nullopt;
    return std::make_pair(value, text.size() - point - 1);
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t at; (at = text.find(separator, start)) != std::string::npos; start = at + 1) {
        parts.push_back(text.substr(start, at - start));
    }
    parts.push_back(text.substr(start));
    return parts;
}

// "perf[0].algoName" ... "perf[9].algoName" -> "perf[0..9].algoName": the elements of one fixed
// array in order. Empty when the fields are not that.
std::string elementsOf(const std::vector<const Leaf*>& leaves) {
    if (leaves.size() < 2) return "";
    std::string pattern;
    for (size_t i = 0; i < leaves.size(); ++i) {
        if (leaves[i] == nullptr) return "";
        const std::string index = "[" + std::to_string(i) + "]";
        std::string field = leaves[i]->field;
        const size_t at = field.find(index);
        if (at == std::string::npos) return "";
        field.replace(at, index.size(), "[#]");
        if (i == 0) pattern = field;
        if (field != pattern) return "";
    }
    pattern.replace(pattern.find("[#]"), 3, "[0.." + std::to_string(leaves.size() - 1) + "]");
    return pattern;
}

// The field a received value comes from, if one field explains it, and the decimals it is
// written with when it travels as decimal text.
struct Match {
    const Leaf* leaf = nullptr;
    std::optional<size_t> decimals;

    Match() = default;
    Match(const Leaf* matched, std::optional<size_t> asDecimals = std::nullopt)
        : leaf(matched), decimals(asDecimals) {}
};

Match matchValue(const Sentinels& sentinels, const ordered_json& value) {
    if (value.is_number_integer()) return {sentinels.integer(value.get<long long>())};
    if (value.is_number_float()) return {sentinels.real(value.get<double>())};
    if (!value.is_string()) return {};
    const std::string& text = value.get_ref<const std::string&>();
    if (const Leaf* leaf = sentinels.text(text)) return {leaf};
    if (const auto number = parseInteger(text)) {
        if (const Leaf* leaf = sentinels.integer(*number)) return {leaf, 0};
    }
    if (const auto decimal = parseDecimal(text)) {
        if (const Leaf* leaf = sentinels.real(decimal->first)) return {leaf, decimal->second};
    }
    return {};
}

// The leaf a parameter holds: the field of a text passed by address, or its value's.
Match matchParam(const Sentinels& sentinels, const ordered_json& param) {
    if (param.contains("field")) return {sentinels.path(param["field"].get<std::string>())};
    if (param.contains("value")) return matchValue(sentinels, param["value"]);
    return {};
}

// The vector elements and map entries an event's own parameters come from, outermost first; the
// innermost is the element the event stands for.
std::vector<Position> positionsOf(const Sentinels& sentinels, const ordered_json& event) {
    std::vector<Position> deepest;
    for (const ordered_json& param : event["params"]) {
        std::vector<const Leaf*> leaves = {matchParam(sentinels, param).leaf};
        if (param.value("type", "") != "array" && param.contains("value") &&
            param["value"].is_array()) {
            for (const ordered_json& element : param["value"]) {
                leaves.push_back(matchValue(sentinels, element).leaf);
            }
        }
        for (const Leaf* leaf : leaves) {
            if (leaf != nullptr && leaf->positions.size() > deepest.size()) {
                deepest = leaf->positions;
            }
        }
    }
    return deepest;
}

// The type on the wire of a value the service took as `received` ("int", "float", "string", or
// "indexed" for a Vistel parameter by index, which the service takes as a long).
std::string wireType(const std::string& received, const std::string& service) {
    if (received == "float") return "float";
    if (received == "string") return "text";
    // The Ovrix client and the logging library take an int; the Vistel service a long.
    return service == "vistel" ? "int64" : "int32";
}

// Says where the record's C type differs from the wire's ("int32" sent as an int64).
void addSource(ordered_json& description, const Leaf& leaf) {
    const std::string& wire = description["type"].get_ref<const std::string&>();
    const std::string& type = wire == "list" ? description["of"].get_ref<const std::string&>()
                                             : wire;
    const bool same = leaf.source == type || (leaf.source == "string" && type == "text");
    if (!same) description["source"] = leaf.source;
}

}  // namespace

// ---- How events multiply ----------------------------------------------------------------------

ContainerHow multiplication(const std::string& container, const Sentinels& sentinels,
                            const ordered_json& events) {
    struct Seen {
        const ordered_json* list;  // null: a top-level event
        size_t index;
    };
    std::vector<Seen> seen;
    std::set<long long> eventIds;
    std::function<void(const ordered_json&, const ordered_json*, long long)> walk =
            [&](const ordered_json& event, const ordered_json* list, long long topId) {
                const std::vector<Position> positions = positionsOf(sentinels, event);
                if (!positions.empty() && positions.back().container == container) {
                    seen.push_back({list, positions.back().index});
                    eventIds.insert(topId);
                }
                for (const ordered_json& param : event["params"]) {
                    if (param.value("type", "") != "array") continue;
                    for (const ordered_json& nested : param["value"]) walk(nested, &param, topId);
                }
            };
    for (const ordered_json& event : events) walk(event, nullptr, event["id"].get<long long>());

    ContainerHow how;
    if (seen.empty()) return how;
    std::set<size_t> indices;
    std::map<const ordered_json*, size_t> perList;
    for (const Seen& s : seen) {
        indices.insert(s.index);
        ++perList[s.list];
    }
    if (indices.size() != kProbeSize) how.cap = indices.size();
    how.perEvent = perList.count(nullptr) != 0;
    if (!how.perEvent && perList.size() > 1 && !how.cap) {
        size_t largest = 0;
        for (const auto& [list, count] : perList) largest = std::max(largest, count);
        how.batch = largest;
        how.perEvent = true;
    }
    if (how.perEvent) how.eventIds = eventIds;
    return how;
}

std::string keyOf(const Sentinels& sentinels, const std::string& key, const Leaf** mapKey) {
    const size_t at = key.find(sentinels.textPrefix());
    if (at == std::string::npos) return key;
    const Leaf* leaf = sentinels.text(key.substr(at, kTextLength));
    if (leaf == nullptr || !sentinels.isMapKey(*leaf)) return key;
    if (mapKey != nullptr) *mapKey = leaf;
    return key.substr(0, at) + "{" + leaf->field + "}" + key.substr(at + kTextLength);
}

// ---- Describing -------------------------------------------------------------------------------

ordered_json Describer::describeEvent(const ordered_json& event) {
    const std::string service = event["service"];
    ordered_json description = {{"id", event["id"]}, {"service", service}};
    description.update(describeNode(event, service));
    return description;
}

void Describer::noteRead(const Leaf* leaf) {
    if (leaf != nullptr) mRead.insert(leaf->field);
}

ordered_json Describer::describeNode(const ordered_json& node, const std::string& service) {
    const std::vector<Position> positions = positionsOf(mSentinels, node);
    ordered_json params = ordered_json::array();
    const ordered_json* previous = nullptr;  // the parameter just before, when keyed by a map
    for (const ordered_json& param : node["params"]) {
        std::string map;
        ordered_json description = describeParam(param, positions, service, map);
        if (map.empty()) {
            params.push_back(std::move(description));
            previous = nullptr;
            continue;
        }
        // The lists a map's entries become are one parameter each, keyed by the entry's key:
        // the same description, once per entry. Shown once.
        description["optional"] = true;
        description["perEntryOf"] = map;
        const std::string key = description["key"];
        const size_t open = key.find('{');
        const size_t close = key.find('}', open);
        description["keyPattern"] = "^" + escapeRegex(key.substr(0, open)) + "[\\s\\S]*" +
                                    escapeRegex(key.substr(close + 1)) + "$";
        if (previous != nullptr && *previous == description) continue;
        params.push_back(std::move(description));
        previous = &params.back();
    }
    return {{"params", std::move(params)}};
}

ordered_json Describer::describeParam(const ordered_json& param,
                                      const std::vector<Position>& positions,
                                      const std::string& service, std::string& map) {
    ordered_json description;
    if (param.contains("index")) {
        description["index"] = param["index"];
    } else {
        const Leaf* mapKey = nullptr;
        description["key"] =
                keyOf(mSentinels, param.value("name", param.value("key", std::string())), &mapKey);
        if (mapKey != nullptr) {
            noteRead(mapKey);
            map = mapKey->field;
        }
    }
    const std::string received = param.value("type", "indexed");
    if (received == "array") return describeEvents(param, description);
    if (received.size() > 6 && received.compare(received.size() - 6, 6, "_array") == 0) {
        return describeList(param, received.substr(0, received.size() - 6), description);
    }
    const Match found = matchParam(mSentinels, param);
    description["type"] = param.contains("field") ? "text" : wireType(received, service);
    if (found.decimals) {
        description["type"] = "decimal text";
        description["decimals"] = *found.decimals;
    }
    if (found.leaf != nullptr) {
        noteRead(found.leaf);
        addSource(description, *found.leaf);
        description["field"] = found.leaf->field;
    } else if (param.contains("value")) {
        const ordered_json how = computed(param["value"], positions);
        if (how.contains("computed") && how["computed"].contains("position") &&
            param["value"].is_string()) {
            description["type"] = "decimal text";
            description["decimals"] = 0;
        }
        description.update(how);
    } else {
        description["unexplained"] = param;  // an address inside the record, not at a text
    }
    if (param.contains("argument")) {
        // Not a name the service receives: ours, for the argument at that place.
        description["argument"] = param["argument"];
        description["keyIsOurs"] = true;
    }
    return description;
}

// A value no field explains: an element's position, a list or a text formatted from fields,
// or else left for the second run to call constant or varying.
ordered_json Describer::computed(const ordered_json& value, const std::vector<Position>& positions) {
    const std::optional<long long> number =
            value.is_number_integer() ? std::optional<long long>(value.get<long long>())
            : value.is_string()       ? parseInteger(value.get<std::string>())
                                      : std::nullopt;
    if (number && !positions.empty() &&
        *number == static_cast<long long>(positions.back().index)) {
        return {{"computed", {{"position", positions.back().container}, {"from", 0}}}};
    }
    if (value.is_string()) {
        const std::string& text = value.get_ref<const std::string&>();
        if (auto list = formattedList(text)) return {{"computed", *list}};
        if (auto formatted = formattedText(text)) return {{"computed", *formatted}};
    }
    return {{"unexplained", value}};
}

// "1000,1001,...": the elements of one integer array in decimal, joined by commas.
std::optional<ordered_json> Describer::formattedList(const std::string& text) {
    const std::vector<std::string> parts = split(text, ',');
    if (parts.size() < 2) return std::nullopt;
    std::vector<const Leaf*> leaves;
    for (const std::string& part : parts) {
        const auto number = parseInteger(part);
        leaves.push_back(number ? mSentinels.integer(*number) : nullptr);
    }
    const std::string elements = elementsOf(leaves);
    if (elements.empty()) return std::nullopt;
    for (const Leaf* leaf : leaves) noteRead(leaf);
    return ordered_json{{"joined", elements},
                        {"each", leaves[0]->source},
                        {"count", leaves.size()},
                        {"in", "decimal"},
                        {"separator", ","}};
}

// A text with fields' texts inside: shown with each field in braces.
std::optional<ordered_json> Describer::formattedText(const std::string& text) {
    std::string shown;
    bool anyField = false;
    for (size_t i = 0; i < text.size();) {
        const Leaf* leaf = text[i] == mSentinels.textPrefix()
                                   ? mSentinels.text(text.substr(i, kTextLength))
                                   : nullptr;
        if (leaf != nullptr) {
            noteRead(leaf);
            shown += "{" + leaf->field + "}";
            anyField = true;
            i += kTextLength;
        } else {
            shown += text[i++];
        }
    }
    if (!anyField) return std::nullopt;
    return ordered_json{{"format", shown}};
}

// A Vistel array parameter: one element per call, each matched on its own.
ordered_json Describer::describeList(const ordered_json& param, const std::string& elementType,
                                     ordered_json& description) {
    description["type"] = "list";
    description["of"] = wireType(elementType, "vistel");
    std::vector<const Leaf*> leaves;
    for (const ordered_json& element : param["value"]) {
        leaves.push_back(matchValue(mSentinels, element).leaf);
        noteRead(leaves.back());
    }
    const std::string elements = elementsOf(leaves);
    if (elements.empty()) {
        description["unexplained"] = param["value"];
        return description;
    }
    addSource(description, *leaves[0]);
    description["field"] = elements;
    description["count"] = leaves.size();  // one element each, in order
    return description;
}

// A list of nested events: described once, when every event of it has the same shape, with
// the container whose elements they stand for.
ordered_json Describer::describeEvents(const ordered_json& param, ordered_json& description) {
    description["type"] = "events";
    const ordered_json& nested = param["value"];
    const std::string key = description["key"];
    if (nested.empty()) {
        mErrors.push_back(key + ": an empty list of events");
        return description;
    }
    ordered_json shape;
    std::string container;
    for (const ordered_json& event : nested) {
        ordered_json described = {{"id", event["id"]}};
        described.update(describeNode(event, "ovrix"));
        if (shape.is_null()) shape = described;
        if (described != shape) mErrors.push_back(key + ": its events differ in shape");
        const std::vector<Position> positions = positionsOf(mSentinels, event);
        if (!positions.empty()) container = positions.back().container;
    }
    description["id"] = shape["id"];
    if (container.empty()) {
        mErrors.push_back(key + ": no field explains its events");
    } else {
        description["field"] = container;
        const auto how = mHows.find(container);
        if (how != mHows.end() && how->second.cap) description["cap"] = *how->second.cap;
        if (how != mHows.end() && how->second.batch) description["batch"] = *how->second.batch;
    }
    description["params"] = shape["params"];
    return description;
}

}  // namespace vistel_replay
