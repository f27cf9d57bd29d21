// Host events into the module's event center: fan-out order, re-entry and throwing subscribers.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "SdpPromote/ModuleInstance.h"
#include "common/EventCenter.h"
#include "support/TestSupport.h"

namespace {

using corvid::details::EventCenter;

class Events : public ::testing::Test {
protected:
    bool deliver(const char* topic, const char* content) {
        return ModuleInstance::shared().moduleDidRecivedEventMessage(topic, content);
    }
    // A subscriber that records "<tag>:<topic>=<content>".
    EventCenter::Signal::slot_type record(const std::string& tag) {
        return [this, tag](const std::string& topic, const std::string& content) {
            heard_.push_back(tag + ":" + topic + "=" + content);
        };
    }

    helion::test::LogCapture log_{spdlog::level::info};  // debug intake lines are pinned elsewhere
    EventCenter& center_ = EventCenter::shared();
    std::vector<std::string> heard_;
};

TEST_F(Events, FanOutAllTopicsFirstThenTheTopicReentrantOnOneThread) {
    const auto before = center_.topicCount();
    center_.dispatch("fan.new", "1");
    EXPECT_EQ(center_.topicCount(), before + 1);
    boost::signals2::scoped_connection all = center_.subscribeAll(record("all"));
    boost::signals2::scoped_connection one = center_.subscribe("fan.new", record("one"));
    boost::signals2::scoped_connection outer =
        center_.subscribe("fan.outer", [&](const std::string&, const std::string& content) {
            center_.dispatch("fan.new", content + "-again");
        });
    EXPECT_FALSE(deliver("fan.new", "x"));
    EXPECT_FALSE(deliver("fan.outer", "y"));
    EXPECT_EQ(center_.topicCount(), before + 2);
    EXPECT_EQ(heard_, (std::vector<std::string>{"all:fan.new=x", "one:fan.new=x", "all:fan.outer=y",
                                                "all:fan.new=y-again", "one:fan.new=y-again"}));
}

TEST_F(Events, AThrowingSubscriberGivesOneWarnLineAndReleasesTheCenter) {
    {
        boost::signals2::scoped_connection all =
            center_.subscribeAll([reason = std::string("subscriber gave up")](
                                     const std::string& topic, const std::string&) {
                if (topic == "boom") {
                    throw std::runtime_error(reason);
                }
                throw 42;
            });
        boost::signals2::scoped_connection one = center_.subscribe("boom", record("one"));
        EXPECT_FALSE(deliver("boom", "{\"k\":1}"));
        EXPECT_FALSE(deliver("odd", "c"));
    }
    EXPECT_TRUE(heard_.empty()) << "an exception leaves dispatch at once";
    const auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].level, spdlog::level::warn);
    const std::string head =
        "[HelionPromote:moduleDidRecivedEventMessage:154]: occur exception "
        "when handle topic: boom, content: {\"k\":1}; Reason: ";
    EXPECT_EQ(lines[0].text.substr(0, head.size()), head);
    EXPECT_NE(lines[0].text.find("subscriber gave up"), std::string::npos);
}

}  // namespace
