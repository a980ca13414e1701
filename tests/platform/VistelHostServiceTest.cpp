#include <VistelClient.h>
#include <VistelHostService.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace {

constexpr const char* kClientSymbols[] = {
        "vistel_create_eventobj",
        "vistel_set_param",
        "vistel_set_param_integer_v2",
        "vistel_fill_array_param_integer_v2",
        "vistel_set_param_float_v2",
        "vistel_fill_array_param_float_v2",
        "vistel_set_param_string_v2",
        "vistel_fill_array_param_string_v2",
        "vistel_set_time",
        "vistel_send_event",
        "vistel_destroy_eventobj",
};

class VistelHostServiceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        vistelhost::reset();
        mLiveBefore = vistelhost::liveObjects();
    }
    void TearDown() override { EXPECT_EQ(vistelhost::liveObjects(), mLiveBefore); }

    int mLiveBefore = 0;
};

TEST_F(VistelHostServiceTest, SendRecordsParamsInSetOrderAndAppendsJsonLine) {
    const std::string logPath = ::testing::TempDir() + "vistel-events.jsonl";
    remove(logPath.c_str());
    setenv("VISTEL_EVENT_LOG", logPath.c_str(), 1);
    static const char kIndexedText[] = "by address";
    char algo[] = "hdr";

    void* event = vistel_create_eventobj(918000000);
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(vistel_set_param(event, 3, reinterpret_cast<long>(kIndexedText)), 0);
    EXPECT_EQ(vistel_set_param_integer_v2(event, "iso", -100), 0);
    EXPECT_EQ(vistel_fill_array_param_integer_v2(event, "expo", 1), 0);
    EXPECT_EQ(vistel_set_param_string_v2(event, "algo", algo), 0);
    algo[0] = 'X';  // texts are copied when set
    EXPECT_EQ(vistel_fill_array_param_string_v2(event, "names", "a"), 0);
    EXPECT_EQ(vistel_fill_array_param_integer_v2(event, "expo", 2), 0);
    EXPECT_EQ(vistel_set_param_float_v2(event, "gain", 1.5f), 0);
    EXPECT_EQ(vistel_fill_array_param_float_v2(event, "fps", 29.97f), 0);
    EXPECT_EQ(vistel_fill_array_param_string_v2(event, "names", "b"), 0);
    EXPECT_NE(vistel_send_event(event), 0);
    vistel_destroy_eventobj(event);
    unsetenv("VISTEL_EVENT_LOG");

    const std::string expected = R"({"id":918000000,"params":[{"index":3,"value":)" +
                                 std::to_string(reinterpret_cast<long>(kIndexedText)) + "}," +
                                 R"({"name":"iso","type":"int","value":-100},)"
                                 R"({"name":"expo","type":"int_array","value":[1,2]},)"
                                 R"({"name":"algo","type":"string","value":"hdr"},)"
                                 R"({"name":"names","type":"string_array","value":["a","b"]},)"
                                 R"({"name":"gain","type":"float","value":1.5},)"
                                 R"({"name":"fps","type":"float_array","value":[29.97]}]})";
    std::vector<vistelhost::SentEvent> sent = vistelhost::sentEvents();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(vistelhost::toJson(sent[0]), expected);
    std::string line;
    EXPECT_TRUE(std::getline(std::ifstream(logPath) >> std::ws, line));
    EXPECT_EQ(line, expected);
}

// Runs create, three parameter calls and send on one object; returns their results.
std::string runScript() {
    void* event = vistel_create_eventobj(5);
    if (event == nullptr) return "null";
    const int results[] = {vistel_set_param(event, 1, 10),  // a braced list runs in order
                           vistel_set_param_integer_v2(event, "a", 20),
                           vistel_fill_array_param_string_v2(event, "s", "x"),
                           vistel_send_event(event)};
    vistel_destroy_eventobj(event);
    return std::to_string(results[0]) + " " + std::to_string(results[1]) + " " +
           std::to_string(results[2]) + " send=" + std::to_string(results[3]);
}

TEST_F(VistelHostServiceTest, InjectedFailuresHitExactlyTheArmedCall) {
    struct Case {
        const char* name;
        std::function<void()> arm;
        std::string results;
        size_t sentParams;  // parameters of the one event sent; 0 = nothing sent
    };
    const Case cases[] = {
            {"none", [] {}, "0 0 0 send=1", 3},
            {"create", [] { vistelhost::failNextCreate(); }, "null", 0},
            {"second param call", [] { vistelhost::failParamCall(2); }, "0 -5 0 send=1", 2},
            {"own code", [] { vistelhost::failParamCall(3, -9); }, "0 0 -9 send=1", 2},
            {"send", [] { vistelhost::failNextSend(); }, "0 0 0 send=0", 0},
            {"disarmed by reset",
             [] {
                 vistelhost::failNextCreate();
                 vistelhost::failParamCall(1);
                 vistelhost::failNextSend();
                 vistelhost::reset();
             },
             "0 0 0 send=1", 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        vistelhost::reset();
        c.arm();
        EXPECT_EQ(runScript(), c.results);
        std::vector<vistelhost::SentEvent> sent = vistelhost::sentEvents();
        ASSERT_EQ(sent.size(), c.sentParams > 0 ? 1u : 0u);
        if (!sent.empty()) {
            EXPECT_EQ(sent[0].params.size(), c.sentParams) << "the failed parameter was stored";
        }
    }
    // The journal of the last run, which had nothing armed.
    const std::vector<std::string> journal = {
            "vistel_create_eventobj(5) = object",
            "vistel_set_param(5, 1, 10) = 0",
            "vistel_set_param_integer_v2(5, \"a\", 20) = 0",
            "vistel_fill_array_param_string_v2(5, \"s\", \"x\") = 0",
            "vistel_send_event(5) = 1",
            "vistel_destroy_eventobj(5)",
    };
    EXPECT_EQ(vistelhost::calls(), journal);
}

// A destroyed object must be refused, and never freed twice; reset() keeps live objects.
TEST_F(VistelHostServiceTest, DestroyedObjectIsRefusedAndCounted) {
    void* event = vistel_create_eventobj(1);
    vistelhost::reset();
    EXPECT_EQ(vistelhost::liveObjects(), mLiveBefore + 1);
    vistel_destroy_eventobj(event);
    vistel_destroy_eventobj(event);
    EXPECT_EQ(vistel_send_event(event), 0);
    EXPECT_EQ(vistel_set_param_integer_v2(event, "a", 1), -1);
    EXPECT_EQ(vistelhost::invalidObjectCalls(), 3);
    EXPECT_TRUE(vistelhost::sentEvents().empty());
}

// Checks which client symbols a library exports: all but `missing` (null: all of them).
void expectExportsAllBut(void* library, const char* missing) {
    ASSERT_NE(library, nullptr) << dlerror();
    for (const char* symbol : kClientSymbols) {
        bool expectMissing = missing != nullptr && std::string(symbol) == missing;
        EXPECT_EQ(dlsym(library, symbol) == nullptr, expectMissing) << symbol;
    }
}

// Each copy also unloads on its last dlclose(), so the loader's unload can be observed.
TEST(VistelServiceVariantsTest, EachVariantLacksExactlyItsOwnSymbol) {
    expectExportsAllBut(dlopen(VISTEL_SERVICE_PATH, RTLD_NOW | RTLD_LOCAL), nullptr);
    for (const char* symbol : kClientSymbols) {
        SCOPED_TRACE(symbol);
        std::string path =
                std::string(VISTEL_SERVICE_WITHOUT_ROOT) + "/" + symbol + "/libvistel.so";
        void* variant = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        expectExportsAllBut(variant, symbol);
        if (variant != nullptr) dlclose(variant);
        EXPECT_EQ(dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << "still mapped";
    }
}

// Run by ctest with LD_LIBRARY_PATH naming one variant's folder: the name the telemetry library
// opens must then resolve to that variant, even in a process that links the service.
TEST(VistelServiceVariantsTest, LibraryPathSelectsTheVariant) {
    const char* missing = getenv("VISTEL_EXPECT_MISSING");
    if (missing == nullptr) GTEST_SKIP() << "needs VISTEL_EXPECT_MISSING and LD_LIBRARY_PATH";
    expectExportsAllBut(dlopen("libvistel.so", RTLD_NOW | RTLD_LOCAL), missing);
}

}  // namespace
