// Runs in a process that cannot find the service library: the camera must keep working.
#include <VistelManager.h>
#include <gtest/gtest.h>

#include "LogCapture.h"

namespace vistel_test {
namespace {

TEST(NoServiceTest, ManagerStillBuildsAndPrimitivesRefuse) {
    LogCapture log;
    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    ASSERT_NE(manager, nullptr);
    EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, "Init", "Init() VistelLibLoader::getInstance failed"));
    EXPECT_EQ(log.withBody("registerFunction() registered ok eventId:31").size(), 1u);

    log.clear();
    void* eventObj = nullptr;
    EXPECT_EQ(manager->createEvent(918000000, eventObj), -1);
    EXPECT_EQ(manager->setEventParam(eventObj, 0, 1), -1);
    EXPECT_EQ(manager->SetEventParam(eventObj, "iso", 1L, orv::TYPE_INT), -1);
    EXPECT_EQ(manager->sendEvent(eventObj), -1);
    std::vector<std::string> bodies;
    for (const LogLine& line : log.lines()) bodies.push_back(line.body);
    EXPECT_EQ(bodies, (std::vector<std::string>{
                              "createEvent() error: mLibLoader is NULL",
                              "setEventParam() error: mLibLoader is NULL",
                              "SetEventParam() error: input ptr is NULL",
                              "sendEvent() error: mLibLoader is NULL",
                      }));
}

}  // namespace
}  // namespace vistel_test
