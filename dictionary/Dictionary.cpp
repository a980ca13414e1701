#include "Dictionary.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "DictionaryBudget.h"
#include "DictionaryLimits.h"
#include "DictionaryMatch.h"
#include "EventSchema.h"

namespace vistel_replay {

namespace {

using nlohmann::ordered_json;
using vistel_tools::KindInfo;

// ---- Two runs, one description ----------------------------------------------------------------

// `a` and `b` describe the same events from runs with different sentinels, so they are equal but
// where a value no field explained: a constant when it is the same in both runs. False when they
// differ elsewhere.
bool mergeRuns(ordered_json& a, const ordered_json& b) {
    if (a.is_object() && a.contains("unexplained")) {
        if (!b.is_object() || !b.contains("unexplained")) return false;
        const ordered_json value = a["unexplained"];
        a.erase("unexplained");
        a["computed"] = value == b["unexplained"] ? ordered_json{{"constant", value}}
                                                  : ordered_json{{"varies", true}};
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

// ---- One source -------------------------------------------------------------------------------

// `object` with `key` set just before its "params", where a reader looks for it.
void setBeforeParams(ordered_json& object, const std::string& key, const ordered_json& value) {
    if (!object.contains("params") || object.contains(key)) {
        object[key] = value;
        return;
    }
    ordered_json params = std::move(object["params"]);
    object.erase("params");
    object[key] = value;
    object["params"] = std::move(params);
}

// The paths ("AllocInfo/ProcessInfo") of the lists of nested events that arrived empty.
void collectEmptyLists(const Sentinels& sentinels, const ordered_json& params,
                       const std::string& path, std::set<std::string>& empty) {
    for (const ordered_json& param : params) {
        if (param.value("type", "") != "array") continue;
        const std::string here = path + "/" + keyOf(sentinels, param["key"]);
        if (param["value"].empty()) empty.insert(here);
        for (const ordered_json& nested : param["value"]) {
            collectEmptyLists(sentinels, nested["params"], here, empty);
        }
    }
}

void markEmptyLists(ordered_json& params, const std::string& path,
                    const std::set<std::string>& empty) {
    for (ordered_json& param : params) {
        if (param["type"] != "events") continue;
        const std::string here = path + "/" + param["key"].get<std::string>();
        if (empty.count(here) != 0) setBeforeParams(param, "mayBeEmpty", true);
        markEmptyLists(param["params"], here, empty);
    }
}

std::optional<ordered_json> describeRun(const EventSource& source, const SentinelBase& base,
                                        const std::map<std::string, ContainerHow>& hows,
                                        std::set<std::string>* unread,
                                        std::vector<std::string>& errors) {
    const Sentinels sentinels(source.layout(), base, usualSizes());
    const auto received = receivedFor(source, sentinels, errors);
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

// How many of its events a record sends, from the containers that multiply them.
ordered_json sentOf(long long id, const std::map<std::string, ContainerHow>& hows,
                    const ordered_json& noneWhenEmpty) {
    ordered_json sent = {{"per", "record"}};
    for (const auto& [container, how] : hows) {
        if (!how.perEvent || how.eventIds.count(id) == 0) continue;
        sent = {{"per", how.batch ? "batch" : "element"}, {"of", container}};
        if (how.batch) sent["size"] = *how.batch;
        if (how.cap) sent["cap"] = *how.cap;
    }
    if (!noneWhenEmpty.empty()) sent["noneWhenEmpty"] = noneWhenEmpty;
    return sent;
}

// The shapes `source` sends, distinct, in the order sent, and in `limit` the limit it meets.
std::optional<std::vector<ordered_json>> describeSource(const EventSource& source,
                                                        ordered_json& limit,
                                                        std::vector<std::string>& allErrors) {
    std::vector<std::string> errors;
    std::vector<ordered_json> shapes;
    limit = deriveLimit(source, errors);
    std::map<std::string, ContainerHow> hows;
    std::set<std::string> emptyLists;
    ordered_json noneWhenEmpty = ordered_json::array();
    const Sentinels usual(source.layout(), kRunA, usualSizes());
    for (const std::string& container : usual.containers()) {
        const Sentinels probed(source.layout(), kRunA, sizesWith(container, kProbeSize, 1));
        if (const auto received = receivedFor(source, probed, errors)) {
            hows[container] = multiplication(container, probed, *received);
        }
        const Sentinels empty(source.layout(), kRunA, sizesWith(container, 0, kUsualSize));
        if (const auto received = receivedFor(source, empty, errors)) {
            if (received->empty()) noneWhenEmpty.push_back(container);
            for (const ordered_json& event : *received) {
                collectEmptyLists(empty, event["params"], "", emptyLists);
            }
        }
    }
    std::set<std::string> unread;
    auto a = describeRun(source, kRunA, hows, &unread, errors);
    const auto b = describeRun(source, kRunB, hows, nullptr, errors);
    if (a && b && !mergeRuns(*a, *b)) {
        errors.push_back("two runs with other values differ in shape");
    }
    if (!a || !b || !errors.empty()) {
        for (const std::string& error : errors) allErrors.push_back(source.label() + ": " + error);
        return std::nullopt;
    }
    for (ordered_json& event : *a) {
        ordered_json described = {{"id", event["id"]}, {"service", event["service"]}};
        described["sent"] = sentOf(event["id"].get<long long>(), hows, noneWhenEmpty);
        if (!unread.empty()) described["unread"] = unread;
        described["params"] = std::move(event["params"]);
        markEmptyLists(described["params"], "", emptyLists);
        if (std::find(shapes.begin(), shapes.end(), described) == shapes.end()) {
            shapes.push_back(std::move(described));
        }
    }
    if (a->empty()) {
        ordered_json silent = {{"id", nullptr}, {"service", "none"}, {"sent", {{"per", "never"}}}};
        if (!unread.empty()) silent["unread"] = unread;
        silent["params"] = ordered_json::array();
        shapes.push_back(std::move(silent));
    }
    return shapes;
}

// ---- Shapes that share an identifier ----------------------------------------------------------

// How `shape` stands out among `others`, the other wire shapes of its identifier: its
// parameter count, a key none of the others has, or the form of one parameter.
ordered_json tellApart(const ordered_json& shape, const std::vector<const ordered_json*>& others) {
    const auto fixedCount = [](const ordered_json& s) {
        return std::none_of(s["params"].begin(), s["params"].end(),
                            [](const ordered_json& p) { return p.value("optional", false); });
    };
    bool countsDiffer = fixedCount(shape);
    for (const ordered_json* other : others) {
        countsDiffer = countsDiffer && fixedCount(*other) &&
                       (*other)["params"].size() != shape["params"].size();
    }
    if (countsDiffer) return {{"by", "parameter count"}, {"value", shape["params"].size()}};
    for (const ordered_json& param : shape["params"]) {
        const std::string label = labelOf(param);
        const bool unique = std::none_of(others.begin(), others.end(), [&](const auto* other) {
            return std::any_of((*other)["params"].begin(), (*other)["params"].end(),
                               [&](const ordered_json& p) { return labelOf(p) == label; });
        });
        if (unique) return {{"by", "key"}, {"value", label}};
    }
    // The schema of one parameter, as that of an event holding only it.
    const auto form = [](const ordered_json& param) {
        return shapeSchema({{"id", 0}, {"params", ordered_json::array({param})}});
    };
    for (size_t i = 0; i < shape["params"].size(); ++i) {
        const ordered_json mine = form(shape["params"][i]);
        const bool differs = std::all_of(others.begin(), others.end(), [&](const auto* other) {
            return i >= (*other)["params"].size() || form((*other)["params"][i]) != mine;
        });
        if (differs) {
            const ordered_json& param = shape["params"][i];
            std::string type = param["type"];
            if (param.contains("decimals")) {
                type += param["decimals"] == 0 ? ", a whole number"
                                               : ", " + param["decimals"].dump() + " decimals";
            }
            return {{"by", "form"}, {"param", labelOf(param)}, {"value", type}};
        }
    }
    return {{"by", "nothing"}};
}

// A shape and where it was found, for naming and telling apart.
struct ShapeRef {
    ordered_json* shape;     // an entry, or a parameter's nested events
    std::string firstKind;   // the name of the first kind that sends it
};

void collectNestedShapes(ordered_json& params, const std::string& firstKind,
                         std::vector<ShapeRef>& shapes) {
    for (ordered_json& param : params) {
        if (!param.contains("params")) continue;
        shapes.push_back({&param, firstKind});
        collectNestedShapes(param["params"], firstKind, shapes);
    }
}

// Names each shape's schema definition, "<service>-<id>", with "-<first kind>" when its
// identifier comes in several wire shapes, and says how to tell those apart.
void nameShapes(std::vector<ShapeRef>& shapes, bool nested) {
    std::map<long long, std::vector<std::pair<ordered_json, std::vector<ShapeRef*>>>> byId;
    for (ShapeRef& ref : shapes) {
        const ordered_json schema = shapeSchema(*ref.shape);
        auto& wireShapes = byId[(*ref.shape)["id"].get<long long>()];
        auto same = std::find_if(wireShapes.begin(), wireShapes.end(),
                                 [&](const auto& known) { return known.first == schema; });
        if (same == wireShapes.end()) {
            wireShapes.emplace_back(schema, std::vector<ShapeRef*>());
            same = std::prev(wireShapes.end());
        }
        same->second.push_back(&ref);
    }
    for (auto& [id, wireShapes] : byId) {
        for (auto& [schema, refs] : wireShapes) {
            const ordered_json& first = *refs[0]->shape;
            std::string service = nested ? "ovrix" : first["service"].get<std::string>();
            std::replace(service.begin(), service.end(), ' ', '-');
            std::string name = service + "-" + std::to_string(id);
            if (wireShapes.size() > 1) name += "-" + refs[0]->firstKind;
            std::vector<const ordered_json*> others;
            for (const auto& [otherSchema, otherRefs] : wireShapes) {
                if (otherRefs != refs) others.push_back(otherRefs[0]->shape);
            }
            for (ShapeRef* ref : refs) {
                setBeforeParams(*ref->shape, "schema", name);
                if (!others.empty()) {
                    setBeforeParams(*ref->shape, "tellApart", tellApart(first, others));
                } else if (!nested && refs.size() > 1) {
                    // Entries apart for their record fields, one on the wire.
                    std::string alike;
                    for (const ShapeRef* other : refs) {
                        if (other == ref) continue;
                        alike += (alike.empty() ? "" : ", ") + sourcesText(*other->shape);
                    }
                    setBeforeParams(*ref->shape, "tellApart",
                                    {{"by", "nothing"}, {"value", "the same shape as " + alike}});
                }
            }
        }
    }
}

// The entry of one shape.
ordered_json entryOf(const ordered_json& shape, const ordered_json& kinds, const ordered_json& calls,
                     const ordered_json& limits) {
    ordered_json entry = {{"id", shape["id"]}, {"service", shape["service"]}, {"kinds", kinds}};
    if (!calls.empty()) entry["calls"] = calls;
    entry["sent"] = shape["sent"];
    entry["limits"] = limits;
    if (kinds.size() + calls.size() > 1) entry["sourcesAlike"] = true;
    if (shape.contains("unread")) entry["unread"] = shape["unread"];
    entry["params"] = shape["params"];
    return entry;
}

}  // namespace

Dictionary deriveDictionary(const Scenario* day, const std::string& dayName) {
    Dictionary dictionary;
    dictionary.day = day == nullptr ? "" : dayName;
    std::vector<EventSource> sources;
    for (const KindInfo& kind : vistel_tools::kinds()) sources.push_back({&kind});
    sources.push_back(directBootMsgSource());
    // Shapes by their description; sources join the shape they send.
    struct Sources {
        ordered_json kinds = ordered_json::array();
        ordered_json calls = ordered_json::array();
        ordered_json limits = ordered_json::array();
    };
    std::vector<std::pair<ordered_json, Sources>> shapes;
    for (const EventSource& source : sources) {
        ordered_json limit;
        const auto described = describeSource(source, limit, dictionary.errors);
        if (!described) continue;
        for (const ordered_json& event : *described) {
            auto same = std::find_if(shapes.begin(), shapes.end(),
                                     [&](const auto& shape) { return shape.first == event; });
            if (same == shapes.end() || event["id"].is_null()) {
                shapes.emplace_back(event, Sources());
                same = std::prev(shapes.end());
            }
            if (source.directBootMsg) {
                same->second.calls.push_back("sendBootMsg");
            } else {
                same->second.kinds.push_back(source.kind->kind);
            }
            same->second.limits.push_back(limit);
        }
    }
    // In identifier order; the kinds that send nothing last.
    std::stable_sort(shapes.begin(), shapes.end(), [](const auto& a, const auto& b) {
        const ordered_json& x = a.first["id"];
        const ordered_json& y = b.first["id"];
        return !x.is_null() && (y.is_null() || x.get<long long>() < y.get<long long>());
    });
    for (const auto& [shape, from] : shapes) {
        ordered_json entry = entryOf(shape, from.kinds, from.calls, from.limits);
        entry["budget"] = ordered_json::array();
        for (const ordered_json& limit : from.limits) {
            entry["budget"].push_back(deriveBudget(limit, day));
        }
        dictionary.events.push_back(std::move(entry));
    }
    std::vector<ShapeRef> topLevel;
    std::vector<ShapeRef> nested;
    for (ordered_json& entry : dictionary.events) {
        if (entry["id"].is_null()) continue;
        const std::string firstKind =
                entry["kinds"].empty()
                        ? "sendBootMsg"
                        : vistel_tools::kinds()[entry["kinds"][0].get<uint32_t>()].name;
        topLevel.push_back({&entry, firstKind});
        collectNestedShapes(entry["params"], firstKind, nested);
    }
    nameShapes(topLevel, false);
    nameShapes(nested, true);
    for (ordered_json& entry : dictionary.events) {
        ordered_json ordered;
        for (const char* key : {"id", "service", "schema", "kinds", "calls", "sent", "limits",
                                "budget", "tellApart", "sourcesAlike", "unread", "params"}) {
            if (entry.contains(key)) ordered[key] = std::move(entry[key]);
        }
        entry = std::move(ordered);
    }
    return dictionary;
}

}  // namespace vistel_replay
