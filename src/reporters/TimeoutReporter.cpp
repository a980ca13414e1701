// Placeholder until this reporter lands: refuses every record.
#include <VistelManager.h>

namespace orv {

int VistelManager::sendEventAlgoProcessTimeoutWarning(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::sendEventAlgoProcessTimeoutError(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::sendEventSnapshotTimeoutWarning(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::sendEventSnapshotTimeoutError(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::sendEventOtherTimeoutWarning(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::sendEventOtherTimeoutError(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::sendEventFlushProcessTimeoutError(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::sendEventStopProcessTimeoutError(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::sendEventSessionUninitProcessTimeoutError(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::sendEventConfigStreamProcessTimeoutError(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::sendEventPostProcessTimeoutError(std::shared_ptr<VistelEventBase>) {
    return -1;
}

}  // namespace orv
