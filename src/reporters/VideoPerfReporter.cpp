// Kinds 23 and 27: video performance and frame drops, both as the system event service's video
// performance event (918009006) holding up to ten stretch sub-events (918009007).
#define LOG_TAG "VistelManager"

#include <OvrixEvent.h>
#include <VistelManager.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "EntryDoor.h"
#include "OvrixFields.h"
#include "ReporterChecks.h"
#include "VistelLog.h"

namespace orv {

namespace {

constexpr int kVideoPerfEventId = 918009006;
constexpr int kVideoPerfDetailEventId = 918009007;
// Stretches beyond the tenth are left out of the report without a word.
constexpr size_t kMaxPerfDetails = 10;

std::vector<OvrixEvent> buildPerfDetails(const std::vector<vistelVideoPerfSubData>& stretches) {
    std::vector<OvrixEvent> details;
    const size_t count = std::min(stretches.size(), kMaxPerfDetails);
    details.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        const vistelVideoPerfSubData& stretch = stretches[i];
        OvrixEvent detail(kVideoPerfDetailEventId);
        detail.PutString("SensorTime", stretch.SensorTime)
                .PutString("TimeOfDay", stretch.TimeOfDay)
                .PutInt("TotalSensorCnt", stretch.TotalSensorCnt)
                .PutInt("ErrSensorCnt", stretch.ErrSensorCnt)
                .PutString("RequestId", stretch.RequestId)
                .PutInt("TotalRequestCnt", stretch.TotalRequestCnt)
                .PutInt("ErrRequestCnt", stretch.ErrRequestCnt)
                .PutFloat("Fps", stretch.Fps);
        details.push_back(std::move(detail));
    }
    return details;
}

// Reports one video performance body as one event. The count line is logged under `caller`:
// the handler itself for a video performance record, the per-group function object for a
// frame drop record. The service's answer is only counted: reporting is fire-and-forget.
void reportVideoPerf(const char* caller, const vistelVideoPerfInfo& info, ReporterScope& scope) {
    const std::vector<OvrixEvent> details = buildPerfDetails(info.perfDetail);
    VISTEL_LOG_AT(ANDROID_LOG_INFO, caller, "%s() %d subEvent is contained", caller,
                  static_cast<int>(details.size()));
    OvrixEvent event(kVideoPerfEventId);
    event.PutInt("SceneMode", info.SceneMode)
            .PutInt("ZoomRatio", info.ZoomRatio)
            .PutInt("SensorModIdx", info.SensorModIdx)
            .PutInt("SensorModCap", info.SensorModCap)
            .PutOvrixEventArray("PerfDetail", details);
    reportOvrix(event, scope);
}

}  // namespace

int VistelManager::sendEventVideoPerfData(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventVideoPerfData, __func__, event.get(), [&](ReporterScope& scope) -> int {
        VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(), "enter %s()", scope.reporter());
        if (refusedNotInitialised(scope, mInited, event.get())) return -1;
        // One report a minute, under the snapshot return-frame policy: that policy's period is the
        // one this report was given, and it has no other user.
        if (mFrequencyLimit.limitEventSnapshotRetFrmIntervalError()) {
            VISTEL_LOG_AT(
                    ANDROID_LOG_INFO, scope.reporter(),
                    "snapshot return frame interval error report is limited, drop this event");
            scope.limited();
            return -2;
        }
        reportVideoPerf(scope.reporter(), static_cast<const vistelVideoPerfData&>(*event), scope);
        return 0;
    });
}

int VistelManager::FrameDropError(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventFrameDrop, __func__, event.get(), [&](ReporterScope& scope) -> int {
        VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(), "enter %s()", scope.reporter());
        if (refusedNotInitialised(scope, mInited, event.get())) return -1;
        // Decided before the groups are looked at: a record without groups still takes the ten
        // minutes.
        if (mFrequencyLimit.limitEventVideoPerf()) {
            logLimited(scope);
            return -2;
        }
        const auto& record = static_cast<const vistelFrameDrop&>(*event);
        // One event per group; the count line carries this function object's name.
        auto reportGroup = [&scope](const vistelVideoPerfInfo& group) {
            // NOLINTNEXTLINE(bugprone-lambda-function-name): "operator()" is the name the line shows
            reportVideoPerf(__func__, group, scope);
        };
        std::for_each(record.groups.begin(), record.groups.end(), reportGroup);
        return 0;
    });
}

}  // namespace orv
