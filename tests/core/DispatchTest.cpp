#include <QorThreadManager.h>
#include <gmock/gmock.h>

#include <future>

#include "ReporterTest.h"

namespace vistel_test {
namespace {

using orv::VistelEvent;

// A record that claims any kind.
struct KindRecord : orv::VistelEventBase {
    explicit KindRecord(uint32_t kind) : mKind(kind) {}
    VistelEvent GetEventType() override { return static_cast<VistelEvent>(mKind); }
    uint32_t mKind;
};

class DispatchTest : public ReporterTest {};

TEST_F(DispatchTest, NullRecordIsRefusedWithoutQueueing) {
    std::future<int> result = manager()->reportMsgImpl(nullptr);
    EXPECT_FALSE(result.valid());
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, "reportMsgImpl",
                         "reportMsgImpl() VistelManager::reportMsgImpl bad arg"));
}

TEST_F(DispatchTest, UnknownKindsAreSkipped) {
    const struct {
        uint32_t kind;
        const char* body;
    } kCases[] = {
            {32, "reportMsgImpl() unknown event:32, skip handling"},
            {1000, "reportMsgImpl() unknown event:1000, skip handling"},
            {0xffffffffu, "reportMsgImpl() unknown event:-1, skip handling"},
    };
    for (const auto& c : kCases) {
        mLog.clear();
        std::future<int> result = manager()->reportMsgImpl(std::make_shared<KindRecord>(c.kind));
        EXPECT_FALSE(result.valid()) << c.kind;
        EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, "reportMsgImpl", c.body)) << c.kind;
    }
}

TEST_F(DispatchTest, SharedBodyWithoutKindIsUnknown) {
    std::future<int> result =
            manager()->reportMsgImpl(std::make_shared<orv::vistelAlgoProcessTimeout>());
    EXPECT_FALSE(result.valid());
}

TEST_F(DispatchTest, QueuedTaskKeepsTheRecordAlive) {
    // Hold every worker so the report stays queued while the caller lets go of its record.
    QorThreadManager* pool = QorThreadManager::GetInstance();
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::vector<std::future<void>> blockers;
    for (size_t i = 0; i < pool->workerCount(); ++i) {
        blockers.push_back(pool->enqueue([released] { released.wait(); }));
    }

    auto record = std::make_shared<orv::vistelDumpTrace>();
    std::weak_ptr<orv::VistelEventBase> watch = record;
    std::future<int> result = manager()->reportMsgImpl(record);
    record.reset();
    EXPECT_FALSE(watch.expired()) << "the queued task must own a reference";

    release.set_value();
    ASSERT_TRUE(result.valid());
    result.get();
    pool->waitIdle();
    EXPECT_TRUE(watch.expired()) << "the task must let the record go once it has run";
}

TEST_F(DispatchTest, ConcurrentReportsAllResolve) {
    constexpr int kThreads = 8;
    constexpr int kPerThread = 50;
    std::vector<std::future<std::vector<std::future<int>>>> producers;
    for (int t = 0; t < kThreads; ++t) {
        producers.push_back(std::async(std::launch::async, [] {
            std::vector<std::future<int>> results;
            for (int i = 0; i < kPerThread; ++i) {
                results.push_back(
                        manager()->reportMsgImpl(std::make_shared<orv::vistelDumpTrace>()));
            }
            return results;
        }));
    }
    int resolved = 0;
    for (auto& producer : producers) {
        for (auto& result : producer.get()) {
            ASSERT_TRUE(result.valid());
            result.get();
            ++resolved;
        }
    }
    EXPECT_EQ(resolved, kThreads * kPerThread);
}

}  // namespace
}  // namespace vistel_test
