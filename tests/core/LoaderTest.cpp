// White-box tests of the loader, linked straight from the library's objects. The ctest entry's
// environment says which service library the process can find: VISTEL_SERVICE is "present",
// "absent", or the name of the one symbol the service found lacks.
#include <LogCapture.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "VistelLibLoader.h"

namespace vistel_test {

using vistel_harness::LogCapture;
using vistel_harness::LogLine;

namespace {

using orv::VistelLibLoader;

std::string serviceSetup() {
    const char* value = getenv("VISTEL_SERVICE");
    return value ? value : "present";
}

// Bound once for all references; the last release unloads, and the next reference binds anew.
TEST(LoaderTest, LastReferenceUnloads) {
    if (serviceSetup() != "present") GTEST_SKIP() << "needs the service library";
    LogCapture log;
    VistelLibLoader* first = VistelLibLoader::getInstance();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(VistelLibLoader::getInstance(), first);
    EXPECT_EQ(log.withBody("enter loadFuns()").size(), 1u);
    EXPECT_EQ(log.withBody("enter getInstance(), getInstance successfully.").size(), 2u);

    VistelLibLoader::destroyInstance();
    EXPECT_NE(first->LINK_Vistel_Send_Event, nullptr) << "one reference left, still bound";
    EXPECT_TRUE(log.withBody("enter unloadFuns()").empty());
    VistelLibLoader::destroyInstance();
    EXPECT_EQ(log.withBody("enter unloadFuns()").size(), 1u);
    EXPECT_EQ(log.withBody("enter setFunsToDefault()").size(), 1u);

    VistelLibLoader::destroyInstance();  // gone: further releases do nothing
    log.clear();
    VistelLibLoader* again = VistelLibLoader::getInstance();
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(log.withBody("enter loadFuns()").size(), 1u);

    // The defaults clear the five unnamed entries and leave the six named ones as they are.
    VistelLibLoader& l = *again;
    l.setFunsToDefault();
    EXPECT_TRUE(!l.LINK_Vistel_Create_EventObj && !l.LINK_Vistel_Set_Param &&
                !l.LINK_Vistel_Set_Time && !l.LINK_Vistel_Send_Event &&
                !l.LINK_Vistel_Destroy_EventObj);
    EXPECT_TRUE(l.LINK_Vistel_Set_Param_Integer_V2 && l.LINK_Vistel_Set_Param_Float_V2 &&
                l.LINK_Vistel_Set_Param_String_V2 && l.LINK_Vistel_Fill_Array_Param_Integer_V2 &&
                l.LINK_Vistel_Fill_Array_Param_Float_V2 && l.LINK_Vistel_Fill_Array_Param_String_V2);
    VistelLibLoader::destroyInstance();
}

// The service library is absent, or lacks one symbol: no instance, and every call tries again.
TEST(LoaderFailureTest, FailsCleanlyAndRetries) {
    const std::string setup = serviceSetup();
    if (setup == "present") GTEST_SKIP() << "needs a broken service setup";
    std::vector<std::string> expected;
    if (setup != "absent") {
        expected = {"enter loadFuns()", "exit loadFuns(). failed to load " + setup,
                    "enter setFunsToDefault()"};
    }
    expected.push_back("getInstance(), getInstance failed.");
    LogCapture log;
    for (int attempt = 0; attempt < 2; ++attempt) {
        log.clear();
        EXPECT_EQ(VistelLibLoader::getInstance(), nullptr);
        std::vector<std::string> bodies;
        for (const LogLine& line : log.lines()) {
            if (line.tag == "VistelLibLoader") bodies.push_back(line.body);
        }
        EXPECT_EQ(bodies, expected) << "attempt " << attempt;
    }
    VistelLibLoader::destroyInstance();  // nothing was counted, so there is nothing to drop
}

}  // namespace
}  // namespace vistel_test
