// The clock the library reads, under the program's control. Linking the harness puts its
// systemTime() in place of libutils' one for every library of the process, so tests, the replay,
// the benchmarks and the fuzzer move time instead of waiting for it.
//
//     VirtualClock::setNs(5000 * kNanosPerSecond);
//     VirtualClock::advanceSeconds(1.5);
//     VirtualClock::expireAllLimits();   // every quiet period of the limiter has run out
#pragma once

#include <cstdint>

namespace vistel_harness {

constexpr int64_t kNanosPerSecond = 1000000000;

class VirtualClock {
  public:
    static int64_t nowNs();
    static void setNs(int64_t ns);
    static void advanceNs(int64_t ns);
    static void advanceSeconds(double seconds);
    // Moves far enough ahead that every quiet period of the limiter has run out.
    static void expireAllLimits();
    // Called by every thread that reads the clock, before it reads it, until cleared with
    // nullptr: how a test stops a thread at the limiter's clock read.
    static void setReadHook(void (*hook)());
};

}  // namespace vistel_harness
