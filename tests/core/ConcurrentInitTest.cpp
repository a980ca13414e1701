// Many camera threads asking for the manager at the same moment, before anyone else has, in a
// process where another component has left a longer text in the process-wide build-tag buffer;
// then callers of the exported Init() while records are reported.
#include <LogCapture.h>
#include <VirtualClock.h>
#include <VistelManager.h>
#include <VistelRecords.h>
#include <gtest/gtest.h>
#include <orvlog.h>

#include <cstdio>
#include <cstring>
#include <future>
#include <set>

namespace vistel_test {

using vistel_harness::LogCapture;
using vistel_harness::LogLine;
using vistel_harness::VirtualClock;

namespace {

TEST(ConcurrentInitTest, OneManagerOneServiceLoadTagExact) {
    // The loader writes its 8 bytes over the start of this, so its own lines show the rest too.
    constexpr char kOtherTag[] = "0123456789abcdef-written-by-another-component-of-the-process";
    static_assert(sizeof(kOtherTag) <= sizeof(g_logGitTag));
    memcpy(g_logGitTag, kOtherTag, sizeof(kOtherTag));
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

    // A reporter's lines too: the manager's own tag, whatever the process-wide buffer holds.
    auto record = std::make_shared<orv::vistelMemLeak>();
    strcpy(record->name, "tagged");
    EXPECT_EQ((*instances.begin())->reportMsgImpl(record).get(), 0);
    size_t manager = 0;
    for (const LogLine& line : log.lines()) {
        if (line.tag != "VistelManager") continue;
        ++manager;
        EXPECT_EQ(line.buildTag, "185dd222") << line.message;
    }
    EXPECT_GT(manager, 4u);
}

// Init() is exported, but only the manager's construction initialises: called again, while
// reports run, it binds nothing more and changes nothing they read (ThreadSanitizer would see a
// write), and says so at most once a second.
TEST(ConcurrentInitTest, InitCalledAgainChangesNothing) {
    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    LogCapture log;
    constexpr int kCalls = 200;
    std::future<void> initialising = std::async(std::launch::async, [manager] {
        for (int i = 0; i < kCalls; ++i) manager->Init();
    });
    int failures = 0;
    for (int i = 0; i < kCalls; ++i) {
        auto record = std::make_shared<orv::vistelMemLeak>();
        snprintf(record->name, sizeof(record->name), "init-%d", i);
        failures += manager->sendEventMemLeak(record) != 0;
    }
    initialising.get();
    EXPECT_EQ(failures, 0);
    EXPECT_TRUE(log.withBody("sendEventMemLeak() error: init failed").empty());
    EXPECT_TRUE(log.withBody("enter getInstance(), getInstance successfully.").empty())
            << "bound the service again";
    EXPECT_EQ(log.withBody("Init() error: manager already built, call refused").size(), 1u);

    // Refusals are said at most once a second; the next line counts those held back.
    VirtualClock::advanceSeconds(0.999);
    manager->Init();
    VirtualClock::advanceSeconds(0.001);
    manager->Init();
    EXPECT_EQ(log.withBody("Init() error: manager already built, call refused (and 200 more "
                           "refused since the last line)")
                      .size(),
              1u);
    // The count starts again after each line.
    VirtualClock::advanceSeconds(1);
    manager->Init();
    EXPECT_EQ(log.withBody("Init() error: manager already built, call refused").size(), 2u);
}

}  // namespace
}  // namespace vistel_test
