#include <KindRegistry.h>
#include <QorThreadManager.h>
#include <WorkerHold.h>
#include <dlfcn.h>
#include <link.h>

#include <atomic>
#include <future>
#include <optional>
#include <thread>

#include "ReporterTest.h"

// ThreadSanitizer's runtime walks the loaded libraries with dl_iterate_phdr() while it starts,
// before an interposer could look the real one up: under it the loader is not interposed, and the
// test that counts its calls is skipped (every other build runs it).
#if defined(__SANITIZE_THREAD__)
#define VISTEL_COUNT_LOADER_CALLS 0
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VISTEL_COUNT_LOADER_CALLS 0
#endif
#endif
#ifndef VISTEL_COUNT_LOADER_CALLS
#define VISTEL_COUNT_LOADER_CALLS 1
#endif

namespace {

// Set by the camera thread of the test below while it reports; what the calls it made count to.
thread_local bool tCountLoaderCalls = false;
std::atomic<int> gLoaderCalls{0};

}  // namespace

#if VISTEL_COUNT_LOADER_CALLS
namespace {

// The dynamic loader's entry points that take its lock, counted when a thread that counts calls
// them. This executable's definitions take the place of the C library's for every library of the
// process (it exports them); each passes the call on.

template <typename Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

void countLoaderCall() {
    if (tCountLoaderCalls) ++gLoaderCalls;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int dladdr(const void* address, Dl_info* info) {
    countLoaderCall();
    static const auto real = next<int (*)(const void*, Dl_info*)>("dladdr");
    return real(address, info);
}

extern "C" __attribute__((visibility("default"))) void* dlopen(const char* file, int flags) {
    countLoaderCall();
    static const auto real = next<void* (*)(const char*, int)>("dlopen");
    return real(file, flags);
}

extern "C" __attribute__((visibility("default"))) int dlclose(void* handle) {
    countLoaderCall();
    static const auto real = next<int (*)(void*)>("dlclose");
    return real(handle);
}

extern "C" __attribute__((visibility("default"))) int dl_iterate_phdr(
        int (*callback)(dl_phdr_info*, size_t, void*), void* data) {
    countLoaderCall();
    static const auto real =
            next<int (*)(int (*)(dl_phdr_info*, size_t, void*), void*)>("dl_iterate_phdr");
    return real(callback, data);
}
#endif

namespace vistel_test {
namespace {

// A record that claims any kind.
struct KindRecord : orv::VistelEventBase {
    explicit KindRecord(uint32_t kind) : mKind(kind) {}
    orv::VistelEvent GetEventType() override { return static_cast<orv::VistelEvent>(mKind); }
    uint32_t mKind;
};

class DispatchTest : public ReporterTest {};

// Nothing is queued for a record no handler takes: the caller gets an empty future.
TEST_F(DispatchTest, RecordsWithoutAHandlerAreRefused) {
    const std::pair<std::shared_ptr<orv::VistelEventBase>, const char*> kCases[] = {
            {nullptr, "reportMsgImpl() VistelManager::reportMsgImpl bad arg"},
            {std::make_shared<KindRecord>(32), "reportMsgImpl() unknown event:32, skip handling"},
            {std::make_shared<KindRecord>(0xffffffffu),
             "reportMsgImpl() unknown event:-1, skip handling"},
            // A shared body on its own has no kind.
            {std::make_shared<orv::vistelAlgoProcessTimeout>(),
             "reportMsgImpl() unknown event:32, skip handling"},
    };
    for (const auto& [record, body] : kCases) {
        mLog.clear();
        EXPECT_FALSE(manager()->reportMsgImpl(record).valid()) << body;
        EXPECT_EQ(mLog.lines().size(), 1u);
        EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, "reportMsgImpl", body));
    }
}

// A memory leak record of another type: the camera stack may well have several.
struct OtherLeak : orv::vistelMemLeak {};

// The camera thread never waits for the dynamic loader's lock, which a dlopen() holds while a
// library's constructors run: reportMsgImpl calls none of the loader's entry points, for a
// record type seen for the first time or records of two types taking turns.
TEST_F(DispatchTest, CameraThreadNeverCallsTheDynamicLoader) {
    if (!VISTEL_COUNT_LOADER_CALLS) GTEST_SKIP() << "the loader is not interposed under TSan";
    std::vector<std::future<int>> results;
    std::thread camera([&results] {
        tCountLoaderCalls = true;
        for (const vistel_tools::KindInfo& info : vistel_tools::kinds()) {
            results.push_back(manager()->reportMsgImpl(info.make().record));
        }
        for (int i = 0; i < 8; ++i) {
            results.push_back(manager()->reportMsgImpl(std::make_shared<OtherLeak>()));
            results.push_back(manager()->reportMsgImpl(std::make_shared<orv::vistelMemLeak>()));
        }
        tCountLoaderCalls = false;
    });
    camera.join();
    for (std::future<int>& result : results) {
        ASSERT_TRUE(result.valid());
        result.wait();
    }
    EXPECT_EQ(gLoaderCalls.load(), 0);
}

// The queued task owns a reference to the record until its handler has run, and then lets it
// go, even while the caller still holds the future.
TEST_F(DispatchTest, QueuedTaskKeepsTheRecordUntilItHasRun) {
    std::optional<vistel_harness::WorkerHold> held(std::in_place);  // the report stays queued
    auto record = std::make_shared<orv::vistelDumpTrace>();
    std::weak_ptr<orv::VistelEventBase> watch = record;
    std::future<int> result = manager()->reportMsgImpl(std::move(record));
    EXPECT_FALSE(watch.expired()) << "the queued task must own a reference";
    held.reset();  // the workers run everything queued
    EXPECT_TRUE(watch.expired()) << "the task must let the record go once it has run";
    ASSERT_TRUE(result.valid());
    EXPECT_EQ(result.get(), 0);
}

}  // namespace
}  // namespace vistel_test
