// vistel-replay: replays a scenario of camera records through libc_vistel. See --help.
#include <iostream>
#include <string>
#include <vector>

#include "ReplayMain.h"

int main(int argc, char** argv) {
    return vistel_replay::replayMain(std::vector<std::string>(argv + 1, argv + argc), std::cout,
                                     std::cerr);
}
