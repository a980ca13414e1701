// Video performance (23) and frame drop (27) reports: system events 918009006 holding up to ten
// 918009007 sub-events, each kind under its own rate limit.
#include <future>
#include <set>
#include <sstream>

#include "ReporterTest.h"

namespace vistel_test {
namespace {

using orv::kEventFrameDrop;
using orv::kEventVideoPerfData;

// An event as "id{key=value ...}": ints bare, floats with "f", texts quoted, arrays in [].
std::string render(const OvrixEvent& event) {
    std::ostringstream out;
    out << event.id() << "{";
    const char* separator = "";
    for (const OvrixEvent::Param& param : event.params()) {
        out << separator << param.key << "=";
        separator = " ";
        if (param.type == OvrixEvent::ParamType::kInt) out << param.intValue;
        if (param.type == OvrixEvent::ParamType::kFloat) out << param.floatValue << "f";
        if (param.type == OvrixEvent::ParamType::kString) out << '"' << param.stringValue << '"';
        if (param.type == OvrixEvent::ParamType::kArray) {
            out << "[";
            for (const OvrixEvent& element : param.arrayValue) out << render(element) << ",";
            out << "]";
        }
    }
    return out.str() + "}";
}

// Group g (from 1) with n stretches, and the event the service must receive for it: the first
// ten stretches.
orv::vistelVideoPerfInfo group(int g, int n) {
    orv::vistelVideoPerfInfo info{g, 10 + g, 20 + g, -g, {}};
    for (int i = 0; i < n; ++i) {
        std::string tag = std::to_string(g) + "." + std::to_string(i);
        info.perfDetail.push_back(
                {"s" + tag, "d" + tag, 100 + i, -i, "r" + tag, 200 + i, g, i + .5f});
    }
    return info;
}
std::string expectedEvent(int g, int n) {
    std::ostringstream out;
    out << "918009006{SceneMode=" << g << " ZoomRatio=" << 10 + g << " SensorModIdx=" << 20 + g
        << " SensorModCap=" << -g << " PerfDetail=[";
    for (int i = 0; i < std::min(n, 10); ++i) {
        std::string tag = std::to_string(g) + "." + std::to_string(i);
        out << "918009007{SensorTime=\"s" << tag << "\" TimeOfDay=\"d" << tag
            << "\" TotalSensorCnt=" << 100 + i << " ErrSensorCnt=" << -i << " RequestId=\"r" << tag
            << "\" TotalRequestCnt=" << 200 + i << " ErrRequestCnt=" << g << " Fps=" << i + .5f
            << "f},";
    }
    return out.str() + "]}";
}

// A video performance record is one group; a frame drop record holds any number.
std::shared_ptr<orv::VistelEventBase> makeRecord(orv::VistelEvent kind, std::vector<int> sizes) {
    if (kind == kEventVideoPerfData) {
        auto record = std::make_shared<orv::vistelVideoPerfData>();
        static_cast<orv::vistelVideoPerfInfo&>(*record) = group(1, sizes.at(0));
        return record;
    }
    auto record = std::make_shared<orv::vistelFrameDrop>();
    for (size_t g = 0; g < sizes.size(); ++g) {
        record->groups.push_back(group(static_cast<int>(g) + 1, sizes[g]));
    }
    return record;
}

class VideoPerfTest : public ReporterTest {
  protected:
    static std::vector<std::string> reported() {
        std::vector<std::string> events;
        for (const OvrixEvent& event : ovrixhost::reported()) events.push_back(render(event));
        return events;
    }
    // The lines these reporters log themselves, as "<priority> <function>: <body>".
    std::vector<std::string> reporterLines() const {
        std::vector<std::string> found;
        for (const LogLine& line : mLog.lines()) {
            if (line.function == "sendEventVideoPerfData" || line.function == "FrameDropError" ||
                line.function == "operator()") {
                found.push_back(std::to_string(line.priority) + " " + line.function + ": " +
                                line.body);
            }
        }
        return found;
    }
};

TEST_F(VideoPerfTest, OneEventPerGroupWithAtMostTenStretches) {
    const struct {
        orv::VistelEvent kind;
        std::vector<int> sizes;
        std::vector<std::string> lines;
    } kCases[] = {
            {kEventVideoPerfData,
             {0},
             {"4 sendEventVideoPerfData: enter sendEventVideoPerfData()",
              "4 sendEventVideoPerfData: sendEventVideoPerfData() 0 subEvent is contained"}},
            {kEventVideoPerfData,
             {15},
             {"4 sendEventVideoPerfData: enter sendEventVideoPerfData()",
              "4 sendEventVideoPerfData: sendEventVideoPerfData() 10 subEvent is contained"}},
            {kEventFrameDrop, {}, {"4 FrameDropError: enter FrameDropError()"}},
            {kEventFrameDrop,
             {2, 12, 0},
             {"4 FrameDropError: enter FrameDropError()",
              "4 operator(): operator()() 2 subEvent is contained",
              "4 operator(): operator()() 10 subEvent is contained",
              "4 operator(): operator()() 0 subEvent is contained"}},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(::testing::PrintToString(c.lines));
        FakeClock::expireAllLimits();
        ovrixhost::reset();
        mLog.clear();
        EXPECT_EQ(report(makeRecord(c.kind, c.sizes)), 0);
        std::vector<std::string> expected;
        for (size_t g = 0; g < c.sizes.size(); ++g) {
            expected.push_back(expectedEvent(static_cast<int>(g) + 1, c.sizes[g]));
        }
        EXPECT_EQ(reported(), expected);
        EXPECT_EQ(reporterLines(), c.lines);
    }
}

// Video performance passes once a minute, frame drops once every ten minutes. Of records
// arriving at one instant exactly one passes, and it takes the period even when it has nothing
// to report; a dropped record does not move the period.
TEST_F(VideoPerfTest, RateLimits) {
    const struct {
        orv::VistelEvent kind;
        int periodS;
        std::vector<int> emptiest;  // the emptiest record of the kind
        size_t emptyReports;        // and what it reports
        const char* dropLine;
    } kCases[] = {
            {kEventVideoPerfData,
             60,
             {0},
             1,
             "4 sendEventVideoPerfData: snapshot return frame interval error report is limited, "
             "drop this event"},
            {kEventFrameDrop,
             600,
             {},
             0,
             "4 FrameDropError: FrameDropError() is limited, drop this event"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.periodS);
        FakeClock::expireAllLimits();
        ovrixhost::reset();
        std::vector<std::future<int>> results;
        for (int i = 0; i < 16; ++i) {
            results.push_back(manager()->reportMsgImpl(makeRecord(c.kind, c.emptiest)));
        }
        std::multiset<int> values;
        for (auto& result : results) values.insert(result.get());
        EXPECT_EQ(values.count(0), 1u);
        EXPECT_EQ(values.count(-2), 15u);
        EXPECT_EQ(ovrixhost::reported().size(), c.emptyReports);

        FakeClock::advanceSeconds(c.periodS - 1);
        mLog.clear();
        EXPECT_EQ(report(makeRecord(c.kind, {2})), -2);
        EXPECT_EQ(reporterLines().back(), c.dropLine);
        FakeClock::advanceSeconds(1);
        EXPECT_EQ(report(makeRecord(c.kind, {2})), 0);
        EXPECT_EQ(reported().size(), c.emptyReports + 1);
        EXPECT_EQ(reported().back(), expectedEvent(1, 2));
    }
}

}  // namespace
}  // namespace vistel_test
