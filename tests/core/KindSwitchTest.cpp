// Kinds switched off by the vendor property: what a value switches off, and a switch set and
// cleared while records flow, read on the workers within the stated period, never queued while
// off, counted off, and the first record after a cleared switch sent. Also a trace section, kept
// whole however tracing is switched while it is open.
#include <KindRegistry.h>
#include <KindSwitch.h>
#include <LibraryCounters.h>
#include <QorThreadManager.h>
#include <TraceCapture.h>
#include <VistelTrace.h>
#include <android-base/properties.h>
#include <unistd.h>

#include "ReporterTest.h"

namespace vistel_test {
namespace {

using orv::KindSwitch;
using vistel_harness::LogLine;

constexpr uint32_t bit(orv::VistelEvent kind) {
    return 1U << kind;
}

struct ParseCase {
    const char* value;
    bool understood;
    uint32_t mask;
};

const ParseCase kParseCases[] = {
        {"", true, 0},
        {"   ", true, 0},
        {"all", true, ~0U},
        {"0", true, bit(orv::kEventMemLeak)},
        {"31", true, bit(orv::kEventScanMsg)},
        {"MemLeak,FrameDrop", true, bit(orv::kEventMemLeak) | bit(orv::kEventFrameDrop)},
        {" MemLeak , 27 ", true, bit(orv::kEventMemLeak) | bit(orv::kEventFrameDrop)},
        {"MemLeak FrameDrop", true, bit(orv::kEventMemLeak) | bit(orv::kEventFrameDrop)},
        {"MemLeak,,", true, bit(orv::kEventMemLeak)},
        {"all,MemLeak", true, ~0U},
        // Nothing half understood: one word that names no kind and the value is ignored.
        {"32", false, 0},
        {"-1", false, 0},
        {"007", false, 0},
        {"07", false, 0},
        {"memleak", false, 0},
        {"sendEventMemLeak", false, 0},
        {"MemLeak;FrameDrop", false, 0},
        {"MemLeak,Bogus", false, 0},
};

TEST(KindSwitchTest, ValuesSwitchOffTheKindsTheyName) {
    for (const ParseCase& c : kParseCases) {
        SCOPED_TRACE(std::string("\"") + c.value + "\"");
        uint32_t mask = 0xdead;
        EXPECT_EQ(KindSwitch::parse(c.value, &mask), c.understood);
        if (c.understood) {
            EXPECT_EQ(mask, c.mask);
        }
    }
}

class KindSwitchFlowTest : public ReporterTest {
  protected:
    void TearDown() override {
        setSwitch("");
        settle();
        ReporterTest::TearDown();
    }

    // Set while no worker reads it: the host's property store has no lock of its own.
    static void setSwitch(const std::string& value) {
        settle();
        ASSERT_TRUE(android::base::SetProperty(KindSwitch::kProperty, value));
    }
    // A read of the property is due again.
    static void pastThePeriod() {
        VirtualClock::advanceSeconds(KindSwitch::kRefreshPeriodNs / 1e9);
    }
    // Everything queued has run, the reads the records prompted included.
    static void settle() { QorThreadManager::GetInstance()->waitIdle(); }

    static std::shared_ptr<orv::VistelEventBase> recordOf(orv::VistelEvent kind) {
        return vistel_tools::kinds()[kind].make().record;
    }
    static vistel_tools::CounterRow counted(orv::VistelEvent kind) {
        return vistel_tools::readKindCounters(kind);
    }
    // Hands over a record of `kind` and says whether it was queued; a queued one is waited for.
    static bool queued(orv::VistelEvent kind) {
        std::future<int> result = manager()->reportMsgImpl(recordOf(kind));
        if (!result.valid()) return false;
        result.get();
        settle();
        return true;
    }
};

// How the switch is cleared: by records of another kind, which a worker runs and then reads the
// property, or with every kind off, by the records refused at the door alone, whose door queues
// the read on the pool.
struct FlowCase {
    const char* value;
    orv::VistelEvent off;
    orv::VistelEvent other;  // a kind left on, or the same kind when every kind is off
};

const FlowCase kFlowCases[] = {
        {"MemLeak", orv::kEventMemLeak, orv::kEventMemShortage},
        {"2", orv::kEventMemLimit, orv::kEventMemLeak},
        {"all", orv::kEventMemLeak, orv::kEventMemLeak},
};

TEST_F(KindSwitchFlowTest, SwitchedOffAndOnAgainWhileRecordsFlow) {
    for (const FlowCase& c : kFlowCases) {
        SCOPED_TRACE(c.value);
        VirtualClock::expireAllLimits();
        setSwitch(c.value);
        // A record run once the period is over has its worker read the property.
        pastThePeriod();
        if (c.other != c.off) {
            EXPECT_TRUE(queued(c.other));
        } else {
            queued(c.off);
        }
        settle();
        vistelhost::reset();
        ovrixhost::reset();
        orvloghost::reset();

        const vistel_tools::CounterRow before = counted(c.off);
        EXPECT_FALSE(queued(c.off));
        EXPECT_FALSE(queued(c.off));
        const vistel_tools::CounterRow since = counted(c.off) - before;
        EXPECT_EQ(since.records, 2u);
        EXPECT_EQ(since[VISTEL_OUTCOME_OFF], 2u);
        EXPECT_EQ(since.ended(), since.records);
        EXPECT_TRUE(vistelhost::sentEvents().empty());
        EXPECT_TRUE(ovrixhost::reported().empty());
        if (c.other != c.off) {
            EXPECT_TRUE(queued(c.other)) << "only the kinds named are off";
        }

        // Cleared: not read again before the period is over, read after it without a restart.
        setSwitch("");
        EXPECT_FALSE(queued(c.off)) << "read again within the period";
        pastThePeriod();
        if (c.other != c.off) {
            EXPECT_TRUE(queued(c.other));
        } else {
            EXPECT_FALSE(queued(c.off)) << "the read it prompts is queued, not made here";
        }
        settle();
        // Out of the limiter's way: a record sent before the switch was set would limit it.
        VirtualClock::expireAllLimits();
        vistelhost::reset();
        const vistel_tools::CounterRow cleared = counted(c.off);
        EXPECT_TRUE(queued(c.off)) << "the first record after the switch was cleared";
        EXPECT_EQ((counted(c.off) - cleared)[VISTEL_OUTCOME_SENT], 1u);
        EXPECT_EQ(vistelhost::sentEvents().size() + ovrixhost::reported().size(), 1u);
    }
}

// The camera stack's direct calls go by the switch too: a kind's handler by its kind, and
// sendBootMsg, which has no kind of its own, by `all`. Each is counted off and reaches no service.
TEST_F(KindSwitchFlowTest, DirectCallsGoByTheSwitch) {
    // A record of another kind is queued and its worker reads the property, or it is refused
    // and its door queues the read: either way the read has been made once the pool is idle.
    const auto switchTo = [](const char* value) {
        setSwitch(value);
        pastThePeriod();
        queued(orv::kEventMemShortage);
        settle();
    };
    std::vector<orv::SingleBootNode> nodes(1);
    switchTo("MemLeak");
    VirtualClock::expireAllLimits();
    vistelhost::reset();
    ovrixhost::reset();
    const vistel_tools::CounterRow leaks = counted(orv::kEventMemLeak);
    const vistel_tools::CounterRow boots = vistel_tools::readLibraryCounters().direct;
    EXPECT_EQ(manager()->sendEventMemLeak(recordOf(orv::kEventMemLeak)),
              vistel_tools::kinds()[orv::kEventMemLeak].results[VISTEL_OUTCOME_NOT_INITIALISED]);
    EXPECT_EQ((counted(orv::kEventMemLeak) - leaks)[VISTEL_OUTCOME_OFF], 1u);
    EXPECT_TRUE(vistelhost::sentEvents().empty());
    manager()->sendBootMsg(nodes);
    EXPECT_EQ((vistel_tools::readLibraryCounters().direct - boots)[VISTEL_OUTCOME_SENT], 1u)
            << "sendBootMsg is off only when every kind is";

    switchTo("all");
    ovrixhost::reset();
    manager()->sendBootMsg(nodes);
    const vistel_tools::CounterRow offBoots = vistel_tools::readLibraryCounters().direct - boots;
    EXPECT_EQ(offBoots[VISTEL_OUTCOME_OFF], 1u);
    EXPECT_EQ(offBoots.ended(), 2u);
    EXPECT_TRUE(ovrixhost::reported().empty());
    switchTo("");  // the next test starts with every kind on
    EXPECT_TRUE(queued(orv::kEventMemLeak));
}

TEST_F(KindSwitchFlowTest, AValueNotUnderstoodIsSaidOnceAndIgnored) {
    setSwitch("MemLeak");
    pastThePeriod();
    queued(orv::kEventMemShortage);
    setSwitch("MemLeak,Bogus");
    for (int read = 0; read < 3; ++read) {
        pastThePeriod();
        EXPECT_TRUE(queued(orv::kEventMemShortage));
    }
    // The kinds switched off stay as they were.
    EXPECT_FALSE(queued(orv::kEventMemLeak));
    size_t said = 0;
    for (const LogLine& line : mLog.lines()) {
        if (line.body.find("\"MemLeak,Bogus\" not understood, ignored") != std::string::npos) {
            EXPECT_EQ(line.priority, ANDROID_LOG_ERROR);
            ++said;
        }
    }
    EXPECT_EQ(said, 1u);

    // Understood in between, the same value not understood is said again.
    setSwitch("MemLeak");
    pastThePeriod();
    queued(orv::kEventMemShortage);
    setSwitch("MemLeak,Bogus");
    pastThePeriod();
    queued(orv::kEventMemShortage);
    said = 0;
    for (const LogLine& line : mLog.lines()) {
        if (line.body.find("\"MemLeak,Bogus\" not understood, ignored") != std::string::npos)
            ++said;
    }
    EXPECT_EQ(said, 2u);
}

TEST_F(KindSwitchFlowTest, TheDumpShowsTheOffColumnOnceARecordWasSwitchedOff) {
    setSwitch("HDRPData");
    pastThePeriod();
    queued(orv::kEventMemShortage);
    EXPECT_FALSE(queued(orv::kEventHDRPData));
    const vistel_tools::LibraryCounters counters = vistel_tools::readLibraryCounters();
    EXPECT_TRUE(counters.rowsNotAddingUp().empty());
    EXPECT_GE(counters.kinds.at(orv::kEventHDRPData)[VISTEL_OUTCOME_OFF], 1u);
    // The dump's table header: "... failed shed off events".
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    manager()->dump(ends[1]);
    close(ends[1]);
    std::string text;
    char buffer[4096];
    for (ssize_t got; (got = read(ends[0], buffer, sizeof(buffer))) > 0;) text.append(buffer, got);
    close(ends[0]);
    EXPECT_NE(text.find(" failed      shed       off    events\n"), std::string::npos) << text;
}

// Whether a section is written is decided at its begin: tracing switched on or off while it is
// open leaves neither an end without its begin nor a begin without its end.
TEST(TraceSectionTest, TracingSwitchedWhileASectionIsOpenKeepsItWhole) {
    {
        orv::TraceSection section("vistel late");
        tracecapture::start();
    }
    EXPECT_TRUE(tracecapture::stop().empty()) << "an end without its begin";
    tracecapture::start();
    {
        orv::TraceSection section("vistel early");
        const std::vector<tracecapture::TraceMark> begun = tracecapture::stop();
        ASSERT_EQ(begun.size(), 1u);
        tracecapture::start();
    }
    const std::vector<tracecapture::TraceMark> ended = tracecapture::stop();
    ASSERT_EQ(ended.size(), 1u);
    EXPECT_EQ(ended[0].type, tracecapture::TraceMark::Type::kEnd);
}

}  // namespace
}  // namespace vistel_test
