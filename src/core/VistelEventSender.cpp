#include "VistelEventSender.h"

#include "EventPrimitives.h"

namespace orv {

namespace {

int setParam(const VistelLibLoader* loader, void*& eventObj, const VistelParam& param) {
    switch (param.form) {
        case VistelParam::Form::kIndexed:
            return primitives::setEventParam(loader, eventObj, param.index, param.longValue);
        case VistelParam::Form::kInteger:
            return primitives::SetEventParam(loader, eventObj, param.name, param.longValue,
                                             param.type);
        case VistelParam::Form::kFloat:
            return primitives::SetEventParam(loader, eventObj, param.name, param.floatValue,
                                             param.type);
        case VistelParam::Form::kText:
            return primitives::SetEventParam(loader, eventObj, param.name, param.textValue,
                                             param.type);
    }
    return -1;
}

}  // namespace

int sendVistelEvent(const VistelManager& manager, unsigned int eventId, const VistelParam* params,
                    size_t count) {
    // The reporter calling this is inside its door already.
    const VistelLibLoader* loader = PrimitiveAccess::loader(manager);
    void* eventObj = nullptr;
    if (primitives::createEvent(loader, eventId, eventObj) != 0) return -1;
    for (size_t i = 0; i < count; ++i) {
        if (setParam(loader, eventObj, params[i]) != 0) return -1;
    }
    return primitives::sendEvent(loader, eventObj) == 0 ? 0 : -1;
}

}  // namespace orv
