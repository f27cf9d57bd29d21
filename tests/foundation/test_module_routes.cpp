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
    router.addRoute(HttpRouter::Post, "/api/update", "/api/update",
                    [](corvid::IRequest*, corvid::IResponse*) { throw std::string("bad body"); });
    router.addRoute(
        HttpRouter::Get, "/api/fail", "/api/fail",
        [](corvid::IRequest*, corvid::IResponse*) { throw std::runtime_error("disk on fire"); });
    router.addRoute(HttpRouter::Get, "/api/ok", "/api/ok",
                    [](corvid::IRequest*, corvid::IResponse* resp) { resp->setStatus(200); });

    const char** routes = CreateInstance()->moduleRouters();
    router.addRoute(HttpRouter::Get, "/late", "/late", nullptr);
    ASSERT_EQ(CreateInstance()->moduleRouters(), routes);
    EXPECT_EQ(std::vector<std::string>(routes, routes + 3),
              (std::vector<std::string>{"/api/update", "/api/fail", "/api/ok"}));
    EXPECT_EQ(routes[3], nullptr);

    // Failures are logged once with the URL as received; success logs nothing.
    const struct {
        const char *method, *url;
        int status;
        const char* reason;
    } cases[] = {{"POST", "\\API\\Update", 400, ""},
                 {"get", "/api/fail", 500, "disk on fire"},
                 {"GET", "/API/OK", 200, nullptr}};
    for (const auto& c : cases) {
        helion::test::LogCapture log;
        helion::test::FakeRequest request(c.method, c.url, "{}");
        helion::test::FakeResponse response;
        EXPECT_FALSE(ModuleInstance::shared().moduleDidRecivedHttpMessage(&request, &response));
        EXPECT_EQ(response.status, c.status);
        const auto lines = log.lines();
        ASSERT_EQ(lines.size(), c.reason != nullptr ? 1U : 0U) << c.url;
        const std::string head =
            "[HelionPromote:moduleDidRecivedHttpMessage:173]: Handle http "
            "request '" +
            std::string(c.url) + "' failure; Reason: ";
        if (c.reason != nullptr) {
            EXPECT_EQ(lines[0].level, spdlog::level::err);
            EXPECT_EQ(lines[0].text.substr(0, head.size()), head);
            EXPECT_NE(lines[0].text.find(c.reason, head.size()), std::string::npos);
        }
    }
}

}  // namespace
