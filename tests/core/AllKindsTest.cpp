// Every kind reaches its own handler, with the service bound and (in a second process, whose
// environment sets VISTEL_SERVICE=absent and names no folder with the service library) without
// it, where the camera must keep working; the dump counts each record under its own kind.
#include <VistelManager.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "FakeClock.h"
#include "Handlers.h"
#include "KindRegistry.h"
#include "LibraryCounters.h"
#include "LogCapture.h"

namespace vistel_test {
namespace {

bool serviceAbsent() {
    const char* setup = getenv("VISTEL_SERVICE");
    return setup != nullptr && strcmp(setup, "absent") == 0;
}

// Defined first so that it builds the manager and sees the start-up lines: without the service
// the manager still registers every handler, and each primitive refuses with its own line.
TEST(AllKindsTest, WithoutTheServiceTheManagerBuildsAndPrimitivesRefuse) {
    if (!serviceAbsent()) GTEST_SKIP() << "needs a process without the service library";
    LogCapture log;
    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, "Init", "Init() VistelLibLoader::getInstance failed"));
    EXPECT_EQ(vistel_tools::readLibraryCounters().binding, VISTEL_BINDING_LIBRARY_MISSING);
    EXPECT_EQ(log.withBody("registerFunction() registered ok eventId:31").size(), 1u);
    log.clear();
    void* eventObj = nullptr;
    EXPECT_EQ(manager->createEvent(918000000, eventObj), -1);
    EXPECT_EQ(manager->setEventParam(eventObj, 0, 1), -1);
    EXPECT_EQ(manager->SetEventParam(eventObj, "iso", 1L, orv::TYPE_INT), -1);
    EXPECT_EQ(manager->sendEvent(eventObj), -1);
    std::vector<std::string> bodies;
    for (const LogLine& line : log.lines()) {
        EXPECT_EQ(line.priority, ANDROID_LOG_ERROR) << line.body;
        bodies.push_back(line.body);
    }
    EXPECT_EQ(bodies, (std::vector<std::string>{"createEvent() error: mLibLoader is NULL",
                                                "setEventParam() error: mLibLoader is NULL",
                                                "SetEventParam() error: input ptr is NULL",
                                                "sendEvent() error: mLibLoader is NULL"}));
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
        const vistel_tools::LibraryCounters before = vistel_tools::readLibraryCounters();
        std::future<int> result = manager->reportMsgImpl(record);
        ASSERT_TRUE(result.valid());
        EXPECT_EQ(result.get(), serviceAbsent() ? refusedResult(c.kind) : 0);

        // The worker counted the record under its own kind and no other.
        const vistel_tools::LibraryCounters after = vistel_tools::readLibraryCounters();
        EXPECT_EQ((after.kinds.at(c.kind) - before.kinds.at(c.kind)).records, 1u);
        EXPECT_EQ((after.total - before.total).records, 1u);

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
