#define LOG_TAG "VistelManager"

#include <QorThreadManager.h>
#include <VistelManager.h>
#include <safeclib/safe_mem_lib.h>

#include <iterator>
#include <map>
#include <new>
#include <type_traits>

#include "InFlightBound.h"
#include "ReporterScope.h"
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
        VISTEL_REGISTRATION(AlgoProcessTimeoutDumpSystrace, SendEventAlgoProcessTimeoutDumpSystrace),
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
// manager is built, in static storage and never destroyed: tasks still queued at exit keep their
// copies of the handlers.
Registration gEntries[kVistelEventCount] = {};

// Runs one queued record through its reporter, inside a pass of the gate: a task that starts
// once the manager is being destroyed calls nothing of it. The reporter's own ReporterScope then
// enters again on this thread, without touching the gate's count. The record leaves the records in
// flight once its reporter is done with it (the record itself released on the way out of the
// handler).
int runQueued(VistelManager* manager, const Registration& entry,
              std::shared_ptr<VistelEventBase> record) {
    int result = -1;
    {
        ReporterGate::Pass pass(reporterGate(), GateHolder::kReporter);
        if (pass.entered()) {
            result = (manager->*entry.handler)(std::move(record));
        } else {
            counters::of(entry.kind).addEndedRecord(counters::Outcome::kNotInitialised);
            logManagerDestroyed(entry.name);
            record.reset();
        }
    }
    InFlightBound::instance().finished();
    return result;
}

// Gives back the manager's reference to the service library, if it holds one.
void releaseLoader(VistelLibLoader*& loader) {
    if (loader == nullptr) return;
    VistelLibLoader::destroyInstance();
    loader = nullptr;
}

// The process's worker pool, or null when memory ran out while it was being built: the manager
// then comes up without one and queues nothing.
QorThreadManager* workerPool() {
    try {
        return QorThreadManager::GetInstance();
    } catch (const std::exception& e) {
        VISTEL_LOG_AT(ANDROID_LOG_ERROR, "VistelManager",
                      "%s() error: %s, no worker pool: nothing will be reported", "VistelManager",
                      e.what());
        return nullptr;
    }
}

}  // namespace

char g_logGitTag[64] = {};

const char* counters::kindName(VistelEvent kind) {
    return kind < kVistelEventCount ? kRegistrations[kind].kindName : "";
}

VistelManager* VistelManager::GetInstance() {
    // Built in place on first use, under the language's thread-safe guard, in storage that is
    // never freed. At exit or unload the manager is torn down only once nobody is inside it any
    // more: tasks, camera threads in reportMsgImpl or dump(), handlers called directly. When one
    // is still inside after the gate's bound (a service call that hangs), nothing is destroyed:
    // what it may still reach (the limiter, the handler table, the service library) stays for the
    // rest of the process, whose exit reclaims it.
    struct Instance {
        alignas(VistelManager) unsigned char storage[sizeof(VistelManager)];
        VistelManager* const manager = new (storage) VistelManager();

        ~Instance() {
            if (reporterGate().close(ReporterGate::kDrainBound)) {
                manager->~VistelManager();
                return;
            }
            constexpr const char* kDestructor = "~VistelManager";
            VISTEL_LOG_AT(ANDROID_LOG_ERROR, kDestructor,
                          "%s() error: still in use after %lld ms, manager and service library "
                          "kept",
                          kDestructor, static_cast<long long>(ReporterGate::kDrainBound.count()));
        }
    };
    static Instance sInstance;
    return sInstance.manager;
}

VistelManager::VistelManager() : mThreadManager(workerPool()), mInited(false), mLibLoader(nullptr) {
    Init();
}

VistelManager::~VistelManager() {
    releaseLoader(mLibLoader);
}

void VistelManager::Init() {
    if (memcpy_s(g_logGitTag, kBuildTagLength, kBuildTag, kBuildTagLength) != 0) {
        VLOGE(" %s:%d %s failed", VISTEL_QUALIFIED_NAME(), __LINE__,
              "memcpy_s(g_logGitTag, strlen(STR(__GIT_LOG__)), STR(__GIT_LOG__), "
              "strlen(STR(__GIT_LOG__)))");
    }
    VLOGI("enter VistelManager::Init, gitVersion:%s", g_logGitTag);

    mInited = false;
    // Not initialised after all, and holding no reference to the service library.
    auto giveUp = [this] {
        mInited = false;
        releaseLoader(mLibLoader);
    };
    try {
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
    } catch (const std::exception& e) {
        // Memory ran out while binding the service or registering the handlers. The kinds
        // registered so far answer "not initialised", the others are unknown.
        VLOGE("%s() error: %s, not initialised", __func__, e.what());
        giveUp();
    }
    // Without a pool (memory ran out while it was built) nothing would ever be reported.
    if (mThreadManager == nullptr) giveUp();
}

void VistelManager::registerFunction(VistelEvent event, HandlerMethod func) {
    if (mFuncMap.count(event) != 0) {
        VLOGE("%s() registered failed with existed key:%d", __func__, event);
        return;
    }
    Registration* entry = &gEntries[event];
    *entry = {event, func, handlerName(event), counters::kindName(event)};
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
    VistelEvent kind = event->GetEventType();
    // Shed before anything else: a refused call is a few atomic updates, and reads nothing of the
    // manager.
    InFlightBound& inFlight = InFlightBound::instance();
    const bool known = kind < kVistelEventCount;
    if (known && !inFlight.admit(kind)) return {};
    // Held while this call reads the manager: it is not destroyed under a camera thread that is
    // still here, and once it is being destroyed nothing of it is read.
    ReporterGate::Pass pass(reporterGate(), GateHolder::kCaller);
    if (!pass.entered()) {
        VLOGE("%s() error: manager destroyed, record dropped", __func__);
    } else if (const auto handler = known ? mFuncMap.find(kind) : mFuncMap.end();
               handler == mFuncMap.end()) {
        VLOGE("%s() unknown event:%d, skip handling", __func__, kind);
    } else if (mThreadManager == nullptr) {
        VLOGE("%s() error: no worker pool, event:%d not queued", __func__, kind);
    } else {
        try {
            // The task takes over this call's reference: the caller's copy was made for it, and
            // a second copy would cost two more atomic updates shared with the worker that drops
            // it.
            return mThreadManager->enqueue(handler->second, std::move(event));
        } catch (const std::exception& e) {
            // Memory ran out while the task was built or queued: nothing was queued.
            VLOGE("%s() error: %s, event:%d not queued", __func__, e.what(), kind);
        }
    }
    // Nothing was queued.
    if (known) inFlight.finished();
    return {};
}

}  // namespace orv
