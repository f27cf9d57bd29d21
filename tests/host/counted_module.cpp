// A module that reports being handed back on the host's event bus, for the host's unload tests.
#include "corvid/IEventBus.h"
#include "corvid/IModule.h"
#include "corvid/IRunTimeContext.h"

using namespace corvid;

struct CountedModule : IModule {
    void moduleWillLoadFinished(IRunTimeContext* context) override {
        bus = static_cast<IEventBus*>(context->queryService(kEventBusService));
    }
    void moduleDidLoadFinished() override {}
    void moduleWillUnloadFinished() override {}
    void moduleDidUnloadFinished() override {}
    int32_t modulePriority() override { return 0; }
    const char* moduleGuid() override { return "counted"; }
    const char* moduleCapacities() override { return "{}"; }
    const char** moduleRouters() override { return nullptr; }
    bool moduleDidRecivedEventMessage(const char*, const char*) override { return true; }
    bool moduleDidRecivedHttpMessage(IRequest*, IResponse*) override { return false; }
    IEventBus* bus = nullptr;
};

extern "C" __attribute__((visibility("default"))) IModule* CreateInstance() {
    return new CountedModule;
}

extern "C" __attribute__((visibility("default"))) void FreeInstance(IModule* module) {
    static_cast<CountedModule*>(module)->bus->publish("freed", "");
    delete module;
}
