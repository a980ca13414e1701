// The checks every reporter opens with, logged under the reporter's own name and counted in its
// record's outcome (ReporterScope.h).
#pragma once

#ifndef LOG_TAG
#define LOG_TAG "VistelManager"
#endif

#include "ReporterScope.h"
#include "VistelLog.h"

namespace orv {

// The line of a record that cannot be used: null, or (for the reporters that say so) handed to
// an uninitialised manager.
inline void logRecordNotValid(const char* reporter, const void* record, bool inited) {
    VISTEL_LOG_AT(ANDROID_LOG_ERROR, reporter, "%s() error: event=%p, inited=%d not valid",
                  reporter, record, inited);
}

// Nothing is reported while the service library is unbound, and nothing is read from a null
// record: every handler is exported, so a caller may call one directly with an empty pointer.
// True, after the reason's line, when the reporter must refuse the record with its
// not-initialised result (counted as such); the limiter has not been asked.
inline bool refusedNotInitialised(ReporterScope& scope, bool inited, const void* record) {
    const char* reporter = scope.reporter();
    if (record == nullptr) {
        logRecordNotValid(reporter, record, inited);
        scope.notInitialised();
        return true;
    }
    if (inited) return false;
    VISTEL_LOG_AT(ANDROID_LOG_ERROR, reporter, "%s() error: init failed", reporter);
    scope.notInitialised();
    return true;
}

// The line of a record the rate limiter dropped.
inline void logLimited(ReporterScope& scope) {
    VISTEL_LOG_AT(ANDROID_LOG_INFO, scope.reporter(), "%s() is limited, drop this event",
                  scope.reporter());
    scope.limited();
}

// The result of sending a record's one Vistel event (0 sent, -1 refused on the way), counted
// and passed on.
inline int countedSend(ReporterScope& scope, int sendResult) {
    scope.serviceAnswer(sendResult == 0);
    return sendResult;
}

}  // namespace orv
