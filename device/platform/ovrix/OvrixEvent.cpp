#include "OvrixEvent.h"

#include <atomic>
#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>

#include "HostEventLog.h"

OvrixEvent::OvrixEvent(int id) : mId(id) {}
OvrixEvent::OvrixEvent(const OvrixEvent& other) = default;
OvrixEvent::OvrixEvent(OvrixEvent&& other) noexcept = default;
OvrixEvent& OvrixEvent::operator=(const OvrixEvent& other) = default;
OvrixEvent& OvrixEvent::operator=(OvrixEvent&& other) noexcept = default;
OvrixEvent::~OvrixEvent() = default;

OvrixEvent::Param& OvrixEvent::appendParam(const std::string& key, ParamType type) {
    Param& param = mParams.emplace_back();
    param.key = key;
    param.type = type;
    return param;
}

OvrixEvent& OvrixEvent::PutInt(const std::string& key, int value) {
    appendParam(key, ParamType::kInt).intValue = value;
    return *this;
}

OvrixEvent& OvrixEvent::PutFloat(const std::string& key, float value) {
    appendParam(key, ParamType::kFloat).floatValue = value;
    return *this;
}

OvrixEvent& OvrixEvent::PutString(const std::string& key, const std::string& value) {
    appendParam(key, ParamType::kString).stringValue = value;
    return *this;
}

OvrixEvent& OvrixEvent::PutOvrixEventArray(const std::string& key,
                                           const std::vector<OvrixEvent>& events) {
    appendParam(key, ParamType::kArray).arrayValue = events;
    return *this;
}

namespace {

constexpr const char* kLogTag = "Ovrix";

// The record of reported events. Built on first use and never destroyed: reporters run on pool
// workers that may still be busy while static destructors run at process exit.
std::mutex& reportMutex() {
    static std::mutex* const sMutex = new std::mutex;
    return *sMutex;
}

std::vector<OvrixEvent>& reportedEvents() {  // guarded by reportMutex()
    static std::vector<OvrixEvent>* const sReported = new std::vector<OvrixEvent>;
    return *sReported;
}

// Ordered so that the line reads id before params and key, type, value within each pair.
nlohmann::ordered_json eventToJson(const OvrixEvent& event) {
    nlohmann::ordered_json params = nlohmann::ordered_json::array();
    for (const OvrixEvent::Param& param : event.params()) {
        nlohmann::ordered_json entry;
        entry["key"] = param.key;
        switch (param.type) {
            case OvrixEvent::ParamType::kInt:
                entry["type"] = "int";
                entry["value"] = param.intValue;
                break;
            case OvrixEvent::ParamType::kFloat:
                entry["type"] = "float";
                entry["value"] = hosteventlog::jsonNumber(param.floatValue);
                break;
            case OvrixEvent::ParamType::kString:
                entry["type"] = "string";
                entry["value"] = param.stringValue;
                break;
            case OvrixEvent::ParamType::kArray: {
                entry["type"] = "array";
                nlohmann::ordered_json nested = nlohmann::ordered_json::array();
                for (const OvrixEvent& element : param.arrayValue) {
                    nested.push_back(eventToJson(element));
                }
                entry["value"] = std::move(nested);
                break;
            }
        }
        params.push_back(std::move(entry));
    }
    nlohmann::ordered_json object;
    object["id"] = event.id();
    object["params"] = std::move(params);
    return object;
}

}  // namespace

namespace {

// Armed failures: the report that refuses, counted down; the next report throws.
std::atomic<int> gRefuseIn{0};
std::atomic<bool> gThrowFromNextReport{false};

}  // namespace

namespace ovrixhost {

std::vector<OvrixEvent> reported() {
    std::lock_guard<std::mutex> lock(reportMutex());
    return reportedEvents();
}

void reset() {
    std::lock_guard<std::mutex> lock(reportMutex());
    reportedEvents().clear();
    gRefuseIn.store(0);
    gThrowFromNextReport.store(false);
}

void refuseReport(int n) {
    gRefuseIn.store(n);
}

void throwFromNextReport() {
    gThrowFromNextReport.store(true);
}

std::string toJson(const OvrixEvent& event) {
    // Texts come from the camera stack; a byte that is not UTF-8 is replaced, not thrown over.
    return eventToJson(event).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace ovrixhost

namespace Ovrix {

int Report(OvrixEvent& event) {
    if (gThrowFromNextReport.exchange(false)) throw int{ovrixhost::kThrownFromReport};
    const int refuseIn = gRefuseIn.load();
    if (refuseIn > 0 && gRefuseIn.fetch_sub(1) == 1) return -1;
    {
        std::lock_guard<std::mutex> lock(reportMutex());
        reportedEvents().push_back(event);
    }
    hosteventlog::appendLineToEnvFile(
            "OVRIX_EVENT_LOG", [&] { return ovrixhost::toJson(event); }, kLogTag);
    return 0;
}

}  // namespace Ovrix
