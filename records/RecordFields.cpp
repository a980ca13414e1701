#include "RecordFields.h"

#include <RecordLayouts.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>
#include <vector>

namespace vistel_tools {

// Every field of every structure, in the order RecordLayouts.h lists them (each structure's fields
// together, in declaration order), with the structure each belongs to. An accessor takes the
// member's address without binding a typed reference (the packed record's members are unaligned).
struct FieldTable {
    std::vector<Field> fields;
    std::vector<const char*> owners;  // the structure of each field, by name
};

#define VISTEL_NO_ENTRY(type, size, align)
#define VISTEL_FIELD_ENTRY(type, member, offset, size)                                        \
    table.fields.push_back(makeField<decltype(orv::type::member)>(#member, [](void* object) { \
        return static_cast<void*>(&static_cast<orv::type*>(object)->member);                  \
    }));                                                                                      \
    table.owners.push_back(#type);

const FieldTable& fieldTable() {
    static const FieldTable kTable = [] {
        FieldTable table;
        VISTEL_RECORD_LAYOUTS(VISTEL_NO_ENTRY, VISTEL_NO_ENTRY, VISTEL_FIELD_ENTRY)
        return table;
    }();
    return kTable;
}

#undef VISTEL_FIELD_ENTRY

// A structure's layout: its fields are the table's run owned by it.
StructLayout layoutNamed(const char* name, size_t size, size_t align) {
    const FieldTable& table = fieldTable();
    size_t first = 0;
    while (first < table.owners.size() && strcmp(table.owners[first], name) != 0) ++first;
    size_t end = first;
    while (end < table.owners.size() && strcmp(table.owners[end], name) == 0) ++end;
    return {name, size, align, table.fields.data() + first, end - first};
}

template <typename T>
struct StructName;

template <typename T>
const StructLayout& layoutOf() {
    static const StructLayout kLayout = layoutNamed(StructName<T>::kName, sizeof(T), alignof(T));
    return kLayout;
}

// Every structure with a field table has its layout, and its name.
#define VISTEL_LAYOUT_OF(type, size, align)         \
    template <>                                     \
    struct StructName<orv::type> {                  \
        static constexpr const char* kName = #type; \
    };                                              \
    template const StructLayout& layoutOf<orv::type>();
#define VISTEL_NO_FIELD(type, member, offset, size)
VISTEL_RECORD_LAYOUTS(VISTEL_LAYOUT_OF, VISTEL_NO_ENTRY, VISTEL_NO_FIELD)
#undef VISTEL_LAYOUT_OF
#undef VISTEL_NO_FIELD
#undef VISTEL_NO_ENTRY

// ---- Queries ----------------------------------------------------------------------------------

const Field* StructLayout::find(const std::string& fieldName) const {
    for (const Field& field : *this) {
        if (fieldName == field.name) return &field;
    }
    return nullptr;
}

namespace {

const char* scalarTypeName(FieldType type) {
    switch (type) {
        case FieldType::kUInt8:
            return "uint8";
        case FieldType::kInt16:
            return "int16";
        case FieldType::kInt32:
            return "int32";
        case FieldType::kUInt32:
            return "uint32";
        case FieldType::kInt64:
            return "int64";
        case FieldType::kUInt64:
            return "uint64";
        case FieldType::kFloat:
            return "float";
        case FieldType::kString:
            return "string";
        case FieldType::kText:
        case FieldType::kStruct:
        case FieldType::kVector:
        case FieldType::kMap:
            break;
    }
    return "";
}

// Mistakes between `a` and `b`, letter case aside: letters missing, added or changed, and two
// neighbours swapped (each counts once). Anything above `limit` reads as limit + 1.
size_t typingDistance(const std::string& a, const std::string& b, size_t limit) {
    if ((a.size() > b.size() ? a.size() - b.size() : b.size() - a.size()) > limit) {
        return limit + 1;
    }
    const auto same = [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) ==
               std::tolower(static_cast<unsigned char>(y));
    };
    // Three rows of the classic table: the one being filled and the two before it.
    std::vector<size_t> before(b.size() + 1), previous(b.size() + 1), row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) previous[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t changed = previous[j - 1] + (same(a[i - 1], b[j - 1]) ? 0 : 1);
            row[j] = std::min({previous[j] + 1, row[j - 1] + 1, changed});
            if (i > 1 && j > 1 && same(a[i - 1], b[j - 2]) && same(a[i - 2], b[j - 1])) {
                row[j] = std::min(row[j], before[j - 2] + 1);
            }
        }
        std::swap(before, previous);
        std::swap(previous, row);
    }
    return std::min(previous[b.size()], limit + 1);
}

}  // namespace

std::string typeName(const Field& field) {
    switch (field.type) {
        case FieldType::kText:
            return "char[" + std::to_string(field.size) + "]";
        case FieldType::kVector:
            return "vector<" + typeName(*field.element()) + ">";
        case FieldType::kMap:
            return "map<string, " + typeName(*field.element()) + ">";
        default:
            break;
    }
    std::string name =
            field.type == FieldType::kStruct ? field.layout().name : scalarTypeName(field.type);
    if (field.count > 1) name += "[" + std::to_string(field.count) + "]";
    return name;
}

void forEachTextField(
        const StructLayout& layout, const void* object,
        const std::function<void(const std::string& path, const char* field, size_t size)>& visit) {
    // The accessors take a mutable object; nothing here writes through them.
    void* base = const_cast<void*>(object);
    for (const Field& field : layout) {
        const char* member = static_cast<const char*>(field.address(base));
        if (field.type == FieldType::kText) {
            visit(field.name, member, field.size);
        } else if (field.type == FieldType::kStruct) {
            const size_t stride = field.size / field.count;
            for (size_t i = 0; i < field.count; ++i) {
                std::string prefix = std::string(field.name) +
                                     (field.count > 1 ? "[" + std::to_string(i) + "]" : "") + ".";
                forEachTextField(field.layout(), member + i * stride,
                                 [&](const std::string& path, const char* text, size_t size) {
                                     visit(prefix + path, text, size);
                                 });
            }
        }
    }
}

const char* closestName(const std::string& text, const std::vector<const char*>& names) {
    constexpr size_t kShortName = 4;
    const size_t limit = text.size() <= kShortName ? 1 : 2;
    const char* closest = nullptr;
    size_t closestDistance = limit + 1;
    for (const char* name : names) {
        if (strcasecmp(text.c_str(), name) == 0) return name;
        const size_t distance = typingDistance(text, name, limit);
        if (distance < closestDistance) {
            closest = name;
            closestDistance = distance;
        }
    }
    return closest;
}

}  // namespace vistel_tools
