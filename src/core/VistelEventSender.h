// The one flow every Vistel reporter shares: create the event object, set its parameters in
// order, send it.
#pragma once

#include <VistelManager.h>

#include <cstddef>

namespace orv {

// One parameter of a Vistel event object, addressed by index or by name.
struct VistelParam {
    enum class Form { kIndexed, kInteger, kFloat, kText };

    // Ordered so that no field needs padding before it: an event's table of parameters, built on
    // the reporting thread's stack, takes 40 bytes a parameter rather than 48.
    Form form;
    DATATYPE type;          // the named forms: single value or one more array element
    const char* name;       // the named forms
    long longValue;         // kIndexed and kInteger
    const char* textValue;  // kText
    float floatValue;       // kFloat
    unsigned short index;   // kIndexed only

    // By index; the service reads texts at the address carried in the value.
    static constexpr VistelParam indexed(unsigned short index, long value) {
        return {Form::kIndexed, TYPE_INT, nullptr, value, nullptr, 0.0f, index};
    }
    static constexpr VistelParam integer(const char* name, long value, DATATYPE type = TYPE_INT) {
        return {Form::kInteger, type, name, value, nullptr, 0.0f, 0};
    }
    static constexpr VistelParam real(const char* name, float value, DATATYPE type = TYPE_FLOAT) {
        return {Form::kFloat, type, name, 0, nullptr, value, 0};
    }
    static constexpr VistelParam string(const char* name, const char* text,
                                        DATATYPE type = TYPE_STRING) {
        return {Form::kText, type, name, 0, text, 0.0f, 0};
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
