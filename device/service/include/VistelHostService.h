/*
 * Control interface of the host Vistel service (libvistel.so), for tests and tools.
 *
 * The service's client functions are the eleven extern "C" vistel_* entry points that the
 * telemetry library binds by name. Every object it creates keeps its event id and its
 * parameters in the order they were set; sending records a copy of the event here and, when
 * the environment variable VISTEL_EVENT_LOG names a file, appends it there as one JSON line:
 *
 *     {"id":918000000,"params":[{"index":0,"value":140737488346112},
 *      {"name":"iso","type":"int","value":100},
 *      {"name":"PerfAlgoName","type":"string_array","value":["a","b"]}]}
 *
 * A test drives it like this:
 *
 *     vistelhost::reset();
 *     vistelhost::failParamCall(3);             // the third set/fill call from now fails
 *     ... report an event through the library ...
 *     EXPECT_TRUE(vistelhost::sentEvents().empty());
 *     EXPECT_EQ(vistelhost::liveObjects(), 0);  // the library destroyed the object
 *
 * Indexed values are recorded as the raw long the caller passed: the service cannot tell an
 * integer from a text's address, so it never dereferences them. A test compares them with the
 * address of the record field it passed (the record is alive while the test holds it), or tells
 * the service which of them are texts (readIndexedTexts) to have them read as the device's
 * service reads them.
 * Named texts are copied when they are set.
 *
 * Every function here is thread-safe.
 */

#pragma once

#include <string>
#include <vector>

#define VISTEL_HOST_EXPORT __attribute__((visibility("default")))

namespace vistelhost {

enum class ParamType {
    kIndexed,      // vistel_set_param
    kInt,          // vistel_set_param_integer_v2
    kFloat,        // vistel_set_param_float_v2
    kString,       // vistel_set_param_string_v2
    kIntArray,     // vistel_fill_array_param_integer_v2
    kFloatArray,   // vistel_fill_array_param_float_v2
    kStringArray,  // vistel_fill_array_param_string_v2
};

// One parameter of an event; only the members that belong to type are meaningful. An array
// parameter is one entry, at the place of its first element, holding every element filled
// under its name since.
struct Param {
    ParamType type = ParamType::kIndexed;
    unsigned short index = 0;  // kIndexed
    std::string name;          // all but kIndexed
    long intValue = 0;         // kIndexed (the raw value), kInt
    float floatValue = 0.0f;   // kFloat
    std::string stringValue;   // kString, and kIndexed texts (see readIndexedTexts)
    std::vector<long> intArray;
    std::vector<float> floatArray;
    std::vector<std::string> stringArray;
};

struct SentEvent {
    unsigned id = 0;
    std::vector<Param> params;
};

// The result a parameter call returns when failParamCall() makes it fail, unless told otherwise.
constexpr int kInjectedParamFailure = -5;

// Events sent successfully since the last reset(), in send order.
VISTEL_HOST_EXPORT std::vector<SentEvent> sentEvents();

// Clears the sent events, the call journal, the invalid-call count and every armed failure.
// Live objects are kept, and so is their count.
VISTEL_HOST_EXPORT void reset();

// Objects created and not yet destroyed.
VISTEL_HOST_EXPORT int liveObjects();

// The next vistel_create_eventobj returns null.
VISTEL_HOST_EXPORT void failNextCreate();
// The n-th (1-based) call, counted from now across the eight set/fill functions, returns result
// and stores nothing. n <= 0 disarms.
VISTEL_HOST_EXPORT void failParamCall(int n, int result = kInjectedParamFailure);
// The next vistel_send_event returns 0 and records nothing.
VISTEL_HOST_EXPORT void failNextSend();
// The next vistel_send_event throws kThrownFromSend (an int, not a std::exception) before it
// does anything: the object stays the caller's.
constexpr int kThrownFromSend = 7;
VISTEL_HOST_EXPORT void throwFromNextSend();

// From now until reset(), the indexed parameters `indexes` of events `eventId` are texts, as the
// device's service knows from its event definitions: sending such an event reads each at the
// address it carries, up to the terminator, into stringValue (intValue keeps the address). The
// text must therefore still be there when the event is sent.
VISTEL_HOST_EXPORT void readIndexedTexts(unsigned eventId,
                                         const std::vector<unsigned short>& indexes);

// Every client call since the last reset(), as text: the function, its arguments and its result,
// with the object shown by its event id ("null" for a null pointer, "invalid" for a pointer the
// service does not know), e.g.
//     vistel_create_eventobj(918009000) = object
//     vistel_set_param_integer_v2(918009000, "iso", 100) = 0
//     vistel_send_event(918009000) = 1
//     vistel_destroy_eventobj(918009000)
VISTEL_HOST_EXPORT std::vector<std::string> calls();

// Calls that passed an object the service does not know: never created, or already destroyed.
VISTEL_HOST_EXPORT int invalidObjectCalls();

// The event as the JSON line written to VISTEL_EVENT_LOG (no trailing newline).
VISTEL_HOST_EXPORT std::string toJson(const SentEvent& event);

}  // namespace vistelhost

// Called at the start of every vistel_send_event, on the sending thread, until replaced; null
// removes it. For processes that reach the service only through the library's dlopen() (they look
// this name up with dlsym), to hold a reporter inside a service call, or to exit from one, the
// way a device's service might. Survives reset().
extern "C" VISTEL_HOST_EXPORT void vistelhost_set_send_hook(void (*hook)());
