// The JSON envelope of the portal operations and the HTTP status names.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

#include "http/HttpStatus.h"
#include "http/ResponseStr.h"

namespace {

using corvid::responseStr;

TEST(ResponseEnvelope, IsCompactWithCodeMessageDataInThatOrder) {
    EXPECT_EQ(responseStr(0, "Success", ""), R"({"code":0,"message":"Success","data":""})");
    EXPECT_EQ(responseStr(-1, "", "d"), R"({"code":-1,"message":"","data":"d"})");
    EXPECT_EQ(responseStr(2147483647, "m", ""), R"({"code":2147483647,"message":"m","data":""})");
}

TEST(ResponseEnvelope, DataThatIsJsonStaysAString) {
    const std::string text = responseStr(3, "req json error", R"({"a":[1,"b"]})");
    EXPECT_EQ(text, R"({"code":3,"message":"req json error","data":"{\"a\":[1,\"b\"]}"})");

    rapidjson::Document parsed;
    parsed.Parse(text.c_str());
    ASSERT_FALSE(parsed.HasParseError());
    ASSERT_TRUE(parsed["data"].IsString());
    EXPECT_STREQ(parsed["data"].GetString(), R"({"a":[1,"b"]})");
}

TEST(ResponseEnvelope, TextsAreCutAtTheirFirstNul) {
    const std::string message("before\0after", 12);
    const std::string data("\0hidden", 7);
    EXPECT_EQ(responseStr(1, message, data), R"({"code":1,"message":"before","data":""})");
}

TEST(ResponseEnvelope, EscapesQuotesBackslashesAndControlsButKeepsOtherBytes) {
    EXPECT_EQ(responseStr(0, "a\"b\\c/d", "\n\t\x01\x1f"),
              R"({"code":0,"message":"a\"b\\c/d","data":"\n\t\u0001\u001F"})");
    // UTF-8 and even stray high bytes are written as they came.
    EXPECT_EQ(responseStr(0, "路径\xff", "é"),
              "{\"code\":0,\"message\":\"路径\xff\",\"data\":\"é\"}");
}

TEST(StatusNames, AreTheFortyRecordsInCodeOrderWithout402) {
    const std::pair<int, const char*> expected[] = {{100, "Continue"},
                                                    {101, "SwitchingProtocols"},
                                                    {200, "OK"},
                                                    {201, "Created"},
                                                    {202, "Accepted"},
                                                    {203, "NonAuthoritativeInformation"},
                                                    {204, "NoContent"},
                                                    {205, "ResetContent"},
                                                    {206, "PartialContent"},
                                                    {300, "MultipleChoices"},
                                                    {301, "MovedPermanently"},
                                                    {302, "Found"},
                                                    {303, "SeeOther"},
                                                    {304, "NotModified"},
                                                    {305, "UseProxy"},
                                                    {306, "Unused"},
                                                    {307, "TemporaryRedirect"},
                                                    {400, "BadRequest"},
                                                    {401, "Unauthorized"},
                                                    {403, "Forbidden"},
                                                    {404, "NotFound"},
                                                    {405, "MethodNotAllowed"},
                                                    {406, "NotAcceptable"},
                                                    {407, "ProxyAuthenticationRequired"},
                                                    {408, "RequestTimeout"},
                                                    {409, "Conflict"},
                                                    {410, "Gone"},
                                                    {411, "LengthRequired"},
                                                    {412, "PreconditionFailed"},
                                                    {413, "RequestEntityTooLarge"},
                                                    {414, "RequestURITooLarge"},
                                                    {415, "UnsupportedMediaType"},
                                                    {416, "Requestedrangenotsatisfiable"},
                                                    {417, "ExpectationFailed"},
                                                    {500, "InternalServerError"},
                                                    {501, "NotImplemented"},
                                                    {502, "BadGateway"},
                                                    {503, "ServiceUnavailable"},
                                                    {504, "GatewayTimeout"},
                                                    {505, "HTTPVersionnotsupported"}};
    const auto& table = corvid::http::StatusCode2Str;
    ASSERT_EQ(std::size(table), 40U);
    for (std::size_t i = 0; i < std::size(table); ++i) {
        EXPECT_EQ(table[i].code, expected[i].first) << i;
        EXPECT_EQ(table[i].name, expected[i].second) << i;
    }
    EXPECT_EQ(std::find_if(std::begin(table), std::end(table),
                           [](const auto& record) { return record.code == 402; }),
              std::end(table));
}

}  // namespace
