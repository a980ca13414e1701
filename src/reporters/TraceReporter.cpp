// Placeholder until this reporter lands: refuses every record.
#include <VistelManager.h>

namespace orv {

int VistelManager::dumpTrace(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::SendEventAlgoProcessTimeoutDumpSystrace(std::shared_ptr<VistelEventBase>) {
    return -1;
}

}  // namespace orv
