#include <VistelClient.h>
#include <VistelHostService.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

// The client entry points, as the build lists them: one service variant lacks each.
std::vector<std::string> clientSymbols() {
    std::istringstream list(VISTEL_CLIENT_SYMBOLS);
    return {std::istream_iterator<std::string>(list), std::istream_iterator<std::string>()};
}

// An event with a parameter of every form, an array filled around other calls and a text
// changed after it was set. Returns the results: create (1: an object), the eight parameter
// calls in order, the send.
std::vector<int> sendScriptedEvent() {
    char algo[] = "hdr";
    void* event = vistel_create_eventobj(918000000);
    std::vector<int> results = {event != nullptr, vistel_set_param(event, 3, -7),
                                vistel_fill_array_param_integer_v2(event, "expo", 1),
                                vistel_set_param_string_v2(event, "algo", algo)};
    algo[0] = 'X';
    results.insert(results.end(),
                   {vistel_fill_array_param_string_v2(event, "names", "a"),
                    vistel_fill_array_param_integer_v2(event, "expo", 2),
                    vistel_set_param_float_v2(event, "gain", 1.5f),
                    vistel_fill_array_param_float_v2(event, "fps", 29.97f),
                    vistel_set_param_integer_v2(event, "iso", -100), vistel_send_event(event)});
    vistel_destroy_eventobj(event);
    return results;
}

// Parameters are kept in the order set, an array at the place of its first element, texts as
// copies, and a send appends the event to VISTEL_EVENT_LOG as one JSON line. An armed failure
// hits exactly its call, once, and that call stores nothing.
TEST(VistelHostServiceTest, SendRecordsWhatWasSetAndArmedFailuresHitTheirCall) {
    const struct {
        void (*arm)();
        std::vector<int> results;
        std::vector<size_t> sent;  // the parameters of each event sent
    } kCases[] = {
            {[] {}, {1, 0, 0, 0, 0, 0, 0, 0, 0, 1}, {7}},
            {[] { vistelhost::failNextCreate(); }, {0, -1, -1, -1, -1, -1, -1, -1, -1, 0}, {}},
            {[] { vistelhost::failParamCall(3); }, {1, 0, 0, -5, 0, 0, 0, 0, 0, 1}, {6}},
            {[] { vistelhost::failParamCall(8, -9); }, {1, 0, 0, 0, 0, 0, 0, 0, -9, 1}, {6}},
            {[] { vistelhost::failNextSend(); }, {1, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {}},
    };
    const std::string logPath = ::testing::TempDir() + "vistel-events.jsonl";
    remove(logPath.c_str());
    setenv("VISTEL_EVENT_LOG", logPath.c_str(), 1);
    for (const auto& c : kCases) {
        vistelhost::reset();
        c.arm();
        EXPECT_EQ(sendScriptedEvent(), c.results);
        std::vector<size_t> sent;
        for (const vistelhost::SentEvent& event : vistelhost::sentEvents()) {
            sent.push_back(event.params.size());
        }
        EXPECT_EQ(sent, c.sent);
    }
    unsetenv("VISTEL_EVENT_LOG");
    const std::string expected = R"({"id":918000000,"params":[{"index":3,"value":-7},)"
                                 R"({"name":"expo","type":"int_array","value":[1,2]},)"
                                 R"({"name":"algo","type":"string","value":"hdr"},)"
                                 R"({"name":"names","type":"string_array","value":["a"]},)"
                                 R"({"name":"gain","type":"float","value":1.5},)"
                                 R"({"name":"fps","type":"float_array","value":[29.97]},)"
                                 R"({"name":"iso","type":"int","value":-100}]})";
    std::string line;
    EXPECT_TRUE(std::getline(std::ifstream(logPath) >> std::ws, line));
    EXPECT_EQ(line, expected);
    EXPECT_EQ(vistelhost::liveObjects(), 0);
    remove(logPath.c_str());
}

// A failed creation fails that call only. A destroyed object is refused and counted, and never
// freed twice.
TEST(VistelHostServiceTest, CreateFailureIsOneShotAndDestroyedObjectIsRefused) {
    vistelhost::reset();
    vistelhost::failNextCreate();
    EXPECT_EQ(vistel_create_eventobj(1), nullptr);
    void* event = vistel_create_eventobj(1);
    vistel_destroy_eventobj(event);
    vistel_destroy_eventobj(event);
    EXPECT_EQ(vistel_send_event(event), 0);
    EXPECT_EQ(vistelhost::invalidObjectCalls(), 2);
}

// Checks which client symbols a library exports: all but `missing` (null: all of them).
void expectExportsAllBut(void* library, const char* missing) {
    ASSERT_NE(library, nullptr) << dlerror();
    for (const std::string& symbol : clientSymbols()) {
        bool expectMissing = missing != nullptr && symbol == missing;
        EXPECT_EQ(dlsym(library, symbol.c_str()) == nullptr, expectMissing) << symbol;
    }
}

// Each copy also unloads on its last dlclose(), so the loader's unload can be observed.
TEST(VistelServiceVariantsTest, EachVariantLacksExactlyItsOwnSymbol) {
    ASSERT_EQ(clientSymbols().size(), 11u);
    expectExportsAllBut(dlopen(VISTEL_SERVICE_PATH, RTLD_NOW | RTLD_LOCAL), nullptr);
    for (const std::string& symbol : clientSymbols()) {
        std::string path = std::string(VISTEL_SERVICE_WITHOUT_ROOT) + "/" + symbol + "/libvistel.so";
        void* variant = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        expectExportsAllBut(variant, symbol.c_str());
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
