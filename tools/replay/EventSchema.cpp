#include "EventSchema.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "Dictionary.h"
#include "KindRegistry.h"

namespace vistel_replay {

namespace {

using nlohmann::ordered_json;

constexpr char kUnsigned[] = "(0|[1-9][0-9]*)";
constexpr char kSigned[] = "(0|-?[1-9][0-9]*)";

template <typename T>
ordered_json rangeOf() {
    return {{"type", "integer"},
            {"minimum", std::numeric_limits<T>::min()},
            {"maximum", std::numeric_limits<T>::max()}};
}

// The values a C integer type holds; the wire's own type where the record has none.
ordered_json integerRange(const std::string& type) {
    if (type == "uint8") return rangeOf<uint8_t>();
    if (type == "int16") return rangeOf<int16_t>();
    if (type == "int32") return rangeOf<int32_t>();
    if (type == "uint32") return rangeOf<uint32_t>();
    if (type == "uint64") return rangeOf<uint64_t>();
    return rangeOf<int64_t>();
}

bool isUnsigned(const std::string& type) {
    return type == "uint8" || type == "uint32" || type == "uint64";
}

// "char[64]" -> 64: a text field, whole when it has no terminator.
ordered_json textOf(const std::string& source) {
    ordered_json text = {{"type", "string"}};
    if (source.rfind("char[", 0) == 0) text["maxLength"] = std::stoul(source.substr(5));
    return text;
}

// A format with {field} places: any text in each.
std::string formatPattern(const std::string& format) {
    std::string pattern;
    size_t at = 0;
    for (size_t open; (open = format.find('{', at)) != std::string::npos;) {
        const size_t close = format.find('}', open);
        pattern += escapeRegex(format.substr(at, open - at)) + "[\\s\\S]*";
        at = close + 1;
    }
    return "^" + pattern + escapeRegex(format.substr(at)) + "$";
}

ordered_json valueSchema(const ordered_json& param, ordered_json* defs);

// The text of a number in decimal, with `decimals` after the point.
ordered_json decimalText(const ordered_json& param) {
    const std::string source = param.value("source", "");
    const size_t decimals = param.value("decimals", size_t{0});
    const bool position = param.contains("computed") && param["computed"].contains("position");
    std::string number = isUnsigned(source) || position ? kUnsigned : kSigned;
    if (decimals > 0) number = "-?[0-9]+\\.[0-9]{" + std::to_string(decimals) + "}";
    return {{"type", "string"}, {"pattern", "^" + number + "$"}};
}

ordered_json computedText(const ordered_json& computed, ordered_json text) {
    if (computed.contains("format")) {
        text["pattern"] = formatPattern(computed["format"]);
    } else if (computed.contains("joined")) {
        const std::string each = isUnsigned(computed["each"]) ? kUnsigned : kSigned;
        const std::string separator = escapeRegex(computed["separator"]);
        text["pattern"] = "^" + each + "(" + separator + each + "){" +
                          std::to_string(computed["count"].get<size_t>() - 1) + "}$";
    }
    return text;
}

ordered_json valueSchema(const ordered_json& param, ordered_json* defs) {
    const std::string type = param["type"];
    const ordered_json computed = param.value("computed", ordered_json::object());
    if (computed.contains("constant")) return {{"const", computed["constant"]}};
    if (type == "int32" || type == "int64") {
        ordered_json range = integerRange(param.value("source", type));
        if (computed.contains("position")) range["minimum"] = 0;
        return range;
    }
    if (type == "float") {
        return {{"type", "number"},
                {"minimum", std::numeric_limits<float>::lowest()},
                {"maximum", std::numeric_limits<float>::max()}};
    }
    if (type == "decimal text") return decimalText(param);
    if (type == "text") return computedText(computed, textOf(param.value("source", "")));
    if (type == "list") {
        ordered_json element = {{"type", param["of"]}};
        if (param.contains("source")) element["source"] = param["source"];
        const ordered_json count = param.value("count", ordered_json());
        ordered_json list = {{"type", "array"}, {"items", valueSchema(element, defs)}};
        if (!count.is_null()) list.update({{"minItems", count}, {"maxItems", count}});
        return list;
    }
    // A list of nested events.
    ordered_json list = {{"type", "array"}};
    if (defs == nullptr) {
        list["items"] = shapeSchema(param);
    } else {
        const std::string name = param["schema"];
        if (!defs->contains(name)) (*defs)[name] = shapeSchema(param, defs);
        list["items"] = {{"$ref", "#/$defs/" + name}};
    }
    list["minItems"] = param.value("mayBeEmpty", false) ? 0 : 1;
    if (param.contains("cap")) list["maxItems"] = param["cap"];
    if (param.contains("batch")) list["maxItems"] = param["batch"];
    return list;
}

// The type name a named parameter carries: the Vistel service's or the Ovrix client's.
std::string receivedType(const ordered_json& param, const std::string& service) {
    const std::string type = param["type"];
    if (type == "events") return "array";
    if (type == "list") return receivedType({{"type", param["of"]}}, service) + "_array";
    if (type == "float") return "float";
    if (type == "int32" || type == "int64") return "int";
    return "string";
}

// An object of exactly these properties, every one required but `optional`.
ordered_json objectOf(ordered_json properties, const std::string& optional = "") {
    ordered_json required = ordered_json::array();
    for (auto it = properties.begin(); it != properties.end(); ++it) {
        if (it.key() != optional) required.push_back(it.key());
    }
    return {{"type", "object"},
            {"properties", std::move(properties)},
            {"required", std::move(required)},
            {"additionalProperties", false}};
}

ordered_json paramSchema(const ordered_json& param, const std::string& service,
                         ordered_json* defs) {
    const ordered_json value = valueSchema(param, defs);
    if (param.contains("index")) {
        if (param["type"] != "text") {
            return objectOf({{"index", {{"const", param["index"]}}}, {"value", value}});
        }
        // The service reads the text at the address it is given; the replay names the field.
        ordered_json properties = {{"index", {{"const", param["index"]}}}};
        if (param.contains("field")) properties["field"] = {{"const", param["field"]}};
        properties["text"] = value;
        return objectOf(std::move(properties), "field");
    }
    const ordered_json key = param.contains("keyPattern")
                                     ? ordered_json{{"type", "string"},
                                                    {"pattern", param["keyPattern"]}}
                                     : ordered_json{{"const", param["key"]}};
    return objectOf({{service == "vistel" ? "name" : "key", key},
                     {"type", {{"const", receivedType(param, service)}}},
                     {"value", value}});
}


// Where each nested shape sits: "ovrix-918009013 › AllocInfo".
void collectParents(const ordered_json& params, const std::string& parent,
                    std::map<std::string, std::vector<std::string>>& parents) {
    for (const ordered_json& param : params) {
        if (!param.contains("params")) continue;
        const std::string name = param["schema"];
        const std::string place = parent + " › " + param["key"].get<std::string>();
        auto& places = parents[name];
        if (std::find(places.begin(), places.end(), place) == places.end()) places.push_back(place);
        collectParents(param["params"], name, parents);
    }
}

}  // namespace

std::string escapeRegex(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) escaped += '\\';
        escaped += c;
    }
    return escaped;
}

ordered_json shapeSchema(const ordered_json& shape, ordered_json* defs) {
    const bool nested = !shape.contains("service");
    const std::string service = nested ? "ovrix" : shape["service"].get<std::string>();
    if (service == "jank print") {
        // The logging library takes three arguments; the replay labels the two not the id.
        ordered_json properties = {{"service", {{"const", service}}}};
        for (const ordered_json& param : shape["params"]) {
            properties[param["key"].get<std::string>()] = valueSchema(param, defs);
            if (param["key"] == "type") properties["id"] = {{"const", shape["id"]}};
        }
        return objectOf(std::move(properties));
    }
    ordered_json prefix = ordered_json::array();
    ordered_json optional = false;
    for (const ordered_json& param : shape["params"]) {
        (param.value("optional", false) ? optional : prefix.emplace_back()) =
                paramSchema(param, service, defs);
    }
    ordered_json params = {{"type", "array"}, {"prefixItems", prefix}, {"items", optional}};
    params["minItems"] = prefix.size();
    ordered_json properties = ordered_json::object();
    if (!nested) properties["service"] = {{"const", service}};
    properties["id"] = {{"const", shape["id"]}};
    properties["params"] = std::move(params);
    return objectOf(std::move(properties));
}


ordered_json eventSchema(const Dictionary& dictionary) {
    ordered_json defs = ordered_json::object();
    ordered_json nestedDefs = ordered_json::object();
    ordered_json oneOf = ordered_json::array();
    std::map<std::string, std::vector<std::string>> parents;
    for (const ordered_json& entry : dictionary.events) {
        if (entry["id"].is_null()) continue;
        const std::string name = entry["schema"];
        collectParents(entry["params"], name, parents);
        if (defs.contains(name)) {
            defs[name]["description"] =
                    defs[name]["description"].get<std::string>() + ", " + sourcesText(entry);
            continue;
        }
        ordered_json def = {{"title", std::to_string(entry["id"].get<long long>())},
                            {"description", sourcesText(entry)}};
        def.update(shapeSchema(entry, &nestedDefs));
        defs[name] = std::move(def);
        oneOf.push_back({{"$ref", "#/$defs/" + name}});
    }
    for (auto it = nestedDefs.begin(); it != nestedDefs.end(); ++it) {
        std::string within;
        for (const std::string& place : parents[it.key()]) {
            within += (within.empty() ? "nested in " : "; ") + place;
        }
        ordered_json def = {{"title", it.value()["properties"]["id"]["const"].dump()},
                            {"description", within}};
        def.update(it.value());
        defs[it.key()] = std::move(def);
    }
    return {{"$schema", "https://json-schema.org/draft/2020-12/schema"},
            {"title", "Events libc_vistel sends"},
            {"description",
             "Each event as vistel-replay --json prints what the services received; see the "
             "event dictionary (docs/events.md), generated with this file. One definition per "
             "shape: every event satisfies exactly one."},
            {"oneOf", std::move(oneOf)},
            {"$defs", std::move(defs)}};
}

}  // namespace vistel_replay
