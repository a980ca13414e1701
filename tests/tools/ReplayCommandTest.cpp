// vistel-replay's command line, run in-process: bad scenarios are refused whole with a message
// naming the step and the field, bad command lines with the usage, and a step the service
// refuses is reported as failed.
#include <VistelHostService.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <tuple>

#include "LibraryDump.h"
#include "ReplayMain.h"
#include "ReportWriter.h"

namespace vistel_replay {
namespace {

struct ToolRun {
    int status;
    std::string out;
    std::string err;
};

ToolRun runTool(const std::vector<std::string>& args) {
    std::ostringstream out, err;
    const int status = replayMain(args, out, err);
    return {status, out.str(), err.str()};
}

std::string writeScenario(const std::string& text) {
    const std::string path = ::testing::TempDir() + "replay-command-test.json";
    std::ofstream(path) << text;
    return path;
}

// Refused with exit status 1, these lines on stderr (each behind the file name) and nothing on
// stdout: no step of it ran, however late the bad step. A file that is not JSON has no steps.
void expectRefused(const std::string& scenario, const std::vector<std::string>& errors) {
    SCOPED_TRACE(scenario);
    vistelhost::reset();
    const std::string path = writeScenario(scenario);
    const ToolRun run = runTool({"--json", path});
    EXPECT_EQ(run.status, kExitBadInput);
    EXPECT_EQ(run.out, "");
    std::string expected;
    for (const std::string& error : errors) expected += path + ": " + error + "\n";
    if (errors[0].rfind("not valid JSON", 0) != 0) expected += path + ": nothing was replayed\n";
    EXPECT_EQ(run.err, expected);
    EXPECT_TRUE(vistelhost::sentEvents().empty());
    remove(path.c_str());
}

TEST(ReplayCommandTest, BadScenariosAreRefusedWhole) {
    const std::pair<const char*, const char*> kScenarioErrors[] = {
            {R"({"at": 0})", "a scenario is a JSON array of steps, got object"},
            {R"([{"at": 0,}])",
             "not valid JSON: parse error at line 1, column 11: syntax error "
             "while parsing object key - unexpected '}'; expected string literal"},
            {"[3]", "step 1: expected an object, got 3"},
            {R"([{"at": 0}])", R"(step 1: missing "kind")"},
            {R"([{"at": 0, "kind": "MemLeek"}])",
             R"(step 1: unknown kind "MemLeek" (vistel-replay --list shows them))"},
            {R"([{"at": 0, "kind": "memleak"}])",
             R"(step 1: unknown kind "memleak" (did you mean "MemLeak"?))"},
            {R"([{"at": 0, "kind": 32}])",
             "step 1: unknown kind 32 (vistel-replay --list shows them)"},
            {R"([{"at": 0, "kind": -1}])",
             R"(step 1: "kind" must be a kind's number or name, got -1)"},
            {R"([{"kind": 0}])", R"(step 1 (MemLeak): missing "at" (seconds from the start))"},
            {R"([{"at": "0", "kind": 0}])",
             R"(step 1 (MemLeak): "at" must be a number of seconds, got "0")"},
            {R"([{"at": -1, "kind": 0}])",
             R"(step 1 (MemLeak): "at" -1 is outside 0 to 31536000 s)"},
            {R"([{"at": 10, "kind": 0}, {"at": 9.5, "kind": "dumpTrace"}])",
             R"(step 2 (DumpTrace): "at" 9.5 is earlier than the step before it (10))"},
            {R"([{"at": 0, "kind": 0, "note": 1}])", R"(step 1 (MemLeak): "note" must be a string)"},
    };
    for (const auto& [scenario, error] : kScenarioErrors) expectRefused(scenario, {error});

    // One step of a kind with one bad field: the kind, the field, what follows `field "`.
    const std::tuple<const char*, const char*, const char*> kFieldErrors[] = {
            {"MemLeak", R"("nmae": "x")", R"(nmae": no such field in vistelMemLeak)"},
            {"MemLeak", R"("value1": "3")", R"(value1": expected an integer (int32), got "3")"},
            {"MemLeak", R"("value1": 1.5)", R"(value1": expected an integer (int32), got 1.5)"},
            {"MemLeak", R"("value1": 2147483648)",
             R"(value1": 2147483648 is out of range for int32 (-2147483648 to 2147483647))"},
            {"MemLeak", R"("secondName": "123456789012")",
             R"(secondName": 12 bytes do not fit char[12] (11 at most, after it the NUL))"},
            {"MemLeak", R"("name": "a\u0000b")", R"(name": the text holds a NUL byte)"},
            {"CaptureBufferRefLeak", R"("flag": 256)",
             R"(flag": 256 is out of range for uint8 (0 to 255))"},
            {"StatisticData", R"("hdr_5": -32769)",
             R"(hdr_5": -32769 is out of range for int16 (-32768 to 32767))"},
            {"SnapshotBigdataV2", R"("expoList": [1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17])",
             R"(expoList": 17 elements do not fit uint32[16])"},
            {"SnapshotBigdataV2", R"("perf": [{}, {"algoName": true}])",
             R"(perf[1].algoName": expected a string (char[32]), got true)"},
            {"SnapshotBigdataV2", R"("zoomRatio": 1e39)",
             R"(zoomRatio": 1e+39 is out of range for float)"},
            {"MemoryExceedThreshold", R"("processes": [3])",
             R"(processes[0]": expected an object (vistelProcessMemInfo), got 3)"},
            {"MemoryAllocTimeout", R"("allocBuffers": [{}, {"timeStamp": -1}])",
             R"(allocBuffers[1].timeStamp": -1 is out of range for uint64 (0 to 18446744073709551615))"},
            {"BootTimeout", R"("bootNodes": [{"stageCosts": {"Open": [{"cost": "1"}]}}])",
             R"(bootNodes[0].stageCosts.Open[0].cost": expected a number (float), got "1")"},
            {"DailyTempRise", R"("costEntries": "x")",
             R"(costEntries": expected an array (vector<string>), got "x")"},
    };
    for (const auto& [kind, field, error] : kFieldErrors) {
        expectRefused(std::string(R"([{"at": 0, "kind": ")") + kind + "\", " + field + "}]",
                      {std::string("step 1 (") + kind + "): field \"" + error});
    }
}

TEST(ReplayCommandTest, EveryBadStepIsListedAndNoneRuns) {
    expectRefused(R"([{"at": 0, "kind": "MemLeak", "name": "FeatureNode"},
                      {"at": 1, "kind": "MemLeak", "value2": "x"},
                      {"at": 2, "kind": "DumpTrace", "traceName": "Preview"},
                      {"at": 3, "kind": "Nope"}])",
                  {R"(step 2 (MemLeak): field "value2": expected an integer (int32), got "x")",
                   R"(step 4: unknown kind "Nope" (vistel-replay --list shows them))"});
}

TEST(ReplayCommandTest, CommandLines) {
    const std::string scenario = writeScenario("[]");
    const struct {
        std::vector<std::string> args;
        int status;
        std::string out;  // what stdout starts with
        std::string err;  // what stderr starts with
    } kCases[] = {
            {{}, kExitUsage, "", "vistel-replay: expected one operand, got 0\nusage:"},
            {{"--bad", scenario}, kExitUsage, "", "vistel-replay: unknown option --bad\nusage:"},
            {{scenario, scenario}, kExitUsage, "", "vistel-replay: expected one operand, got 2\n"},
            {{"--list", scenario}, kExitUsage, "", "vistel-replay: expected no operand, got 1\n"},
            {{"--describe"}, kExitUsage, "", "vistel-replay: expected one operand, got 0\n"},
            {{"--describe", "sendeventmemleak"},
             kExitUsage,
             "",
             "vistel-replay: unknown kind \"sendeventmemleak\" (did you mean "
             "\"sendEventMemLeak\"?); vistel-replay --list shows them\n"},
            {{"/nonexistent/x.json"}, kExitBadInput, "", "/nonexistent/x.json: cannot be read\n"},
            {{"--help"}, kExitOk, "usage: vistel-replay", ""},
            {{"--list"}, kExitOk, "kind  name / handler", ""},
            {{"--describe", "dumpTrace"},
             kExitOk,
             "kind 26: DumpTrace\n  handler  dumpTrace\n  record   vistelDumpTrace\n"
             "  service  jank print, events type 3, id 474\n"
             "  limit    LimitDumpSysTraceError, 360 s per kind\n",
             ""},
            {{"--describe", "7"},
             kExitOk,
             "kind 7: AlgoProcessTimeoutWarning\n  handler  sendEventAlgoProcessTimeoutWarning\n"
             "  record   vistelAlgoProcessTimeoutWarning (body vistelAlgoProcessTimeout)\n",
             ""},
            {{"--json", scenario},
             kExitOk,
             R"({"summary":{"records":0,"events":0,"dropped":0,"failed":0,"kinds":[]}})",
             ""},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(testing::PrintToString(c.args));
        const ToolRun run = runTool(c.args);
        EXPECT_EQ(run.status, c.status);
        EXPECT_EQ(run.out.substr(0, c.out.size()), c.out);
        EXPECT_EQ(c.err.empty() ? run.err : run.err.substr(0, c.err.size()), c.err);
    }
    const std::string list = runTool({"--list"}).out;
    EXPECT_EQ(std::count(list.begin(), list.end(), '\n'), 1 + 2 * orv::kVistelEventCount);
    remove(scenario.c_str());
}

// Over a camera day the library's own counters move exactly as the replay counted, kind by kind:
// every record dispatched, every event the services received, every drop. --dump shows them
// after the summary, under the tools' names of the kinds.
TEST(ReplayCommandTest, LibraryCountersAgreeWithTheReplay) {
    using vistel_tools::DumpRow;
    const vistel_tools::LibraryDump before =
            vistel_tools::parseLibraryDump(vistel_tools::libraryDumpLines());
    const ToolRun run = runTool({"--json", "--dump", VISTEL_CAMERA_DAY});
    ASSERT_EQ(run.status, kExitOk) << run.err;
    std::istringstream lines(run.out);
    std::vector<nlohmann::json> objects;
    for (std::string line; std::getline(lines, line);) {
        objects.push_back(nlohmann::json::parse(line));
    }
    ASSERT_GE(objects.size(), 2u);
    const nlohmann::json& summary = objects[objects.size() - 2].at("summary");
    const vistel_tools::LibraryDump after = vistel_tools::parseLibraryDump(
            objects.back().at("dump").get<std::vector<std::string>>());
    EXPECT_EQ(after.unparsed, std::vector<std::string>());
    EXPECT_EQ(after.service, "vistel service: bound (libvistel.so)");

    std::map<uint32_t, DumpRow> replayed;
    for (const auto& kind : summary.at("kinds")) {
        DumpRow& row = replayed[kind.at("kind").get<uint32_t>()];
        row.records = kind.at("records");
        row.events = kind.at("events");
        row.limited = kind.at("dropped");
        row.failed = kind.at("failed");  // with the service bound, nothing is not initialised
    }
    EXPECT_EQ(replayed.size(), orv::kVistelEventCount) << "the day no longer covers every kind";
    for (const vistel_tools::KindInfo& info : vistel_tools::kinds()) {
        const DumpRow& expected = replayed[info.kind];
        const DumpRow counted = after.kinds.at(info.kind) - before.kinds.at(info.kind);
        EXPECT_EQ(counted.records, expected.records) << info.name;
        EXPECT_EQ(counted.events, expected.events) << info.name;
        EXPECT_EQ(counted.limited, expected.limited) << info.name;
        EXPECT_EQ(counted.failed + counted.notInitialised, expected.failed) << info.name;
    }
    EXPECT_EQ((after.direct - before.direct).sent, 0u);
    EXPECT_EQ((after.total - before.total).records, summary.at("records").get<uint64_t>());
}

// The identifiers of `params`' nested events, at any depth; `untyped` collects every parameter
// of an unknown type, or with neither a field nor how it is computed.
void collectNested(const nlohmann::json& params, std::set<long>& ids,
                   std::vector<std::string>& untyped) {
    static const std::set<std::string> kTypes = {"int32", "int64", "float",  "text",
                                                 "decimal text", "list", "events"};
    for (const auto& param : params) {
        const bool explained = param.contains("field") != param.contains("computed");
        if (kTypes.count(param.value("type", "")) == 0 || !explained) {
            untyped.push_back(param.dump());
        }
        if (!param.contains("params")) continue;
        ids.insert(param.at("id").get<long>());
        collectNested(param["params"], ids, untyped);
    }
}

// The limit the dictionary found on the virtual clock, as the kind table (what --list,
// --describe and the replay's lines show) writes it: "limitEventMemLeak, 3600 s per name".
std::string asTableText(const nlohmann::json& limit) {
    if (limit.at("policy").is_null()) return vistel_tools::describeLimit({nullptr, 0, ""});
    const nlohmann::json& per = limit.at("per");
    std::string scope = per.empty() ? "kind" : per.size() > 1 ? "(" : "";
    for (size_t i = 0; i < per.size(); ++i) {
        scope += (i == 0 ? "" : ", ") + per[i].at("field").get<std::string>();
        if (per[i].contains("as")) scope += " (its bytes as text)";
    }
    if (per.size() > 1) scope += ")";
    const std::string policy = limit["policy"];
    return vistel_tools::describeLimit(
            {policy.c_str(), limit.at("seconds").get<int>(), scope.c_str()});
}

// The dictionary the tool derives covers every event identifier the kind table says each kind
// sends, nested events and the jank print included, and every parameter has a known type and
// either a field or how it is computed. The limits it finds by running the library are those
// of the kind table, and direct sendBootMsg calls are never limited.
TEST(ReplayCommandTest, DictionaryCoversEveryKindsEventsAndLimits) {
    const ToolRun run = runTool({"--dictionary", "--json"});
    ASSERT_EQ(run.status, kExitOk) << run.err;
    std::map<uint32_t, std::set<long>> sentBy;
    std::map<uint32_t, nlohmann::json> limitOf;
    std::vector<nlohmann::json> callLimits;
    std::vector<std::string> untyped;
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_EQ(line.rfind("{\"id\": ", 0), 0u) << line;
        const nlohmann::json event = nlohmann::json::parse(line);
        std::set<long> ids;
        if (!event.at("id").is_null()) ids.insert(event["id"].get<long>());
        collectNested(event.at("params"), ids, untyped);
        for (const auto& kind : event.at("kinds")) sentBy[kind].insert(ids.begin(), ids.end());
        for (const auto& limit : event.at("limits")) {
            if (limit.contains("call")) {
                callLimits.push_back(limit);
            } else {
                limitOf[limit.at("kind").get<uint32_t>()] = limit;
            }
        }
    }
    EXPECT_EQ(untyped, std::vector<std::string>());
    EXPECT_EQ(callLimits, std::vector<nlohmann::json>({{{"call", "sendBootMsg"},
                                                        {"policy", nullptr}}}));
    for (const vistel_tools::KindInfo& info : vistel_tools::kinds()) {
        EXPECT_EQ(asTableText(limitOf.at(info.kind)), vistel_tools::describeLimit(info.limit))
                << info.name;
    }
    for (const vistel_tools::KindInfo& info : vistel_tools::kinds()) {
        std::set<long> expected;
        const std::string events = info.events;
        if (info.service == vistel_tools::Service::kJankPrint) {
            expected.insert(std::stol(events.substr(events.find("id ") + 3)));  // "type 3, id 474"
        } else {
            // "918009013 [918009012 [918009010]]", "918009009 [918009008] per 60 entries", "-".
            std::istringstream words(events);
            for (std::string word; words >> word;) {
                word.erase(0, word.find_first_not_of('['));
                if (word.size() >= 9 && isdigit(static_cast<unsigned char>(word[0]))) {
                    expected.insert(std::stol(word));
                }
            }
        }
        EXPECT_EQ(sentBy[info.kind], expected) << info.name;
    }
}

// A service that refuses a parameter or a send makes the step "failed", with the refusing
// primitive's own error line as the reason, and leaves no event object behind.
TEST(ReplayCommandTest, ServiceRefusalIsAFailedStep) {
    const Scenario scenario = loadScenario(nlohmann::ordered_json::parse(
            R"([{"at": 0, "kind": "HDRPData", "hasface": 1}, {"at": 1, "kind": "HDRPData"}])"));
    ASSERT_TRUE(scenario.errors.empty());
    Replayer replayer;
    ASSERT_TRUE(replayer.serviceLoaded());
    // The text line is cut at the terminal width; the start of the reason says enough.
    const std::pair<void (*)(), const char*> kCases[] = {
            {[] { vistelhost::failParamCall(3); }, "failed   answered -1: setEventParam() error"},
            {[] { vistelhost::failNextSend(); }, "failed   answered -1: sendEvent() error"},
    };
    for (const auto& [inject, line] : kCases) {
        SCOPED_TRACE(line);
        inject();
        const StepReport report = replayer.run(scenario.steps[0]);
        EXPECT_EQ(report.result, -1);
        EXPECT_EQ(report.outcome, Outcome::kFailed);
        EXPECT_TRUE(report.events.empty());
        EXPECT_EQ(vistelhost::liveObjects(), 0);
        std::ostringstream text;
        makeReportWriter(ReportOptions{}, text)->step(report);
        EXPECT_NE(text.str().find(line), std::string::npos) << text.str();
    }
    // Nothing stays armed: the next step is sent.
    EXPECT_EQ(replayer.run(scenario.steps[1]).outcome, Outcome::kSent);
}

}  // namespace
}  // namespace vistel_replay
