// A library whose constructor takes 300 ms, as a camera module's start-up might: all that time
// the dynamic loader holds the lock that dladdr(), dlopen() and dl_iterate_phdr() wait for.
#include <chrono>
#include <thread>

extern "C" void vistelBenchSlowModuleLoading();

__attribute__((constructor)) static void startSlowly() {
    vistelBenchSlowModuleLoading();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
}
