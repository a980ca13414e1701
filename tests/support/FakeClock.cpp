#include "FakeClock.h"

#include <utils/Timers.h>

#include <atomic>

namespace vistel_test {

namespace {
// Starts well away from 0, which the limiter reads as "never reported".
std::atomic<int64_t> gNowNs{1000 * kNanosPerSecond};
}  // namespace

int64_t FakeClock::nowNs() {
    return gNowNs.load();
}

void FakeClock::setNs(int64_t ns) {
    gNowNs.store(ns);
}

void FakeClock::advanceSeconds(double seconds) {
    gNowNs.fetch_add(static_cast<int64_t>(seconds * kNanosPerSecond));
}

void FakeClock::expireAllLimits() {
    advanceSeconds(10 * 3600);
}

}  // namespace vistel_test

// Interposes on libutils' systemTime for every library of the process. Only an exported
// definition does: the project builds with hidden visibility by default.
__attribute__((visibility("default"))) nsecs_t systemTime(int /*clock*/) {
    return vistel_test::FakeClock::nowNs();
}
