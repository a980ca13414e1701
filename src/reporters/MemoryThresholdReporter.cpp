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

constexpr int kMemExceedThresholdEventId = 918009011;

constexpr HealthAdmission kAdmission = {
        kEventMemoryExceedThreshold,
        HealthAdmission::NotInitialisedLine::kRecordNotValid,
        nullptr,  // every record is reported
};

constexpr OvrixField<vistelMemExceedThreshold> kThresholdFields[] = {
        {"MaxUsableSize", &vistelMemExceedThreshold::maxUsableSize},
        {"UsedTotalSizePeak", &vistelMemExceedThreshold::usedTotalSizePeak},
        {"SysMemFree", &vistelMemExceedThreshold::sysMemFree},
        {"CaptureGoingCount", &vistelMemExceedThreshold::captureGoingCount},
        {"JpegName", &vistelMemExceedThreshold::jpegName},
        {"SceneMode", &vistelMemExceedThreshold::sceneMode},
        {"Zoom", &vistelMemExceedThreshold::zoom},
        {"MultiCamMask", &vistelMemExceedThreshold::multiCamMask},
        {"SnapshotID", &vistelMemExceedThreshold::snapshotId},
        {"SwitchFlag", &vistelMemExceedThreshold::switchFlag},
        {"EventTime", &vistelMemExceedThreshold::eventTime},
};

}  // namespace

int VistelManager::sendMemoryExceedThreshold(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(
            kEventMemoryExceedThreshold, __func__, event.get(), [&](ReporterScope& scope) -> int {
                const auto* record = static_cast<const vistelMemExceedThreshold*>(event.get());
                if (auto refusal = refuseHealthRecord(scope, kAdmission, mInited, record,
                                                      mFrequencyLimit)) {
                    return *refusal;
                }
                OvrixEvent report =
                        makeOvrixEvent(kMemExceedThresholdEventId, *record, kThresholdFields);
                putProcessInfo(report, record->processes);
                reportOvrix(report, scope);
                VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(), "exit %s()", scope.reporter());
                return 0;
            });
}

}  // namespace orv
