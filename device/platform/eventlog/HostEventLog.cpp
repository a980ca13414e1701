#include "HostEventLog.h"

#include <android/log.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>

namespace hosteventlog {

namespace {

// Reporters write from several threads at once, and strerror() may hand them one shared buffer.
// The GNU strerror_r (glibc and bionic) returns the text, in the buffer or a constant.
std::string errorText(int error) {
    char text[128];
    return strerror_r(error, text, sizeof(text));
}

}  // namespace

void appendLineToEnvFile(const char* envName, const std::function<std::string()>& makeLine,
                         const char* logTag) {
    const char* path = getenv(envName);
    if (path == nullptr || path[0] == '\0') {
        return;
    }
    int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, logTag, "cannot open %s=%s: %s", envName, path,
                            errorText(errno).c_str());
        return;
    }
    const std::string record = makeLine() + '\n';
    ssize_t written = TEMP_FAILURE_RETRY(write(fd, record.data(), record.size()));
    if (written < 0) {
        __android_log_print(ANDROID_LOG_ERROR, logTag, "cannot write to %s: %s", path,
                            errorText(errno).c_str());
    } else if (written != static_cast<ssize_t>(record.size())) {
        // A short write sets no errno: the disk filled or a size limit was reached.
        __android_log_print(ANDROID_LOG_ERROR, logTag, "short write to %s (%zd of %zu bytes)",
                            path, written, record.size());
    }
    close(fd);
}

double jsonNumber(float value) {
    char text[32];
    std::to_chars_result end = std::to_chars(text, text + sizeof(text) - 1, value);
    if (end.ec != std::errc()) {
        return value;
    }
    *end.ptr = '\0';
    return strtod(text, nullptr);
}

}  // namespace hosteventlog
