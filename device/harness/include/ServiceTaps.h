// The host services as a whole: the Vistel service, the Ovrix client and the jank prints. Each
// has a control interface of its own (VistelHostService.h, OvrixEvent.h, orvlog.h); this is what
// the programs that drive the library do with all three at once. Header-only, because only the
// programs that link the host services may use it; others (a process with no service of its
// own, say) link the harness too.
#pragma once

#include <OvrixEvent.h>
#include <VistelHostService.h>
#include <orvlog.h>

namespace vistel_harness {

// Forgets what every service received and the Vistel service's armed failures.
inline void resetServices() {
    vistelhost::reset();
    ovrixhost::reset();
    orvloghost::reset();
}

}  // namespace vistel_harness
