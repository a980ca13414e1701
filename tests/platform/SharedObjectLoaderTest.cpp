#include <SharedObjectLoader.h>
#include <android/log.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LogCapture.h"

namespace {

using vistel_test::LogCapture;
using vistel_test::LogLine;

constexpr const char* kFixturePath = PLATFORM_LOADER_FIXTURE;  // full path, set by the build

// Binds one function by the given name and journals the hooks the base calls.
class FixtureLoader : public SharedObjectLoader {
  public:
    FixtureLoader(const char* libName, const char* symbol)
        : SharedObjectLoader(libName), mSymbol(symbol) {}

    int (*mAnswer)() = nullptr;
    std::vector<std::string> mHooks;

  protected:
    void setFunsToDefault() override {
        mHooks.push_back("setFunsToDefault");
        mAnswer = nullptr;
    }
    bool loadFuns() override {
        mHooks.push_back("loadFuns");
        mAnswer = reinterpret_cast<int (*)()>(loadFun(mSymbol));
        return mAnswer != nullptr;
    }
    void unloadFuns() override {
        mHooks.push_back("unloadFuns");
        SharedObjectLoader::unloadFuns();
    }

  private:
    const char* mSymbol;
};

bool isMapped(const char* path) {
    void* handle = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr) dlclose(handle);
    return handle != nullptr;
}

TEST(SharedObjectLoaderTest, LoadSoOpensBindsAndClosesOnFailure) {
    struct Case {
        const char* name;
        const char* path;
        const char* symbol;
        bool loaded;
        std::vector<std::string> hooks;
        std::string errorStart;  // of the one error line expected, empty for none
    };
    const Case cases[] = {
            {"bound", kFixturePath, "fixture_answer", true, {"loadFuns"}, ""},
            {"library missing",
             "libplatform_no_such_library.so",
             "fixture_answer",
             false,
             {},
             "loadSo: dlopen(libplatform_no_such_library.so) failed: "},
            {"symbol missing",
             kFixturePath,
             "fixture_missing",
             false,
             {"loadFuns"},
             "loadFun: dlsym(fixture_missing) failed: "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        FixtureLoader loader(c.path, c.symbol);
        EXPECT_EQ(loader.loadSo(nullptr), c.loaded);
        EXPECT_EQ(isMapped(kFixturePath), c.loaded);  // a failed bind leaves nothing open
        EXPECT_EQ(loader.mHooks, c.hooks);
        std::vector<LogLine> lines = log.lines();
        ASSERT_EQ(lines.size(), c.errorStart.empty() ? 0u : 1u);
        if (!lines.empty()) {
            EXPECT_EQ(lines[0].tag, "SharedObjectLoader");
            EXPECT_EQ(lines[0].priority, ANDROID_LOG_ERROR);
            EXPECT_EQ(lines[0].message.rfind(c.errorStart, 0), 0u) << lines[0].message;
            EXPECT_GT(lines[0].message.size(), c.errorStart.size()) << "no reason given";
        }
    }
}

TEST(SharedObjectLoaderTest, UnloadSoResetsFunctionsThenCloses) {
    FixtureLoader loader("unused-name.so", "fixture_answer");
    ASSERT_TRUE(loader.loadSo(kFixturePath));  // an explicit path wins over the name
    EXPECT_EQ(loader.mAnswer(), 42);
    EXPECT_FALSE(loader.loadSo(nullptr)) << "a second load must not stack handles";
    loader.unloadSo();
    EXPECT_EQ(loader.mHooks,
              (std::vector<std::string>{"loadFuns", "unloadFuns", "setFunsToDefault"}));
    EXPECT_EQ(loader.mAnswer, nullptr);
    EXPECT_FALSE(isMapped(kFixturePath));
}

}  // namespace
