#include "ReplayMain.h"

#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>

#include "Catalog.h"
#include "Dictionary.h"
#include "LibraryDump.h"
#include "ReportWriter.h"
#include "Scenario.h"

namespace vistel_replay {

namespace {

constexpr char kUsage[] =
        "usage: vistel-replay [--json] [--full] [--verbose] [--dump] SCENARIO.json"
        "   (- reads stdin)\n"
        "       vistel-replay --list\n"
        "       vistel-replay --describe KIND\n"
        "       vistel-replay --dictionary [--json | --schema]\n"
        "\n"
        "Replays camera records through libc_vistel on a virtual clock and shows what the\n"
        "reporting services received and what the rate limiter dropped.\n"
        "\n"
        "  --json          one JSON object per step, then one with the summary\n"
        "  --full          every parameter, nested events indented (the text form)\n"
        "  --verbose       the library's own log lines with each step\n"
        "  --dump          the library's own counters after the summary, as\n"
        "                  VistelManager::dump() writes them\n"
        "  --list          the 32 kinds: handler, service, event identifiers, limit\n"
        "  --describe KIND the fields of a kind's record and an example step; KIND is a\n"
        "                  number, a name such as MemLeak, or a handler such as dumpTrace\n"
        "  --dictionary    every event the library sends and every parameter, with the\n"
        "                  record field it comes from, derived by running the library\n"
        "                  (Markdown; with --json one JSON object per event, with\n"
        "                  --schema the JSON Schema of the events as received)\n"
        "\n"
        "A scenario is a JSON array of steps such as\n"
        "  {\"at\": 30, \"kind\": \"MemLeak\", \"name\": \"FeatureNode\", \"value1\": 3}\n"
        "with \"at\" in seconds from the start, the record's fields by name, and an optional\n"
        "\"note\" that is ignored; // comments are allowed.\n"
        "\n"
        "exit status: 0 replayed, 1 bad scenario (nothing replayed) or no dictionary, 2 bad\n"
        "command line\n";

struct CommandLine {
    enum class Action { kReplay, kList, kDescribe, kDictionary, kHelp } action = Action::kReplay;
    ReportOptions report;
    bool schema = false;  // --dictionary as JSON Schema
    std::string operand;  // the scenario, or the kind to describe
};

// The parsed command line, or nullopt after writing what is wrong to err.
std::optional<CommandLine> parseCommandLine(const std::vector<std::string>& args,
                                            std::ostream& err) {
    CommandLine command;
    std::vector<std::string> operands;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--json") {
            command.report.json = true;
        } else if (arg == "--full") {
            command.report.full = true;
        } else if (arg == "--verbose") {
            command.report.verbose = true;
        } else if (arg == "--dump") {
            command.report.dump = true;
        } else if (arg == "--list") {
            command.action = CommandLine::Action::kList;
        } else if (arg == "--describe") {
            command.action = CommandLine::Action::kDescribe;
        } else if (arg == "--dictionary") {
            command.action = CommandLine::Action::kDictionary;
        } else if (arg == "--schema") {
            command.schema = true;
        } else if (arg == "--help" || arg == "-h") {
            command.action = CommandLine::Action::kHelp;
        } else if (arg.size() > 1 && arg[0] == '-') {
            err << "vistel-replay: unknown option " << arg << "\n";
            return std::nullopt;
        } else {
            operands.push_back(arg);
        }
    }
    const size_t wanted = command.action == CommandLine::Action::kReplay ||
                                          command.action == CommandLine::Action::kDescribe
                                  ? 1
                                  : 0;
    if (operands.size() != wanted) {
        err << "vistel-replay: expected " << (wanted == 1 ? "one operand" : "no operand")
            << ", got " << operands.size() << "\n";
        return std::nullopt;
    }
    if (wanted == 1) command.operand = operands[0];
    return command;
}

int describe(const std::string& kindText, std::ostream& out, std::ostream& err) {
    const vistel_tools::KindInfo* kind = vistel_tools::findKind(kindText);
    if (kind == nullptr) {
        err << "vistel-replay: unknown kind \"" << kindText << "\"";
        if (const char* nearest = vistel_tools::kindNameIgnoringCase(kindText)) {
            err << " (did you mean \"" << nearest << "\"?)";
        }
        err << "; vistel-replay --list shows them\n";
        return kExitUsage;
    }
    printKindDescription(*kind, out);
    return kExitOk;
}

int printDictionary(const CommandLine& command, std::ostream& out, std::ostream& err) {
    const Dictionary dictionary = deriveDictionary();
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
    const std::string& source = command.operand;
    std::string text;
    if (source == "-") {
        text.assign(std::istreambuf_iterator<char>(std::cin), {});
    } else {
        std::ifstream file(source, std::ios::binary);
        if (!file) {
            err << source << ": cannot be read\n";
            return kExitBadInput;
        }
        text.assign(std::istreambuf_iterator<char>(file), {});
    }
    nlohmann::ordered_json document;
    try {
        document = nlohmann::ordered_json::parse(text, nullptr, true, /*ignore_comments=*/true);
    } catch (const nlohmann::json::parse_error& error) {
        // what() is "[json.exception.parse_error.101] parse error at line 3, column 5: ...".
        const std::string what = error.what();
        err << source << ": not valid JSON: " << what.substr(what.find("] ") + 2) << "\n";
        return kExitBadInput;
    }
    const Scenario scenario = loadScenario(document);
    if (!scenario.errors.empty()) {
        for (const std::string& error : scenario.errors) err << source << ": " << error << "\n";
        err << source << ": nothing was replayed\n";
        return kExitBadInput;
    }

    Replayer replayer;
    std::unique_ptr<ReportWriter> writer = makeReportWriter(command.report, out);
    writer->start(source, scenario, replayer);
    Summary summary;
    for (const Step& step : scenario.steps) {
        const StepReport report = replayer.run(step);
        summary.add(report);
        writer->step(report);
    }
    writer->finish(summary);
    if (command.report.dump) writer->dump(vistel_tools::libraryDumpLines());
    return kExitOk;
}

}  // namespace

int replayMain(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    const std::optional<CommandLine> command = parseCommandLine(args, err);
    if (!command) {
        err << kUsage;
        return kExitUsage;
    }
    switch (command->action) {
        case CommandLine::Action::kHelp:
            out << kUsage;
            return kExitOk;
        case CommandLine::Action::kList:
            printKindList(out);
            return kExitOk;
        case CommandLine::Action::kDescribe:
            return describe(command->operand, out, err);
        case CommandLine::Action::kDictionary:
            return printDictionary(*command, out, err);
        case CommandLine::Action::kReplay:
            break;
    }
    return replay(*command, out, err);
}

}  // namespace vistel_replay
