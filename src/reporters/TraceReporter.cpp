#define LOG_TAG "VistelManager"

#include <VistelManager.h>
#include <orvlog.h>

#include <string>

#include "HealthReporting.h"
#include "ReporterChecks.h"
#include "VistelCounters.h"
#include "VistelLog.h"

namespace orv {

namespace {

// The logging service's jank event that takes a system trace, and how long a trace it asks for.
constexpr int kJankTypeSystrace = 3;
constexpr int kJankIdSystrace = 474;
constexpr int kTraceArgument = 300;

constexpr HealthAdmission kDumpTraceAdmission = {
        "dumpTrace",
        HealthAdmission::NotInitialisedLine::kInitFailed,
        -1,
        &VistelManager::FrequencyLimit::LimitDumpSysTraceError,
        kEventDumpTrace,
};

}  // namespace

int VistelManager::dumpTrace(std::shared_ptr<VistelEventBase> event) try {
    const auto* record = static_cast<const vistelDumpTrace*>(event.get());
    ReporterScope scope = healthScope(kDumpTraceAdmission);
    if (auto refusal =
                refuseHealthRecord(scope, kDumpTraceAdmission, mInited, record, mFrequencyLimit)) {
        return *refusal;
    }
    const char* traceName = record->traceName.c_str();
    VLOGI("%s() calling systrace for %s begin", __func__, traceName);
    const std::string message =
            "#ARG1:<" + record->traceName + ">#ARG2:<" + std::to_string(kTraceArgument) + ">";
    const int printed = __orvlog_jank_print(kJankTypeSystrace, kJankIdSystrace, message.c_str());
    scope.serviceAnswer(printed == 0);
    VLOGI("%s() calling systrace for %s end", __func__, traceName);
    return 0;
} catch (const std::exception& e) {
    return reportFailed(__func__, e);
}

int VistelManager::SendEventAlgoProcessTimeoutDumpSystrace(
        std::shared_ptr<VistelEventBase> event) try {
    // The system watchdog takes these traces itself; answering 0 keeps the caller content even
    // before the service is bound, and once the manager is gone. The record is never read, but a
    // null one is refused like everywhere else.
    ReporterScope scope(__func__, counters::of(kEventAlgoProcessTimeoutDumpSystrace));
    if (!scope.admitted()) return 0;
    if (event == nullptr) {
        scope.notInitialised();
        logRecordNotValid(__func__, nullptr, mInited);
        return 0;
    }
    VLOGI("enter %s()", __func__);
    VLOGI("%s() skipped, brontix is used instread", __func__);
    return 0;
} catch (const std::exception& e) {
    return reportFailed(__func__, e);
}

}  // namespace orv
