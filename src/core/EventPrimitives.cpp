// The primitives every Vistel reporter builds its event with: create, set, send.
#define LOG_TAG "VistelManager"

#include "EventPrimitives.h"

#include <VistelManager.h>

#include "EntryDoor.h"
#include "VistelLibLoader.h"
#include "VistelLog.h"

namespace orv {

namespace {

// After the service refused a value the object is of no further use: destroy it here so the
// reporter can simply return.
void destroyEvent(const VistelLibLoader* loader, void*& eventObj) {
    loader->LINK_Vistel_Destroy_EventObj(eventObj);
    eventObj = nullptr;
}

// Calls the service with an object that is the caller's. Should the service throw instead of
// answering, the object is destroyed on the way out (it cannot be trusted any more), unless
// destroying throws too.
template <typename Call>
auto callWithObject(const VistelLibLoader* loader, void*& eventObj, Call call) {
    try {
        return call();
    } catch (...) {
        try {
            destroyEvent(loader, eventObj);
        } catch (...) {
            eventObj = nullptr;
        }
        throw;
    }
}

// The loader and the object an indexed setter or the send needs; logs what is missing.
bool haveLoaderAndObject(const char* function, const VistelLibLoader* loader, const void* eventObj) {
    if (loader == nullptr) {
        VISTEL_LOG_AT(ANDROID_LOG_ERROR, function, "%s() error: mLibLoader is NULL", function);
        return false;
    }
    if (eventObj == nullptr) {
        VISTEL_LOG_AT(ANDROID_LOG_ERROR, function, "%s() error: eventObj is NULL", function);
        return false;
    }
    return true;
}

// The named setters differ only in the value type and the two types each accepts.
template <typename Value, typename SetFn>
int setNamedParam(const char* function, const VistelLibLoader* loader, void*& eventObj,
                  const char* paramName, Value value, DATATYPE type, DATATYPE singleType,
                  SetFn single, DATATYPE arrayType, SetFn append) {
    if (paramName == nullptr || loader == nullptr || eventObj == nullptr) {
        VISTEL_LOG_AT(ANDROID_LOG_ERROR, function, "%s() error: input ptr is NULL", function);
        return -1;
    }
    SetFn set;
    if (type == singleType) {
        set = single;
    } else if (type == arrayType) {
        set = append;
    } else {
        // A type the overload does not take is the caller's mistake; the object stays its own.
        return -1;
    }
    int ret = callWithObject(loader, eventObj, [&] { return set(eventObj, paramName, value); });
    if (ret == 0) return 0;
    VISTEL_LOG_AT(ANDROID_LOG_ERROR, function,
                  "%s() error: LINK_Vistel_Set_Param() failed ret = %d, param(%s)", function, ret,
                  paramName);
    destroyEvent(loader, eventObj);
    return -1;
}

}  // namespace

namespace primitives {

int createEvent(const VistelLibLoader* loader, unsigned int eventId, void*& eventObj) {
    if (loader == nullptr) {
        VLOGE("%s() error: mLibLoader is NULL", __func__);
        return -1;
    }
    eventObj = loader->LINK_Vistel_Create_EventObj(eventId);
    if (eventObj != nullptr) return 0;
    VLOGE("%s() error: LINK_Vistel_Create_EventObj() return null, eventId(%d)", __func__, eventId);
    return -1;
}

int setEventParam(const VistelLibLoader* loader, void*& eventObj, unsigned short paramIndex,
                  long value) {
    if (!haveLoaderAndObject(__func__, loader, eventObj)) return -1;
    int ret = callWithObject(loader, eventObj, [&] {
        return loader->LINK_Vistel_Set_Param(eventObj, paramIndex, value);
    });
    if (ret == 0) return 0;
    VLOGE("%s() error: LINK_Vistel_Set_Param() failed ret = %d, paramIndex(%d) value(%ld)",
          __func__, ret, paramIndex, value);
    destroyEvent(loader, eventObj);
    return -1;
}

int SetEventParam(const VistelLibLoader* l, void*& eventObj, const char* paramName, long value,
                  DATATYPE type) {
    return setNamedParam(__func__, l, eventObj, paramName, value, type, TYPE_INT,
                         l ? l->LINK_Vistel_Set_Param_Integer_V2 : nullptr, TYPE_INT_ARRAY,
                         l ? l->LINK_Vistel_Fill_Array_Param_Integer_V2 : nullptr);
}

int SetEventParam(const VistelLibLoader* l, void*& eventObj, const char* paramName, float value,
                  DATATYPE type) {
    return setNamedParam(__func__, l, eventObj, paramName, value, type, TYPE_FLOAT,
                         l ? l->LINK_Vistel_Set_Param_Float_V2 : nullptr, TYPE_FLOAT_ARRAY,
                         l ? l->LINK_Vistel_Fill_Array_Param_Float_V2 : nullptr);
}

int SetEventParam(const VistelLibLoader* l, void*& eventObj, const char* paramName,
                  const char* value, DATATYPE type) {
    return setNamedParam(__func__, l, eventObj, paramName, value, type, TYPE_STRING,
                         l ? l->LINK_Vistel_Set_Param_String_V2 : nullptr, TYPE_STRING_ARRAY,
                         l ? l->LINK_Vistel_Fill_Array_Param_String_V2 : nullptr);
}

int sendEvent(const VistelLibLoader* loader, void*& eventObj) {
    if (!haveLoaderAndObject(__func__, loader, eventObj)) return -1;
    // Unlike the setters, the service's send answers non-zero on success.
    bool sent = callWithObject(loader, eventObj, [&] {
                    TraceSection section("LINK_Vistel_Send_Event");
                    return loader->LINK_Vistel_Send_Event(eventObj);
                }) != 0;
    if (!sent) VLOGE("%s() error: LINK_Vistel_Send_Event() failed", __func__);
    destroyEvent(loader, eventObj);
    return sent ? 0 : -1;
}

}  // namespace primitives

// The exported primitives: the same work, each behind its door.

int VistelManager::createEvent(unsigned int eventId, void*& eventObj) const {
    return enterCall(__func__, -1, -1,
                     [&] { return primitives::createEvent(mLibLoader, eventId, eventObj); });
}

int VistelManager::setEventParam(void*& eventObj, unsigned short paramIndex, long value) const {
    return enterCall(__func__, -1, -1, [&] {
        return primitives::setEventParam(mLibLoader, eventObj, paramIndex, value);
    });
}

int VistelManager::SetEventParam(void*& eventObj, const char* paramName, long value,
                                 DATATYPE type) const {
    return enterCall(__func__, -1, -1, [&] {
        return primitives::SetEventParam(mLibLoader, eventObj, paramName, value, type);
    });
}

int VistelManager::SetEventParam(void*& eventObj, const char* paramName, float value,
                                 DATATYPE type) const {
    return enterCall(__func__, -1, -1, [&] {
        return primitives::SetEventParam(mLibLoader, eventObj, paramName, value, type);
    });
}

int VistelManager::SetEventParam(void*& eventObj, const char* paramName, const char* value,
                                 DATATYPE type) const {
    return enterCall(__func__, -1, -1, [&] {
        return primitives::SetEventParam(mLibLoader, eventObj, paramName, value, type);
    });
}

int VistelManager::sendEvent(void*& eventObj) const {
    return enterCall(__func__, -1, -1, [&] { return primitives::sendEvent(mLibLoader, eventObj); });
}

}  // namespace orv
