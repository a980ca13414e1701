#define LOG_TAG "VistelManager"

#include <QorThreadManager.h>
#include <VistelManager.h>
#include <pthread.h>
#include <safeclib/safe_mem_lib.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <map>
#include <mutex>
#include <new>

#include "EntryDoor.h"
#include "Immortal.h"
#include "InFlightBound.h"
#include "KindSwitch.h"
#include "VistelCounters.h"
#include "VistelKinds.h"
#include "VistelLibLoader.h"
#include "VistelLog.h"
#include "VistelTrace.h"

namespace orv {

namespace {

// Image dump folders of the camera stack; kept with the manager, read by nobody here.
const std::string kImageDumpPath = "/data/vendor/camera/img/";
const std::string kCalibDumpPath = "/data/vendor/camera/img/gos_calib_offline_test/";

// The process's worker pool, taken when the manager is built; the camera thread reads it without
// touching the manager.
VISTEL_CONSTINIT QorThreadManager* gPool = nullptr;
// Kinds whose handler Init registered; written while the manager is built, before its gate
// opens, read after a camera thread found the gate open.
VISTEL_CONSTINIT bool gRegistered[kVistelEventCount] = {};

// The manager's storage and how far building it has come. Building is guarded by our own lock
// rather than the C++ runtime's guard of a function-local static: a GetInstance() re-entered
// while the manager is being built (from the service library's constructor, or a process logger
// that reports) must neither deadlock nor abort.
struct Lifetime {
    enum class Phase { kNone, kBuilding, kBuilt };

    std::mutex mutex;
    std::condition_variable built;
    Phase phase = Phase::kNone;    // guarded by mutex
    pthread_t builder{};           // guarded by mutex; the thread building the manager
    bool constructorInit = false;  // guarded by mutex; the constructor is calling Init
    alignas(VistelManager) unsigned char storage[sizeof(VistelManager)];
};
Immortal<Lifetime> gLifetime;
// The built manager, for every GetInstance() after the first.
VISTEL_CONSTINIT std::atomic<VistelManager*> gBuilt{nullptr};

VistelManager* managerStorage() {
    return reinterpret_cast<VistelManager*>(gLifetime->storage);
}

// Runs one queued record through its kind's handler, whose door counts it. The manager's member is
// called only inside a pass, so that it is not destroyed meanwhile (the handler's door takes one
// more); a task that starts once the manager is being destroyed is refused here. The record's
// place in flight is given back when this returns, or when the task is destroyed unrun.
int runQueued(InFlightPlace place, std::shared_ptr<VistelEventBase> record) {
    place.reached();
    traceSettledCounter(kInFlightTrack, [] { return InFlightBound::instance().inFlight(); });
    const KindInfo& kind = kindInfo(place.kind());
    ReporterGate::Pass pass(reporterGate());
    if (!pass.entered()) {
        // Its handler's door, which writes the record's section, is not reached.
        TraceSection section(recordSection(kind.kind));
        return refuseRecord(kind.kind, kind.handlerName, pass.seen());
    }
    const int result = (managerStorage()->*kind.handler)(std::move(record));
    // Once the record's work is done, the switch's property is read when a read is due: while
    // records flow, a change applies without waiting for a record that is switched off.
    KindSwitch::instance().readWhenDue();
    return result;
}

// Gives back the manager's reference to the service library, if it holds one.
void releaseLoader(VistelLibLoader*& loader) {
    if (loader == nullptr) return;
    VistelLibLoader::destroyInstance();
    loader = nullptr;
}

// The process's worker pool, or null when it could not be built (memory ran out): the manager
// then comes up without one and queues nothing.
QorThreadManager* workerPool() {
    const char* reason = "unknown exception";
    try {
        return QorThreadManager::GetInstance();
    } catch (const std::exception& e) {
        reason = e.what();
    } catch (...) {
        if (caughtForeignUnwinding()) throw;
    }
    VISTEL_LOG_AT(ANDROID_LOG_ERROR, "VistelManager",
                  "%s() error: %s, no worker pool: nothing will be reported", "VistelManager",
                  reason);
    return nullptr;
}

// In a child process just forked only the forking thread exists: the passes, records in flight
// and locks of the parent's other threads are not the child's.
void inForkedChild() {
    reporterGate().resetAfterFork();
    InFlightBound::instance().resetAfterFork();
    KindSwitch::instance().resetAfterFork();
    Lifetime& lifetime = gLifetime.get();
    new (&lifetime.mutex) std::mutex();
    new (&lifetime.built) std::condition_variable();
    // A thread of the parent was building the manager: it will never finish here. The child takes
    // the building over as its own, half-built: GetInstance() answers at once, and the manager
    // refuses every call, as it does on the building thread.
    if (lifetime.phase == Lifetime::Phase::kBuilding) lifetime.builder = pthread_self();
}
[[maybe_unused]] const int gForkHandler = pthread_atfork(nullptr, nullptr, &inForkedChild);

}  // namespace

char g_logGitTag[64] = {};

const char* counters::kindName(VistelEvent kind) {
    return kind < kVistelEventCount ? kindInfo(kind).kindName : "";
}

VistelManager* VistelManager::GetInstance() {
    if (VistelManager* manager = gBuilt.load(std::memory_order_acquire)) return manager;

    Lifetime& lifetime = gLifetime.get();
    std::unique_lock<std::mutex> lock(lifetime.mutex);
    while (lifetime.phase == Lifetime::Phase::kBuilding) {
        if (pthread_equal(lifetime.builder, pthread_self()) != 0) {
            // Re-entered from inside the building: the caller gets the manager being built,
            // whose entry points refuse (and count) its calls until it is built.
            lock.unlock();
            logRefusedEntry(__func__, ReporterGate::State::kNotOpen,
                            "its calls are refused until it is");
            return managerStorage();
        }
        lifetime.built.wait(lock);
    }
    if (lifetime.phase == Lifetime::Phase::kBuilt) return managerStorage();
    lifetime.phase = Lifetime::Phase::kBuilding;
    lifetime.builder = pthread_self();
    lock.unlock();

    VistelManager* manager = new (lifetime.storage) VistelManager();
    // At exit or unload the manager is torn down only once nobody is inside it any more: tasks,
    // camera threads in an entry point, handlers called directly. When one is still inside after
    // the gate's bound (a service call that hangs), nothing is destroyed: what it may still reach
    // (the limiter, the handler table, the service library) stays for the rest of the process,
    // whose exit reclaims it.
    const int registered = std::atexit([] {
        if (reporterGate().close(ReporterGate::kDrainBound)) {
            managerStorage()->~VistelManager();
            return;
        }
        constexpr const char* kDestructor = "~VistelManager";
        VISTEL_LOG_AT(ANDROID_LOG_ERROR, kDestructor,
                      "%s() error: still in use after %lld ms, manager and service library kept",
                      kDestructor, static_cast<long long>(ReporterGate::kDrainBound.count()));
    });
    if (registered != 0)
        VLOGE("%s() error: no exit handler: the manager is never destroyed", __func__);
    reporterGate().open();

    lock.lock();
    lifetime.phase = Lifetime::Phase::kBuilt;
    gBuilt.store(manager, std::memory_order_release);
    lifetime.built.notify_all();
    return manager;
}

VistelManager::VistelManager() : mThreadManager(workerPool()), mInited(false), mLibLoader(nullptr) {
    gPool = mThreadManager;
    {
        // This call, and no other: not one made before it (from a logger, by whatever the pool's
        // construction logged), nor one re-entered from inside it.
        std::lock_guard<std::mutex> lock(gLifetime->mutex);
        gLifetime->constructorInit = true;
    }
    Init();
}

VistelManager::~VistelManager() {
    releaseLoader(mLibLoader);
}

void VistelManager::Init() {
    // Exported, but only the constructor's own call initialises: any other would bind the service
    // again (one more reference, never given back) and rewrite what reporters read without a
    // lock.
    {
        Lifetime& lifetime = gLifetime.get();
        std::lock_guard<std::mutex> lock(lifetime.mutex);
        if (!lifetime.constructorInit) {
            logRefusedEntry(__func__, reporterGate().state(), "call refused");
            return;
        }
        lifetime.constructorInit = false;
    }
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
    const char* failure = nullptr;
    try {
        mLibLoader = VistelLibLoader::getInstance();
        if (mLibLoader == nullptr) {
            VLOGE("%s() VistelLibLoader::getInstance failed", __func__);
        } else {
            mInited = true;
        }

        // Registered whether or not the service bound, so that every record still reaches its
        // reporter, which then answers "not initialised".
        for (const KindInfo& kind : kKinds) {
            registerFunction(kind.kind, kind.handler);
        }
    } catch (const std::exception& e) {
        failure = e.what();
    } catch (...) {
        if (caughtForeignUnwinding()) throw;
        failure = "unknown exception";
    }
    if (failure != nullptr) {
        // Memory ran out (or the service library threw) while binding the service or registering
        // the handlers. The kinds registered so far answer "not initialised", the others are
        // unknown.
        VLOGE("%s() error: %s, not initialised", __func__, failure);
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
    mFuncMap[event] = [this, func](std::shared_ptr<VistelEventBase> record) {
        return (this->*func)(std::move(record));
    };
    gRegistered[event] = true;
    VLOGI("%s() registered ok eventId:%d", __func__, event);
}

std::future<int> VistelManager::reportMsgImpl(std::shared_ptr<VistelEventBase> event) {
    if (!event) {
        VLOGE("%s() VistelManager::reportMsgImpl bad arg", __func__);
        return {};
    }
    // The camera thread's door. It reads nothing of the manager itself, only what lives as long
    // as the process (the gate, the bound, the registered kinds, the pool), so it needs no pass:
    // once the manager is being destroyed, a record queued all the same is refused by its
    // handler's door when its task starts.
    try {
        const VistelEvent kind = event->GetEventType();
        const ReporterGate::State state = reporterGate().state();
        if (kind >= kVistelEventCount ||
            (state == ReporterGate::State::kOpen && !gRegistered[kind])) {
            VLOGE("%s() unknown event:%d, skip handling", __func__, kind);
            return {};
        }
        // Switched off in the field: refused before it takes a place in flight, and counted.
        if (KindSwitch::instance().isOff(kind)) {
            KindSwitch::instance().refuse(kind, gPool);
            return {};
        }
        // Shed before anything else: a refused call is a few atomic updates.
        if (!InFlightBound::instance().admit(kind)) return {};
        // From here the record holds a place in flight; wherever it ends, the place is given back
        // and the record counted.
        InFlightPlace place(kind);
        if (state != ReporterGate::State::kOpen) {
            logRefusedEntry(__func__, state, "record dropped");
        } else if (gPool == nullptr) {
            VLOGE("%s() error: no worker pool, event:%d not queued", __func__, kind);
        } else {
            // The task takes over this call's reference to the record: the caller's copy was made
            // for it.
            return gPool->enqueue(&runQueued, std::move(place), std::move(event));
        }
    } catch (const std::exception& e) {
        // Memory ran out while the task was built or queued: nothing was queued.
        VLOGE("%s() error: %s, record not queued", __func__, e.what());
    } catch (...) {
        if (caughtForeignUnwinding()) throw;
        VLOGE("%s() error: unknown exception, record not queued", __func__);
    }
    return {};
}

}  // namespace orv
