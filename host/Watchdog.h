#pragma once
// The service manager's watchdog: WATCHDOG=1 only while a check of real work passes, so that a
// host whose workers are all stuck is restarted instead of kept for ever.

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace helion::host {

class Watchdog {
public:
    /// alive(wait) must answer within about wait. It is asked every interval / 2.
    using Check = std::function<bool(std::chrono::milliseconds wait)>;

    Watchdog(std::chrono::microseconds interval, Check alive);
    /// Stops asking; returns once the thread has ended.
    ~Watchdog();

    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    /// The interval the service manager asked this process for, if any.
    static std::optional<std::chrono::microseconds> requested();

private:
    void run(std::chrono::milliseconds period);

    Check alive_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace helion::host
