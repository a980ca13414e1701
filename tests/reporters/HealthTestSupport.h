// What the system health tests compare: whole reports and whole runs of log lines, as text.
#pragma once

#include <OvrixEvent.h>
#include <VistelRecords.h>
#include <android/log.h>

#include <string>
#include <vector>

#include "LogCapture.h"
#include "ReporterTest.h"

namespace vistel_test {

// An event in one line, keys, types and order included: texts quoted, integers bare, arrays
// bracketed: 918009011{Zoom=2 JpegName="a.jpg" ProcessInfo=[918009010{...},918009010{...}]}.
inline std::string ovrixText(const OvrixEvent& event) {
    std::string text = std::to_string(event.id()) + "{";
    for (const OvrixEvent::Param& p : event.params()) {
        text += (text.back() == '{' ? "" : " ") + p.key + "=";
        if (p.type == OvrixEvent::ParamType::kInt) text += std::to_string(p.intValue);
        if (p.type == OvrixEvent::ParamType::kFloat) text += std::to_string(p.floatValue) + "f";
        if (p.type == OvrixEvent::ParamType::kString) text += "\"" + p.stringValue + "\"";
        if (p.type == OvrixEvent::ParamType::kArray) {
            text += "[";
            for (const OvrixEvent& e : p.arrayValue) {
                text += (text.back() == '[' ? "" : ",") + ovrixText(e);
            }
            text += "]";
        }
    }
    return text + "}";
}

inline std::vector<std::string> reportedTexts() {
    std::vector<std::string> texts;
    for (const OvrixEvent& event : ovrixhost::reported()) texts.push_back(ovrixText(event));
    return texts;
}

// The manager's lines, in order, as "<D|I|E> <function>: <body>". A second location that names
// the logging function itself and the prefix's line, " orv::VistelManager::<function>:<line> ",
// reads "@ ", so a wrong name or line still shows.
inline std::vector<std::string> managerLines(const LogCapture& log) {
    std::vector<std::string> lines;
    for (LogLine line : log.lines()) {
        if (line.tag != "VistelManager") continue;
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

// One process's figures, each distinct (base + 1 to base + 7) so that a figure put under
// another key shows; the reserved word is never reported.
inline orv::vistelProcessMemInfo processMemInfo(const char* name, int32_t base) {
    return {name, base + 1, base + 2, base + 3, base + 4, base + 5, base + 6, base + 7, 999};
}

inline std::string processMemText(const char* name, int32_t base) {
    std::string text = std::string("918009010{ProcessName=\"") + name + "\"";
    const char* keys[] = {"PID", "Ion", "Rss", "Pss", "NativePss", "JavaPss", "Swap"};
    for (int i = 0; i < 7; ++i)
        text += " " + std::string(keys[i]) + "=" + std::to_string(base + i + 1);
    return text + "}";
}

// For the memory reporters: one record in, one event out, nothing logged between the entry and
// exit lines.
class SingleOvrixReportTest : public ReporterTest {
  protected:
    void expectSingleReport(const std::string& reporter,
                            std::shared_ptr<orv::VistelEventBase> record,
                            const std::string& expected) {
        ovrixhost::reset();
        mLog.clear();
        EXPECT_EQ(report(std::move(record)), 0);
        EXPECT_EQ(reportedTexts(), std::vector<std::string>{expected});
        EXPECT_EQ(managerLines(mLog), (std::vector<std::string>{
                                              "I " + reporter + ": enter " + reporter + "()",
                                              "I " + reporter + ": exit " + reporter + "()",
                                      }));
    }
};

}  // namespace vistel_test
