// Host events into the module's event center, and the module's events out to the host's bus.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "SdpPromote/ModuleInstance.h"
#include "common/EventCenter.h"
#include "support/TestSupport.h"

namespace {

using corvid::details::EventCenter;
using helion::test::LogCapture;
using Event = std::pair<std::string, std::string>;

class EventIntake : public ::testing::Test {
protected:
    bool deliver(const char* topic, const char* content) {
        return ModuleInstance::shared().moduleDidRecivedEventMessage(topic, content);
    }
    std::vector<helion::test::LogLine> linesAtLeast(spdlog::level::level_enum level) const {
        std::vector<helion::test::LogLine> found;
        for (auto& line : log_.lines()) {
            if (line.level >= level) {
                found.push_back(line);
            }
        }
        return found;
    }

    LogCapture log_;
    EventCenter& center_ = EventCenter::shared();
};

TEST_F(EventIntake, EventWithoutSubscribersIsLoggedAtDebugWithoutItsContent) {
    EXPECT_FALSE(deliver("intake.idle", "secret-content"));
    const auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, spdlog::level::debug);
    EXPECT_NE(lines[0].text.find("[HelionPromote:moduleDidRecivedEventMessage:148]: "
                                 "receviced event: [intake.idle]"),
              std::string::npos);
    EXPECT_EQ(lines[0].text.find("secret-content"), std::string::npos);
}

TEST_F(EventIntake, FirstDispatchOfATopicAddsOneEntryAndLaterOnesNone) {
    const auto before = center_.topicCount();
    center_.dispatch("intake.new-topic", "1");
    EXPECT_EQ(center_.topicCount(), before + 1);
    center_.dispatch("intake.new-topic", "2");
    deliver("intake.new-topic", "3");
    EXPECT_EQ(center_.topicCount(), before + 1);
}

TEST_F(EventIntake, AllTopicsSubscribersHearEverythingBeforeTopicSubscribers) {
    std::vector<std::string> heard;
    boost::signals2::scoped_connection all =
        center_.subscribeAll([&](const std::string& topic, const std::string& content) {
            heard.push_back("all:" + topic + "=" + content);
        });
    boost::signals2::scoped_connection one = center_.subscribe(
        "intake.order", [&](const std::string& topic, const std::string& content) {
            heard.push_back("one:" + topic + "=" + content);
        });
    deliver("intake.order", "x");
    deliver("intake.other", "y");
    EXPECT_EQ(heard, (std::vector<std::string>{"all:intake.order=x", "one:intake.order=x",
                                               "all:intake.other=y"}));
}

TEST_F(EventIntake, SubscriberMayDispatchAgainOnTheSameThread) {
    std::vector<Event> heard;
    boost::signals2::scoped_connection outer =
        center_.subscribe("intake.outer", [&](const std::string&, const std::string& content) {
            center_.dispatch("intake.inner", content + "-again");
        });
    boost::signals2::scoped_connection inner = center_.subscribe(
        "intake.inner", [&](const std::string& topic, const std::string& content) {
            heard.emplace_back(topic, content);
        });
    EXPECT_FALSE(deliver("intake.outer", "ping"));
    EXPECT_EQ(heard, (std::vector<Event>{{"intake.inner", "ping-again"}}));
}

TEST_F(EventIntake, ThrowingSubscriberGivesOneWarnLinePerEventAndReleasesTheCenter) {
    bool topicSubscriberRan = false;
    {
        boost::signals2::scoped_connection all =
            center_.subscribeAll([](const std::string& topic, const std::string&) {
                if (topic == "intake.boom") {
                    throw std::runtime_error("subscriber gave up");
                }
                if (topic == "intake.odd") {
                    throw 42;
                }
            });
        boost::signals2::scoped_connection one = center_.subscribe(
            "intake.boom",
            [&](const std::string&, const std::string&) { topicSubscriberRan = true; });
        EXPECT_FALSE(deliver("intake.boom", "{\"k\":1}"));
        EXPECT_FALSE(deliver("intake.odd", "c"));  // anything thrown is caught
    }
    EXPECT_FALSE(topicSubscriberRan) << "an exception must leave dispatch at once";

    const auto warnings = linesAtLeast(spdlog::level::warn);
    ASSERT_EQ(warnings.size(), 2u);
    EXPECT_EQ(warnings[0].level, spdlog::level::warn);
    EXPECT_NE(warnings[0].text.find("[HelionPromote:moduleDidRecivedEventMessage:154]: "
                                    "occur exception when handle topic: intake.boom, "
                                    "content: {\"k\":1}; Reason: "),
              std::string::npos);
    EXPECT_NE(warnings[0].text.find("subscriber gave up"), std::string::npos);

    // The lock must have been released: another thread gets through.
    std::vector<Event> heard;
    boost::signals2::scoped_connection after = center_.subscribe(
        "intake.after", [&](const std::string& topic, const std::string& content) {
            heard.emplace_back(topic, content);
        });
    std::thread other([&] { center_.dispatch("intake.after", "ok"); });
    other.join();
    EXPECT_EQ(heard, (std::vector<Event>{{"intake.after", "ok"}}));
}

// The module keeps the context pointer for good, so the host objects outlive every test.
struct Host {
    helion::test::FakeRpcServer rpc;
    helion::test::FakeEventBus bus;
    helion::test::FakeRuntimeContext context;
};

Host& loadedHost() {
    static Host host;
    static const bool loaded = [] {
        host.context.services["RpcServer"] = static_cast<corvid::IRpcServer*>(&host.rpc);
        host.context.services["EventBus"] = static_cast<corvid::IEventBus*>(&host.bus);
        ModuleInstance::shared().moduleWillLoadFinished(&host.context);
        return true;
    }();
    (void)loaded;
    return host;
}

TEST(EventBroadcast, ReachesTheHostBusOnceLoadedAndPassesItsAnswerBack) {
    Host& host = loadedHost();
    host.bus.published.clear();
    host.bus.answer = true;
    EXPECT_TRUE(EventCenter::broadcast("module.topic", "{\"state\":\"up\"}"));
    host.bus.answer = false;
    EXPECT_FALSE(EventCenter::broadcast("module.second", ""));
    EXPECT_EQ(host.bus.published,
              (std::vector<Event>{{"module.topic", "{\"state\":\"up\"}"}, {"module.second", ""}}));
}

TEST(EventBroadcast, ContextWithoutABusPublishesNothing) {
    Host& host = loadedHost();
    host.bus.published.clear();
    host.context.services.erase("EventBus");
    EXPECT_FALSE(EventCenter::broadcast("module.topic", "c"));
    host.context.services["EventBus"] = static_cast<corvid::IEventBus*>(&host.bus);
    EXPECT_TRUE(host.bus.published.empty());
}

}  // namespace
