#include "host/RuntimeContext.h"

namespace helion::host {

void* RuntimeContext::queryService(const char* name) {
    if (name == nullptr) {
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = services_.find(name);
    return found == services_.end() ? nullptr : found->second;
}

}  // namespace helion::host
