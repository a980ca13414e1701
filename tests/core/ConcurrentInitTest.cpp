// Many camera threads asking for the manager at the same moment, before anyone else has, in a
// process where another component has left a longer text in the process-wide build-tag buffer.
#include <VistelManager.h>
#include <VistelRecords.h>
#include <gtest/gtest.h>
#include <orvlog.h>

#include <cstring>
#include <future>
#include <set>

#include "LogCapture.h"

namespace vistel_test {
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

}  // namespace
}  // namespace vistel_test
