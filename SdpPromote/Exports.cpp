// The module's only exported symbols.
#include "SdpPromote/ModuleInstance.h"

extern "C" __attribute__((visibility("default"))) corvid::IModule* CreateInstance() {
    return &ModuleInstance::shared();
}

// The singleton lives until process exit; handing it back changes nothing.
extern "C" __attribute__((visibility("default"))) void FreeInstance(corvid::IModule*) {}
