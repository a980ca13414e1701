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

// A row of counts: the kind, its name, then a right-aligned column per count, each as wide as its
// header's name and at least 9: records, the printed outcomes, events.
class RowText {
  public:
    RowText(const char* kind, const char* name) { add("%4s %-32s", kind, name); }

    // NOLINTNEXTLINE(cert-dcl50-cpp): printf-style, and the compiler checks every format
    __attribute__((format(printf, 2, 3))) void add(const char* format, ...) {
        va_list args;
        va_start(args, format);
        const int length = vsnprintf(mText + mUsed, sizeof(mText) - mUsed, format, args);
        va_end(args);
        if (length > 0) mUsed = std::min(mUsed + static_cast<size_t>(length), sizeof(mText) - 1);
    }
    void count(const char* header, unsigned long long value) {
        add(" %*llu", columnWidth(header), value);
    }
    void header(const char* header) { add(" %*s", columnWidth(header), header); }
    const char* text() const { return mText; }

  private:
    static int columnWidth(const char* header) {
        return std::max(9, static_cast<int>(strlen(header)));
    }

    char mText[160] = {};
    size_t mUsed = 0;
};

// The off column is printed only once a record was switched off: until then the table reads as it
// did before kinds could be.
size_t printedOutcomes(const VistelCountsRow& total) {
    return total.outcomes[VISTEL_OUTCOME_OFF] != 0 ? counters::kOutcomes
                                                  : static_cast<size_t>(VISTEL_OUTCOME_OFF);
}

void writeHeader(DumpWriter& out, size_t printed) {
    RowText row("kind", "name");
    row.header("records");
    for (size_t i = 0; i < printed; ++i) {
        row.header(vistelOutcomeName(static_cast<uint32_t>(i)));
    }
    row.header("events");
    out.line("%s", row.text());
}

void writeRow(DumpWriter& out, const char* kind, const char* name, const VistelCountsRow& counts,
              size_t printed) {
    RowText row(kind, name);
    row.count("records", counts.records);
    for (size_t i = 0; i < printed; ++i) {
        row.count(vistelOutcomeName(static_cast<uint32_t>(i)), counts.outcomes[i]);
    }
    row.count("events", counts.events);
    out.line("%s", row.text());
}

void addRow(VistelCountsRow& sum, const VistelCountsRow& row) {
    sum.records += row.records;
    for (size_t i = 0; i < counters::kOutcomes; ++i) sum.outcomes[i] += row.outcomes[i];
    sum.events += row.events;
}

VistelCountsRow readRow(const counters::KindCounters& counted) {
    constexpr auto kRelaxed = std::memory_order_relaxed;
    VistelCountsRow row = {};
    row.records = counted.records.load(kRelaxed);
    for (size_t i = 0; i < counters::kOutcomes; ++i) {
        row.outcomes[i] = counted.outcomes[i].load(kRelaxed);
    }
    row.events = counted.events.load(kRelaxed);
    return row;
}

void writeBinding(DumpWriter& out, const VistelCounterSnapshot& counts) {
    switch (counts.manager) {
        case VISTEL_MANAGER_NOT_BUILT:
            out.line("vistel service: manager not built yet");
            return;
        case VISTEL_MANAGER_DESTROYED:
            out.line("vistel service: destroyed with the manager");
            return;
        case VISTEL_MANAGER_KEPT:
            out.line("manager: kept at exit, still in use: nothing was destroyed");
            break;
        default:
            break;
    }
    switch (counts.binding) {
        case VISTEL_BINDING_BOUND:
            out.line("vistel service: bound (%s)%s", kServiceLibrary,
                     counts.inited != 0 ? "" : ", but the manager is not initialised");
            return;
        case VISTEL_BINDING_LIBRARY_MISSING:
            out.line("vistel service: not bound: %s could not be opened", kServiceLibrary);
            return;
        case VISTEL_BINDING_FUNCTION_MISSING:
            out.line("vistel service: not bound: %s has no %s", kServiceLibrary,
                     counts.missingFunction);
            return;
        default:
            break;
    }
    out.line("vistel service: not bound: never tried");
}

VistelServiceBinding publicBinding(counters::Binding binding) {
    switch (binding) {
        case counters::Binding::kBound:
            return VISTEL_BINDING_BOUND;
        case counters::Binding::kLibraryMissing:
            return VISTEL_BINDING_LIBRARY_MISSING;
        case counters::Binding::kFunctionMissing:
            return VISTEL_BINDING_FUNCTION_MISSING;
        case counters::Binding::kNotTried:
            break;
    }
    return VISTEL_BINDING_NOT_TRIED;
}

}  // namespace

// Every figure is read here, before anything is written, so a slow reader of dump()'s `fd` holds
// up nobody. The rows are read one counter at a time, without a lock; the limiter's key counts
// only while the manager is known to be alive, inside a pass of its gate (or once it was kept at
// exit: it is never destroyed then), the way dump() has always read them. Not through enterCall:
// a call refused once the manager is gone would lose the counters, which outlive it.
void VistelManager::fillSnapshot(VistelManager* manager, VistelCounterSnapshot& counts) {
    counts.version = 1;
    counts.buildTag = kBuildTag;
    static_assert(kVistelEventCount <= kVistelSnapshotKinds, "a snapshot row per kind");
    counts.kindCount = kVistelEventCount;
    counts.outcomeCount = counters::kOutcomes;
    for (uint32_t kind = 0; kind < kVistelEventCount; ++kind) {
        counts.kinds[kind] = readRow(counters::gRows[kind]);
    }
    counts.direct = readRow(counters::outsideDispatch());
    const InFlightBound& inFlight = InFlightBound::instance();
    counts.inFlight = inFlight.inFlight();
    counts.inFlightPeak = inFlight.peak();
    counts.inFlightBound = InFlightBound::kBound;
    const counters::BindingState binding = counters::bindingState();
    counts.binding = publicBinding(binding.binding);
    counts.missingFunction = binding.missingFunction;

    ReporterGate::Pass pass(reporterGate());
    const bool kept = reporterGate().kept();
    if (!pass.entered() && !kept) {
        counts.manager = pass.seen() == ReporterGate::State::kNotOpen ? VISTEL_MANAGER_NOT_BUILT
                                                                      : VISTEL_MANAGER_DESTROYED;
        return;
    }
    counts.manager = kept ? VISTEL_MANAGER_KEPT : VISTEL_MANAGER_RUNNING;
    counts.inited = manager->mInited ? 1 : 0;
    const auto keyCounts = manager->mFrequencyLimit.keyCounts();
    static_assert(keyCounts.size() <= kVistelSnapshotPolicies, "a snapshot row per policy");
    counts.policyCount = keyCounts.size();
    for (size_t i = 0; i < keyCounts.size(); ++i) {
        const FrequencyLimit::KeyCount& count = keyCounts[i];
        VistelPolicyKeys& keys = counts.policies[i];
        keys.policy = count.policy;
        keys.busy = count.keys == FrequencyLimit::KeyCount::kBusy ? 1 : 0;
        keys.keys = keys.busy != 0 ? 0 : count.keys;
        keys.dropped = count.dropped;
    }
}

int VistelManager::snapshotCounters(VistelCounterSnapshot* snapshot) {
    // The first version's size: a later one only appends.
    constexpr uint32_t kFirstVersionSize = sizeof(VistelCounterSnapshot);
    if (snapshot == nullptr || snapshot->size < kFirstVersionSize) {
        VISTEL_LOG_AT(ANDROID_LOG_ERROR, "snapshotCounters",
                      "%s() error: snapshot %p of size %u, at least %u expected",
                      "snapshotCounters", static_cast<void*>(snapshot),
                      snapshot != nullptr ? snapshot->size : 0u, kFirstVersionSize);
        return -1;
    }
    const uint32_t size = snapshot->size;
    memset(snapshot, 0, size);
    snapshot->size = size;
    fillSnapshot(this, *snapshot);
    return 0;
}

void VistelManager::dump(int fd) {
    VistelCounterSnapshot counts = {};
    counts.size = sizeof(counts);
    fillSnapshot(this, counts);

    DumpWriter out(fd);
    out.line("libc_vistel [%s]: since the process started", counts.buildTag);
    VistelCountsRow total = {};
    for (uint32_t kind = 0; kind < kVistelEventCount; ++kind) addRow(total, counts.kinds[kind]);
    addRow(total, counts.direct);
    const size_t printed = printedOutcomes(total);
    writeHeader(out, printed);
    for (uint32_t kind = 0; kind < kVistelEventCount; ++kind) {
        char number[8];
        snprintf(number, sizeof(number), "%u", kind);
        writeRow(out, number, counters::kindName(static_cast<VistelEvent>(kind)),
                 counts.kinds[kind], printed);
    }
    // No record behind it: the camera stack's own calls of sendBootMsg, a call per record.
    writeRow(out, "-", "direct sendBootMsg calls", counts.direct, printed);
    writeRow(out, "", "total", total, printed);
    out.line("records in flight: %u now, %u at most, shed beyond %u", counts.inFlight,
             counts.inFlightPeak, counts.inFlightBound);
    writeBinding(out, counts);
    // "dropped": the keys a policy let go, for the life of the process, once its map had grown past
    // the limiter's bound; each had been quiet for its whole period.
    out.line("%-40s %9s %9s", "keyed limit policy", "keys", "dropped");
    const bool alive =
            counts.manager == VISTEL_MANAGER_RUNNING || counts.manager == VISTEL_MANAGER_KEPT;
    if (!alive) out.line("%-40s %9s", "(every policy)", "destroyed");
    for (uint32_t i = 0; alive && i < counts.policyCount; ++i) {
        const VistelPolicyKeys& keys = counts.policies[i];
        if (keys.busy != 0) {
            out.line("%-40s %9s %9llu", keys.policy, "busy",
                     static_cast<unsigned long long>(keys.dropped));
            continue;
        }
        out.line("%-40s %9llu %9llu", keys.policy, static_cast<unsigned long long>(keys.keys),
                 static_cast<unsigned long long>(keys.dropped));
    }
    out.writeOut();
}

}  // namespace orv
