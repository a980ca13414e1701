#include "VirtualClock.h"

#include <utils/Timers.h>

#include <atomic>

namespace vistel_harness {

namespace {
// Starts well away from 0, which the limiter reads as "never reported".
std::atomic<int64_t> gNowNs{1000 * kNanosPerSecond};
std::atomic<void (*)()> gReadHook{nullptr};
// Longer than every quiet period of the limiter.
constexpr int64_t kLongestQuietPeriodNs = kNanosPerSecond * 3600 * 10;
}  // namespace

int64_t VirtualClock::nowNs() {
    return gNowNs.load();
}

void VirtualClock::setNs(int64_t ns) {
    gNowNs.store(ns);
}

void VirtualClock::advanceNs(int64_t ns) {
    gNowNs.fetch_add(ns);
}

void VirtualClock::advanceSeconds(double seconds) {
    advanceNs(static_cast<int64_t>(seconds * kNanosPerSecond));
}

void VirtualClock::expireAllLimits() {
    advanceNs(kLongestQuietPeriodNs);
}

void VirtualClock::setReadHook(void (*hook)()) {
    gReadHook.store(hook);
}

}  // namespace vistel_harness

// Takes the place of libutils' systemTime for every library of the process. Only an exported
// definition does: the project builds with hidden visibility by default, so the harness's link
// options export it from the executable. An executable with a clock of its own fails to link:
// this object is always linked (see CMakeLists.txt), so the two definitions collide.
__attribute__((visibility("default"))) nsecs_t systemTime(int /*clock*/) {
    // Relaxed: the benchmarks read the clock on the path they measure.
    if (void (*hook)() = vistel_harness::gReadHook.load(std::memory_order_relaxed)) hook();
    return vistel_harness::gNowNs.load(std::memory_order_relaxed);
}

// What the harness's link options name as undefined, so that the linker always takes this
// object out of the archive, even into a program that calls none of the functions above.
extern "C" const char vistel_harness_clock = 0;
