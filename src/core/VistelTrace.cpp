#include "VistelTrace.h"

namespace orv {

TraceSection::TraceSection(const char* name) : mBegun(ATRACE_ENABLED() != 0) {
    if (mBegun) atrace_begin_body(name);
}

TraceSection::~TraceSection() {
    if (mBegun) atrace_end_body();
}

}  // namespace orv
