// Preview and capture buffers whose references were never released.
#define LOG_TAG "VistelManager"

#include "FaultReporter.h"

namespace orv {

namespace {

using Limit = VistelManager::FrequencyLimit;

constexpr FieldReporter<vistelPreviewBufferRefLeak> kPreviewBufferRefLeak = {
        kEventPreviewBufferRefLeak, &Limit::limitEventPreviewBufferRefLeak, 918000020,
        [](const vistelPreviewBufferRefLeak& r) -> IndexedParams {
            return {r.name, r.value1, r.value2, r.value3};
        }};

constexpr FieldReporter<vistelCaptureBufferRefLeak> kCaptureBufferRefLeak = {
        kEventCaptureBufferRefLeak, &Limit::limitEventCaptureBufferRefLeak, 918000021,
        [](const vistelCaptureBufferRefLeak& r) -> IndexedParams {
            return {r.name, r.value1, r.value2, r.flag, r.value3, r.value4};
        }};

}  // namespace

int VistelManager::sendEventPreviewBufferRefLeak(std::shared_ptr<VistelEventBase> event) try {
    return reportFields(__func__, kPreviewBufferRefLeak, {*this, mInited, mFrequencyLimit}, event);
} catch (const std::exception& e) {
    return reportFailed(__func__, e);
}

int VistelManager::sendEventCaptureBufferRefLeak(std::shared_ptr<VistelEventBase> event) try {
    return reportFields(__func__, kCaptureBufferRefLeak, {*this, mInited, mFrequencyLimit}, event);
} catch (const std::exception& e) {
    return reportFailed(__func__, e);
}

}  // namespace orv
