// libFuzzer target: arbitrary records of arbitrary kinds through reportMsgImpl, with the clock
// and the Vistel service's refusals under the input's control too.
//
// An input is a sequence of reports, read front to back (a short input reads as zeros):
//
//     u8   kind        0..31 a record of that kind; 32..253 a record claiming that kind;
//                      254 a null record; 255 a record claiming the u32 kind that follows
//     u8   control     bits 0-1: service refusal to arm (none, creation, a parameter, send);
//                      bits 2-7: which set/fill call from now is refused
//     i16  clock step  seconds the clock moves before the report (negative: backwards)
//     ...  the record's fields in declaration order, through the field tables of tools/records:
//          numbers as their bytes, a char[N] as u8 length and that many bytes (a length of N or
//          more, and 255 for the fields longer than that, fill all N bytes: no terminator),
//          a std::string as u8 length and bytes, a vector or map as u8 element count and its
//          elements (a map entry's key first)
//
// After every report nothing may be left behind: no live event object, no call on a destroyed
// one, a result of 0, -1 or -2, no field without a terminator handed to the service by address.
// A breach aborts, which libFuzzer reports with the input; so does any read past a field that
// AddressSanitizer sees.
#include <KindRegistry.h>
#include <OvrixEvent.h>
#include <RecordFields.h>
#include <VistelHostService.h>
#include <VistelManager.h>
#include <android/log.h>
#include <orvlog.h>
#include <utils/Timers.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

namespace {

using vistel_tools::Field;
using vistel_tools::FieldType;
using vistel_tools::StructLayout;

std::atomic<int64_t> gNowNs{1000 * 1000000000LL};

class ByteReader {
  public:
    ByteReader(const uint8_t* data, size_t size) : mData(data), mSize(size) {}

    bool done() const { return mOffset >= mSize; }

    template <typename T>
    T take() {
        T value{};
        takeInto(&value, sizeof(value));
        return value;
    }

    // Copies up to `size` bytes into `out`; what the input lacks stays as it was.
    size_t takeInto(void* out, size_t size) {
        const size_t count = std::min(size, mSize - std::min(mOffset, mSize));
        memcpy(out, mData + mOffset, count);
        mOffset += count;
        return count;
    }

    std::string takeString() {
        std::string text(take<uint8_t>(), '\0');
        text.resize(takeInto(text.data(), text.size()));
        return text;
    }

  private:
    const uint8_t* mData;
    size_t mSize;
    size_t mOffset = 0;
};

void fillStruct(ByteReader& in, const StructLayout& layout, void* object);

// One value of `field` at `member` (for a fixed array: one element).
void fillValue(ByteReader& in, const Field& field, size_t elementSize, char* member) {
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
            *reinterpret_cast<std::string*>(member) = in.takeString();
            break;
        case FieldType::kStruct:
            fillStruct(in, field.layout(), member);
            break;
        case FieldType::kVector:
        case FieldType::kMap: {
            const int count = in.take<uint8_t>();
            const Field& element = *field.element();
            for (int i = 0; i < count && !in.done(); ++i) {
                const std::string key = field.type == FieldType::kMap ? in.takeString() : "";
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

void fillStruct(ByteReader& in, const StructLayout& layout, void* object) {
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

// The record, and its body when it is of a known kind.
vistel_tools::RecordInstance readRecord(ByteReader& in, uint8_t kind) {
    if (kind == 254) return {nullptr, nullptr};
    if (kind == 255) {
        // A known kind always comes with its own record type: the kind fixes the cast.
        const uint32_t claimed = in.take<uint32_t>();
        return {std::make_shared<UnknownKindRecord>(std::max(claimed, orv::kVistelEventCount)),
                nullptr};
    }
    if (kind >= orv::kVistelEventCount) return {std::make_shared<UnknownKindRecord>(kind), nullptr};
    const vistel_tools::KindInfo& info = vistel_tools::kinds()[kind];
    vistel_tools::RecordInstance instance = info.make();
    fillStruct(in, info.layout(), instance.body);
    return instance;
}

// The service reads an indexed text at its address up to the terminator, whenever it likes
// until the event is sent; the host service does not know which values are texts. So no
// indexed value may be the address of a field left without a terminator.
bool passedUnterminatedField(const StructLayout& layout, const void* body) {
    std::set<long> unterminated;
    vistel_tools::forEachTextField(layout, body,
                                   [&](const std::string&, const char* field, size_t size) {
                                       if (memchr(field, 0, size) == nullptr)
                                           unterminated.insert(reinterpret_cast<long>(field));
                                   });
    for (const vistelhost::SentEvent& event : vistelhost::sentEvents()) {
        for (const vistelhost::Param& param : event.params) {
            if (param.type == vistelhost::ParamType::kIndexed &&
                unterminated.count(param.intValue) != 0) {
                return true;
            }
        }
    }
    return false;
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

void check(bool condition, const char* what) {
    if (condition) return;
    fprintf(stderr, "vistel_fuzz: %s\n", what);
    abort();
}

}  // namespace

// The library reads the clock through this; exported so it takes libutils' place.
__attribute__((visibility("default"))) nsecs_t systemTime(int /*clock*/) {
    return gNowNs.load();
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // The log is formatted as usual, then dropped: millions of lines would only slow the run.
    __android_log_set_logger([](const struct __android_logger_data*, const char*) {});
    orv::VistelManager::GetInstance();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ByteReader in(data, size);
    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    while (!in.done()) {
        const uint8_t kind = in.take<uint8_t>();
        const uint8_t control = in.take<uint8_t>();
        const int16_t clockStepS = in.take<int16_t>();
        vistel_tools::RecordInstance record = readRecord(in, kind);
        armRefusal(control);
        gNowNs += clockStepS * 1000000000LL;
        std::future<int> result = manager->reportMsgImpl(record.record);
        if (result.valid()) {
            const int answer = result.get();
            check(answer == 0 || answer == -1 || answer == -2, "result out of 0, -1, -2");
        } else {
            check(kind >= orv::kVistelEventCount, "a known kind was not dispatched");
        }
        check(vistelhost::liveObjects() == 0, "event object left alive");
        check(vistelhost::invalidObjectCalls() == 0, "call on a destroyed event object");
        check(record.body == nullptr ||
                      !passedUnterminatedField(vistel_tools::kinds()[kind].layout(), record.body),
              "a text field without a terminator passed by address");
        // Also disarms a refusal the report did not use, so it does not carry over.
        vistelhost::reset();
    }
    ovrixhost::reset();
    orvloghost::reset();
    return 0;
}
