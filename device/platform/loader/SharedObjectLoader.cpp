#include "SharedObjectLoader.h"

#include <android/log.h>
#include <dlfcn.h>

namespace {

constexpr const char* kLogTag = "SharedObjectLoader";

// dlerror() is per thread and cleared by reading it; null when the loader gave no reason.
const char* lastDlError() {
    const char* error = dlerror();
    return error != nullptr ? error : "unknown error";
}

}  // namespace

SharedObjectLoader::SharedObjectLoader(const char* libName)
    : mLibName(libName != nullptr ? libName : "") {}

SharedObjectLoader::~SharedObjectLoader() {
    closeHandle();
}

bool SharedObjectLoader::loadSo(const char* path) {
    const char* file = path != nullptr ? path : mLibName.c_str();
    if (mHandle != nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "loadSo(%s): %s is already loaded", file,
                            mLibName.c_str());
        return false;
    }
    mHandle = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (mHandle == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "loadSo: dlopen(%s) failed: %s", file,
                            lastDlError());
        return false;
    }
    if (!loadFuns()) {
        // loadFuns() has said which function is missing; a half-bound library is of no use.
        closeHandle();
        return false;
    }
    return true;
}

void* SharedObjectLoader::loadFun(const char* symbol) {
    if (symbol == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "loadFun: null symbol name");
        return nullptr;
    }
    if (mHandle == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "loadFun(%s): %s is not loaded", symbol,
                            mLibName.c_str());
        return nullptr;
    }
    dlerror();  // clear any stale error so the one read below belongs to this lookup
    void* address = dlsym(mHandle, symbol);
    if (address == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "loadFun: dlsym(%s) failed: %s", symbol,
                            lastDlError());
    }
    return address;
}

void SharedObjectLoader::unloadSo() {
    if (mHandle == nullptr) {
        return;
    }
    unloadFuns();
    closeHandle();
}

void SharedObjectLoader::setFunsToDefault() {}

void SharedObjectLoader::unloadFuns() {
    setFunsToDefault();
}

void SharedObjectLoader::closeHandle() {
    if (mHandle == nullptr) {
        return;
    }
    if (dlclose(mHandle) != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "dlclose(%s) failed: %s", mLibName.c_str(),
                            lastDlError());
    }
    mHandle = nullptr;
}
