// A camera process ends while the library is busy: the manager is destroyed at exit while the
// pool, never released, still holds its work, camera threads may still be inside it, and camera
// modules come and go. The process must end normally (no crash, no sanitizer report, no hang),
// whoever is inside the manager keeps working on live state, and whatever arrives afterwards is
// refused.
//
// Each case runs robustness_exit_helper (ExitHelper.cpp) as a child process; the ctest entry
// names it in VISTEL_EXIT_HELPER, and in VISTEL_EXIT_LAUNCHER the emulator that runs it, if any.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

extern char** environ;

namespace vistel_test {
namespace {

std::vector<std::string> words(const char* text) {
    std::vector<std::string> result;
    std::istringstream stream(text != nullptr ? text : "");
    for (std::string word; stream >> word;) result.push_back(word);
    return result;
}

std::string fileText(const std::string& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

int countOccurrences(const std::string& text, const std::string& part) {
    int count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

struct ChildRun {
    int status = -1;  // as waitpid() gives it
    std::string stderrText;
    std::string eventLog;  // what the host service received, one JSON line per event
};

ChildRun runHelper(const std::string& mode, const char* exitHook) {
    char folder[] = "exit-XXXXXX";
    const std::string base = ::testing::TempDir() + folder;
    std::vector<char> path(base.begin(), base.end());
    path.push_back('\0');
    EXPECT_NE(mkdtemp(path.data()), nullptr) << base;
    const std::string dir = path.data();
    const std::string eventLog = dir + "/events";
    const std::string errors = dir + "/stderr";

    std::vector<std::string> args = words(getenv("VISTEL_EXIT_LAUNCHER"));
    const char* helper = getenv("VISTEL_EXIT_HELPER");
    EXPECT_NE(helper, nullptr) << "the ctest entry names the helper";
    args.push_back(helper != nullptr ? helper : "robustness_exit_helper");
    args.push_back(mode);
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);

    std::vector<std::string> env = {"VISTEL_EVENT_LOG=" + eventLog,
                                    std::string("QOR_THREAD_MANAGER_EXIT_HOOK=") + exitHook};
    for (char** entry = environ; *entry != nullptr; ++entry) env.push_back(*entry);
    std::vector<char*> envp;
    for (std::string& entry : env) envp.push_back(entry.data());
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errors.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ChildRun run;
    pid_t pid = -1;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(spawned, 0) << argv[0];
    if (spawned == 0) {
        EXPECT_EQ(waitpid(pid, &run.status, 0), pid);
    }
    run.stderrText = fileText(errors);
    run.eventLog = fileText(eventLog);
    unlink(errors.c_str());
    unlink(eventLog.c_str());
    rmdir(dir.c_str());
    return run;
}

// Attempts per racy case and exit hook: those meet whatever the workers are doing at that moment.
// The other cases hold the thread that matters at the moment that matters, and run once.
// VISTEL_EXIT_ATTEMPTS asks for more, e.g. a few hundred to soak a change to the exit path.
int attempts() {
    const char* wanted = getenv("VISTEL_EXIT_ATTEMPTS");
    return wanted != nullptr ? atoi(wanted) : 4;
}

// What the destructor logs when someone is still inside after its bound.
constexpr char kKept[] =
        "~VistelManager() error: still in use after 500 ms, manager and service "
        "library kept";

// What dump() says once the destructor gave up.
constexpr char kKeptDump[] = "manager: kept at exit, still in use: nothing was destroyed";

struct ExitCase {
    const char* mode;  // the helper's argument
    bool racy;         // run attempts() times
    int exitStatus;
    std::vector<std::string> expected;     // lines of the child's stderr, with either exit hook
    std::vector<std::string> refused;      // lines it must not show
    std::vector<std::string> withHook;     // lines expected with the pool's exit hook
    std::vector<std::string> withoutHook;  // ... and without it
    int memLeakEvents;                     // memory leak events the service got; -1: any number
};

const ExitCase kCases[] = {
        // With the pool's exit hook, the queued records it destroys unrun are counted and give
        // their places in flight back.
        {"queued", true, 0, {}, {}, {"records in flight: 0 now"}, {}, -1},
        // The report inside its reporter when main returned finished, and went out once.
        {"running", true, 0, {}, {kKept}, {}, {}, 1},
        // A camera thread waiting on a report is released: reported, turned away or abandoned.
        {"waiting", true, 0, {}, {}, {"future resolved: "}, {"future resolved: "}, -1},
        // Still inside after the bound: nothing is freed or unloaded under it, and it finishes.
        {"held", false, 0, {kKept, kKeptDump, "held report: 0"}, {}, {}, {}, 1},
        {"service-held", false, 0, {kKept, kKeptDump, "held report: 0"}, {}, {}, {}, 1},
        // A camera thread inside reportMsgImpl holds no pass: it reads nothing of the manager.
        // Its record, queued after the manager is gone, is let go by the stopped pool or turned
        // away by its handler's door; one whose kind is asked while the manager is destroyed is
        // refused at once. Either way it is counted.
        {"camera-held",
         false,
         0,
         {},
         {kKept},
         {"camera thread: broken promise"},
         {"camera thread: -1", "sendEventMemLeak() error: manager destroyed, record dropped"},
         -1},
        {"camera-asking",
         false,
         0,
         {"camera thread: no future", "reportMsgImpl() error: manager destroyed, record dropped"},
         {kKept},
         {},
         {},
         -1},
        // Every entry point after the manager is gone refuses; the refusals' lines are at most one
        // a second, and the clock stands still here.
        {"after",
         false,
         0,
         {"reportMsgImpl: no future", "reportMsgImpl() error: manager destroyed, record dropped",
          "sendEventMemLeak: -1", "sendScanMsgReport: -2",
          "SendEventAlgoProcessTimeoutDumpSystrace: 0",
          // dump(): the counters, nothing of the manager; every refused record counted.
          "handlers refusing as not initialised: 32", "primitives refused: 6 of 6",
          "0 MemLeak 4 1 0 0 3 0 0 1", "- direct sendBootMsg calls 1 0 0 0 1 0 0 0",
          "vistel service: destroyed with the manager", "(every policy) destroyed",
          // snapshotCounters(): the same counters, the manager destroyed, no policy read.
          "snapshotCounters: 0, manager 3, MemLeak records 4, policies 0"},
         {kKept, "sendEventMemLeak() error: manager destroyed, record dropped"},
         {},
         {},
         1},
        // A task that starts after the manager is gone, or never starts.
        {"late",
         false,
         0,
         {},
         {kKept},
         {"late task: broken promise"},
         {"late task: -1", "sendEventMemLeak() error: manager destroyed, record dropped"},
         0},
        // Queued after the pool stopped at exit: let go at once, never left unresolved.
        {"exit-report",
         false,
         0,
         {},
         {"late report: never resolved"},
         {"late report: broken promise"},
         {"late report: 0"},
         -1},
        // The service exits from inside a reporter: the destructor does not wait for that
        // reporter, which can never return.
        {"exit-in-service", false, 3, {}, {kKept}, {}, {}, 0},
        // exit() inside reportMsgImpl (an out-of-memory policy): the camera thread holds no pass,
        // so the destructor does not wait for it.
        {"exit-in-call", false, 5, {}, {kKept}, {}, {}, 1},
        // GetInstance() re-entered while the manager is built returns at once; its report is
        // refused and counted, and the manager comes up as ever.
        {"reenter",
         false,
         0,
         // The refusal's own line is held back: one such line a second, and the clock stands.
         {"GetInstance() error: manager not built yet, its calls are refused until it is",
          "re-entered: no future", "after: 0", "0 MemLeak 2 1 0 0 1 0 0 1"},
         {kKept},
         {},
         {},
         1},
        // A forked child starts with passes and records in flight of its own: the report held in
        // the parent is neither in flight in the child nor waited for at its exit.
        {"fork",
         false,
         0,
         {"records in flight: 0 now, 1 at most, shed beyond 4096", "child: exit status 0",
          "held report: 0"},
         {kKept},
         {},
         {},
         1},
        // Camera modules unloaded with their records in flight, linked as the library asks.
        {"unload", true, 0, {}, {}, {}, {}, -1},
        {"unload-foreign", true, 0, {}, {}, {}, {}, -1},
        {"unload-static", true, 0, {}, {}, {}, {}, -1},
        // Not linked so, but unloaded only once every report's future was ready.
        {"unload-waited", true, 0, {}, {}, {}, {}, -1},
};

void PrintTo(const ExitCase& c, std::ostream* out) {
    *out << c.mode;
}

// With the host pool's exit hook, queued reports never start; without it, they start after the
// manager is gone and are turned away by the library itself.
const char* const kExitHooks[] = {"on", "off"};

// The child's stderr with the library's prefixes ("<function><<line>>: [<tag>]") taken off and
// every run of blanks made one, so that expected lines need neither.
std::string plainText(const std::string& text) {
    static const std::regex kPrefix(R"([A-Za-z_~]\w*<\d+>: \[[0-9a-f]{8}\])");
    static const std::regex kBlanks(R"([ \t]+)");
    std::string plain = std::regex_replace(text, kPrefix, "");
    plain = std::regex_replace(plain, kBlanks, " ");
    return "\n" + std::regex_replace(plain, std::regex("\n "), "\n");
}

bool hasLine(const std::string& plain, const std::string& line) {
    return plain.find("\n" + line) != std::string::npos;
}

// One row per moment of exit and exit hook, named so that one can be run alone, e.g.
// --gtest_filter='*camera_held_hook_off*'.
class ExitTest : public ::testing::TestWithParam<std::tuple<ExitCase, const char*>> {};

TEST_P(ExitTest, EndTheProcessWhileTheLibraryIsBusy) {
    const auto& [c, hook] = GetParam();
    for (int attempt = 0; attempt < (c.racy ? attempts() : 1); ++attempt) {
        SCOPED_TRACE("attempt " + std::to_string(attempt));
        ChildRun run = runHelper(c.mode, hook);
        // A sanitizer's report sets the exit status; a crash ends the child by a signal.
        ASSERT_TRUE(WIFEXITED(run.status)) << "ended by signal " << WTERMSIG(run.status) << "\n"
                                           << run.stderrText;
        EXPECT_EQ(WEXITSTATUS(run.status), c.exitStatus) << run.stderrText;
        const std::string plain = plainText(run.stderrText);
        std::vector<std::string> expected = c.expected;
        const auto& hooked = strcmp(hook, "on") == 0 ? c.withHook : c.withoutHook;
        expected.insert(expected.end(), hooked.begin(), hooked.end());
        for (const std::string& line : expected) {
            EXPECT_TRUE(hasLine(plain, line)) << line << "\n" << run.stderrText;
        }
        for (const std::string& line : c.refused) {
            EXPECT_FALSE(hasLine(plain, line)) << line << "\n" << run.stderrText;
        }
        if (c.memLeakEvents >= 0) {
            EXPECT_EQ(countOccurrences(run.eventLog, "{\"id\":918000000,"), c.memLeakEvents)
                    << run.eventLog;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Moments, ExitTest,
                         ::testing::Combine(::testing::ValuesIn(kCases),
                                            ::testing::ValuesIn(kExitHooks)),
                         [](const ::testing::TestParamInfo<ExitTest::ParamType>& info) {
                             std::string name = std::string(std::get<0>(info.param).mode) +
                                                "_hook_" + std::get<1>(info.param);
                             for (char& c : name) {
                                 if (c == '-') c = '_';
                             }
                             return name;
                         });

}  // namespace
}  // namespace vistel_test
