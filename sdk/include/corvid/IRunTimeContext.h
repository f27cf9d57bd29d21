#pragma once
// The host's service directory, handed to a module at will-load.

namespace corvid {

/// Host services by name. No virtual destructor: the host owns it and the module never deletes it.
class IRunTimeContext {
public:
    /// Slot 1: the service registered under name ("RpcServer", "EventBus"), or null. The caller
    /// static_casts the answer to the interface it asked for; no RTTI crosses the boundary.
    virtual void* queryService(const char* name) = 0;

protected:
    ~IRunTimeContext() = default;
};

}  // namespace corvid
