// A camera module that the exit helper loads with dlopen() and unloads with dlclose() while the
// reports it queued are still in flight: the records, their destructors and their shared-pointer
// control blocks are this module's code.
#include <VistelManager.h>

#include <cstdio>
#include <memory>

extern "C" __attribute__((visibility("default"))) void queueReports(int count) {
    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    for (int i = 0; i < count; ++i) {
        auto leak = std::make_shared<orv::vistelMemLeak>();
        snprintf(leak->name, sizeof(leak->name), "ModuleNode%d", i % 16);
        manager->reportMsgImpl(leak);
        auto timeout = std::make_shared<orv::VistelRecord<orv::kEventFlushProcessTimeoutError,
                                                           orv::vistelOtherTimeout>>();
        snprintf(timeout->firstName, sizeof(timeout->firstName), "Flush%d", i % 16);
        manager->reportMsgImpl(timeout);
        manager->reportMsgImpl(std::make_shared<orv::vistelDumpTrace>());
    }
}
