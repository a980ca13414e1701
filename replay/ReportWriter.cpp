#include "ReportWriter.h"

#include <VistelManager.h>
#include <android/log.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

#include "Catalog.h"
#include "LibraryCounters.h"
#include "RecordJson.h"

namespace vistel_replay {

namespace {

using nlohmann::ordered_json;

// ---- Shared by both forms ---------------------------------------------------------------------

// A tally's columns, named and ordered as in the library's dump: the records, the records of each
// outcome, which add up to them, and the events the services took. As in the dump, the off column
// is there only `withOff`: when a record was switched off.
std::vector<std::pair<std::string, int>> tallyColumns(const Tally& tally, bool withOff) {
    std::vector<std::pair<std::string, int>> columns = {{"records", tally.records()}};
    for (size_t i = 0; i < vistel_tools::kOutcomeCount; ++i) {
        const auto outcome = static_cast<Outcome>(i);
        if (outcome == Outcome::kOff && !withOff) continue;
        columns.emplace_back(outcomeName(outcome), tally[outcome]);
    }
    columns.emplace_back("events", tally.events);
    return columns;
}

ordered_json tallyJson(const Tally& tally, bool withOff) {
    ordered_json json = ordered_json::object();
    for (const auto& [name, count] : tallyColumns(tally, withOff)) json[name] = count;
    return json;
}

bool anyOff(const Tally& tally) {
    return tally[Outcome::kOff] != 0;
}

// `event` behind the members that say where it came from ("at", "step", ...).
ordered_json withOrigin(ordered_json origin, const ordered_json& event) {
    origin.update(event);
    return origin;
}

std::string dumpValue(const ordered_json& value) {
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

// ---- Text -------------------------------------------------------------------------------------

// What VistelManager::dump() writes. A file in memory: the dump writes to a descriptor, and a pipe
// could fill before it is read.
std::string libraryDumpText() {
    const int fd = memfd_create("vistel-dump", MFD_CLOEXEC);
    if (fd < 0) return {};
    orv::VistelManager::GetInstance()->dump(fd);
    std::string text;
    char buffer[4096];
    lseek(fd, 0, SEEK_SET);
    for (ssize_t got; (got = read(fd, buffer, sizeof(buffer))) > 0;) {
        text.append(buffer, static_cast<size_t>(got));
    }
    close(fd);
    return text;
}

constexpr size_t kLineWidth = 100;
constexpr int kIndent = 4;

// "hh:mm:ss", with ".mmm" when there are milliseconds; rounded to the millisecond first, so
// 1.9996 s reads 00:00:02, not 00:00:01 with a fraction rounded up to ".000" or "1.000".
std::string clock(double seconds) {
    const long long millis = std::llround(seconds * 1000);
    const long long whole = millis / 1000;
    char text[32];
    int length = snprintf(text, sizeof(text), "%02lld:%02lld:%02lld", whole / 3600, whole / 60 % 60,
                          whole % 60);
    if (millis % 1000 != 0 && length > 0) {
        snprintf(text + length, sizeof(text) - length, ".%03lld", millis % 1000);
    }
    return text;
}

// The width of the time column: "hh:mm:ss" and a space, or "hh:mm:ss.mmm" and one when any step's
// time has milliseconds, so that every row's columns line up.
int timeColumnWidth(const Scenario& scenario) {
    constexpr int kWhole = 9;
    constexpr int kFraction = 13;
    for (const Step& step : scenario.steps) {
        if (std::llround(step.atSeconds * 1000) % 1000 != 0) return kFraction;
    }
    return kWhole;
}

char priorityLetter(int priority) {
    switch (priority) {
        case ANDROID_LOG_VERBOSE:
            return 'V';
        case ANDROID_LOG_DEBUG:
            return 'D';
        case ANDROID_LOG_INFO:
            return 'I';
        case ANDROID_LOG_WARN:
            return 'W';
        case ANDROID_LOG_ERROR:
            return 'E';
        default:
            return 'F';
    }
}

// What a line says after the library's "<function><<line>>: [<tag>]" prefix.
std::string logBody(const std::string& message) {
    const size_t open = message.find(": [");
    const size_t close = open == std::string::npos ? open : message.find(']', open);
    return close == std::string::npos ? message : message.substr(close + 1);
}

bool isArrayOfEvents(const ordered_json& param) {
    return param.contains("key") && param["type"] == "array";
}

std::string eventLabel(const ordered_json& event) {
    // Nested events carry no service: they are always Ovrix sub-events.
    const std::string service = event.value("service", "ovrix");
    if (event.contains("msg")) {
        return service + " type " + dumpValue(event["type"]) + " id " + dumpValue(event["id"]);
    }
    return service + " " + dumpValue(event["id"]);
}

// One "label=value" per parameter. Indexed Vistel parameters are labelled #index; nested arrays
// of events show their size here and their events separately.
std::vector<std::string> paramTokens(const ordered_json& event) {
    std::vector<std::string> tokens;
    if (event.contains("msg")) {
        tokens.push_back(dumpValue(event["msg"]));
        return tokens;
    }
    for (const ordered_json& param : event["params"]) {
        std::string value;
        if (isArrayOfEvents(param)) {
            const size_t count = param["value"].size();
            value = "[" + std::to_string(count) + (count == 1 ? " event]" : " events]");
        } else if (param.contains("text")) {
            value = dumpValue(param["text"]);
        } else if (param.contains("recordOffset")) {
            value = "record+" + dumpValue(param["recordOffset"]);
        } else {
            value = dumpValue(param["value"]);
        }
        std::string label = param.contains("index")  ? "#" + dumpValue(param["index"])
                            : param.contains("name") ? param["name"].get<std::string>()
                                                     : param["key"].get<std::string>();
        tokens.push_back(label + "=" + value);
    }
    return tokens;
}

std::string join(const std::vector<std::string>& tokens) {
    std::string line;
    for (const std::string& token : tokens) line += (line.empty() ? "" : " ") + token;
    return line;
}

// "%4s %-32s" and a column per count, as the library's dump lays out its table.
std::string tableRow(const char* kind, const char* name,
                     const std::vector<std::pair<std::string, int>>& columns, bool header) {
    char cell[64];
    snprintf(cell, sizeof(cell), "%4s %-32s", kind, name);
    std::string row = cell;
    for (const auto& [column, count] : columns) {
        const int width = static_cast<int>(std::max<size_t>(9, column.size()));
        if (header) {
            snprintf(cell, sizeof(cell), " %*s", width, column.c_str());
        } else {
            snprintf(cell, sizeof(cell), " %*d", width, count);
        }
        row += cell;
    }
    return row;
}

// "sent 1, limited 4095, shed 5904": the outcomes a repeated step's records had.
std::string outcomeCounts(const Tally& tally) {
    std::string text;
    for (size_t i = 0; i < vistel_tools::kOutcomeCount; ++i) {
        const auto outcome = static_cast<Outcome>(i);
        if (tally[outcome] == 0) continue;
        text += (text.empty() ? "" : ", ") + std::string(outcomeName(outcome)) + " " +
                std::to_string(tally[outcome]);
    }
    return text;
}

class TextReportWriter : public ReportWriter {
  public:
    TextReportWriter(const ReportOptions& options, std::ostream& out)
        : mOptions(options), mOut(out) {}

    void start(const std::string& source, const Scenario& scenario,
               const Replayer& replayer) override {
        const double span = scenario.steps.empty() ? 0 : scenario.steps.back().lastAtSeconds();
        mOut << "replaying " << source << ": " << scenario.steps.size() << " steps over "
             << clock(span) << " of virtual time\n";
        if (!replayer.serviceLoaded()) {
            mOut << "the Vistel service library is not loaded: every kind but "
                    "AlgoProcessTimeoutDumpSystrace answers \"not-initialised\"\n";
        }
        if (mOptions.verbose) printLog(replayer.startupLog(), "");
        mTimeWidth = timeColumnWidth(scenario);
        char header[128];
        snprintf(header, sizeof(header), "%-*s %-35s %-15s %s", mTimeWidth, "time", "kind",
                 "outcome", "what the services received");
        mOut << header << "\n";
    }

    void step(const StepReport& report) override {
        const Step& step = *report.step;
        const bool repeated = step.repeat > 1;
        const std::string outcome =
                repeated ? std::to_string(step.repeat) + " records" : outcomeName(report.outcome);
        char head[128];
        const int headLength = snprintf(head, sizeof(head), "%-*s %2u %-32s %-15s ", mTimeWidth,
                                        clock(step.atSeconds).c_str(), step.kind->kind,
                                        step.kind->name, outcome.c_str());
        if (repeated) {
            // The records counted by outcome, never cut; their events are not listed: a runaway
            // sends thousands alike.
            mOut << head << repeatedSummary(report) << "\n";
        } else {
            printRecord(report, head, std::string(static_cast<size_t>(headLength), ' '));
        }
        if (mOptions.verbose) printLog(report.log, std::string(kIndent, ' '));
    }

    void finish(const Summary& summary) override {
        const bool withOff = anyOff(summary.total);
        mOut << "\n"
             << tableRow("kind", "name", tallyColumns(summary.total, withOff), true) << "\n";
        for (const auto& info : vistel_tools::kinds()) {
            const Tally& tally = summary.kinds[info.kind];
            if (tally.records() == 0) continue;
            mOut << tableRow(std::to_string(info.kind).c_str(), info.name,
                             tallyColumns(tally, withOff), false)
                 << "\n";
        }
        mOut << tableRow("", "total", tallyColumns(summary.total, withOff), false) << "\n";
    }

    // What dump() writes, for people, as it writes it.
    void dump() override { mOut << "\n" << libraryDumpText(); }

  private:
    // A step of one record: why it sent nothing, or its events; `indent` lines up with `head`.
    void printRecord(const StepReport& report, const std::string& head, const std::string& indent) {
        if (report.events.empty() || mOptions.full) printStepLine(head + reason(report));
        if (mOptions.full) {
            for (const ordered_json& event : report.events) printEvent(event, kIndent);
            return;
        }
        // The first event shares the step's line, the others line up beneath it.
        bool first = true;
        for (const ordered_json& event : report.events) {
            printStepLine((first ? head : indent) + eventLabel(event) + " " +
                          join(paramTokens(event)));
            first = false;
        }
    }

    // A step's own line: cut to the line width, except in the full form, which shows it whole.
    void printStepLine(const std::string& line) {
        mOut << (mOptions.full ? line : vistel_tools::cutText(line, kLineWidth)) << "\n";
    }

    // Why a step sent nothing; for a sent step in the full form, its handler's result.
    static std::string reason(const StepReport& report) {
        std::string answered = "answered " + std::to_string(report.result);
        switch (report.outcome) {
            case Outcome::kSent:
                return answered;
            case Outcome::kNoEvent:
                return answered + ", nothing to send";
            case Outcome::kLimited:
                return answered +
                       ", limit: " + vistel_tools::describeLimit(report.step->kind->limit);
            case Outcome::kNotInitialised:
                return answered + ", no service library";
            case Outcome::kShed:
                return "not queued: too many records in flight";
            case Outcome::kOff:
                return "not queued: its kind is switched off";
            case Outcome::kFailed:
                break;
        }
        // The primitive that refused logged why.
        for (const LogLine& line : report.log) {
            if (line.priority >= ANDROID_LOG_ERROR) return answered + ": " + logBody(line.message);
        }
        return answered;
    }

    // "every 0.5 s: sent 3, limited 2 (3 events)".
    static std::string repeatedSummary(const StepReport& report) {
        const Tally& tally = report.tally;
        std::string text;
        if (report.step->spacingSeconds > 0) {
            text = "every " + secondsJson(report.step->spacingSeconds).dump() + " s: ";
        }
        return text + outcomeCounts(tally) + " (" + std::to_string(tally.events) +
               (tally.events == 1 ? " event)" : " events)");
    }

    // `slot` names a nested event's place ("PerfDetail[0] "); empty for a top-level event.
    void printEvent(const ordered_json& event, int indent, const std::string& slot = "") {
        const std::string margin(indent, ' ');
        mOut << margin << slot << eventLabel(event) << "\n";
        // Parameters wrapped to the line width, one step further in.
        const std::string paramMargin(indent + kIndent, ' ');
        std::string line;
        for (const std::string& token : paramTokens(event)) {
            if (!line.empty() && paramMargin.size() + line.size() + 1 + token.size() > kLineWidth) {
                mOut << paramMargin << line << "\n";
                line.clear();
            }
            line += (line.empty() ? "" : " ") + token;
        }
        if (!line.empty()) mOut << paramMargin << line << "\n";
        if (!event.contains("params")) return;
        for (const ordered_json& param : event["params"]) {
            if (!isArrayOfEvents(param)) continue;
            const ordered_json& nested = param["value"];
            for (size_t i = 0; i < nested.size(); ++i) {
                const std::string nestedSlot =
                        param["key"].get<std::string>() + "[" + std::to_string(i) + "] ";
                printEvent(nested[i], indent + kIndent, nestedSlot);
            }
        }
    }

    void printLog(const std::vector<LogLine>& log, const std::string& margin) {
        for (const LogLine& line : log) {
            mOut << margin << "| " << priorityLetter(line.priority) << " " << line.tag << ": "
                 << line.message << "\n";
        }
    }

    ReportOptions mOptions;
    std::ostream& mOut;
    int mTimeWidth = 0;  // set by start()
};

// ---- JSON -------------------------------------------------------------------------------------

// A row of the library's counters, under the dump's own column names; the off column only once a
// record was switched off, as the dump prints it.
ordered_json countsJson(const vistel_tools::CounterRow& row, bool withOff) {
    ordered_json json = ordered_json::object();
    for (const auto& [name, count] : row.columns()) {
        if (withOff || strcmp(name, vistelOutcomeName(VISTEL_OUTCOME_OFF)) != 0) json[name] = count;
    }
    return json;
}

// What the dump's "vistel service: " line says.
std::string serviceText(const vistel_tools::LibraryCounters& counters) {
    const std::string library = "libvistel.so";
    switch (counters.manager) {
        case VISTEL_MANAGER_NOT_BUILT:
            return "manager not built yet";
        case VISTEL_MANAGER_DESTROYED:
            return "destroyed with the manager";
        default:
            break;
    }
    switch (counters.binding) {
        case VISTEL_BINDING_BOUND:
            return "bound (" + library + ")" +
                   (counters.inited ? "" : ", but the manager is not initialised");
        case VISTEL_BINDING_LIBRARY_MISSING:
            return "not bound: " + library + " could not be opened";
        case VISTEL_BINDING_FUNCTION_MISSING:
            return "not bound: " + library + " has no " + counters.missingFunction;
        default:
            break;
    }
    return "not bound: never tried";
}

// The library's counters as one object, as its dump shows them: its title, the rows of the kinds,
// the direct sendBootMsg calls and the total, the records in flight, the service binding, the keys
// each keyed limit policy holds ("busy" when its lock could not be had) and those it dropped.
ordered_json dumpJson(const vistel_tools::LibraryCounters& counters) {
    const bool offShown = counters.total[VISTEL_OUTCOME_OFF] != 0;
    ordered_json kinds = ordered_json::array();
    for (const auto& [kind, row] : counters.kinds) {
        ordered_json entry = {{"kind", kind}, {"name", row.name}};
        entry.update(countsJson(row, offShown));
        kinds.push_back(std::move(entry));
    }
    ordered_json keys = ordered_json::object();
    ordered_json dropped = ordered_json::object();
    for (const auto& [policy, held] : counters.policies) {
        keys[policy] = held.busy ? ordered_json("busy") : ordered_json(held.keys);
        dropped[policy] = held.dropped;
    }
    return {{"title", "libc_vistel [" + counters.buildTag + "]: since the process started"},
            {"kinds", std::move(kinds)},
            {"direct", countsJson(counters.direct, offShown)},
            {"total", countsJson(counters.total, offShown)},
            {"inFlight", "records in flight: " + std::to_string(counters.inFlight) + " now, " +
                                 std::to_string(counters.inFlightPeak) + " at most, shed beyond " +
                                 std::to_string(counters.inFlightBound)},
            {"service", serviceText(counters)},
            {"keyedLimitPolicies", std::move(keys)},
            {"droppedLimitKeys", std::move(dropped)}};
}

class JsonReportWriter : public ReportWriter {
  public:
    JsonReportWriter(const ReportOptions& options, std::ostream& out)
        : mOptions(options), mOut(out) {}

    void start(const std::string&, const Scenario&, const Replayer&) override {}

    // One record: its result, outcome (with the limit that dropped it) and events. A repeated
    // step: how many records, how far apart, the tally of their outcomes and every record's
    // events, each with its record's number and time.
    void step(const StepReport& report) override {
        const Step& step = *report.step;
        const bool repeated = step.repeat > 1;
        ordered_json line = {{"type", repeated ? "repeated step" : "step"},
                             {"step", step.number},
                             {"at", secondsJson(step.atSeconds)},
                             {"kind", step.kind->kind},
                             {"name", step.kind->name}};
        if (repeated) {
            line["repeat"] = step.repeat;
            line["spacing"] = secondsJson(step.spacingSeconds);
            line["outcomes"] = tallyJson(report.tally, anyOff(report.tally));
            ordered_json events = ordered_json::array();
            for (const ReceivedEvent& received : report.received) {
                events.push_back(withOrigin(
                        {{"record", received.record}, {"at", secondsJson(received.atSeconds)}},
                        received.event));
            }
            line["events"] = std::move(events);
        } else {
            line["result"] = report.result;
            line["outcome"] = outcomeName(report.outcome);
            if (report.outcome == Outcome::kLimited) line["limit"] = limitJson(step.kind->limit);
            line["events"] = report.events;
        }
        if (mOptions.verbose) {
            ordered_json log = ordered_json::array();
            for (const LogLine& entry : report.log) {
                log.push_back({{"priority", entry.priority},
                               {"tag", entry.tag},
                               {"message", entry.message}});
            }
            line["log"] = std::move(log);
        }
        mOut << dumpValue(line) << "\n";
    }

    void finish(const Summary& summary) override {
        const bool withOff = anyOff(summary.total);
        ordered_json kinds = ordered_json::array();
        for (const auto& info : vistel_tools::kinds()) {
            const Tally& tally = summary.kinds[info.kind];
            if (tally.records() == 0) continue;
            ordered_json entry = {{"kind", info.kind}, {"name", info.name}};
            entry.update(tallyJson(tally, withOff));
            kinds.push_back(std::move(entry));
        }
        ordered_json total = tallyJson(summary.total, withOff);
        total["kinds"] = std::move(kinds);
        mOut << dumpValue(ordered_json{{"type", "summary"}, {"summary", std::move(total)}}) << "\n";
    }

    void dump() override {
        const vistel_tools::LibraryCounters counters = vistel_tools::readLibraryCounters();
        mOut << dumpValue(ordered_json{{"type", "dump"}, {"dump", dumpJson(counters)}}) << "\n";
    }

  private:
    ReportOptions mOptions;
    std::ostream& mOut;
};

// ---- The event stream ---------------------------------------------------------------------

// Only what the services received, one event per line, each with the time its record was handed
// over, the step and the kind it came from: a pipeline's input, valid against the event schema.
class EventStreamWriter : public ReportWriter {
  public:
    explicit EventStreamWriter(std::ostream& out) : mOut(out) {}

    void start(const std::string&, const Scenario&, const Replayer&) override {}

    void step(const StepReport& report) override {
        const Step& step = *report.step;
        for (const ReceivedEvent& received : report.received) {
            ordered_json origin = {{"at", secondsJson(received.atSeconds)}, {"step", step.number}};
            if (step.repeat > 1) origin["record"] = received.record;
            origin["kind"] = step.kind->kind;
            mOut << dumpValue(withOrigin(std::move(origin), received.event)) << "\n";
        }
    }

    void finish(const Summary&) override {}
    void dump() override {}

  private:
    std::ostream& mOut;
};

}  // namespace

std::unique_ptr<ReportWriter> makeReportWriter(const ReportOptions& options, std::ostream& out) {
    if (options.events) return std::make_unique<EventStreamWriter>(out);
    if (options.json) return std::make_unique<JsonReportWriter>(options, out);
    return std::make_unique<TextReportWriter>(options, out);
}

}  // namespace vistel_replay
