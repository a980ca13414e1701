// The two ways this library keeps state for the whole life of the process.
//
// Reports may still arrive while the process exits: from late pool tasks, from exit handlers and
// from static destructors of other libraries. Whatever they can reach (the gate, the loader's
// lock, the manager's storage) must not have been destroyed by then, and must not be created
// lazily on first use either (a function-local static is built under the C++ runtime's guard,
// which a re-entered construction deadlocks on or aborts). An Immortal is built when the library
// is loaded, before anything can call into it, and its object is never destroyed: the holder
// itself is trivially destructible, so nothing is registered to run at exit.
//
// State with a constant initialiser and nothing to destroy (counters, flags, atomics) needs no
// holder: VISTEL_CONSTINIT makes the compiler refuse a definition that would be initialised at
// run time instead.
#pragma once

#include <new>
#include <type_traits>
#include <utility>

#if defined(__clang__)
#define VISTEL_CONSTINIT [[clang::require_constant_initialization]]
#else
#define VISTEL_CONSTINIT __constinit
#endif

namespace orv {

template <typename T>
class Immortal {
  public:
    template <typename... Args>
    explicit Immortal(Args&&... args) {
        new (mStorage) T(std::forward<Args>(args)...);
    }
    Immortal(const Immortal&) = delete;
    Immortal& operator=(const Immortal&) = delete;

    T& get() { return *std::launder(reinterpret_cast<T*>(mStorage)); }
    T* operator->() { return &get(); }

  private:
    alignas(T) unsigned char mStorage[sizeof(T)];
};

// Holders live in static storage; one with a destructor would be torn down at exit.
static_assert(std::is_trivially_destructible_v<Immortal<int>>);

}  // namespace orv
