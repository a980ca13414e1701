// Binds the Vistel client library ("libvistel.so") by name at run time.
#pragma once

#include <SharedObjectLoader.h>
#include <utils/Mutex.h>

#include <cstddef>
#include <cstdint>
#include <new>

#include "Immortal.h"

namespace orv {

// Reference-counted process-wide singleton. While an instance exists all eleven entries of
// the function table are bound, so holders of a reference call them without a lock.
class VistelLibLoader : public SharedObjectLoader {
  public:
    // One more reference to the bound instance, or null when the library or one of its
    // functions could not be bound (a later call tries again from the start).
    static VistelLibLoader* getInstance();
    // Drops one reference; the last one unloads the library and deletes the instance.
    static void destroyInstance();

    ~VistelLibLoader() override;

    // The one instance lives in static storage of its own (there is never more than one, and its
    // creation and deletion happen under lock()): creating it cannot run out of memory.
    static void* operator new(size_t size, const std::nothrow_t&) noexcept;
    static void operator delete(void* instance, const std::nothrow_t&) noexcept;
    // What `delete` calls; its new is the nothrow one above, the only way an instance is made.
    // NOLINTNEXTLINE(cert-dcl54-cpp,misc-new-delete-overloads)
    static void operator delete(void* instance) noexcept;

    // Clears the create, set-by-index, set-time, send and destroy entries. The six named
    // ("_V2") entries are left as they are: callers only ever reach the table through a bound
    // instance, so nothing reads them after a failed load.
    void setFunsToDefault() override;
    bool loadFuns() override;
    void unloadFuns() override;

    // The client's functions, called by every sender through the bound instance: the table is the
    // loader's interface, so it stays public beside the private binding state.
    // NOLINTBEGIN(misc-non-private-member-variables-in-classes)
    void* (*LINK_Vistel_Create_EventObj)(unsigned int eventId);
    int (*LINK_Vistel_Set_Param)(void* eventObj, unsigned short paramIndex, long value);
    int (*LINK_Vistel_Set_Param_Integer_V2)(void* eventObj, const char* paramName, long value);
    int (*LINK_Vistel_Set_Param_Float_V2)(void* eventObj, const char* paramName, float value);
    int (*LINK_Vistel_Set_Param_String_V2)(void* eventObj, const char* paramName, const char* value);
    int (*LINK_Vistel_Fill_Array_Param_Integer_V2)(void* eventObj, const char* paramName,
                                                   long value);
    int (*LINK_Vistel_Fill_Array_Param_Float_V2)(void* eventObj, const char* paramName, float value);
    int (*LINK_Vistel_Fill_Array_Param_String_V2)(void* eventObj, const char* paramName,
                                                  const char* value);
    void* LINK_Vistel_Set_Time;                     // bound, never called
    int (*LINK_Vistel_Send_Event)(void* eventObj);  // non-zero on success
    void (*LINK_Vistel_Destroy_EventObj)(void* eventObj);
    // NOLINTEND(misc-non-private-member-variables-in-classes)

  private:
    VistelLibLoader();

    // The first client function loadFuns() did not find, or null.
    const char* mMissingFunction = nullptr;

    static VistelLibLoader* sInstance GUARDED_BY(lock());
    static int32_t sRefCount GUARDED_BY(lock());
    // The class mutex: built when the library loads and never destroyed, so that a first
    // GetInstance() made by an exit handler, after static destructors ran, still finds it whole.
    static android::Mutex& lock();
};

}  // namespace orv
