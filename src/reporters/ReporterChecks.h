// The checks every reporter opens with, logged under the reporter's own name and counted in the
// row of the record's kind (VistelCounters.h).
#pragma once

#ifndef LOG_TAG
#define LOG_TAG "VistelManager"
#endif

#include "VistelCounters.h"
#include "VistelLog.h"

namespace orv {

// Nothing is reported while the service library is unbound: true (after the "init failed"
// line) when the reporter must refuse the record.
inline bool refusedNotInitialised(const char* reporter, bool inited,
                                  counters::KindCounters& counted) {
    if (inited) return false;
    VISTEL_LOG_AT(ANDROID_LOG_ERROR, reporter, "%s() error: init failed", reporter);
    counted.addNotInitialised();
    return true;
}

// The line of a record the rate limiter dropped.
inline void logLimited(const char* reporter, counters::KindCounters& counted) {
    VISTEL_LOG_AT(ANDROID_LOG_INFO, reporter, "%s() is limited, drop this event", reporter);
    counted.addLimited();
}

// The result of sending a record's one Vistel event (0 sent, -1 refused on the way), counted
// and passed on.
inline int countedSend(counters::KindCounters& counted, int sendResult) {
    counted.addServiceAnswer(sendResult == 0);
    return sendResult;
}

}  // namespace orv
