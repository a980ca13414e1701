// The scalars of a record that go into one Ovrix event, described as a table: each entry names
// the key and the record member behind it, in the order the keys are put. And the one call that
// hands an event over, counted.
//
//     constexpr OvrixField<vistelBufAllocInfo> kBufferFields[] = {
//             {"BufName", &vistelBufAllocInfo::bufName},
//             {"Size", &vistelBufAllocInfo::size},
//             {"TimeStamp", &vistelBufAllocInfo::timeStamp},
//     };
//     OvrixEvent event = makeOvrixEvent(918009012, buffer, kBufferFields);
#pragma once

#include <OvrixEvent.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "ReporterScope.h"
#include "VistelTrace.h"

namespace orv {

template <typename Record>
class OvrixField {
  public:
    constexpr OvrixField(const char* key, int32_t Record::*member) : mKey(key), mInt(member) {}
    constexpr OvrixField(const char* key, std::string Record::*member) : mKey(key), mText(member) {}
    // PutInt takes a signed 32-bit value; wider unsigned values travel as their decimal text so
    // that nothing is cut off or turned negative.
    constexpr OvrixField(const char* key, uint64_t Record::*member)
        : mKey(key), mUnsigned64(member) {}

    void putInto(OvrixEvent& event, const Record& record) const {
        if (mInt != nullptr) {
            event.PutInt(mKey, record.*mInt);
        } else if (mText != nullptr) {
            event.PutString(mKey, record.*mText);
        } else {
            event.PutString(mKey, std::to_string(record.*mUnsigned64));
        }
    }

  private:
    const char* mKey;
    // Exactly one of these is set.
    int32_t Record::*mInt = nullptr;
    std::string Record::*mText = nullptr;
    uint64_t Record::*mUnsigned64 = nullptr;
};

// Hands `event` to the Ovrix service and counts its answer in the record's outcome. The
// reporters go on whatever the answer: a lost report is not retried.
inline void reportOvrix(OvrixEvent& event, ReporterScope& scope) {
    TraceSection section("Ovrix::Report");
    scope.serviceAnswer(Ovrix::Report(event) == 0);
}

// A new event `id` holding the record's scalars, put in table order.
template <typename Record, size_t N>
OvrixEvent makeOvrixEvent(int id, const Record& record, const OvrixField<Record> (&fields)[N]) {
    OvrixEvent event(id);
    for (const OvrixField<Record>& field : fields) {
        field.putInto(event, record);
    }
    return event;
}

}  // namespace orv
