/*
 * The fuzzer's input format, read by the fuzzer (fuzz/ReportFuzzer.cpp) and by the tool that
 * replays its corpus (vistel-fuzz-replay). An input is a sequence of reports, read front to back
 * (a short input reads as zeros):
 *
 *     u8   kind        0..31 a record of that kind; 32..253 a record claiming that kind;
 *                      254 a null record; 255 a record claiming the u32 kind that follows
 *     u8   control     bits 0-1: service refusal to arm (none, creation, a parameter, send);
 *                      bits 2-7: which set/fill call from now is refused
 *     i16  clock step  seconds the clock moves before the report (negative: backwards)
 *     ...  the record's fields in declaration order, through the field tables of RecordFields.h:
 *          numbers as their bytes, a char[N] as u8 length and that many bytes (a length of N or
 *          more, and 255 for the fields longer than that, fill all N bytes: no terminator),
 *          a std::string as u8 length and bytes, a vector or map as u8 element count and its
 *          elements (a map entry's key first)
 *
 *     FuzzInput in(data, size);
 *     while (!in.done()) {
 *         FuzzReport report = in.next();
 *         armRefusal(report.control);
 *         ... advance the clock by report.clockStepS, then
 *         manager->reportMsgImpl(report.record.record);
 *     }
 */
#pragma once

#include <cstddef>
#include <cstdint>

#include "KindRegistry.h"

namespace vistel_tools {

// The kind byte of a null record.
constexpr uint8_t kFuzzNullRecord = 254;

struct FuzzReport {
    uint8_t kind;
    uint8_t control;
    int16_t clockStepS;
    // record is null for kFuzzNullRecord; body is null unless the kind is known (below 32).
    RecordInstance record;
};

class FuzzInput {
  public:
    FuzzInput(const uint8_t* data, size_t size) : mData(data), mSize(size) {}

    bool done() const { return mOffset >= mSize; }
    FuzzReport next();

    template <typename T>
    T take() {
        T value{};
        takeInto(&value, sizeof(value));
        return value;
    }
    // Copies up to `size` bytes into `out`; what the input lacks stays as it was.
    size_t takeInto(void* out, size_t size);

  private:
    const uint8_t* mData;
    size_t mSize;
    size_t mOffset = 0;
};

// Arms the Vistel host service's refusal that `control` asks for.
void armRefusal(uint8_t control);

}  // namespace vistel_tools
