// The flow the memory fault, buffer leak and time-out reporters share, and the events they send:
// one Vistel event whose parameters are the record's fields, set by index in the order listed.
//
// A reporter is described, not written out: its logged name, the limiter policy that may drop
// its records, and how its event is built. For instance
//
//     constexpr FieldReporter<vistelMemLimit> kMemLimit = {
//             &Limit::limitEventMemLimit, 918001000,
//             [](const vistelMemLimit& r) -> IndexedParams {
//                 return {r.name, r.secondName, r.value1, r.value2};
//             }};
//
//     int VistelManager::sendEventMemLimit(std::shared_ptr<VistelEventBase> event) {
//         return enterHandler(kEventMemLimit, __func__, event.get(), [&](ReporterScope& scope) {
//             return reportFields(scope, kMemLimit, {*this, mInited, mFrequencyLimit}, event);
//         });
//     }
//
// The including file defines LOG_TAG first, as for VistelLog.h.
#pragma once

#include <VistelManager.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "FieldText.h"
#include "ReporterChecks.h"
#include "ReporterScope.h"
#include "VistelEventSender.h"
#include "VistelLog.h"

namespace orv {

// One record number as the service takes it by index: signed integers sign-extended, unsigned
// bytes zero-extended (a flag of 255 stays 255), 64-bit values as they are. Texts are not values:
// IndexedParams takes them as the fields they are. Any other field type does not compile.
class IndexedValue {
  public:
    IndexedValue(int32_t value) : mValue(value) {}
    IndexedValue(uint8_t value) : mValue(value) {}
    IndexedValue(int64_t value) : mValue(value) {}

    long value() const { return mValue; }

  private:
    long mValue;
};

// The parameters of one event, numbered 0, 1, 2... in the order they are listed. A text goes by
// its address, which the service reads up to the terminator until the event is sent; a field the
// camera stack left without one goes as a terminated copy held here, so the parameters must stay
// where they were built (they are neither copied nor moved) until the event is sent.
class IndexedParams {
  public:
    // The longest of these events, the post-process time-out, has eleven.
    static constexpr size_t kCapacity = 11;
    // Its two texts, with a terminator each, are also the most text an event carries.
    static constexpr size_t kTextCapacity = sizeof(vistelPostProcessTimeOut::name) +
                                            sizeof(vistelPostProcessTimeOut::description) + 2;

    template <typename... Fields>
    IndexedParams(const Fields&... fields) : mParams(), mCount(sizeof...(Fields)) {
        static_assert(sizeof...(Fields) > 0 && sizeof...(Fields) <= kCapacity,
                      "an indexed event carries 1 to kCapacity parameters");
        static_assert((0 + ... + copyBytes<Fields>()) <= kTextCapacity,
                      "an indexed event carries at most kTextCapacity bytes of text");
        const long values[] = {valueOf(fields)...};
        for (size_t i = 0; i < mCount; ++i) {
            mParams[i] = VistelParam::indexed(static_cast<unsigned short>(i), values[i]);
        }
    }
    IndexedParams(const IndexedParams&) = delete;
    IndexedParams& operator=(const IndexedParams&) = delete;

    const VistelParam* data() const { return mParams.data(); }
    size_t size() const { return mCount; }

  private:
    // What a copy of the field would take: its bytes and a terminator, for texts only.
    template <typename Field>
    static constexpr size_t copyBytes() {
        return std::is_array_v<Field> ? sizeof(Field) + 1 : 0;
    }

    template <size_t N>
    long valueOf(const char (&text)[N]) {
        return reinterpret_cast<long>(mTexts.cString(text));
    }
    static long valueOf(IndexedValue number) { return number.value(); }

    std::array<VistelParam, kCapacity> mParams;
    size_t mCount;
    TerminatedTexts<kTextCapacity> mTexts;
};

inline int sendIndexedEvent(const VistelManager& manager, unsigned int eventId,
                            const IndexedParams& params) {
    return sendVistelEvent(manager, eventId, params.data(), params.size());
}

// The limiter policy that may drop a reporter's records; null for the kinds never limited.
template <typename Body>
using LimitPolicy = bool (VistelManager::FrequencyLimit::*)(Body*);

// What the flow needs of the manager. Only the manager's own handlers can see these members, so
// each handler hands them over; they are read only once the reporter is inside its scope, that is
// while the manager is known to be alive.
struct ReporterContext {
    const VistelManager& manager;
    const bool& inited;
    VistelManager::FrequencyLimit& limiter;
};

// Enter line, initialised check, `isLimited(data)`, `send(data)`, exit line, all logged under the
// reporter's name and counted in its scope. 0 when sent or dropped by the limiter, -1 otherwise.
// `send` builds and sends the event and answers 0 on success; the primitive that failed has logged
// why and destroyed the object, so a failure here needs no message or clean-up of its own.
template <typename Body, typename IsLimited, typename Send>
int reportFault(ReporterScope& scope, const ReporterContext& context,
                const std::shared_ptr<VistelEventBase>& event, IsLimited isLimited, Send send) {
    const char* reporter = scope.reporter();
    VISTEL_LOG_AT(ANDROID_LOG_INFO, reporter, "enter %s()", reporter);
    // The kind chose this handler, so it also fixes the record's type.
    Body* data = static_cast<Body*>(event.get());
    // Checked before the limiter, so a record that cannot be sent never uses up its hour.
    if (refusedNotInitialised(scope, context.inited, data)) return -1;
    if (isLimited(data)) {
        // A drop is a success for the camera stack: there is nothing for it to retry.
        logLimited(scope);
        return 0;
    }
    if (countedSend(scope, send(data)) != 0) return -1;
    VISTEL_LOG_AT(ANDROID_LOG_INFO, reporter, "exit %s()", reporter);
    return 0;
}

// The manager's limiter asked with `policy`; a null policy never limits.
template <typename Body>
auto askLimiter(VistelManager::FrequencyLimit& limiter, LimitPolicy<Body> policy) {
    return [&limiter, policy](Body* data) { return policy != nullptr && (limiter.*policy)(data); };
}

// A reporter that sends its record's fields under one event id.
template <typename Body>
struct FieldReporter {
    LimitPolicy<Body> limit;
    unsigned int eventId;
    IndexedParams (*params)(const Body&);
};

template <typename Body>
int reportFields(ReporterScope& scope, const FieldReporter<Body>& description,
                 const ReporterContext& context, const std::shared_ptr<VistelEventBase>& event) {
    auto send = [&](Body* data) {
        return sendIndexedEvent(context.manager, description.eventId, description.params(*data));
    };
    return reportFault<Body>(scope, context, event, askLimiter(context.limiter, description.limit),
                             send);
}

}  // namespace orv
