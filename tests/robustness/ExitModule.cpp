// Camera modules that the exit helper loads with dlopen() and unloads with dlclose() while the
// reports they queued are still in flight. Their records, the records' destructors and the
// records' shared-pointer control blocks are module code, which a worker runs when it lets go of
// a record: each module is linked as the library asks of every module that creates records
// (-z nodelete), and the helper checks that this is enough.
//
// Built four times: the plain module, a copy of it loaded first with RTLD_GLOBAL (the "record
// owner", whose vtable of ModuleLeak every later module is bound to), with
// EXIT_MODULE_REPORTS_AT_UNLOAD a module that reports from its static destructor, and with
// EXIT_MODULE_WAITS one that waits for every report it made and is not linked -z nodelete: the
// library lets go of a record before its report's future is ready.
#include <VistelManager.h>

#include <cstdio>
#include <future>
#include <memory>
#include <vector>

// A record type of the camera stack's own, as a header of its would declare it: with default
// visibility, every module that uses it emits its vtable, and the dynamic linker binds them all to
// the first one loaded.
struct __attribute__((visibility("default"))) ModuleLeak : orv::vistelMemLeak {};

namespace {

void queue(int count) {
    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    std::vector<std::future<int>> reports;
    for (int i = 0; i < count; ++i) {
        auto leak = std::make_shared<ModuleLeak>();
        snprintf(leak->name, sizeof(leak->name), "ModuleNode%d", i % 16);
        reports.push_back(manager->reportMsgImpl(leak));
        auto timeout = std::make_shared<
                orv::VistelRecord<orv::kEventFlushProcessTimeoutError, orv::vistelOtherTimeout>>();
        snprintf(timeout->firstName, sizeof(timeout->firstName), "Flush%d", i % 16);
        reports.push_back(manager->reportMsgImpl(timeout));
        reports.push_back(manager->reportMsgImpl(std::make_shared<orv::vistelDumpTrace>()));
    }
#ifdef EXIT_MODULE_WAITS
    for (std::future<int>& report : reports) {
        if (report.valid()) report.wait();
    }
#endif
}

}  // namespace

#ifdef EXIT_MODULE_REPORTS_AT_UNLOAD
// A leak tracker that reports what it still holds when the module goes away.
struct LeakTracker {
    ~LeakTracker() { queue(500); }
} gLeakTracker;
#else
extern "C" __attribute__((visibility("default"))) void queueReports(int count) {
    queue(count);
}
#endif
