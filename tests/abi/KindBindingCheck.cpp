// Compiled by the abi_kind_binding_* tests, never linked. As it stands it binds record bodies to
// their own kinds and compiles; with VISTEL_WRONG_BINDING it binds kind 11 to the algorithm
// time-out's body, smaller than the other time-out body that kind's handler reads, and must not.
#include <VistelRecords.h>

#include <memory>

namespace {

using namespace orv;

template <typename Record>
[[maybe_unused]] std::shared_ptr<VistelEventBase> make() {
    return std::make_shared<Record>();
}

#ifdef VISTEL_WRONG_BINDING
[[maybe_unused]] auto wrong =
        make<VistelRecord<kEventOtherTimeoutWarning, vistelAlgoProcessTimeout>>();
#else
// A shared body under each of its kinds, and a single-kind record bound to its own kind.
[[maybe_unused]] std::shared_ptr<VistelEventBase> right[] = {
        make<VistelRecord<kEventOtherTimeoutWarning, vistelOtherTimeout>>(),
        make<VistelRecord<kEventFlushProcessTimeoutError, vistelOtherTimeout>>(),
        make<VistelRecord<kEventScanMsg, vistelBootMsg>>(),
        make<VistelRecord<kEventMemLeak, vistelMemLeak>>(),
};
#endif

}  // namespace
