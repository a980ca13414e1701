// A caller that names its log tag before including the pool, as the telemetry library does.
#define LOG_TAG "VistelManager"
#include <QorThreadManager.h>

std::future<int> enqueueWithManagerTag(QorThreadManager& pool, int value) {
    // A function pointer, so this instantiation of enqueue() is not shared with the test file's.
    int (*identity)(int) = [](int v) { return v; };
    return pool.enqueue(identity, value);
}
