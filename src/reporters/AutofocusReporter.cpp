// Kind 14: the autofocus conditions and timings of one capture, every parameter by name.
#define LOG_TAG "VistelManager"

#include "EntryDoor.h"
#include "FieldText.h"
#include "ReporterChecks.h"
#include "VistelEventSender.h"
#include "VistelLog.h"

namespace orv {

namespace {

constexpr unsigned int kSnapshotAfBigdataEventId = 918009001;

}  // namespace

int VistelManager::SendEventSnapshotAfBigdata(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(
            kEventSnapshotAfBigdata, __func__, event.get(), [&](ReporterScope& scope) -> int {
                if (refusedNotInitialised(scope, mInited, event.get())) return -1;
                const auto& record = static_cast<const vistelSnapshotAfBigdata&>(*event);
                TerminatedTexts<sizeof(vistelSnapshotAfBigdata)> texts;
                // Record order. The names are the service's keys, "Fous" and mixed casing included.
                const VistelParam params[] = {
                        VistelParam::integer("Distance", record.Distance),
                        VistelParam::integer("SceneType", record.SceneType),
                        VistelParam::integer("FocusType", record.FocusType),
                        VistelParam::integer("MainFousTime", record.MainFousTime),
                        VistelParam::integer("AuxFousTime", record.AuxFousTime),
                        VistelParam::integer("TeleFousTime", record.TeleFousTime),
                        VistelParam::integer("FocusRectBorder", record.FocusRectBorder),
                        VistelParam::integer("RealSubInfCode", record.RealSubInfCode),
                        VistelParam::integer("FocusRectIndex", record.FocusRectIndex),
                        VistelParam::integer("face_flag", record.face_flag),
                        VistelParam::integer("night_face", record.night_face),
                        VistelParam::integer("side_face", record.side_face),
                        VistelParam::integer("back_light_face", record.back_light_face),
                        VistelParam::integer("vcm_code", record.vcm_code),
                        VistelParam::integer("cam_id", record.cam_id),
                        VistelParam::integer("phone_status", record.phone_status),
                        VistelParam::integer("tracking_af", record.tracking_af),
                        VistelParam::integer("af_algo_type", record.af_algo_type),
                        VistelParam::integer("af_trigger_type", record.af_trigger_type),
                        VistelParam::integer("night_flag", record.night_flag),
                        VistelParam::integer("flat_flag", record.flat_flag),
                        VistelParam::integer("multi_depth_flag", record.multi_depth_flag),
                        VistelParam::integer("point_flag", record.point_flag),
                        VistelParam::integer("moon_flag", record.moon_flag),
                        VistelParam::integer("repeated_defocus", record.repeated_defocus),
                        VistelParam::integer("AmbientLight", record.AmbientLight),
                        VistelParam::integer("camera_scene", record.camera_scene),
                        VistelParam::integer("fps", record.fps),
                        VistelParam::real("zoom_ratio", record.zoom_ratio),
                        VistelParam::integer("flash_mode", record.flash_mode),
                        VistelParam::string("appName", texts.cString(record.appName)),
                };
                if (countedSend(scope, sendVistelEvent(*this, kSnapshotAfBigdataEventId, params)) !=
                    0) {
                    return -1;
                }
                VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(), "exit %s()", scope.reporter());
                return 0;
            });
}

}  // namespace orv
