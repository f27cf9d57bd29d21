// Before the host loads the module there is nowhere to publish to. Kept in its own executable:
// the module is a process-wide singleton and must never have been loaded here.
#include <gtest/gtest.h>

#include "SdpPromote/ModuleInstance.h"
#include "common/EventCenter.h"
#include "support/TestSupport.h"

namespace {

TEST(EventBroadcastBeforeLoad, DoesNothingAndEventsStillArrive) {
    helion::test::LogCapture log;
    ASSERT_EQ(ModuleInstance::shared().getRuntimeContext(), nullptr);
    EXPECT_FALSE(corvid::details::EventCenter::broadcast("module.topic", "content"));
    EXPECT_TRUE(log.lines().empty());

    std::string heard;
    boost::signals2::scoped_connection one = corvid::details::EventCenter::shared().subscribe(
        "host.topic", [&](const std::string&, const std::string& content) { heard = content; });
    EXPECT_FALSE(ModuleInstance::shared().moduleDidRecivedEventMessage("host.topic", "early"));
    EXPECT_EQ(heard, "early");
}

}  // namespace
