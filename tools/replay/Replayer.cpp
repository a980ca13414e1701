#include "Replayer.h"

#include <OvrixEvent.h>
#include <VistelHostService.h>
#include <VistelManager.h>
#include <android/log.h>
#include <orvlog.h>
#include <utils/Timers.h>

#include <atomic>
#include <cmath>
#include <map>
#include <mutex>
#include <utility>

namespace vistel_replay {

namespace {

using nlohmann::ordered_json;
using vistel_tools::Service;

// ---- The virtual clock ------------------------------------------------------------------------

constexpr int64_t kNanosPerSecond = 1000000000;
// Well away from 0, which the limiter reads as "never reported".
constexpr int64_t kFirstStartNs = 1000 * kNanosPerSecond;
// Longer than every quiet period of the limiter.
constexpr int64_t kGapBetweenScenariosNs = kNanosPerSecond * 3600 * 10;

std::atomic<int64_t> gNowNs{kFirstStartNs};
std::atomic<int64_t> gScenarioStartNs{kFirstStartNs};

void startScenarioClock() {
    static bool sFirst = true;
    if (!sFirst) gScenarioStartNs = gNowNs.load() + kGapBetweenScenariosNs;
    sFirst = false;
    gNowNs = gScenarioStartNs.load();
}

void setClock(double atSeconds) {
    gNowNs = gScenarioStartNs.load() + std::llround(atSeconds * kNanosPerSecond);
}

// ---- The library's log ------------------------------------------------------------------------

std::mutex gLogMutex;
std::vector<LogLine> gLogLines;  // guarded by gLogMutex

void captureLogLine(const struct __android_logger_data* data, const char* message) {
    LogLine line{data->priority, data->tag != nullptr ? data->tag : "",
                 message != nullptr ? message : ""};
    std::lock_guard<std::mutex> lock(gLogMutex);
    gLogLines.push_back(std::move(line));
}

// Replaces liblog's stderr output for the whole process, debug lines included.
void installLogCapture() {
    static std::once_flag sInstalled;
    std::call_once(sInstalled, [] {
        __android_log_set_logger(captureLogLine);
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    });
}

std::vector<LogLine> takeLogLines() {
    std::lock_guard<std::mutex> lock(gLogMutex);
    return std::exchange(gLogLines, {});
}

bool endsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

bool anyLine(const std::vector<LogLine>& log, bool (*matches)(const std::string& message)) {
    for (const LogLine& line : log) {
        if (matches(line.message)) return true;
    }
    return false;
}

// The reporters' lines for a manager without its service: "error: init failed", or, from the
// Ovrix reporters, "error: event=0x..., inited=0 not valid".
bool isNotInitialisedLine(const std::string& message) {
    return endsWith(message, "error: init failed") ||
           (message.find("error: event=") != std::string::npos &&
            endsWith(message, "inited=0 not valid"));
}

// The fault and time-out reporters answer 0 for a drop as for a report; only this line tells.
bool isDropLine(const std::string& message) {
    return endsWith(message, "is limited, drop this event");
}

Outcome classify(bool dispatched, int result, size_t eventCount, const std::vector<LogLine>& log) {
    if (!dispatched) return Outcome::kNotDispatched;
    // Before the result: the scan message reporter answers -2 when not initialised.
    if (anyLine(log, isNotInitialisedLine)) return Outcome::kNotInitialised;
    if (result == -2 || anyLine(log, isDropLine)) return Outcome::kDropped;
    if (result != 0) return Outcome::kFailed;
    return eventCount > 0 ? Outcome::kSent : Outcome::kNoEvent;
}

// ---- What the services received ---------------------------------------------------------------

ordered_json withService(Service service, const std::string& eventJson) {
    ordered_json event = {{"service", vistel_tools::serviceName(service)}};
    event.update(ordered_json::parse(eventJson));
    return event;
}

// An indexed parameter carries a raw long, which for a text is the address of the record's
// field: the service reads the text there. Show such a value as the field and its text, which
// also keeps the output free of addresses.
void resolveIndexedTexts(const Step& step, ordered_json& event) {
    const auto& layout = step.kind->layout();
    const auto* body = static_cast<const char*>(step.instance.body);
    std::map<long, std::pair<std::string, const char*>> texts;
    vistel_tools::forEachText(layout, body, [&](const std::string& path, const char* text) {
        texts[reinterpret_cast<long>(text)] = {path, text};
    });
    for (ordered_json& param : event["params"]) {
        if (!param.contains("index")) continue;
        const long value = param["value"].get<long>();
        const auto text = texts.find(value);
        if (text != texts.end()) {
            param.erase("value");
            param["field"] = text->second.first;
            param["text"] = text->second.second;
        } else if (value >= reinterpret_cast<long>(body) &&
                   value < reinterpret_cast<long>(body + layout.size)) {
            // Inside the record but not at a text: a reporter passing the wrong address.
            param.erase("value");
            param["recordOffset"] = value - reinterpret_cast<long>(body);
        }
    }
}

ordered_json collectEvents(const Step& step) {
    ordered_json events = ordered_json::array();
    for (const vistelhost::SentEvent& sent : vistelhost::sentEvents()) {
        ordered_json event = withService(Service::kVistel, vistelhost::toJson(sent));
        resolveIndexedTexts(step, event);
        events.push_back(std::move(event));
    }
    for (const OvrixEvent& reported : ovrixhost::reported()) {
        events.push_back(withService(Service::kOvrix, ovrixhost::toJson(reported)));
    }
    for (const orvloghost::JankPrint& print : orvloghost::jankPrints()) {
        events.push_back({{"service", vistel_tools::serviceName(Service::kJankPrint)},
                          {"type", print.type},
                          {"id", print.id},
                          {"msg", print.msg}});
    }
    return events;
}

void resetServices() {
    vistelhost::reset();
    ovrixhost::reset();
    orvloghost::reset();
}

struct ManagerStart {
    std::vector<LogLine> log;
    bool serviceLoaded;
};

// Builds the manager on first use, so its start-up lines are nobody's step.
const ManagerStart& managerStart() {
    static const ManagerStart sStart = [] {
        installLogCapture();
        orv::VistelManager::GetInstance();
        ManagerStart start{takeLogLines(), true};
        start.serviceLoaded = !anyLine(start.log, [](const std::string& message) {
            return endsWith(message, "VistelLibLoader::getInstance failed");
        });
        return start;
    }();
    return sStart;
}

}  // namespace

const char* outcomeName(Outcome outcome) {
    switch (outcome) {
        case Outcome::kSent:
            return "sent";
        case Outcome::kNoEvent:
            return "no-event";
        case Outcome::kDropped:
            return "dropped";
        case Outcome::kNotInitialised:
            return "not-initialised";
        case Outcome::kFailed:
            return "failed";
        case Outcome::kNotDispatched:
            break;
    }
    return "not-dispatched";
}

void Summary::add(const StepReport& report) {
    for (KindTally* tally : {&kinds[report.step->kind->kind], &total}) {
        ++tally->records;
        tally->events += static_cast<int>(report.events.size());
        tally->dropped += report.outcome == Outcome::kDropped;
        tally->failed += report.outcome == Outcome::kNotInitialised ||
                         report.outcome == Outcome::kFailed ||
                         report.outcome == Outcome::kNotDispatched;
    }
}

Replayer::Replayer() {
    managerStart();
    startScenarioClock();
    takeLogLines();
    resetServices();
}

const std::vector<LogLine>& Replayer::startupLog() const {
    return managerStart().log;
}

bool Replayer::serviceLoaded() const {
    return managerStart().serviceLoaded;
}

StepReport Replayer::run(const Step& step) const {
    setClock(step.atSeconds);
    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    std::future<int> future = manager->reportMsgImpl(step.instance.record);
    const bool dispatched = future.valid();
    // The handler has returned once the future is ready, so everything it sent is recorded.
    const int result = dispatched ? future.get() : 0;
    StepReport report{&step, result, Outcome::kSent, collectEvents(step), takeLogLines()};
    resetServices();
    report.outcome = classify(dispatched, result, report.events.size(), report.log);
    return report;
}

}  // namespace vistel_replay

// The library reads the time through libutils' systemTime; this definition takes its place for
// every library of the process (the executable exports it), so the limiter sees virtual time.
__attribute__((visibility("default"))) nsecs_t systemTime(int /*clock*/) {
    return vistel_replay::gNowNs.load();
}
