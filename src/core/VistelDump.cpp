// VistelManager::dump(): the counters of VistelCounters.h, the records in flight, the service
// binding and the limiter's key counts as a table for dumpsys.
#define LOG_TAG "VistelManager"

#include <VistelManager.h>
#include <errno.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "InFlightBound.h"
#include "ReporterGate.h"
#include "VistelCounters.h"
#include "VistelLog.h"

namespace orv {

namespace {

constexpr const char kServiceLibrary[] = "libvistel.so";

// One row's figures, read once: records, the outcomes in their column order, events.
struct Row {
    unsigned long long records = 0;
    unsigned long long outcomes[counters::kOutcomes] = {};
    unsigned long long events = 0;

    static Row read(const counters::KindCounters& counted) {
        constexpr auto kRelaxed = std::memory_order_relaxed;
        Row row;
        row.records = counted.records.load(kRelaxed);
        for (size_t i = 0; i < counters::kOutcomes; ++i) {
            row.outcomes[i] = counted.outcomes[i].load(kRelaxed);
        }
        row.events = counted.events.load(kRelaxed);
        return row;
    }
    void add(const Row& other) {
        records += other.records;
        for (size_t i = 0; i < counters::kOutcomes; ++i) outcomes[i] += other.outcomes[i];
        events += other.events;
    }
};

// While a dump writes, SIGPIPE is held back on its thread: a reader that went away (dumpsys
// closes its end when it times out) must end the dump, not the camera process, whatever the
// process does with SIGPIPE. A SIGPIPE the dump raised itself is taken back before the mask is
// restored; one that was already pending is left alone.
class QuietPipe {
  public:
    QuietPipe() {
        sigemptyset(&mPipe);
        sigaddset(&mPipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &mPipe, &mSaved);
        sigset_t pending;
        mWasPending = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
    }
    ~QuietPipe() {
        if (mRaised && !mWasPending) {
            const timespec now = {};
            sigtimedwait(&mPipe, nullptr, &now);
        }
        pthread_sigmask(SIG_SETMASK, &mSaved, nullptr);
    }
    QuietPipe(const QuietPipe&) = delete;
    QuietPipe& operator=(const QuietPipe&) = delete;

    void raised() { mRaised = true; }

  private:
    sigset_t mPipe;
    sigset_t mSaved;
    bool mWasPending = false;
    bool mRaised = false;
};

// strerror_r's text, whichever of its two forms the C library declares: the GNU one returns it
// (in the buffer or a constant), the POSIX one writes it into the buffer.
[[maybe_unused]] const char* errorText(char* text, char* /*buffer*/) {
    return text;
}
[[maybe_unused]] const char* errorText(int result, char* buffer) {
    return result == 0 ? buffer : "unknown error";
}

// Lines into a fixed buffer that holds the whole dump, written out at the end: the dump takes no
// heap, and the writing happens after every figure has been read.
class DumpWriter {
  public:
    explicit DumpWriter(int fd) : mFd(fd) {}
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
        const size_t kept = std::min(static_cast<size_t>(length), sizeof(mBuffer) - mUsed);
        memcpy(mBuffer + mUsed, text, kept);
        mUsed += kept;
    }

    // Writes what the lines made. A reader that went away ends it quietly; an fd that would
    // block, or any other failure, leaves the dump cut short, and says so in the log.
    void writeOut() {
        QuietPipe quiet;
        size_t done = 0;
        while (done < mUsed) {
            const ssize_t written = write(mFd, mBuffer + done, mUsed - done);
            if (written > 0) {
                done += static_cast<size_t>(written);
                continue;
            }
            if (written < 0 && errno == EINTR) continue;
            const int error = written < 0 ? errno : 0;
            if (error == EPIPE) {
                quiet.raised();
                return;
            }
            if (error == ECONNRESET) return;
            char buffer[96];
            const char* reason =
                    error != 0 ? errorText(strerror_r(error, buffer, sizeof(buffer)), buffer)
                               : "nothing written";
            VISTEL_LOG_AT(ANDROID_LOG_ERROR, "dump",
                          "%s() error: fd %d: %s, dump truncated after %zu of %zu bytes", "dump",
                          mFd, reason, done, mUsed);
            return;
        }
    }

  private:
    static constexpr size_t kLineMax = 160;

    int mFd;
    // The whole dump: 40-odd lines of at most a hundred characters.
    char mBuffer[8192];
    size_t mUsed = 0;
};

constexpr const char kRowFormat[] = "%4s %-32s %9llu %9llu %9llu %9llu %15llu %9llu %9llu %9llu";
constexpr const char kRowFormatWithOff[] =
        "%4s %-32s %9llu %9llu %9llu %9llu %15llu %9llu %9llu %9llu %9llu";
constexpr size_t kOff = static_cast<size_t>(counters::Outcome::kOff);

// The off column is there only once a record was switched off: until then the table reads as it
// did before kinds could be.
void writeRow(DumpWriter& out, const char* kind, const char* name, const Row& row, bool withOff) {
    static_assert(counters::kOutcomes == 7, "a column per outcome");
    const unsigned long long* o = row.outcomes;
    if (withOff) {
        out.line(kRowFormatWithOff, kind, name, row.records, o[0], o[1], o[2], o[3], o[4], o[5],
                 o[kOff], row.events);
        return;
    }
    out.line(kRowFormat, kind, name, row.records, o[0], o[1], o[2], o[3], o[4], o[5], row.events);
}

// What the manager itself holds, read inside a pass of its gate, or at any time once it was kept
// at exit (it is never destroyed then): nothing before it is built or once it is destroyed.
struct ManagerState {
    bool alive = false;
    bool kept = false;
    bool notBuilt = false;
    bool inited = false;
    std::array<VistelManager::FrequencyLimit::KeyCount, VistelManager::FrequencyLimit::kKeyedPolicies>
            keyCounts = {};
};

void writeBinding(DumpWriter& out, const ManagerState& manager) {
    if (!manager.alive) {
        out.line(manager.notBuilt ? "vistel service: manager not built yet"
                                  : "vistel service: destroyed with the manager");
        return;
    }
    if (manager.kept) out.line("manager: kept at exit, still in use: nothing was destroyed");
    const counters::BindingState state = counters::bindingState();
    switch (state.binding) {
        case counters::Binding::kBound:
            out.line("vistel service: bound (%s)%s", kServiceLibrary,
                     manager.inited ? "" : ", but the manager is not initialised");
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
    // nobody. The rows are read one counter at a time, without a lock; the limiter's key counts
    // only while the manager is known to be alive.
    Row rows[kVistelEventCount + 1];
    for (uint32_t kind = 0; kind <= kVistelEventCount; ++kind) {
        rows[kind] = Row::read(counters::gRows[kind]);
    }
    const InFlightBound& inFlight = InFlightBound::instance();
    const uint32_t inFlightNow = inFlight.inFlight();
    const uint32_t inFlightPeak = inFlight.peak();
    ManagerState manager;
    {
        ReporterGate::Pass pass(reporterGate());
        manager.kept = reporterGate().kept();
        manager.notBuilt = pass.seen() == ReporterGate::State::kNotOpen;
        if (pass.entered() || manager.kept) {
            manager.alive = true;
            manager.inited = mInited;
            manager.keyCounts = mFrequencyLimit.keyCounts();
        }
    }

    DumpWriter out(fd);
    out.line("libc_vistel [%s]: since the process started", kBuildTag);
    Row total;
    for (const Row& row : rows) total.add(row);
    const bool withOff = total.outcomes[kOff] != 0;
    if (withOff) {
        out.line("%4s %-32s %9s %9s %9s %9s %15s %9s %9s %9s %9s", "kind", "name", "records", "sent",
                 "limited", "no-event", "not-initialised", "failed", "shed", "off", "events");
    } else {
        out.line("%4s %-32s %9s %9s %9s %9s %15s %9s %9s %9s", "kind", "name", "records", "sent",
                 "limited", "no-event", "not-initialised", "failed", "shed", "events");
    }
    for (uint32_t kind = 0; kind < kVistelEventCount; ++kind) {
        char number[8];
        snprintf(number, sizeof(number), "%u", kind);
        writeRow(out, number, counters::kindName(static_cast<VistelEvent>(kind)), rows[kind],
                 withOff);
    }
    // No record behind it: the camera stack's own calls of sendBootMsg, a call per record.
    writeRow(out, "-", "direct sendBootMsg calls", rows[counters::kOutsideDispatch], withOff);
    writeRow(out, "", "total", total, withOff);
    out.line("records in flight: %u now, %u at most, shed beyond %u", inFlightNow, inFlightPeak,
             InFlightBound::kBound);
    writeBinding(out, manager);
    // "dropped": the keys a policy let go, for the life of the process, once its map had grown past
    // the limiter's bound; each had been quiet for its whole period.
    out.line("%-40s %9s %9s", "keyed limit policy", "keys", "dropped");
    if (!manager.alive) out.line("%-40s %9s", "(every policy)", "destroyed");
    for (size_t i = 0; manager.alive && i < manager.keyCounts.size(); ++i) {
        const VistelManager::FrequencyLimit::KeyCount& count = manager.keyCounts[i];
        if (count.keys == VistelManager::FrequencyLimit::KeyCount::kBusy) {
            out.line("%-40s %9s %9llu", count.policy, "busy",
                     static_cast<unsigned long long>(count.dropped));
            continue;
        }
        out.line("%-40s %9zu %9llu", count.policy, count.keys,
                 static_cast<unsigned long long>(count.dropped));
    }
    out.writeOut();
}

}  // namespace orv
