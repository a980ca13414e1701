#include "TraceCapture.h"

#include <cutils/trace.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <atomic>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>

namespace tracecapture {

namespace {

std::atomic<bool> gTracing{false};
std::mutex gMutex;
// Never destroyed: a worker may still end a section while the process exits.
std::vector<TraceMark>& marks() {
    static auto* sMarks = new std::vector<TraceMark>;
    return *sMarks;
}

void add(TraceMark::Type type, const char* name, int64_t value) {
    TraceMark mark{type, name != nullptr ? name : "", value, gettid(),
                   systemTime(SYSTEM_TIME_MONOTONIC)};
    std::lock_guard<std::mutex> lock(gMutex);
    marks().push_back(std::move(mark));
}

}  // namespace

void start() {
    std::lock_guard<std::mutex> lock(gMutex);
    marks().clear();
    gTracing.store(true);
}

std::vector<TraceMark> stop() {
    gTracing.store(false);
    std::lock_guard<std::mutex> lock(gMutex);
    return std::exchange(marks(), {});
}

std::string toTraceEventJson(const std::vector<TraceMark>& marks) {
    using nlohmann::ordered_json;
    std::map<pid_t, int> threads;
    ordered_json events = ordered_json::array();
    for (const TraceMark& mark : marks) {
        const int tid =
                threads.emplace(mark.tid, static_cast<int>(threads.size()) + 1).first->second;
        ordered_json event;
        switch (mark.type) {
            case TraceMark::Type::kBegin:
                event = {{"name", mark.name}, {"ph", "B"}};
                break;
            case TraceMark::Type::kEnd:
                event = {{"ph", "E"}};
                break;
            case TraceMark::Type::kCounter:
                event = {{"name", mark.name}, {"ph", "C"}};
                break;
        }
        // Microseconds, with the nanoseconds kept as a fraction.
        event["ts"] = static_cast<double>(mark.atNs) / 1000.0;
        event["pid"] = 1;
        event["tid"] = tid;
        if (mark.type == TraceMark::Type::kCounter) event["args"] = {{"value", mark.value}};
        events.push_back(std::move(event));
    }
    return ordered_json{{"traceEvents", std::move(events)}, {"displayTimeUnit", "ms"}}.dump(1) +
           "\n";
}

}  // namespace tracecapture

// libcutils' trace entry points, as the executable's own: see TraceCapture.h.
extern "C" {

__attribute__((visibility("default"))) uint64_t atrace_get_enabled_tags() {
    return tracecapture::gTracing.load(std::memory_order_relaxed) ? ATRACE_TAG_CAMERA : 0;
}

__attribute__((visibility("default"))) void atrace_begin_body(const char* name) {
    tracecapture::add(tracecapture::TraceMark::Type::kBegin, name, 0);
}

__attribute__((visibility("default"))) void atrace_end_body() {
    tracecapture::add(tracecapture::TraceMark::Type::kEnd, nullptr, 0);
}

__attribute__((visibility("default"))) void atrace_int_body(const char* name, int32_t value) {
    tracecapture::add(tracecapture::TraceMark::Type::kCounter, name, value);
}

__attribute__((visibility("default"))) void atrace_int64_body(const char* name, int64_t value) {
    tracecapture::add(tracecapture::TraceMark::Type::kCounter, name, value);
}

}  // extern "C"
