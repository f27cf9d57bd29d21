#pragma once
// The lifecycle every plug-in goes through, in the order the host drives it.

#include "corvid/IObject.h"

namespace corvid {

class IRunTimeContext;

/// Lifecycle notifications; slots 3-6 after the destructor pair.
class IPluginBase : public virtual IObject {
public:
    /// Slot 3: the host hands over its runtime context; the plug-in takes its services here.
    virtual void moduleWillLoadFinished(IRunTimeContext* context) = 0;
    /// Slot 4: loading is complete.
    virtual void moduleDidLoadFinished() = 0;
    /// Slot 5: the host is about to unload the plug-in.
    virtual void moduleWillUnloadFinished() = 0;
    /// Slot 6: the plug-in has been unloaded.
    virtual void moduleDidUnloadFinished() = 0;
};

}  // namespace corvid
