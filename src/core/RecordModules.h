// Keeps the module that made a record loaded for as long as the process lives.
//
// A record's destructor and its shared pointer's control block are code of the camera module
// that made it, and the queued task may drop the last reference on a worker after that module
// was unloaded. So the first record of each kind from a module marks that module "never
// unload" with the dynamic loader; after that, a record costs one load and one comparison.
#pragma once

#include <VistelRecords.h>

#include <atomic>
#include <cstring>

namespace orv {

class RecordModules {
  public:
    void keepLoaded(VistelEvent kind, const VistelEventBase& record) {
        // The vtable pointer names the record's type, and so the module that defined it.
        const void* vtable;
        memcpy(&vtable, static_cast<const void*>(&record), sizeof(vtable));
        if (kind < kVistelEventCount &&
            mLastVtable[kind].load(std::memory_order_relaxed) != vtable) {
            pin(kind, vtable);
        }
    }

  private:
    void pin(VistelEvent kind, const void* vtable);

    // Per kind, the record type whose module was pinned last. A stale or raced entry only costs
    // one more pin.
    std::atomic<const void*> mLastVtable[kVistelEventCount] = {};
};

}  // namespace orv
