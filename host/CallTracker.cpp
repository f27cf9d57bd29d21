#include "host/CallTracker.h"

namespace helion::host {

void* CallTracker::getContext(const char* name, void*) {
    std::lock_guard<std::mutex> lock(mutex_);
    const std::uint64_t id = next_++;
    calls_.emplace(id, Call{name != nullptr ? name : "?", std::chrono::steady_clock::now()});
    // The id travels as the context pointer; it is never dereferenced.
    return reinterpret_cast<void*>(static_cast<std::uintptr_t>(id));
}

void CallTracker::freeContext(void* context, const char*) {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.erase(static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(context)));
    ++finished_;
}

std::vector<CallTracker::Running> CallTracker::running() const {
    const auto now = std::chrono::steady_clock::now();
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<Running> result;
    for (const auto& [id, call] : calls_) {
        result.push_back({call.name, now - call.started});
    }
    return result;
}

std::uint64_t CallTracker::finished() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return finished_;
}

}  // namespace helion::host
