#pragma once
// The module object the host drives: identity, lifecycle, RPC registration, HTTP and event intake.

#include <cstdint>

#include "corvid/IModule.h"
#include "corvid/IRunTimeContext.h"
#include "http/HttpRouter.h"

class ModuleInstance : public corvid::IModule {
public:
    /// The one instance, built on first use and destroyed at process exit.
    static ModuleInstance& shared();

    void moduleWillLoadFinished(corvid::IRunTimeContext* context) override;
    void moduleDidLoadFinished() override;
    void moduleWillUnloadFinished() override;
    void moduleDidUnloadFinished() override;
    int32_t modulePriority() override;
    const char* moduleGuid() override;
    const char* moduleCapacities() override;
    const char** moduleRouters() override;
    bool moduleDidRecivedEventMessage(const char* topic, const char* content) override;
    bool moduleDidRecivedHttpMessage(corvid::IRequest* req, corvid::IResponse* resp) override;

    /// The host's context, null until loading.
    corvid::IRunTimeContext* getRuntimeContext() const { return context_; }
    /// The module's HTTP routes; add them before the first request and moduleRouters call.
    corvid::HttpRouter& router() { return router_; }

    ModuleInstance(const ModuleInstance&) = delete;
    ModuleInstance& operator=(const ModuleInstance&) = delete;

private:
    ModuleInstance() = default;
    ~ModuleInstance() override = default;

    corvid::HttpRouter router_;
    corvid::IRunTimeContext* context_ = nullptr;
};
