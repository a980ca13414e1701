// The host Vistel service: the eleven client entry points the telemetry library binds by name,
// backed by an in-process record that tests and tools read through VistelHostService.h.

#include "VistelHostService.h"

#include <atomic>
#include <charconv>
#include <map>
#include <mutex>
#include <new>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>

#include "HostEventLog.h"
#include "VistelClient.h"

using vistelhost::Param;
using vistelhost::ParamType;
using vistelhost::SentEvent;

namespace {

constexpr const char* kLogTag = "VistelHostService";
constexpr const char* kEventLogEnv = "VISTEL_EVENT_LOG";
constexpr int kInvalidArgument = -1;
// vistel_send_event reports success with a non-zero result, the opposite sense to the setters.
constexpr int kSendOk = 1;
constexpr int kSendFailed = 0;

struct EventObject {
    SentEvent event;
};

struct ServiceState {
    std::mutex mutex;
    // Everything below is guarded by mutex.
    std::unordered_set<const EventObject*> liveObjects;
    std::vector<SentEvent> sent;
    std::vector<std::string> calls;
    int invalidObjectCalls = 0;
    bool failNextCreate = false;
    bool failNextSend = false;
    int paramCallsToFailure = 0;  // counts set/fill calls down; the one that reaches 0 fails
    int paramFailureResult = vistelhost::kInjectedParamFailure;
    std::map<unsigned, std::set<unsigned short>> indexedTexts;  // event id -> text indexes
};

std::atomic<void (*)()> gSendHook{nullptr};
// Disarmed by the send it throws from, or by reset().
std::atomic<bool> gThrowFromNextSend{false};

// Never destroyed: clients call in from pool workers that may outlive static destructors. Built in
// the library's own storage rather than on the heap, so that an unloaded library leaves nothing
// behind (see releaseOnUnload).
ServiceState& state() {
    alignas(ServiceState) static unsigned char sStorage[sizeof(ServiceState)];
    static ServiceState* const sState = new (sStorage) ServiceState;
    return *sState;
}

// The last dlclose() unmaps the library and with it the only pointer to what the state holds, so
// release that here. The state itself stays usable, only empty: at process exit this runs while
// pool workers may still call in.
__attribute__((destructor)) void releaseOnUnload() {
    ServiceState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    for (const EventObject* object : s.liveObjects) delete object;
    s.liveObjects = decltype(s.liveObjects)();
    s.sent = decltype(s.sent)();
    s.calls = decltype(s.calls)();
    s.indexedTexts = decltype(s.indexedTexts)();
}

// The service is a C interface, so nothing is thrown out of it: memory running out inside a call
// fails that call, the way the device's service answers.
template <class Result, class Body>
Result failOnThrow(Result failure, Body body) noexcept {
    try {
        return body();
    } catch (...) {
        return failure;
    }
}

// Returns the flag and clears it.
bool takeFlag(bool& flag) {
    return std::exchange(flag, false);
}

struct Lookup {
    EventObject* object;  // null for a null or unknown pointer
    std::string label;    // how the journal shows the object
};

// Caller holds state.mutex.
Lookup lookup(ServiceState& s, void* handle) {
    if (handle == nullptr) {
        return {nullptr, "null"};
    }
    auto* object = static_cast<EventObject*>(handle);
    if (s.liveObjects.count(object) == 0) {
        ++s.invalidObjectCalls;
        return {nullptr, "invalid"};
    }
    return {object, std::to_string(object->event.id)};
}

// Caller holds state.mutex.
// result is empty for the calls that return nothing.
void journal(ServiceState& s, const char* function, const std::string& label,
             const std::string& args, const std::string& result) {
    std::string call = std::string(function) + "(" + label + (args.empty() ? "" : ", ") + args + ")";
    if (!result.empty()) {
        call += " = " + result;
    }
    s.calls.push_back(std::move(call));
}

std::string valueText(long value) {
    return std::to_string(value);
}

std::string valueText(float value) {
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof(text), value).ptr);
}

std::string valueText(const char* value) {
    return value != nullptr ? "\"" + std::string(value) + "\"" : "null";
}

bool isNull(long) {
    return false;
}
bool isNull(float) {
    return false;
}
bool isNull(const char* value) {
    return value == nullptr;
}

bool isArray(ParamType type) {
    return type == ParamType::kIntArray || type == ParamType::kFloatArray ||
           type == ParamType::kStringArray;
}

// A single value gets an entry of its own; an array element joins the entry that already holds
// that array, or starts one at the end.
Param& slotFor(std::vector<Param>& params, const char* name, ParamType type) {
    if (isArray(type)) {
        for (Param& param : params) {
            if (param.type == type && param.name == name) {
                return param;
            }
        }
    }
    Param& param = params.emplace_back();
    param.type = type;
    param.name = name;
    return param;
}

void storeValue(Param& param, long value) {
    if (param.type == ParamType::kInt) {
        param.intValue = value;
    } else {
        param.intArray.push_back(value);
    }
}

void storeValue(Param& param, float value) {
    if (param.type == ParamType::kFloat) {
        param.floatValue = value;
    } else {
        param.floatArray.push_back(value);
    }
}

void storeValue(Param& param, const char* value) {
    if (param.type == ParamType::kString) {
        param.stringValue = value;
    } else {
        param.stringArray.emplace_back(value);
    }
}

// The flow shared by the eight set/fill calls: count the call against an armed failure, check
// the object, let store add the value, journal the call.
template <class Store>
int setParam(const char* function, void* handle, const std::string& args, Store store) {
    ServiceState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    Lookup found = lookup(s, handle);
    int result;
    if (s.paramCallsToFailure > 0 && --s.paramCallsToFailure == 0) {
        result = s.paramFailureResult;
    } else if (found.object == nullptr) {
        result = kInvalidArgument;
    } else {
        result = store(found.object->event.params);
    }
    journal(s, function, found.label, args, std::to_string(result));
    return result;
}

template <class Value>
int setNamedParam(const char* function, void* handle, const char* name, ParamType type,
                  Value value) {
    return failOnThrow(kInvalidArgument, [&] {
        return setParam(function, handle, valueText(name) + ", " + valueText(value),
                        [&](std::vector<Param>& params) {
                            if (name == nullptr || isNull(value)) {
                                return kInvalidArgument;
                            }
                            storeValue(slotFor(params, name, type), value);
                            return 0;
                        });
    });
}

// Caller holds state.mutex.
void readTexts(ServiceState& s, SentEvent& event) {
    const auto texts = s.indexedTexts.find(event.id);
    if (texts == s.indexedTexts.end()) return;
    for (Param& param : event.params) {
        if (param.type == ParamType::kIndexed && texts->second.count(param.index) != 0) {
            // NOLINTNEXTLINE(performance-no-int-to-ptr): the value is the text's address
            param.stringValue = reinterpret_cast<const char*>(param.intValue);
        }
    }
}

const char* typeName(ParamType type) {
    switch (type) {
        case ParamType::kIndexed:
            return "indexed";
        case ParamType::kInt:
            return "int";
        case ParamType::kFloat:
            return "float";
        case ParamType::kString:
            return "string";
        case ParamType::kIntArray:
            return "int_array";
        case ParamType::kFloatArray:
            return "float_array";
        case ParamType::kStringArray:
            return "string_array";
    }
    return "unknown";
}

nlohmann::ordered_json valueJson(const Param& param) {
    switch (param.type) {
        case ParamType::kIndexed:
        case ParamType::kInt:
            return param.intValue;
        case ParamType::kFloat:
            return hosteventlog::jsonNumber(param.floatValue);
        case ParamType::kString:
            return param.stringValue;
        case ParamType::kIntArray:
            return param.intArray;
        case ParamType::kFloatArray: {
            nlohmann::ordered_json values = nlohmann::ordered_json::array();
            for (float value : param.floatArray) {
                values.push_back(hosteventlog::jsonNumber(value));
            }
            return values;
        }
        case ParamType::kStringArray:
            return param.stringArray;
    }
    return nullptr;
}

}  // namespace

void* vistel_create_eventobj(unsigned int eventId) {
    ServiceState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    EventObject* object = nullptr;
    if (!takeFlag(s.failNextCreate)) {
        object = new (std::nothrow) EventObject{SentEvent{eventId, {}}};
    }
    const char* function = __func__;
    const bool kept = failOnThrow(false, [&] {
        journal(s, function, std::to_string(eventId), "", object != nullptr ? "object" : "null");
        if (object != nullptr) s.liveObjects.insert(object);
        return true;
    });
    if (!kept) {
        delete object;
        return nullptr;
    }
    return object;
}

int vistel_set_param(void* obj, unsigned short paramIndex, long value) {
    const char* function = __func__;
    return failOnThrow(kInvalidArgument, [&] {
        return setParam(function, obj, std::to_string(paramIndex) + ", " + std::to_string(value),
                        [&](std::vector<Param>& params) {
                            Param& param = params.emplace_back();
                            param.type = ParamType::kIndexed;
                            param.index = paramIndex;
                            param.intValue = value;
                            return 0;
                        });
    });
}

int vistel_set_param_integer_v2(void* obj, const char* name, long value) {
    return setNamedParam(__func__, obj, name, ParamType::kInt, value);
}

int vistel_set_param_float_v2(void* obj, const char* name, float value) {
    return setNamedParam(__func__, obj, name, ParamType::kFloat, value);
}

int vistel_set_param_string_v2(void* obj, const char* name, const char* value) {
    return setNamedParam(__func__, obj, name, ParamType::kString, value);
}

int vistel_fill_array_param_integer_v2(void* obj, const char* name, long value) {
    return setNamedParam(__func__, obj, name, ParamType::kIntArray, value);
}

int vistel_fill_array_param_float_v2(void* obj, const char* name, float value) {
    return setNamedParam(__func__, obj, name, ParamType::kFloatArray, value);
}

int vistel_fill_array_param_string_v2(void* obj, const char* name, const char* value) {
    return setNamedParam(__func__, obj, name, ParamType::kStringArray, value);
}

// The service's own timestamp for the event. The telemetry library binds it but never calls it;
// the host only journals it.
int vistel_set_time(void* obj, long long timeMs) {
    ServiceState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    Lookup found = lookup(s, obj);
    int result = found.object != nullptr ? 0 : kInvalidArgument;
    journal(s, __func__, found.label, std::to_string(timeMs), std::to_string(result));
    return result;
}

int vistel_send_event(void* obj) {
    if (void (*hook)() = gSendHook.load()) hook();
    // A service that throws instead of answering, something other than a std::exception.
    if (gThrowFromNextSend.exchange(false)) throw int{vistelhost::kThrownFromSend};
    const char* function = __func__;
    return failOnThrow(kSendFailed, [&] {
        ServiceState& s = state();
        std::optional<SentEvent> sent;
        {
            std::lock_guard<std::mutex> lock(s.mutex);
            Lookup found = lookup(s, obj);
            if (found.object != nullptr && !takeFlag(s.failNextSend)) {
                readTexts(s, found.object->event);
                sent = found.object->event;
                s.sent.push_back(*sent);
            }
            journal(s, function, found.label, "", std::to_string(sent ? kSendOk : kSendFailed));
        }
        if (!sent) {
            return kSendFailed;
        }
        // Outside the lock: file I/O must not hold up the other reporters.
        hosteventlog::appendLineToEnvFile(
                kEventLogEnv, [&] { return vistelhost::toJson(*sent); }, kLogTag);
        return kSendOk;
    });
}

void vistel_destroy_eventobj(void* obj) {
    ServiceState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    // Freed even when the journal line could not be written.
    const auto* object = static_cast<const EventObject*>(obj);
    const char* function = __func__;
    failOnThrow(0, [&] {
        journal(s, function, lookup(s, obj).label, "", "");
        return 0;
    });
    if (object != nullptr && s.liveObjects.erase(object) != 0) delete object;
}

namespace vistelhost {

std::vector<SentEvent> sentEvents() {
    ServiceState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.sent;
}

void reset() {
    ServiceState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.sent.clear();
    s.calls.clear();
    s.invalidObjectCalls = 0;
    s.failNextCreate = false;
    s.failNextSend = false;
    gThrowFromNextSend.store(false);
    s.paramCallsToFailure = 0;
    s.paramFailureResult = kInjectedParamFailure;
    s.indexedTexts.clear();
}

int liveObjects() {
    ServiceState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return static_cast<int>(s.liveObjects.size());
}

void failNextCreate() {
    ServiceState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.failNextCreate = true;
}

void failParamCall(int n, int result) {
    ServiceState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.paramCallsToFailure = n > 0 ? n : 0;
    s.paramFailureResult = result;
}

void throwFromNextSend() {
    gThrowFromNextSend.store(true);
}

void failNextSend() {
    ServiceState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.failNextSend = true;
}

void readIndexedTexts(unsigned eventId, const std::vector<unsigned short>& indexes) {
    ServiceState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.indexedTexts[eventId].insert(indexes.begin(), indexes.end());
}

std::vector<std::string> calls() {
    ServiceState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.calls;
}

int invalidObjectCalls() {
    ServiceState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.invalidObjectCalls;
}

std::string toJson(const SentEvent& event) {
    nlohmann::ordered_json params = nlohmann::ordered_json::array();
    for (const Param& param : event.params) {
        nlohmann::ordered_json entry;
        if (param.type == ParamType::kIndexed) {
            entry["index"] = param.index;
        } else {
            entry["name"] = param.name;
            entry["type"] = typeName(param.type);
        }
        entry["value"] = valueJson(param);
        params.push_back(std::move(entry));
    }
    nlohmann::ordered_json object;
    object["id"] = event.id;
    object["params"] = std::move(params);
    // Texts come from the camera stack; a byte that is not UTF-8 is replaced, not thrown over.
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace vistelhost

void vistelhost_set_send_hook(void (*hook)()) {
    gSendHook.store(hook);
}
