#include "Catalog.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "RecordJson.h"

namespace vistel_replay {

namespace {

using vistel_tools::Field;
using vistel_tools::FieldType;
using vistel_tools::KindInfo;
using vistel_tools::StructLayout;

// The structure whose fields a field's value holds, or nullptr for plain values.
const StructLayout* nestedLayout(const Field& field) {
    if (field.type == FieldType::kStruct) return &field.layout();
    if (field.type == FieldType::kVector || field.type == FieldType::kMap) {
        return nestedLayout(*field.element());
    }
    return nullptr;
}

void printFields(const StructLayout& layout, int indent, std::ostream& out) {
    size_t width = 0;
    for (const Field& field : layout) width = std::max(width, std::strlen(field.name));
    for (const Field& field : layout) {
        out << std::string(indent, ' ') << field.name
            << std::string(width + 2 - std::strlen(field.name), ' ') << typeName(field) << "\n";
        if (const StructLayout* nested = nestedLayout(field)) {
            printFields(*nested, indent + 4, out);
        }
    }
}

// A structure's fields as JSON: name and type, and the fields of a nested structure.
nlohmann::ordered_json fieldsJson(const StructLayout& layout) {
    nlohmann::ordered_json fields = nlohmann::ordered_json::array();
    for (const Field& field : layout) {
        nlohmann::ordered_json entry = {{"name", field.name}, {"type", typeName(field)}};
        if (const StructLayout* nested = nestedLayout(field)) entry["fields"] = fieldsJson(*nested);
        fields.push_back(std::move(entry));
    }
    return fields;
}

// The identifiers of "918009013 [918009012 [918009010]]" from `at` to the end or the closing
// bracket, each with the events nested in it.
nlohmann::ordered_json eventIds(const std::string& text, size_t& at) {
    nlohmann::ordered_json events = nlohmann::ordered_json::array();
    while (at < text.size() && text[at] != ']') {
        const size_t end = std::min(text.find_first_not_of("0123456789", at), text.size());
        nlohmann::ordered_json event = {{"id", std::stoll(text.substr(at, end - at))}};
        at = end;
        if (text.compare(at, 2, " [") == 0) {
            at += 2;
            event["nested"] = eventIds(text, at);
            ++at;  // the closing bracket
        }
        events.push_back(std::move(event));
        if (at < text.size() && text[at] == ' ') ++at;
    }
    return events;
}

// The kind table's events as data: "918009009 [918009008] per node" is
// [{"id": 918009009, "nested": [{"id": 918009008}], "per": "node"}], "... per 60 entries" has
// "per": "entries" and "batch": 60, the jank print's "type 3, id 474" is
// [{"type": 3, "id": 474}], and "-" none.
nlohmann::ordered_json eventsJson(const std::string& events) {
    if (events == "-") return nlohmann::ordered_json::array();
    const size_t id = events.find("id ");
    if (events.rfind("type ", 0) == 0 && id != std::string::npos) {
        return {{{"type", std::stoi(events.substr(5))}, {"id", std::stoll(events.substr(id + 3))}}};
    }
    const size_t per = events.find(" per ");
    size_t at = 0;
    nlohmann::ordered_json parsed = eventIds(events.substr(0, per), at);
    if (per != std::string::npos) {
        std::string unit = events.substr(per + 5);
        const size_t space = unit.find(' ');
        if (space != std::string::npos) {
            parsed.back()["batch"] = std::stoi(unit.substr(0, space));
            unit = unit.substr(space + 1);
        }
        parsed.back()["per"] = unit;
    }
    return parsed;
}

// What --list says of a kind, as JSON.
nlohmann::ordered_json kindJson(const KindInfo& kind) {
    nlohmann::ordered_json results = nlohmann::ordered_json::object();
    for (size_t i = 0; i < kind.results.size(); ++i) {
        if (kind.results[i] == vistel_tools::kNoResult) continue;
        results[vistel_tools::outcomeName(static_cast<vistel_tools::Outcome>(i))] = kind.results[i];
    }
    return {{"kind", kind.kind},
            {"name", kind.name},
            {"handler", kind.handler},
            {"record", kind.recordType},
            {"body", kind.layout().name},
            {"service", vistel_tools::serviceName(kind.service)},
            {"events", eventsJson(kind.events)},
            {"limit", limitJson(kind.limit)},
            {"results", std::move(results)}};
}

nlohmann::ordered_json exampleStep(const KindInfo& kind) {
    nlohmann::ordered_json example = {{"at", 0}, {"kind", kind.name}};
    example.update(vistel_tools::skeletonOf(kind.layout()));
    return example;
}

}  // namespace

nlohmann::ordered_json limitJson(const vistel_tools::LimitPolicy& limit) {
    if (limit.policy == nullptr) return nullptr;
    return {{"policy", limit.policy}, {"periodSeconds", limit.periodSeconds}, {"per", limit.scope}};
}

void printKindList(std::ostream& out, bool json) {
    if (json) {
        for (const KindInfo& kind : vistel_tools::kinds()) out << kindJson(kind).dump() << "\n";
        return;
    }
    char line[256];
    snprintf(line, sizeof(line), "%-4s  %-41s  %-10s  %s\n", "kind", "name / handler", "service",
             "events / limit / results");
    out << line;
    for (const KindInfo& kind : vistel_tools::kinds()) {
        snprintf(line, sizeof(line), "%4u  %-41s  %-10s  %s\n", kind.kind, kind.name,
                 vistel_tools::serviceName(kind.service), kind.events);
        out << line;
        snprintf(line, sizeof(line), "%4s  %-41s  %-10s  %s\n", "", kind.handler, "",
                 vistel_tools::describeLimit(kind.limit).c_str());
        out << line;
        snprintf(line, sizeof(line), "%4s  %-41s  %-10s  %s\n", "", "", "",
                 vistel_tools::describeResults(kind.results).c_str());
        out << line;
    }
}

void printKindDescription(const KindInfo& kind, std::ostream& out, bool json) {
    const StructLayout& layout = kind.layout();
    if (json) {
        nlohmann::ordered_json description = kindJson(kind);
        description["fields"] = fieldsJson(layout);
        description["example"] = exampleStep(kind);
        out << description.dump() << "\n";
        return;
    }
    out << "kind " << kind.kind << ": " << kind.name << "\n"
        << "  handler  " << kind.handler << "\n"
        << "  record   " << kind.recordType;
    if (std::strcmp(kind.recordType, layout.name) != 0) out << " (body " << layout.name << ")";
    out << "\n"
        << "  service  " << vistel_tools::serviceName(kind.service) << ", events " << kind.events
        << "\n"
        << "  limit    " << vistel_tools::describeLimit(kind.limit) << "\n"
        << "  results  " << vistel_tools::describeResults(kind.results) << "\n"
        << "fields (a char[N] holds at most N - 1 bytes of text):\n";
    printFields(layout, 2, out);
    out << "example step:\n  " << exampleStep(kind).dump() << "\n";
}

}  // namespace vistel_replay
