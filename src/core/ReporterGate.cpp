#include "ReporterGate.h"

#include <new>

namespace orv {

ReporterGate& reporterGate() {
    // In static storage, not on the heap: the first report may be the one that finds memory
    // exhausted. Never destroyed.
    alignas(ReporterGate) static unsigned char sStorage[sizeof(ReporterGate)];
    static ReporterGate* const sGate = new (sStorage) ReporterGate();
    return *sGate;
}

}  // namespace orv
