// Every kind reaches its own handler, with the service bound and (in a second process, whose
// environment sets VISTEL_SERVICE=absent and names no folder with the service library) without
// it, where the camera must keep working; the dump counts each record under its own kind.
#include <LogCapture.h>
#include <QorThreadManager.h>
#include <TraceCapture.h>
#include <VirtualClock.h>
#include <VistelManager.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>

#include "Handlers.h"
#include "KindRegistry.h"
#include "LibraryCounters.h"

namespace vistel_test {

using vistel_harness::LogCapture;
using vistel_harness::LogLine;
using vistel_harness::VirtualClock;

namespace {

bool serviceAbsent() {
    const char* setup = getenv("VISTEL_SERVICE");
    return setup != nullptr && strcmp(setup, "absent") == 0;
}

// Defined first so that it builds the manager and sees the start-up lines: without the service
// the manager still registers every handler, and each primitive refuses with its own line.
TEST(AllKindsTest, WithoutTheServiceTheManagerBuildsAndPrimitivesRefuse) {
    if (!serviceAbsent()) GTEST_SKIP() << "needs a process without the service library";
    LogCapture log;
    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, "Init", "Init() VistelLibLoader::getInstance failed"));
    EXPECT_EQ(vistel_tools::readLibraryCounters().binding, VISTEL_BINDING_LIBRARY_MISSING);
    EXPECT_EQ(log.withBody("registerFunction() registered ok eventId:31").size(), 1u);
    log.clear();
    void* eventObj = nullptr;
    EXPECT_EQ(manager->createEvent(918000000, eventObj), -1);
    EXPECT_EQ(manager->setEventParam(eventObj, 0, 1), -1);
    EXPECT_EQ(manager->SetEventParam(eventObj, "iso", 1L, orv::TYPE_INT), -1);
    EXPECT_EQ(manager->sendEvent(eventObj), -1);
    std::vector<std::string> bodies;
    for (const LogLine& line : log.lines()) {
        EXPECT_EQ(line.priority, ANDROID_LOG_ERROR) << line.body;
        bodies.push_back(line.body);
    }
    EXPECT_EQ(bodies, (std::vector<std::string>{"createEvent() error: mLibLoader is NULL",
                                                "setEventParam() error: mLibLoader is NULL",
                                                "SetEventParam() error: input ptr is NULL",
                                                "sendEvent() error: mLibLoader is NULL"}));
}

TEST(AllKindsTest, EachKindReachesItsOwnHandler) {
    LogCapture log;
    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    for (const vistel_tools::KindInfo& c : vistel_tools::kinds()) {
        SCOPED_TRACE(c.handler);
        VirtualClock::expireAllLimits();
        log.clear();
        std::shared_ptr<orv::VistelEventBase> record = c.make().record;
        ASSERT_EQ(record->GetEventType(), c.kind);
        const vistel_tools::LibraryCounters before = vistel_tools::readLibraryCounters();
        std::future<int> result = manager->reportMsgImpl(record);
        ASSERT_TRUE(result.valid());
        EXPECT_EQ(result.get(), serviceAbsent() ? refusedResult(c.kind) : 0);

        // The worker counted the record under its own kind and no other.
        const vistel_tools::LibraryCounters after = vistel_tools::readLibraryCounters();
        EXPECT_EQ((after.kinds.at(c.kind) - before.kinds.at(c.kind)).records, 1u);
        EXPECT_EQ((after.total - before.total).records, 1u);

        // Every handler logs under its own name; none logs under another's.
        bool reached = false;
        for (const LogLine& line : log.lines()) {
            if (line.function == c.handler) reached = true;
            for (const vistel_tools::KindInfo& other : vistel_tools::kinds()) {
                if (other.kind != c.kind) {
                    EXPECT_NE(line.function, std::string(other.handler)) << line.message;
                }
            }
        }
        EXPECT_TRUE(reached);
    }
}

// ---- The system trace: what the library hands libcutils' trace markers, captured through the
// harness's definitions of them (TraceCapture.h).

using tracecapture::TraceMark;

// The service calls a record's section may hold, one nested section each.
bool isServiceCall(const std::string& name) {
    return name == "LINK_Vistel_Send_Event" || name == "Ovrix::Report" ||
           name == "__orvlog_jank_print";
}

// The sections of one capture: the top-level ones by name, the service calls nested in them, and
// whether every begin has its end on its own thread, none ends unbegun and nothing nests deeper.
struct Sections {
    std::vector<std::string> records;
    size_t serviceCalls = 0;
    std::vector<std::string> problems;
    std::set<std::string> counters;
};

Sections sectionsOf(const std::vector<TraceMark>& marks) {
    Sections sections;
    std::map<pid_t, std::vector<std::string>> open;  // per thread, outermost first
    for (const TraceMark& mark : marks) {
        std::vector<std::string>& stack = open[mark.tid];
        switch (mark.type) {
            case TraceMark::Type::kBegin:
                if (stack.empty()) {
                    sections.records.push_back(mark.name);
                } else if (stack.size() == 1 && isServiceCall(mark.name)) {
                    ++sections.serviceCalls;
                } else {
                    sections.problems.push_back(mark.name + " inside " + stack.back());
                }
                stack.push_back(mark.name);
                break;
            case TraceMark::Type::kEnd:
                if (stack.empty()) {
                    sections.problems.push_back("an end without its section");
                } else {
                    stack.pop_back();
                }
                break;
            case TraceMark::Type::kCounter:
                sections.counters.insert(mark.name);
                break;
        }
    }
    for (const auto& [tid, stack] : open) {
        for (const std::string& name : stack) sections.problems.push_back(name + " never ended");
    }
    return sections;
}

// A record of each kind replayed with tracing on: exactly one section, named after its kind, on
// the worker that ran it, a nested section per service call, balanced whether the record was sent
// or (without the service) refused; the records in flight as a counter track.
TEST(AllKindsTest, EachRecordIsOneBalancedTraceSectionNamedAfterItsKind) {
    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    for (const vistel_tools::KindInfo& c : vistel_tools::kinds()) {
        SCOPED_TRACE(c.name);
        VirtualClock::expireAllLimits();
        const vistel_tools::LibraryCounters before = vistel_tools::readLibraryCounters();
        tracecapture::start();
        std::future<int> result = manager->reportMsgImpl(c.make().record);
        ASSERT_TRUE(result.valid());
        result.get();
        QorThreadManager::GetInstance()->waitIdle();
        const Sections sections = sectionsOf(tracecapture::stop());
        EXPECT_EQ(sections.records, std::vector<std::string>{std::string("vistel ") + c.name});
        // One call per event the services took; none refused one here.
        const vistel_tools::LibraryCounters after = vistel_tools::readLibraryCounters();
        EXPECT_EQ(sections.serviceCalls, (after.total - before.total).events);
        EXPECT_EQ(sections.problems, std::vector<std::string>{});
        EXPECT_EQ(sections.counters.count("vistel records in flight"), 1u);
    }
}

// A record whose kind throws when asked.
struct ThrowingLeak : orv::vistelMemLeak {
    orv::VistelEvent GetEventType() override { throw std::runtime_error("kind unknown"); }
};

// Handlers called straight from the camera stack's thread end their section however the door
// answers: refused (a record of another body), thrown through, or the direct sendBootMsg call.
TEST(AllKindsTest, ASectionEndsHoweverTheHandlerAnswers) {
    orv::VistelManager* manager = orv::VistelManager::GetInstance();
    struct Case {
        const char* what;
        std::function<void()> call;
        const char* section;
    };
    const Case cases[] = {
            {"refused: another body",
             [&] {
                 manager->sendEventMemLeak(
                         vistel_tools::kinds()[orv::kEventFrameDrop].make().record);
             },
             "vistel MemLeak"},
            {"thrown through", [&] { manager->sendEventMemLeak(std::make_shared<ThrowingLeak>()); },
             "vistel MemLeak"},
            {"a null record", [&] { manager->FrameDropError(nullptr); }, "vistel FrameDrop"},
            {"sendBootMsg",
             [&] {
                 std::vector<orv::SingleBootNode> nodes;
                 manager->sendBootMsg(nodes);
             },
             "vistel sendBootMsg"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        tracecapture::start();
        c.call();
        const Sections sections = sectionsOf(tracecapture::stop());
        EXPECT_EQ(sections.records, std::vector<std::string>{c.section});
        EXPECT_EQ(sections.problems, std::vector<std::string>{});
    }
}

}  // namespace
}  // namespace vistel_test
