#include "HealthTestSupport.h"

namespace vistel_test {
namespace {

using TraceTest = ReporterTest;

TEST_F(TraceTest, OneTraceRequestPerQuietPeriod) {
    auto record = std::make_shared<orv::vistelDumpTrace>();
    ASSERT_EQ(report(record), 0);  // starts the quiet period
    const struct {
        int advanceS;  // since the previous step
        const char* name;
        int result;
        const char* message;  // null: no trace requested
    } kSteps[] = {
            {360, "Preview", 0, "#ARG1:<Preview>#ARG2:<300>"},
            {359, "Preview", -2, nullptr},
            {1, "", 0, "#ARG1:<>#ARG2:<300>"},
            {360, "Capture %s <1>", 0, "#ARG1:<Capture %s <1>>#ARG2:<300>"},
    };
    for (const auto& step : kSteps) {
        SCOPED_TRACE(std::string(step.name) + " +" + std::to_string(step.advanceS));
        orvloghost::reset();
        mLog.clear();
        FakeClock::advanceSeconds(step.advanceS);
        record->traceName = step.name;
        EXPECT_EQ(report(record), step.result);

        std::vector<std::string> lines = {
                "I dumpTrace: enter dumpTrace()",
                "E LimitDumpSysTraceError: LimitDumpSysTraceError() timeIntervalInS = " +
                        std::to_string(step.result == 0 ? 360 : 359)};
        std::vector<orvloghost::JankPrint> prints = orvloghost::jankPrints();
        if (step.message == nullptr) {
            EXPECT_TRUE(prints.empty());
            lines.push_back("I dumpTrace: dumpTrace() is limited, drop this event");
        } else {
            ASSERT_EQ(prints.size(), 1u);
            EXPECT_EQ(prints[0].type, 3);
            EXPECT_EQ(prints[0].id, 474);
            EXPECT_EQ(prints[0].msg, step.message);
            const std::string systrace = "I dumpTrace: dumpTrace() calling systrace for ";
            lines.push_back(systrace + step.name + " begin");
            lines.push_back(systrace + step.name + " end");
        }
        EXPECT_EQ(managerLines(mLog), lines);
    }
}

// Kind 18 is answered without a trace, an event or a limiter decision.
TEST_F(TraceTest, AlgoTimeoutTraceRequestIsSkipped) {
    auto record = std::make_shared<orv::vistelAlgoProcessTimeoutDumpSystrace>();
    const std::string name = "SendEventAlgoProcessTimeoutDumpSystrace";
    for (int i = 0; i < 2; ++i) {
        mLog.clear();
        EXPECT_EQ(report(record), 0);
        EXPECT_EQ(managerLines(mLog),
                  (std::vector<std::string>{
                          "I " + name + ": enter " + name + "()",
                          "I " + name + ": " + name + "() skipped, brontix is used instread",
                  }));
    }
    EXPECT_TRUE(orvloghost::jankPrints().empty());
    EXPECT_TRUE(ovrixhost::reported().empty());
    EXPECT_TRUE(vistelhost::sentEvents().empty());
}

}  // namespace
}  // namespace vistel_test
