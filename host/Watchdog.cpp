#include "host/Watchdog.h"

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cstdint>

#include "host/HostLog.h"

namespace helion::host {

Watchdog::Watchdog(std::chrono::microseconds interval, Check alive) : alive_(std::move(alive)) {
    const auto period =
        std::max(std::chrono::duration_cast<std::chrono::milliseconds>(interval / 2),
                 std::chrono::milliseconds(1));
    thread_ = std::thread([this, period] { run(period); });
}

Watchdog::~Watchdog() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

std::optional<std::chrono::microseconds> Watchdog::requested() {
    std::uint64_t usec = 0;
    // 1: the variables go, so programs the module starts do not think they are watched.
    if (sd_watchdog_enabled(1, &usec) <= 0 || usec == 0) {
        return std::nullopt;
    }
    return std::chrono::microseconds(usec);
}

void Watchdog::run(std::chrono::milliseconds period) {
    bool failing = false;
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopping_) {
        const auto next = std::chrono::steady_clock::now() + period;
        lock.unlock();
        const bool alive = alive_(period);
        if (alive) {
            sd_notify(0, "WATCHDOG=1");
        }
        if (alive && failing) {
            HOST_LOG(spdlog::level::info, "RPC workers answer again; watchdog fed");
        } else if (!alive && !failing) {
            HOST_LOG(spdlog::level::err,
                     "RPC workers did not answer within {} ms; watchdog not fed", period.count());
        }
        failing = !alive;
        lock.lock();
        wake_.wait_until(lock, next, [this] { return stopping_; });
    }
}

}  // namespace helion::host
