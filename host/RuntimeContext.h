#pragma once
// The service directory the host hands each module at will-load.

#include <map>
#include <mutex>
#include <string>

#include "corvid/IRunTimeContext.h"

namespace helion::host {

class RuntimeContext : public corvid::IRunTimeContext {
public:
    /// The service offered under name, as the interface pointer it was offered as; null if none.
    void* queryService(const char* name) override;

    /// Offers service under name; the caller keeps it alive for as long as modules may ask.
    template <typename Interface>
    void offer(const std::string& name, Interface* service) {
        std::lock_guard<std::mutex> lock(mutex_);
        // Stored as the interface pointer the module will static_cast back to.
        services_[name] = static_cast<void*>(service);
    }

private:
    std::mutex mutex_;
    std::map<std::string, void*> services_;
};

}  // namespace helion::host
