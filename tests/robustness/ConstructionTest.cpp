// Memory running out while the first GetInstance() builds the manager: at every allocation in
// turn, in a child process of its own (the manager is built once per process). Nothing is thrown
// out of GetInstance() and nothing aborts; the manager either comes up whole, or comes up not
// initialised, says why, answers every record as an uninitialised manager does, and holds no
// reference to the service library.
//
// This executable replaces operator new (FailingAllocations.h); nothing in it builds the manager
// before the children do.
#include <KindRegistry.h>
#include <LibraryCounters.h>
#include <LogCapture.h>
#include <VistelManager.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "FailingAllocations.h"
#include "Handlers.h"

namespace vistel_test {

using vistel_harness::LogCapture;
using vistel_harness::LogLine;

namespace {

// How a child ends.
enum ChildExit {
    kCoped = 0,         // the failure was reached, and the manager copes as it should
    kNotReached = 10,   // GetInstance() made fewer allocations: the sweep is over
    kThrown = 11,       // an exception came out of GetInstance()
    kServiceKept = 12,  // not initialised, yet the service library is still loaded
    kWrongAnswer = 13,  // a record was not answered as the manager's state says
    kNoErrorLine = 14,  // not initialised, and no line says why
};

// Sweeps of more than this many allocations mean the sweep is not ending.
constexpr long kMostAllocations = 400;

bool serviceLoaded() {
    void* service = dlopen("libvistel.so", RTLD_NOW | RTLD_NOLOAD);
    if (service != nullptr) dlclose(service);
    return service != nullptr;
}

// In the child: builds the manager with the n-th allocation failing, then checks what it became.
ChildExit buildWithFailure(long n) {
    LogCapture log;
    bool reached = false;
    try {
        reached = failingAllocation(n, [] { orv::VistelManager::GetInstance(); });
    } catch (...) {
        return kThrown;
    }
    if (!reached) return kNotReached;
    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    const bool inited = vistel_tools::readLibraryCounters().working();
    if (inited) {
        // The allocation that failed was one the start could do without.
        std::future<int> result =
                manager->reportMsgImpl(vistel_tools::kinds()[orv::kEventMemLeak].make().record);
        return result.valid() && result.get() == 0 ? kCoped : kWrongAnswer;
    }
    if (serviceLoaded()) return kServiceKept;
    bool explained = false;
    for (const LogLine& line : log.lines()) {
        explained = explained || line.priority == ANDROID_LOG_ERROR;
    }
    if (!explained) return kNoErrorLine;
    for (const vistel_tools::KindInfo& info : vistel_tools::kinds()) {
        const int refused = refusedResult(info.kind);
        if ((manager->*handlerOf(info.kind))(info.make().record) != refused) return kWrongAnswer;
        // Queued and refused by the reporter, or not queued at all (no pool, or a kind whose
        // handler could not be registered: an unknown kind, never queued).
        std::future<int> result = manager->reportMsgImpl(info.make().record);
        const bool registered = !log.withBody("registerFunction() registered ok eventId:" +
                                              std::to_string(info.kind))
                                         .empty();
        if (!registered && result.valid()) return kWrongAnswer;
        if (result.valid() && result.get() != refused) return kWrongAnswer;
    }
    return kCoped;
}

TEST(ConstructionTest, OutOfMemoryAtEveryAllocationOfTheFirstGetInstance) {
    // VISTEL_CONSTRUCTION_ALLOCATION=<n> fails that one allocation in this process instead, for
    // a debugger to follow.
    if (const char* only = getenv("VISTEL_CONSTRUCTION_ALLOCATION")) {
        EXPECT_EQ(buildWithFailure(atol(only)), kCoped);
        return;
    }
    long n = 1;
    for (; n < kMostAllocations; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) exit(buildWithFailure(n));  // the manager's destructor runs too
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
        if (WEXITSTATUS(status) == kNotReached) break;
        ASSERT_EQ(WEXITSTATUS(status), kCoped);
    }
    // The pool, the service binding and 32 registrations: dozens of allocations.
    EXPECT_GT(n, 32);
    EXPECT_LT(n, kMostAllocations);
    RecordProperty("allocations", static_cast<int>(n - 1));
}

}  // namespace
}  // namespace vistel_test
