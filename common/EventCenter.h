#pragma once
// In-process fan-out of host events, and the way out to the host's event bus.

#include <atomic>
#include <boost/signals2/signal.hpp>
#include <map>
#include <mutex>
#include <string>

namespace corvid {
class IRunTimeContext;
}

namespace corvid::details {

class EventCenter {
public:
    using Signal =
        boost::signals2::signal<void(const std::string& topic, const std::string& content)>;

    /// The process-wide event center.
    static EventCenter& shared();

    /// Delivers one event: first to the all-topics signal, then to the topic's own signal.
    /// Serialised; a subscriber may dispatch again on the same thread.
    void dispatch(const std::string& topic, const std::string& content);

    /// Publishes to the host's "EventBus"; false when the module is not loaded or there is no bus.
    static bool broadcast(const char* topic, const char* content);
    /// The way out for broadcast: the host's runtime context, handed over as the module loads.
    void connectHost(IRunTimeContext* context) { hostContext_ = context; }

    /// Subscribes to every topic.
    boost::signals2::connection subscribeAll(const Signal::slot_type& slot);
    /// Subscribes to one topic.
    boost::signals2::connection subscribe(const std::string& topic, const Signal::slot_type& slot);
    /// Number of topics that have a signal.
    std::size_t topicCount() const;

private:
    EventCenter() = default;

    std::map<std::string, Signal> topicSignals_;
    Signal allTopics_;
    mutable std::recursive_mutex mutex_;
    /// Read by broadcast without the mutex, which only guards the signals.
    std::atomic<IRunTimeContext*> hostContext_{nullptr};
};

}  // namespace corvid::details
