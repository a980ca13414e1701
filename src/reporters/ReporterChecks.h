// The checks every reporter opens with, logged under the reporter's own name and counted in the
// row of the record's kind (VistelCounters.h).
#pragma once

#ifndef LOG_TAG
#define LOG_TAG "VistelManager"
#endif

#include <exception>

#include "VistelCounters.h"
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
inline bool refusedNotInitialised(const char* reporter, bool inited, const void* record,
                                  counters::KindCounters& counted) {
    if (record == nullptr) {
        logRecordNotValid(reporter, record, inited);
        counted.addNotInitialised();
        return true;
    }
    if (inited) return false;
    VISTEL_LOG_AT(ANDROID_LOG_ERROR, reporter, "%s() error: init failed", reporter);
    counted.addNotInitialised();
    return true;
}

// Every exported reporter ends in this when its work throws (memory ran out while it built its
// event): the failure is logged and answered -1, and nothing is thrown back to the camera stack.
inline int reportFailed(const char* reporter, const std::exception& error) {
    VISTEL_LOG_AT(ANDROID_LOG_ERROR, reporter, "%s() error: %s", reporter, error.what());
    return -1;
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
