#define LOG_TAG "VistelLibLoader"

#include "VistelLibLoader.h"

#include <safeclib/safe_mem_lib.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "VistelCounters.h"
// The loader fills the process-wide tag buffer and prints it, as it always has.
#define VISTEL_LOG_BUILD_TAG ::g_logGitTag
#include "VistelLog.h"

namespace orv {

VistelLibLoader* VistelLibLoader::sInstance = nullptr;
int32_t VistelLibLoader::sRefCount = 0;
namespace {

Immortal<android::Mutex> gLock;

alignas(VistelLibLoader) unsigned char gInstanceStorage[sizeof(VistelLibLoader)];

}  // namespace

android::Mutex& VistelLibLoader::lock() {
    return gLock.get();
}

void* VistelLibLoader::operator new(size_t size, const std::nothrow_t&) noexcept {
    return size <= sizeof(gInstanceStorage) ? gInstanceStorage : nullptr;
}

void VistelLibLoader::operator delete(void* /*instance*/, const std::nothrow_t&) noexcept {}

// NOLINTNEXTLINE(cert-dcl54-cpp,misc-new-delete-overloads): see the declaration
void VistelLibLoader::operator delete(void* /*instance*/) noexcept {}

VistelLibLoader::VistelLibLoader()
    : SharedObjectLoader("libvistel.so"),
      LINK_Vistel_Create_EventObj(nullptr),
      LINK_Vistel_Set_Param(nullptr),
      LINK_Vistel_Set_Param_Integer_V2(nullptr),
      LINK_Vistel_Set_Param_Float_V2(nullptr),
      LINK_Vistel_Set_Param_String_V2(nullptr),
      LINK_Vistel_Fill_Array_Param_Integer_V2(nullptr),
      LINK_Vistel_Fill_Array_Param_Float_V2(nullptr),
      LINK_Vistel_Fill_Array_Param_String_V2(nullptr),
      LINK_Vistel_Set_Time(nullptr),
      LINK_Vistel_Send_Event(nullptr),
      LINK_Vistel_Destroy_EventObj(nullptr) {}

// Unloading is destroyInstance's job; the destructor only destroys the base.
VistelLibLoader::~VistelLibLoader() = default;

VistelLibLoader* VistelLibLoader::getInstance() {
    // Same eight bytes every time, so the copy needs no lock; its result does not matter.
    (void)memcpy_s(::g_logGitTag, kBuildTagLength, kBuildTag, kBuildTagLength);

    android::Mutex::Autolock guard(lock());
    if (sInstance == nullptr) {
        sInstance = new (std::nothrow) VistelLibLoader();
        if (sInstance == nullptr) abort();
        bool loaded = false;
        try {
            loaded = sInstance->loadSo(nullptr);
        } catch (...) {
            // Memory ran out while binding: no half-bound instance is kept for the next caller.
            delete sInstance;
            sInstance = nullptr;
            throw;
        }
        if (!loaded) {
            const char* missing = sInstance->mMissingFunction;
            counters::recordBinding(missing != nullptr ? counters::Binding::kFunctionMissing
                                                       : counters::Binding::kLibraryMissing,
                                    missing);
            delete sInstance;
            sInstance = nullptr;
            VLOGE("%s(), getInstance failed.", __func__);
            return nullptr;
        }
        counters::recordBinding(counters::Binding::kBound);
    }
    ++sRefCount;
    VLOGI("enter %s(), getInstance successfully.", __func__);
    return sInstance;
}

void VistelLibLoader::destroyInstance() {
    android::Mutex::Autolock guard(lock());
    if (sInstance == nullptr) return;
    if (--sRefCount == 0) {
        sInstance->unloadSo();
        delete sInstance;
        sInstance = nullptr;
    }
}

bool VistelLibLoader::loadFuns() {
    VLOGI("enter %s()", __func__);
    // The service's lookup order, which interleaves the set and fill functions. Each entry is
    // stored as soon as it is found; the first missing symbol stops the load.
    struct Binding {
        const char* symbol;
        void* entry;  // address of the function pointer to fill
    };
    const Binding bindings[] = {
            {"vistel_create_eventobj", &LINK_Vistel_Create_EventObj},
            {"vistel_set_param", &LINK_Vistel_Set_Param},
            {"vistel_set_param_integer_v2", &LINK_Vistel_Set_Param_Integer_V2},
            {"vistel_fill_array_param_integer_v2", &LINK_Vistel_Fill_Array_Param_Integer_V2},
            {"vistel_set_param_float_v2", &LINK_Vistel_Set_Param_Float_V2},
            {"vistel_fill_array_param_float_v2", &LINK_Vistel_Fill_Array_Param_Float_V2},
            {"vistel_set_param_string_v2", &LINK_Vistel_Set_Param_String_V2},
            {"vistel_fill_array_param_string_v2", &LINK_Vistel_Fill_Array_Param_String_V2},
            {"vistel_set_time", &LINK_Vistel_Set_Time},
            {"vistel_send_event", &LINK_Vistel_Send_Event},
            {"vistel_destroy_eventobj", &LINK_Vistel_Destroy_EventObj},
    };
    for (const Binding& binding : bindings) {
        void* address = loadFun(binding.symbol);
        if (address == nullptr) {
            VLOGE("exit %s(). failed to load %s", __func__, binding.symbol);
            mMissingFunction = binding.symbol;
            setFunsToDefault();
            return false;
        }
        // Function and data pointers share one representation on every supported ABI, as
        // dlsym itself assumes.
        static_assert(sizeof(address) == sizeof(LINK_Vistel_Send_Event));
        memcpy(binding.entry, &address, sizeof(address));
    }
    return true;
}

void VistelLibLoader::setFunsToDefault() {
    VLOGI("enter %s()", __func__);
    LINK_Vistel_Create_EventObj = nullptr;
    LINK_Vistel_Set_Param = nullptr;
    LINK_Vistel_Set_Time = nullptr;
    LINK_Vistel_Send_Event = nullptr;
    LINK_Vistel_Destroy_EventObj = nullptr;
}

void VistelLibLoader::unloadFuns() {
    VLOGI("enter %s()", __func__);
    setFunsToDefault();
}

}  // namespace orv
