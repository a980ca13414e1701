// Kinds 15 and 16: HDR and telephoto usage counters, and the conditions of an HDR decision.
// Both go by index: the service's definitions know positions, not names.
#define LOG_TAG "VistelManager"

#include "EntryDoor.h"
#include "ReporterChecks.h"
#include "VistelEventSender.h"
#include "VistelLog.h"

namespace orv {

namespace {

constexpr unsigned int kStatisticDataEventId = 918009002;
constexpr unsigned int kHDRPDataEventId = 918009003;

}  // namespace

int VistelManager::sendEventStatisticData(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventStatisticData, __func__, event.get(), [&](ReporterScope& scope) -> int {
        if (refusedNotInitialised(scope, mInited, event.get())) return -1;
        const auto& record = static_cast<const vistelStatisticData&>(*event);
        const VistelParam params[] = {
                VistelParam::indexed(0, record.hdr_3),
                VistelParam::indexed(1, record.hdr_5),
                VistelParam::indexed(2, record.hdr_7),
                VistelParam::indexed(3, record.hsn),
                VistelParam::indexed(4, record.TeleCap),
                VistelParam::indexed(5, record.TeleVid),
                VistelParam::indexed(6, record.TeleTofPre),
                VistelParam::indexed(7, record.TeleTofVid),
        };
        if (countedSend(scope, sendVistelEvent(*this, kStatisticDataEventId, params)) != 0)
            return -1;
        // The values are logged only once the service has them.
        VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(),
                      "exit %s(), TeleCap = %d, TeleVid = %d, TeleTofPre = %d, TeleTofVid = %d",
                      scope.reporter(), record.TeleCap, record.TeleVid, record.TeleTofPre,
                      record.TeleTofVid);
        VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(),
                      "hdr_3 is %d, hdr_5 is %d, hdr_7 is %d, hsn is %d", record.hdr_3,
                      record.hdr_5, record.hdr_7, record.hsn);
        return 0;
    });
}

int VistelManager::sendEventHDRPData(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventHDRPData, __func__, event.get(), [&](ReporterScope& scope) -> int {
        if (refusedNotInitialised(scope, mInited, event.get())) return -1;
        const auto& record = static_cast<const vistelHDRPData&>(*event);
        const VistelParam params[] = {
                VistelParam::indexed(0, record.hasface),  VistelParam::indexed(1, record.backlight),
                VistelParam::indexed(2, record.point),    VistelParam::indexed(3, record.night),
                VistelParam::indexed(4, record.lowlight),
        };
        if (countedSend(scope, sendVistelEvent(*this, kHDRPDataEventId, params)) != 0) return -1;
        VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(), "exit %s()", scope.reporter());
        VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(),
                      "%s(), hasface = %d, backlight = %d, point = %d, night = %d, lowlight = %d",
                      scope.reporter(), record.hasface, record.backlight, record.point,
                      record.night, record.lowlight);
        return 0;
    });
}

}  // namespace orv
