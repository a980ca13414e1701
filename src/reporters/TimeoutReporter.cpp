// Pipeline stages that took too long. The algorithm, snapshot and other time-outs come as a
// rate-limited warning and error; the flush, stop, session-uninit, config-stream and
// post-process time-outs are errors only and never limited. One builder per record body sends
// the event, its id chosen by isError.
#define LOG_TAG "VistelManager"

#include <cstddef>

#include "EntryDoor.h"
#include "FaultReporter.h"

namespace orv {

namespace {

using Limit = VistelManager::FrequencyLimit;

constexpr bool kError = true;
constexpr bool kWarning = false;
constexpr std::nullptr_t kNeverLimited = nullptr;

// A time-out event: the id for each sense of isError, and the record's fields by index.
template <typename Body>
struct TimeoutEvent {
    unsigned int errorId;
    unsigned int warningId;
    IndexedParams (*params)(const Body&);
};

template <typename Body>
int sendTimeoutEvent(const VistelManager& manager, const TimeoutEvent<Body>& event,
                     const Body& data, bool isError) {
    return sendIndexedEvent(manager, isError ? event.errorId : event.warningId, event.params(data));
}

constexpr TimeoutEvent<vistelAlgoProcessTimeout> kAlgoProcessTimeout = {
        918000040, 918001020, [](const vistelAlgoProcessTimeout& r) -> IndexedParams {
            return {r.name, r.value1, r.shortName, r.value2, r.value3};
        }};

constexpr TimeoutEvent<vistelSnapshotTimeout> kSnapshotTimeout = {
        918000060, 918001040, [](const vistelSnapshotTimeout& r) -> IndexedParams {
            const int32_t* v = r.values;
            return {r.name, v[0], v[1], v[2], v[3], v[4]};
        }};

IndexedParams otherTimeoutParams(const vistelOtherTimeout& r) {
    return {r.firstName, r.secondName, r.value1, r.shortName, r.value2, r.value3};
}

constexpr TimeoutEvent<vistelOtherTimeout> kOtherTimeout = {918000061, 918001041,
                                                            otherTimeoutParams};

// The flush, stop, session-uninit and config-stream builders choose in the opposite sense: their
// errors go out under the other time-out's warning id. The collected data is keyed that way, so
// it stays.
constexpr TimeoutEvent<vistelOtherTimeout> kStageTimeout = {918001041, 918000061,
                                                            otherTimeoutParams};

// Shares its error id with the algorithm time-out. Each flag goes next to the value it
// qualifies, then value 5, then the description.
constexpr TimeoutEvent<vistelPostProcessTimeOut> kPostProcessTimeout = {
        918000040, 918001020, [](const vistelPostProcessTimeOut& r) -> IndexedParams {
            // clang-format off
            return {r.name,
                    r.flag1, r.value1,
                    r.flag2, r.value2,
                    r.flag3, r.value3,
                    r.flag4, r.value4,
                    r.value5,
                    r.description};
            // clang-format on
        }};

// Keeps a parameter out of template argument deduction, so that kNeverLimited can be passed.
template <typename T>
struct NonDeduced {
    using Type = T;
};

template <typename Body>
using TimeoutBuilder = int (VistelManager::*)(Body*, bool) const;

template <typename Body>
int reportTimeout(ReporterScope& scope, typename NonDeduced<LimitPolicy<Body>>::Type limit,
                  TimeoutBuilder<Body> builder, bool isError, const ReporterContext& context,
                  const std::shared_ptr<VistelEventBase>& event) {
    return reportFault<Body>(scope, context, event, askLimiter(context.limiter, limit),
                             [&](Body* data) { return (context.manager.*builder)(data, isError); });
}

}  // namespace

// ---- Builders ----

int VistelManager::sendEventAlgoProcessTimeout(vistelAlgoProcessTimeout* data, bool isError) const {
    return sendTimeoutEvent(*this, kAlgoProcessTimeout, *data, isError);
}

int VistelManager::sendEventSnapshotTimeout(vistelSnapshotTimeout* data, bool isError) const {
    return sendTimeoutEvent(*this, kSnapshotTimeout, *data, isError);
}

int VistelManager::sendEventOtherTimeout(vistelOtherTimeout* data, bool isError) const {
    return sendTimeoutEvent(*this, kOtherTimeout, *data, isError);
}

int VistelManager::sendEventFlushProcessTimeout(vistelOtherTimeout* data, bool isError) const {
    return sendTimeoutEvent(*this, kStageTimeout, *data, isError);
}

int VistelManager::sendEventStopProcessTimeout(vistelOtherTimeout* data, bool isError) const {
    return sendTimeoutEvent(*this, kStageTimeout, *data, isError);
}

int VistelManager::sendEventSessionUninitProcessTimeout(vistelOtherTimeout* data,
                                                        bool isError) const {
    return sendTimeoutEvent(*this, kStageTimeout, *data, isError);
}

int VistelManager::sendEventConfigStreamProcessTimeout(vistelOtherTimeout* data,
                                                       bool isError) const {
    return sendTimeoutEvent(*this, kStageTimeout, *data, isError);
}

// The one builder that logs its own enter and exit.
int VistelManager::sendEventPostProcessTimeout(vistelPostProcessTimeOut* data, bool isError) const {
    VLOGI("enter %s()", __func__);
    if (sendTimeoutEvent(*this, kPostProcessTimeout, *data, isError) != 0) return -1;
    VLOGI("exit %s()", __func__);
    return 0;
}

// ---- Reporters: limiter policy, builder, isError ----

int VistelManager::sendEventAlgoProcessTimeoutWarning(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventAlgoProcessTimeoutWarning, __func__, event.get(),
                        [&](ReporterScope& scope) -> int {
                            return reportTimeout(scope, &Limit::limitEventAlgoProcessTimeoutWarning,
                                                 &VistelManager::sendEventAlgoProcessTimeout,
                                                 kWarning, {*this, mInited, mFrequencyLimit}, event);
                        });
}

int VistelManager::sendEventAlgoProcessTimeoutError(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventAlgoProcessTimeoutError, __func__, event.get(),
                        [&](ReporterScope& scope) -> int {
                            return reportTimeout(scope, &Limit::limitEventAlgoProcessTimeoutError,
                                                 &VistelManager::sendEventAlgoProcessTimeout,
                                                 kError, {*this, mInited, mFrequencyLimit}, event);
                        });
}

int VistelManager::sendEventSnapshotTimeoutWarning(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventSnapshotTimeoutWarning, __func__, event.get(),
                        [&](ReporterScope& scope) -> int {
                            return reportTimeout(scope, &Limit::limitEventSnapshotTimeoutWarning,
                                                 &VistelManager::sendEventSnapshotTimeout, kWarning,
                                                 {*this, mInited, mFrequencyLimit}, event);
                        });
}

int VistelManager::sendEventSnapshotTimeoutError(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventSnapshotTimeoutError, __func__, event.get(),
                        [&](ReporterScope& scope) -> int {
                            return reportTimeout(scope, &Limit::limitEventSnapshotTimeoutError,
                                                 &VistelManager::sendEventSnapshotTimeout, kError,
                                                 {*this, mInited, mFrequencyLimit}, event);
                        });
}

int VistelManager::sendEventOtherTimeoutWarning(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventOtherTimeoutWarning, __func__, event.get(),
                        [&](ReporterScope& scope) -> int {
                            return reportTimeout(scope, &Limit::limitEventOtherTimeoutWarning,
                                                 &VistelManager::sendEventOtherTimeout, kWarning,
                                                 {*this, mInited, mFrequencyLimit}, event);
                        });
}

int VistelManager::sendEventOtherTimeoutError(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventOtherTimeoutError, __func__, event.get(),
                        [&](ReporterScope& scope) -> int {
                            return reportTimeout(scope, &Limit::limitEventOtherTimeoutError,
                                                 &VistelManager::sendEventOtherTimeout, kError,
                                                 {*this, mInited, mFrequencyLimit}, event);
                        });
}

int VistelManager::sendEventFlushProcessTimeoutError(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventFlushProcessTimeoutError, __func__, event.get(),
                        [&](ReporterScope& scope) -> int {
                            return reportTimeout(scope, kNeverLimited,
                                                 &VistelManager::sendEventFlushProcessTimeout,
                                                 kError, {*this, mInited, mFrequencyLimit}, event);
                        });
}

int VistelManager::sendEventStopProcessTimeoutError(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventStopProcessTimeoutError, __func__, event.get(),
                        [&](ReporterScope& scope) -> int {
                            return reportTimeout(scope, kNeverLimited,
                                                 &VistelManager::sendEventStopProcessTimeout,
                                                 kError, {*this, mInited, mFrequencyLimit}, event);
                        });
}

int VistelManager::sendEventSessionUninitProcessTimeoutError(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventSessionUninitProcessTimeoutError, __func__, event.get(),
                        [&](ReporterScope& scope) -> int {
                            return reportTimeout(
                                    scope, kNeverLimited,
                                    &VistelManager::sendEventSessionUninitProcessTimeout, kError,
                                    {*this, mInited, mFrequencyLimit}, event);
                        });
}

int VistelManager::sendEventConfigStreamProcessTimeoutError(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventConfigStreamProcessTimeoutError, __func__, event.get(),
                        [&](ReporterScope& scope) -> int {
                            return reportTimeout(scope, kNeverLimited,
                                                 &VistelManager::sendEventConfigStreamProcessTimeout,
                                                 kError, {*this, mInited, mFrequencyLimit}, event);
                        });
}

int VistelManager::sendEventPostProcessTimeoutError(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventPostProcessTimeoutError, __func__, event.get(),
                        [&](ReporterScope& scope) -> int {
                            return reportTimeout(scope, kNeverLimited,
                                                 &VistelManager::sendEventPostProcessTimeout,
                                                 kError, {*this, mInited, mFrequencyLimit}, event);
                        });
}

}  // namespace orv
