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

}  // namespace

void printKindList(std::ostream& out) {
    char line[256];
    snprintf(line, sizeof(line), "%-4s  %-41s  %-10s  %s\n", "kind", "name / handler", "service",
             "events / limit");
    out << line;
    for (const KindInfo& kind : vistel_tools::kinds()) {
        snprintf(line, sizeof(line), "%4u  %-41s  %-10s  %s\n", kind.kind, kind.name,
                 vistel_tools::serviceName(kind.service), kind.events);
        out << line;
        snprintf(line, sizeof(line), "%4s  %-41s  %-10s  %s\n", "", kind.handler, "",
                 vistel_tools::describeLimit(kind.limit).c_str());
        out << line;
    }
}

void printKindDescription(const KindInfo& kind, std::ostream& out) {
    const StructLayout& layout = kind.layout();
    out << "kind " << kind.kind << ": " << kind.name << "\n"
        << "  handler  " << kind.handler << "\n"
        << "  record   " << kind.recordType;
    if (std::strcmp(kind.recordType, layout.name) != 0) out << " (body " << layout.name << ")";
    out << "\n"
        << "  service  " << vistel_tools::serviceName(kind.service) << ", events " << kind.events
        << "\n"
        << "  limit    " << vistel_tools::describeLimit(kind.limit) << "\n"
        << "fields (a char[N] holds at most N - 1 bytes of text):\n";
    printFields(layout, 2, out);
    nlohmann::ordered_json example = {{"at", 0}, {"kind", kind.name}};
    example.update(vistel_tools::skeletonOf(layout));
    out << "example step:\n  " << example.dump() << "\n";
}

}  // namespace vistel_replay
