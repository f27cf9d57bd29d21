#pragma once
// Which RPC calls are running and how many have finished: what a stop that cannot wait names as
// abandoned, and what the watchdog takes as a sign that workers still get through their calls.

#include <thrift/TProcessor.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace helion::host {

class CallTracker : public apache::thrift::TProcessorEventHandler {
public:
    struct Running {
        std::string name;
        std::chrono::steady_clock::duration elapsed;
    };

    void* getContext(const char* name, void* serverContext) override;
    void freeContext(void* context, const char* name) override;

    /// The calls still running, oldest first.
    std::vector<Running> running() const;
    /// Calls finished so far (answered or failed).
    std::uint64_t finished() const;

private:
    struct Call {
        std::string name;
        std::chrono::steady_clock::time_point started;
    };

    mutable std::mutex mutex_;
    std::map<std::uint64_t, Call> calls_;
    std::uint64_t next_ = 1;
    std::uint64_t finished_ = 0;
};

}  // namespace helion::host
