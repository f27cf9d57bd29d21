// Dispatch of HTTP requests: normalisation, the three passes, body checks and how failures are
// answered.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "http/HttpRouter.h"
#include "support/TestSupport.h"

namespace {

using corvid::HttpRouter;
using helion::test::FakeRequest;
using helion::test::FakeResponse;

constexpr const char* kRequireName = R"({"type":"object","required":["name"]})";

class Router : public ::testing::Test {
protected:
    // A route whose handler records its name and answers 200.
    void route(HttpRouter::HttpMethod method, const std::string& key, const std::string& pattern,
               const std::string& schema = std::string()) {
        router_.addRoute(
            method, key, pattern,
            [this, key](corvid::IRequest*, corvid::IResponse* resp) {
                ran_.push_back(key);
                resp->setStatus(200);
                resp->setContent(key.c_str(), 1);
            },
            schema);
    }

    FakeResponse send(const std::string& method, const std::string& url,
                      const std::string& body = std::string()) {
        FakeRequest request(method, url, body);
        FakeResponse response;
        router_.apply(&request, &response);
        return response;
    }

    // Sends a request whose dispatch must throw; returns the response written before it did.
    template <typename Thrown>
    FakeResponse sendExpectingThrow(const std::string& method, const std::string& url,
                                    const std::string& body = std::string()) {
        FakeRequest request(method, url, body);
        FakeResponse response;
        EXPECT_THROW(router_.apply(&request, &response), Thrown);
        return response;
    }

    HttpRouter router_;
    std::vector<std::string> ran_;
};

TEST(RouterText, TransformTurnsBackslashesAndLowerCases) {
    EXPECT_EQ(HttpRouter::transform("\\API\\Update"), "/api/update");
    EXPECT_EQ(HttpRouter::transform("/Mixed/CASE_1?Q=A"), "/mixed/case_1?q=a");
    EXPECT_EQ(HttpRouter::transform(""), "");
}

TEST(RouterText, MethodNamesAreTheFourKnownOnesInAnyCase) {
    const std::pair<const char*, HttpRouter::HttpMethod> names[] = {
        {"GET", HttpRouter::Get},          {"get", HttpRouter::Get},
        {"HeAd", HttpRouter::Head},        {"Post", HttpRouter::Post},
        {"PUT", HttpRouter::Put},          {"delete", HttpRouter::Unknown},
        {"", HttpRouter::Unknown},         {"get ", HttpRouter::Unknown},
        {"anymethod", HttpRouter::Unknown}};
    for (const auto& [name, method] : names) {
        EXPECT_EQ(HttpRouter::method(name), method) << name;
    }
}

TEST_F(Router, WithoutRoutesEverythingIsServiceUnavailable) {
    for (const char* method : {"GET", "POST", "DELETE", "bogus"}) {
        const auto response = send(method, "/anything", "not json");
        EXPECT_EQ(response.status, 503);
        EXPECT_EQ(response.content, "Service Unavailable");
        EXPECT_EQ(response.contentFlag, 1);
    }
}

TEST_F(Router, KeysAreListedInRouteOrder) {
    route(HttpRouter::CatchAll, "/z", ".*");
    route(HttpRouter::Get, "/a", "/a");
    route(HttpRouter::AnyMethod, "/m", "/m");
    EXPECT_EQ(router_.getKeys(), (std::vector<std::string>{"/z", "/a", "/m"}));
}

TEST_F(Router, PathsAreNormalisedAndMatchedWhole) {
    route(HttpRouter::Post, "/api/update", "/api/update");
    EXPECT_EQ(send("POST", "\\API\\Update").content, "/api/update");
    EXPECT_EQ(send("POST", "/api/update/more").status, 503);
    EXPECT_EQ(send("POST", "/x/api/update").status, 503);
    EXPECT_EQ(send("GET", "/api/update").status, 503);
}

TEST_F(Router, TheFirstMatchingRecordWins) {
    route(HttpRouter::Post, "first", "/api/.*");
    route(HttpRouter::Post, "second", "/api/update");
    EXPECT_EQ(send("POST", "/api/update").content, "first");
    EXPECT_EQ(ran_, std::vector<std::string>{"first"});
}

TEST_F(Router, PassesRunMethodRecordsThenAnyMethodThenCatchAll) {
    route(HttpRouter::CatchAll, "catch", "/never");
    route(HttpRouter::AnyMethod, "any", "/api/.*");
    route(HttpRouter::Get, "get", "/api/get");
    EXPECT_EQ(send("GET", "/api/get").content, "get");
    EXPECT_EQ(send("POST", "/api/get").content, "any");
    EXPECT_EQ(send("GET", "/elsewhere").content, "catch");
}

TEST_F(Router, UnknownMethodsReachOnlyAnyMethodAndCatchAll) {
    route(HttpRouter::Get, "get", "/api/x");
    route(HttpRouter::Post, "post", "/api/x");
    EXPECT_EQ(send("DELETE", "/api/x").status, 503);

    route(HttpRouter::AnyMethod, "any", "/api/x");
    EXPECT_EQ(send("DELETE", "/api/x").content, "any");

    HttpRouter catchOnly;
    bool caught = false;
    catchOnly.addRoute(HttpRouter::CatchAll, "catch", "/nothing",
                       [&](corvid::IRequest*, corvid::IResponse*) { caught = true; });
    FakeRequest request("delete", "/api/x");
    FakeResponse response;
    catchOnly.apply(&request, &response);
    EXPECT_TRUE(caught);
}

TEST_F(Router, CatchAllSkipsTheBodyCheck) {
    route(HttpRouter::CatchAll, "catch", "/never", kRequireName);
    EXPECT_EQ(send("PUT", "/any", "not json").content, "catch");
}

TEST_F(Router, MethodRecordsCheckTheBodyOnlyWhenTheirPathMatches) {
    route(HttpRouter::Post, "/strict", "/strict", kRequireName);
    route(HttpRouter::Post, "/loose", "/loose");
    EXPECT_EQ(send("POST", "/loose", "{}").content, "/loose");
    EXPECT_EQ(send("POST", "/strict", R"({"name":"n"})").content, "/strict");

    const auto response = sendExpectingThrow<std::string>("POST", "/strict", "{}");
    EXPECT_EQ(response.status, 400);
    EXPECT_EQ(response.content,
              "Invalid schema: \nInvalid keyword: required\nInvalid document: \n");
    EXPECT_EQ(response.contentFlag, 1);
}

TEST_F(Router, AnEmptyBodyIsCheckedAsAnEmptyObject) {
    route(HttpRouter::Put, "/p", "/p", kRequireName);
    EXPECT_EQ(sendExpectingThrow<std::string>("PUT", "/p", "").status, 400);
    EXPECT_TRUE(ran_.empty());
}

TEST_F(Router, AnyMethodRecordsCheckTheBodyBeforeTheirPath) {
    route(HttpRouter::AnyMethod, "/strict", "/strict", kRequireName);
    route(HttpRouter::AnyMethod, "/loose", "/loose");
    // The first record does not match the path, yet its schema rejects the body.
    const auto response = sendExpectingThrow<std::string>("GET", "/loose", "{}");
    EXPECT_EQ(response.status, 400);
    EXPECT_TRUE(ran_.empty());
    EXPECT_EQ(send("GET", "/loose", R"({"name":1})").content, "/loose");
}

TEST_F(Router, ABodyThatIsNotJsonIsA500WithTheParseError) {
    route(HttpRouter::Post, "/p", "/p");
    const auto response = sendExpectingThrow<std::error_code>("POST", "/p", "{\"a\":");
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.content, "Invalid value.");
}

TEST_F(Router, HandlerFailuresAreAnsweredAndThrownOn) {
    const std::vector<std::pair<std::string, std::function<void()>>> failures{
        {"/string", [] { throw std::string("client fault"); }},
        {"/code", [] { throw std::make_error_code(std::errc::permission_denied); }},
        {"/std", [] { throw std::runtime_error("server fault"); }},
        {"/int", [] { throw 7; }},
    };
    for (const auto& [key, fail] : failures) {
        router_.addRoute(HttpRouter::Get, key, key,
                         [fail = fail](corvid::IRequest*, corvid::IResponse*) { fail(); });
    }
    router_.addRoute(HttpRouter::Get, "/empty", "/empty", HttpRouter::Handler());

    const auto expect = [](const FakeResponse& response, int status, const std::string& text) {
        EXPECT_EQ(response.status, status);
        EXPECT_EQ(response.content, text);
        EXPECT_EQ(response.contentFlag, 1);
    };
    expect(sendExpectingThrow<std::string>("GET", "/string"), 400, "client fault");
    expect(sendExpectingThrow<std::error_code>("GET", "/code"), 500,
           std::make_error_code(std::errc::permission_denied).message());
    expect(sendExpectingThrow<std::runtime_error>("GET", "/std"), 500, "server fault");
    expect(sendExpectingThrow<int>("GET", "/int"), 500, "Unknown Internal ServerError");
    expect(sendExpectingThrow<std::bad_function_call>("GET", "/empty"), 500,
           std::bad_function_call().what());
}

}  // namespace
