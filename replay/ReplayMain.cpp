#include "ReplayMain.h"

#include <KindSwitch.h>
#include <QorThreadManager.h>
#include <android-base/properties.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>

#include "Catalog.h"
#include "Dictionary.h"
#include "RecordJson.h"
#include "ReportWriter.h"
#include "Scenario.h"
#include "TraceCapture.h"

namespace vistel_replay {

namespace {

constexpr char kUsage[] =
        "usage: vistel-replay [--json | --full] [--verbose] [--dump] [--off KINDS]\n"
        "                     [--trace FILE] SCENARIO.json   (- reads stdin)\n"
        "       vistel-replay --events SCENARIO.json\n"
        "       vistel-replay --list [--json]\n"
        "       vistel-replay --describe KIND [--json]\n"
        "       vistel-replay --dictionary [--json | --schema] [SCENARIO.json]\n"
        "       vistel-replay --version\n"
        "\n"
        "Replays camera records through libc_vistel on a virtual clock and shows what the\n"
        "reporting services received and what became of each record: sent, limited (by the\n"
        "rate limiter), no-event, not-initialised, failed, shed or off.\n"
        "\n"
        "  --json          one JSON object per step, then one with the summary (and with\n"
        "                  --dump one with the library's counters), each with its \"type\";\n"
        "                  with --list, --describe and --dictionary, their output as JSON\n"
        "  --events        only the events the services received, one JSON object per line\n"
        "                  as docs/events.schema.json describes it, with the time its record\n"
        "                  was handed over (\"at\"), its \"step\", \"record\" (of a repeated\n"
        "                  step) and \"kind\"\n"
        "  --full          every parameter, nested events indented, each line whole (the\n"
        "                  text form; JSON always has everything)\n"
        "  --verbose       the library's own log lines with each step\n"
        "  --dump          the library's own counters after the summary, as\n"
        "                  VistelManager::dump() writes them\n"
        "  --off KINDS     switches KINDS off as the device's property\n"
        "                  persist.vendor.camera.vistel.off does: numbers or names, separated\n"
        "                  by commas, or all; the library reads it once its first record has\n"
        "                  run, then at most once a minute of the scenario's time\n"
        "  --trace FILE    writes the library's trace sections and counters to FILE, a JSON\n"
        "                  trace the platform's trace viewer opens, on the scenario's clock\n"
        "  --list          the 32 kinds: handler, service, event identifiers, limit and what\n"
        "                  each outcome's future yields\n"
        "  --describe KIND the fields of a kind's record and an example step; KIND is a\n"
        "                  number, a name such as MemLeak, or a handler such as dumpTrace\n"
        "  --dictionary    every event the library sends and every parameter, with the\n"
        "                  record field it comes from, derived by running the library\n"
        "                  (Markdown; with --json one JSON object per event, with\n"
        "                  --schema the JSON Schema of the events as received), with a\n"
        "                  daily budget per source; with a scenario, what a day of its\n"
        "                  shape can bring\n"
        "  --version       the tool's version, which is the library's\n"
        "\n"
        "A scenario is a JSON array of steps such as\n"
        "  {\"at\": 30, \"kind\": \"MemLeak\", \"name\": \"FeatureNode\", \"value1\": 3}\n"
        "with \"at\" in seconds from the start, the record's fields by name, an optional\n"
        "\"repeat\" (the record handed over that many times, all at once or \"spacing\"\n"
        "seconds apart) and an optional \"note\" that is ignored; // comments are allowed.\n"
        "\n"
        "exit status: 0 replayed, 1 bad scenario (nothing replayed) or no dictionary, 2 bad\n"
        "command line\n";

struct CommandLine {
    enum class Action {
        kReplay,
        kList,
        kDescribe,
        kDictionary,
        kHelp,
        kVersion
    } action = Action::kReplay;
    std::string actionOption;  // "--list", ...; empty for a replay
    ReportOptions report;
    std::string offKinds;   // --off: the kinds switched off for the replay
    std::string traceFile;  // --trace: where the trace goes
    bool schema = false;    // --dictionary as JSON Schema
    std::string operand;    // the scenario, or the kind to describe
};

// Options that shape a replay's report, with their flags; --json also applies to the listings.
struct ReportOption {
    const char* name;
    bool ReportOptions::*flag;
};
constexpr ReportOption kReportOptions[] = {{"--json", &ReportOptions::json},
                                           {"--full", &ReportOptions::full},
                                           {"--verbose", &ReportOptions::verbose},
                                           {"--dump", &ReportOptions::dump},
                                           {"--events", &ReportOptions::events}};

struct ActionOption {
    const char* name;
    CommandLine::Action action;
};
constexpr ActionOption kActionOptions[] = {{"--list", CommandLine::Action::kList},
                                           {"--describe", CommandLine::Action::kDescribe},
                                           {"--dictionary", CommandLine::Action::kDictionary},
                                           {"--help", CommandLine::Action::kHelp},
                                           {"-h", CommandLine::Action::kHelp},
                                           {"--version", CommandLine::Action::kVersion}};
constexpr char kSchemaOption[] = "--schema";

// Options of a replay that take a value, the next argument.
struct ValueOption {
    const char* name;
    std::string CommandLine::*value;
};
constexpr ValueOption kValueOptions[] = {{"--off", &CommandLine::offKinds},
                                         {"--trace", &CommandLine::traceFile}};

// The option among all of them that `arg` most likely misspells, or nullptr.
const char* closestOption(const std::string& arg) {
    std::vector<const char*> names = {kSchemaOption};
    for (const ValueOption& option : kValueOptions) names.push_back(option.name);
    for (const ReportOption& option : kReportOptions) names.push_back(option.name);
    for (const ActionOption& option : kActionOptions) names.push_back(option.name);
    return vistel_tools::closestName(arg, names);
}

// What is wrong with the combination of options, or "".
std::string checkCombination(const CommandLine& command) {
    const ReportOptions& report = command.report;
    if (command.schema && command.action != CommandLine::Action::kDictionary) {
        return "--schema applies to --dictionary";
    }
    if (command.schema && report.json) return "--schema and --json cannot be combined";
    for (const ValueOption& option : kValueOptions) {
        if (command.action != CommandLine::Action::kReplay && !(command.*option.value).empty()) {
            return std::string(option.name) + " applies to a replay, not to " + command.actionOption;
        }
    }
    if (command.action == CommandLine::Action::kReplay) {
        if (report.events) {
            for (const ReportOption& option : kReportOptions) {
                if (report.*option.flag && option.flag != &ReportOptions::events) {
                    return std::string("--events writes the events alone; ") + option.name +
                           " shapes a report";
                }
            }
        }
        return report.json && report.full
                       ? "--full shapes the text report; --json always has every parameter"
                       : "";
    }
    for (const ReportOption& option : kReportOptions) {
        if (report.*option.flag && option.flag != &ReportOptions::json) {
            return std::string(option.name) + " applies to a replay, not to " + command.actionOption;
        }
    }
    return "";
}

// The parsed command line, or nullopt with what is wrong in *problem.
std::optional<CommandLine> parseCommandLine(const std::vector<std::string>& args,
                                            std::string* problem) {
    CommandLine command;
    std::vector<std::string> operands;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        const auto valued = std::find_if(std::begin(kValueOptions), std::end(kValueOptions),
                                         [&](const ValueOption& o) { return arg == o.name; });
        if (valued != std::end(kValueOptions)) {
            if (i + 1 == args.size() || args[i + 1].empty()) {
                *problem = arg + " needs a value";
                return std::nullopt;
            }
            command.*valued->value = args[++i];
            continue;
        }
        const auto report = std::find_if(std::begin(kReportOptions), std::end(kReportOptions),
                                         [&](const ReportOption& o) { return arg == o.name; });
        const auto action = std::find_if(std::begin(kActionOptions), std::end(kActionOptions),
                                         [&](const ActionOption& o) { return arg == o.name; });
        if (report != std::end(kReportOptions)) {
            command.report.*report->flag = true;
        } else if (action != std::end(kActionOptions)) {
            // --help answers whatever comes with it.
            if (command.action == CommandLine::Action::kHelp) continue;
            if (action->action != CommandLine::Action::kHelp &&
                command.action != CommandLine::Action::kReplay && command.actionOption != arg) {
                *problem = command.actionOption + " and " + arg + " cannot be combined";
                return std::nullopt;
            }
            command.action = action->action;
            command.actionOption = arg;
        } else if (arg == kSchemaOption) {
            command.schema = true;
        } else if (arg.size() > 1 && arg[0] == '-') {
            *problem = "unknown option " + vistel_tools::cutText(arg, kMaxErrorLength);
            if (const char* closest = closestOption(arg)) {
                *problem += std::string(" (did you mean ") + closest + "?)";
            }
            return std::nullopt;
        } else {
            operands.push_back(arg);
        }
    }
    if (command.action == CommandLine::Action::kHelp) return command;
    *problem = checkCombination(command);
    if (!problem->empty()) return std::nullopt;
    const size_t wanted = command.action == CommandLine::Action::kReplay ||
                                          command.action == CommandLine::Action::kDescribe
                                  ? 1
                                  : 0;
    // --dictionary may take the scenario whose shape its budget's day has.
    const bool withDay = command.action == CommandLine::Action::kDictionary && operands.size() == 1;
    if (operands.size() != wanted && !withDay) {
        *problem = std::string("expected ") + (wanted == 1 ? "one operand" : "no operand") +
                   ", got " + std::to_string(operands.size());
        return std::nullopt;
    }
    if (!operands.empty()) command.operand = operands[0];
    return command;
}

// The first word of an --off list that names no kind, or "": the words the library reads in its
// property, separated by commas or spaces, each a kind's number (without leading zeros) or name,
// or all.
std::string unknownOffKind(const std::string& list) {
    std::string word;
    std::string words = list;
    std::replace(words.begin(), words.end(), ',', ' ');
    std::istringstream read(words);
    while (read >> word) {
        if (word == "all") continue;
        const vistel_tools::KindInfo* kind = vistel_tools::findKind(word);
        // findKind also knows handlers, and numbers with leading zeros, which the property does
        // not.
        if (kind == nullptr || word == kind->handler || (word.size() > 1 && word[0] == '0')) {
            return word;
        }
    }
    return "";
}

int describe(const std::string& kindText, bool json, std::ostream& out, std::ostream& err) {
    const vistel_tools::KindInfo* kind = vistel_tools::findKind(kindText);
    if (kind == nullptr) {
        err << "vistel-replay: unknown kind \"" << vistel_tools::cutText(kindText, kMaxErrorLength)
            << "\"";
        if (const char* closest = vistel_tools::closestKindName(kindText)) {
            err << " (did you mean \"" << closest << "\"?)";
        }
        err << "; vistel-replay --list shows them\n";
        return kExitUsage;
    }
    printKindDescription(*kind, out, json);
    return kExitOk;
}

// The scenario file `operand` names (- for standard input), or nullopt after saying on err why
// nothing can be replayed.
std::optional<Scenario> readScenario(const std::string& operand, std::ostream& err) {
    // As messages and the report name it.
    const std::string source = operand == "-" ? "standard input" : operand;
    std::string text;
    const std::string unreadable = readScenarioText(operand, &text);
    if (!unreadable.empty()) {
        err << source << ": " << unreadable << "\n";
        return std::nullopt;
    }
    Scenario scenario = parseScenario(text);
    if (!scenario.errors.empty()) {
        for (const std::string& error : scenario.errors) err << source << ": " << error << "\n";
        err << source << ": nothing was replayed\n";
        return std::nullopt;
    }
    return scenario;
}

int printDictionary(const CommandLine& command, std::ostream& out, std::ostream& err) {
    std::optional<Scenario> day;
    if (!command.operand.empty()) {
        day = readScenario(command.operand, err);
        if (!day) return kExitBadInput;
    }
    const Dictionary dictionary = deriveDictionary(day ? &*day : nullptr, command.operand);
    if (!dictionary.errors.empty()) {
        for (const std::string& error : dictionary.errors) {
            err << "vistel-replay: " << error << "\n";
        }
        err << "vistel-replay: the dictionary could not be derived\n";
        return kExitBadInput;
    }
    if (command.schema) {
        printEventSchema(dictionary, out);
    } else if (command.report.json) {
        printDictionaryJson(dictionary, out);
    } else {
        printDictionaryMarkdown(dictionary, out);
    }
    return kExitOk;
}

int replay(const CommandLine& command, std::ostream& out, std::ostream& err) {
    const std::optional<Scenario> scenario = readScenario(command.operand, err);
    if (!scenario) return kExitBadInput;

    if (!command.offKinds.empty()) {
        const std::string unknown = unknownOffKind(command.offKinds);
        if (!unknown.empty()) {
            err << "vistel-replay: --off: unknown kind \""
                << vistel_tools::cutText(unknown, kMaxErrorLength) << "\"";
            if (const char* closest = vistel_tools::closestKindName(unknown)) {
                err << " (did you mean \"" << closest << "\"?)";
            }
            err << "; numbers or names of kinds, or all\n";
            return kExitUsage;
        }
    }
    std::ofstream trace;
    if (!command.traceFile.empty()) {
        trace.open(command.traceFile);
        if (!trace) {
            err << "vistel-replay: --trace: cannot write " << command.traceFile << "\n";
            return kExitUsage;
        }
    }
    // Set for this replay only: an earlier replay of the process may have switched kinds off. Set
    // while no worker reads it: the host's property store has no lock of its own.
    QorThreadManager::GetInstance()->waitIdle();
    if (command.offKinds.size() >= orv::KindSwitch::kValueMax ||
        !android::base::SetProperty(orv::KindSwitch::kProperty, command.offKinds)) {
        err << "vistel-replay: --off: the property could not be set (at most "
            << orv::KindSwitch::kValueMax - 1 << " characters, as on a device)\n";
        return kExitUsage;
    }
    if (trace.is_open()) tracecapture::start();

    Replayer replayer;
    std::unique_ptr<ReportWriter> writer = makeReportWriter(command.report, out);
    writer->start(command.operand == "-" ? "standard input" : command.operand, *scenario, replayer);
    Summary summary;
    for (const Step& step : scenario->steps) {
        const StepReport report = replayer.run(step);
        summary.add(report);
        writer->step(report);
    }
    writer->finish(summary);
    if (command.report.dump) writer->dump();
    if (trace.is_open()) {
        trace << tracecapture::toTraceEventJson(tracecapture::stop());
        trace.close();
        if (!trace) {
            err << "vistel-replay: --trace: cannot write " << command.traceFile << "\n";
            return kExitBadInput;
        }
    }
    return kExitOk;
}

}  // namespace

int replayMain(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    std::string problem;
    const std::optional<CommandLine> command = parseCommandLine(args, &problem);
    if (!command) {
        // One line: the usage would push the reason off the screen.
        err << "vistel-replay: " << problem << "; try vistel-replay --help\n";
        return kExitUsage;
    }
    switch (command->action) {
        case CommandLine::Action::kHelp:
            out << kUsage;
            return kExitOk;
        case CommandLine::Action::kVersion:
            out << "vistel-replay " << VISTEL_VERSION << "\n";
            return kExitOk;
        case CommandLine::Action::kList:
            printKindList(out, command->report.json);
            return kExitOk;
        case CommandLine::Action::kDescribe:
            return describe(command->operand, command->report.json, out, err);
        case CommandLine::Action::kDictionary:
            return printDictionary(*command, out, err);
        case CommandLine::Action::kReplay:
            break;
    }
    return replay(*command, out, err);
}

}  // namespace vistel_replay
