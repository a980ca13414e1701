#include "RecordJson.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <vector>

namespace vistel_tools {

namespace {

// Scenarios are read in document order, so the first bad field reported is the first in the file.
using json = nlohmann::ordered_json;
using nlohmann::ordered_json;

// The field as one element: what each element of a fixed array is.
Field single(const Field& field) {
    Field element = field;
    element.count = 1;
    return element;
}

class Filler {
  public:
    // `otherKeys`: keys of the record's own object that are not fields.
    explicit Filler(const std::vector<const char*>& otherKeys) : mOtherKeys(otherKeys) {}

    // `path` names the structure ("" for the record itself, "processes[1]" for a nested one).
    std::string fillStruct(const StructLayout& layout, const json& values, char* object,
                           const std::string& path) const {
        if (!values.is_object()) {
            return problem(path, std::string("expected an object (") + layout.name + ")", values);
        }
        const bool record = path.empty();
        for (const auto& [name, value] : values.items()) {
            if (record && isOtherKey(name)) continue;
            const std::string fieldPath = record ? name : path + "." + name;
            const Field* field = layout.find(name);
            if (field == nullptr) return unknownField(layout, name, fieldPath);
            std::string error =
                    fillField(*field, value, static_cast<char*>(field->address(object)), fieldPath);
            if (!error.empty()) return error;
        }
        return "";
    }

  private:
    bool isOtherKey(const std::string& name) const {
        return std::any_of(mOtherKeys.begin(), mOtherKeys.end(),
                           [&](const char* key) { return name == key; });
    }

    std::string unknownField(const StructLayout& layout, const std::string& name,
                             const std::string& path) const {
        std::vector<const char*> names;
        for (const Field& field : layout) names.push_back(field.name);
        if (path == name) names.insert(names.end(), mOtherKeys.begin(), mOtherKeys.end());
        std::string error = "field \"" + path + "\": no such field in " + layout.name;
        if (const char* closest = closestName(name, names)) {
            error += std::string(" (did you mean \"") + closest + "\"?)";
        }
        return error;
    }

    static std::string problem(const std::string& path, const std::string& what, const json& got) {
        // A problem with the top-level object has no field to name.
        std::string where = path.empty() ? "" : "field \"" + path + "\": ";
        return where + what + ", got " + shownValue(got);
    }

    static std::string expected(const std::string& path, const char* article, const Field& field,
                                const json& given) {
        return problem(path, std::string("expected ") + article + " (" + typeName(field) + ")",
                       given);
    }

    std::string fillField(const Field& field, const json& value, char* member,
                          const std::string& path) const {
        if (field.count == 1) return fillOne(field, value, member, path);
        if (!value.is_array()) return expected(path, "an array", field, value);
        if (value.size() > field.count) {
            return "field \"" + path + "\": " + std::to_string(value.size()) +
                   " elements do not fit " + typeName(field);
        }
        const size_t stride = field.size / field.count;
        const Field element = single(field);
        for (size_t i = 0; i < value.size(); ++i) {
            std::string error = fillOne(element, value[i], member + i * stride,
                                        path + "[" + std::to_string(i) + "]");
            if (!error.empty()) return error;
        }
        return "";
    }

    template <typename T>
    static std::string writeInteger(const Field& field, const json& value, char* member,
                                    const std::string& path) {
        using Limits = std::numeric_limits<T>;
        if (!value.is_number_integer()) {
            // A whole number too large for the parser's integers (1e29, 2^64) is read as a
            // double; outside the field's range, that is what is wrong with it. Inside, a double
            // may already have rounded what was written, so integers are written as integers.
            if (value.is_number_float()) {
                const double given = value.get<double>();
                if (given == std::floor(given) && (given < static_cast<double>(Limits::min()) ||
                                                   given >= std::ldexp(1.0, Limits::digits))) {
                    return outOfRange<T>(field, value, path);
                }
            }
            return expected(path, "an integer", field, value);
        }
        bool fits;
        T result;
        // The parser keeps non-negative integers unsigned, so uint64 keeps its full range.
        if (value.is_number_unsigned()) {
            const uint64_t given = value.get<uint64_t>();
            fits = given <= Limits::max();
            result = static_cast<T>(given);
        } else {
            const int64_t given = value.get<int64_t>();
            fits = given >= static_cast<int64_t>(Limits::min()) &&
                   (given < 0 || static_cast<uint64_t>(given) <= Limits::max());
            result = static_cast<T>(given);
        }
        if (!fits) return outOfRange<T>(field, value, path);
        std::memcpy(member, &result, sizeof(result));
        return "";
    }

    template <typename T>
    static std::string outOfRange(const Field& field, const json& value, const std::string& path) {
        using Limits = std::numeric_limits<T>;
        return "field \"" + path + "\": " + value.dump() + " is out of range for " +
               typeName(field) + " (" + std::to_string(+Limits::min()) + " to " +
               std::to_string(+Limits::max()) + ")";
    }

    std::string fillOne(const Field& field, const json& value, char* member,
                        const std::string& path) const {
        switch (field.type) {
            case FieldType::kUInt8:
                return writeInteger<uint8_t>(field, value, member, path);
            case FieldType::kInt16:
                return writeInteger<int16_t>(field, value, member, path);
            case FieldType::kInt32:
                return writeInteger<int32_t>(field, value, member, path);
            case FieldType::kUInt32:
                return writeInteger<uint32_t>(field, value, member, path);
            case FieldType::kInt64:
                return writeInteger<int64_t>(field, value, member, path);
            case FieldType::kUInt64:
                return writeInteger<uint64_t>(field, value, member, path);
            case FieldType::kFloat: {
                if (!value.is_number()) return expected(path, "a number", field, value);
                const double given = value.get<double>();
                if (std::fabs(given) > FLT_MAX) {
                    return "field \"" + path + "\": " + value.dump() + " is out of range for float";
                }
                const float result = static_cast<float>(given);
                std::memcpy(member, &result, sizeof(result));
                return "";
            }
            case FieldType::kText: {
                if (!value.is_string()) return expected(path, "a string", field, value);
                const std::string& text = value.get_ref<const std::string&>();
                // The camera stack terminates its texts, so the last byte stays NUL.
                if (text.size() >= field.size) {
                    return "field \"" + path + "\": " + std::to_string(text.size()) +
                           " bytes do not fit " + typeName(field) + " (" +
                           std::to_string(field.size - 1) + " at most, after it the NUL)";
                }
                if (text.find('\0') != std::string::npos) {
                    return "field \"" + path + "\": the text holds a NUL byte";
                }
                std::memset(member, 0, field.size);
                std::memcpy(member, text.c_str(), text.size() + 1);
                return "";
            }
            case FieldType::kString:
                if (!value.is_string()) return expected(path, "a string", field, value);
                *reinterpret_cast<std::string*>(member) = value.get<std::string>();
                return "";
            case FieldType::kStruct:
                return fillStruct(field.layout(), value, member, path);
            case FieldType::kVector: {
                if (!value.is_array()) return expected(path, "an array", field, value);
                for (size_t i = 0; i < value.size(); ++i) {
                    void* element = field.ops->add(member, "");
                    std::string error =
                            fillOne(*field.element(), value[i], static_cast<char*>(element),
                                    path + "[" + std::to_string(i) + "]");
                    if (!error.empty()) return error;
                }
                return "";
            }
            case FieldType::kMap: {
                if (!value.is_object()) return expected(path, "an object", field, value);
                for (const auto& [key, entry] : value.items()) {
                    void* element = field.ops->add(member, key);
                    std::string error = fillOne(*field.element(), entry,
                                                static_cast<char*>(element), path + "." + key);
                    if (!error.empty()) return error;
                }
                return "";
            }
        }
        return "field \"" + path + "\": unsupported type";
    }

    const std::vector<const char*>& mOtherKeys;
};

ordered_json exampleOf(const Field& field) {
    if (field.count > 1) return ordered_json::array({exampleOf(single(field))});
    switch (field.type) {
        case FieldType::kFloat:
            return 0.0;
        case FieldType::kText:
        case FieldType::kString:
            return "";
        case FieldType::kStruct:
            return skeletonOf(field.layout());
        case FieldType::kVector:
            return ordered_json::array({exampleOf(*field.element())});
        case FieldType::kMap:
            return ordered_json{{"<key>", exampleOf(*field.element())}};
        default:
            return 0;
    }
}

}  // namespace

std::string shownValue(const nlohmann::ordered_json& value) {
    constexpr size_t kMaxShown = 40;
    return cutText(value.dump(-1, ' ', false, json::error_handler_t::replace), kMaxShown);
}

namespace {

// The length of the well-formed UTF-8 character at text[i], or 0 when the bytes there are none.
size_t utf8Length(const std::string& text, size_t i) {
    const auto byte = [&](size_t at) {
        return at < text.size() ? unsigned{static_cast<unsigned char>(text[at])} : 0U;
    };
    const unsigned lead = byte(i);
    if (lead < 0x80) return 1;
    // The lead byte's length and the range of its second byte, which rules out overlong forms,
    // surrogates and code points beyond U+10FFFF.
    size_t length = 0;
    unsigned low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    if (byte(i + 1) < low || byte(i + 1) > high) return 0;
    for (size_t k = 2; k < length; ++k) {
        if (byte(i + k) < 0x80 || byte(i + k) > 0xBF) return 0;
    }
    return length;
}

// `text` with every control character and every byte that is not well-formed UTF-8 written as
// \xNN: a terminal shows it as it is, and a message stays one line.
std::string printableText(const std::string& text) {
    std::string shown;
    for (size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        const size_t length = utf8Length(text, i);
        if (length == 0 || c < 0x20 || c == 0x7F) {
            char escaped[8];
            snprintf(escaped, sizeof(escaped), "\\x%02X", c);
            shown += escaped;
            ++i;
        } else {
            shown.append(text, i, length);
            i += length;
        }
    }
    return shown;
}

}  // namespace

std::string cutText(const std::string& text, size_t width) {
    std::string shown = printableText(text);
    if (shown.size() <= width) return shown;
    constexpr size_t kMark = 3;
    size_t cut = width > kMark ? width - kMark : width;
    // Never inside a character.
    while (cut > 0 && (static_cast<unsigned char>(shown[cut]) & 0xC0) == 0x80) --cut;
    return shown.substr(0, cut) + (width > kMark ? "..." : "");
}

std::string fillStruct(const StructLayout& layout, const nlohmann::ordered_json& values,
                       void* object, const std::vector<const char*>& otherKeys) {
    return Filler(otherKeys).fillStruct(layout, values, static_cast<char*>(object), "");
}

nlohmann::ordered_json skeletonOf(const StructLayout& layout) {
    ordered_json skeleton = ordered_json::object();
    for (const Field& field : layout) skeleton[field.name] = exampleOf(field);
    return skeleton;
}

}  // namespace vistel_tools
