#include "ReportWriter.h"

#include <android/log.h>

#include <cmath>
#include <cstdio>

namespace vistel_replay {

namespace {

using nlohmann::ordered_json;

// ---- Shared by both forms ---------------------------------------------------------------------

ordered_json tallyJson(const KindTally& tally) {
    return {{"records", tally.records},
            {"events", tally.events},
            {"dropped", tally.dropped},
            {"failed", tally.failed}};
}

std::string dumpValue(const ordered_json& value) {
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

// ---- Text -------------------------------------------------------------------------------------

constexpr size_t kLineWidth = 100;
constexpr int kIndent = 4;

// "hh:mm:ss", with ".mmm" when there are milliseconds; rounded to the millisecond first, so
// 1.9996 s reads 00:00:02, not 00:00:01 with a fraction rounded up to ".000" or "1.000".
std::string clock(double seconds) {
    const long long millis = std::llround(seconds * 1000);
    const long long whole = millis / 1000;
    char text[32];
    int length = snprintf(text, sizeof(text), "%02lld:%02lld:%02lld", whole / 3600,
                          whole / 60 % 60, whole % 60);
    if (millis % 1000 != 0 && length > 0) {
        snprintf(text + length, sizeof(text) - length, ".%03lld", millis % 1000);
    }
    return text;
}

std::string fit(const std::string& text, size_t width) {
    if (text.size() <= width) return text;
    return width > 3 ? text.substr(0, width - 3) + "..." : text.substr(0, width);
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

class TextReportWriter : public ReportWriter {
  public:
    TextReportWriter(const ReportOptions& options, std::ostream& out)
        : mOptions(options), mOut(out) {}

    void start(const std::string& source, const Scenario& scenario,
               const Replayer& replayer) override {
        const double span = scenario.steps.empty() ? 0 : scenario.steps.back().atSeconds;
        mOut << "replaying " << source << ": " << scenario.steps.size() << " steps over "
             << clock(span) << " of virtual time\n";
        if (!replayer.serviceLoaded()) {
            mOut << "the Vistel service library is not loaded: its reporters answer "
                    "\"not initialised\"\n";
        }
        if (mOptions.verbose) printLog(replayer.startupLog(), "");
        mOut << fit("time      kind                                 outcome  "
                    "what the services received",
                    kLineWidth)
             << "\n";
    }

    void step(const StepReport& report) override {
        const Step& step = *report.step;
        char head[96];
        const int headLength =
                snprintf(head, sizeof(head), "%-9s %2u %-32s %-8s ", clock(step.atSeconds).c_str(),
                         step.kind->kind, step.kind->name, label(report.outcome));
        const std::string indent(static_cast<size_t>(headLength), ' ');
        if (report.events.empty() || mOptions.full) {
            mOut << fit(head + reason(report), kLineWidth) << "\n";
        }
        if (mOptions.full) {
            for (const ordered_json& event : report.events) printEvent(event, kIndent);
        } else {
            // The first event shares the step's line, the others line up beneath it.
            bool first = true;
            for (const ordered_json& event : report.events) {
                const std::string line = eventLabel(event) + " " + join(paramTokens(event));
                mOut << fit((first ? std::string(head) : indent) + line, kLineWidth) << "\n";
                first = false;
            }
        }
        if (mOptions.verbose) printLog(report.log, std::string(kIndent, ' '));
    }

    void finish(const Summary& summary) override {
        char line[128];
        mOut << "\nkind                                 records   events  dropped   failed\n";
        for (const auto& info : vistel_tools::kinds()) {
            const KindTally& tally = summary.kinds[info.kind];
            if (tally.records == 0) continue;
            snprintf(line, sizeof(line), "%2u %-32s %9d%9d%9d%9d\n", info.kind, info.name,
                     tally.records, tally.events, tally.dropped, tally.failed);
            mOut << line;
        }
        const KindTally& total = summary.total;
        snprintf(line, sizeof(line), "   %-32s %9d%9d%9d%9d\n", "total", total.records,
                 total.events, total.dropped, total.failed);
        mOut << line;
    }

    void dump(const std::vector<std::string>& lines) override {
        mOut << "\n";
        for (const std::string& line : lines) mOut << line << "\n";
    }

  private:
    static const char* label(Outcome outcome) {
        switch (outcome) {
            case Outcome::kNoEvent:
                return "no event";
            case Outcome::kNotInitialised:
                return "no init";
            case Outcome::kNotDispatched:
                return "refused";
            default:
                return outcomeName(outcome);
        }
    }

    // Why a step sent nothing; for a sent step in the full form, its handler's result.
    static std::string reason(const StepReport& report) {
        switch (report.outcome) {
            case Outcome::kSent:
                return "answered 0";
            case Outcome::kNoEvent:
                return "answered 0, nothing to send";
            case Outcome::kDropped:
                return "limit: " + vistel_tools::describeLimit(report.step->kind->limit);
            case Outcome::kNotInitialised:
                return "answered " + std::to_string(report.result) + ", no service library";
            case Outcome::kNotDispatched:
                return "reportMsgImpl queued nothing";
            case Outcome::kFailed:
                break;
        }
        // The primitive that refused logged why.
        for (const LogLine& line : report.log) {
            if (line.priority >= ANDROID_LOG_ERROR) {
                return "answered " + std::to_string(report.result) + ": " + logBody(line.message);
            }
        }
        return "answered " + std::to_string(report.result);
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
};

// ---- JSON -------------------------------------------------------------------------------------

class JsonReportWriter : public ReportWriter {
  public:
    JsonReportWriter(const ReportOptions& options, std::ostream& out)
        : mOptions(options), mOut(out) {}

    void start(const std::string&, const Scenario&, const Replayer&) override {}

    void step(const StepReport& report) override {
        const Step& step = *report.step;
        ordered_json line = {{"step", step.number},     {"at", secondsJson(step.atSeconds)},
                             {"kind", step.kind->kind}, {"name", step.kind->name},
                             {"result", report.result}, {"outcome", outcomeName(report.outcome)},
                             {"events", report.events}};
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
        ordered_json kinds = ordered_json::array();
        for (const auto& info : vistel_tools::kinds()) {
            const KindTally& tally = summary.kinds[info.kind];
            if (tally.records == 0) continue;
            ordered_json entry = {{"kind", info.kind}, {"name", info.name}};
            entry.update(tallyJson(tally));
            kinds.push_back(std::move(entry));
        }
        ordered_json total = tallyJson(summary.total);
        total["kinds"] = std::move(kinds);
        mOut << dumpValue(ordered_json{{"summary", std::move(total)}}) << "\n";
    }

    void dump(const std::vector<std::string>& lines) override {
        mOut << dumpValue(ordered_json{{"dump", lines}}) << "\n";
    }

  private:
    ReportOptions mOptions;
    std::ostream& mOut;
};

}  // namespace

std::unique_ptr<ReportWriter> makeReportWriter(const ReportOptions& options, std::ostream& out) {
    if (options.json) return std::make_unique<JsonReportWriter>(options, out);
    return std::make_unique<TextReportWriter>(options, out);
}

}  // namespace vistel_replay
