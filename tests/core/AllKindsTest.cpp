// Every kind reaches its own handler, with the service bound and (in a second process, whose
// environment sets VISTEL_SERVICE=absent) without it.
#include <VistelManager.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "FakeClock.h"
#include "KindRegistry.h"
#include "LogCapture.h"

namespace vistel_test {
namespace {

bool serviceAbsent() {
    const char* setup = getenv("VISTEL_SERVICE");
    return setup != nullptr && strcmp(setup, "absent") == 0;
}

// What a reporter answers when the service library could not be bound: -1, except the scan
// message report (-2) and the kind-18 trace request, which checks nothing (0).
int notInitialisedResult(orv::VistelEvent kind) {
    if (kind == orv::kEventScanMsg) return -2;
    if (kind == orv::kEventAlgoProcessTimeoutDumpSystrace) return 0;
    return -1;
}

TEST(AllKindsTest, EachKindReachesItsOwnHandler) {
    LogCapture log;
    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    for (const vistel_tools::KindInfo& c : vistel_tools::kinds()) {
        SCOPED_TRACE(c.handler);
        FakeClock::expireAllLimits();
        log.clear();
        std::shared_ptr<orv::VistelEventBase> record = c.make().record;
        ASSERT_EQ(record->GetEventType(), c.kind);
        std::future<int> result = manager->reportMsgImpl(record);
        ASSERT_TRUE(result.valid());
        EXPECT_EQ(result.get(), serviceAbsent() ? notInitialisedResult(c.kind) : 0);

        // Every handler logs under its own name; none logs under another's.
        bool reached = false;
        for (const LogLine& line : log.lines()) {
            if (line.function == c.handler) reached = true;
            for (const vistel_tools::KindInfo& other : vistel_tools::kinds()) {
                if (other.kind != c.kind) {
                    EXPECT_NE(line.function, std::string(other.handler)) << line.message;
                }
            }
        }
        EXPECT_TRUE(reached);
    }
}

}  // namespace
}  // namespace vistel_test
