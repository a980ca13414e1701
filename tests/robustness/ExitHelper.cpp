// A camera process that returns from main while its reports are still in flight, for ExitTest.
//
//     robustness_exit_helper queued    queues many reports of every kind and returns at once
//     robustness_exit_helper running   the same, but returns while the first report is inside
//                                      its reporter: its clock read waits until main has returned
//     robustness_exit_helper waiting   the same as queued, while a camera thread waits on the
//                                      last report's future; the process's last exit handler
//                                      joins it and prints how the future ended
//     robustness_exit_helper unload    loads the camera module named by VISTEL_EXIT_MODULE, has it
//                                      queue thousands of reports, unloads it and returns
//
// The host service appends every event it receives to the file VISTEL_EVENT_LOG names, which is
// how the test sees what went out before the process ended.
#include <KindRegistry.h>
#include <VistelManager.h>
#include <android/log.h>
#include <utils/Timers.h>

#include <dlfcn.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <mutex>
#include <string>
#include <thread>

namespace {

constexpr int kRecords = 2000;
constexpr nsecs_t kNowNs = 5000 * 1000000000LL;

// Holds the first clock read of the "running" mode until exit has begun.
struct Gate {
    std::mutex mutex;
    std::condition_variable changed;
    bool armed = false;    // guarded by mutex
    bool entered = false;  // guarded by mutex
    bool open = false;     // guarded by mutex
};

// Never destroyed: workers may read the clock while static destructors run.
Gate& gate() {
    static Gate* const sGate = new Gate;
    return *sGate;
}

void armGate() {
    Gate& g = gate();
    std::lock_guard<std::mutex> lock(g.mutex);
    g.armed = true;
}

void waitUntilEntered() {
    Gate& g = gate();
    std::unique_lock<std::mutex> lock(g.mutex);
    g.changed.wait(lock, [&g] { return g.entered; });
}

void openGate() {
    Gate& g = gate();
    std::lock_guard<std::mutex> lock(g.mutex);
    g.open = true;
    g.changed.notify_all();
}

}  // namespace

// Takes the place of libutils' clock for the library, which reads it inside the limiter. Only an
// exported definition does: the project builds with hidden visibility by default.
__attribute__((visibility("default"))) nsecs_t systemTime(int /*clock*/) {
    Gate& g = gate();
    std::unique_lock<std::mutex> lock(g.mutex);
    if (g.armed && !g.entered) {
        g.entered = true;
        g.changed.notify_all();
        g.changed.wait(lock, [&g] { return g.open; });
    }
    return kNowNs;
}

namespace {

// The camera thread of the "waiting" mode; joined by the last exit handler.
std::thread* gWaiter = nullptr;

void joinWaiter() {
    if (gWaiter != nullptr) gWaiter->join();
}

void waitOn(std::future<int> result) {
    try {
        fprintf(stderr, "future resolved: %d\n", result.get());
    } catch (const std::future_error& error) {
        fprintf(stderr, "future resolved: %s\n", error.code() == std::future_errc::broken_promise
                                                          ? "broken promise"
                                                          : error.what());
    }
}

int unloadModule() {
    const char* path = getenv("VISTEL_EXIT_MODULE");
    void* module = path != nullptr ? dlopen(path, RTLD_NOW | RTLD_LOCAL) : nullptr;
    auto* queueReports =
            module != nullptr ? reinterpret_cast<void (*)(int)>(dlsym(module, "queueReports"))
                              : nullptr;
    if (queueReports == nullptr) {
        fprintf(stderr, "cannot load the module: %s\n", dlerror());
        return 1;
    }
    queueReports(kRecords);
    dlclose(module);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc == 2 ? argv[1] : "";
    if (mode != "queued" && mode != "running" && mode != "waiting" && mode != "unload") {
        fprintf(stderr, "usage: %s queued|running|waiting|unload\n", argv[0]);
        return 2;
    }
    const bool running = mode == "running";
    // Thousands of lines would drown a sanitizer's report.
    __android_log_set_logger([](const struct __android_logger_data*, const char*) {});
    // Registered before the manager is built, so it runs after the manager's destructor.
    atexit(joinWaiter);
    if (mode == "unload") return unloadModule();

    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    if (running) {
        // The first record, a memory leak, is stopped at the limiter's clock read.
        armGate();
        manager->reportMsgImpl(vistel_tools::kinds()[orv::kEventMemLeak].make().record);
        waitUntilEntered();
    }
    std::future<int> last;
    for (int i = 0; i < kRecords; ++i) {
        last = manager->reportMsgImpl(
                vistel_tools::kinds()[i % orv::kVistelEventCount].make().record);
    }
    if (mode == "waiting") gWaiter = new std::thread(waitOn, std::move(last));
    if (running) {
        // Registered last, so it runs first once main has returned.
        atexit(openGate);
    }
    return 0;
}
