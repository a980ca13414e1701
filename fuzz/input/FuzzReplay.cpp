// vistel-fuzz-replay: feeds the fuzzer's inputs (fuzz/corpus) through libc_vistel as the fuzzer
// does (fuzz/input/FuzzInput.h: the same records, clock steps and service refusals) and prints
// what the services received, one JSON line per report:
//
//     {"input": "kind-00-MemLeak", "report": 1, "kind": 0, "outcome": "sent",
//      "events": [{"service": "vistel", "id": 918000000, "params": [...]}]}
//
// The events are in the form vistel-replay --json prints them. Each input is a scenario of its
// own on the virtual clock, its clock steps counted from the scenario's start.
//
//     vistel-fuzz-replay INPUT...
//
// exit status: 0 replayed, 1 an input could not be read or replayed (the others are), 2 no input.
#include <FuzzInput.h>
#include <VistelHostService.h>
#include <VistelManager.h>

#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Replayer.h"

namespace {

using nlohmann::ordered_json;

bool replayInput(const std::string& path, std::ostream& out) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return false;
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    const std::string name = path.substr(path.find_last_of('/') + 1);
    const vistel_replay::Replayer replayer;
    vistel_tools::FuzzInput in(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    double atSeconds = 0;
    for (int number = 1; !in.done(); ++number) {
        vistel_tools::FuzzReport report = in.next();
        vistel_tools::armRefusal(report.control);
        atSeconds += report.clockStepS;
        ordered_json line = {{"input", name}, {"report", number}, {"kind", report.kind}};
        if (report.record.body == nullptr) {
            // A null record, or one of a kind no handler takes: refused at the door.
            const bool queued =
                    orv::VistelManager::GetInstance()->reportMsgImpl(report.record.record).valid();
            vistelhost::reset();  // disarms the refusal nothing used
            line["outcome"] = queued ? "queued" : "not-dispatched";
            line["events"] = ordered_json::array();
        } else {
            const vistel_replay::Step step{number, atSeconds, &vistel_tools::kinds()[report.kind],
                                           std::move(report.record)};
            const vistel_replay::StepReport result = replayer.run(step);
            line["outcome"] = vistel_replay::outcomeName(result.outcome);
            line["events"] = result.events;
        }
        out << line.dump(-1, ' ', false, ordered_json::error_handler_t::replace) << "\n";
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: vistel-fuzz-replay INPUT...\n";
        return 2;
    }
    int status = 0;
    for (int i = 1; i < argc; ++i) {
        try {
            if (replayInput(argv[i], std::cout)) continue;
            std::cerr << argv[i] << ": cannot be read\n";
        } catch (const std::exception& error) {  // memory or the output failing
            std::cerr << argv[i] << ": " << error.what() << "\n";
        }
        status = 1;
    }
    return status;
}
