// Placeholder until this reporter lands: refuses every record.
#include <VistelManager.h>

namespace orv {

int VistelManager::sendEventMemLeak(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::sendEventMemShortage(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::sendEventMemLimit(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::sendEventMemEfficiencyWarning(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::sendEventMemAllocFail(std::shared_ptr<VistelEventBase>) {
    return -1;
}

}  // namespace orv
