#include "FuzzInput.h"

#include <VistelHostService.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace vistel_tools {

namespace {

std::string takeString(FuzzInput& in) {
    std::string text(in.take<uint8_t>(), '\0');
    text.resize(in.takeInto(text.data(), text.size()));
    return text;
}

void fillFromBytes(FuzzInput& in, const StructLayout& layout, void* object);

// One value of `field` at `member` (for a fixed array: one element).
void fillValue(FuzzInput& in, const Field& field, size_t elementSize, char* member) {
    switch (field.type) {
        case FieldType::kText: {
            // Any bytes, embedded zeros included, up to the field's last byte: the camera stack
            // may leave a field without a terminator. The record starts zero-filled, so a
            // shorter text is terminated.
            const uint8_t length = in.take<uint8_t>();
            in.takeInto(member,
                        length == UINT8_MAX ? field.size : std::min<size_t>(length, field.size));
            break;
        }
        case FieldType::kString:
            *reinterpret_cast<std::string*>(member) = takeString(in);
            break;
        case FieldType::kStruct:
            fillFromBytes(in, field.layout(), member);
            break;
        case FieldType::kVector:
        case FieldType::kMap: {
            const int count = in.take<uint8_t>();
            const Field& element = *field.element();
            for (int i = 0; i < count && !in.done(); ++i) {
                const std::string key = field.type == FieldType::kMap ? takeString(in) : "";
                fillValue(in, element, element.size,
                          static_cast<char*>(field.ops->add(member, key)));
            }
            break;
        }
        default:  // numbers: their bytes as they stand, unaligned in the packed record
            in.takeInto(member, elementSize);
            break;
    }
}

void fillFromBytes(FuzzInput& in, const StructLayout& layout, void* object) {
    for (const Field& field : layout) {
        char* member = static_cast<char*>(field.address(object));
        if (field.type == FieldType::kText) {
            fillValue(in, field, field.size, member);
            continue;
        }
        const size_t elementSize = field.size / field.count;
        for (size_t i = 0; i < field.count; ++i) {
            fillValue(in, field, elementSize, member + i * elementSize);
        }
    }
}

// A record that claims a kind no handler is registered for.
struct UnknownKindRecord : orv::VistelEventBase {
    explicit UnknownKindRecord(uint32_t kind) : mKind(kind) {}
    orv::VistelEvent GetEventType() override { return static_cast<orv::VistelEvent>(mKind); }
    uint32_t mKind;
};

}  // namespace

size_t FuzzInput::takeInto(void* out, size_t size) {
    const size_t count = std::min(size, mSize - std::min(mOffset, mSize));
    memcpy(out, mData + mOffset, count);
    mOffset += count;
    return count;
}

FuzzReport FuzzInput::next() {
    FuzzReport report{take<uint8_t>(), take<uint8_t>(), take<int16_t>(), {nullptr, nullptr}};
    if (report.kind == kFuzzNullRecord) return report;
    if (report.kind == UINT8_MAX) {
        // A known kind always comes with its own record type: the kind fixes the cast.
        const uint32_t claimed = take<uint32_t>();
        report.record.record =
                std::make_shared<UnknownKindRecord>(std::max(claimed, orv::kVistelEventCount));
    } else if (report.kind >= orv::kVistelEventCount) {
        report.record.record = std::make_shared<UnknownKindRecord>(report.kind);
    } else {
        const KindInfo& info = kinds()[report.kind];
        report.record = info.make();
        fillFromBytes(*this, info.layout(), report.record.body);
    }
    return report;
}

void armRefusal(uint8_t control) {
    switch (control & 3) {
        case 1:
            vistelhost::failNextCreate();
            break;
        case 2:
            vistelhost::failParamCall(1 + (control >> 2));
            break;
        case 3:
            vistelhost::failNextSend();
            break;
        default:
            break;
    }
}

}  // namespace vistel_tools
