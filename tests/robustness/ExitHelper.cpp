// A camera process that returns from main while its reports are still in flight, for ExitTest.
//
//     robustness_exit_helper queued    queues many reports of every kind and returns at once
//     robustness_exit_helper running   the same, but returns while the first report is inside
//                                      its reporter: its clock read waits until main has returned
//
// The host service appends every event it receives to the file VISTEL_EVENT_LOG names, which is
// how the test sees what went out before the process ended.
#include <KindRegistry.h>
#include <VistelManager.h>
#include <android/log.h>
#include <utils/Timers.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

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

int main(int argc, char** argv) {
    const bool running = argc == 2 && strcmp(argv[1], "running") == 0;
    if (!running && !(argc == 2 && strcmp(argv[1], "queued") == 0)) {
        fprintf(stderr, "usage: %s queued|running\n", argv[0]);
        return 2;
    }
    // Thousands of lines would drown a sanitizer's report.
    __android_log_set_logger([](const struct __android_logger_data*, const char*) {});

    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    if (running) {
        // The first record, a memory leak, is stopped at the limiter's clock read.
        armGate();
        manager->reportMsgImpl(vistel_tools::kinds()[orv::kEventMemLeak].make().record);
        waitUntilEntered();
    }
    for (int i = 0; i < kRecords; ++i) {
        manager->reportMsgImpl(vistel_tools::kinds()[i % orv::kVistelEventCount].make().record);
    }
    if (running) {
        // Registered last, so it runs first once main has returned.
        atexit(openGate);
    }
    return 0;
}
