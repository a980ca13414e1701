#include <QorThreadManager.h>

#include <future>

#include "ReporterTest.h"

namespace vistel_test {
namespace {

// A record that claims any kind.
struct KindRecord : orv::VistelEventBase {
    explicit KindRecord(uint32_t kind) : mKind(kind) {}
    orv::VistelEvent GetEventType() override { return static_cast<orv::VistelEvent>(mKind); }
    uint32_t mKind;
};

class DispatchTest : public ReporterTest {};

// Nothing is queued for a record no handler takes: the caller gets an empty future.
TEST_F(DispatchTest, RecordsWithoutAHandlerAreRefused) {
    const std::pair<std::shared_ptr<orv::VistelEventBase>, const char*> kCases[] = {
            {nullptr, "reportMsgImpl() VistelManager::reportMsgImpl bad arg"},
            {std::make_shared<KindRecord>(32), "reportMsgImpl() unknown event:32, skip handling"},
            {std::make_shared<KindRecord>(0xffffffffu),
             "reportMsgImpl() unknown event:-1, skip handling"},
            // A shared body on its own has no kind.
            {std::make_shared<orv::vistelAlgoProcessTimeout>(),
             "reportMsgImpl() unknown event:32, skip handling"},
    };
    for (const auto& [record, body] : kCases) {
        mLog.clear();
        EXPECT_FALSE(manager()->reportMsgImpl(record).valid()) << body;
        EXPECT_EQ(mLog.lines().size(), 1u);
        EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, "reportMsgImpl", body));
    }
}

// The queued task owns a reference to the record until its handler has run, and then lets it
// go, even while the caller still holds the future.
TEST_F(DispatchTest, QueuedTaskKeepsTheRecordUntilItHasRun) {
    QorThreadManager* pool = QorThreadManager::GetInstance();
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::vector<std::future<void>> blockers;  // every worker held, so the report stays queued
    for (size_t i = 0; i < pool->workerCount(); ++i) {
        blockers.push_back(pool->enqueue([released] { released.wait(); }));
    }
    auto record = std::make_shared<orv::vistelDumpTrace>();
    std::weak_ptr<orv::VistelEventBase> watch = record;
    std::future<int> result = manager()->reportMsgImpl(std::move(record));
    EXPECT_FALSE(watch.expired()) << "the queued task must own a reference";
    release.set_value();
    pool->waitIdle();
    EXPECT_TRUE(watch.expired()) << "the task must let the record go once it has run";
    ASSERT_TRUE(result.valid());
    EXPECT_EQ(result.get(), 0);
}

}  // namespace
}  // namespace vistel_test
