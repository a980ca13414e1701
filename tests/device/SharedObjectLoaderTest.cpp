#include <LogCapture.h>
#include <SharedObjectLoader.h>
#include <dlfcn.h>
#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

constexpr const char* kFixturePath = PLATFORM_LOADER_FIXTURE;  // full path, set by the build

// Binds one function, by the name in mSymbol, and journals the hooks the base calls.
class FixtureLoader : public SharedObjectLoader {
  public:
    using SharedObjectLoader::SharedObjectLoader;
    const char* mSymbol = "fixture_answer";
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
};

// A missing library or symbol fails with one error line giving the loader's reason, and leaves
// nothing open; a bound library stays open until unloadSo(), which resets the functions first.
TEST(SharedObjectLoaderTest, LoadSoBindsOrClosesAndUnloadSoResetsThenCloses) {
    vistel_harness::LogCapture log;
    FixtureLoader loader("libno_such_library.so");
    auto expectOneError = [&log](const std::string& start) {
        std::vector<vistel_harness::LogLine> lines = log.lines();
        log.clear();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].tag, "SharedObjectLoader");
        EXPECT_EQ(lines[0].priority, ANDROID_LOG_ERROR);
        EXPECT_THAT(lines[0].message, testing::StartsWith(start));
        EXPECT_GT(lines[0].message.size(), start.size()) << "no reason given";
    };
    EXPECT_FALSE(loader.loadSo(nullptr));
    expectOneError("loadSo: dlopen(libno_such_library.so) failed: ");
    loader.mSymbol = "fixture_missing";
    EXPECT_FALSE(loader.loadSo(kFixturePath));
    expectOneError("loadFun: dlsym(fixture_missing) failed: ");
    EXPECT_EQ(dlopen(kFixturePath, RTLD_NOW | RTLD_NOLOAD), nullptr) << "a failed bind closes it";

    loader.mSymbol = "fixture_answer";
    ASSERT_TRUE(loader.loadSo(kFixturePath));  // an explicit path wins over the name
    EXPECT_EQ(loader.mAnswer(), 42);
    EXPECT_FALSE(loader.loadSo(nullptr)) << "a second load must not stack handles";
    expectOneError("loadSo(libno_such_library.so): ");
    loader.unloadSo();
    EXPECT_EQ(loader.mHooks, (std::vector<std::string>{"loadFuns", "loadFuns", "setFunsToDefault"}));
    EXPECT_EQ(loader.mAnswer, nullptr);
    EXPECT_EQ(dlopen(kFixturePath, RTLD_NOW | RTLD_NOLOAD), nullptr) << "still mapped";
}

}  // namespace
