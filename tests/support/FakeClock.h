// The clock the library reads. Test executables link FakeClock.cpp, whose systemTime() takes
// the place of libutils' one for the whole process, so tests move time instead of sleeping.
#pragma once

#include <cstdint>

namespace vistel_test {

constexpr int64_t kNanosPerSecond = 1000000000;

class FakeClock {
  public:
    static int64_t nowNs();
    static void setNs(int64_t ns);
    static void advanceSeconds(double seconds);
    // Moves far enough ahead that every quiet period of the limiter has run out.
    static void expireAllLimits();
};

}  // namespace vistel_test
