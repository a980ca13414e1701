#define LOG_TAG "VistelManager"

#include <VistelManager.h>
#include <orvlog.h>

#include <string>

#include "EntryDoor.h"
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
        kEventDumpTrace,
        HealthAdmission::NotInitialisedLine::kInitFailed,
        &VistelManager::FrequencyLimit::LimitDumpSysTraceError,
};

}  // namespace

int VistelManager::dumpTrace(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventDumpTrace, __func__, event.get(), [&](ReporterScope& scope) -> int {
        const auto* record = static_cast<const vistelDumpTrace*>(event.get());
        if (auto refusal = refuseHealthRecord(scope, kDumpTraceAdmission, mInited, record,
                                              mFrequencyLimit)) {
            return *refusal;
        }
        const char* traceName = record->traceName.c_str();
        VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(), "%s() calling systrace for %s begin",
                      scope.reporter(), traceName);
        const std::string message =
                "#ARG1:<" + record->traceName + ">#ARG2:<" + std::to_string(kTraceArgument) + ">";
        const int printed = __orvlog_jank_print(kJankTypeSystrace, kJankIdSystrace, message.c_str());
        scope.serviceAnswer(printed == 0);
        VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(), "%s() calling systrace for %s end",
                      scope.reporter(), traceName);
        return 0;
    });
}

int VistelManager::SendEventAlgoProcessTimeoutDumpSystrace(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(
            kEventAlgoProcessTimeoutDumpSystrace, __func__, event.get(),
            [&](ReporterScope& scope) -> int {
                // The system watchdog takes these traces itself; answering 0 keeps the caller
                // content even before the service is bound, and once the manager is gone. The
                // record is never read, but a null one is refused like everywhere else.
                if (event == nullptr) {
                    scope.notInitialised();
                    logRecordNotValid(scope.reporter(), nullptr, mInited);
                    return 0;
                }
                VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(), "enter %s()", scope.reporter());
                VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(),
                              "%s() skipped, brontix is used instread", scope.reporter());
                return 0;
            });
}

}  // namespace orv
