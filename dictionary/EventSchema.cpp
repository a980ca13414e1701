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

constexpr char kSchemaDescription[] =
        "Each event as the services received it: as vistel-replay --json prints it (the events "
        "of a step) and as vistel-replay --events writes it, with where it came from (at, step, "
        "record, kind); see the event dictionary (docs/events.md), generated with this file. One "
        "definition per shape, and every event satisfies exactly one: its service and id, and "
        "for an id sent in several shapes its wire form, pick the definition it is checked "
        "against, so a validator names the first wrong member. The rate limits live in the "
        "camera process's memory and start afresh when that process restarts.";

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

// The member that names a named parameter on the wire: the Vistel service's "name", Ovrix's "key".
std::string labelMember(const std::string& service) {
    return service == "vistel" ? "name" : "key";
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
    return objectOf({{labelMember(service), key},
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

std::string labelOf(const ordered_json& param) {
    return param.contains("index") ? "#" + param["index"].dump() : param["key"].get<std::string>();
}

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

namespace {

// What vistel-replay --events adds to each event it writes: where in the scenario it came from.
// Optional, so that an event as a service received it is valid too.
ordered_json streamAnnotations() {
    return {{"at", {{"type", "number"}, {"minimum", 0}}},
            {"step", {{"type", "integer"}, {"minimum", 1}}},
            {"record", {{"type", "integer"}, {"minimum", 1}}},
            {"kind",
             {{"type", "integer"}, {"minimum", 0}, {"maximum", orv::kVistelEventCount - 1}}}};
}

// Params that hold, somewhere, one labelled `label` ("#3", "THERMALLEVEL").
ordered_json holdsParam(const std::string& label, const std::string& service) {
    const ordered_json match =
            label[0] == '#' ? ordered_json{{"index", {{"const", std::stol(label.substr(1))}}}}
                            : ordered_json{{labelMember(service), {{"const", label}}}};
    ordered_json required = ordered_json::array();
    for (auto it = match.begin(); it != match.end(); ++it) required.push_back(it.key());
    return {{"contains", {{"properties", match}, {"required", required}}}};
}

// What an event's params must be for it to be taken as of `entry`'s shape rather than another of
// its identifier's, as the dictionary's "tellApart" says the wire tells them apart; with nothing
// to go by, the shape's params themselves.
ordered_json paramsCondition(const ordered_json& entry) {
    const ordered_json& tell = entry["tellApart"];
    const std::string by = tell["by"];
    const std::string service = entry["service"];
    if (by == "parameter count") return {{"minItems", tell["value"]}, {"maxItems", tell["value"]}};
    if (by == "key") return holdsParam(tell["value"], service);
    if (by != "form") return shapeSchema(entry)["properties"]["params"];
    // The parameter in its place has the shape's form.
    ordered_json prefix = ordered_json::array();
    for (const ordered_json& param : entry["params"]) {
        if (labelOf(param) == tell["param"]) {
            prefix.push_back(paramSchema(param, service, nullptr));
            break;
        }
        prefix.push_back(true);
    }
    return {{"prefixItems", prefix}};
}

// Which definition an event of one identifier is checked against: the only one, or the one its
// params point to. One whose params point to none is refused at "params", where the shapes
// differ: the wire cannot say which shape it was meant to be.
ordered_json dispatchOf(const std::vector<const ordered_json*>& entries) {
    const auto ref = [](const ordered_json& entry) {
        return ordered_json{{"$ref", "#/$defs/" + entry["schema"].get<std::string>()}};
    };
    const auto withParams = [](ordered_json params) {
        return ordered_json{{"properties", {{"params", std::move(params)}}}};
    };
    if (entries.size() == 1) return ref(*entries[0]);
    ordered_json anyOne = ordered_json::array();
    for (const ordered_json* entry : entries) anyOne.push_back(paramsCondition(*entry));
    ordered_json dispatch = withParams({{"anyOf", std::move(anyOne)}});
    for (auto it = entries.rbegin(); it != entries.rend(); ++it) {
        dispatch = {{"if", withParams(paramsCondition(**it))},
                    {"then", ref(**it)},
                    {"else", std::move(dispatch)}};
    }
    return dispatch;
}

// An event whose `member` is `value`.
ordered_json whereMember(const std::string& member, const ordered_json& value) {
    return {{"properties", {{member, {{"const", value}}}}}, {"required", {member}}};
}

}  // namespace

ordered_json eventSchema(const Dictionary& dictionary) {
    ordered_json defs = ordered_json::object();
    ordered_json nestedDefs = ordered_json::object();
    // The entries of each service and identifier, one per wire shape, in the dictionary's order.
    std::map<std::string, std::map<long long, std::vector<const ordered_json*>>> shapes;
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
        shapes[entry["service"]][entry["id"].get<long long>()].push_back(&entry);
        ordered_json def = {{"title", std::to_string(entry["id"].get<long long>())},
                            {"description", sourcesText(entry)}};
        def.update(shapeSchema(entry, &nestedDefs));
        def["properties"].update(streamAnnotations());
        defs[name] = std::move(def);
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
    // Dispatch on the service, then on the identifier, so that a validator checks an event
    // against the one shape it claims and names its first wrong member, not every shape's.
    ordered_json services = ordered_json::array();
    ordered_json dispatch = ordered_json::array();
    for (const auto& [service, ids] : shapes) {
        services.push_back(service);
        ordered_json known = ordered_json::array();
        ordered_json byId = ordered_json::array();
        for (const auto& [id, entries] : ids) {
            known.push_back(id);
            byId.push_back({{"if", whereMember("id", id)}, {"then", dispatchOf(entries)}});
        }
        dispatch.push_back({{"if", whereMember("service", service)},
                            {"then",
                             {{"properties", {{"id", {{"enum", std::move(known)}}}}},
                              {"allOf", std::move(byId)}}}});
    }
    return {{"$schema", "https://json-schema.org/draft/2020-12/schema"},
            {"title", "Events libc_vistel sends"},
            {"description", kSchemaDescription},
            {"type", "object"},
            {"properties", {{"service", {{"enum", std::move(services)}}}}},
            {"required", {"service", "id"}},
            {"allOf", std::move(dispatch)},
            {"$defs", std::move(defs)}};
}

}  // namespace vistel_replay
