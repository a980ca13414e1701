// Fixture for tests that report through the manager to the host services.
#pragma once

#include <OvrixEvent.h>
#include <VistelHostService.h>
#include <VistelManager.h>
#include <gtest/gtest.h>
#include <orvlog.h>

#include <memory>

#include "FakeClock.h"
#include "LogCapture.h"

namespace vistel_test {

class ReporterTest : public ::testing::Test {
  protected:
    void SetUp() override {
        manager();  // built before anything is captured
        FakeClock::expireAllLimits();
        vistelhost::reset();
        ovrixhost::reset();
        orvloghost::reset();
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
