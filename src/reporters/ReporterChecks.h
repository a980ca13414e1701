// The checks every reporter opens with, logged under the reporter's own name.
#pragma once

#ifndef LOG_TAG
#define LOG_TAG "VistelManager"
#endif

#include "VistelLog.h"

namespace orv {

// Nothing is reported while the service library is unbound: true (after the "init failed"
// line) when the reporter must refuse the record.
inline bool refusedNotInitialised(const char* reporter, bool inited) {
    if (inited) return false;
    VISTEL_LOG_AT(ANDROID_LOG_ERROR, reporter, "%s() error: init failed", reporter);
    return true;
}

// The line of a record the rate limiter dropped.
inline void logLimited(const char* reporter) {
    VISTEL_LOG_AT(ANDROID_LOG_INFO, reporter, "%s() is limited, drop this event", reporter);
}

}  // namespace orv
