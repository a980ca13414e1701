#include "ReporterGate.h"

#include <new>

namespace orv {

namespace {

// In static storage, not on the heap: the first report may be the one that finds memory
// exhausted.
alignas(ReporterGate) unsigned char gGateStorage[sizeof(ReporterGate)];

}  // namespace

ReporterGate& gReporterGate = *new (gGateStorage) ReporterGate();

}  // namespace orv
