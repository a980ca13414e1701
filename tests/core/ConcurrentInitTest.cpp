// Many camera threads asking for the manager at the same moment, before anyone else has.
#include <VistelManager.h>
#include <gtest/gtest.h>

#include <future>
#include <set>

#include "LogCapture.h"

namespace vistel_test {
namespace {

TEST(ConcurrentInitTest, OneManagerOneServiceLoad) {
    LogCapture log;
    constexpr int kThreads = 16;
    std::promise<void> go;
    std::shared_future<void> start = go.get_future().share();
    std::vector<std::future<orv::VistelManager*>> callers;
    for (int i = 0; i < kThreads; ++i) {
        callers.push_back(std::async(std::launch::async, [start] {
            start.wait();
            return orv::VistelManager::GetInstance();
        }));
    }
    go.set_value();
    std::set<orv::VistelManager*> instances;
    for (auto& caller : callers) instances.insert(caller.get());
    EXPECT_EQ(instances.size(), 1u);
    EXPECT_EQ(log.withBody("enter loadFuns()").size(), 1u);
    EXPECT_EQ(log.withBody("enter getInstance(), getInstance successfully.").size(), 1u);
    EXPECT_EQ(log.withBody("registerFunction() registered ok eventId:0").size(), 1u);
    EXPECT_EQ(log.withBody("enter VistelManager::Init, gitVersion:185dd222").size(), 1u);
}

}  // namespace
}  // namespace vistel_test
