// A plain library for the loader tests: C entry points only, so dlclose() really unmaps it.
extern "C" __attribute__((visibility("default"))) int fixture_answer() {
    return 42;
}
