#include "common/EventCenter.h"

#include "corvid/IEventBus.h"
#include "corvid/IRunTimeContext.h"

namespace corvid::details {

EventCenter& EventCenter::shared() {
    static EventCenter instance;
    return instance;
}

void EventCenter::dispatch(const std::string& topic, const std::string& content) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    allTopics_(topic, content);
    topicSignals_[topic](topic, content);
}

bool EventCenter::broadcast(const char* topic, const char* content) {
    IRunTimeContext* context = shared().hostContext_;
    if (context == nullptr) {
        return false;
    }
    auto* bus = static_cast<IEventBus*>(context->queryService(kEventBusService));
    if (bus == nullptr) {
        return false;
    }
    return bus->publish(topic, content);
}

boost::signals2::connection EventCenter::subscribeAll(const Signal::slot_type& slot) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    return allTopics_.connect(slot);
}

boost::signals2::connection EventCenter::subscribe(const std::string& topic,
                                                   const Signal::slot_type& slot) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    return topicSignals_[topic].connect(slot);
}

std::size_t EventCenter::topicCount() const {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    return topicSignals_.size();
}

}  // namespace corvid::details
