// The manager's 32 handlers as member pointers, indexed by kind, for tests that call them
// directly, and what each answers when it refuses a record: both from the library's kind list.
#pragma once

#include <VistelKinds.h>
#include <VistelManager.h>

namespace vistel_test {

using Handler = orv::VistelManager::HandlerMethod;

inline Handler handlerOf(orv::VistelEvent kind) {
    return orv::kindInfo(kind).handler;
}

// What a handler answers when it refuses a record (not initialised, a null record, the manager
// gone).
inline int refusedResult(orv::VistelEvent kind) {
    return orv::kindInfo(kind).refusedResult;
}

}  // namespace vistel_test
