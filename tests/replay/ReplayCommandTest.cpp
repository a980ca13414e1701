// vistel-replay's command line, run in-process: bad scenarios are refused whole with a message
// naming the step and the field, whatever the input, bad command lines with the usage; every
// record's outcome is the library's, in the library's vocabulary, and a step the service refuses
// is reported as failed.
#include <VistelHostService.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <tuple>

#include "LibraryCounters.h"
#include "RecordJson.h"
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
    expected += path + ": nothing was replayed\n";
    EXPECT_EQ(run.err, expected);
    EXPECT_TRUE(vistelhost::sentEvents().empty());
    remove(path.c_str());
}

// `inner` inside `levels` arrays: [[[inner]]].
std::string nested(size_t levels, const std::string& inner) {
    return std::string(levels, '[') + inner + std::string(levels, ']');
}

TEST(ReplayCommandTest, BadScenariosAreRefusedWhole) {
    // Nesting: the scenario's array, the step's object, 30 arrays: 32 levels are read, 33 not.
    const std::string kDeepestRead = R"([{"at": 0, "kind": 0, "name": )" + nested(30, "") + "}]";
    const std::string kTooDeep = R"([{"at": 0, "kind": 0, "name": )" + nested(31, "") + "}]";
    const std::pair<std::string, std::string> kScenarioErrors[] = {
            {R"({"at": 0})", "a scenario is a JSON array of steps, got object"},
            {"", "empty: a scenario is a JSON array of steps"},
            {" \n\t\r\n", "empty: a scenario is a JSON array of steps"},
            // Bytes that are not UTF-8, and control characters, are shown escaped, never raw.
            {"[{\"at\": 0, \"kind\": \"Mem\xff\x1b[2J\"}]",
             "not valid JSON: parse error at line 1, column 24: syntax error while parsing value - "
             "invalid string: ill-formed UTF-8 byte; last read: '\"Mem\\xFF'"},
            {"[{\"at\": 0, \"kind\": \"\\u001b[2J\u00e9\"}]",
             "step 1: unknown kind \"\\u001b[2J\u00e9\" (vistel-replay --list shows them)"},
            {R"([{"at": 0, "kind": 0, "value1": 1e400}])",
             "not valid JSON: number overflow parsing '1e400'"},
            {R"([{"at": 0,}])",
             "not valid JSON: parse error at line 1, column 11: syntax error "
             "while parsing object key - unexpected '}'; expected string literal"},
            {"[3]", "step 1: expected an object, got 3"},
            {R"([{"at": 0}])", R"(step 1: missing "kind")"},
            {R"([{"at": 0, "kind": "MemLeek"}])",
             R"(step 1: unknown kind "MemLeek" (did you mean "MemLeak"?))"},
            {R"([{"at": 0, "kind": "dumptrce"}])",
             R"(step 1: unknown kind "dumptrce" (did you mean "DumpTrace"?))"},
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
            // A key given twice: the parsed object keeps one, so the step is refused.
            {R"([{"at": 0, "kind": 0, "name": "a", "name": "b"}])",
             R"(step 1 (MemLeak): "name" is given twice)"},
            {R"([{"at": 0, "kind": 0}, {"at": 1, "at": 2, "kind": 0}])",
             R"(step 2 (MemLeak): "at" is given twice)"},
            {R"([{"at": 0, "kind": 25, "bootNodes": [{}, {"stageCosts": {"Open": [], "Open": []}}]}])",
             R"(step 1 (BootTimeout): "bootNodes[1].stageCosts.Open" is given twice)"},
            // Repeated records.
            {R"([{"at": 0, "kind": 0, "repeat": 0}])",
             R"(step 1 (MemLeak): "repeat" must be a number of records from 1 to 100000, got 0)"},
            {R"([{"at": 0, "kind": 0, "repeat": 2.5}])",
             R"(step 1 (MemLeak): "repeat" must be a number of records from 1 to 100000, got 2.5)"},
            {R"([{"at": 0, "kind": 0, "repeat": 100001}])",
             "step 1 (MemLeak): \"repeat\" must be a number of records from 1 to 100000, got "
             "100001"},
            {R"([{"at": 0, "kind": 0, "repeat": 2, "spacing": -1}])",
             R"(step 1 (MemLeak): "spacing" -1 is outside 0 to 31536000 s)"},
            {R"([{"at": 31535000, "kind": 0, "repeat": 3, "spacing": 600}])",
             R"(step 1 (MemLeak): the last of the 3 records comes after 31536000 s)"},
            {R"([{"at": 0, "kind": 0, "repeat": 3, "spacing": 5}, {"at": 9, "kind": 0}])",
             R"(step 2 (MemLeak): "at" 9 is earlier than the step before it (10))"},
            {R"([{"at": 0, "kind": 0, "spacing": 5}])",
             R"(step 1 (MemLeak): "spacing" without "repeat" spaces nothing)"},
            {R"([{"at": 0, "kind": 0, "repaet": 3}])",
             R"(step 1 (MemLeak): field "repaet": no such field in vistelMemLeak (did you mean "repeat"?))"},
            // Nesting is bounded: no deeper than kMaxNesting, however deep the input.
            {kDeepestRead, R"(step 1 (MemLeak): field "name": expected a string (char[64]), got )" +
                                   std::string(30, '[') + std::string(7, ']') + "..."},
            {kTooDeep, "step 1: arrays and objects nested deeper than 32 levels"},
            {R"([{"at": 0, "kind": 0, "name": )" + nested(50000, "") + "}]",
             "step 1: arrays and objects nested deeper than 32 levels"},
            {nested(70000, ""), "step 1: arrays and objects nested deeper than 32 levels"},
            {R"({"steps": )" + nested(40, "") + "}",
             "arrays and objects nested deeper than 32 levels"},
    };
    for (const auto& [scenario, error] : kScenarioErrors) expectRefused(scenario, {error});

    // One step of a kind with one bad field: the kind, the field, what follows `field "`.
    const std::tuple<const char*, const char*, const char*> kFieldErrors[] = {
            {"MemLeak", R"("nmae": "x")",
             R"(nmae": no such field in vistelMemLeak (did you mean "name"?))"},
            {"MemLeak", R"("vaule": 1)",
             R"(vaule": no such field in vistelMemLeak (did you mean "value1"?))"},
            {"MemLeak", R"("size": 1)", R"(size": no such field in vistelMemLeak)"},
            {"MemoryExceedThreshold", R"("processes": [{"PID": 1}])",
             R"(processes[0].PID": no such field in vistelProcessMemInfo (did you mean "pid"?))"},
            {"MemLeak", R"("value1": "3")", R"(value1": expected an integer (int32), got "3")"},
            {"MemLeak", R"("value1": 1.5)", R"(value1": expected an integer (int32), got 1.5)"},
            {"MemLeak", R"("value1": 3.0)", R"(value1": expected an integer (int32), got 3.0)"},
            {"MemLeak", R"("value1": 2147483648)",
             R"(value1": 2147483648 is out of range for int32 (-2147483648 to 2147483647))"},
            // Whole numbers beyond the parser's integers arrive as doubles: out of range too.
            {"MemLeak", R"("value1": 1e29)",
             R"(value1": 1e+29 is out of range for int32 (-2147483648 to 2147483647))"},
            {"MemLeak", R"("value1": -3e9)",
             R"(value1": -3000000000.0 is out of range for int32 (-2147483648 to 2147483647))"},
            {"MemoryAllocTimeout", R"("allocBuffers": [{"timeStamp": 18446744073709551616}])",
             R"(allocBuffers[0].timeStamp": 1.8446744073709552e+19 is out of range for uint64 (0 to 18446744073709551615))"},
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

// However long the input, each error line is at most kMaxErrorLength long, and at most
// kMaxErrorsListed bad steps are listed one by one.
TEST(ReplayCommandTest, LongInputsGiveShortMessages) {
    const std::string kLongName(1000, 'x');
    const struct {
        std::string scenario;
        std::string start;  // of the one error line
        std::string end;
    } kCases[] = {
            {R"([")" + kLongName + R"(\q"])",
             "not valid JSON: parse error at line 1, column 1004: syntax error while parsing value "
             "- invalid string: forbidden character after backslash; last read: '\"xxx",
             "xxx..."},
            {R"([{"at": 0, "kind": 0, ")" + kLongName + R"(": 1}])",
             R"(step 1 (MemLeak): field "xxx)", "xxx..."},
            // The value is cut where it is shown.
            {R"([{"at": 0, "kind": ")" + kLongName + R"("}])", R"(step 1: unknown kind "xxx)",
             R"(xxx... (vistel-replay --list shows them))"},
    };
    for (const auto& c : kCases) {
        const Scenario scenario = parseScenario(c.scenario);
        ASSERT_EQ(scenario.errors.size(), 1u) << c.start;
        const std::string& error = scenario.errors[0];
        EXPECT_EQ(error.substr(0, c.start.size()), c.start);
        EXPECT_LE(error.size(), kMaxErrorLength) << error;
        EXPECT_EQ(error.substr(error.size() - c.end.size()), c.end);
    }

    std::string manyBadSteps = "[";
    for (size_t i = 0; i < kMaxErrorsListed + 10; ++i) {
        manyBadSteps += std::string(i == 0 ? "" : ",") + R"({"at": 0, "kind": "Nope"})";
    }
    const Scenario scenario = parseScenario(manyBadSteps + "]");
    ASSERT_EQ(scenario.errors.size(), kMaxErrorsListed + 1);
    EXPECT_EQ(scenario.errors[kMaxErrorsListed - 1],
              "step " + std::to_string(kMaxErrorsListed) +
                      ": unknown kind \"Nope\" (vistel-replay --list shows them)");
    EXPECT_EQ(scenario.errors.back(), "and 10 more bad steps");
}

// A path that is no readable file is refused with the system's reason; so is a file too large
// to be a scenario. Standard input ("-") is read like a file (README's examples use it).
TEST(ReplayCommandTest, UnreadableSourcesAreRefusedWithTheReason) {
    const std::string folder = ::testing::TempDir();
    const std::string file = writeScenario("[]");
    const std::pair<std::string, std::string> kCases[] = {
            {folder, "cannot be read: Is a directory"},
            {folder + "replay-missing.json", "cannot be read: No such file or directory"},
            {file + "/x.json", "cannot be read: Not a directory"},
            {"/dev/zero", "larger than 16 MiB, more than a scenario holds"},
    };
    for (const auto& [path, reason] : kCases) {
        SCOPED_TRACE(path);
        const ToolRun run = runTool({path});
        EXPECT_EQ(run.status, kExitBadInput);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, path + ": " + reason + "\n");
    }
    remove(file.c_str());
}

// The command lines: exit status, and what stdout and stderr start with. One named test a line,
// named after its arguments, e.g. `--gtest_filter='*CommandLines/jsno_scenario'`; "@scenario"
// stands for an empty scenario file the suite writes.
struct CommandLine {
    std::vector<std::string> args;
    int status;
    std::string out;  // what stdout starts with
    std::string err;  // what stderr starts with
};

constexpr const char* kScenario = "@scenario";

const CommandLine kCommandLines[] = {
        // A usage error is one line, whole, without the usage.
        {{},
         kExitUsage,
         "",
         "vistel-replay: expected one operand, got 0; try vistel-replay --help\n"},
        {{"--bad", kScenario},
         kExitUsage,
         "",
         "vistel-replay: unknown option --bad; try vistel-replay --help\n"},
        {{"--jsno", kScenario},
         kExitUsage,
         "",
         "vistel-replay: unknown option --jsno (did you mean --json?); try vistel-replay "
         "--help\n"},
        {{"--dictionary", "--shcema"},
         kExitUsage,
         "",
         "vistel-replay: unknown option --shcema (did you mean --schema?); try vistel-replay "
         "--help\n"},
        {{"--verison"},
         kExitUsage,
         "",
         "vistel-replay: unknown option --verison (did you mean --version?); try vistel-replay "
         "--help\n"},
        {{"--\xff\x1b[2J"},
         kExitUsage,
         "",
         "vistel-replay: unknown option --\\xFF\\x1B[2J; try vistel-replay --help\n"},
        {{"--version"}, kExitOk, "vistel-replay " VISTEL_VERSION "\n", ""},
        {{"--version", "--list"},
         kExitUsage,
         "",
         "vistel-replay: --version and --list cannot be combined; try vistel-replay --help\n"},
        {{kScenario, kScenario},
         kExitUsage,
         "",
         "vistel-replay: expected one operand, got 2; try vistel-replay --help\n"},
        {{"--list", kScenario},
         kExitUsage,
         "",
         "vistel-replay: expected no operand, got 1; try vistel-replay --help\n"},
        {{"--describe"},
         kExitUsage,
         "",
         "vistel-replay: expected one operand, got 0; try vistel-replay --help\n"},
        {{"--describe", "sendeventmemleak"},
         kExitUsage,
         "",
         "vistel-replay: unknown kind \"sendeventmemleak\" (did you mean "
         "\"sendEventMemLeak\"?); vistel-replay --list shows them\n"},
        // Options with a value.
        {{kScenario, "--off"},
         kExitUsage,
         "",
         "vistel-replay: --off needs a value; try vistel-replay --help\n"},
        {{"--trace", "", kScenario},
         kExitUsage,
         "",
         "vistel-replay: --trace needs a value; try vistel-replay --help\n"},
        {{"--of", "MemLeak", kScenario},
         kExitUsage,
         "",
         "vistel-replay: unknown option --of (did you mean --off?); try vistel-replay "
         "--help\n"},
        {{"--off", "MemLek", kScenario},
         kExitUsage,
         "",
         "vistel-replay: --off: unknown kind \"MemLek\" (did you mean \"MemLeak\"?); numbers "
         "or names of kinds, or all\n"},
        // Numbers without leading zeros, words apart by commas or spaces, as the library reads.
        {{"--off", "007", kScenario}, kExitUsage, "", "vistel-replay: --off: unknown kind \"007\""},
        {{"--off", "MemLeak FrameDrop", kScenario}, kExitOk, "", ""},
        // No longer than a device's property can be.
        {{"--off", std::string(100, '7'), kScenario},
         kExitUsage,
         "",
         "vistel-replay: --off: unknown kind"},
        {{"--off", "MemLeak," + std::string(90, ' '), kScenario},
         kExitUsage,
         "",
         "vistel-replay: --off: the property could not be set (at most 91 characters"},
        {{"--trace", "/dev/full", kScenario},
         kExitBadInput,
         "",
         "vistel-replay: --trace: cannot write /dev/full\n"},
        // The property knows kinds by number and name, not by handler.
        {{"--off", "0,sendEventMemLeak", kScenario},
         kExitUsage,
         "",
         "vistel-replay: --off: unknown kind \"sendEventMemLeak\""},
        {{"--off", "all", "--list"},
         kExitUsage,
         "",
         "vistel-replay: --off applies to a replay, not to --list; try vistel-replay "
         "--help\n"},
        {{"--trace", "/nonexistent/dir/trace.json", kScenario},
         kExitUsage,
         "",
         "vistel-replay: --trace: cannot write /nonexistent/dir/trace.json\n"},
        // Options that make no sense together.
        {{"--dump", "--dictionary"},
         kExitUsage,
         "",
         "vistel-replay: --dump applies to a replay, not to --dictionary; try vistel-replay "
         "--help\n"},
        {{"--full", "--list"},
         kExitUsage,
         "",
         "vistel-replay: --full applies to a replay, not to --list; try vistel-replay "
         "--help\n"},
        {{"--verbose", "--describe", "0"},
         kExitUsage,
         "",
         "vistel-replay: --verbose applies to a replay, not to --describe; try vistel-replay "
         "--help\n"},
        {{"--json", "--full", kScenario},
         kExitUsage,
         "",
         "vistel-replay: --full shapes the text report; --json always has every parameter; try "
         "vistel-replay --help\n"},
        {{"--list", "--describe", "0"},
         kExitUsage,
         "",
         "vistel-replay: --list and --describe cannot be combined; try vistel-replay --help\n"},
        // The event stream is the events alone.
        {{"--events", "--json", kScenario},
         kExitUsage,
         "",
         "vistel-replay: --events writes the events alone; --json shapes a report; try "
         "vistel-replay --help\n"},
        {{"--dump", "--events", kScenario},
         kExitUsage,
         "",
         "vistel-replay: --events writes the events alone; --dump shapes a report; try "
         "vistel-replay --help\n"},
        {{"--events", "--dictionary"},
         kExitUsage,
         "",
         "vistel-replay: --events applies to a replay, not to --dictionary; try vistel-replay "
         "--help\n"},
        {{"--help", "--list", "--dump"}, kExitOk, "usage: vistel-replay", ""},
        {{"--help"}, kExitOk, "usage: vistel-replay", ""},
        {{"--list"}, kExitOk, "kind  name / handler", ""},
        // --json is honoured by every listing.
        {{"--list", "--json"},
         kExitOk,
         R"({"kind":0,"name":"MemLeak","handler":"sendEventMemLeak","record":"vistelMemLeak",)"
         R"("body":"vistelMemLeak","service":"vistel","events":[{"id":918000000}],"limit":)"
         R"({"policy":"limitEventMemLeak","periodSeconds":3600,"per":"name"},"results":)"
         R"({"sent":0,"limited":0,"not-initialised":-1,"failed":-1}})"
         "\n",
         ""},
        {{"--describe", "18", "--json"},
         kExitOk,
         R"({"kind":18,"name":"AlgoProcessTimeoutDumpSystrace",)"
         R"("handler":"SendEventAlgoProcessTimeoutDumpSystrace",)"
         R"("record":"vistelAlgoProcessTimeoutDumpSystrace","body":"vistelAlgoProcessTimeout",)"
         R"("service":"none","events":[],"limit":null,"results":{"no-event":0},"fields":[)"
         R"({"name":"name","type":"char[64]"},)",
         ""},
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
        {{"--json", kScenario},
         kExitOk,
         R"({"type":"summary","summary":{"records":0,"sent":0,"limited":0,"no-event":0,)"
         R"("not-initialised":0,)"
         R"("failed":0,"shed":0,"events":0,"kinds":[]}})",
         ""},
};

void PrintTo(const CommandLine& c, std::ostream* out) {
    *out << testing::PrintToString(c.args);
}

// "jsno_scenario" for {"--jsno", "@scenario"}: each argument's letters and digits.
std::string commandLineName(const testing::TestParamInfo<CommandLine>& info) {
    std::string name;
    for (const std::string& arg : info.param.args) {
        std::string word;
        for (char c : arg) {
            if (isalnum(static_cast<unsigned char>(c))) word += c;
        }
        name += (name.empty() ? "" : "_") + (word.empty() ? std::string("empty") : word);
    }
    return name.empty() ? "no_arguments" : name;
}

class CommandLineTest : public testing::TestWithParam<CommandLine> {
  protected:
    static void SetUpTestSuite() { sScenario = writeScenario("[]"); }
    static void TearDownTestSuite() { remove(sScenario.c_str()); }

    static std::string sScenario;
};
std::string CommandLineTest::sScenario;

TEST_P(CommandLineTest, AnswersAsItShould) {
    const CommandLine& c = GetParam();
    std::vector<std::string> args = c.args;
    for (std::string& arg : args) {
        if (arg == kScenario) arg = sScenario;
    }
    const ToolRun run = runTool(args);
    EXPECT_EQ(run.status, c.status);
    EXPECT_EQ(run.out.substr(0, c.out.size()), c.out);
    EXPECT_EQ(c.err.empty() ? run.err : run.err.substr(0, c.err.size()), c.err);
}

INSTANTIATE_TEST_SUITE_P(CommandLines, CommandLineTest, testing::ValuesIn(kCommandLines),
                         commandLineName);

// Every kind listed, as text and as JSON lines.
TEST(ReplayCommandTest, ListShowsEveryKind) {
    const std::string list = runTool({"--list"}).out;
    EXPECT_EQ(std::count(list.begin(), list.end(), '\n'), 1 + 3 * orv::kVistelEventCount);
    std::istringstream jsonList(runTool({"--list", "--json"}).out);
    uint32_t kind = 0;
    for (std::string line; std::getline(jsonList, line); ++kind) {
        EXPECT_EQ(nlohmann::json::parse(line).at("kind"), kind);
    }
    EXPECT_EQ(kind, orv::kVistelEventCount);
}

// The output of `vistel-replay --json ...`, one object per line.
std::vector<nlohmann::json> jsonLines(const std::string& out) {
    std::istringstream lines(out);
    std::vector<nlohmann::json> objects;
    for (std::string line; std::getline(lines, line);) {
        objects.push_back(nlohmann::json::parse(line));
    }
    return objects;
}

// Over a camera day the library's own counters move exactly as the replay counted, kind by kind:
// the outcomes it read record by record add up to the counters' whole change, and the events the
// services received are those the library counted. --json --dump shows the counters after the
// summary as one object, under the tools' names of the kinds.
TEST(ReplayCommandTest, LibraryCountersAgreeWithTheReplay) {
    using vistel_tools::CounterRow;
    const vistel_tools::LibraryCounters before = vistel_tools::readLibraryCounters();
    const ToolRun run = runTool({"--json", "--dump", VISTEL_CAMERA_DAY});
    ASSERT_EQ(run.status, kExitOk) << run.err;
    const std::vector<nlohmann::json> objects = jsonLines(run.out);
    ASSERT_GE(objects.size(), 2u);
    const nlohmann::json& summary = objects[objects.size() - 2].at("summary");
    const nlohmann::json& dumped = objects.back().at("dump");
    const vistel_tools::LibraryCounters after = vistel_tools::readLibraryCounters();
    EXPECT_EQ(dumped.at("service"), "bound (libvistel.so)");
    EXPECT_EQ(dumped.at("keyedLimitPolicies").at("limitEventMemLeak"),
              after.policies.at("limitEventMemLeak").keys);

    std::map<uint32_t, CounterRow> replayed;
    for (const auto& kind : summary.at("kinds")) {
        CounterRow& row = replayed[kind.at("kind").get<uint32_t>()];
        row.records = kind.at("records");
        // The off column is there only once a record was switched off.
        for (uint32_t slot = 0; slot < vistel_tools::kOutcomeCount; ++slot) {
            const char* name = vistelOutcomeName(slot);
            row[static_cast<VistelOutcome>(slot)] =
                    slot == VISTEL_OUTCOME_OFF ? kind.value(name, 0) : kind.at(name).get<int>();
        }
        row.events = kind.at("events");
    }
    EXPECT_EQ(replayed.size(), orv::kVistelEventCount) << "the day no longer covers every kind";
    for (const vistel_tools::KindInfo& info : vistel_tools::kinds()) {
        CounterRow expected = replayed[info.kind];
        expected.name = info.name;
        EXPECT_EQ(after.kinds.at(info.kind) - before.kinds.at(info.kind), expected) << info.name;
        const nlohmann::json& row = dumped.at("kinds").at(info.kind);
        EXPECT_EQ(row.at("name"), info.name);
        EXPECT_EQ(row.at("records"), after.kinds.at(info.kind).records) << info.name;
        EXPECT_EQ(row.at("no-event"), after.kinds.at(info.kind)[VISTEL_OUTCOME_NO_EVENT])
                << info.name;
        EXPECT_EQ(row.at("events"), after.kinds.at(info.kind).events) << info.name;
    }
    EXPECT_EQ((after.direct - before.direct)[VISTEL_OUTCOME_SENT], 0u);
    EXPECT_EQ((after.total - before.total).records, summary.at("records").get<uint64_t>());
    EXPECT_EQ(dumped.at("total").at("records"), after.total.records);
}

// A camera day replayed with a kind switched off and a trace: every record of that kind after the
// library's first read of the property is off and never reaches a service; the trace file, as the
// trace viewer reads it, holds one balanced section per record that reached a worker, named after
// its kind, with the service calls nested in it, and the records in flight as a counter.
TEST(ReplayCommandTest, ACameraDayWithAKindSwitchedOffAndItsTrace) {
    const std::string tracePath = ::testing::TempDir() + "replay-command-test.trace.json";
    const ToolRun run =
            runTool({"--json", "--off", "FrameDrop", "--trace", tracePath, VISTEL_CAMERA_DAY});
    ASSERT_EQ(run.status, kExitOk) << run.err;
    const std::vector<nlohmann::json> objects = jsonLines(run.out);
    ASSERT_GE(objects.size(), 2u);
    const nlohmann::json& summary = objects.back().at("summary");
    int frameDrops = 0;
    for (const nlohmann::json& step : objects) {
        if (step.at("type") != "step" || step.at("name") != "FrameDrop") continue;
        ++frameDrops;
        EXPECT_EQ(step.at("outcome"), "off");
        EXPECT_EQ(step.at("events"), nlohmann::json::array());
    }
    EXPECT_GT(frameDrops, 0) << "the day no longer has a frame drop record after its first";
    EXPECT_EQ(summary.at("off"), frameDrops);
    const int reachedWorker = summary.at("records").get<int>() - summary.at("off").get<int>() -
                              summary.at("shed").get<int>();

    nlohmann::json trace;
    std::ifstream(tracePath) >> trace;
    remove(tracePath.c_str());
    std::map<int, std::vector<std::string>> open;  // per thread
    std::vector<std::string> records;
    std::vector<std::string> problems;
    std::set<std::string> counters;
    double lastTs = 0;
    for (const nlohmann::json& event : trace.at("traceEvents")) {
        std::vector<std::string>& stack = open[event.at("tid").get<int>()];
        const std::string ph = event.at("ph");
        EXPECT_GE(event.at("ts").get<double>(), lastTs) << "events in time order";
        lastTs = event.at("ts").get<double>();
        if (ph == "B") {
            const std::string name = event.at("name");
            if (stack.empty()) records.push_back(name);
            if (stack.size() > 1) problems.push_back(name + " nested twice");
            stack.push_back(name);
        } else if (ph == "E") {
            if (stack.empty()) problems.push_back("an end without its section");
            if (!stack.empty()) stack.pop_back();
        } else if (ph == "C") {
            counters.insert(event.at("name").get<std::string>());
            EXPECT_TRUE(event.at("args").contains("value"));
        } else {
            problems.push_back("phase " + ph);
        }
    }
    for (const auto& [tid, stack] : open) EXPECT_TRUE(stack.empty()) << "thread " << tid;
    EXPECT_EQ(problems, std::vector<std::string>{});
    EXPECT_EQ(static_cast<int>(records.size()), reachedWorker);
    std::map<std::string, int> sectionsByName;
    for (const std::string& name : records) ++sectionsByName[name];
    for (const nlohmann::json& kind : summary.at("kinds")) {
        const int reached = kind.at("records").get<int>() - kind.at("off").get<int>() -
                            kind.at("shed").get<int>();
        EXPECT_EQ(sectionsByName["vistel " + kind.at("name").get<std::string>()], reached)
                << kind.at("name");
    }
    EXPECT_EQ(counters.count("vistel records in flight"), 1u);

    // The next replay clears the switch: its first record has the library read it again.
    const std::string scenario = writeScenario(R"([{"at": 0, "kind": "MemLeak"},
        {"at": 1, "kind": "FrameDrop"}])");
    const ToolRun cleared = runTool({"--json", scenario});
    remove(scenario.c_str());
    ASSERT_EQ(cleared.status, kExitOk) << cleared.err;
    EXPECT_EQ(jsonLines(cleared.out)[1].at("outcome"), "no-event");
    EXPECT_EQ(jsonLines(cleared.out).back().at("summary").count("off"), 0u);
}

// Every kind answers each outcome as its row of the kind table says (what README's result table
// and --list show). In a process without the service (replay_test.no-service) every kind
// is refused as not initialised, with its own result, except the one that never checks.
TEST(KindResultsTest, EveryKindAnswersAsTheKindTableSays) {
    const Replayer first;
    const bool serviceLoaded = first.serviceLoaded();
    for (const vistel_tools::KindInfo& kind : vistel_tools::kinds()) {
        SCOPED_TRACE(kind.name);
        std::set<Outcome> reached;
        const auto expectTableResult = [&](const StepReport& report) {
            const int expected = kind.results[static_cast<size_t>(report.outcome)];
            EXPECT_NE(expected, vistel_tools::kNoResult) << outcomeName(report.outcome);
            EXPECT_EQ(report.result, expected) << outcomeName(report.outcome);
            reached.insert(report.outcome);
        };
        // A record with one element in every container, twice at once, then one with none; and
        // an hour after each limit ran out, one that the service refuses.
        nlohmann::ordered_json steps = nlohmann::ordered_json::array();
        for (double at : {0.0, 0.0}) {
            nlohmann::ordered_json step = {{"at", at}, {"kind", kind.name}};
            step.update(vistel_tools::skeletonOf(kind.layout()));
            steps.push_back(std::move(step));
        }
        steps.push_back({{"at", 7200}, {"kind", kind.name}});
        steps.push_back({{"at", 14400}, {"kind", kind.name}});
        const Scenario scenario = loadScenario(steps);
        ASSERT_EQ(scenario.errors, std::vector<std::string>());
        const Replayer replayer;  // a scenario of its own: every limit has run out
        for (size_t i = 0; i < 3; ++i) expectTableResult(replayer.run(scenario.steps[i]));
        if (!serviceLoaded) {
            const Outcome refused = kind.results[static_cast<size_t>(Outcome::kNotInitialised)] ==
                                                    vistel_tools::kNoResult
                                            ? Outcome::kNoEvent
                                            : Outcome::kNotInitialised;
            EXPECT_EQ(reached, std::set<Outcome>{refused});
            continue;
        }
        if (kind.service == vistel_tools::Service::kVistel) {
            vistelhost::failNextCreate();
            expectTableResult(replayer.run(scenario.steps[3]));
            vistelhost::reset();
        }
        // Each outcome the table gives a result for was reached, but those only a service
        // refusal (Ovrix, jank print: out of memory) or a missing service brings.
        for (size_t i = 0; i < vistel_tools::kOutcomeCount; ++i) {
            const auto outcome = static_cast<Outcome>(i);
            const bool reachable =
                    kind.results[i] != vistel_tools::kNoResult &&
                    outcome != Outcome::kNotInitialised &&
                    (outcome != Outcome::kFailed || kind.service == vistel_tools::Service::kVistel);
            EXPECT_EQ(reached.count(outcome) == 1, reachable) << outcomeName(outcome);
        }
    }
}

// The text report's clock rounds to the millisecond; one that cut the fraction instead would read
// 00:00:01 and 00:00:01.999 for the first two steps.
TEST(ReplayCommandTest, StepTimesReadRoundedToTheMillisecond) {
    const std::pair<const char*, const char*> kTimes[] = {{"1.001", "00:00:01.001  18 "},
                                                          {"1.9996", "00:00:02      18 "},
                                                          {"3599.9996", "01:00:00      18 "}};
    std::string steps;
    for (const auto& [at, shown] : kTimes) {
        steps += std::string(steps.empty() ? "" : ", ") + R"({"at": )" + at + R"(, "kind": 18})";
    }
    const std::string path = writeScenario("[" + steps + "]");
    const ToolRun run = runTool({path});
    ASSERT_EQ(run.status, kExitOk) << run.err;
    std::istringstream lines(run.out);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "replaying " + path + ": 3 steps over 01:00:00 of virtual time");
    std::getline(lines, line);  // the column heads
    for (const auto& [at, shown] : kTimes) {
        std::getline(lines, line);
        EXPECT_EQ(line.substr(0, std::string(shown).size()), shown) << at;
    }
    remove(path.c_str());
}

// The sum of a tally's outcome columns: every record counted once.
int outcomeSum(const nlohmann::json& tally) {
    int sum = 0;
    for (size_t i = 0; i < vistel_tools::kOutcomeCount; ++i) {
        const auto outcome = static_cast<Outcome>(i);
        // The off column is there only once a record was switched off.
        if (outcome == Outcome::kOff && !tally.contains(outcomeName(outcome))) continue;
        sum += tally.at(outcomeName(outcome)).get<int>();
    }
    return sum;
}

// A repeated step replays a runaway caller: every record is counted once, under its outcome, by
// the replay and by the library. Without a spacing they are all handed over before any runs, so
// exactly one passes the limiter and a bound on the records in flight sheds the same ones in
// every run; with one, each is reported at its own time.
TEST(ReplayCommandTest, RepeatedStepsCountEveryRecord) {
    const std::string path = writeScenario(R"([
        {"at": 0, "kind": "MemLeak", "name": "Loop", "repeat": 5000},
        {"at": 10, "kind": "HDRPData", "repeat": 50},
        {"at": 20, "kind": "MemLeak", "name": "Paced", "repeat": 3, "spacing": 3600}])");
    const vistel_tools::LibraryCounters before = vistel_tools::readLibraryCounters();
    const ToolRun run = runTool({"--json", path});
    ASSERT_EQ(run.status, kExitOk) << run.err;
    const vistel_tools::LibraryCounters after = vistel_tools::readLibraryCounters();
    const std::vector<nlohmann::json> objects = jsonLines(run.out);
    ASSERT_EQ(objects.size(), 4u);

    const nlohmann::json& loop = objects[0].at("outcomes");
    EXPECT_EQ(objects[0].at("repeat"), 5000);
    EXPECT_EQ(objects[0].at("spacing"), 0);
    EXPECT_EQ(loop.at("records"), 5000);
    EXPECT_EQ(outcomeSum(loop), 5000);
    // Handed over all at once with the workers held: the bound is queued, the rest shed.
    const int bound = static_cast<int>(after.inFlightBound);
    ASSERT_LT(bound, 5000);
    EXPECT_EQ(loop.at("sent"), 1);
    EXPECT_EQ(loop.at("limited"), bound - 1);
    EXPECT_EQ(loop.at("shed"), 5000 - bound);
    EXPECT_EQ(loop.at("events"), 1);
    const nlohmann::json& burst = objects[1].at("outcomes");
    EXPECT_EQ(burst.at("records"), 50);
    EXPECT_EQ(burst.at("sent"), 50);
    EXPECT_EQ(burst.at("events"), 50);
    const nlohmann::json& paced = objects[2].at("outcomes");
    EXPECT_EQ(objects[2].at("spacing"), 3600);
    EXPECT_EQ(paced.at("sent"), 3);
    EXPECT_EQ(outcomeSum(paced), 3);
    // Each record's events, with its number and time: the one the loop let through, one for
    // each record of the burst, one for each paced record, an hour apart.
    using Origin = std::pair<int, double>;  // record, at
    const std::tuple<size_t, size_t, Origin, Origin> kEventOrigins[] = {
            {0, 1, {1, 0}, {1, 0}}, {1, 50, {1, 10}, {50, 10}}, {2, 3, {1, 20}, {3, 7220}}};
    for (const auto& [line, count, first, last] : kEventOrigins) {
        SCOPED_TRACE("step " + std::to_string(line + 1));
        EXPECT_EQ(objects[line].at("type"), "repeated step");
        std::vector<Origin> origins;
        for (const auto& event : objects[line].at("events")) {
            origins.emplace_back(event.at("record"), event.at("at"));
        }
        ASSERT_EQ(origins.size(), count);
        EXPECT_EQ(origins.front(), first);
        EXPECT_EQ(origins.back(), last);
    }

    const nlohmann::json& summary = objects[3].at("summary");
    EXPECT_EQ(summary.at("records"), 5053);
    EXPECT_EQ(outcomeSum(summary), 5053);
    // The library counted every record, the shed ones included.
    EXPECT_EQ(after.total.records - before.total.records, 5053u);
    EXPECT_EQ((after.total - before.total)[VISTEL_OUTCOME_SHED], summary.at("shed").get<uint64_t>());

    const std::string text = runTool({path}).out;
    EXPECT_NE(text.find("00:00:00   0 MemLeak                          5000 records    sent 1, "),
              std::string::npos)
            << text;
    EXPECT_NE(text.find("00:00:20   0 MemLeak                          3 records       every 3600 "
                        "s: sent 3 (3 events)\n"),
              std::string::npos)
            << text;
    remove(path.c_str());
}

// The event stream is every event of the --json report, in its order, each behind its record's
// time, its step, its record's number in a repeated step and its kind: nothing left out, nothing
// moved, whatever the steps' outcomes.
TEST(ReplayCommandTest, EventStreamIsEveryStepsEvents) {
    const std::string repeated = writeScenario(R"([
        {"at": 0, "kind": "FrameDrop", "groups": [{}, {}], "repeat": 3},
        {"at": 5, "kind": "DumpTrace", "traceName": "Preview", "repeat": 3, "spacing": 180},
        {"at": 900, "kind": "MemLeak", "name": "Once"}])");
    const std::pair<std::string, size_t> kScenarios[] = {{VISTEL_CAMERA_DAY, 37}, {repeated, 5}};
    for (const auto& [scenario, count] : kScenarios) {
        SCOPED_TRACE(scenario);
        const ToolRun report = runTool({"--json", scenario});
        const ToolRun stream = runTool({"--events", scenario});
        ASSERT_EQ(stream.status, kExitOk) << stream.err;
        std::vector<nlohmann::json> expected;
        for (const nlohmann::json& line : jsonLines(report.out)) {
            if (line.at("type") == "summary") continue;
            for (nlohmann::json event : line.at("events")) {
                nlohmann::json origin = {{"at", event.value("at", line.at("at"))},
                                         {"step", line.at("step")},
                                         {"kind", line.at("kind")}};
                if (event.contains("record")) origin["record"] = event.at("record");
                event.erase("record");
                event.erase("at");
                origin.update(event);
                expected.push_back(std::move(origin));
            }
        }
        EXPECT_EQ(jsonLines(stream.out), expected);
        EXPECT_EQ(expected.size(), count);
    }
    remove(repeated.c_str());
}

// The identifiers of `params`' nested events, at any depth; `untyped` collects every parameter
// of an unknown type, or with neither a field nor how it is computed.
void collectNested(const nlohmann::json& params, std::set<long>& ids,
                   std::vector<std::string>& untyped) {
    static const std::set<std::string> kTypes = {"int32",        "int64", "float", "text",
                                                 "decimal text", "list",  "events"};
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
    EXPECT_EQ(callLimits,
              std::vector<nlohmann::json>({{{"call", "sendBootMsg"}, {"policy", nullptr}}}));
    for (const vistel_tools::KindInfo& info : vistel_tools::kinds()) {
        EXPECT_EQ(asTableText(limitOf.at(info.kind)), vistel_tools::describeLimit(info.limit))
                << info.name;
    }
    // The identifiers --list --json gives each kind, nested ones included.
    std::istringstream list(runTool({"--list", "--json"}).out);
    for (std::string line; std::getline(list, line);) {
        const nlohmann::json kind = nlohmann::json::parse(line);
        std::set<long> expected;
        std::vector<nlohmann::json> events(kind.at("events").begin(), kind.at("events").end());
        while (!events.empty()) {
            const nlohmann::json event = events.back();
            events.pop_back();
            expected.insert(event.at("id").get<long>());
            for (const auto& nested : event.value("nested", nlohmann::json::array())) {
                events.push_back(nested);
            }
        }
        EXPECT_EQ(sentBy[kind.at("kind")], expected) << kind.at("name");
    }
}

// A day of one record a minute sends what the dictionary's budget says a key can in a day: its
// records a day (every one, where nothing limits them) times the events each sends. A budget
// counted from the wrong period, rounded the wrong way or blind to a record's groups fails here.
TEST(ReplayCommandTest, BudgetIsWhatADayOfRecordsSends) {
    const ToolRun dictionary = runTool({"--dictionary", "--json"});
    ASSERT_EQ(dictionary.status, kExitOk) << dictionary.err;
    std::map<uint32_t, nlohmann::json> recordsPerDay;
    for (const nlohmann::json& entry : jsonLines(dictionary.out)) {
        for (const auto& budget : entry.at("budget")) {
            if (budget.contains("kind")) recordsPerDay[budget["kind"]] = budget["recordsPerDay"];
        }
    }
    constexpr int kMinutesPerDay = 24 * 60;
    const std::tuple<uint32_t, const char*, int> kDays[] = {
            // kind, the record's fields, events a record sends
            {0, R"("name": "FeatureNode")", 1},
            {23, R"("perfDetail": [{}])", 1},
            {26, R"("traceName": "Preview")", 1},
            {27, R"("groups": [{}, {}])", 2},
            {13, R"("iso": 100)", 1},
    };
    for (const auto& [kind, fields, eventsPerRecord] : kDays) {
        SCOPED_TRACE(vistel_tools::kinds()[kind].name);
        const std::string path = writeScenario(
                R"([{"at": 0, "kind": )" + std::to_string(kind) + ", " + fields +
                R"(, "repeat": )" + std::to_string(kMinutesPerDay) + R"(, "spacing": 60}])");
        const ToolRun day = runTool({"--json", path});
        ASSERT_EQ(day.status, kExitOk) << day.err;
        const nlohmann::json& budget = recordsPerDay.at(kind);
        const int records = budget.is_number() ? budget.get<int>() : kMinutesPerDay;
        EXPECT_EQ(jsonLines(day.out).at(0).at("outcomes").at("events"), records * eventsPerRecord)
                << budget;
        remove(path.c_str());
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
            {[] { vistelhost::failParamCall(3); },
             "failed          answered -1: setEventParam() error"},
            {[] { vistelhost::failNextSend(); }, "failed          answered -1: sendEvent() error"},
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

// Every row of every golden replay's dump adds up: each record has exactly one outcome, and the
// total is the sum of the rows.
TEST(ReplayCommandTest, GoldenDumpsAddUp) {
    const char* const kOutcomes[] = {"sent",   "limited", "no-event", "not-initialised",
                                     "failed", "shed"};
    int dumps = 0;
    for (const auto& entry : std::filesystem::directory_iterator(VISTEL_GOLDEN_DIR)) {
        if (entry.path().extension() != ".jsonl") continue;
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);) {
            const nlohmann::json object = nlohmann::json::parse(line);
            if (!object.contains("dump")) continue;
            ++dumps;
            const nlohmann::json& dump = object.at("dump");
            std::vector<nlohmann::json> rows(dump.at("kinds").begin(), dump.at("kinds").end());
            rows.push_back(dump.at("direct"));
            std::map<std::string, uint64_t> sum;
            for (const nlohmann::json& row : rows) {
                uint64_t outcomes = 0;
                for (const char* outcome : kOutcomes) outcomes += row.at(outcome).get<uint64_t>();
                EXPECT_EQ(row.at("records").get<uint64_t>(), outcomes)
                        << entry.path().filename() << ": " << row.dump();
                for (const auto& [column, count] : row.items()) {
                    if (count.is_number()) sum[column] += count.get<uint64_t>();
                }
            }
            for (const auto& [column, count] : dump.at("total").items()) {
                EXPECT_EQ(count.get<uint64_t>(), sum[column])
                        << entry.path().filename() << ": total " << column;
            }
        }
    }
    EXPECT_GE(dumps, 4);
}

}  // namespace
}  // namespace vistel_replay
