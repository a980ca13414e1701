/*
 * Field tables of the records in VistelRecords.h, for host tools that build or inspect records
 * by field name (the replay tool, the fuzzer, tests).
 *
 * Every structure of the public header has one table, written once in RecordFields.cpp, that
 * lists its fields in declaration order with their names, types and how to reach them. Nested
 * structures (vector elements, the packed perf items, the boot step costs) have tables of their
 * own, which a field refers to. Shared bodies (vistelAlgoProcessTimeout, vistelOtherTimeout,
 * vistelBootMsg, ...) have one table, used by every kind that sends them.
 *
 *     const StructLayout& layout = layoutOf<orv::vistelMemLeak>();
 *     for (const Field& field : layout) printf("%s %s\n", field.name, typeName(field).c_str());
 *
 * RecordJson.h fills a structure from JSON through these tables; KindRegistry.h says which table
 * each kind's record uses.
 *
 * Fields are reached through accessors, never through offsetof (the records are polymorphic)
 * nor through typed references (the V2 snapshot record is packed, so its 32-bit fields are
 * unaligned): values are copied in and out with memcpy.
 */
#pragma once

#include <VistelRecords.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

namespace vistel_tools {

enum class FieldType {
    kUInt8,
    kInt16,
    kInt32,
    kUInt32,
    kInt64,
    kUInt64,
    kFloat,
    kText,    // char[N], NUL-terminated: at most N - 1 bytes of text
    kString,  // std::string
    kStruct,  // a structure held in place (an element of a fixed array such as perf[10])
    kVector,  // std::vector of `element`
    kMap,     // std::unordered_map from std::string to `element`
};

struct StructLayout;
struct Field;

// Grows and walks a std::vector or std::unordered_map member without knowing its type.
struct ContainerOps {
    size_t (*size)(const void* container);
    // A new default element at the end of a vector, or under `key` in a map (the existing
    // value when the key is there already); returns its address. Vectors ignore the key.
    void* (*add)(void* container, const std::string& key);
    void (*forEach)(const void* container,
                    const std::function<void(const std::string& key, const void* element)>& visit);
};

struct Field {
    const char* name;
    FieldType type;
    size_t count;  // elements of a fixed array (expoList[16] has 16); 1 for a single value
    size_t size;   // bytes of the whole member (char[64] has 64)
    size_t align;  // alignof the member's type (the packed record places it at any byte)
    void* (*address)(void* object);   // the member (its first element) inside `object`
    const ContainerOps* ops;          // kVector, kMap
    const Field* (*element)();        // kVector, kMap: one element, as a field at its own address
    const StructLayout& (*layout)();  // kStruct: the nested structure's table
};

struct StructLayout {
    const char* name;  // the type's name in VistelRecords.h
    size_t size;       // sizeof
    size_t align;      // alignof
    const Field* fields;
    size_t fieldCount;

    const Field* begin() const { return fields; }
    const Field* end() const { return fields + fieldCount; }
    const Field* find(const std::string& fieldName) const;
};

// The table of structure T, defined for every structure of VistelRecords.h with fields (the
// library's RecordLayouts.h lists them).
template <typename T>
const StructLayout& layoutOf();

// Every structure with a table: the record bodies and the structures nested in them.

// "int32", "char[64]", "uint32[16]", "vector<vistelProcessMemInfo>", "map<string, vector<...>>".
std::string typeName(const Field& field);

// The text fields (char arrays) of a filled structure, nested fixed arrays included, with the
// path that names each ("name", "perf[3].algoName") and its size in bytes. Reporters pass such
// fields by address.
void forEachTextField(
        const StructLayout& layout, const void* object,
        const std::function<void(const std::string& path, const char* field, size_t size)>& visit);

// The same, for terminated texts.
inline void forEachText(const StructLayout& layout, const void* object,
                        const std::function<void(const std::string& path, const char* text)>& visit) {
    forEachTextField(layout, object, [&](const std::string& path, const char* field, size_t) {
        visit(path, field);
    });
}

// The name among `names` that `text` most likely misspells, for a "did you mean": one that differs
// only in letter case, or else the nearest within a typing mistake or two (a letter missing, added
// or changed, two letters swapped; one mistake for names of up to four letters). nullptr when none
// is that close.
const char* closestName(const std::string& text, const std::vector<const char*>& names);

// ---- Building a table entry --------------------------------------------------------------
// RecordFields.cpp writes each entry as VISTEL_FIELD(member) inside VISTEL_LAYOUT(Type, ...);
// everything about the field except its name and accessor follows from the member's C++ type.

template <typename T>
struct IsVector : std::false_type {};
template <typename T>
struct IsVector<std::vector<T>> : std::true_type {};

template <typename T>
const Field* elementField();

// Grows and walks a std::vector<T> or std::unordered_map<std::string, T>.
template <typename Container>
const ContainerOps* containerOps() {
    static const ContainerOps kOps = {
            [](const void* container) { return static_cast<const Container*>(container)->size(); },
            [](void* container, const std::string& key) -> void* {
                auto& target = *static_cast<Container*>(container);
                if constexpr (IsVector<Container>::value) {
                    return &target.emplace_back();
                } else {
                    return &target[key];
                }
            },
            [](const void* container,
               const std::function<void(const std::string&, const void*)>& visit) {
                const auto& source = *static_cast<const Container*>(container);
                if constexpr (IsVector<Container>::value) {
                    for (const auto& element : source) visit("", &element);
                } else {
                    for (const auto& [key, value] : source) visit(key, &value);
                }
            },
    };
    return &kOps;
}

// What a member's C++ type says about its field.
template <FieldType Type, size_t Count = 1>
struct BasicTraits {
    static constexpr FieldType kType = Type;
    static constexpr size_t kCount = Count;
    static const ContainerOps* ops() { return nullptr; }
    static constexpr const Field* (*kElement)() = nullptr;
    static constexpr const StructLayout& (*kLayout)() = nullptr;
};

// Any class without a specialisation below is a nested structure with a table of its own.
template <typename T, typename = void>
struct FieldTraits : BasicTraits<FieldType::kStruct> {
    static constexpr const StructLayout& (*kLayout)() = &layoutOf<T>;
};
template <>
struct FieldTraits<uint8_t> : BasicTraits<FieldType::kUInt8> {};
template <>
struct FieldTraits<int16_t> : BasicTraits<FieldType::kInt16> {};
template <>
struct FieldTraits<int32_t> : BasicTraits<FieldType::kInt32> {};
template <>
struct FieldTraits<uint32_t> : BasicTraits<FieldType::kUInt32> {};
template <>
struct FieldTraits<int64_t> : BasicTraits<FieldType::kInt64> {};
template <>
struct FieldTraits<uint64_t> : BasicTraits<FieldType::kUInt64> {};
template <>
struct FieldTraits<float> : BasicTraits<FieldType::kFloat> {};
template <>
struct FieldTraits<std::string> : BasicTraits<FieldType::kString> {};
template <size_t N>
struct FieldTraits<char[N]> : BasicTraits<FieldType::kText> {};

// A fixed array of numbers or structures: the element's field, N times.
template <typename T, size_t N>
struct FieldTraits<T[N], std::enable_if_t<!std::is_same_v<T, char>>> : FieldTraits<T> {
    static constexpr size_t kCount = N;
};

template <typename T>
struct FieldTraits<std::vector<T>> : BasicTraits<FieldType::kVector> {
    static const ContainerOps* ops() { return containerOps<std::vector<T>>(); }
    static constexpr const Field* (*kElement)() = &elementField<T>;
};

template <typename T>
struct FieldTraits<std::unordered_map<std::string, T>> : BasicTraits<FieldType::kMap> {
    static const ContainerOps* ops() { return containerOps<std::unordered_map<std::string, T>>(); }
    static constexpr const Field* (*kElement)() = &elementField<T>;
};

template <typename Member>
Field makeField(const char* name, void* (*address)(void*)) {
    using Traits = FieldTraits<Member>;
    return Field{name,    Traits::kType, Traits::kCount,   sizeof(Member), alignof(Member),
                 address, Traits::ops(), Traits::kElement, Traits::kLayout};
}

// One element of a vector or map, as a field whose member is the element itself.
template <typename T>
const Field* elementField() {
    static const Field kElement = makeField<T>("", [](void* element) { return element; });
    return &kElement;
}

}  // namespace vistel_tools
