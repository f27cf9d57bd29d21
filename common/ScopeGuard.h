#pragma once
// Runs a function when the scope ends, unless dismissed: closes handles on every exit path.

#include <functional>
#include <utility>

namespace corvid {

class ScopeGuard {
public:
    explicit ScopeGuard(std::function<void()> onExit) : onExit_(std::move(onExit)) {}
    // An empty function is skipped: calling it would throw out of a destructor.
    ~ScopeGuard() {
        if (!dismissed_ && onExit_) {
            onExit_();
        }
    }

    void dismiss() noexcept { dismissed_ = true; }

    ScopeGuard(const ScopeGuard&) = delete;
    ScopeGuard& operator=(const ScopeGuard&) = delete;

private:
    std::function<void()> onExit_;
    bool dismissed_ = false;
};

}  // namespace corvid
