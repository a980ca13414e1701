// VistelManager::dump(): the counters of VistelCounters.h, the service binding and the
// limiter's key counts as a table for dumpsys.
#include <VistelManager.h>
#include <errno.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "VistelCounters.h"
#include "VistelLog.h"

namespace orv {

namespace {

constexpr const char kServiceLibrary[] = "libvistel.so";

// One row's figures, read once.
struct Row {
    unsigned long long records = 0;
    unsigned long long sent = 0;
    unsigned long long limited = 0;
    unsigned long long notInitialised = 0;
    unsigned long long failed = 0;

    static Row read(const counters::KindCounters& counted) {
        constexpr auto kRelaxed = std::memory_order_relaxed;
        return {counted.records.load(kRelaxed), counted.sent.load(kRelaxed),
                counted.limited.load(kRelaxed), counted.notInitialised.load(kRelaxed),
                counted.failed.load(kRelaxed)};
    }
    void add(const Row& other) {
        records += other.records;
        sent += other.sent;
        limited += other.limited;
        notInitialised += other.notInitialised;
        failed += other.failed;
    }
};

// Lines into a fixed buffer, written out when it fills and at the end: the dump takes no heap
// and stops quietly at the first failed write (a closed pipe, a full disk).
class DumpWriter {
  public:
    explicit DumpWriter(int fd) : mFd(fd) {}
    ~DumpWriter() { flush(); }
    DumpWriter(const DumpWriter&) = delete;
    DumpWriter& operator=(const DumpWriter&) = delete;

    // NOLINTNEXTLINE(cert-dcl50-cpp): printf-style, and the compiler checks every format
    __attribute__((format(printf, 2, 3))) void line(const char* format, ...) {
        char text[kLineMax];
        va_list args;
        va_start(args, format);
        int length = vsnprintf(text, sizeof(text) - 1, format, args);
        va_end(args);
        if (length < 0) return;
        length = std::min(length, static_cast<int>(sizeof(text)) - 2);
        text[length++] = '\n';
        if (mUsed + length > sizeof(mBuffer)) flush();
        memcpy(mBuffer + mUsed, text, length);
        mUsed += length;
    }

  private:
    static constexpr size_t kLineMax = 160;

    void flush() {
        size_t done = 0;
        while (!mFailed && done < mUsed) {
            const ssize_t written = write(mFd, mBuffer + done, mUsed - done);
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) {
                mFailed = true;
            } else {
                done += static_cast<size_t>(written);
            }
        }
        mUsed = 0;
    }

    int mFd;
    char mBuffer[4096];
    size_t mUsed = 0;
    bool mFailed = false;
};

constexpr const char kRowFormat[] = "%4s %-32s %9llu %9llu %9llu %15llu %9llu";

void writeRow(DumpWriter& out, const char* kind, const char* name, const Row& row) {
    out.line(kRowFormat, kind, name, row.records, row.sent, row.limited, row.notInitialised,
             row.failed);
}

void writeBinding(DumpWriter& out, bool inited) {
    const counters::BindingState state = counters::bindingState();
    switch (state.binding) {
        case counters::Binding::kBound:
            out.line("vistel service: bound (%s)%s", kServiceLibrary,
                     inited ? "" : ", but the manager is not initialised");
            return;
        case counters::Binding::kLibraryMissing:
            out.line("vistel service: not bound: %s could not be opened", kServiceLibrary);
            return;
        case counters::Binding::kFunctionMissing:
            out.line("vistel service: not bound: %s has no %s", kServiceLibrary,
                     state.missingFunction);
            return;
        case counters::Binding::kNotTried:
            break;
    }
    out.line("vistel service: not bound: never tried");
}

}  // namespace

void VistelManager::dump(int fd) {
    // Every figure is read before anything is written, so a slow reader of `fd` holds up
    // nobody. The rows are read one counter at a time, without a lock.
    Row rows[kVistelEventCount + 1];
    for (uint32_t kind = 0; kind <= kVistelEventCount; ++kind) {
        rows[kind] = Row::read(counters::gRows[kind]);
    }
    const auto keyCounts = mFrequencyLimit.keyCounts();

    DumpWriter out(fd);
    out.line("libc_vistel [%s]: since the process started", kBuildTag);
    out.line("%4s %-32s %9s %9s %9s %15s %9s", "kind", "name", "records", "sent", "limited",
             "not-initialised", "failed");
    Row total;
    for (uint32_t kind = 0; kind < kVistelEventCount; ++kind) {
        char number[8];
        snprintf(number, sizeof(number), "%u", kind);
        writeRow(out, number, counters::kindName(static_cast<VistelEvent>(kind)), rows[kind]);
        total.add(rows[kind]);
    }
    // No record behind it: the camera stack's own calls of sendBootMsg.
    writeRow(out, "-", "direct sendBootMsg calls", rows[counters::kOutsideDispatch]);
    total.add(rows[counters::kOutsideDispatch]);
    writeRow(out, "", "total", total);
    writeBinding(out, mInited);
    out.line("%-40s %9s", "keyed limit policy", "keys");
    for (const FrequencyLimit::KeyCount& keyCount : keyCounts) {
        out.line("%-40s %9zu", keyCount.policy, keyCount.keys);
    }
}

}  // namespace orv
