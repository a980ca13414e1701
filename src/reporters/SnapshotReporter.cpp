// Kind 13: one snapshot's exposure and face statistics, every parameter by name.
#define LOG_TAG "VistelManager"

#include "EntryDoor.h"
#include "FieldText.h"
#include "ReporterChecks.h"
#include "VistelEventSender.h"
#include "VistelLog.h"

namespace orv {

namespace {

constexpr unsigned int kSnapshotBigdataEventId = 918009000;

}  // namespace

int VistelManager::sendEventSnapshotBigdata(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventSnapshotBigdata, __func__, event.get(), [&](ReporterScope& scope) -> int {
        VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(), "enter %s()", scope.reporter());
        if (refusedNotInitialised(scope, mInited, event.get())) return -1;
        const auto& record = static_cast<const vistelSnapshotBigdata&>(*event);
        TerminatedTexts<sizeof(vistelSnapshotBigdata)> texts;
        // The service's schema lists the time first and the scene last, not in record order.
        const VistelParam params[] = {
                VistelParam::integer("snapshotTime", record.snapshotTime),
                VistelParam::integer("sensor_position", record.sensor_position),
                VistelParam::integer("faceNumber", record.faceNumber),
                VistelParam::string("faceSize", texts.cString(record.faceSize)),
                VistelParam::string("faceRect_left", texts.cString(record.faceRect_left)),
                VistelParam::string("faceRect_top", texts.cString(record.faceRect_top)),
                VistelParam::string("faceRect_right", texts.cString(record.faceRect_right)),
                VistelParam::string("faceRect_bottom", texts.cString(record.faceRect_bottom)),
                VistelParam::string("faceType", texts.cString(record.faceType)),
                VistelParam::integer("iso", record.iso),
                VistelParam::integer("exp", record.exp),
                VistelParam::integer("overExpo", record.overExpo),
                VistelParam::integer("underExpo", record.underExpo),
                VistelParam::integer("aecStabe", record.aecStabe),
                VistelParam::integer("awbColorTemp", record.awbColorTemp),
                VistelParam::integer("isMFNR", record.isMFNR),
                VistelParam::integer("isBeauty", record.isBeauty),
                VistelParam::integer("isHDR", record.isHDR),
                VistelParam::integer("beautyMode", record.beautyMode),
                VistelParam::integer("scene", record.scene),
        };
        if (countedSend(scope, sendVistelEvent(*this, kSnapshotBigdataEventId, params)) != 0) {
            return -1;
        }
        VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(), "exit %s()", scope.reporter());
        return 0;
    });
}

}  // namespace orv
