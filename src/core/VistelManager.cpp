#define LOG_TAG "VistelManager"

#include <VistelManager.h>

#include <QorThreadManager.h>
#include <safeclib/safe_mem_lib.h>

#include <map>
#include <type_traits>

#include "VistelCounters.h"
#include "VistelLibLoader.h"
#include "VistelLog.h"

namespace orv {

namespace {

// Image dump folders of the camera stack; kept with the manager, read by nobody here.
const std::string kImageDumpPath = "/data/vendor/camera/img/";
const std::string kCalibDumpPath = "/data/vendor/camera/img/gos_calib_offline_test/";

// One handler per kind, in registration order.
struct Registration {
    VistelEvent kind;
    VistelManager::HandlerMethod handler;
};

// The member function each registered kind's handler calls. Every queued record carries a copy
// of its handler; a handler holding the member-function pointer itself (16 bytes) beside the
// manager's address would not fit std::function's inline buffer, and each copy would take a
// heap block of its own. Pointing at the entry here keeps a handler at two plain pointers.
// Filled while the manager is built; never destroyed, because tasks still queued at exit keep
// their copies of the handlers. Map nodes never move.
std::map<VistelEvent, VistelManager::HandlerMethod>& handlerMethods() {
    static auto* const sMethods = new std::map<VistelEvent, VistelManager::HandlerMethod>();
    return *sMethods;
}

}  // namespace

VistelManager* VistelManager::GetInstance() {
    // Built once, under the language's thread-safe guard, and destroyed at exit or unload.
    static VistelManager instance;
    return &instance;
}

VistelManager::VistelManager()
    : mThreadManager(QorThreadManager::GetInstance()), mInited(false), mLibLoader(nullptr) {
    Init();
}

VistelManager::~VistelManager() {
    if (mLibLoader != nullptr) {
        VistelLibLoader::destroyInstance();
        mLibLoader = nullptr;
    }
}

void VistelManager::Init() {
    if (memcpy_s(g_logGitTag, kBuildTagLength, kBuildTag, kBuildTagLength) != 0) {
        VLOGE(" %s:%d %s failed", VISTEL_QUALIFIED_NAME(), __LINE__,
              "memcpy_s(g_logGitTag, strlen(STR(__GIT_LOG__)), STR(__GIT_LOG__), "
              "strlen(STR(__GIT_LOG__)))");
    }
    VLOGI("enter VistelManager::Init, gitVersion:%s", g_logGitTag);

    mInited = false;
    mLibLoader = VistelLibLoader::getInstance();
    if (mLibLoader == nullptr) {
        VLOGE("%s() VistelLibLoader::getInstance failed", __func__);
    } else {
        mInited = true;
    }

    // Registered whether or not the service bound, so that every record still reaches its
    // reporter, which then answers "not initialised".
    static const Registration kRegistrations[] = {
            {kEventMemLeak, &VistelManager::sendEventMemLeak},
            {kEventMemShortage, &VistelManager::sendEventMemShortage},
            {kEventMemLimit, &VistelManager::sendEventMemLimit},
            {kEventMemEfficiencyWarning, &VistelManager::sendEventMemEfficiencyWarning},
            {kEventMemAllocFail, &VistelManager::sendEventMemAllocFail},
            {kEventPreviewBufferRefLeak, &VistelManager::sendEventPreviewBufferRefLeak},
            {kEventCaptureBufferRefLeak, &VistelManager::sendEventCaptureBufferRefLeak},
            {kEventAlgoProcessTimeoutWarning, &VistelManager::sendEventAlgoProcessTimeoutWarning},
            {kEventAlgoProcessTimeoutError, &VistelManager::sendEventAlgoProcessTimeoutError},
            {kEventSnapshotTimeoutWarning, &VistelManager::sendEventSnapshotTimeoutWarning},
            {kEventSnapshotTimeoutError, &VistelManager::sendEventSnapshotTimeoutError},
            {kEventOtherTimeoutWarning, &VistelManager::sendEventOtherTimeoutWarning},
            {kEventOtherTimeoutError, &VistelManager::sendEventOtherTimeoutError},
            {kEventSnapshotBigdata, &VistelManager::sendEventSnapshotBigdata},
            {kEventSnapshotAfBigdata, &VistelManager::SendEventSnapshotAfBigdata},
            {kEventStatisticData, &VistelManager::sendEventStatisticData},
            {kEventHDRPData, &VistelManager::sendEventHDRPData},
            {kEventSnapshotBigdataV2, &VistelManager::SendEventSnapshotBigdataV2},
            {kEventAlgoProcessTimeoutDumpSystrace,
             &VistelManager::SendEventAlgoProcessTimeoutDumpSystrace},
            {kEventFlushProcessTimeoutError, &VistelManager::sendEventFlushProcessTimeoutError},
            {kEventStopProcessTimeoutError, &VistelManager::sendEventStopProcessTimeoutError},
            {kEventSessionUninitProcessTimeoutError,
             &VistelManager::sendEventSessionUninitProcessTimeoutError},
            {kEventConfigStreamProcessTimeoutError,
             &VistelManager::sendEventConfigStreamProcessTimeoutError},
            {kEventVideoPerfData, &VistelManager::sendEventVideoPerfData},
            {kEventPostProcessTimeoutError, &VistelManager::sendEventPostProcessTimeoutError},
            {kEventBootTimeout, &VistelManager::sendBootTimeout},
            {kEventDumpTrace, &VistelManager::dumpTrace},
            {kEventFrameDrop, &VistelManager::FrameDropError},
            {kEventMemoryExceedThreshold, &VistelManager::sendMemoryExceedThreshold},
            {kEventMemoryAllocTimeout, &VistelManager::sendMemoryAllocTimeout},
            {kEventDailyTempRise, &VistelManager::sendDailyTempRise},
            {kEventScanMsg, &VistelManager::sendScanMsgReport},
    };
    for (const Registration& registration : kRegistrations) {
        registerFunction(registration.kind, registration.handler);
    }
}

void VistelManager::registerFunction(VistelEvent event, HandlerMethod func) {
    if (mFuncMap.count(event) != 0) {
        VLOGE("%s() registered failed with existed key:%d", __func__, event);
        return;
    }
    const auto* entry = &*handlerMethods().emplace(event, func).first;
    auto handler = [this, entry](std::shared_ptr<VistelEventBase> record) {
        // Counted here, on the worker: the camera thread that queued the record pays nothing.
        counters::of(entry->first).addRecord();
        return (this->*entry->second)(std::move(record));
    };
    static_assert(sizeof(handler) <= 2 * sizeof(void*) &&
                          std::is_trivially_copyable_v<decltype(handler)>,
                  "a handler must fit std::function's inline buffer: it is copied per record");
    mFuncMap[event] = handler;
    VLOGI("%s() registered ok eventId:%d", __func__, event);
}

std::future<int> VistelManager::reportMsgImpl(std::shared_ptr<VistelEventBase> event) {
    if (!event) {
        VLOGE("%s() VistelManager::reportMsgImpl bad arg", __func__);
        return {};
    }
    VistelEvent kind = event->GetEventType();
    auto handler = mFuncMap.find(kind);
    if (handler == mFuncMap.end()) {
        VLOGE("%s() unknown event:%d, skip handling", __func__, kind);
        return {};
    }
    // The task takes over this call's reference: the caller's copy was made for it, and a
    // second copy would cost two more atomic updates shared with the worker that drops it.
    return mThreadManager->enqueue(handler->second, std::move(event));
}

}  // namespace orv
