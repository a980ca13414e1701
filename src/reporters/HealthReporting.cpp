#define LOG_TAG "VistelManager"

#include "HealthReporting.h"

#include "OvrixFields.h"
#include "ReporterChecks.h"
#include "VistelKinds.h"
#include "VistelLog.h"

namespace orv {

namespace {

constexpr int kProcessMemEventId = 918009010;
constexpr int kLimitedResult = -2;

constexpr OvrixField<vistelProcessMemInfo> kProcessMemFields[] = {
        {"ProcessName", &vistelProcessMemInfo::processName},
        {"PID", &vistelProcessMemInfo::pid},
        {"Ion", &vistelProcessMemInfo::ion},
        {"Rss", &vistelProcessMemInfo::rss},
        {"Pss", &vistelProcessMemInfo::pss},
        {"NativePss", &vistelProcessMemInfo::nativePss},
        {"JavaPss", &vistelProcessMemInfo::javaPss},
        {"Swap", &vistelProcessMemInfo::swap},
};

}  // namespace

std::optional<int> refuseHealthRecord(ReporterScope& scope, const HealthAdmission& admission,
                                      const bool& inited, const VistelEventBase* record,
                                      VistelManager::FrequencyLimit& limit) {
    const KindInfo& info = kindInfo(admission.kind);
    const char* name = info.handlerName;
    VISTEL_LOG_AT(ANDROID_LOG_INFO, name, "enter %s()", name);
    if (admission.notInitialisedLine == HealthAdmission::NotInitialisedLine::kInitFailed) {
        if (refusedNotInitialised(scope, inited, record)) return info.refusedResult;
    } else if (!inited || record == nullptr) {
        logRecordNotValid(name, record, inited);
        scope.notInitialised();
        return info.refusedResult;
    }
    if (admission.policy != nullptr && (limit.*admission.policy)()) {
        logLimited(scope);
        return kLimitedResult;
    }
    return std::nullopt;
}

void putProcessInfo(OvrixEvent& event, const std::vector<vistelProcessMemInfo>& processes) {
    std::vector<OvrixEvent> subEvents;
    subEvents.reserve(processes.size());
    for (const vistelProcessMemInfo& process : processes) {
        subEvents.push_back(makeOvrixEvent(kProcessMemEventId, process, kProcessMemFields));
    }
    event.PutOvrixEventArray("ProcessInfo", subEvents);
}

}  // namespace orv
