// Routes added to the module's router before the host first asks for them. moduleRouters keeps
// what it saw on its first call, so this runs apart from the route-less module tests.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "SdpPromote/ModuleInstance.h"
#include "support/TestSupport.h"

namespace {

using corvid::HttpRouter;
using helion::test::FakeRequest;
using helion::test::FakeResponse;
using helion::test::LogCapture;

class ModuleWithRoutes : public ::testing::Environment {
public:
    void SetUp() override {
        HttpRouter& router = ModuleInstance::shared().router();
        router.addRoute(
            HttpRouter::Post, "/api/update", "/api/update",
            [](corvid::IRequest*, corvid::IResponse*) { throw std::string("bad body"); });
        router.addRoute(HttpRouter::Get, "/api/fail", "/api/fail",
                        [](corvid::IRequest*, corvid::IResponse*) {
                            throw std::runtime_error("disk on fire");
                        });
        router.addRoute(HttpRouter::Get, "/api/ok", "/api/ok",
                        [](corvid::IRequest*, corvid::IResponse* resp) {
                            resp->setStatus(200);
                            resp->setContent("ok", 1);
                        });
    }
};

const auto* const environment = ::testing::AddGlobalTestEnvironment(new ModuleWithRoutes);

TEST(ModuleRoutes, ArrayListsTheKeysInRouteOrderAndIsBuiltOnce) {
    corvid::IModule* module = CreateInstance();
    const char** routes = module->moduleRouters();
    ASSERT_NE(routes, nullptr);
    EXPECT_STREQ(routes[0], "/api/update");
    EXPECT_STREQ(routes[1], "/api/fail");
    EXPECT_STREQ(routes[2], "/api/ok");
    EXPECT_EQ(routes[3], nullptr);

    ModuleInstance::shared().router().addRoute(HttpRouter::Get, "/late", "/late", nullptr);
    EXPECT_EQ(module->moduleRouters(), routes);
    EXPECT_EQ(routes[3], nullptr);
}

TEST(ModuleRoutes, AHandlerFailureIsAnsweredAndLoggedWithTheUrlAsReceived) {
    LogCapture log;
    FakeRequest request("POST", "\\API\\Update", "{}");
    FakeResponse response;
    EXPECT_FALSE(ModuleInstance::shared().moduleDidRecivedHttpMessage(&request, &response));
    EXPECT_EQ(response.status, 400);
    EXPECT_EQ(response.content, "bad body");

    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, spdlog::level::err);
    EXPECT_EQ(lines[0].text.rfind("[HelionPromote:moduleDidRecivedHttpMessage:173]: Handle http "
                                  "request '\\API\\Update' failure; Reason: ",
                                  0),
              0U)
        << lines[0].text;
}

TEST(ModuleRoutes, AStandardExceptionIsA500WhoseReasonCarriesItsText) {
    LogCapture log;
    FakeRequest request("get", "/api/fail");
    FakeResponse response;
    EXPECT_FALSE(ModuleInstance::shared().moduleDidRecivedHttpMessage(&request, &response));
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.content, "disk on fire");
    ASSERT_EQ(log.matching("Handle http request '/api/fail' failure; Reason: ").size(), 1U);
    EXPECT_TRUE(log.contains("disk on fire"));
}

TEST(ModuleRoutes, ASuccessfulHandlerLogsNothing) {
    LogCapture log;
    FakeRequest request("GET", "/API/OK");
    FakeResponse response;
    EXPECT_FALSE(ModuleInstance::shared().moduleDidRecivedHttpMessage(&request, &response));
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.content, "ok");
    EXPECT_TRUE(log.lines().empty());
}

}  // namespace
