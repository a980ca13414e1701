// A camera process that ends while the library is busy, for ExitTest. One mode per moment:
//
//     queued          queues many reports of every kind and returns at once
//     running         the same, but returns while the first report is inside its reporter: its
//                     clock read waits until main has returned
//     waiting         the same as queued, while a camera thread waits on the last report's future
//     held            returns while a memory leak report is held inside the limiter, and lets it
//                     go only once the manager's destructor has given up waiting for it (and the
//                     dump has said the manager was kept)
//     service-held    the same, with the report held inside the service's send call
//     camera-held     returns while a camera thread is inside reportMsgImpl, holding its pass (the
//                     allocation of its task waits), let go once the destructor has given up
//     camera-asking   returns while a camera thread's record is asked its kind, before
//                     reportMsgImpl takes its pass; let go once the manager is destroyed
//     after           calls every entry point once the manager is destroyed: reportMsgImpl,
//                     handlers, sendBootMsg, dump(), snapshotCounters()
//     late            holds every worker of the pool, queues a report behind them, and lets them
//                     go once the manager is destroyed: the report starts after it
//     exit-report     reports from an exit handler that runs after the pool's own exit hook
//     exit-in-service the service calls exit() from inside a reporter
//     exit-in-call    the process's out-of-memory policy calls exit() while reportMsgImpl builds
//                     its task
//     reenter         the process's logger reports on the library's first line, logged while the
//                     manager is being built: GetInstance() is re-entered
//     fork            forks while a report is held inside the service's send; the child dumps and
//                     exits
//     unload          loads the camera module VISTEL_EXIT_MODULE, has it queue thousands of
//                     reports, unloads it and returns
//     unload-foreign  the same with VISTEL_EXIT_FOREIGN_MODULE, whose record type's vtable is
//                     another library's, VISTEL_EXIT_RECORD_OWNER, loaded first
//     unload-static   loads VISTEL_EXIT_STATIC_MODULE, which reports from its static destructor,
//                     and unloads it
//     unload-waited   loads VISTEL_EXIT_WAITING_MODULE, which waits for its reports, unloads it
//
// Exit handlers run in the reverse order of their registration, and the manager's destructor is
// registered when GetInstance() first builds it: a handler registered before that runs after the
// destructor. The host service appends every event it receives to the file VISTEL_EVENT_LOG
// names, which is how the test sees what went out before the process ended; the lines of the
// library that matter to a mode go to stderr.
#include <KindRegistry.h>
#include <QorThreadManager.h>
#include <ThreadHold.h>
#include <VirtualClock.h>
#include <VistelManager.h>
#include <WorkerHold.h>
#include <android/log.h>
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "FailingAllocations.h"
#include "Handlers.h"
#include "VistelKinds.h"

namespace {

constexpr int kRecords = 2000;
constexpr nsecs_t kNowNs = 5000 * 1000000000LL;

// Where a mode holds the first thread that gets there.
enum class HoldPoint { kNone, kClock, kServiceSend, kRecordKind, kAllocation };

using Hold = vistel_harness::ThreadHold<HoldPoint>;

// Never destroyed: workers may still reach them while static destructors run.
Hold& gHold = *new Hold;
std::future<int>& gHeldReport = *new std::future<int>;
std::thread* gCameraThread = nullptr;
std::thread* gWaiter = nullptr;
vistel_harness::WorkerHold* gWorkerHold = nullptr;

orv::VistelManager* manager() {
    return orv::VistelManager::GetInstance();
}

std::shared_ptr<orv::VistelEventBase> recordOf(uint32_t kind) {
    return vistel_tools::kinds()[kind % orv::kVistelEventCount].make().record;
}

void printFuture(const char* what, std::future<int> result) {
    if (!result.valid()) {
        fprintf(stderr, "%s: no future\n", what);
        return;
    }
    try {
        fprintf(stderr, "%s: %d\n", what, result.get());
    } catch (const std::future_error& error) {
        fprintf(stderr, "%s: %s\n", what,
                error.code() == std::future_errc::broken_promise ? "broken promise" : error.what());
    }
}

// ---- The library's log: thousands of late-task lines would drown a sanitizer's report, so only
// the destructor's lines go to stderr, and every line once gForwardAll is set.

bool gForwardAll = false;

void forwardSomeLines(const struct __android_logger_data* /*data*/, const char* message) {
    if (gForwardAll || strncmp(message, "~VistelManager<", strlen("~VistelManager<")) == 0) {
        fprintf(stderr, "%s\n", message);
    }
}

// ---- The host service's send hook, reached through the library's dlopen() of it --------------

void setSendHook(void (*hook)()) {
    void* service = dlopen("libvistel.so", RTLD_NOW | RTLD_NOLOAD);
    auto* set = service != nullptr ? reinterpret_cast<void (*)(void (*)())>(
                                             dlsym(service, "vistelhost_set_send_hook"))
                                   : nullptr;
    if (set == nullptr) {
        fprintf(stderr, "no send hook in the service: %s\n", dlerror());
        exit(4);
    }
    set(hook);
    // The lookup took a reference of its own; the library's must stay the only one.
    dlclose(service);
}

// ---- Records that hold their thread ----------------------------------------------------------

// A memory leak record whose kind is asked while the camera thread is inside reportMsgImpl.
struct HeldLeak : orv::vistelMemLeak {
    orv::VistelEvent GetEventType() override {
        gHold.holdHere(HoldPoint::kRecordKind);
        return orv::kEventMemLeak;
    }
};

// ---- Modes -------------------------------------------------------------------------------------

// Lets the held thread go and waits for what it was doing; registered before the manager is
// built, so it runs once the destructor has returned.
void releaseHeldReport() {
    gHold.release();
    printFuture("held report", std::move(gHeldReport));
    // The manager was kept, not destroyed: its dump still reads it (the limiter's key counts
    // too, once the held report has let go of the limiter's lock).
    manager()->dump(STDERR_FILENO);
}

void releaseCameraThread() {
    gForwardAll = true;  // what the camera thread's call logs
    gHold.release();
    gCameraThread->join();
}

// Every entry point once the manager is destroyed: each refuses, logging why (at most one line a
// second for all of them), and answers its not-initialised result.
void callAfterDestruction() {
    gForwardAll = true;
    orv::VistelManager* destroyed = manager();
    printFuture("reportMsgImpl", destroyed->reportMsgImpl(recordOf(orv::kEventMemLeak)));
    fprintf(stderr, "sendEventMemLeak: %d\n",
            destroyed->sendEventMemLeak(recordOf(orv::kEventMemLeak)));
    fprintf(stderr, "sendScanMsgReport: %d\n",
            destroyed->sendScanMsgReport(recordOf(orv::kEventScanMsg)));
    fprintf(stderr, "SendEventAlgoProcessTimeoutDumpSystrace: %d\n",
            destroyed->SendEventAlgoProcessTimeoutDumpSystrace(
                    recordOf(orv::kEventAlgoProcessTimeoutDumpSystrace)));
    int handlersAsRefused = 0;
    // Called by name, as a camera module would: a call through a member pointer reads the
    // destroyed object's vtable pointer first.
#define CALL_AFTER_DESTRUCTION(Kind, handler, Record, refused) \
    handlersAsRefused += destroyed->handler(recordOf(orv::kEvent##Kind)) == (refused);
    VISTEL_KINDS(CALL_AFTER_DESTRUCTION)
#undef CALL_AFTER_DESTRUCTION
    fprintf(stderr, "handlers refusing as not initialised: %d\n", handlersAsRefused);
    void* object = reinterpret_cast<void*>(&handlersAsRefused);  // never reaches the service
    const int primitives[] = {
            destroyed->createEvent(918000000, object),
            destroyed->setEventParam(object, 0, 1),
            destroyed->SetEventParam(object, "a", 1L, orv::TYPE_INT),
            destroyed->SetEventParam(object, "a", 1.0f, orv::TYPE_FLOAT),
            destroyed->SetEventParam(object, "a", "a", orv::TYPE_STRING),
            destroyed->sendEvent(object),
    };
    int primitivesRefused = 0;
    for (int result : primitives) primitivesRefused += result == -1;
    fprintf(stderr, "primitives refused: %d of 6\n", primitivesRefused);
    destroyed->Init();
    std::vector<orv::SingleBootNode> nodes(1);
    destroyed->sendBootMsg(nodes);
    destroyed->dump(STDERR_FILENO);
    VistelCounterSnapshot counts = {};
    counts.size = sizeof(counts);
    const int answer = destroyed->snapshotCounters(&counts);
    fprintf(stderr, "snapshotCounters: %d, manager %u, MemLeak records %llu, policies %u\n", answer,
            counts.manager,
            static_cast<unsigned long long>(counts.kinds[orv::kEventMemLeak].records),
            counts.policyCount);
}

void releaseWorkers() {
    gForwardAll = true;  // the late task's line
    gWorkerHold->releaseAll();
}

void joinWaiter() {
    if (gWaiter != nullptr) gWaiter->join();
}

// Registered before the manager is built: runs after its destructor and the pool's exit hook.
void dumpAtEnd() {
    manager()->dump(STDERR_FILENO);
}

// ---- GetInstance() re-entered from the process's logger, on the library's first line ---------

bool gReentered = false;

void reportOnFirstLine(const struct __android_logger_data* data, const char* message) {
    forwardSomeLines(data, message);
    if (gReentered) return;
    gReentered = true;
    gForwardAll = true;
    printFuture("re-entered", manager()->reportMsgImpl(recordOf(orv::kEventMemLeak)));
    gForwardAll = false;
}

// Holds every worker of the pool with a task of its own, then queues a report behind them.
std::future<int> reportBehindHeldWorkers() {
    manager();
    gWorkerHold = new vistel_harness::WorkerHold;
    return manager()->reportMsgImpl(recordOf(orv::kEventMemLeak));
}

void reportAfterThePoolsExitHook() {
    std::future<int> result = manager()->reportMsgImpl(recordOf(orv::kEventMemLeak));
    // A pool that stopped at its exit hook runs no more tasks: it must let this one go at once,
    // or whoever waits on the future waits forever.
    const char* hook = getenv("QOR_THREAD_MANAGER_EXIT_HOOK");
    const bool stopped = hook == nullptr || strcmp(hook, "off") != 0;
    if (stopped && result.valid() &&
        result.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        fprintf(stderr, "late report: never resolved\n");
        return;
    }
    printFuture("late report", std::move(result));
}

void* openModule(const char* variable, int flags) {
    const char* path = getenv(variable);
    void* module = path != nullptr ? dlopen(path, flags) : nullptr;
    if (module == nullptr) {
        fprintf(stderr, "cannot load %s: %s\n", variable, dlerror());
        exit(2);
    }
    return module;
}

void unloadModule(const char* variable) {
    void* module = openModule(variable, RTLD_NOW | RTLD_LOCAL);
    if (auto* queueReports = reinterpret_cast<void (*)(int)>(dlsym(module, "queueReports"))) {
        queueReports(kRecords);
    }
    dlclose(module);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc == 2 ? argv[1] : "";
    // The library reads the clock inside the limiter, where a mode may hold its thread.
    vistel_harness::VirtualClock::setNs(kNowNs);
    vistel_harness::VirtualClock::setReadHook([] { gHold.holdHere(HoldPoint::kClock); });
    __android_log_set_logger(forwardSomeLines);
    // Registered before the manager is built, so it runs after the manager's destructor.
    atexit(joinWaiter);

    if (mode == "unload") {
        unloadModule("VISTEL_EXIT_MODULE");
    } else if (mode == "unload-foreign") {
        openModule("VISTEL_EXIT_RECORD_OWNER", RTLD_NOW | RTLD_GLOBAL);
        unloadModule("VISTEL_EXIT_FOREIGN_MODULE");
    } else if (mode == "unload-static") {
        unloadModule("VISTEL_EXIT_STATIC_MODULE");
    } else if (mode == "unload-waited") {
        unloadModule("VISTEL_EXIT_WAITING_MODULE");
    } else if (mode == "held" || mode == "service-held") {
        atexit(releaseHeldReport);
        manager();
        if (mode == "held") {
            gHold.arm(HoldPoint::kClock);
        } else {
            setSendHook([] { gHold.holdHere(HoldPoint::kServiceSend); });
            gHold.arm(HoldPoint::kServiceSend);
        }
        gHeldReport = manager()->reportMsgImpl(recordOf(orv::kEventMemLeak));
        gHold.waitUntilHeld();
    } else if (mode == "camera-held" || mode == "camera-asking") {
        atexit(releaseCameraThread);
        // A first report, so that the pool has armed its exit hook as it would have by then.
        printFuture("first report", manager()->reportMsgImpl(recordOf(orv::kEventMemLeak)));
        const bool inside = mode == "camera-held";
        gHold.arm(inside ? HoldPoint::kAllocation : HoldPoint::kRecordKind);
        gCameraThread = new std::thread([inside] {
            std::shared_ptr<orv::VistelEventBase> record =
                    inside ? recordOf(orv::kEventMemLeak) : std::make_shared<HeldLeak>();
            // Its first allocation in reportMsgImpl is its task's, inside the call's pass.
            if (inside) {
                vistel_test::atNextAllocationOfThisThread(
                        [] { gHold.holdHere(HoldPoint::kAllocation); });
            }
            printFuture("camera thread", manager()->reportMsgImpl(std::move(record)));
        });
        gHold.waitUntilHeld();
    } else if (mode == "after") {
        atexit(callAfterDestruction);
        printFuture("before", manager()->reportMsgImpl(recordOf(orv::kEventMemLeak)));
    } else if (mode == "late") {
        atexit(releaseWorkers);
        std::future<int> late = reportBehindHeldWorkers();
        gWaiter = new std::thread(printFuture, "late task", std::move(late));
    } else if (mode == "exit-report") {
        manager();
        atexit(reportAfterThePoolsExitHook);
        // The pool arms its exit hook with its first task, after the handler above.
        printFuture("first report", manager()->reportMsgImpl(recordOf(orv::kEventMemLeak)));
    } else if (mode == "exit-in-service") {
        manager();
        setSendHook([] { exit(3); });
        printFuture("never", manager()->reportMsgImpl(recordOf(orv::kEventMemLeak)));
    } else if (mode == "exit-in-call") {
        printFuture("first report", manager()->reportMsgImpl(recordOf(orv::kEventMemLeak)));
        vistel_test::atNextAllocationOfThisThread([] { exit(5); });
        printFuture("never", manager()->reportMsgImpl(recordOf(orv::kEventMemLeak)));
    } else if (mode == "reenter") {
        __android_log_set_logger(reportOnFirstLine);
        atexit(dumpAtEnd);
        printFuture("after", manager()->reportMsgImpl(recordOf(orv::kEventMemLeak)));
    } else if (mode == "fork") {
        manager();
        setSendHook([] { gHold.holdHere(HoldPoint::kServiceSend); });
        gHold.arm(HoldPoint::kServiceSend);
        // Held by a global too: in the child, the worker that holds the record's task does not
        // exist, and a leak check at the child's exit would call the record lost.
        static auto& record =
                *new std::shared_ptr<orv::VistelEventBase>(recordOf(orv::kEventMemLeak));
        gHeldReport = manager()->reportMsgImpl(record);
        gHold.waitUntilHeld();
        const pid_t child = fork();
        if (child == 0) {
            gForwardAll = true;
            manager()->dump(STDERR_FILENO);
            exit(0);
        }
        int status = -1;
        waitpid(child, &status, 0);
        fprintf(stderr, "child: %s %d\n", WIFEXITED(status) ? "exit status" : "signal",
                WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status));
        gHold.release();
        printFuture("held report", std::move(gHeldReport));
    } else if (mode == "queued" || mode == "running" || mode == "waiting") {
        atexit(dumpAtEnd);
        const bool running = mode == "running";
        if (running) {
            // The first record, a memory leak, is stopped at the limiter's clock read.
            manager();
            gHold.arm(HoldPoint::kClock);
            manager()->reportMsgImpl(recordOf(orv::kEventMemLeak));
            gHold.waitUntilHeld();
        }
        std::future<int> last;
        for (int i = 0; i < kRecords; ++i) last = manager()->reportMsgImpl(recordOf(i));
        if (mode == "waiting") {
            gWaiter = new std::thread(printFuture, "future resolved", std::move(last));
        }
        // Registered last, so it runs first once main has returned.
        if (running) atexit([] { gHold.release(); });
    } else {
        fprintf(stderr, "usage: %s MODE (see ExitHelper.cpp)\n", argv[0]);
        return 2;
    }
    return 0;
}
