#pragma once
// The interface a module library hands to the host through CreateInstance.

#include <cstdint>

#include "corvid/IPluginBase.h"

namespace corvid {

class IRequest;
class IResponse;

/// A loadable module: identity, HTTP routes and event intake; slots 7-12.
class IModule : public virtual IPluginBase {
public:
    /// Slot 7: load order among modules; lower loads first.
    virtual int32_t modulePriority() = 0;
    /// Slot 8: the module's GUID, a static string.
    virtual const char* moduleGuid() = 0;
    /// Slot 9: the module's capacities JSON text, a static string.
    virtual const char* moduleCapacities() = 0;
    /// Slot 10: null-terminated array of the HTTP route keys the module serves.
    virtual const char** moduleRouters() = 0;
    /// Slot 11: an event published on the host's bus.
    virtual bool moduleDidRecivedEventMessage(const char* topic, const char* content) = 0;
    /// Slot 12: an HTTP request addressed to one of the module's routes.
    virtual bool moduleDidRecivedHttpMessage(IRequest* req, IResponse* resp) = 0;
};

}  // namespace corvid

extern "C" {
/// Returns the module object; every call returns the same one.
corvid::IModule* CreateInstance();
/// Hands the module object back; the module decides what that means.
void FreeInstance(corvid::IModule* module);
}

namespace corvid {
/// Types of the two entry points, for dlsym.
using CreateInstanceFn = IModule* (*)();
using FreeInstanceFn = void (*)(IModule*);
}  // namespace corvid
