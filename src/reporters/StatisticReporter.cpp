// Kinds 15 and 16: HDR and telephoto usage counters, and the conditions of an HDR decision.
// Both go by index: the service's definitions know positions, not names.
#define LOG_TAG "VistelManager"

#include "ReporterChecks.h"
#include "VistelEventSender.h"
#include "VistelLog.h"

namespace orv {

namespace {

constexpr unsigned int kStatisticDataEventId = 918009002;
constexpr unsigned int kHDRPDataEventId = 918009003;

}  // namespace

int VistelManager::sendEventStatisticData(std::shared_ptr<VistelEventBase> event) try {
    ReporterScope scope(__func__, counters::of(kEventStatisticData));
    if (!scope.admitted()) return -1;
    if (refusedNotInitialised(scope, mInited, event.get())) return -1;
    const auto& record = static_cast<const vistelStatisticData&>(*event);
    const VistelParam params[] = {
            VistelParam::indexed(0, record.hdr_3),      VistelParam::indexed(1, record.hdr_5),
            VistelParam::indexed(2, record.hdr_7),      VistelParam::indexed(3, record.hsn),
            VistelParam::indexed(4, record.TeleCap),    VistelParam::indexed(5, record.TeleVid),
            VistelParam::indexed(6, record.TeleTofPre), VistelParam::indexed(7, record.TeleTofVid),
    };
    if (countedSend(scope, sendVistelEvent(*this, kStatisticDataEventId, params)) != 0) return -1;
    // The values are logged only once the service has them.
    VLOGI("exit %s(), TeleCap = %d, TeleVid = %d, TeleTofPre = %d, TeleTofVid = %d", __func__,
          record.TeleCap, record.TeleVid, record.TeleTofPre, record.TeleTofVid);
    VLOGI("hdr_3 is %d, hdr_5 is %d, hdr_7 is %d, hsn is %d", record.hdr_3, record.hdr_5,
          record.hdr_7, record.hsn);
    return 0;
} catch (const std::exception& e) {
    return reportFailed(__func__, e);
}

int VistelManager::sendEventHDRPData(std::shared_ptr<VistelEventBase> event) try {
    ReporterScope scope(__func__, counters::of(kEventHDRPData));
    if (!scope.admitted()) return -1;
    if (refusedNotInitialised(scope, mInited, event.get())) return -1;
    const auto& record = static_cast<const vistelHDRPData&>(*event);
    const VistelParam params[] = {
            VistelParam::indexed(0, record.hasface),  VistelParam::indexed(1, record.backlight),
            VistelParam::indexed(2, record.point),    VistelParam::indexed(3, record.night),
            VistelParam::indexed(4, record.lowlight),
    };
    if (countedSend(scope, sendVistelEvent(*this, kHDRPDataEventId, params)) != 0) return -1;
    VLOGI("exit %s()", __func__);
    VLOGI("%s(), hasface = %d, backlight = %d, point = %d, night = %d, lowlight = %d", __func__,
          record.hasface, record.backlight, record.point, record.night, record.lowlight);
    return 0;
} catch (const std::exception& e) {
    return reportFailed(__func__, e);
}

}  // namespace orv
