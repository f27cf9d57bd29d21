// The HTTP layer: dispatch by method and path, body checks against stored schemas, how failures
// are answered, the response envelope and the status names.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <functional>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <system_error>

#include "http/HttpJsonChecker.h"
#include "http/HttpRouter.h"
#include "http/HttpStatus.h"
#include "http/ResponseStr.h"
#include "support/FakeHttp.h"

namespace {

using corvid::HttpJsonChecker;
using corvid::HttpRouter;
using helion::test::FakeRequest;
using helion::test::FakeResponse;

constexpr const char* kRequireName = R"({"type":"object","required":["name"]})";
constexpr const char* kMissingName =
    "Invalid schema: \nInvalid keyword: required\nInvalid document: \n";

// Status and content of one request; "+" marks that the dispatch threw on after answering.
std::string send(HttpRouter& router, const char* method, const char* url, const char* body) {
    FakeRequest request(method, url, body);
    FakeResponse response;
    bool thrown = false;
    try {
        router.apply(&request, &response);
    } catch (...) {
        thrown = true;
    }
    return std::to_string(response.status) + (thrown ? "+" : " ") + response.content +
           (response.contentFlag == 1 ? "" : " flag " + std::to_string(response.contentFlag));
}

TEST(HttpRouter, DispatchesByMethodThenAnyMethodThenCatchAllAndAnswersFailures) {
    HttpRouter router;
    for (const char* method : {"GET", "POST", "DELETE", "bogus"}) {
        EXPECT_EQ(send(router, method, "/x", "not json"), "503 Service Unavailable");
    }
    const auto answer = [&](HttpRouter::HttpMethod method, const std::string& key,
                            const std::string& pattern, const std::string& schema = "") {
        router.addRoute(
            method, key, pattern,
            [key](corvid::IRequest*, corvid::IResponse* resp) {
                resp->setStatus(200);
                resp->setContent(key.c_str(), 1);
            },
            schema);
    };
    answer(HttpRouter::Get, "get", "/api/get");
    answer(HttpRouter::Post, "first", "/api/.*");
    answer(HttpRouter::Post, "second", "/api/update");
    answer(HttpRouter::Put, "/strict", "/strict", kRequireName);
    answer(HttpRouter::Head, "head", "/any/x");
    answer(HttpRouter::AnyMethod, "/anystrict", "/anystrict", kRequireName);
    answer(HttpRouter::AnyMethod, "any", "/any/.*");
    // Failing handlers: /f0 .. /f4.
    const std::function<void()> faults[] = {
        [] { throw std::string("client fault"); },
        [] { throw std::make_error_code(std::errc::permission_denied); },
        [] { throw std::runtime_error("server fault"); }, [] { throw 7; }, nullptr};
    for (const auto& fail : faults) {
        const std::string path = "/f" + std::to_string(&fail - faults);
        router.addRoute(
            HttpRouter::Get, path, path,
            fail ? HttpRouter::Handler([fail](corvid::IRequest*, corvid::IResponse*) { fail(); })
                 : HttpRouter::Handler());
    }
    answer(HttpRouter::CatchAll, "catch", "/never", R"({"type":"array"})");
    answer(HttpRouter::CatchAll, "second catch", ".*");

    const struct {
        const char *method, *url, *body;
        std::string answer;
    } cases[] = {
        {"gEt", "\\API\\Get", "", "200 get"},
        {"GET", "/api/get/more", R"({"name":1})", "200 catch"},  // whole path only
        {"POST", "/api/update", "", "200 first"},
        {"PUT", "/strict", "", "400+" + std::string(kMissingName)},  // empty body is {}
        {"PUT", "/strict", R"({"name":1})", "200 /strict"},
        {"DELETE", "/api/get", R"({"name":1})", "200 catch"},
        {"delete", "/any/x", R"({"name":1})", "200 any"},
        {"HeAd", "/any/x", R"({"name":1})", "200 head"},
        {"PUT", "/any/x", R"({"name":1})", "200 any"},
        {"get ", "/api/get", R"({"name":1})", "200 catch"},
        // Every AnyMethod record checks the body before its path.
        {"GET", "/any/x", "{}", "400+" + std::string(kMissingName)},
        {"GET", "/any/x", "{\"a\":", "500+Invalid value."},
        {"PUT", "/elsewhere", R"({"name":1})", "200 catch"},  // its schema is not checked
        {"GET", "/f0", "", "400+client fault"},
        {"GET", "/f1", "", "500+" + std::make_error_code(std::errc::permission_denied).message()},
        {"GET", "/f2", "", "500+server fault"},
        {"GET", "/f3", "", "500+Unknown Internal ServerError"},
        {"GET", "/f4", "", "500+" + std::string(std::bad_function_call().what())},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(send(router, c.method, c.url, c.body), c.answer) << c.method << " " << c.url;
    }
    EXPECT_EQ(router.getKeys().front(), "get");
    EXPECT_EQ(router.getKeys().back(), "second catch");
}

// What a check did: "ok", "code N in <category>", or the text it threw.
std::string check(const HttpJsonChecker& checker, const std::string& key, const char* body) {
    try {
        checker.apply(key, body);
        return "ok";
    } catch (const std::error_code& code) {
        return "code " + std::to_string(code.value()) + " in " + code.category().name();
    } catch (const std::string& text) {
        return text;
    }
}

TEST(JsonChecker, BodiesAgainstStoredSchemasAndParserTexts) {
    HttpJsonChecker checker;
    checker.addSchema("\\API\\Update", kRequireName);
    checker.addSchema("/empty", "");
    checker.addSchema("/broken", "{not a schema");
    checker.addSchema("/t", R"({"type":"object","properties":{"age":{"type":"integer"}}})");
    checker.addSchema("/array", R"({"type":"array"})");
    const std::string deep = std::string(200000, '[') + std::string(200000, ']');
    const std::string deepest = std::string(512, '[') + std::string(512, ']');
    const std::string unterminated(200000, '[');

    const struct {
        const char* key;
        std::string body;
        std::string outcome;
    } cases[] = {
        {"/unlisted", "plain text", "code 3 in jsonchecker_category"},
        {"/unlisted", "{} {}", "code 2 in jsonchecker_category"},
        {"/unlisted", "[1,2]", "ok"},
        {"/unlisted", "", "ok"},
        {"/unlisted", deep, "ok"},
        {"/empty", "null", "ok"},
        {"/api/UPDATE", "", kMissingName},
        {"/Api/Update", R"({"name":1})", "ok"},
        {"/t", R"({"age":"old"})",
         "Invalid schema: /properties/age\nInvalid keyword: type\nInvalid document: /age\n"},
        {"/t", R"({"age":3})", "ok"},
        {"/broken", "{}", "code 0 in jsonchecker_category"},
        {"/array", deep, "Invalid document: nested deeper than 512 levels\n"},
        {"/array", deepest, "ok"},
        {"/array", unterminated, "code 3 in jsonchecker_category"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(check(checker, c.key, c.body.c_str()), c.outcome)
            << c.key << " " << c.body.substr(0, 20);
    }

    // A document parsed elsewhere with an error fails only where a schema is stored.
    rapidjson::Document broken;
    broken.Parse("[1,");
    EXPECT_NO_THROW(checker.apply("/unlisted", broken));
    EXPECT_THROW(checker.apply("/t", broken), std::error_code);

    const std::pair<int, const char*> texts[] = {{0, "No error."},
                                                 {17, "Unspecific syntax error."},
                                                 {18, "Unknown error."},
                                                 {-1, "Unknown error."}};
    for (const auto& [code, text] : texts) {
        EXPECT_EQ(corvid::_rapidjson_category::instance().message(code), text) << code;
    }
}

TEST(ResponseTexts, CompactEnvelopeCutAtNulAndStatusNames) {
    const struct {
        int code;
        std::string message, data, text;
    } cases[] = {
        {0, "Success", "", R"({"code":0,"message":"Success","data":""})"},
        {-1, "", "d", R"({"code":-1,"message":"","data":"d"})"},
        {3, "req json error", R"({"a":[1,"b"]})",
         R"({"code":3,"message":"req json error","data":"{\"a\":[1,\"b\"]}"})"},
        {1, std::string("before\0after", 12), std::string("\0hidden", 7),
         R"({"code":1,"message":"before","data":""})"},
        {0, "a\"b\\c/d", "\n\t\x01\x1f",
         R"({"code":0,"message":"a\"b\\c/d","data":"\n\t\u0001\u001F"})"},
        {0, "路径\xff", "é", "{\"code\":0,\"message\":\"路径\xff\",\"data\":\"é\"}"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(corvid::responseStr(c.code, c.message, c.data), c.text);
    }

    // Forty status names, without 402.
    const auto& table = corvid::http::StatusCode2Str;
    ASSERT_EQ(std::size(table), 40U);
    std::map<int, std::string> names;
    for (const auto& record : table) {
        names.emplace(record.code, record.name);
    }
    const std::pair<int, const char*> spots[] = {
        {100, "Continue"},           {306, "Unused"},
        {402, "<absent>"},           {416, "Requestedrangenotsatisfiable"},
        {503, "ServiceUnavailable"}, {505, "HTTPVersionnotsupported"}};
    for (const auto& [code, expected] : spots) {
        EXPECT_EQ(names.count(code) ? names[code] : "<absent>", expected) << code;
    }
}

}  // namespace
