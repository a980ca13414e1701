// Placeholder until this reporter lands: refuses every record.
#include <VistelManager.h>

namespace orv {

int VistelManager::sendDailyTempRise(std::shared_ptr<VistelEventBase>) {
    return -1;
}

}  // namespace orv
