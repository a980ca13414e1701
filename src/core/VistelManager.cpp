#define LOG_TAG "VistelManager"

#include <VistelManager.h>

#include <QorThreadManager.h>
#include <safeclib/safe_mem_lib.h>

#include <iterator>
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

// One handler per kind, in kind order, with the names its lines and the dump carry.
struct Registration {
    VistelEvent kind;
    VistelManager::HandlerMethod handler;
    const char* name;      // the handler's, as its log lines give it
    const char* kindName;  // the kind's, as VistelRecords.h spells it after "kEvent"
};
#define VISTEL_REGISTRATION(Kind, handler) \
    { kEvent##Kind, &VistelManager::handler, #handler, #Kind }

constexpr Registration kRegistrations[] = {
        VISTEL_REGISTRATION(MemLeak, sendEventMemLeak),
        VISTEL_REGISTRATION(MemShortage, sendEventMemShortage),
        VISTEL_REGISTRATION(MemLimit, sendEventMemLimit),
        VISTEL_REGISTRATION(MemEfficiencyWarning, sendEventMemEfficiencyWarning),
        VISTEL_REGISTRATION(MemAllocFail, sendEventMemAllocFail),
        VISTEL_REGISTRATION(PreviewBufferRefLeak, sendEventPreviewBufferRefLeak),
        VISTEL_REGISTRATION(CaptureBufferRefLeak, sendEventCaptureBufferRefLeak),
        VISTEL_REGISTRATION(AlgoProcessTimeoutWarning, sendEventAlgoProcessTimeoutWarning),
        VISTEL_REGISTRATION(AlgoProcessTimeoutError, sendEventAlgoProcessTimeoutError),
        VISTEL_REGISTRATION(SnapshotTimeoutWarning, sendEventSnapshotTimeoutWarning),
        VISTEL_REGISTRATION(SnapshotTimeoutError, sendEventSnapshotTimeoutError),
        VISTEL_REGISTRATION(OtherTimeoutWarning, sendEventOtherTimeoutWarning),
        VISTEL_REGISTRATION(OtherTimeoutError, sendEventOtherTimeoutError),
        VISTEL_REGISTRATION(SnapshotBigdata, sendEventSnapshotBigdata),
        VISTEL_REGISTRATION(SnapshotAfBigdata, SendEventSnapshotAfBigdata),
        VISTEL_REGISTRATION(StatisticData, sendEventStatisticData),
        VISTEL_REGISTRATION(HDRPData, sendEventHDRPData),
        VISTEL_REGISTRATION(SnapshotBigdataV2, SendEventSnapshotBigdataV2),
        VISTEL_REGISTRATION(AlgoProcessTimeoutDumpSystrace,
                            SendEventAlgoProcessTimeoutDumpSystrace),
        VISTEL_REGISTRATION(FlushProcessTimeoutError, sendEventFlushProcessTimeoutError),
        VISTEL_REGISTRATION(StopProcessTimeoutError, sendEventStopProcessTimeoutError),
        VISTEL_REGISTRATION(SessionUninitProcessTimeoutError,
                            sendEventSessionUninitProcessTimeoutError),
        VISTEL_REGISTRATION(ConfigStreamProcessTimeoutError,
                            sendEventConfigStreamProcessTimeoutError),
        VISTEL_REGISTRATION(VideoPerfData, sendEventVideoPerfData),
        VISTEL_REGISTRATION(PostProcessTimeoutError, sendEventPostProcessTimeoutError),
        VISTEL_REGISTRATION(BootTimeout, sendBootTimeout),
        VISTEL_REGISTRATION(DumpTrace, dumpTrace),
        VISTEL_REGISTRATION(FrameDrop, FrameDropError),
        VISTEL_REGISTRATION(MemoryExceedThreshold, sendMemoryExceedThreshold),
        VISTEL_REGISTRATION(MemoryAllocTimeout, sendMemoryAllocTimeout),
        VISTEL_REGISTRATION(DailyTempRise, sendDailyTempRise),
        VISTEL_REGISTRATION(ScanMsg, sendScanMsgReport),
};

constexpr bool inKindOrder() {
    for (size_t i = 0; i < std::size(kRegistrations); ++i) {
        if (kRegistrations[i].kind != i) return false;
    }
    return std::size(kRegistrations) == kVistelEventCount;
}
static_assert(inKindOrder(), "one registration per kind, in kind order");

const char* handlerName(VistelEvent kind) {
    return kind < kVistelEventCount ? kRegistrations[kind].name : "reportMsgImpl";
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

const char* counters::kindName(VistelEvent kind) {
    return kind < kVistelEventCount ? kRegistrations[kind].kindName : "";
}

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
    const Registration registration{event, func, handlerName(event), counters::kindName(event)};
    const Registration* entry = &handlerEntries().emplace(event, registration).first->second;
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
