// Kind 17: the richer snapshot report, from the byte-packed record, every parameter by name.
#define LOG_TAG "VistelManager"

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>

#include "EntryDoor.h"
#include "FieldText.h"
#include "ReporterChecks.h"
#include "VistelEventSender.h"
#include "VistelLog.h"

namespace orv {

namespace {

constexpr unsigned int kSnapshotBigdataV2EventId = 918009005;

constexpr size_t kPerfSlots = std::extent_v<decltype(vistelSnapshotBigdataV2::perf)>;
constexpr size_t kExpoListLength = std::extent_v<decltype(vistelSnapshotBigdataV2::expoList)>;
constexpr size_t kAeCountLength = std::extent_v<decltype(vistelSnapshotBigdataV2::aeCount)>;

// Perf is expanded with an index pack so that the whole parameter list stays one table: every
// algorithm name is sent, in slot order, before every cost, used slots or not.
template <size_t... Slot>
int sendSnapshotV2(const VistelManager& manager, const vistelSnapshotBigdataV2& record,
                   const char* expoList, const char* aeCount, std::index_sequence<Slot...>) {
    TerminatedTexts<sizeof(vistelSnapshotBigdataV2)> texts;
    const VistelParam params[] = {
            VistelParam::integer("sensorPosition", record.sensorPosition),
            VistelParam::integer("previewLogicalId", record.previewLogicalId),
            VistelParam::real("zoomRatio", record.zoomRatio),
            VistelParam::integer("FaceNum", record.FaceNum),
            VistelParam::integer("iso", record.iso),
            VistelParam::integer("expo", record.expo),
            VistelParam::integer("aecStabe", record.aecStabe),
            VistelParam::integer("awbColorTemp", record.awbColorTemp),
            VistelParam::integer("snapshotId", record.snapshotId),
            VistelParam::integer("cameraScene", record.cameraScene),
            VistelParam::string("PerfAlgoName", texts.cString(record.perf[Slot].algoName),
                                TYPE_STRING_ARRAY)...,
            VistelParam::integer("PerfCostTime", record.perf[Slot].costTime, TYPE_INT_ARRAY)...,
            VistelParam::integer("hdrMode", record.hdrMode),
            VistelParam::integer("frameIndex", record.frameIndex),
            VistelParam::integer("frameCount", record.frameCount),
            VistelParam::integer("masterAIMode", record.masterAIMode),
            VistelParam::string("jpegName", texts.cString(record.jpegName)),
            VistelParam::integer("shutterLag", record.shutterLag),
            VistelParam::integer("captureBeginTemp", record.captureBeginTemp),
            VistelParam::integer("captureEndTemp", record.captureEndTemp),
            VistelParam::integer("cameraOpenTemp", record.cameraOpenTemp),
            VistelParam::integer("cieScene", record.cieScene),
            VistelParam::integer("picWidth", record.picWidth),
            VistelParam::integer("picHeight", record.picHeight),
            VistelParam::string("gyroInfo", texts.cString(record.gyroInfo)),
            VistelParam::string("algoTag", texts.cString(record.algoTag)),
            VistelParam::integer("betaDump", record.betaDump),
            VistelParam::string("expoList", expoList),
            // Already text: the camera stack formats it, unlike the two numeric lists.
            VistelParam::string("isoList", texts.cString(record.isoList)),
            VistelParam::integer("previewDropIndex", record.previewDropIndex),
            VistelParam::string("aeCount", aeCount),
            VistelParam::integer("beautylevel", record.beautylevel),
            VistelParam::string("sensorname", texts.cString(record.sensorname)),
    };
    return sendVistelEvent(manager, kSnapshotBigdataV2EventId, params);
}

}  // namespace

int VistelManager::SendEventSnapshotBigdataV2(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(
            kEventSnapshotBigdataV2, __func__, event.get(), [&](ReporterScope& scope) -> int {
                if (refusedNotInitialised(scope, mInited, event.get())) return -1;
                // Read in place, never copied (it is over a kilobyte). The record is packed, so a
                // reference or pointer to one of its 32-bit lists would be misaligned: their elements
                // are read by value into aligned arrays, which Array2String takes by reference. Text
                // fields are taken by reference as they stand, which char's alignment of one makes safe.
                const auto& record = static_cast<const vistelSnapshotBigdataV2&>(*event);
                uint32_t expoList[kExpoListLength];
                uint32_t aeCount[kAeCountLength];
                for (size_t i = 0; i < kExpoListLength; ++i) expoList[i] = record.expoList[i];
                for (size_t i = 0; i < kAeCountLength; ++i) aeCount[i] = record.aeCount[i];
                const std::string expoListText = Array2String(expoList);
                const std::string aeCountText = Array2String(aeCount);
                const int sent =
                        sendSnapshotV2(*this, record, expoListText.c_str(), aeCountText.c_str(),
                                       std::make_index_sequence<kPerfSlots>());
                if (countedSend(scope, sent) != 0) return -1;
                VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(), "exit %s()", scope.reporter());
                return 0;
            });
}

}  // namespace orv
