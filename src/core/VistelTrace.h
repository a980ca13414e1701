// The library's work in the platform's system trace (libcutils' trace markers, camera tag): each
// record's work as a section named after its kind ("vistel MemLeak"), the service calls inside it
// as nested sections, and the records in flight and shed as counter tracks.
//
//     TraceSection section(recordSection(kind));   // ends when it goes out of scope
//
// With tracing off each marker costs the enabled-tags check and nothing more.
#pragma once

#ifndef ATRACE_TAG
#define ATRACE_TAG ATRACE_TAG_CAMERA
#endif
#include <cutils/trace.h>

#include <cstdint>

#include "VistelKinds.h"

// The marker functions behind ATRACE_BEGIN and ATRACE_END, which the header declares only inside
// its inline functions: TraceSection decides once whether to write both.
extern "C" void atrace_begin_body(const char* name);
extern "C" void atrace_end_body();

// cutils/trace.h reached first from elsewhere would have fixed the tag to "never".
#if ATRACE_TAG != ATRACE_TAG_CAMERA
#error "the library's sections carry the camera tag: include VistelTrace.h before cutils/trace.h"
#endif

namespace orv {

// One section, begun and ended on the calling thread. Whether it began is decided once: the end
// is written exactly when the begin was, even when tracing is switched on or off in between, so
// a trace never holds a section without its end nor an end without its section.
// Out of line: every handler's door holds one, and the worker's call costs less than 32 inlined
// copies of the check.
class TraceSection {
  public:
    explicit TraceSection(const char* name);
    ~TraceSection();
    TraceSection(const TraceSection&) = delete;
    TraceSection& operator=(const TraceSection&) = delete;

  private:
    const bool mBegun;
};

#define VISTEL_RECORD_SECTION(Kind, handler, Record, refused) "vistel " #Kind,
inline constexpr const char* kRecordSections[] = {VISTEL_KINDS(VISTEL_RECORD_SECTION)};
#undef VISTEL_RECORD_SECTION

// The section of a record of `kind`; the camera stack's own sendBootMsg calls have one of their
// own.
inline const char* recordSection(VistelEvent kind) {
    return kind < kVistelEventCount ? kRecordSections[kind] : "vistel sendBootMsg";
}

// The counter tracks.
constexpr const char kInFlightTrack[] = "vistel records in flight";
constexpr const char kShedTrack[] = "vistel records shed";

inline void traceCounter(const char* track, uint64_t value) {
    ATRACE_INT(track, static_cast<int32_t>(value > INT32_MAX ? INT32_MAX : value));
}

// Writes `current()` to a counter track that several threads write, and again while the count
// moved meanwhile. Their writes may land out of order, but the last writer has read the count
// after its own write, so once the count stops moving the track ends where the count does.
template <typename Current>
void traceSettledCounter(const char* track, Current current) {
    if (!ATRACE_ENABLED()) return;
    uint64_t value = current();
    for (int tries = 0; tries < 8; ++tries) {
        traceCounter(track, value);
        const uint64_t now = current();
        if (now == value) return;
        value = now;
    }
}

}  // namespace orv
