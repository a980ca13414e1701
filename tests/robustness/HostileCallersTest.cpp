// What a hostile process does around the library, one scenario a row, each in a fresh process of
// its own (a fork of the test runner, which never touches the library) that must end with status 0
// within kBoundSeconds. Threads are held by the process's own logger, never by sleeping; a hang
// ends the scenario's process with SIGALRM, which fails its row.
//
//   a record's GetEventType() ends its thread (pthread_exit) inside reportMsgImpl
//   the process's logger reports straight to a handler on a line the limiter logs
//   dump() and snapshotCounters() while a reporter is held in the logger on a line the limiter
//   logs
//   fork() by another thread while the manager is being built; the child asks for the manager
//   a worker pool that logs when first asked for, and a logger that calls GetInstance()->Init() on
//   that line (before the manager's own Init): the manager must still come up initialised
#include <QorThreadManager.h>
#include <ThreadHold.h>
#include <VistelManager.h>
#include <android/log.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>

namespace vistel_test {

using vistel_harness::ThreadHold;

namespace {
// Set by the one scenario whose worker pool logs when it is first asked for.
bool gPoolLogs = false;
}  // namespace
}  // namespace vistel_test

// The platform's pool, asked for through this executable: a line first when a scenario says so.
QorThreadManager* QorThreadManager::GetInstance() {
    static auto* const platform = reinterpret_cast<QorThreadManager* (*)()>(
            dlsym(RTLD_NEXT, "_ZN16QorThreadManager11GetInstanceEv"));
    if (vistel_test::gPoolLogs) {
        __android_log_print(ANDROID_LOG_INFO, "HostilePool", "worker pool asked for");
    }
    return platform();
}

namespace vistel_test {
namespace {

using orv::VistelManager;

// Only a hang reaches it: far above what a scenario takes, under an emulator and a loaded machine.
constexpr unsigned kBoundSeconds = 60;

// Never destroyed: held threads may still reach it while the scenario's process exits.
ThreadHold<int>& gHold = *new ThreadHold<int>;
bool gActed = false;

std::shared_ptr<orv::VistelEventBase> leak(const char* name) {
    auto record = std::make_shared<orv::vistelMemLeak>();
    snprintf(record->name, sizeof(record->name), "%s", name);
    return record;
}

bool limiterLine(const char* message) {
    return strstr(message, "timeIntervalInS") != nullptr;
}

// ---- Scenarios ----

struct EndsItsThread final : orv::vistelMemLimit {
    orv::VistelEvent GetEventType() override { pthread_exit(nullptr); }
};

void threadEndedWhileAskedItsKind() {
    VistelManager::GetInstance();
    pthread_t thread;
    pthread_create(
            &thread, nullptr,
            [](void*) -> void* {
                (void)VistelManager::GetInstance()->reportMsgImpl(std::make_shared<EndsItsThread>());
                return nullptr;
            },
            nullptr);
    pthread_join(thread, nullptr);
}

void loggerReportsToAHandler() {
    VistelManager* manager = VistelManager::GetInstance();
    manager->sendEventMemLeak(leak("known"));
    __android_log_set_logger([](const struct __android_logger_data*, const char* message) {
        if (gActed || !limiterLine(message)) return;
        gActed = true;
        VistelManager::GetInstance()->sendEventMemLeak(leak("from-the-logger"));
    });
    manager->sendEventMemLeak(leak("known"));
}

void dumpWhileAReporterIsHeldInTheLogger() {
    VistelManager* manager = VistelManager::GetInstance();
    manager->sendEventMemLeak(leak("known"));
    __android_log_set_logger([](const struct __android_logger_data*, const char* message) {
        if (!gActed && limiterLine(message)) {
            gActed = true;
            gHold.holdHere();
        }
    });
    std::thread reporter([manager] { manager->sendEventMemLeak(leak("known")); });
    gHold.waitUntilHeld();
    manager->dump(STDERR_FILENO);
    // The same wait in the snapshot: the decision still holds the limiter's lock, so no policy's
    // keys can be read, and each says so.
    VistelCounterSnapshot counts = {};
    counts.size = sizeof(counts);
    if (manager->snapshotCounters(&counts) != 0) _exit(5);
    for (uint32_t i = 0; i < counts.policyCount; ++i) {
        if (counts.policies[i].busy != 1 || counts.policies[i].keys != 0) _exit(6);
    }
    if (counts.policyCount != VistelManager::FrequencyLimit::kKeyedPolicies) _exit(7);
    gHold.release();
    reporter.join();
}

void forkWhileTheManagerIsBuilt() {
    __android_log_set_logger([](const struct __android_logger_data*, const char*) {
        if (!gActed) gHold.holdHere();
    });
    std::thread builder([] { VistelManager::GetInstance(); });
    gHold.waitUntilHeld();
    gActed = true;
    const pid_t child = fork();
    if (child == 0) {
        alarm(kBoundSeconds / 2);
        VistelManager::GetInstance();
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    gHold.release();
    builder.join();
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) _exit(3);
}

void initCalledFromThePoolsLine() {
    gPoolLogs = true;
    __android_log_set_logger([](const struct __android_logger_data*, const char* message) {
        if (gActed || strstr(message, "worker pool asked for") == nullptr) return;
        gActed = true;
        VistelManager::GetInstance()->Init();
    });
    VistelManager* manager = VistelManager::GetInstance();
    __android_log_set_logger(__android_log_stderr_logger);
    auto record = std::make_shared<orv::vistelMemLimit>();
    snprintf(record->name, sizeof(record->name), "%s", "after-build");
    if (manager->sendEventMemLimit(record) != 0) _exit(4);  // refused: not initialised
}

struct Scenario {
    const char* name;
    void (*run)();
};

const Scenario kScenarios[] = {
        {"ThreadEndedWhileAskedItsKind", threadEndedWhileAskedItsKind},
        {"LoggerReportsToAHandler", loggerReportsToAHandler},
        {"DumpWhileAReporterIsHeldInTheLogger", dumpWhileAReporterIsHeldInTheLogger},
        {"ForkWhileTheManagerIsBuilt", forkWhileTheManagerIsBuilt},
        {"InitCalledFromThePoolsLine", initCalledFromThePoolsLine},
};

void PrintTo(const Scenario& scenario, std::ostream* out) {
    *out << scenario.name;
}

class HostileCallersTest : public ::testing::TestWithParam<Scenario> {};

TEST_P(HostileCallersTest, EndsWithinTheBound) {
#if defined(_LIBCPP_VERSION)
    // glibc's forced unwinding through libc++abi's handlers ends in a crash of the C++ runtime's
    // own whichever way the handler treats it; the device's C library does not unwind a thread
    // that ends, so only the host's libstdc++ builds run this row.
    if (GetParam().run == threadEndedWhileAskedItsKind) GTEST_SKIP() << "libc++ on glibc";
#endif
    // A plain fork of the runner, which never touches the library itself: each scenario starts in
    // a process where the manager is not built yet (re-running the executable, as the threadsafe
    // style does, fails under the arm64 emulator).
    GTEST_FLAG_SET(death_test_style, "fast");
    EXPECT_EXIT(
            {
                alarm(kBoundSeconds);
                GetParam().run();
                _exit(0);
            },
            ::testing::ExitedWithCode(0), "")
            << GetParam().name;
}

INSTANTIATE_TEST_SUITE_P(Scenarios, HostileCallersTest, ::testing::ValuesIn(kScenarios),
                         [](const ::testing::TestParamInfo<Scenario>& info) {
                             return std::string(info.param.name);
                         });

}  // namespace
}  // namespace vistel_test
