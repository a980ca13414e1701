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
#include <cmath>
#include <cstdlib>
#include <future>
#include <iostream>
#include <map>
#include <utility>

#include "LibraryCounters.h"

namespace vistel_replay {

namespace {

using nlohmann::ordered_json;
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

// ---- Outcomes, from the library's counters ----------------------------------------------------

using vistel_tools::CounterRow;

CounterRow countedNow(const Step& step) {
    return vistel_tools::readKindCounters(step.kind->kind);
}

// The outcome of the one record that ended between two reads of its kind's row: the library
// counts every record once, under the outcome it decided, and the replay runs one record at a
// time. Anything else is the library breaking that promise, which no report may hide.
Outcome outcomeBetween(const CounterRow& before, const CounterRow& after) {
    const CounterRow change = after - before;
    for (size_t i = 0;
         change.records == 1 && change.ended() == 1 && i < vistel_tools::kOutcomeCount; ++i) {
        if (change.outcomes[i] == 1) return static_cast<Outcome>(i);
    }
    std::cerr << "vistel-replay: one record changed the library's counters by " << change << "\n";
    abort();
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
        start.serviceLoaded = vistel_tools::readLibraryCounters().binding == VISTEL_BINDING_BOUND;
        return start;
    }();
    return sStart;
}

// ---- Running records --------------------------------------------------------------------------

// What the services received, the library logged and counted in the step's row since the last
// look, which clears the first two.
struct Observed {
    ordered_json events;
    std::vector<LogLine> log;
    CounterRow counted;
};

Observed observe(const Step& step) {
    Observed observed{collectEvents(step), takeLogLines(), countedNow(step)};
    resetServices();
    return observed;
}

// One record's result, read once everything it did has been observed.
struct RecordRun {
    double atSeconds;
    int result;
    Outcome outcome;
    Observed observed;
};

void addRecord(StepReport& report, RecordRun run) {
    const int record = report.tally.records() + 1;
    if (record == 1) {
        report.result = run.result;
        report.outcome = run.outcome;
        report.events = run.observed.events;
    }
    for (const ordered_json& event : run.observed.events) {
        report.received.push_back({record, run.atSeconds, event});
    }
    report.tally.add(run.outcome, run.observed.events.size());
    for (LogLine& line : run.observed.log) report.log.push_back(std::move(line));
}

// Reports the step's record at `atSeconds` and waits for the result. The record has been counted
// once its future is ready: its reporter counts it before returning, the door before refusing.
RecordRun runRecord(const Step& step, double atSeconds) {
    setClock(atSeconds);
    const CounterRow before = countedNow(step);
    std::future<int> future = orv::VistelManager::GetInstance()->reportMsgImpl(step.instance.record);
    // The handler has returned once the future is ready, so everything it sent is recorded.
    const int result = future.valid() ? future.get() : 0;
    Observed observed = observe(step);
    const Outcome outcome = outcomeBetween(before, observed.counted);
    return {atSeconds, result, outcome, std::move(observed)};
}

// The step's records handed over at once while the workers are held, so that the library sees
// the whole backlog, then run by one worker in the order handed over. A task of ours after each
// record observes what that record did before the next one starts. A record shed at the door ends
// there, while the workers are held: its kind's row is read after each handing over.
void runBacklog(const Step& step, StepReport& report) {
    setClock(step.atSeconds);
    QorThreadManager* pool = QorThreadManager::GetInstance();
    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    struct HandedOver {
        std::future<int> result;
        Outcome endedAtDoor;  // when the future is invalid
    };
    std::vector<HandedOver> handed;
    std::vector<std::future<Observed>> observations;
    CounterRow counted = countedNow(step);
    {
        WorkerHold hold(*pool);
        for (int i = 0; i < step.repeat; ++i) {
            HandedOver record{manager->reportMsgImpl(step.instance.record), Outcome::kShed};
            if (record.result.valid()) {
                observations.push_back(pool->enqueue([&step] { return observe(step); }));
            } else {
                const CounterRow now = countedNow(step);
                record.endedAtDoor = outcomeBetween(counted, now);
                counted = now;
            }
            handed.push_back(std::move(record));
        }
        // What the library logged while records were handed over (a shed record, say).
        for (LogLine& line : takeLogLines()) report.log.push_back(std::move(line));
        hold.release(1);
        if (!observations.empty()) observations.back().wait();
    }
    size_t observed = 0;
    for (HandedOver& record : handed) {
        if (!record.result.valid()) {
            Observed nothing{ordered_json::array(), {}, counted};
            addRecord(report, {step.atSeconds, 0, record.endedAtDoor, std::move(nothing)});
            continue;
        }
        const int answer = record.result.get();
        Observed after = observations[observed++].get();
        const Outcome outcome = outcomeBetween(counted, after.counted);
        counted = after.counted;
        addRecord(report, {step.atSeconds, answer, outcome, std::move(after)});
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
