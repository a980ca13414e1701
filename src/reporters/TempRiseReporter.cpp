#define LOG_TAG "VistelManager"

#include <OvrixEvent.h>
#include <VistelManager.h>

#include <string>
#include <vector>

#include "EntryDoor.h"
#include "OvrixFields.h"
#include "ReporterChecks.h"
#include "VistelLog.h"

// This report's lines carry a second location, " <qualified name>:<line>", after the prefix,
// and its progress goes out at debug priority.
// Its lines also name the reporter's qualified name and line, the way it always logged.
#define TEMP_RISE_LOG(priority, fmt, ...)                                                       \
    VISTEL_LOG_AT(priority, kTempRiseReporter, " %s:%d " fmt, kTempRiseQualifiedName, __LINE__, \
                  ##__VA_ARGS__)

namespace orv {

namespace {

constexpr int kTempRiseEntryEventId = 918009008;
constexpr int kTempRiseBatchEventId = 918009009;
constexpr const char kTempRiseReporter[] = "sendDailyTempRise";
constexpr const char kTempRiseQualifiedName[] = "orv::VistelManager::sendDailyTempRise";
// Sub-events per 918009009 event: bounds the size of each report however long the day was.
constexpr int kBatchSize = 60;

}  // namespace

int VistelManager::sendDailyTempRise(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventDailyTempRise, __func__, event.get(), [&](ReporterScope& scope) -> int {
        const auto* record = static_cast<const vistelDailyTempRise*>(event.get());
        TEMP_RISE_LOG(ANDROID_LOG_DEBUG, "CameraHeatBigData enter %s()", scope.reporter());
        if (!mInited || record == nullptr) {
            TEMP_RISE_LOG(ANDROID_LOG_ERROR, "%s() error: event=%p, inited=%d not valid",
                          scope.reporter(), static_cast<const void*>(record), mInited);
            scope.notInitialised();
            return -1;
        }

        const int entryCount = static_cast<int>(record->costEntries.size());
        const int batchCount = (entryCount + kBatchSize - 1) / kBatchSize;
        TEMP_RISE_LOG(ANDROID_LOG_DEBUG, "cameraheatbigdata numOf9008 %d, numOf90009 %d",
                      entryCount, batchCount);

        std::vector<OvrixEvent> batch;
        batch.reserve(kBatchSize);
        for (int i = 0; i < entryCount; ++i) {
            // "TimeCost" is the entry's position in the day, not a duration.
            batch.push_back(OvrixEvent(kTempRiseEntryEventId)
                                    .PutString("CR", record->costEntries[i])
                                    .PutString("TimeCost", std::to_string(i)));
            // A full batch, or the remainder once the last entry is in.
            if ((i + 1) % kBatchSize == 0 || i + 1 == entryCount) {
                OvrixEvent report(kTempRiseBatchEventId);
                report.PutString("AppName", record->appName)
                        .PutString("OpenTime", record->openTime)
                        .PutOvrixEventArray("ROOTCOST", batch);
                reportOvrix(report, scope);
                batch.clear();
                TEMP_RISE_LOG(ANDROID_LOG_DEBUG, "cameraheatbigdata Report90009 %d, index %d",
                              i / kBatchSize, i);
            }
        }

        TEMP_RISE_LOG(ANDROID_LOG_DEBUG, "CameraHeatBigData exit %s()", scope.reporter());
        return 0;
    });
}

}  // namespace orv
