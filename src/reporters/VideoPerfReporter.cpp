// Placeholder until this reporter lands: refuses every record.
#include <VistelManager.h>

namespace orv {

int VistelManager::sendEventVideoPerfData(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::FrameDropError(std::shared_ptr<VistelEventBase>) {
    return -1;
}

}  // namespace orv
