// vistel-replay's command line, callable in-process for tests.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace vistel_replay {

constexpr int kExitOk = 0;
constexpr int kExitBadInput = 1;  // the scenario cannot be read, parsed or built: nothing ran
constexpr int kExitUsage = 2;     // the command line is wrong

// args excludes the program name. Reports go to out, errors and usage to err.
int replayMain(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

}  // namespace vistel_replay
