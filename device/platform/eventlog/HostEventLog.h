// Helpers shared by the host stand-ins that write what they receive as JSON lines, so host tools
// and tests can replay or compare the events a process reported.

#pragma once

#include <functional>
#include <string>

namespace hosteventlog {

// Appends the line makeLine() builds, and a newline, to the file named by the environment
// variable envName, creating it if needed. Does nothing, and builds nothing, when the variable
// is unset or empty: the JSON costs more than the report itself. Each line goes out in one
// O_APPEND write, so lines from concurrent reporters (or processes) never interleave.
// A failure to write is logged under logTag and otherwise ignored: reporting never fails
// because of the host's record of it.
void appendLineToEnvFile(const char* envName, const std::function<std::string()>& makeLine,
                         const char* logTag);

// The value a JSON line should carry for a float: the double nearest to the float's shortest
// decimal form, so 29.97f is written as 29.97 rather than 29.969999313354492.
double jsonNumber(float value);

}  // namespace hosteventlog
