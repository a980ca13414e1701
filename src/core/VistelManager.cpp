#define LOG_TAG "VistelManager"

#include <VistelManager.h>

#include <QorThreadManager.h>
#include <safeclib/safe_mem_lib.h>

#include <map>
#include <type_traits>

#include "RecordModules.h"
#include "ReporterGate.h"
#include "VistelCounters.h"
#include "VistelLibLoader.h"
#include "VistelLog.h"

namespace orv {

namespace {

// Image dump folders of the camera stack; kept with the manager, read by nobody here.
const std::string kImageDumpPath = "/data/vendor/camera/img/";
const std::string kCalibDumpPath = "/data/vendor/camera/img/gos_calib_offline_test/";

// One handler per kind, in registration order, with the name its lines carry.
struct Registration {
    VistelEvent kind;
    VistelManager::HandlerMethod handler;
    const char* name;
};
#define VISTEL_REGISTRATION(kind, handler) \
    { kind, &VistelManager::handler, #handler }

const Registration kRegistrations[] = {
        VISTEL_REGISTRATION(kEventMemLeak, sendEventMemLeak),
        VISTEL_REGISTRATION(kEventMemShortage, sendEventMemShortage),
        VISTEL_REGISTRATION(kEventMemLimit, sendEventMemLimit),
        VISTEL_REGISTRATION(kEventMemEfficiencyWarning, sendEventMemEfficiencyWarning),
        VISTEL_REGISTRATION(kEventMemAllocFail, sendEventMemAllocFail),
        VISTEL_REGISTRATION(kEventPreviewBufferRefLeak, sendEventPreviewBufferRefLeak),
        VISTEL_REGISTRATION(kEventCaptureBufferRefLeak, sendEventCaptureBufferRefLeak),
        VISTEL_REGISTRATION(kEventAlgoProcessTimeoutWarning, sendEventAlgoProcessTimeoutWarning),
        VISTEL_REGISTRATION(kEventAlgoProcessTimeoutError, sendEventAlgoProcessTimeoutError),
        VISTEL_REGISTRATION(kEventSnapshotTimeoutWarning, sendEventSnapshotTimeoutWarning),
        VISTEL_REGISTRATION(kEventSnapshotTimeoutError, sendEventSnapshotTimeoutError),
        VISTEL_REGISTRATION(kEventOtherTimeoutWarning, sendEventOtherTimeoutWarning),
        VISTEL_REGISTRATION(kEventOtherTimeoutError, sendEventOtherTimeoutError),
        VISTEL_REGISTRATION(kEventSnapshotBigdata, sendEventSnapshotBigdata),
        VISTEL_REGISTRATION(kEventSnapshotAfBigdata, SendEventSnapshotAfBigdata),
        VISTEL_REGISTRATION(kEventStatisticData, sendEventStatisticData),
        VISTEL_REGISTRATION(kEventHDRPData, sendEventHDRPData),
        VISTEL_REGISTRATION(kEventSnapshotBigdataV2, SendEventSnapshotBigdataV2),
        VISTEL_REGISTRATION(kEventAlgoProcessTimeoutDumpSystrace,
                            SendEventAlgoProcessTimeoutDumpSystrace),
        VISTEL_REGISTRATION(kEventFlushProcessTimeoutError, sendEventFlushProcessTimeoutError),
        VISTEL_REGISTRATION(kEventStopProcessTimeoutError, sendEventStopProcessTimeoutError),
        VISTEL_REGISTRATION(kEventSessionUninitProcessTimeoutError,
                            sendEventSessionUninitProcessTimeoutError),
        VISTEL_REGISTRATION(kEventConfigStreamProcessTimeoutError,
                            sendEventConfigStreamProcessTimeoutError),
        VISTEL_REGISTRATION(kEventVideoPerfData, sendEventVideoPerfData),
        VISTEL_REGISTRATION(kEventPostProcessTimeoutError, sendEventPostProcessTimeoutError),
        VISTEL_REGISTRATION(kEventBootTimeout, sendBootTimeout),
        VISTEL_REGISTRATION(kEventDumpTrace, dumpTrace),
        VISTEL_REGISTRATION(kEventFrameDrop, FrameDropError),
        VISTEL_REGISTRATION(kEventMemoryExceedThreshold, sendMemoryExceedThreshold),
        VISTEL_REGISTRATION(kEventMemoryAllocTimeout, sendMemoryAllocTimeout),
        VISTEL_REGISTRATION(kEventDailyTempRise, sendDailyTempRise),
        VISTEL_REGISTRATION(kEventScanMsg, sendScanMsgReport),
};

const char* handlerName(VistelEvent kind) {
    for (const Registration& registration : kRegistrations) {
        if (registration.kind == kind) return registration.name;
    }
    return "reportMsgImpl";
}

// The entry each registered kind's handler calls. Every queued record carries a copy of its
// handler; a handler holding the member-function pointer itself (16 bytes) beside the manager's
// address would not fit std::function's inline buffer, and each copy would take a heap block of
// its own. Pointing at the entry here keeps a handler at two plain pointers. Filled while the
// manager is built; never destroyed, because tasks still queued at exit keep their copies of the
// handlers. Map nodes never move.
std::map<VistelEvent, Registration>& handlerEntries() {
    static auto* const sEntries = new std::map<VistelEvent, Registration>();
    return *sEntries;
}

// Runs one queued record through its reporter while the manager is there to run it. A task that
// starts once the manager is being destroyed reads nothing of it: not even the handler table.
int runQueued(VistelManager* manager, const Registration& entry,
              std::shared_ptr<VistelEventBase> record) {
    ReporterGate::Pass pass(ReporterGate::instance());
    if (!pass.entered()) {
        VISTEL_LOG_AT(ANDROID_LOG_ERROR, entry.name,
                      "%s() error: manager destroyed, record dropped", entry.name);
        return -1;
    }
    // Counted here, on the worker: the camera thread that queued the record pays nothing.
    counters::of(entry.kind).addRecord();
    return (manager->*entry.handler)(std::move(record));
}

RecordModules gRecordModules;

}  // namespace

char g_logGitTag[64] = {};

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
    if (!ReporterGate::instance().close(ReporterGate::kDrainBound)) {
        // A reporter is stuck in a service call. Its code and the loader's function table stay:
        // the service library is left loaded for it to return into.
        VLOGE("%s() error: reporters still running after %lld ms, service library kept", __func__,
              static_cast<long long>(ReporterGate::kDrainBound.count()));
        return;
    }
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
    for (const Registration& registration : kRegistrations) {
        registerFunction(registration.kind, registration.handler);
    }
}

void VistelManager::registerFunction(VistelEvent event, HandlerMethod func) {
    if (mFuncMap.count(event) != 0) {
        VLOGE("%s() registered failed with existed key:%d", __func__, event);
        return;
    }
    const Registration* entry =
            &handlerEntries().emplace(event, Registration{event, func, handlerName(event)})
                     .first->second;
    auto handler = [this, entry](std::shared_ptr<VistelEventBase> record) {
        return runQueued(this, *entry, std::move(record));
    };
    static_assert(
            sizeof(handler) <= 2 * sizeof(void*) && std::is_trivially_copyable_v<decltype(handler)>,
            "a handler must fit std::function's inline buffer: it is copied per record");
    mFuncMap[event] = handler;
    VLOGI("%s() registered ok eventId:%d", __func__, event);
}

std::future<int> VistelManager::reportMsgImpl(std::shared_ptr<VistelEventBase> event) {
    if (!event) {
        VLOGE("%s() VistelManager::reportMsgImpl bad arg", __func__);
        return {};
    }
    if (ReporterGate::instance().closed()) {
        VLOGE("%s() error: manager destroyed, record dropped", __func__);
        return {};
    }
    VistelEvent kind = event->GetEventType();
    auto handler = mFuncMap.find(kind);
    if (handler == mFuncMap.end()) {
        VLOGE("%s() unknown event:%d, skip handling", __func__, kind);
        return {};
    }
    gRecordModules.keepLoaded(kind, *event);
    // The task takes over this call's reference: the caller's copy was made for it, and a
    // second copy would cost two more atomic updates shared with the worker that drops it.
    try {
        return mThreadManager->enqueue(handler->second, std::move(event));
    } catch (const std::exception& e) {
        // Memory ran out while the task was built or queued: nothing was queued.
        VLOGE("%s() error: %s, event:%d not queued", __func__, e.what(), kind);
        return {};
    }
}

}  // namespace orv
