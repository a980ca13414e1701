// The one flow every Vistel reporter shares: create the event object, set its parameters in
// order, send it.
#pragma once

#include <VistelManager.h>

#include <cstddef>

namespace orv {

// One parameter of a Vistel event object, addressed by index or by name.
struct VistelParam {
    enum class Form { kIndexed, kInteger, kFloat, kText };

    Form form;
    unsigned short index;  // kIndexed only
    const char* name;      // the named forms
    DATATYPE type;         // the named forms: single value or one more array element
    long longValue;        // kIndexed and kInteger
    float floatValue;      // kFloat
    const char* textValue; // kText

    // By index; the service reads texts at the address carried in the value.
    static constexpr VistelParam indexed(unsigned short index, long value) {
        return {Form::kIndexed, index, nullptr, TYPE_INT, value, 0.0f, nullptr};
    }
    static constexpr VistelParam integer(const char* name, long value, DATATYPE type = TYPE_INT) {
        return {Form::kInteger, 0, name, type, value, 0.0f, nullptr};
    }
    static constexpr VistelParam real(const char* name, float value, DATATYPE type = TYPE_FLOAT) {
        return {Form::kFloat, 0, name, type, 0, value, nullptr};
    }
    static constexpr VistelParam string(const char* name, const char* text,
                                        DATATYPE type = TYPE_STRING) {
        return {Form::kText, 0, name, type, 0, 0.0f, text};
    }
};

// Creates event `eventId`, sets `params` in order and sends it. Returns 0, or -1 at the first
// step that fails: that primitive has logged why and, where the service refused, destroyed the
// object, so nothing is left to clean up and nothing after it is set or sent.
int sendVistelEvent(const VistelManager& manager, unsigned int eventId, const VistelParam* params,
                    size_t count);

template <size_t N>
int sendVistelEvent(const VistelManager& manager, unsigned int eventId,
                    const VistelParam (&params)[N]) {
    return sendVistelEvent(manager, eventId, params, N);
}

}  // namespace orv
