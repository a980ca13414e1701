// White-box tests of the loader, linked straight from the library's objects. The ctest entry's
// environment says which service library the process can find: VISTEL_SERVICE is "present",
// "absent", or the name of the one symbol the service found lacks.
#include <cstdlib>
#include <string>

#include "LogCapture.h"
#include "VistelLibLoader.h"
#include <gtest/gtest.h>

namespace vistel_test {
namespace {

using orv::VistelLibLoader;

std::string serviceSetup() {
    const char* value = getenv("VISTEL_SERVICE");
    return value ? value : "present";
}

class LoaderTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (serviceSetup() != "present") GTEST_SKIP() << "needs the service library";
    }
    LogCapture mLog;
};

TEST_F(LoaderTest, LastReferenceUnloads) {
    VistelLibLoader* first = VistelLibLoader::getInstance();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(VistelLibLoader::getInstance(), first);
    EXPECT_EQ(mLog.withBody("enter loadFuns()").size(), 1u) << "bound once for both references";
    EXPECT_EQ(mLog.withBody("enter getInstance(), getInstance successfully.").size(), 2u);

    VistelLibLoader::destroyInstance();
    EXPECT_NE(first->LINK_Vistel_Send_Event, nullptr) << "one reference left, still bound";
    EXPECT_TRUE(mLog.withBody("enter unloadFuns()").empty());

    VistelLibLoader::destroyInstance();
    EXPECT_EQ(mLog.withBody("enter unloadFuns()").size(), 1u);
    EXPECT_EQ(mLog.withBody("enter setFunsToDefault()").size(), 1u);

    // Gone: further releases do nothing, and the next reference binds from the start.
    VistelLibLoader::destroyInstance();
    VistelLibLoader::destroyInstance();
    mLog.clear();
    ASSERT_NE(VistelLibLoader::getInstance(), nullptr);
    EXPECT_EQ(mLog.withBody("enter loadFuns()").size(), 1u);
    VistelLibLoader::destroyInstance();
}

TEST_F(LoaderTest, DefaultsClearOnlyTheFiveUnnamedEntries) {
    VistelLibLoader* loader = VistelLibLoader::getInstance();
    ASSERT_NE(loader, nullptr);
    loader->setFunsToDefault();
    EXPECT_EQ(loader->LINK_Vistel_Create_EventObj, nullptr);
    EXPECT_EQ(loader->LINK_Vistel_Set_Param, nullptr);
    EXPECT_EQ(loader->LINK_Vistel_Set_Time, nullptr);
    EXPECT_EQ(loader->LINK_Vistel_Send_Event, nullptr);
    EXPECT_EQ(loader->LINK_Vistel_Destroy_EventObj, nullptr);
    EXPECT_NE(loader->LINK_Vistel_Set_Param_Integer_V2, nullptr);
    EXPECT_NE(loader->LINK_Vistel_Set_Param_Float_V2, nullptr);
    EXPECT_NE(loader->LINK_Vistel_Set_Param_String_V2, nullptr);
    EXPECT_NE(loader->LINK_Vistel_Fill_Array_Param_Integer_V2, nullptr);
    EXPECT_NE(loader->LINK_Vistel_Fill_Array_Param_Float_V2, nullptr);
    EXPECT_NE(loader->LINK_Vistel_Fill_Array_Param_String_V2, nullptr);
    VistelLibLoader::destroyInstance();
}

// The service library is absent, or lacks one symbol: no instance, and every call tries again.
TEST(LoaderFailureTest, FailsCleanlyAndRetries) {
    const std::string setup = serviceSetup();
    if (setup == "present") GTEST_SKIP() << "needs a broken service setup";
    LogCapture log;
    for (int attempt = 0; attempt < 2; ++attempt) {
        log.clear();
        EXPECT_EQ(VistelLibLoader::getInstance(), nullptr);
        std::vector<std::string> bodies;
        for (const LogLine& line : log.lines()) {
            if (line.tag == "VistelLibLoader") bodies.push_back(line.body);
        }
        std::vector<std::string> expected;
        if (setup != "absent") {
            expected = {"enter loadFuns()", "exit loadFuns(). failed to load " + setup,
                        "enter setFunsToDefault()"};
        }
        expected.push_back("getInstance(), getInstance failed.");
        EXPECT_EQ(bodies, expected) << "attempt " << attempt;
        EXPECT_TRUE(log.withBody("enter getInstance(), getInstance successfully.").empty());
    }
    // Nothing was counted, so a release has nothing to drop.
    VistelLibLoader::destroyInstance();
}

}  // namespace
}  // namespace vistel_test
