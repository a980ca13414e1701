#include <cstdio>

#include "HealthTestSupport.h"

namespace vistel_test {
namespace {

using HealthReportingTest = ReporterTest;
using orv::VistelManager;

// The handlers are exported, so the camera stack may call one directly; an empty record is
// refused with the line that shows its address, never read through.
TEST_F(HealthReportingTest, NullRecordCalledDirectlyIsRefused) {
    const struct {
        std::string name;
        VistelManager::HandlerMethod handler;
        int result;
        std::string location;  // the temperature report's lines carry a second one
    } kHandlers[] = {
            {"sendMemoryExceedThreshold", &VistelManager::sendMemoryExceedThreshold, -1, ""},
            {"sendMemoryAllocTimeout", &VistelManager::sendMemoryAllocTimeout, -1, ""},
            {"sendDailyTempRise", &VistelManager::sendDailyTempRise, -1, "@ "},
            {"sendBootTimeout", &VistelManager::sendBootTimeout, -1, ""},
            {"sendScanMsgReport", &VistelManager::sendScanMsgReport, -2, ""},
            {"dumpTrace", &VistelManager::dumpTrace, -1, ""},
    };
    char null[32];
    snprintf(null, sizeof(null), "%p", static_cast<void*>(nullptr));
    for (const auto& h : kHandlers) {
        SCOPED_TRACE(h.name);
        mLog.clear();
        EXPECT_EQ((manager()->*h.handler)(nullptr), h.result);
        std::vector<std::string> lines = managerLines(mLog);
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_EQ(lines[1], "E " + h.name + ": " + h.location + h.name + "() error: event=" + null +
                                    ", inited=1 not valid");
    }
    EXPECT_TRUE(ovrixhost::reported().empty());
    EXPECT_TRUE(orvloghost::jankPrints().empty());
}

}  // namespace
}  // namespace vistel_test
