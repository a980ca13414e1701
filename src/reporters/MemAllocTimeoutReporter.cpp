#define LOG_TAG "VistelManager"

#include <OvrixEvent.h>
#include <VistelManager.h>

#include "HealthReporting.h"
#include "OvrixFields.h"
#include "ReporterChecks.h"
#include "VistelLog.h"

namespace orv {

namespace {

constexpr int kMemAllocTimeoutEventId = 918009013;
constexpr int kBufAllocEventId = 918009012;

constexpr HealthAdmission kAdmission = {
        "sendMemoryAllocTimeout",
        HealthAdmission::NotInitialisedLine::kRecordNotValid,
        -1,
        nullptr,  // every record is reported
        kEventMemoryAllocTimeout,
};

constexpr OvrixField<vistelMemAllocTimeout> kAllocTimeoutFields[] = {
        {"AppName", &vistelMemAllocTimeout::appName},
        {"SceneMode", &vistelMemAllocTimeout::sceneMode},
        {"CameraState", &vistelMemAllocTimeout::cameraState},
        {"StateDuration", &vistelMemAllocTimeout::stateDuration},
        {"IsQor", &vistelMemAllocTimeout::isQor},
        {"MemoryAlloced", &vistelMemAllocTimeout::memoryAlloced},
        {"AllocTimeCost", &vistelMemAllocTimeout::allocTimeCost},
        {"TimeoutCount", &vistelMemAllocTimeout::timeoutCount},
        {"EventTime", &vistelMemAllocTimeout::eventTime},
};

constexpr OvrixField<vistelBufAllocInfo> kBufAllocFields[] = {
        {"BufName", &vistelBufAllocInfo::bufName},
        {"Size", &vistelBufAllocInfo::size},
        {"AllocElapsed", &vistelBufAllocInfo::allocElapsed},
        {"TimeStamp", &vistelBufAllocInfo::timeStamp},
        {"SysMemFree", &vistelBufAllocInfo::sysMemFree},
};

}  // namespace

int VistelManager::sendMemoryAllocTimeout(std::shared_ptr<VistelEventBase> event) try {
    const auto* record = static_cast<const vistelMemAllocTimeout*>(event.get());
    ReporterScope scope = healthScope(kAdmission);
    if (auto refusal = refuseHealthRecord(scope, kAdmission, mInited, record, mFrequencyLimit)) {
        return *refusal;
    }
    OvrixEvent report = makeOvrixEvent(kMemAllocTimeoutEventId, *record, kAllocTimeoutFields);
    std::vector<OvrixEvent> buffers;
    buffers.reserve(record->allocBuffers.size());
    for (const vistelBufAllocInfo& buffer : record->allocBuffers) {
        // Each buffer carries only its own processes.
        OvrixEvent& bufferEvent =
                buffers.emplace_back(makeOvrixEvent(kBufAllocEventId, buffer, kBufAllocFields));
        putProcessInfo(bufferEvent, buffer.processes);
    }
    report.PutOvrixEventArray("AllocInfo", buffers);
    reportOvrix(report, scope);
    VLOGI("exit %s()", __func__);
    return 0;
} catch (const std::exception& e) {
    return reportFailed(__func__, e);
}

}  // namespace orv
