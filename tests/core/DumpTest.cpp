// dump() writes to whatever descriptor the HAL's dump entry point hands it. A reader that went
// away (dumpsys closes its end when it times out) ends the dump quietly, whatever the process does
// with SIGPIPE; a descriptor that would block, or cannot be written, cuts the dump short and says
// so in the log; a SIGPIPE the process already had pending is left alone.
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "ReporterTest.h"

namespace vistel_test {
namespace {

// The bytes dump() writes when nothing is in the way.
size_t dumpSize() {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    orv::VistelManager::GetInstance()->dump(ends[1]);
    close(ends[1]);
    size_t size = 0;
    char buffer[4096];
    for (ssize_t got; (got = read(ends[0], buffer, sizeof(buffer))) > 0;) size += got;
    close(ends[0]);
    return size;
}

bool sigpipePending() {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

// A descriptor to dump into, set up to fail in one way; `roomLeft` bytes still fit.
struct Target {
    int fd = -1;
    int other = -1;  // the descriptor to close afterwards, if any
    size_t roomLeft = 0;
};

Target closedPipe() {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    close(ends[0]);
    return {ends[1]};
}

Target closedSocket() {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    close(ends[1]);
    return {ends[0]};
}

// A non-blocking pipe filled up to `room` bytes short of full (a pipe frees room a page at a
// time).
Target fullPipe(size_t room) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_NONBLOCK), 0);
    const std::string block(4096, 'x');
    while (write(ends[1], block.data(), block.size()) > 0) {
    }
    while (write(ends[1], block.data(), 1) == 1) {
    }
    // Full now; read back the room wanted.
    std::string drain(room, '\0');
    if (room > 0) {
        EXPECT_EQ(read(ends[0], drain.data(), room), static_cast<ssize_t>(room));
    }
    return {ends[1], ends[0], room};
}

Target closedDescriptor() {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    close(ends[0]);
    close(ends[1]);
    return {ends[1]};
}

class DumpTest : public ReporterTest {
  protected:
    void SetUp() override {
        ReporterTest::SetUp();
        signal(SIGPIPE, SIG_DFL);  // a SIGPIPE that got through would end this test process
    }
};

TEST_F(DumpTest, AReaderThatWentAwayEndsTheDumpQuietly) {
    for (Target (*make)() : {closedPipe, closedSocket}) {
        mLog.clear();
        const Target target = make();
        manager()->dump(target.fd);
        close(target.fd);
        EXPECT_TRUE(mLog.lines().empty()) << mLog.lines()[0].message;
        EXPECT_FALSE(sigpipePending());
    }
}

TEST_F(DumpTest, ADescriptorThatCannotTakeItAllCutsTheDumpShortAndSaysSo) {
    const size_t whole = dumpSize();
    const struct {
        Target target;
        const char* reason;
    } kCases[] = {
            {fullPipe(0), "Resource temporarily unavailable"},
            {fullPipe(4096), "Resource temporarily unavailable"},
            {closedDescriptor(), "Bad file descriptor"},
    };
    for (const auto& c : kCases) {
        mLog.clear();
        manager()->dump(c.target.fd);
        close(c.target.fd);
        if (c.target.other >= 0) close(c.target.other);
        EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, "dump",
                             "dump() error: fd " + std::to_string(c.target.fd) + ": " + c.reason +
                                     ", dump truncated after " + std::to_string(c.target.roomLeft) +
                                     " of " + std::to_string(whole) + " bytes"))
                << (mLog.lines().empty() ? "no line" : mLog.lines()[0].message);
    }
}

TEST_F(DumpTest, ASigpipeAlreadyPendingIsLeftPending) {
    sigset_t pipeOnly;
    sigemptyset(&pipeOnly);
    sigaddset(&pipeOnly, SIGPIPE);
    sigset_t saved;
    pthread_sigmask(SIG_BLOCK, &pipeOnly, &saved);
    raise(SIGPIPE);
    ASSERT_TRUE(sigpipePending());
    const Target target = closedPipe();
    manager()->dump(target.fd);
    close(target.fd);
    EXPECT_TRUE(sigpipePending());
    // Taken back by the test, then the mask as it was.
    const timespec now = {};
    EXPECT_EQ(sigtimedwait(&pipeOnly, nullptr, &now), SIGPIPE);
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

}  // namespace
}  // namespace vistel_test
