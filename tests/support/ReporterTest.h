// Fixture for tests that report through the manager to the host services.
#pragma once

#include <LogCapture.h>
#include <OvrixEvent.h>
#include <ServiceTaps.h>
#include <VirtualClock.h>
#include <VistelHostService.h>
#include <VistelManager.h>
#include <gtest/gtest.h>
#include <orvlog.h>

#include <memory>

namespace vistel_test {

using vistel_harness::VirtualClock;

using vistel_harness::LogCapture;

class ReporterTest : public ::testing::Test {
  protected:
    void SetUp() override {
        manager();  // built before anything is captured
        VirtualClock::expireAllLimits();
        vistel_harness::resetServices();
        mLog.clear();
    }

    void TearDown() override { EXPECT_EQ(vistelhost::liveObjects(), 0) << "event object leaked"; }

    static orv::VistelManager* manager() { return orv::VistelManager::GetInstance(); }

    // Dispatches a record and waits for the reporter's result.
    static int report(std::shared_ptr<orv::VistelEventBase> record) {
        std::future<int> result = manager()->reportMsgImpl(std::move(record));
        EXPECT_TRUE(result.valid());
        return result.valid() ? result.get() : -100;
    }

    LogCapture mLog;
};

}  // namespace vistel_test
