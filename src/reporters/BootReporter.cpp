// Placeholder until this reporter lands: refuses every record.
#include <VistelManager.h>

namespace orv {

int VistelManager::sendBootTimeout(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::sendScanMsgReport(std::shared_ptr<VistelEventBase>) {
    return -1;
}

void VistelManager::sendBootMsg(std::vector<SingleBootNode>&) {}

}  // namespace orv
