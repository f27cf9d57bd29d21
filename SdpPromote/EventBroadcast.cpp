// EventCenter's way out: it needs the module's runtime context, so it lives with the module.
#include "SdpPromote/ModuleInstance.h"
#include "common/EventCenter.h"
#include "corvid/IEventBus.h"

namespace corvid::details {

bool EventCenter::broadcast(const char* topic, const char* content) {
    IRunTimeContext* context = ModuleInstance::shared().getRuntimeContext();
    if (context == nullptr) {
        return false;
    }
    auto* bus = static_cast<IEventBus*>(context->queryService(kEventBusService));
    if (bus == nullptr) {
        return false;
    }
    return bus->publish(topic, content);
}

}  // namespace corvid::details
