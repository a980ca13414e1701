#include "RecordModules.h"

#include <dlfcn.h>

namespace orv {

void RecordModules::pin(VistelEvent kind, const void* vtable) {
    Dl_info info = {};
    if (dladdr(vtable, &info) != 0 && info.dli_fname != nullptr) {
        // RTLD_NOLOAD: only a module that is loaded already; RTLD_NODELETE sticks to it once
        // set. The main program is not found by name, and is never unloaded anyway.
        void* module = dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
        if (module != nullptr) dlclose(module);
    }
    mLastVtable[kind].store(vtable, std::memory_order_relaxed);
}

}  // namespace orv
