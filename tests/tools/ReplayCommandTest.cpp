// vistel-replay's command line, run in-process: bad scenarios are refused whole with a message
// naming the step and the field, bad command lines with the usage, and a step the service
// refuses is reported as failed.
#include <VistelHostService.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

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
    std::ostringstream out;
    std::ostringstream err;
    const int status = replayMain(args, out, err);
    return {status, out.str(), err.str()};
}

std::string writeScenario(const std::string& text) {
    const std::string path = ::testing::TempDir() + "replay-command-test.json";
    std::ofstream(path) << text;
    return path;
}

// Each bad scenario is refused with exit status 1, these lines on stderr (each behind the file
// name) and nothing on stdout: no step of it ran, however late the bad step.
TEST(ReplayCommandTest, BadScenariosAreRefusedWhole) {
    const struct {
        const char* scenario;
        const char* error;
    } kCases[] = {
            {R"({"at": 0})", "a scenario is a JSON array of steps, got object"},
            {R"([{"at": 0,}])",
             "not valid JSON: parse error at line 1, column 11: syntax error while parsing "
             "object key - unexpected '}'; expected string literal"},
            {"[3]", "step 1: expected an object, got 3"},
            {R"([{"at": 0}])", "step 1: missing \"kind\""},
            {R"([{"at": 0, "kind": "MemLeek"}])",
             "step 1: unknown kind \"MemLeek\" (vistel-replay --list shows them)"},
            {R"([{"at": 0, "kind": "memleak"}])",
             "step 1: unknown kind \"memleak\" (did you mean \"MemLeak\"?)"},
            {R"([{"at": 0, "kind": 32}])",
             "step 1: unknown kind 32 (vistel-replay --list shows them)"},
            {R"([{"at": 0, "kind": -1}])",
             "step 1: \"kind\" must be a kind's number or name, got -1"},
            {R"([{"kind": 0}])", "step 1 (MemLeak): missing \"at\" (seconds from the start)"},
            {R"([{"at": "0", "kind": 0}])",
             "step 1 (MemLeak): \"at\" must be a number of seconds, got \"0\""},
            {R"([{"at": -1, "kind": 0}])",
             "step 1 (MemLeak): \"at\" -1 is outside 0 to 31536000 s"},
            {R"([{"at": 10, "kind": 0}, {"at": 9.5, "kind": "dumpTrace"}])",
             "step 2 (DumpTrace): \"at\" 9.5 is earlier than the step before it (10)"},
            {R"([{"at": 0, "kind": 0, "note": 1}])", "step 1 (MemLeak): \"note\" must be a string"},
            {R"([{"at": 0, "kind": 0, "nmae": "x"}])",
             "step 1 (MemLeak): field \"nmae\": no such field in vistelMemLeak"},
            {R"([{"at": 0, "kind": 0, "value1": "3"}])",
             "step 1 (MemLeak): field \"value1\": expected an integer (int32), got \"3\""},
            {R"([{"at": 0, "kind": 0, "value1": 1.5}])",
             "step 1 (MemLeak): field \"value1\": expected an integer (int32), got 1.5"},
            {R"([{"at": 0, "kind": 0, "value1": 2147483648}])",
             "step 1 (MemLeak): field \"value1\": 2147483648 is out of range for int32 "
             "(-2147483648 to 2147483647)"},
            {R"([{"at": 0, "kind": 0, "secondName": "123456789012"}])",
             "step 1 (MemLeak): field \"secondName\": 12 bytes do not fit char[12] (11 at most, "
             "after it the NUL)"},
            {R"([{"at": 0, "kind": 0, "name": "a\u0000b"}])",
             "step 1 (MemLeak): field \"name\": the text holds a NUL byte"},
            {R"([{"at": 0, "kind": 6, "flag": 256}])",
             "step 1 (CaptureBufferRefLeak): field \"flag\": 256 is out of range for uint8 "
             "(0 to 255)"},
            {R"([{"at": 0, "kind": 15, "hdr_5": -32769}])",
             "step 1 (StatisticData): field \"hdr_5\": -32769 is out of range for int16 "
             "(-32768 to 32767)"},
            {R"([{"at": 0, "kind": 17, "expoList": [1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17]}])",
             "step 1 (SnapshotBigdataV2): field \"expoList\": 17 elements do not fit uint32[16]"},
            {R"([{"at": 0, "kind": 17, "perf": [{}, {"algoName": true}]}])",
             "step 1 (SnapshotBigdataV2): field \"perf[1].algoName\": expected a string "
             "(char[32]), got true"},
            {R"([{"at": 0, "kind": 17, "zoomRatio": 1e39}])",
             "step 1 (SnapshotBigdataV2): field \"zoomRatio\": 1e+39 is out of range for float"},
            {R"([{"at": 0, "kind": 28, "processes": [3]}])",
             "step 1 (MemoryExceedThreshold): field \"processes[0]\": expected an object "
             "(vistelProcessMemInfo), got 3"},
            {R"([{"at": 0, "kind": 29, "allocBuffers": [{}, {"timeStamp": -1}]}])",
             "step 1 (MemoryAllocTimeout): field \"allocBuffers[1].timeStamp\": -1 is out of "
             "range for uint64 (0 to 18446744073709551615)"},
            {R"([{"at": 0, "kind": 25, "bootNodes": [{"stageCosts": {"Open": [{"cost": "1"}]}}]}])",
             "step 1 (BootTimeout): field \"bootNodes[0].stageCosts.Open[0].cost\": expected a "
             "number (float), got \"1\""},
            {R"([{"at": 0, "kind": 30, "costEntries": "x"}])",
             "step 1 (DailyTempRise): field \"costEntries\": expected an array "
             "(vector<string>), got \"x\""},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.scenario);
        const std::string path = writeScenario(c.scenario);
        const ToolRun run = runTool({path});
        EXPECT_EQ(run.status, kExitBadInput);
        EXPECT_EQ(run.out, "");
        // A file that is not JSON has no steps to speak of.
        const bool notJson = std::string(c.error).rfind("not valid JSON", 0) == 0;
        EXPECT_EQ(run.err, path + ": " + c.error + "\n" +
                                   (notJson ? "" : path + ": nothing was replayed\n"));
    }
}

TEST(ReplayCommandTest, EveryBadStepIsListedAndNoneRuns) {
    const std::string path = writeScenario(R"([
        {"at": 0, "kind": "MemLeak", "name": "FeatureNode"},
        {"at": 1, "kind": "MemLeak", "value2": "x"},
        {"at": 2, "kind": "DumpTrace", "traceName": "Preview"},
        {"at": 3, "kind": "Nope"}
    ])");
    vistelhost::reset();
    const ToolRun run = runTool({"--json", path});
    EXPECT_EQ(run.status, kExitBadInput);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err,
              path +
                      ": step 2 (MemLeak): field \"value2\": expected an integer (int32), "
                      "got \"x\"\n" +
                      path + ": step 4: unknown kind \"Nope\" (vistel-replay --list shows them)\n" +
                      path + ": nothing was replayed\n");
    EXPECT_TRUE(vistelhost::sentEvents().empty());
}

TEST(ReplayCommandTest, CommandLines) {
    const std::string scenario = writeScenario("[]");
    const struct {
        std::vector<std::string> args;
        int status;
        const char* outStart;  // what stdout starts with
        const char* errStart;  // what stderr starts with
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
            {{"/nonexistent/scenario.json"},
             kExitBadInput,
             "",
             "/nonexistent/scenario.json: cannot be read\n"},
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
        EXPECT_EQ(run.out.substr(0, std::strlen(c.outStart)), c.outStart);
        EXPECT_EQ(run.err.substr(0, std::strlen(c.errStart)), c.errStart);
        if (c.errStart[0] == '\0') {
            EXPECT_EQ(run.err, "");
        }
    }
}

TEST(ReplayCommandTest, ListHasTwoLinesPerKind) {
    const ToolRun run = runTool({"--list"});
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 1 + 2 * orv::kVistelEventCount);
}

// A service that refuses a parameter or a send makes the step "failed", with the refusing
// primitive's own error line as the reason, and leaves no event object behind.
TEST(ReplayCommandTest, ServiceRefusalIsAFailedStep) {
    const Scenario scenario = loadScenario(nlohmann::ordered_json::parse(R"([
        {"at": 0, "kind": "HDRPData", "hasface": 1},
        {"at": 1, "kind": "HDRPData", "hasface": 1}
    ])"));
    ASSERT_TRUE(scenario.errors.empty());
    Replayer replayer;
    ASSERT_TRUE(replayer.serviceLoaded());
    const struct {
        void (*inject)();
        const char* reason;
    } kCases[] = {
            {[] { vistelhost::failParamCall(3); },
             "answered -1: setEventParam() error: LINK_Vistel_Set_Param() failed ret = -5, "
             "paramIndex(2) value(0)"},
            {[] { vistelhost::failNextSend(); },
             "answered -1: sendEvent() error: LINK_Vistel_Send_Event() failed"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.reason);
        c.inject();
        const StepReport report = replayer.run(scenario.steps[0]);
        EXPECT_EQ(report.result, -1);
        EXPECT_EQ(report.outcome, Outcome::kFailed);
        EXPECT_TRUE(report.events.empty());
        EXPECT_EQ(vistelhost::liveObjects(), 0);

        std::ostringstream text;
        makeReportWriter(ReportOptions{}, text)->step(report);
        // The line is cut at the terminal width; its start says enough.
        const std::string expected = std::string("failed   ") + c.reason;
        EXPECT_NE(text.str().find(expected.substr(0, 40)), std::string::npos) << text.str();
    }
    // Nothing stays armed: the next step is sent.
    EXPECT_EQ(replayer.run(scenario.steps[1]).outcome, Outcome::kSent);
}

}  // namespace
}  // namespace vistel_replay
