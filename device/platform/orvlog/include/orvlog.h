/*
 * orvlog: the maker's logging library.
 *
 *     __orvlog_jank_print(3, 474, "#ARG1:<Preview>#ARG2:<300>");
 *
 * asks the logging service to act on a jank event of the given type and id; what the numbers
 * and the message mean is the service's business. g_logGitTag is the process-wide build-tag
 * buffer, zero-filled at load, that components fill with their build tag for their log lines.
 *
 * Host build: each jank print is logged under the tag "orvlog" at info priority and recorded
 * for tests (see orvloghost below).
 */

#pragma once

#define ORVLOG_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

// Returns 0. msg may be null, which is recorded as an empty text.
ORVLOG_EXPORT int __orvlog_jank_print(int type, int id, const char* msg);

ORVLOG_EXPORT extern char g_logGitTag[64];

#ifdef __cplusplus
}  // extern "C"

#include <string>
#include <vector>

// Host-only hooks for tests and tools. Thread-safe.
namespace orvloghost {

struct JankPrint {
    int type;
    int id;
    std::string msg;
};

// The jank prints since the last reset(), in call order.
ORVLOG_EXPORT std::vector<JankPrint> jankPrints();
ORVLOG_EXPORT void reset();

}  // namespace orvloghost
#endif
