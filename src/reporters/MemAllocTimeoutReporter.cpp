#define LOG_TAG "VistelManager"

#include <OvrixEvent.h>
#include <VistelManager.h>

#include "EntryDoor.h"
#include "HealthReporting.h"
#include "OvrixFields.h"
#include "ReporterChecks.h"
#include "VistelLog.h"

namespace orv {

namespace {

constexpr int kMemAllocTimeoutEventId = 918009013;
constexpr int kBufAllocEventId = 918009012;

constexpr HealthAdmission kAdmission = {
        kEventMemoryAllocTimeout,
        HealthAdmission::NotInitialisedLine::kRecordNotValid,
        nullptr,  // every record is reported
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

int VistelManager::sendMemoryAllocTimeout(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(
            kEventMemoryAllocTimeout, __func__, event.get(), [&](ReporterScope& scope) -> int {
                const auto* record = static_cast<const vistelMemAllocTimeout*>(event.get());
                if (auto refusal = refuseHealthRecord(scope, kAdmission, mInited, record,
                                                      mFrequencyLimit)) {
                    return *refusal;
                }
                OvrixEvent report =
                        makeOvrixEvent(kMemAllocTimeoutEventId, *record, kAllocTimeoutFields);
                std::vector<OvrixEvent> buffers;
                buffers.reserve(record->allocBuffers.size());
                for (const vistelBufAllocInfo& buffer : record->allocBuffers) {
                    // Each buffer carries only its own processes.
                    OvrixEvent& bufferEvent = buffers.emplace_back(
                            makeOvrixEvent(kBufAllocEventId, buffer, kBufAllocFields));
                    putProcessInfo(bufferEvent, buffer.processes);
                }
                report.PutOvrixEventArray("AllocInfo", buffers);
                reportOvrix(report, scope);
                VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(), "exit %s()", scope.reporter());
                return 0;
            });
}

}  // namespace orv
