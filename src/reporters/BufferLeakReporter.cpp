// Placeholder until this reporter lands: refuses every record.
#include <VistelManager.h>

namespace orv {

int VistelManager::sendEventPreviewBufferRefLeak(std::shared_ptr<VistelEventBase>) {
    return -1;
}

int VistelManager::sendEventCaptureBufferRefLeak(std::shared_ptr<VistelEventBase>) {
    return -1;
}

}  // namespace orv
