#define LOG_TAG "VistelManager"

#include <OvrixEvent.h>
#include <VistelManager.h>

#include "HealthReporting.h"
#include "OvrixFields.h"
#include "ReporterChecks.h"
#include "VistelLog.h"

namespace orv {

namespace {

constexpr int kMemExceedThresholdEventId = 918009011;

constexpr HealthAdmission kAdmission = {
        "sendMemoryExceedThreshold",
        HealthAdmission::NotInitialisedLine::kRecordNotValid,
        -1,
        nullptr,  // every record is reported
        kEventMemoryExceedThreshold,
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

int VistelManager::sendMemoryExceedThreshold(std::shared_ptr<VistelEventBase> event) try {
    const auto* record = static_cast<const vistelMemExceedThreshold*>(event.get());
    ReporterScope scope = healthScope(kAdmission);
    if (auto refusal = refuseHealthRecord(scope, kAdmission, mInited, record, mFrequencyLimit)) {
        return *refusal;
    }
    OvrixEvent report = makeOvrixEvent(kMemExceedThresholdEventId, *record, kThresholdFields);
    putProcessInfo(report, record->processes);
    reportOvrix(report, scope);
    VLOGI("exit %s()", __func__);
    return 0;
} catch (const std::exception& e) {
    return reportFailed(__func__, e);
}

}  // namespace orv
