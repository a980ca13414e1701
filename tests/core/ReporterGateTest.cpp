// The gate the manager's destructor closes before it destroys anything: a pass held keeps it
// waiting, a pass asked for once it is closed is refused, and the destructor's own pass is not
// waited for. The gate's hooks hold a thread at the two moments that matter (between counting a
// pass and checking the gate, and as close() is about to wait), so each interleaving below
// happens on every run.
#include <ReporterGate.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

namespace vistel_test {
namespace {

using namespace std::chrono_literals;
using orv::GateHolder;

// What the hooks do in the test running now; nothing when unset.
std::function<void()> gOnEntering;
std::function<void()> gOnWaiting;

struct TestHooks {
    static void entering() {
        if (gOnEntering) gOnEntering();
    }
    static void waiting() {
        if (gOnWaiting) gOnWaiting();
    }
};

using Gate = orv::BasicReporterGate<TestHooks>;

// Far longer than any test takes: a close() that runs into it missed its wake-up.
constexpr auto kForever = std::chrono::hours(1);
// How long a test waits for something that happens at once before it calls it lost.
constexpr auto kLost = 30s;

// A one-shot signal between two threads.
class Signal {
  public:
    void raise() {
        std::lock_guard<std::mutex> lock(mMutex);
        mRaised = true;
        mChanged.notify_all();
    }
    void wait() {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [this] { return mRaised; });
    }

  private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mRaised = false;
};

// close(bound) on a thread of its own. The gate must outlive the call: a close() that missed its
// wake-up is left waiting when the test gives up on it.
std::future<bool> closeElsewhere(Gate& gate, std::chrono::milliseconds bound) {
    std::promise<bool> promise;
    std::future<bool> closed = promise.get_future();
    std::thread([&gate, bound, promise = std::move(promise)]() mutable {
        promise.set_value(gate.close(bound));
    }).detach();
    return closed;
}

class ReporterGateTest : public ::testing::Test {
  protected:
    void TearDown() override {
        gOnEntering = nullptr;
        gOnWaiting = nullptr;
    }
};

TEST_F(ReporterGateTest, CloseReturnsOnceThePassesHeldAreGivenBack) {
    Gate& gate = *new Gate;  // freed only once its close() has returned
    Signal holding, release, closing;
    std::thread holder([&] {
        Gate::Pass pass(gate, GateHolder::kReporter);
        EXPECT_TRUE(pass.entered());
        holding.raise();
        release.wait();
    });
    holding.wait();
    gOnWaiting = [&] { closing.raise(); };
    std::future<bool> closed = closeElsewhere(gate, kForever);
    closing.wait();
    release.raise();  // the last pass out must wake the closer: it waits for nothing else
    holder.join();
    ASSERT_EQ(closed.wait_for(kLost), std::future_status::ready) << "the wake-up was lost";
    EXPECT_TRUE(closed.get());
    delete &gate;
}

TEST_F(ReporterGateTest, CloseGivesUpAfterItsBound) {
    Gate gate;
    Gate::Pass held(gate, GateHolder::kCaller);
    EXPECT_FALSE(gate.close(10ms));
}

TEST_F(ReporterGateTest, NoPassOnceClosedAndARefusedOneHoldsNothing) {
    Gate gate;
    EXPECT_TRUE(gate.close(0ms));
    EXPECT_TRUE(gate.closed());
    for (GateHolder holder : {GateHolder::kCaller, GateHolder::kReporter}) {
        for (int i = 0; i < 3; ++i) {
            Gate::Pass refused(gate, holder);
            EXPECT_FALSE(refused.entered());
        }
    }
    EXPECT_TRUE(gate.close(0ms)) << "a refused pass was left counted";
}

// A handler run by its queued task enters again on the same thread after the gate closed; a
// caller's pass never does.
TEST_F(ReporterGateTest, AReporterInsideEntersAgainOnItsOwnThread) {
    Gate gate;
    Gate::Pass task(gate, GateHolder::kReporter);
    std::thread([&] { EXPECT_FALSE(gate.close(0ms)); }).join();
    {
        Gate::Pass handler(gate, GateHolder::kReporter);
        EXPECT_TRUE(handler.entered());
        EXPECT_TRUE(handler.reentered());
        Gate::Pass caller(gate, GateHolder::kCaller);
        EXPECT_FALSE(caller.entered());
    }
    std::thread other([&] {
        Gate::Pass elsewhere(gate, GateHolder::kReporter);
        EXPECT_FALSE(elsewhere.entered());
    });
    other.join();
}

// A pass is counted before the gate is checked: one caught between the two while the gate
// closes is waited for, then refused, never let in under a closer that went on.
TEST_F(ReporterGateTest, APassBetweenCountingAndCheckingIsWaitedForThenRefused) {
    Gate& gate = *new Gate;  // freed only once its close() has returned
    Signal counted, resume, closing;
    gOnEntering = [&] {
        counted.raise();
        resume.wait();
    };
    std::future<bool> entered = std::async(std::launch::async, [&] {
        Gate::Pass pass(gate, GateHolder::kCaller);
        return pass.entered();
    });
    counted.wait();
    gOnEntering = nullptr;
    gOnWaiting = [&] { closing.raise(); };
    std::future<bool> closed = closeElsewhere(gate, kForever);
    closing.wait();
    resume.raise();
    EXPECT_FALSE(entered.get());
    ASSERT_EQ(closed.wait_for(kLost), std::future_status::ready) << "the wake-up was lost";
    EXPECT_TRUE(closed.get());
    delete &gate;
}

// The manager's destructor run by a reporter's own thread (its service called exit()): that
// reporter can never give its pass back, so close() does not wait for it.
TEST_F(ReporterGateTest, CloseDoesNotWaitForItsOwnThreadsPass) {
    Gate gate;
    Gate::Pass own(gate, GateHolder::kReporter);
    EXPECT_TRUE(gate.close(10ms));
}

}  // namespace
}  // namespace vistel_test
