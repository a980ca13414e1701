// The gate the manager's destructor closes before it destroys anything: a pass held keeps it
// waiting, a pass asked for before it opens or once it is closed is refused, and the passes of
// the destructor's own thread are not waited for. The gate's hooks hold a thread at the two moments
// that matter (between counting a pass and checking the gate, and as close() is about to wait), so
// each interleaving below happens on every run.
#include <ReporterGate.h>
#include <Signal.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace vistel_test {
namespace {

using namespace std::chrono_literals;
using vistel_harness::Signal;

// What the hooks do in the test running now; nothing when unset.
std::function<void()> gOnEntering;
std::function<void()> gOnWaiting;
bool gSameFirstSlot = false;

struct TestHooks {
    static void entering() {
        if (gOnEntering) gOnEntering();
    }
    static void waiting() {
        if (gOnWaiting) gOnWaiting();
    }
    // Every thread starting at the same slot, when a test needs them to meet there.
    static int firstSlot(uintptr_t thread) {
        return gSameFirstSlot ? 0 : orv::NoGateHooks::firstSlot(thread);
    }
};

using Gate = orv::BasicReporterGate<TestHooks>;
using State = Gate::State;

// Far longer than any test takes: a close() that runs into it missed its wake-up.
constexpr auto kForever = std::chrono::hours(1);
// How long a test waits for something that happens at once before it calls it lost.
constexpr auto kLost = 30s;

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

// An open gate, as the manager's is once it is built.
Gate& openGate(Gate& gate) {
    gate.open();
    return gate;
}

class ReporterGateTest : public ::testing::Test {
  protected:
    void TearDown() override {
        gOnEntering = nullptr;
        gOnWaiting = nullptr;
        gSameFirstSlot = false;
    }
};

TEST_F(ReporterGateTest, CloseReturnsOnceThePassesHeldAreGivenBack) {
    Gate& gate = openGate(*new Gate);  // freed only once its close() has returned
    Signal holding, release, closing;
    std::thread holder([&] {
        Gate::Pass pass(gate);
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
    EXPECT_FALSE(gate.kept());
    delete &gate;
}

// The destructor run on a thread that holds passes of its own (a service that called exit()
// inside a reporter, inside a handler it called again) waits for the other threads' passes only,
// and the last of those must still wake it.
TEST_F(ReporterGateTest, ACloserWithPassesOfItsOwnIsWokenByTheLastOtherPass) {
    Gate& gate = openGate(*new Gate);
    Signal holding, release, closing;
    std::thread holder([&] {
        Gate::Pass pass(gate);
        holding.raise();
        release.wait();
    });
    holding.wait();
    gOnWaiting = [&] { closing.raise(); };
    std::future<bool> closed = std::async(std::launch::async, [&] {
        Gate::Pass task(gate);
        Gate::Pass handler(gate);
        return gate.close(kForever);
    });
    closing.wait();
    release.raise();
    holder.join();
    ASSERT_EQ(closed.wait_for(kLost), std::future_status::ready) << "the wake-up was lost";
    EXPECT_TRUE(closed.get());
    delete &gate;
}

TEST_F(ReporterGateTest, CloseGivesUpAfterItsBoundAndTheManagerIsKept) {
    Gate gate;
    gate.open();
    Signal holding, release;
    std::thread holder([&] {
        Gate::Pass held(gate);
        holding.raise();
        release.wait();
    });
    holding.wait();
    EXPECT_FALSE(gate.close(10ms));
    EXPECT_TRUE(gate.kept());
    release.raise();
    holder.join();
}

// Before the manager is built and once it is being destroyed, no pass is granted, to any thread
// (the closer's own included: a handler it calls from an exit handler after the destructor ran
// must not run on the torn-down manager), and a refused pass holds nothing.
TEST_F(ReporterGateTest, NoPassBeforeOpenOrOnceClosedAndARefusedOneHoldsNothing) {
    struct Case {
        const char* name;
        bool open;
        bool close;
        State seen;
    };
    const Case cases[] = {
            {"not built yet", false, false, State::kNotOpen},
            {"destroyed", true, true, State::kClosed},
            {"closed before it opened", false, true, State::kClosed},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Gate gate;
        if (c.open) gate.open();
        {
            // The closer's own pass (refused too, when never opened), still held: the passes this
            // thread asks for next are nested in it, and refused all the same.
            Gate::Pass own(gate);
            if (c.close) {
                EXPECT_TRUE(gate.close(0ms));
            }
            EXPECT_EQ(gate.state(), c.seen);
            for (int i = 0; i < 3; ++i) {
                Gate::Pass here(gate);
                EXPECT_FALSE(here.entered());
                EXPECT_EQ(here.seen(), c.seen);
            }
        }
        std::thread([&] { EXPECT_FALSE(Gate::Pass(gate).entered()); }).join();
        gate.open();  // a closed gate never opens again
        EXPECT_EQ(gate.state(), c.open || c.close ? c.seen : State::kOpen);
        if (gate.state() == State::kOpen) continue;
        EXPECT_TRUE(gate.close(0ms)) << "a refused pass was left counted";
    }
}

// A pass is counted before the gate is checked: one caught between the two while the gate
// closes is waited for, then refused, never let in under a closer that went on.
TEST_F(ReporterGateTest, APassBetweenCountingAndCheckingIsWaitedForThenRefused) {
    Gate& gate = openGate(*new Gate);  // freed only once its close() has returned
    Signal counted, resume, closing;
    gOnEntering = [&] {
        counted.raise();
        resume.wait();
    };
    std::future<bool> entered = std::async(std::launch::async, [&] {
        Gate::Pass pass(gate);
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
// reporter can never give its passes back, so close() does not wait for them.
TEST_F(ReporterGateTest, CloseDoesNotWaitForItsOwnThreadsPasses) {
    Gate gate;
    gate.open();
    Gate::Pass task(gate);
    Gate::Pass handler(gate);
    EXPECT_TRUE(gate.close(kForever));
}

// More passes at once than there are slots: those beyond are counted without a thread, and
// close() waits for them like any other.
TEST_F(ReporterGateTest, PassesBeyondTheSlotsAreWaitedFor) {
    constexpr int kSlots = 64;
    Gate gate;
    gate.open();
    Signal slotsHeld, releaseSlots, untrackedHeld, releaseUntracked;
    std::atomic<int> holding{0};
    std::vector<std::thread> slotHolders;
    for (int i = 0; i < kSlots; ++i) {
        slotHolders.emplace_back([&] {
            Gate::Pass pass(gate);
            if (++holding == kSlots) slotsHeld.raise();
            releaseSlots.wait();
        });
    }
    slotsHeld.wait();
    std::thread untracked([&] {
        Gate::Pass pass(gate);  // every slot is taken
        untrackedHeld.raise();
        releaseUntracked.wait();
    });
    untrackedHeld.wait();
    releaseSlots.raise();
    for (std::thread& thread : slotHolders) thread.join();
    EXPECT_FALSE(gate.close(10ms));
    releaseUntracked.raise();
    untracked.join();
}

// A thread whose first slot another thread holds is not inside a pass of its own: it takes
// another slot, and is waited for.
TEST_F(ReporterGateTest, AThreadMeetingAnotherOnItsFirstSlotIsStillWaitedFor) {
    gSameFirstSlot = true;
    Gate gate;
    gate.open();
    Signal firstHeld, releaseFirst, secondHeld, releaseSecond;
    std::thread first([&] {
        Gate::Pass pass(gate);
        firstHeld.raise();
        releaseFirst.wait();
    });
    firstHeld.wait();
    std::thread second([&] {
        Gate::Pass pass(gate);
        secondHeld.raise();
        releaseSecond.wait();
    });
    secondHeld.wait();
    releaseFirst.raise();
    first.join();
    EXPECT_FALSE(gate.close(10ms)) << "the second pass was taken for a nested one";
    releaseSecond.raise();
    second.join();
}

// In a forked child only the forking thread exists: the passes other threads of the parent
// held are not waited for there, the forking thread's own still count as its own.
TEST_F(ReporterGateTest, AfterForkOnlyTheForkingThreadsPassesCount) {
    Gate gate;
    gate.open();
    Signal holding, release;
    std::thread other([&] {
        Gate::Pass pass(gate);
        holding.raise();
        release.wait();
    });
    holding.wait();
    {
        Gate::Pass own(gate);
        gate.resetAfterFork();  // as the child's fork handler does
        EXPECT_TRUE(gate.close(std::chrono::duration_cast<std::chrono::milliseconds>(kLost)))
                << "waited for the parent's pass";
    }
    release.raise();
    other.join();
}

}  // namespace
}  // namespace vistel_test
