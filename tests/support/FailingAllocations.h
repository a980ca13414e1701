// Memory running out on demand. An executable that links FailingAllocations.cpp has its operator
// new replaced: once armed, the n-th allocation of the arming thread throws std::bad_alloc (the
// nothrow forms return null), so a sweep can fail every allocation of a call in turn. It needs
// LogCapture.cpp too.
//
//     for (long n = 1;; ++n) {
//         armAllocationFailure(n);
//         call();
//         if (!disarmAllocationFailure()) break;  // the call made fewer than n allocations
//         ... check that the call coped ...
//     }
#pragma once

namespace vistel_test {

// The n-th allocation of this thread from now fails; 0 disarms. Allocations made while a
// LogCapture is capturing a line never fail (the capture is the test's, not the library's).
void armAllocationFailure(long n);
// Disarms; true when the armed allocation was reached (and failed).
bool disarmAllocationFailure();

// Runs `hook` at the next allocation of this thread (before it is made), once. For a test that
// holds a thread at its first allocation in a call.
void atNextAllocationOfThisThread(void (*hook)());

// Arms the n-th allocation, runs `call`, and tells whether the failure was reached (the call then
// had to cope with it).
template <typename Call>
bool failingAllocation(long n, Call call) {
    armAllocationFailure(n);
    call();
    return disarmAllocationFailure();
}

}  // namespace vistel_test
