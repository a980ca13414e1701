// Log helpers: every line of the library starts "<function><<line>>: [<build tag>]".
// The including file defines LOG_TAG ("VistelManager" or "VistelLibLoader") first.
#pragma once

#include <android/log.h>
#include <orvlog.h>

#include <cstddef>
#include <string>

namespace orv {

constexpr char kBuildTag[] = "185dd222";
constexpr size_t kBuildTagLength = sizeof(kBuildTag) - 1;

// "orv::VistelManager::Init" from "void orv::VistelManager::Init()": cut at the first '(',
// drop everything up to the last blank, then drop the first '*'.
std::string qualifiedFunctionName(const char* prettyFunction);

}  // namespace orv

// The format is a literal checked by the compiler; record contents only ever go in as arguments.
#define VISTEL_LOG_AT(priority, function, fmt, ...)                                           \
    __android_log_print(priority, LOG_TAG, "%s<%d>: [%s]" fmt, function, __LINE__, g_logGitTag, \
                        ##__VA_ARGS__)

#define VLOGD(fmt, ...) VISTEL_LOG_AT(ANDROID_LOG_DEBUG, __func__, fmt, ##__VA_ARGS__)
#define VLOGI(fmt, ...) VISTEL_LOG_AT(ANDROID_LOG_INFO, __func__, fmt, ##__VA_ARGS__)
#define VLOGE(fmt, ...) VISTEL_LOG_AT(ANDROID_LOG_ERROR, __func__, fmt, ##__VA_ARGS__)

// The enclosing function's qualified name, for the lines that print a second location.
#define VISTEL_QUALIFIED_NAME() (::orv::qualifiedFunctionName(__PRETTY_FUNCTION__).c_str())
