// What the reporter tests compare, as text: the manager's log lines and the events reported to
// the Ovrix service.
#pragma once

#include <LogCapture.h>
#include <OvrixEvent.h>
#include <android/log.h>
#include <strings.h>

#include <string>
#include <vector>

#include "ReporterTest.h"

namespace vistel_test {

using vistel_harness::LogCapture;

using vistel_harness::LogLine;

using Strings = std::vector<std::string>;

// An event in one line, keys, types and order included: texts quoted, integers bare, floats with
// "f", arrays bracketed: 918009011{Zoom=2 JpegName="a.jpg" ProcessInfo=[918009010{...},...]}.
inline std::string ovrixText(const OvrixEvent& event) {
    std::string text = std::to_string(event.id()) + "{";
    for (const OvrixEvent::Param& p : event.params()) {
        text += (text.back() == '{' ? "" : " ") + p.key + "=";
        if (p.type == OvrixEvent::ParamType::kInt) text += std::to_string(p.intValue);
        if (p.type == OvrixEvent::ParamType::kFloat) text += std::to_string(p.floatValue) + "f";
        if (p.type == OvrixEvent::ParamType::kString) text += "\"" + p.stringValue + "\"";
        if (p.type != OvrixEvent::ParamType::kArray) continue;
        text += "[";
        for (const OvrixEvent& e : p.arrayValue)
            text += (text.back() == '[' ? "" : ",") + ovrixText(e);
        text += "]";
    }
    return text + "}";
}

inline Strings reportedTexts() {
    Strings texts;
    for (const OvrixEvent& event : ovrixhost::reported()) texts.push_back(ovrixText(event));
    return texts;
}

// The manager's lines, in order, as "<D|I|E> <function>: <body>", the limiter's left out unless
// asked for. A second location that names the logging function and the prefix's line,
// " orv::VistelManager::<function>:<line> ", reads "@ ", so a wrong name or line still shows.
inline Strings managerLines(const LogCapture& log, bool withLimiter = true) {
    Strings lines;
    for (LogLine line : log.lines()) {
        if (line.tag != "VistelManager") continue;
        if (!withLimiter && strncasecmp(line.function.c_str(), "limit", 5) == 0) continue;
        const std::string location =
                " orv::VistelManager::" + line.function + ":" + std::to_string(line.line) + " ";
        if (line.body.rfind(location, 0) == 0) line.body.replace(0, location.size(), "@ ");
        const char* priority = line.priority == ANDROID_LOG_DEBUG   ? "D "
                               : line.priority == ANDROID_LOG_INFO  ? "I "
                               : line.priority == ANDROID_LOG_ERROR ? "E "
                                                                    : "? ";
        lines.push_back(priority + line.function + ": " + line.body);
    }
    return lines;
}

// A handler's entry and exit lines at info level, as managerLines() shows them.
inline Strings enterExitLines(const std::string& f) {
    return {"I " + f + ": enter " + f + "()", "I " + f + ": exit " + f + "()"};
}

}  // namespace vistel_test
