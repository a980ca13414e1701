#define LOG_TAG "VistelManager"

#include "KindSwitch.h"

#include <QorThreadManager.h>
#include <android-base/properties.h>
#include <utils/Timers.h>

#include <cstring>
#include <exception>
#include <string>

#include "EntryDoor.h"
#include "Immortal.h"
#include "VistelCounters.h"
#include "VistelKinds.h"
#include "VistelLog.h"

namespace orv {

namespace {

constexpr const char kFunction[] = "KindSwitch";

bool isSeparator(char c) {
    return c == ',' || c == ' ' || c == '\t';
}

bool isWord(const char* word, size_t length, const char* text) {
    return strlen(text) == length && strncmp(word, text, length) == 0;
}

// One word of the value: "all", a kind's number (without leading zeros) or its name.
bool kindsNamedBy(const char* word, size_t length, uint32_t* kinds) {
    if (isWord(word, length, "all")) {
        *kinds = KindSwitch::kAllKindsMask;
        return true;
    }
    if (length <= 2 && word[0] >= '0' && word[0] <= '9' && (length == 1 || word[0] != '0')) {
        unsigned kind = 0;
        for (size_t i = 0; i < length; ++i) {
            if (word[i] < '0' || word[i] > '9') return false;
            kind = kind * 10 + static_cast<unsigned>(word[i] - '0');
        }
        if (kind >= kVistelEventCount) return false;
        *kinds = 1U << kind;
        return true;
    }
    for (const KindInfo& info : kKinds) {
        if (isWord(word, length, info.kindName)) {
            *kinds = 1U << info.kind;
            return true;
        }
    }
    return false;
}

}  // namespace

VISTEL_CONSTINIT KindSwitch gKindSwitch;

int64_t KindSwitch::now() {
    return systemTime(SYSTEM_TIME_MONOTONIC);
}

bool KindSwitch::parse(const char* value, uint32_t* mask) {
    uint32_t off = 0;
    for (const char* word = value; *word != '\0';) {
        if (isSeparator(*word)) {
            ++word;
            continue;
        }
        size_t length = 0;
        while (word[length] != '\0' && !isSeparator(word[length])) ++length;
        uint32_t kinds = 0;
        if (!kindsNamedBy(word, length, &kinds)) return false;
        off |= kinds;
        word += length;
    }
    *mask = off;
    return true;
}

void KindSwitch::refuse(VistelEvent kind, QorThreadManager* pool) {
    counters::of(kind).addEndedRecord(counters::Outcome::kOff);
    const int64_t nowNs = now();
    if (nowNs >= mNextReadNs.load(std::memory_order_relaxed)) queueRead(pool, nowNs);
}

void KindSwitch::queueRead(QorThreadManager* pool, int64_t nowNs) {
    if (pool == nullptr || mReadQueued.exchange(true)) return;
    try {
        // The future is dropped: nobody waits for the read. The task reads no clock of its own
        // (the caller's time counts), so a worker's first clock read stays a record's.
        pool->enqueue([nowNs] {
            gKindSwitch.mReadQueued.store(false);
            gKindSwitch.read(nowNs);
        });
        return;
    } catch (const std::exception& e) {
        VLOGE("%s() error: %s, property not read", kFunction, e.what());
    } catch (...) {
        if (caughtForeignUnwinding()) throw;
        VLOGE("%s() error: unknown exception, property not read", kFunction);
    }
    mReadQueued.store(false);
}

void KindSwitch::read(int64_t nowNs) {
    if (mReading.exchange(true, std::memory_order_acquire)) return;
    try {
        const std::string value = android::base::GetProperty(kProperty, "");
        apply(value.c_str());
    } catch (const std::exception& e) {
        VLOGE("%s() error: %s, property not read", kFunction, e.what());
    } catch (...) {
        if (caughtForeignUnwinding()) {
            mReading.store(false, std::memory_order_release);
            throw;
        }
        VLOGE("%s() error: unknown exception, property not read", kFunction);
    }
    mNextReadNs.store(nowNs + kRefreshPeriodNs, std::memory_order_relaxed);
    mReading.store(false, std::memory_order_release);
}

void KindSwitch::apply(const char* value) {
    uint32_t off = 0;
    if (!parse(value, &off)) {
        if (strncmp(value, mIgnored, sizeof(mIgnored)) == 0) return;
        strncpy(mIgnored, value, sizeof(mIgnored) - 1);
        VISTEL_LOG_AT(ANDROID_LOG_ERROR, kFunction,
                      "%s() error: %s \"%s\" not understood, ignored: a list of kinds (numbers "
                      "or names) or all",
                      kFunction, kProperty, value);
        return;
    }
    mIgnored[0] = '\0';
    if (mOff.exchange(off, std::memory_order_relaxed) == off) return;
    VISTEL_LOG_AT(ANDROID_LOG_INFO, kFunction, "%s() %s \"%s\": %d kinds switched off", kFunction,
                  kProperty, value, __builtin_popcount(off));
}

void KindSwitch::resetAfterFork() {
    mReadQueued.store(false, std::memory_order_relaxed);
    mReading.store(false, std::memory_order_relaxed);
}

}  // namespace orv
