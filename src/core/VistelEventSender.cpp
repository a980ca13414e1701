#include "VistelEventSender.h"

namespace orv {

namespace {

int setParam(const VistelManager& manager, void*& eventObj, const VistelParam& param) {
    switch (param.form) {
        case VistelParam::Form::kIndexed:
            return manager.setEventParam(eventObj, param.index, param.longValue);
        case VistelParam::Form::kInteger:
            return manager.SetEventParam(eventObj, param.name, param.longValue, param.type);
        case VistelParam::Form::kFloat:
            return manager.SetEventParam(eventObj, param.name, param.floatValue, param.type);
        case VistelParam::Form::kText:
            return manager.SetEventParam(eventObj, param.name, param.textValue, param.type);
    }
    return -1;
}

}  // namespace

int sendVistelEvent(const VistelManager& manager, unsigned int eventId, const VistelParam* params,
                    size_t count) {
    void* eventObj = nullptr;
    if (manager.createEvent(eventId, eventObj) != 0) return -1;
    for (size_t i = 0; i < count; ++i) {
        if (setParam(manager, eventObj, params[i]) != 0) return -1;
    }
    return manager.sendEvent(eventObj) == 0 ? 0 : -1;
}

}  // namespace orv
