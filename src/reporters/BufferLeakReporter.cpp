// Preview and capture buffers whose references were never released.
#define LOG_TAG "VistelManager"

#include "EntryDoor.h"
#include "FaultReporter.h"

namespace orv {

namespace {

using Limit = VistelManager::FrequencyLimit;

constexpr FieldReporter<vistelPreviewBufferRefLeak> kPreviewBufferRefLeak = {
        &Limit::limitEventPreviewBufferRefLeak, 918000020,
        [](const vistelPreviewBufferRefLeak& r) -> IndexedParams {
            return {r.name, r.value1, r.value2, r.value3};
        }};

constexpr FieldReporter<vistelCaptureBufferRefLeak> kCaptureBufferRefLeak = {
        &Limit::limitEventCaptureBufferRefLeak, 918000021,
        [](const vistelCaptureBufferRefLeak& r) -> IndexedParams {
            return {r.name, r.value1, r.value2, r.flag, r.value3, r.value4};
        }};

}  // namespace

int VistelManager::sendEventPreviewBufferRefLeak(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventPreviewBufferRefLeak, __func__, event.get(), [&](ReporterScope& scope) -> int {
        return reportFields(scope, kPreviewBufferRefLeak, {*this, mInited, mFrequencyLimit}, event);
    });
}

int VistelManager::sendEventCaptureBufferRefLeak(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventCaptureBufferRefLeak, __func__, event.get(), [&](ReporterScope& scope) -> int {
        return reportFields(scope, kCaptureBufferRefLeak, {*this, mInited, mFrequencyLimit}, event);
    });
}

}  // namespace orv
