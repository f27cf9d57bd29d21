// A module that reports being handed back on the host's event bus, for the host's unload tests.
#include "corvid/IEventBus.h"
#include "corvid/IModule.h"
#include "corvid/IRunTimeContext.h"

struct CountedModule : corvid::IModule {
    void moduleWillLoadFinished(corvid::IRunTimeContext* context) override {
        bus = static_cast<corvid::IEventBus*>(context->queryService(corvid::kEventBusService));
    }
    void moduleDidLoadFinished() override {}
    void moduleWillUnloadFinished() override {}
    void moduleDidUnloadFinished() override {}
    int32_t modulePriority() override { return false; }
    const char* moduleGuid() override { return "counted"; }
    const char* moduleCapacities() override { return "{}"; }
    const char** moduleRouters() override { return nullptr; }
    bool moduleDidRecivedEventMessage(const char*, const char*) override { return true; }
    bool moduleDidRecivedHttpMessage(corvid::IRequest*, corvid::IResponse*) override {
        return false;
    }
    corvid::IEventBus* bus = nullptr;
};

extern "C" __attribute__((visibility("default"))) corvid::IModule* CreateInstance() {
    return new CountedModule;
}

extern "C" __attribute__((visibility("default"))) void FreeInstance(corvid::IModule* module) {
    static_cast<CountedModule*>(module)->bus->publish("freed", "");
    delete module;
}
