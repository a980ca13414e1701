// The primitives' work, for the reporters: create, set and send a Vistel event through the bound
// service, without a door of their own (a reporter already holds its pass). The exported
// primitives of VistelManager are these, each behind its door. 0 on success, -1 on failure; a
// step that fails has logged why under `function` and, where the service refused a value or
// threw, destroyed the object and cleared the handle.
#pragma once

#include <VistelManager.h>

namespace orv {

class VistelLibLoader;

struct PrimitiveAccess {
    static const VistelLibLoader* loader(const VistelManager& manager) {
        return manager.mLibLoader;
    }
};

namespace primitives {

int createEvent(const VistelLibLoader* loader, unsigned int eventId, void*& eventObj);
int setEventParam(const VistelLibLoader* loader, void*& eventObj, unsigned short paramIndex,
                  long value);
int SetEventParam(const VistelLibLoader* loader, void*& eventObj, const char* paramName, long value,
                  DATATYPE type);
int SetEventParam(const VistelLibLoader* loader, void*& eventObj, const char* paramName,
                  float value, DATATYPE type);
int SetEventParam(const VistelLibLoader* loader, void*& eventObj, const char* paramName,
                  const char* value, DATATYPE type);
int sendEvent(const VistelLibLoader* loader, void*& eventObj);

}  // namespace primitives
}  // namespace orv
