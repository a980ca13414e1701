// Kinds switched off in the field, without an update: the vendor property
// "persist.vendor.camera.vistel.off" lists the kinds the library stops reporting, by number or
// name ("MemLeak", as VistelRecords.h spells it after "kEvent"), separated by commas or spaces,
// or "all". An empty or unset property switches nothing off.
//
//     adb shell setprop persist.vendor.camera.vistel.off "0,FrameDrop"
//
// The camera thread reads one atomic word, a bit per kind: a record of a kind switched off is
// refused at the door, never queued, and counted in its own outcome (off). The property is read
// on a worker, never on the camera thread: by the worker that ran the process's first record,
// once its work is done, then at most once every kRefreshPeriodNs, by the worker that has run a
// record, or by a task the camera thread queues when it refuses a record switched off. A change
// therefore applies at most a period after it was made, to the records handed over after the
// read that follows it, even while every kind is switched off. Reading it when the manager is
// built would take a task on the pool before the camera stack's first record, and with it move
// the pool's exit hook ahead of the camera stack's own. A value that is not understood is logged
// once and ignored: the kinds switched off stay as they were.
#pragma once

#include <VistelRecords.h>

#include <atomic>
#include <cstdint>

class QorThreadManager;

namespace orv {

class KindSwitch {
  public:
    static constexpr const char kProperty[] = "persist.vendor.camera.vistel.off";
    static constexpr int64_t kRefreshPeriodNs = 60LL * 1000000000LL;
    // PROPERTY_VALUE_MAX: what a property can hold, terminator included.
    static constexpr size_t kValueMax = 92;

    // Every kind switched off: what `all` means.
    static constexpr uint32_t kAllKindsMask =
            kVistelEventCount == 32 ? ~0U : ((1U << kVistelEventCount) - 1U);

    static KindSwitch& instance();

    // Camera thread: true when records of `kind` (a known kind) are switched off.
    bool isOff(VistelEvent kind) const {
        return ((mOff.load(std::memory_order_relaxed) >> kind) & 1U) != 0;
    }
    // A handler's door: true when its work is switched off. A kind's handler called directly (or
    // its record queued before the switch was read) goes by its kind; sendBootMsg, called
    // directly with no kind of its own, is off when every kind is.
    bool isOffAtDoor(VistelEvent kind) const {
        if (kind < kVistelEventCount) return isOff(kind);
        return mOff.load(std::memory_order_relaxed) == kAllKindsMask;
    }

    // Camera thread, for a record of `kind` switched off: counts it, and queues a read of the
    // property on `pool` when one is due and none is queued yet.
    void refuse(VistelEvent kind, QorThreadManager* pool);
    // Worker, after a record's work: reads the property when a read is due.
    void readWhenDue() {
        const int64_t nowNs = now();
        if (nowNs >= mNextReadNs.load(std::memory_order_relaxed)) read(nowNs);
    }
    // Worker: reads the property and applies it; the next read is due a period after `nowNs`.
    // Another thread's read in progress makes this one return at once.
    void read(int64_t nowNs);

    // The mask of kinds `value` switches off, bit per kind; false when the value is not understood.
    static bool parse(const char* value, uint32_t* mask);

    // In a child process just forked: no read is queued or running there.
    void resetAfterFork();

  private:
    static int64_t now();
    void queueRead(QorThreadManager* pool, int64_t nowNs);
    void apply(const char* value);

    std::atomic<uint32_t> mOff{0};
    // When the next read is due, in systemTime() nanoseconds: at once until the first one.
    std::atomic<int64_t> mNextReadNs{INT64_MIN};
    std::atomic<bool> mReadQueued{false};
    std::atomic<bool> mReading{false};
    // The last value not understood, said once; written only by the thread holding mReading.
    char mIgnored[kValueMax] = {};
};

static_assert(kVistelEventCount <= 32, "a bit per kind in one word");

extern KindSwitch gKindSwitch;

inline KindSwitch& KindSwitch::instance() {
    return gKindSwitch;
}

}  // namespace orv
