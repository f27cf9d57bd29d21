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

// Failures are logged once with the URL as received; success logs nothing.
TEST(ModuleRoutes, HandlerOutcomesAreAnsweredAndFailuresLogged) {
    const struct {
        const char* method;
        const char* url;
        int status;
        const char* content;
    } cases[] = {{"POST", "\\API\\Update", 400, "bad body"},
                 {"get", "/api/fail", 500, "disk on fire"},
                 {"GET", "/API/OK", 200, "ok"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.url);
        LogCapture log;
        FakeRequest request(c.method, c.url, "{}");
        FakeResponse response;
        EXPECT_FALSE(ModuleInstance::shared().moduleDidRecivedHttpMessage(&request, &response));
        EXPECT_EQ(response.status, c.status);
        EXPECT_EQ(response.content, c.content);
        const auto lines = log.lines();
        ASSERT_EQ(lines.size(), c.status == 200 ? 0U : 1U);
        if (c.status != 200) {
            EXPECT_EQ(lines[0].level, spdlog::level::err);
            EXPECT_EQ(lines[0].text.rfind(std::string("[HelionPromote:moduleDidRecivedHttpMessage:"
                                                      "173]: Handle http request '") +
                                              c.url + "' failure; Reason: ",
                                          0),
                      0U)
                << lines[0].text;
            if (c.status == 500) {
                EXPECT_NE(lines[0].text.find(c.content), std::string::npos);
            }
        }
    }
}

}  // namespace
