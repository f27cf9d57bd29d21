#pragma once
// The host's "EventBus": in-process publish/subscribe between the host and its modules.

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "corvid/IEventBus.h"

namespace helion::host {

class EventBus : public corvid::IEventBus {
public:
    using Handler = std::function<void(const std::string& topic, const std::string& content)>;
    using SubscriptionId = uint64_t;

    /// What a module publishes: logged, then handed to the subscribers of the topic and to those
    /// of every topic. True when at least one subscriber took it. Null texts are refused (false).
    bool publish(const char* topic, const char* content) override;

    /// Subscribes to one topic, or to every topic when topic is empty.
    SubscriptionId subscribe(const std::string& topic, Handler handler);
    void unsubscribe(SubscriptionId id);

private:
    struct Subscription {
        SubscriptionId id;
        std::string topic;
        Handler handler;
    };

    std::mutex mutex_;
    std::vector<Subscription> subscriptions_;
    SubscriptionId nextId_ = 1;
};

}  // namespace helion::host
