// Log helpers: every line of the library starts "<function><<line>>: [<build tag>]".
// The including file defines LOG_TAG ("VistelManager" or "VistelLibLoader") first.
//
// The manager and its reporters print the manager's own tag buffer, filled once by Init and
// terminated within its 64 bytes whatever other components leave in the process-wide one. The
// loader prints the process-wide buffer it fills itself: its file defines VISTEL_LOG_BUILD_TAG
// as ::g_logGitTag before including this header.
#pragma once

#include <android/log.h>
#include <orvlog.h>

#include <cstddef>
#include <string>

namespace orv {

constexpr char kBuildTag[] = "185dd222";
constexpr size_t kBuildTagLength = sizeof(kBuildTag) - 1;

// The manager's build tag: zero-filled at load, the tag copied in by VistelManager::Init. A plain
// array, so it stays readable by late log lines while static destructors run at exit.
extern __attribute__((visibility("hidden"))) char g_logGitTag[64];

// "orv::VistelManager::Init" from "void orv::VistelManager::Init()": cut at the first '(',
// drop everything up to the last blank, then drop the first '*'.
std::string qualifiedFunctionName(const char* prettyFunction);

}  // namespace orv

#ifndef VISTEL_LOG_BUILD_TAG
#define VISTEL_LOG_BUILD_TAG ::orv::g_logGitTag
#endif

// The format is a literal checked by the compiler; record contents only ever go in as arguments.
#define VISTEL_LOG_AT(priority, function, fmt, ...)                                \
    __android_log_print(priority, LOG_TAG, "%s<%d>: [%s]" fmt, function, __LINE__, \
                        VISTEL_LOG_BUILD_TAG, ##__VA_ARGS__)

#define VLOGD(fmt, ...) VISTEL_LOG_AT(ANDROID_LOG_DEBUG, __func__, fmt, ##__VA_ARGS__)
#define VLOGI(fmt, ...) VISTEL_LOG_AT(ANDROID_LOG_INFO, __func__, fmt, ##__VA_ARGS__)
#define VLOGE(fmt, ...) VISTEL_LOG_AT(ANDROID_LOG_ERROR, __func__, fmt, ##__VA_ARGS__)

// The enclosing function's qualified name, for the lines that print a second location.
#define VISTEL_QUALIFIED_NAME() (::orv::qualifiedFunctionName(__PRETTY_FUNCTION__).c_str())
