#include "Dictionary.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "KindRegistry.h"
#include "RecordJson.h"
#include "Replayer.h"

namespace vistel_replay {

namespace {

using nlohmann::ordered_json;
using vistel_tools::Field;
using vistel_tools::FieldType;
using vistel_tools::KindInfo;
using vistel_tools::StructLayout;

// Every vector and map of a record in the runs that describe its events: two elements show that
// a list follows its container, and give each element's sentinels to tell them apart.
constexpr size_t kUsualSize = 2;
// The one container a probe fills: beyond every cap and batch the reporters have.
constexpr size_t kProbeSize = 130;

// ---- Sentinels --------------------------------------------------------------------------------

// An element of a vector, or an entry of a map, that a value sits in.
struct Position {
    std::string container;  // the container's field: "groups[].perfDetail"
    size_t index;
};

// One value of the filled record.
struct Leaf {
    std::string path;   // every index spelled out: "groups[1].perfDetail[0].Fps"
    std::string field;  // as the dictionary names it, vector and map places left out:
                        // "groups[].perfDetail[].Fps"; fixed arrays keep theirs: "values[2]"
    FieldType type;
    std::vector<Position> positions;  // outermost first
};

// Where each sort of value starts in one run. The ranges never overlap, and lie far from the
// small numbers the reporters make up themselves (positions, constants).
struct SentinelBase {
    long long small;  // uint8 and int16 fields, which hold at most 255 of them
    long long int32;  // int32 and uint32
    long long int64;
    long long uint64;
    double real;      // k + 0.25 is exact in a float
    char textPrefix;  // a text is the prefix and two base-36 digits: it fits a char[4]
};
constexpr SentinelBase kRunA = {100, 1000, 100000000000, 300000000000, 2000.25, 'x'};
constexpr SentinelBase kRunB = {180, 400000, 200000000000, 400000000000, 6000.25, 'y'};
constexpr size_t kTextLength = 3;

std::string join(const std::string& path, const std::string& name) {
    return path.empty() ? name : path + "." + name;
}

// A record of one kind filled with sentinels, and the table back from each value to its leaf.
class Sentinels {
  public:
    using SizeOf = std::function<size_t(const std::string& container)>;

    Sentinels(const StructLayout& layout, const SentinelBase& base, SizeOf sizeOf)
        : mBase(base), mSizeOf(std::move(sizeOf)) {
        mValues = structValues(layout, "", "", {});
    }

    const ordered_json& values() const { return mValues; }
    const std::deque<Leaf>& leaves() const { return mLeaves; }
    // Every vector and map field, outermost first.
    const std::vector<std::string>& containers() const { return mContainers; }
    const std::vector<std::string>& errors() const { return mErrors; }

    const Leaf* integer(long long value) const { return find(mIntegers, value); }
    const Leaf* real(double value) const { return find(mReals, value); }
    const Leaf* text(const std::string& value) const { return find(mTexts, value); }
    const Leaf* path(const std::string& value) const { return find(mPaths, value); }
    // A map key is a text sentinel whose leaf names the map itself.
    bool isMapKey(const Leaf& leaf) const {
        return std::find(mContainers.begin(), mContainers.end(), leaf.field) != mContainers.end();
    }
    char textPrefix() const { return mBase.textPrefix; }

  private:
    template <typename Key>
    const Leaf* find(const std::map<Key, const Leaf*>& table, const Key& key) const {
        const auto found = table.find(key);
        return found == table.end() ? nullptr : found->second;
    }

    const Leaf* addLeaf(Leaf leaf) {
        mLeaves.push_back(std::move(leaf));
        const Leaf* added = &mLeaves.back();
        mPaths[added->path] = added;
        return added;
    }

    std::string nextText() {
        static constexpr char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
        static constexpr size_t kRadix = sizeof(kDigits) - 1;
        const size_t n = mTexts.size();
        if (n >= kRadix * kRadix) mErrors.push_back("more texts than sentinels");
        return {mBase.textPrefix, kDigits[n / kRadix % kRadix], kDigits[n % kRadix]};
    }

    ordered_json structValues(const StructLayout& layout, const std::string& path,
                              const std::string& field, const std::vector<Position>& positions) {
        ordered_json object = ordered_json::object();
        for (const Field& member : layout) {
            object[member.name] = fieldValues(member, join(path, member.name),
                                              join(field, member.name), positions);
        }
        return object;
    }

    // A fixed array is its elements, each a value of its own.
    ordered_json fieldValues(const Field& member, const std::string& path, const std::string& field,
                             const std::vector<Position>& positions) {
        if (member.count == 1 || member.type == FieldType::kText) {
            return oneValue(member, path, field, positions);
        }
        ordered_json elements = ordered_json::array();
        for (size_t i = 0; i < member.count; ++i) {
            const std::string index = "[" + std::to_string(i) + "]";
            elements.push_back(oneValue(member, path + index, field + index, positions));
        }
        return elements;
    }

    ordered_json oneValue(const Field& member, const std::string& path, const std::string& field,
                          const std::vector<Position>& positions) {
        const Leaf leaf{path, field, member.type, positions};
        switch (member.type) {
            case FieldType::kUInt8:
            case FieldType::kInt16:
                return addInteger(mBase.small + mSmallCount++, leaf);
            case FieldType::kInt32:
            case FieldType::kUInt32:
                return addInteger(mBase.int32 + mInt32Count++, leaf);
            case FieldType::kInt64:
                return addInteger(mBase.int64 + mInt64Count++, leaf);
            case FieldType::kUInt64:
                return addInteger(mBase.uint64 + mUInt64Count++, leaf);
            case FieldType::kFloat: {
                const double value = mBase.real + static_cast<double>(mReals.size());
                mReals[value] = addLeaf(leaf);
                return value;
            }
            case FieldType::kText:
            case FieldType::kString: {
                if (member.type == FieldType::kText && member.size <= kTextLength) {
                    mErrors.push_back(path + ": too short for a sentinel text");
                }
                const std::string value = nextText();
                mTexts[value] = addLeaf(leaf);
                return value;
            }
            case FieldType::kStruct:
                return structValues(member.layout(), path, field, positions);
            case FieldType::kVector:
            case FieldType::kMap:
                return containerValues(member, path, field, positions);
        }
        return nullptr;
    }

    ordered_json addInteger(long long value, const Leaf& leaf) {
        if (leaf.type == FieldType::kUInt8 && value > 255) mErrors.push_back("too many uint8s");
        mIntegers[value] = addLeaf(leaf);
        return value;
    }

    // A vector's elements or a map's entries, each a position of its own; a map's keys are texts
    // whose leaf names the map.
    ordered_json containerValues(const Field& member, const std::string& path,
                                 const std::string& field, const std::vector<Position>& positions) {
        if (std::find(mContainers.begin(), mContainers.end(), field) == mContainers.end()) {
            mContainers.push_back(field);
        }
        const bool isMap = member.type == FieldType::kMap;
        ordered_json values = isMap ? ordered_json::object() : ordered_json::array();
        const size_t size = mSizeOf(field);
        for (size_t i = 0; i < size; ++i) {
            std::vector<Position> inside = positions;
            inside.push_back({field, i});
            if (isMap) {
                const std::string key = nextText();
                const std::string entry = path + "{" + key + "}";
                mTexts[key] = addLeaf({entry, field, FieldType::kText, inside});
                values[key] = oneValue(*member.element(), entry, field + "{}", inside);
            } else {
                values.push_back(oneValue(*member.element(), path + "[" + std::to_string(i) + "]",
                                          field + "[]", inside));
            }
        }
        return values;
    }

    SentinelBase mBase;
    SizeOf mSizeOf;
    ordered_json mValues;
    std::deque<Leaf> mLeaves;  // never moves: the tables point into it
    std::map<long long, const Leaf*> mIntegers;
    std::map<double, const Leaf*> mReals;
    std::map<std::string, const Leaf*> mTexts;
    std::map<std::string, const Leaf*> mPaths;
    std::vector<std::string> mContainers;
    std::vector<std::string> mErrors;
    long long mSmallCount = 0;
    long long mInt32Count = 0;
    long long mInt64Count = 0;
    long long mUInt64Count = 0;
};

// ---- Running the library ----------------------------------------------------------------------

// What the services received for one record of `kind` holding `sentinels`, each event as
// {"service", "id", "params"}: the jank print's type and message become its parameters.
std::optional<ordered_json> receivedFor(const KindInfo& kind, const Sentinels& sentinels,
                                        std::vector<std::string>& errors) {
    errors.insert(errors.end(), sentinels.errors().begin(), sentinels.errors().end());
    Step step{1, 0, &kind, kind.make()};
    const std::string fillError =
            vistel_tools::fillStruct(kind.layout(), sentinels.values(), step.instance.body);
    if (!fillError.empty()) {
        errors.push_back(fillError);
        return std::nullopt;
    }
    const Replayer replayer;  // a scenario of its own: every limit has run out
    if (!replayer.serviceLoaded()) {
        errors.push_back("the Vistel service library is not loaded");
        return std::nullopt;
    }
    const StepReport report = replayer.run(step);
    if (report.outcome != Outcome::kSent && report.outcome != Outcome::kNoEvent) {
        errors.push_back(std::string("the record was ") + outcomeName(report.outcome) +
                         ", not sent");
        return std::nullopt;
    }
    ordered_json events = ordered_json::array();
    for (const ordered_json& event : report.events) {
        if (!event.contains("msg")) {
            events.push_back(event);
            continue;
        }
        events.push_back({{"service", event["service"]},
                          {"id", event["id"]},
                          {"params",
                           {{{"key", "type"}, {"type", "int"}, {"value", event["type"]}},
                            {{"key", "msg"}, {"type", "string"}, {"value", event["msg"]}}}}});
    }
    return events;
}

// ---- Values back to fields --------------------------------------------------------------------

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
std::string elementsOf(const std::vector<std::string>& fields) {
    if (fields.size() < 2) return "";
    std::string pattern;
    for (size_t i = 0; i < fields.size(); ++i) {
        const std::string index = "[" + std::to_string(i) + "]";
        std::string field = fields[i];
        const size_t at = field.find(index);
        if (at == std::string::npos) return "";
        field.replace(at, index.size(), "[#]");
        if (i == 0) pattern = field;
        if (field != pattern) return "";
    }
    pattern.replace(pattern.find("[#]"), 3, "[0.." + std::to_string(fields.size() - 1) + "]");
    return pattern;
}

// The field, and the conversion, a received value comes from, if one field explains it.
struct Match {
    const Leaf* leaf = nullptr;
    std::string how;  // empty: the value is the field's own

    Match() = default;
    Match(const Leaf* matched, std::string conversion = "")
        : leaf(matched), how(std::move(conversion)) {}
};

Match matchValue(const Sentinels& sentinels, const ordered_json& value) {
    if (value.is_number_integer()) return {sentinels.integer(value.get<long long>())};
    if (value.is_number_float()) return {sentinels.real(value.get<double>())};
    if (!value.is_string()) return {};
    const std::string& text = value.get_ref<const std::string&>();
    if (const Leaf* leaf = sentinels.text(text)) return {leaf};
    if (const auto number = parseInteger(text)) {
        if (const Leaf* leaf = sentinels.integer(*number)) return {leaf, "decimal text"};
    }
    if (const auto decimal = parseDecimal(text)) {
        if (const Leaf* leaf = sentinels.real(decimal->first)) {
            return {leaf, "decimal text, " + std::to_string(decimal->second) + " decimals"};
        }
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

std::string integerType(const Leaf* leaf) {
    const bool wide = leaf != nullptr &&
                      (leaf->type == FieldType::kInt64 || leaf->type == FieldType::kUInt64);
    return wide ? "integer64" : "integer";
}

// How the elements of each container travel, from a probe that filled it alone.
struct ContainerHow {
    std::string perList;   // for the list of nested events its elements become
    std::string perEvent;  // for the top-level events, when each carries one element or a batch
    std::set<long long> eventIds;  // the top-level events perEvent is about
};

// Turns what the services received back into descriptions in the dictionary's terms, and notes
// every field it found.
class Describer {
  public:
    Describer(const Sentinels& sentinels, const std::map<std::string, ContainerHow>& hows,
              std::vector<std::string>& errors)
        : mSentinels(sentinels), mHows(hows), mErrors(errors) {}

    ordered_json describeEvent(const ordered_json& event) {
        ordered_json description = {{"id", event["id"]}, {"service", event["service"]}};
        description.update(describeNode(event));
        return description;
    }

    const std::set<std::string>& read() const { return mRead; }

  private:
    void noteRead(const Leaf* leaf) {
        if (leaf != nullptr) mRead.insert(leaf->field);
    }

    ordered_json describeNode(const ordered_json& node) {
        const std::vector<Position> positions = positionsOf(mSentinels, node);
        ordered_json params = ordered_json::array();
        std::vector<bool> keyedByMap;
        for (const ordered_json& param : node["params"]) {
            bool mapKey = false;
            params.push_back(describeParam(param, positions, mapKey));
            keyedByMap.push_back(mapKey);
        }
        return {{"params", mergeMapLists(params, keyedByMap)}};
    }

    // A key holding a map's key is shown with the map's field in braces.
    std::string keyOf(const std::string& key, bool& mapKey) {
        const size_t at = key.find(mSentinels.textPrefix());
        if (at == std::string::npos) return key;
        const Leaf* leaf = mSentinels.text(key.substr(at, kTextLength));
        if (leaf == nullptr || !mSentinels.isMapKey(*leaf)) return key;
        noteRead(leaf);
        mapKey = true;
        return key.substr(0, at) + "{" + leaf->field + "}" + key.substr(at + kTextLength);
    }

    ordered_json describeParam(const ordered_json& param, const std::vector<Position>& positions,
                               bool& mapKey) {
        ordered_json description;
        if (param.contains("index")) {
            description["index"] = param["index"];
        } else {
            const std::string key = param.value("name", param.value("key", std::string()));
            description["key"] = keyOf(key, mapKey);
        }
        const std::string type = param.value("type", "indexed");
        if (type == "array") return describeEvents(param, description);
        if (type.size() > 6 && type.compare(type.size() - 6, 6, "_array") == 0) {
            return describeList(param, type.substr(0, type.size() - 6), description);
        }
        const Match found = matchParam(mSentinels, param);
        if (param.contains("field") || type == "string") {
            description["type"] = "text";
        } else if (type == "float") {
            description["type"] = "float";
        } else {
            description["type"] = integerType(found.leaf);
        }
        if (found.leaf != nullptr) {
            noteRead(found.leaf);
            description["field"] = found.leaf->field;
            if (!found.how.empty()) description["how"] = found.how;
        } else if (param.contains("value")) {
            description.update(computed(param["value"], positions));
        } else {
            description["unexplained"] = param;  // an address inside the record, not at a text
        }
        return description;
    }

    // A value no field explains: an element's position, a list or a text formatted from fields,
    // or else left for the second run to call constant or varying.
    ordered_json computed(const ordered_json& value, const std::vector<Position>& positions) {
        const std::optional<long long> number =
                value.is_number_integer() ? std::optional<long long>(value.get<long long>())
                : value.is_string()       ? parseInteger(value.get<std::string>())
                                          : std::nullopt;
        if (number && !positions.empty() &&
            *number == static_cast<long long>(positions.back().index)) {
            const std::string& container = positions.back().container;
            return {{"computed", "the " + container + " element's position, from 0" +
                                         (value.is_string() ? ", as decimal text" : "")}};
        }
        if (value.is_string()) {
            const std::string& text = value.get_ref<const std::string&>();
            if (auto list = formattedList(text)) return {{"computed", *list}};
            if (auto formatted = formattedText(text)) return {{"computed", *formatted}};
        }
        return {{"unexplained", value}};
    }

    // "1000,1001,...": the elements of one integer array in decimal, joined by commas.
    std::optional<std::string> formattedList(const std::string& text) {
        const std::vector<std::string> parts = split(text, ',');
        if (parts.size() < 2) return std::nullopt;
        std::vector<std::string> fields;
        for (const std::string& part : parts) {
            const auto number = parseInteger(part);
            const Leaf* leaf = number ? mSentinels.integer(*number) : nullptr;
            if (leaf == nullptr) return std::nullopt;
            fields.push_back(leaf->field);
        }
        const std::string elements = elementsOf(fields);
        if (elements.empty()) return std::nullopt;
        for (const std::string& part : parts) noteRead(mSentinels.integer(*parseInteger(part)));
        return elements + " in decimal, joined by commas";
    }

    // A text with fields' texts inside: shown with each field in braces.
    std::optional<std::string> formattedText(const std::string& text) {
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
        return "formatted as \"" + shown + "\"";
    }

    // A Vistel array parameter: one element per call, each matched on its own.
    ordered_json describeList(const ordered_json& param, const std::string& elementType,
                              ordered_json& description) {
        description["type"] = "list";
        description["of"] = elementType == "string"  ? "text"
                            : elementType == "float" ? "float"
                                                     : "integer";
        std::vector<std::string> fields;
        for (const ordered_json& element : param["value"]) {
            const Match found = matchValue(mSentinels, element);
            noteRead(found.leaf);
            fields.push_back(found.leaf != nullptr ? found.leaf->field : "");
        }
        const std::string elements = elementsOf(fields);
        if (!elements.empty()) {
            description["field"] = elements;
            description["how"] = "one element each, in order";
        } else {
            description["unexplained"] = param["value"];
        }
        return description;
    }

    // A list of nested events: described once, when every event of it has the same shape, with
    // the container whose elements they stand for.
    ordered_json describeEvents(const ordered_json& param, ordered_json& description) {
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
            described.update(describeNode(event));
            if (shape.is_null()) shape = described;
            if (described != shape) mErrors.push_back(key + ": its events differ in shape");
            const std::vector<Position> positions = positionsOf(mSentinels, event);
            if (!positions.empty()) container = positions.back().container;
        }
        if (container.empty()) {
            mErrors.push_back(key + ": no field explains its events");
        } else {
            description["field"] = container;
            const auto how = mHows.find(container);
            if (how != mHows.end() && !how->second.perList.empty()) {
                description["how"] = how->second.perList;
            }
        }
        description["id"] = shape["id"];
        description["params"] = shape["params"];
        return description;
    }

    // The lists a map's entries become are one parameter each, keyed by the entry's key: the same
    // description, once per entry. Shown once.
    static ordered_json mergeMapLists(const ordered_json& params, const std::vector<bool>& keyed) {
        ordered_json merged = ordered_json::array();
        const ordered_json* previous = nullptr;  // the keyed parameter just before, as described
        for (size_t i = 0; i < params.size(); ++i) {
            if (keyed[i] && previous != nullptr && *previous == params[i]) continue;
            previous = keyed[i] ? &params[i] : nullptr;
            ordered_json param = params[i];
            if (keyed[i]) {
                const std::string key = param["key"];
                const size_t open = key.find('{');
                const std::string map = key.substr(open + 1, key.find('}') - open - 1);
                std::string how = "one list per entry of " + map + ", in the map's order, named " +
                                  "by its key";
                if (param.contains("how")) how += "; " + param["how"].get<std::string>();
                param["how"] = how;
            }
            merged.push_back(std::move(param));
        }
        return merged;
    }

    const Sentinels& mSentinels;
    const std::map<std::string, ContainerHow>& mHows;
    std::vector<std::string>& mErrors;
    std::set<std::string> mRead;
};

// ---- Probes: how events multiply --------------------------------------------------------------

// Where the elements of `container`, filled with kProbeSize of them, went: one top-level event
// each, one nested event each in one list, in batches over several lists, or only the first few.
ContainerHow probe(const std::string& container, const Sentinels& sentinels,
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
    const std::string first = indices.size() == kProbeSize
                                      ? ""
                                      : ", the first " + std::to_string(indices.size()) + " only";
    if (perList.count(nullptr) != 0) {
        how.perEvent = "one event per element of " + container + first;
        how.eventIds = eventIds;
        return how;
    }
    size_t largest = 0;
    for (const auto& [list, count] : perList) largest = std::max(largest, count);
    // The list's field names the container.
    if (perList.size() == 1 || !first.empty()) {
        how.perList = "one event per element" + first;
        return how;
    }
    how.perList = "one event per element, at most " + std::to_string(largest) + " per list";
    how.perEvent = "one event per " + std::to_string(largest) + " elements of " + container +
                   ", the last with the rest";
    how.eventIds = eventIds;
    return how;
}

// ---- Two runs, one description ----------------------------------------------------------------

// `a` and `b` describe the same events from runs with different sentinels, so they are equal but
// where a value no field explained: a constant when it is the same in both runs.
bool mergeRuns(ordered_json& a, const ordered_json& b) {
    if (a.is_object() && a.contains("unexplained")) {
        if (!b.is_object() || !b.contains("unexplained")) return false;
        const ordered_json value = a["unexplained"];
        a.erase("unexplained");
        a["computed"] = value == b["unexplained"]
                                ? "constant " + value.dump()
                                : std::string("varies from record to record; no field explains it");
        return true;
    }
    if (a.type() != b.type() || a.size() != b.size()) return false;
    if (a.is_object()) {
        for (auto it = a.begin(); it != a.end(); ++it) {
            if (!b.contains(it.key()) || !mergeRuns(it.value(), b[it.key()])) return false;
        }
        return true;
    }
    if (a.is_array()) {
        for (size_t i = 0; i < a.size(); ++i) {
            if (!mergeRuns(a[i], b[i])) return false;
        }
        return true;
    }
    return a == b;
}

// ---- One kind ---------------------------------------------------------------------------------

struct KindShapes {
    std::vector<ordered_json> events;  // distinct, in the order sent
    std::vector<std::string> unread;   // fields no parameter carries
};

std::optional<ordered_json> describeRun(const KindInfo& kind, const SentinelBase& base,
                                        const std::map<std::string, ContainerHow>& hows,
                                        std::set<std::string>* unread,
                                        std::vector<std::string>& errors) {
    const Sentinels sentinels(kind.layout(), base, [](const std::string&) { return kUsualSize; });
    const auto received = receivedFor(kind, sentinels, errors);
    if (!received) return std::nullopt;
    Describer describer(sentinels, hows, errors);
    ordered_json events = ordered_json::array();
    for (const ordered_json& event : *received) events.push_back(describer.describeEvent(event));
    if (unread != nullptr) {
        for (const Leaf& leaf : sentinels.leaves()) {
            if (describer.read().count(leaf.field) == 0) unread->insert(leaf.field);
        }
    }
    return events;
}

std::optional<KindShapes> describeKind(const KindInfo& kind, std::vector<std::string>& allErrors) {
    std::vector<std::string> errors;
    std::map<std::string, ContainerHow> hows;
    const Sentinels usual(kind.layout(), kRunA, [](const std::string&) { return kUsualSize; });
    for (const std::string& container : usual.containers()) {
        const Sentinels probed(kind.layout(), kRunA, [&](const std::string& c) {
            return c == container ? kProbeSize : 1;
        });
        if (const auto received = receivedFor(kind, probed, errors)) {
            hows[container] = probe(container, probed, *received);
        }
    }
    std::set<std::string> unread;
    auto a = describeRun(kind, kRunA, hows, &unread, errors);
    const auto b = describeRun(kind, kRunB, hows, nullptr, errors);
    if (a && b && !mergeRuns(*a, *b)) {
        errors.push_back("two runs with other values differ in shape");
    }
    if (!a || !b || !errors.empty()) {
        for (const std::string& error : errors) allErrors.push_back(kind.name + (": " + error));
        return std::nullopt;
    }
    KindShapes shapes;
    for (ordered_json& event : *a) {
        std::string how;
        for (const auto& [container, containerHow] : hows) {
            if (containerHow.eventIds.count(event["id"].get<long long>()) == 0) continue;
            how += (how.empty() ? "" : "; ") + containerHow.perEvent;
        }
        if (!how.empty()) event["how"] = how;
        if (std::find(shapes.events.begin(), shapes.events.end(), event) == shapes.events.end()) {
            shapes.events.push_back(event);
        }
    }
    shapes.unread.assign(unread.begin(), unread.end());
    return shapes;
}

ordered_json limitOf(const KindInfo& kind) {
    ordered_json limit = {{"kind", kind.kind}};
    if (kind.limit.policy == nullptr) {
        limit["policy"] = nullptr;
        return limit;
    }
    limit["policy"] = kind.limit.policy;
    limit["seconds"] = kind.limit.periodSeconds;
    limit["per"] = kind.limit.scope;
    return limit;
}

// ---- Writing ----------------------------------------------------------------------------------

// JSON with a blank after each separator, as people write it: {"id": 1, "kinds": [0, 1]}.
void writeJson(const ordered_json& value, std::string& out) {
    if (value.is_object()) {
        out += '{';
        for (auto it = value.begin(); it != value.end(); ++it) {
            if (it != value.begin()) out += ", ";
            out += ordered_json(it.key()).dump() + ": ";
            writeJson(it.value(), out);
        }
        out += '}';
    } else if (value.is_array()) {
        out += '[';
        for (size_t i = 0; i < value.size(); ++i) {
            if (i != 0) out += ", ";
            writeJson(value[i], out);
        }
        out += ']';
    } else {
        out += value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
    }
}

std::string kindsText(const ordered_json& kinds) {
    std::string text;
    for (const ordered_json& kind : kinds) {
        const KindInfo& info = vistel_tools::kinds()[kind.get<uint32_t>()];
        text += (text.empty() ? "" : ", ") + std::to_string(info.kind) + " " + info.name;
    }
    return text;
}

std::string limitText(const ordered_json& limit) {
    if (limit["policy"].is_null()) return "never limited";
    const std::string per = limit["per"];
    return "`" + limit["policy"].get<std::string>() + "`: at most one every " +
           std::to_string(limit["seconds"].get<int>()) + " s per " + per;
}

// The identifiers of the events nested in `params`, at any depth, in order.
void collectNested(const ordered_json& params, std::vector<std::string>& ids) {
    for (const ordered_json& param : params) {
        if (!param.contains("params")) continue;
        const std::string id = param["id"].dump();
        if (std::find(ids.begin(), ids.end(), id) == ids.end()) ids.push_back(id);
        collectNested(param["params"], ids);
    }
}

std::string paramLabel(const ordered_json& param) {
    return param.contains("index") ? "#" + param["index"].dump()
                                   : "`" + param["key"].get<std::string>() + "`";
}

std::string fromText(const ordered_json& param) {
    std::string text = param.contains("field")
                               ? "`" + param["field"].get<std::string>() + "`"
                               : "computed: " + param.value("computed", std::string("?"));
    if (param.contains("how")) text += "; " + param["how"].get<std::string>();
    return text;
}

// One table per event, nested lists after it under their path from the top-level event.
void writeParamTable(const ordered_json& params, const std::string& path, std::ostream& out) {
    out << "| param | type | from |\n|---|---|---|\n";
    for (const ordered_json& param : params) {
        std::string type = param["type"];
        if (param.contains("of")) type += " of " + param["of"].get<std::string>();
        if (param.contains("id")) type += " " + param["id"].dump();
        out << "| " << paramLabel(param) << " | " << type << " | " << fromText(param) << " |\n";
    }
    for (const ordered_json& param : params) {
        if (!param.contains("params")) continue;
        const std::string nestedPath = path + " › " + param["key"].get<std::string>();
        out << "\n**" << nestedPath << "**: " << param["id"].dump() << " each\n\n";
        writeParamTable(param["params"], nestedPath, out);
    }
}

void collectComputed(const ordered_json& params, const std::string& path,
                     std::vector<std::string>& lines) {
    for (const ordered_json& param : params) {
        const std::string here = path + " " + paramLabel(param);
        if (param.contains("computed")) {
            lines.push_back("- " + here + ": " + param["computed"].get<std::string>());
        }
        if (param.contains("params")) collectComputed(param["params"], here + " ›", lines);
    }
}

}  // namespace

Dictionary deriveDictionary() {
    Dictionary dictionary;
    // Shapes by their description; kinds join the shape they send.
    std::vector<std::pair<ordered_json, ordered_json>> shapes;  // (shape, kinds)
    std::vector<ordered_json> silent;
    for (const KindInfo& kind : vistel_tools::kinds()) {
        const auto described = describeKind(kind, dictionary.errors);
        if (!described) continue;
        for (ordered_json event : described->events) {
            if (!described->unread.empty()) event["unread"] = described->unread;
            auto same = std::find_if(shapes.begin(), shapes.end(),
                                     [&](const auto& shape) { return shape.first == event; });
            if (same == shapes.end()) {
                shapes.emplace_back(event, ordered_json::array());
                same = std::prev(shapes.end());
            }
            same->second.push_back(kind.kind);
        }
        if (described->events.empty()) {
            silent.push_back({{"id", nullptr},
                              {"service", vistel_tools::serviceName(kind.service)},
                              {"kinds", {kind.kind}},
                              {"params", ordered_json::array()},
                              {"limits", {limitOf(kind)}},
                              {"unread", described->unread}});
        }
    }
    std::stable_sort(shapes.begin(), shapes.end(), [](const auto& a, const auto& b) {
        return a.first["id"].template get<long long>() < b.first["id"].template get<long long>();
    });
    for (const auto& [shape, kinds] : shapes) {
        ordered_json entry = {{"id", shape["id"]},
                              {"service", shape["service"]},
                              {"kinds", kinds},
                              {"params", shape["params"]}};
        if (shape.contains("how")) entry["how"] = shape["how"];
        ordered_json limits = ordered_json::array();
        for (const ordered_json& kind : kinds) {
            limits.push_back(limitOf(vistel_tools::kinds()[kind.get<uint32_t>()]));
        }
        entry["limits"] = limits;
        if (shape.contains("unread")) entry["unread"] = shape["unread"];
        dictionary.events.push_back(std::move(entry));
    }
    dictionary.events.insert(dictionary.events.end(), silent.begin(), silent.end());
    return dictionary;
}

void printDictionaryJson(const Dictionary& dictionary, std::ostream& out) {
    for (const ordered_json& event : dictionary.events) {
        std::string line;
        writeJson(event, line);
        out << line << "\n";
    }
}

void printDictionaryMarkdown(const Dictionary& dictionary, std::ostream& out) {
    out << "# Event dictionary\n\n"
           "Every event libc_vistel sends, with every parameter in the order it is set. Written "
           "by\n`vistel-replay --dictionary`, which derives it from the library itself: each "
           "kind's record\nis filled with distinct values, reported through the host services, "
           "and what they\nreceived is matched back to the record's fields (`--dictionary "
           "--json` gives the same,\none JSON object per event, as in `events.jsonl`). A test "
           "fails when this file differs\nfrom what the current build derives.\n\n"
           "How to read a parameter: `#N` is a Vistel parameter by index, a name in backticks "
           "one by\nname (a Vistel named parameter, or an Ovrix key). *from* names the record "
           "field the\nvalue is, where `groups[].SceneMode` means the field of each element of "
           "`groups`; or says\nhow the library computes it when no single field is the value. "
           "A list of nested events\nis described below its event. The same identifier appears "
           "once per shape the kinds\nsend it in.\n\n"
           "## Index\n\n| id | service | nested events | kinds |\n|---|---|---|---|\n";
    for (const ordered_json& event : dictionary.events) {
        std::vector<std::string> nested;
        collectNested(event["params"], nested);
        std::string nestedText;
        for (const std::string& id : nested) nestedText += (nestedText.empty() ? "" : ", ") + id;
        out << "| " << (event["id"].is_null() ? "none" : event["id"].dump()) << " | "
            << event["service"].get<std::string>() << " | " << nestedText << " | "
            << kindsText(event["kinds"]) << " |\n";
    }
    std::vector<std::string> computedLines;
    for (const ordered_json& event : dictionary.events) {
        const std::string id = event["id"].is_null() ? "no event" : event["id"].dump();
        out << "\n## " << id << " (" << event["service"].get<std::string>() << ", kind"
            << (event["kinds"].size() > 1 ? "s " : " ") << kindsText(event["kinds"]) << ")\n\n";
        for (const ordered_json& limit : event["limits"]) {
            out << "- kind " << limit["kind"].dump() << ": " << limitText(limit) << "\n";
        }
        out << "- sent: "
            << (event.contains("how")   ? event["how"].get<std::string>()
                : event["id"].is_null() ? "never; the handler answers without a report"
                                        : "one per record")
            << "\n";
        if (event.contains("unread")) {
            std::string fields;
            for (const ordered_json& field : event["unread"]) {
                fields += (fields.empty() ? "`" : ", `") + field.get<std::string>() + "`";
            }
            out << "- record fields no parameter carries: " << fields << "\n";
        }
        if (event["params"].empty()) continue;
        out << "\n";
        writeParamTable(event["params"], id, out);
        collectComputed(event["params"], id, computedLines);
    }
    out << "\n## Computed parameters\n\nThe parameters no single record field explains:\n\n";
    for (const std::string& line : computedLines) out << line << "\n";
}

}  // namespace vistel_replay
