#define LOG_TAG "VistelManager"

#include <OvrixEvent.h>
#include <VistelManager.h>

#include <cstdio>
#include <string>
#include <vector>

#include "EntryDoor.h"
#include "HealthReporting.h"
#include "OvrixFields.h"
#include "ReporterChecks.h"
#include "VistelLog.h"

namespace orv {

namespace {

constexpr int kBootStepEventId = 918009008;
constexpr int kBootNodeEventId = 918009009;

// The boot time-out is rate-limited; the scan message carries the same record and never is.
// Their answers to an uninitialised manager differ (-1 and -2, as the kind list gives them): both
// are part of the contract with the camera stack, so neither is aligned with the other.
constexpr HealthAdmission kBootTimeoutAdmission = {
        kEventBootTimeout,
        HealthAdmission::NotInitialisedLine::kInitFailed,
        &VistelManager::FrequencyLimit::limitEventBootPerf,
};
constexpr HealthAdmission kScanMsgAdmission = {
        kEventScanMsg,
        HealthAdmission::NotInitialisedLine::kInitFailed,
        nullptr,
};

// The mixed-case keys are what the data team reads; keep them as they are.
constexpr OvrixField<SingleBootNode> kBootNodeFields[] = {
        {"THERMALLEVEL", &SingleBootNode::thermalLevel},
        {"STARTMEMORY", &SingleBootNode::startMemory},
        {"ENDMEMORY", &SingleBootNode::endMemory},
        {"CPUSCENEMODE", &SingleBootNode::cpuSceneMode},
        {"THRESHOLD", &SingleBootNode::threshold},
        {"ACTUALCOST", &SingleBootNode::actualCost},
        {"OPENTIME", &SingleBootNode::openTime},
        {"CAMERASCENEMODE", &SingleBootNode::cameraSceneMode},
        {"APPNAME", &SingleBootNode::appName},
        {"FirstFrameCost", &SingleBootNode::firstFrameCost},
        {"FirstFrame2ScanClose", &SingleBootNode::firstFrame2ScanClose},
};

// Fixed notation, three decimals: 12.5 -> "12.500". Large enough for any float, inf and nan.
std::string formatStepCost(float cost) {
    char text[64];
    snprintf(text, sizeof(text), "%.3f", static_cast<double>(cost));
    return text;
}

// sendBootMsg's work, counted in the outcome of the record it serves, or of the direct call when
// the camera stack calls sendBootMsg itself. Logged under sendBootMsg's name. Throws when memory
// runs out: sendBootMsg answers that with its error line, kinds 25 and 31 with their failed
// result.
void reportBootNodes(const std::vector<SingleBootNode>& nodes, ReporterScope& scope) {
    constexpr const char* kFunction = "sendBootMsg";
    VISTEL_LOG_AT(ANDROID_LOG_INFO, kFunction, "enter %s(), size:%d", kFunction,
                  static_cast<int>(nodes.size()));
    for (const SingleBootNode& node : nodes) {
        OvrixEvent report = makeOvrixEvent(kBootNodeEventId, node, kBootNodeFields);
        const std::string openTime = std::to_string(node.openTime);
        // Stages go in the map's own order; readers find them by key, not by position.
        for (const auto& [stage, steps] : node.stageCosts) {
            std::vector<OvrixEvent> stepEvents;
            stepEvents.reserve(steps.size());
            for (const vistelBootStepCost& step : steps) {
                stepEvents.push_back(OvrixEvent(kBootStepEventId)
                                             .PutString("CR", step.name)
                                             .PutString("TimeCost", formatStepCost(step.cost)));
            }
            VISTEL_LOG_AT(ANDROID_LOG_INFO, kFunction, "%s() time(%s)(%s) packing size:%d",
                          kFunction, openTime.c_str(), stage.c_str(),
                          static_cast<int>(stepEvents.size()));
            report.PutOvrixEventArray(stage + "COST", stepEvents);
        }
        reportOvrix(report, scope);
    }
}

// Kinds 25 and 31 share this flow and differ only in their admission.
int reportBootRecord(ReporterScope& scope, const HealthAdmission& admission, const bool& inited,
                     VistelEventBase* event, VistelManager::FrequencyLimit& limit) {
    auto* record = static_cast<vistelBootMsg*>(event);
    if (auto refusal = refuseHealthRecord(scope, admission, inited, record, limit)) {
        return *refusal;
    }
    reportBootNodes(record->bootNodes, scope);
    VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(), "exit %s()", scope.reporter());
    return 0;
}

}  // namespace

void VistelManager::sendBootMsg(std::vector<SingleBootNode>& nodes) {
    // No record behind it: the call is counted in a row of its own, as a record.
    enterHandler(static_cast<VistelEvent>(counters::kOutsideDispatch), __func__, nullptr,
                 [&](ReporterScope& scope) {
                     reportBootNodes(nodes, scope);
                     return 0;
                 });
}

int VistelManager::sendBootTimeout(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventBootTimeout, __func__, event.get(), [&](ReporterScope& scope) -> int {
        return reportBootRecord(scope, kBootTimeoutAdmission, mInited, event.get(), mFrequencyLimit);
    });
}

int VistelManager::sendScanMsgReport(std::shared_ptr<VistelEventBase> event) {
    return enterHandler(kEventScanMsg, __func__, event.get(), [&](ReporterScope& scope) -> int {
        return reportBootRecord(scope, kScanMsgAdmission, mInited, event.get(), mFrequencyLimit);
    });
}

}  // namespace orv
