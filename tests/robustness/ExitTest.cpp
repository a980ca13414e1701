// A camera process returns from main while reports are queued or running: the manager is
// destroyed at exit while the pool, never released, still holds its work. The process must end
// normally (no crash, no sanitizer report), and a report already inside its reporter finishes.
//
// Each case runs robustness_exit_helper (ExitHelper.cpp) as a child process; the ctest entry
// names it in VISTEL_EXIT_HELPER, and in VISTEL_EXIT_LAUNCHER the emulator that runs it, if any.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
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

// Attempts per case and exit hook: the helper's own handshake fixes the interleaving that
// matters in the "running" case; the others meet whatever the workers are doing at that moment.
// VISTEL_EXIT_ATTEMPTS asks for more, e.g. a few hundred to soak a change to the exit path.
int attempts() {
    const char* wanted = getenv("VISTEL_EXIT_ATTEMPTS");
    return wanted != nullptr ? atoi(wanted) : 4;
}

struct ExitCase {
    const char* mode;          // the helper's argument
    bool reportHeldAtTheExit;  // a memory leak report was inside the limiter when main returned
    bool futureAwaited;        // a camera thread waited on a report's future through the exit
};

const ExitCase kCases[] = {
        {"queued", false, false},
        {"running", true, false},
        {"waiting", false, true},
        {"unload", false, false},
};

// With the host pool's exit hook, queued reports never start; without it, they start after the
// manager is gone and are turned away by the library itself.
const char* const kExitHooks[] = {"on", "off"};

TEST(ExitTest, ReturnFromMainWithReportsInFlight) {
    for (const char* hook : kExitHooks) {
        for (const ExitCase& c : kCases) {
            for (int attempt = 0; attempt < attempts(); ++attempt) {
                SCOPED_TRACE(std::string(c.mode) + ", exit hook " + hook + ", attempt " +
                             std::to_string(attempt));
                ChildRun run = runHelper(c.mode, hook);
                // A sanitizer's report sets the exit status; a crash ends the child by a signal.
                ASSERT_TRUE(WIFEXITED(run.status))
                        << "ended by signal " << WTERMSIG(run.status) << "\n"
                        << run.stderrText;
                EXPECT_EQ(WEXITSTATUS(run.status), 0) << run.stderrText;
                if (c.reportHeldAtTheExit) {
                    // It finished before the manager went away, and went out once.
                    EXPECT_EQ(countOccurrences(run.eventLog, "{\"id\":918000000,"), 1)
                            << run.eventLog;
                }
                if (c.futureAwaited) {
                    // Reported, turned away (-1) or abandoned by the pool: never left waiting.
                    EXPECT_NE(run.stderrText.find("future resolved: "), std::string::npos)
                            << run.stderrText;
                }
            }
        }
    }
}

}  // namespace
}  // namespace vistel_test
