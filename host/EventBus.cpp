#include "host/EventBus.h"

#include <exception>

#include "host/HostLog.h"

namespace helion::host {

bool EventBus::publish(const char* topic, const char* content) {
    if (topic == nullptr || content == nullptr) {
        HOST_LOG(spdlog::level::warn, "refused an event without {}",
                 topic == nullptr ? "topic" : "content");
        return false;
    }
    HOST_LOG(spdlog::level::info, "module published event topic: [{}], content: [{}]", topic,
             content);
    std::vector<Handler> handlers;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& subscription : subscriptions_) {
            if (subscription.topic.empty() || subscription.topic == topic) {
                handlers.push_back(subscription.handler);
            }
        }
    }
    // Handlers run unlocked, so one may publish or subscribe in turn.
    const std::string topicText(topic);
    const std::string contentText(content);
    for (const auto& handler : handlers) {
        try {
            handler(topicText, contentText);
        } catch (const std::exception& error) {
            HOST_LOG(spdlog::level::warn, "subscriber of [{}] failed; Reason: {}", topicText,
                     error.what());
        } catch (...) {
            HOST_LOG(spdlog::level::warn, "subscriber of [{}] failed; Reason: unknown exception",
                     topicText);
        }
    }
    return !handlers.empty();
}

EventBus::SubscriptionId EventBus::subscribe(const std::string& topic, Handler handler) {
    std::lock_guard<std::mutex> lock(mutex_);
    const SubscriptionId id = nextId_++;
    subscriptions_.push_back({id, topic, std::move(handler)});
    return id;
}

void EventBus::unsubscribe(SubscriptionId id) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = subscriptions_.begin(); it != subscriptions_.end(); ++it) {
        if (it->id == id) {
            subscriptions_.erase(it);
            return;
        }
    }
}

}  // namespace helion::host
