/*
 * OvrixEvent and Ovrix::Report: the client side of the system event service.
 *
 * An event is an identifier and an ordered list of key/value pairs; a value is an int, a float,
 * a text or an array of nested events. The Put calls chain:
 *
 *     OvrixEvent detail(918009007);
 *     detail.PutString("SensorTime", "12:00").PutFloat("Fps", 29.97f);
 *     OvrixEvent event(918009006);
 *     event.PutInt("SceneMode", 1).PutOvrixEventArray("PerfDetail", {detail});
 *     Ovrix::Report(event);
 *
 * Host build: Report() keeps a copy of every event (see ovrixhost below) and, when the
 * environment variable OVRIX_EVENT_LOG names a file, appends the event to it as one JSON line:
 *
 *     {"id":918009006,"params":[{"key":"SceneMode","type":"int","value":1},
 *      {"key":"PerfDetail","type":"array","value":[{"id":918009007,"params":[...]}]}]}
 */

#pragma once

#include <string>
#include <vector>

#define OVRIX_EXPORT __attribute__((visibility("default")))

class OVRIX_EXPORT OvrixEvent {
  public:
    enum class ParamType { kInt, kFloat, kString, kArray };
    struct Param;

    explicit OvrixEvent(int id);
    OvrixEvent(const OvrixEvent& other);
    OvrixEvent(OvrixEvent&& other) noexcept;
    OvrixEvent& operator=(const OvrixEvent& other);
    OvrixEvent& operator=(OvrixEvent&& other) noexcept;
    ~OvrixEvent();

    // Each appends one pair, after those already put; a key put twice appears twice.
    OvrixEvent& PutInt(const std::string& key, int value);
    OvrixEvent& PutFloat(const std::string& key, float value);
    OvrixEvent& PutString(const std::string& key, const std::string& value);
    // Copies events, in their order, as the value of key.
    OvrixEvent& PutOvrixEventArray(const std::string& key, const std::vector<OvrixEvent>& events);

    // Read access, for tests and tools.
    int id() const { return mId; }
    const std::vector<Param>& params() const { return mParams; }

  private:
    Param& appendParam(const std::string& key, ParamType type);

    int mId;
    std::vector<Param> mParams;
};

// One key/value pair; only the value member named by type is meaningful.
struct OVRIX_EXPORT OvrixEvent::Param {
    std::string key;
    ParamType type = ParamType::kInt;
    int intValue = 0;
    float floatValue = 0.0f;
    std::string stringValue;
    std::vector<OvrixEvent> arrayValue;
};

namespace Ovrix {

// Hands the event to the service. Returns 0 (on the host, -1 when a test made it refuse); the
// event is not changed.
OVRIX_EXPORT int Report(OvrixEvent& event);

}  // namespace Ovrix

// Host-only hooks for tests and tools. Thread-safe.
namespace ovrixhost {

// Copies of the events passed to Ovrix::Report since the last reset(), in report order.
OVRIX_EXPORT std::vector<OvrixEvent> reported();
// Clears the copies and every armed failure.
OVRIX_EXPORT void reset();
// The n-th (1-based) Report from now answers -1 and keeps nothing, as a service that refuses an
// event; n <= 0 disarms.
OVRIX_EXPORT void refuseReport(int n);
// The next Report throws kThrownFromReport (an int, not a std::exception).
constexpr int kThrownFromReport = 9;
OVRIX_EXPORT void throwFromNextReport();
// The event as the one-line JSON object written to OVRIX_EVENT_LOG (no trailing newline).
OVRIX_EXPORT std::string toJson(const OvrixEvent& event);

}  // namespace ovrixhost
