#include "FailingAllocations.h"

#include <LogCapture.h>

#include <cstdlib>
#include <new>

namespace {

// Allocations of this thread left before the one that fails; 0: disarmed.
thread_local long tAllocationsBeforeFailure = 0;
thread_local void (*tNextAllocationHook)() = nullptr;

void* allocate(size_t size) {
    if (void (*hook)() = tNextAllocationHook) {
        tNextAllocationHook = nullptr;
        hook();
    }
    if (tAllocationsBeforeFailure > 0 && !vistel_harness::LogCapture::capturing() &&
        --tAllocationsBeforeFailure == 0) {
        throw std::bad_alloc();
    }
    void* block = malloc(size == 0 ? 1 : size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

}  // namespace

namespace vistel_test {

void armAllocationFailure(long n) {
    tAllocationsBeforeFailure = n;
}

void atNextAllocationOfThisThread(void (*hook)()) {
    tNextAllocationHook = hook;
}

bool disarmAllocationFailure() {
    const bool reached = tAllocationsBeforeFailure == 0;
    tAllocationsBeforeFailure = 0;
    return reached;
}

}  // namespace vistel_test

void* operator new(size_t size) {
    return allocate(size);
}
void* operator new[](size_t size) {
    return allocate(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    try {
        return allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}
void operator delete(void* block) noexcept {
    free(block);
}
void operator delete[](void* block) noexcept {
    free(block);
}
void operator delete(void* block, size_t) noexcept {
    free(block);
}
void operator delete[](void* block, size_t) noexcept {
    free(block);
}
