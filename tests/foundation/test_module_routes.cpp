// Routes added to the module's router before the host first asks for them. moduleRouters keeps
// what it saw on its first call, so this runs apart from the route-less module tests.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "SdpPromote/ModuleInstance.h"
#include "support/TestSupport.h"

namespace {

using corvid::HttpRouter;

TEST(ModuleRoutes, AreListedOnceAndFailuresAreAnsweredAndLogged) {
    HttpRouter& router = ModuleInstance::shared().router();
    router.addRoute(
        HttpRouter::Post, "/api/update", "/api/update",
        [](corvid::IRequest*, corvid::IResponse*) { throw std::runtime_error("disk on fire"); });
    router.addRoute(HttpRouter::Get, "/api/ok", "/api/ok",
                    [](corvid::IRequest*, corvid::IResponse* resp) { resp->setStatus(200); });

    const char** routes = CreateInstance()->moduleRouters();
    router.addRoute(HttpRouter::Get, "/late", "/late", nullptr);
    ASSERT_EQ(CreateInstance()->moduleRouters(), routes);
    EXPECT_EQ(std::vector<std::string>(routes, routes + 2),
              (std::vector<std::string>{"/api/update", "/api/ok"}));
    EXPECT_EQ(routes[2], nullptr);

    // A failure is logged once with the URL as received; success logs nothing.
    const auto send = [](const char* method, const char* url, int status) {
        helion::test::LogCapture log;
        helion::test::FakeRequest request(method, url, "{}");
        helion::test::FakeResponse response;
        EXPECT_FALSE(ModuleInstance::shared().moduleDidRecivedHttpMessage(&request, &response));
        EXPECT_EQ(response.status, status) << url;
        return log.lines();
    };
    EXPECT_TRUE(send("GET", "/API/OK", 200).empty());
    const auto lines = send("post", "\\API\\Update", 500);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, spdlog::level::err);
    EXPECT_EQ(lines[0].text.find("[HelionPromote:moduleDidRecivedHttpMessage:173]: Handle http "
                                 "request '\\API\\Update' failure; Reason: "),
              0U);
    EXPECT_NE(lines[0].text.find("disk on fire"), std::string::npos);
}

}  // namespace
