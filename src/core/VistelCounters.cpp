#include "VistelCounters.h"

#include "Immortal.h"

namespace orv {
namespace counters {

VISTEL_CONSTINIT KindCounters gRows[kVistelEventCount + 1];

namespace {

VISTEL_CONSTINIT std::atomic<Binding> gBinding{Binding::kNotTried};
VISTEL_CONSTINIT std::atomic<const char*> gMissingFunction{nullptr};

}  // namespace

void recordBinding(Binding binding, const char* missingFunction) {
    gMissingFunction.store(missingFunction, std::memory_order_relaxed);
    gBinding.store(binding, std::memory_order_release);
}

BindingState bindingState() {
    const Binding binding = gBinding.load(std::memory_order_acquire);
    return {binding, gMissingFunction.load(std::memory_order_relaxed)};
}

}  // namespace counters
}  // namespace orv
