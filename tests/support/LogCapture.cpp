#include "LogCapture.h"

#include <android/log.h>

#include <regex>

namespace vistel_test {

namespace {

std::mutex gMutex;
std::vector<LogLine> gLines;  // guarded by gMutex

LogLine parse(int priority, const char* tag, const char* message) {
    static const std::regex kPrefix(R"(^([^<]*)<(\d+)>: \[([^\]]*)\]([\s\S]*)$)");
    LogLine line{priority, tag ? tag : "", message ? message : "", "", -1, "", ""};
    std::smatch match;
    if (std::regex_match(line.message, match, kPrefix)) {
        line.function = match[1];
        line.line = std::stoi(match[2]);
        line.buildTag = match[3];
        line.body = match[4];
    } else {
        line.body = line.message;
    }
    return line;
}

thread_local bool tCapturing = false;

void capture(const struct __android_logger_data* data, const char* message) {
    // Keeping the line is the test's work, not the library's: it is never where memory runs out.
    tCapturing = true;
    LogLine line = parse(data->priority, data->tag, message);
    {
        std::lock_guard<std::mutex> lock(gMutex);
        gLines.push_back(std::move(line));
    }
    tCapturing = false;
}

}  // namespace

bool LogCapture::capturing() {
    return tCapturing;
}

LogCapture::LogCapture() {
    static std::once_flag installed;
    std::call_once(installed, [] {
        __android_log_set_logger(capture);
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    });
    clear();
}

std::vector<LogLine> LogCapture::lines() const {
    std::lock_guard<std::mutex> lock(gMutex);
    return gLines;
}

std::vector<LogLine> LogCapture::withBody(const std::string& body) const {
    std::vector<LogLine> found;
    for (const LogLine& line : lines()) {
        if (line.body == body) found.push_back(line);
    }
    return found;
}

bool LogCapture::has(int priority, const std::string& function, const std::string& body) const {
    for (const LogLine& line : lines()) {
        if (line.priority == priority && line.function == function && line.body == body) {
            return true;
        }
    }
    return false;
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(gMutex);
    gLines.clear();
}

}  // namespace vistel_test
