// Memory faults seen by the camera stack: leaks, shortages, limits hit, poor efficiency and
// failed allocations, each sent as one Vistel event with the record's fields by index.
#define LOG_TAG "VistelManager"

#include "EntryDoor.h"
#include "FaultReporter.h"

namespace orv {

namespace {

using Limit = VistelManager::FrequencyLimit;

constexpr FieldReporter<vistelMemLeak> kMemLeak = {
        &Limit::limitEventMemLeak, 918000000, [](const vistelMemLeak& r) -> IndexedParams {
            return {r.name, r.secondName, r.value1, r.value2, r.value3};
        }};

// Limited per value of its first integer: the policy reads that field's bytes as the key.
constexpr FieldReporter<vistelMemShortage> kMemShortage = {
        &Limit::limitEventMemShortage, 918000001, [](const vistelMemShortage& r) -> IndexedParams {
            return {r.value1, r.value2, r.value3, r.firstName, r.secondName};
        }};

constexpr FieldReporter<vistelMemLimit> kMemLimit = {
        &Limit::limitEventMemLimit, 918001000, [](const vistelMemLimit& r) -> IndexedParams {
            return {r.name, r.secondName, r.value1, r.value2};
        }};

// Like the allocation failure, limited without a key: one report an hour for the whole kind.
constexpr FieldReporter<vistelMemEfficiencyWarning> kMemEfficiencyWarning = {
        &Limit::limitEventMemEfficiencyWarning, 918001001,
        [](const vistelMemEfficiencyWarning& r) -> IndexedParams {
            return {r.value1, r.shortName, r.value2, r.name};
        }};

constexpr FieldReporter<vistelMemAllocFail> kMemAllocFail = {
        &Limit::limitEventMemAllocFail, 918000002, [](const vistelMemAllocFail& r) -> IndexedParams {
            const int32_t* v = r.values;
            return {v[0], v[1], v[2], v[3], v[4], v[5], r.flag, r.shortName, r.name, r.secondName};
        }};

}  // namespace

int VistelManager::sendEventMemLeak(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventMemLeak, __func__, event.get(), [&](ReporterScope& scope) -> int {
        return reportFields(scope, kMemLeak, {*this, mInited, mFrequencyLimit}, event);
    });
}

int VistelManager::sendEventMemShortage(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventMemShortage, __func__, event.get(), [&](ReporterScope& scope) -> int {
        return reportFields(scope, kMemShortage, {*this, mInited, mFrequencyLimit}, event);
    });
}

int VistelManager::sendEventMemLimit(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventMemLimit, __func__, event.get(), [&](ReporterScope& scope) -> int {
        return reportFields(scope, kMemLimit, {*this, mInited, mFrequencyLimit}, event);
    });
}

int VistelManager::sendEventMemEfficiencyWarning(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventMemEfficiencyWarning, __func__, event.get(), [&](ReporterScope& scope) -> int {
        return reportFields(scope, kMemEfficiencyWarning, {*this, mInited, mFrequencyLimit}, event);
    });
}

int VistelManager::sendEventMemAllocFail(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventMemAllocFail, __func__, event.get(), [&](ReporterScope& scope) -> int {
        return reportFields(scope, kMemAllocFail, {*this, mInited, mFrequencyLimit}, event);
    });
}

}  // namespace orv
