// libFuzzer target: arbitrary text through vistel-replay's scenario reader (replay/
// Scenario.h), as the tool reads a file: parsed, checked step by step, every step's record built.
//
// Whatever the text, the reader answers without crashing and within its bounds: steps or errors,
// never both; at most kMaxErrorsListed lines and the count of the rest, none empty or longer than
// kMaxErrorLength; and steps only as the scenario's rules allow them (a known kind, a record,
// times that never go back, within a year, a repeat within its range). A breach aborts, which
// libFuzzer reports with the input; AddressSanitizer and UndefinedBehaviorSanitizer watch the
// rest, the parser's stack included.
#include <Scenario.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

void check(bool condition, const char* what) {
    if (condition) return;
    fprintf(stderr, "vistel_scenario_fuzz: %s\n", what);
    abort();
}

void checkSteps(const vistel_replay::Scenario& scenario) {
    double previousAt = 0;
    int previousNumber = 0;
    for (const vistel_replay::Step& step : scenario.steps) {
        check(step.number > previousNumber, "steps out of order");
        check(step.kind != nullptr && step.instance.record != nullptr, "a step without a record");
        check(step.atSeconds >= previousAt, "a step earlier than the one before it");
        check(step.repeat >= 1 && step.repeat <= vistel_replay::kMaxRepeat, "repeat out of range");
        check(step.spacingSeconds >= 0, "a negative spacing");
        check(step.lastAtSeconds() <= vistel_replay::kMaxAtSeconds, "a step after a year");
        previousAt = step.lastAtSeconds();
        previousNumber = step.number;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const vistel_replay::Scenario scenario =
            vistel_replay::parseScenario(std::string(reinterpret_cast<const char*>(data), size));
    check(scenario.steps.empty() || scenario.errors.empty(), "steps and errors at once");
    check(scenario.errors.size() <= vistel_replay::kMaxErrorsListed + 1, "too many error lines");
    for (const std::string& error : scenario.errors) {
        check(!error.empty() && error.size() <= vistel_replay::kMaxErrorLength,
              "an error line empty or too long");
    }
    checkSteps(scenario);
    return 0;
}
