#include "Replayer.h"

#include <OvrixEvent.h>
#include <QorThreadManager.h>
#include <VirtualClock.h>
#include <VistelHostService.h>
#include <VistelManager.h>
#include <WorkerHold.h>
#include <android/log.h>
#include <orvlog.h>

#include <array>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <future>
#include <map>
#include <mutex>
#include <utility>

#include "LibraryDump.h"

namespace vistel_replay {

namespace {

using nlohmann::ordered_json;
using vistel_harness::endsWith;
using vistel_harness::kNanosPerSecond;
using vistel_harness::LogCapture;
using vistel_harness::VirtualClock;
using vistel_harness::WorkerHold;
using vistel_tools::Service;

// ---- The virtual clock ------------------------------------------------------------------------

int64_t gScenarioStartNs = 0;

void startScenarioClock() {
    static bool sFirst = true;
    if (!sFirst) VirtualClock::expireAllLimits();
    sFirst = false;
    gScenarioStartNs = VirtualClock::nowNs();
}

void setClock(double atSeconds) {
    VirtualClock::setNs(gScenarioStartNs + std::llround(atSeconds * kNanosPerSecond));
}

// ---- The library's log ------------------------------------------------------------------------

// Replaces liblog's stderr output for the whole process, debug lines included.
LogCapture& logCapture() {
    static LogCapture& sCapture = *new LogCapture;
    return sCapture;
}

void installLogCapture() {
    logCapture();
}

std::vector<LogLine> takeLogLines() {
    return logCapture().take();
}

bool anyLine(const std::vector<LogLine>& log, bool (*matches)(const std::string& message)) {
    for (const LogLine& line : log) {
        if (matches(line.message)) return true;
    }
    return false;
}

// The reporters' lines for a record refused unsent: "error: init failed" without the service;
// from the Ovrix reporters, and for a null record, "error: event=0x..., inited=0 not valid"; and
// a record whose task starts after the manager was destroyed.
bool isNotInitialisedLine(const std::string& message) {
    return endsWith(message, "error: init failed") ||
           (message.find("error: event=") != std::string::npos &&
            endsWith(message, " not valid")) ||
           endsWith(message, "error: manager destroyed, record dropped");
}

// The fault and time-out reporters answer 0 for a record the limiter dropped, as for one sent;
// only this line tells.
bool isLimitedLine(const std::string& message) {
    return endsWith(message, "is limited, drop this event");
}

// `queued`: reportMsgImpl returned a valid future. A scenario's records are never null and
// always of a known kind, so an invalid future means the library refused the record at the door:
// switched off (`off`, as its counters say) or shed.
Outcome classify(bool queued, bool off, int result, size_t eventCount,
                 const std::vector<LogLine>& log) {
    if (!queued) return off ? Outcome::kOff : Outcome::kShed;
    // Before the result: the scan message reporter answers -2 when not initialised.
    if (anyLine(log, isNotInitialisedLine)) return Outcome::kNotInitialised;
    if (result == -2 || anyLine(log, isLimitedLine)) return Outcome::kLimited;
    if (result != 0) return Outcome::kFailed;
    return eventCount > 0 ? Outcome::kSent : Outcome::kNoEvent;
}

// ---- Records switched off -----------------------------------------------------------------------

// The records of each kind the library counted off, as of the last look at its dump.
std::array<uint64_t, orv::kVistelEventCount> gOffSeen{};

// The records of `kind` the library switched off since the last look, which looks at every kind.
uint64_t switchedOffSinceLastLook(orv::VistelEvent kind) {
    const vistel_tools::LibraryDump dump =
            vistel_tools::parseLibraryDump(vistel_tools::libraryDumpLines());
    uint64_t since = 0;
    for (const auto& [counted, row] : dump.kinds) {
        if (counted >= gOffSeen.size()) continue;
        if (counted == kind) since = row.off - gOffSeen[counted];
        gOffSeen[counted] = row.off;
    }
    return since;
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
        switchedOffSinceLastLook(orv::kEventMemLeak);
        ManagerStart start{takeLogLines(), true};
        start.serviceLoaded = !anyLine(start.log, [](const std::string& message) {
            return endsWith(message, "VistelLibLoader::getInstance failed");
        });
        return start;
    }();
    return sStart;
}

// ---- Running records --------------------------------------------------------------------------

// What the services received and the library logged since the last look, which clears both.
struct Observed {
    ordered_json events;
    std::vector<LogLine> log;
};

Observed observe(const Step& step) {
    Observed observed{collectEvents(step), takeLogLines()};
    resetServices();
    return observed;
}

// One record's result, read once everything it did has been observed.
struct RecordRun {
    double atSeconds;
    bool queued;
    bool off;  // not queued: switched off
    int result;
    Observed observed;
};

void addRecord(StepReport& report, RecordRun run) {
    const Outcome outcome =
            classify(run.queued, run.off, run.result, run.observed.events.size(), run.observed.log);
    const int record = report.tally.records() + 1;
    if (record == 1) {
        report.result = run.result;
        report.outcome = outcome;
        report.events = run.observed.events;
    }
    for (const ordered_json& event : run.observed.events) {
        report.received.push_back({record, run.atSeconds, event});
    }
    report.tally.add(outcome, run.observed.events.size());
    for (LogLine& line : run.observed.log) report.log.push_back(std::move(line));
}

// Reports the step's record at `atSeconds` and waits for the result.
RecordRun runRecord(const Step& step, double atSeconds) {
    setClock(atSeconds);
    std::future<int> future = orv::VistelManager::GetInstance()->reportMsgImpl(step.instance.record);
    const bool queued = future.valid();
    // The handler has returned once the future is ready, so everything it sent is recorded.
    const int result = queued ? future.get() : 0;
    const bool off = !queued && switchedOffSinceLastLook(step.kind->kind) != 0;
    return {atSeconds, queued, off, result, observe(step)};
}

// The step's records handed over at once while the workers are held, so that the library sees
// the whole backlog, then run by one worker in the order handed over. A task of ours after each
// record observes what that record did before the next one starts.
void runBacklog(const Step& step, StepReport& report) {
    setClock(step.atSeconds);
    QorThreadManager* pool = QorThreadManager::GetInstance();
    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    std::vector<std::future<int>> results;
    std::vector<std::future<Observed>> observations;
    {
        WorkerHold hold(*pool);
        for (int i = 0; i < step.repeat; ++i) {
            results.push_back(manager->reportMsgImpl(step.instance.record));
            if (results.back().valid()) {
                observations.push_back(pool->enqueue([&step] { return observe(step); }));
            }
        }
        // What the library logged while records were handed over (a shed record, say).
        for (LogLine& line : takeLogLines()) report.log.push_back(std::move(line));
        hold.release(1);
        if (!observations.empty()) observations.back().wait();
    }
    // A kind switched off is refused before the bound is looked at: the step's records refused
    // at the door are all switched off or all shed, unless the switch was read meanwhile.
    const bool anyRefused = observations.size() < results.size();
    uint64_t off = anyRefused ? switchedOffSinceLastLook(step.kind->kind) : 0;
    size_t observed = 0;
    for (std::future<int>& result : results) {
        if (!result.valid()) {
            const bool switchedOff = off > 0;
            if (switchedOff) --off;
            addRecord(report, {step.atSeconds, false, switchedOff, 0, {ordered_json::array(), {}}});
            continue;
        }
        const int answer = result.get();
        addRecord(report, {step.atSeconds, true, false, answer, observations[observed++].get()});
    }
}

}  // namespace

int Tally::records() const {
    int records = 0;
    for (int count : outcomes) records += count;
    return records;
}

void Tally::add(Outcome outcome, size_t eventCount) {
    ++outcomes[static_cast<size_t>(outcome)];
    events += static_cast<int>(eventCount);
}

void Tally::add(const Tally& other) {
    for (size_t i = 0; i < outcomes.size(); ++i) outcomes[i] += other.outcomes[i];
    events += other.events;
}

void Summary::add(const StepReport& report) {
    kinds[report.step->kind->kind].add(report.tally);
    total.add(report.tally);
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
    StepReport report{&step, 0, Outcome::kSent, ordered_json::array(), {}, {}, {}};
    if (step.repeat > 1 && step.spacingSeconds == 0) {
        runBacklog(step, report);
    } else {
        for (int i = 0; i < step.repeat; ++i) {
            addRecord(report, runRecord(step, step.atSeconds + i * step.spacingSeconds));
        }
    }
    // Anything logged after the last record's look.
    for (LogLine& line : takeLogLines()) report.log.push_back(std::move(line));
    return report;
}

}  // namespace vistel_replay
