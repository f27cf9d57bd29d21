#pragma once
// The host's event bus, offered in the runtime context as "EventBus".

#include "corvid/IObject.h"

namespace corvid {

/// Name under which the host offers its IEventBus.
inline constexpr const char* kEventBusService = "EventBus";

/// Publish/subscribe between the host and its modules.
class IEventBus : public IObject {
public:
    /// Slot 3: deliver (topic, content) to the host's subscribers; false when nobody took it.
    virtual bool publish(const char* topic, const char* content) = 0;
};

}  // namespace corvid
