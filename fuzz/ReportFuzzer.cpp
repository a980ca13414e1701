// libFuzzer target: arbitrary records of arbitrary kinds through reportMsgImpl, with the clock
// and the Vistel service's refusals under the input's control too. The input format is
// fuzz/input/FuzzInput.h's: a sequence of reports, each a kind, a service refusal to arm, a
// clock step and the record's fields.
//
// After every report nothing may be left behind: no live event object, no call on a destroyed
// one, a result of 0, -1 or -2, no field without a terminator handed to the service by address.
// A breach aborts, which libFuzzer reports with the input; so does any read past a field that
// AddressSanitizer sees.
#include <FuzzInput.h>
#include <KindRegistry.h>
#include <LogCapture.h>
#include <OvrixEvent.h>
#include <RecordFields.h>
#include <ServiceTaps.h>
#include <VirtualClock.h>
#include <VistelHostService.h>
#include <VistelManager.h>
#include <android/log.h>
#include <orvlog.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

namespace {

using vistel_tools::StructLayout;

// The service reads an indexed text at its address up to the terminator, whenever it likes
// until the event is sent; the host service does not know which values are texts. So no
// indexed value may be the address of a field left without a terminator.
bool passedUnterminatedField(const StructLayout& layout, const void* body) {
    std::set<long> unterminated;
    vistel_tools::forEachTextField(layout, body,
                                   [&](const std::string&, const char* field, size_t size) {
                                       if (memchr(field, 0, size) == nullptr)
                                           unterminated.insert(reinterpret_cast<long>(field));
                                   });
    for (const vistelhost::SentEvent& event : vistelhost::sentEvents()) {
        for (const vistelhost::Param& param : event.params) {
            if (param.type == vistelhost::ParamType::kIndexed &&
                unterminated.count(param.intValue) != 0) {
                return true;
            }
        }
    }
    return false;
}

void check(bool condition, const char* what) {
    if (condition) return;
    fprintf(stderr, "vistel_fuzz: %s\n", what);
    abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // The log is formatted as usual, then dropped: millions of lines would only slow the run.
    __android_log_set_logger(vistel_harness::discardLogLine);
    orv::VistelManager::GetInstance();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vistel_tools::FuzzInput in(data, size);
    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    while (!in.done()) {
        const vistel_tools::FuzzReport report = in.next();
        const uint8_t kind = report.kind;
        const vistel_tools::RecordInstance& record = report.record;
        vistel_tools::armRefusal(report.control);
        vistel_harness::VirtualClock::advanceNs(report.clockStepS * vistel_harness::kNanosPerSecond);
        std::future<int> result = manager->reportMsgImpl(record.record);
        if (result.valid()) {
            const int answer = result.get();
            check(answer == 0 || answer == -1 || answer == -2, "result out of 0, -1, -2");
        } else {
            check(kind >= orv::kVistelEventCount, "a known kind was not dispatched");
        }
        check(vistelhost::liveObjects() == 0, "event object left alive");
        check(vistelhost::invalidObjectCalls() == 0, "call on a destroyed event object");
        check(record.body == nullptr ||
                      !passedUnterminatedField(vistel_tools::kinds()[kind].layout(), record.body),
              "a text field without a terminator passed by address");
        // Also disarms a refusal the report did not use, so it does not carry over.
        vistelhost::reset();
    }
    vistel_harness::resetServices();
    return 0;
}
