#include "LogCapture.h"

#include <mutex>
#include <utility>

namespace vistel_harness {

namespace {

std::mutex gMutex;
std::vector<LogLine> gLines;  // guarded by gMutex

// Splits "<function><<line>>: [<build tag>]<body>"; a line without that prefix is all body.
LogLine parse(int priority, const char* tag, const char* message) {
    LogLine line{priority, tag ? tag : "", message ? message : "", "", -1, "", ""};
    const std::string& text = line.message;
    const size_t open = text.find('<');
    const size_t close = open == std::string::npos ? open : text.find(">: [", open);
    const size_t tagEnd = close == std::string::npos ? close : text.find(']', close);
    const bool digits = close != std::string::npos && close > open + 1 &&
                        text.find_first_not_of("0123456789", open + 1) == close;
    if (!digits || tagEnd == std::string::npos) {
        line.body = text;
        return line;
    }
    line.function = text.substr(0, open);
    line.line = std::stoi(text.substr(open + 1, close - open - 1));
    line.buildTag = text.substr(close + 4, tagEnd - close - 4);
    line.body = text.substr(tagEnd + 1);
    return line;
}

thread_local bool tCapturing = false;

void capture(const struct __android_logger_data* data, const char* message) {
    // Keeping the line is the capture's work, not the library's: it is never where memory runs
    // out.
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

std::vector<LogLine> LogCapture::take() {
    std::lock_guard<std::mutex> lock(gMutex);
    return std::exchange(gLines, {});
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

void discardLogLine(const struct __android_logger_data* /*data*/, const char* /*message*/) {}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace vistel_harness
