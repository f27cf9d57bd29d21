// The JSON envelope of the portal operations and the HTTP status names.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "http/HttpStatus.h"
#include "http/ResponseStr.h"

namespace {

using corvid::responseStr;

TEST(ResponseEnvelope, IsCompactWithCodeMessageDataInThatOrder) {
    EXPECT_EQ(responseStr(0, "Success", ""), R"({"code":0,"message":"Success","data":""})");
    EXPECT_EQ(responseStr(-1, "", "d"), R"({"code":-1,"message":"","data":"d"})");
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

TEST(StatusNames, HoldFortyRecordsWithout402) {
    const auto& table = corvid::http::StatusCode2Str;
    ASSERT_EQ(std::size(table), 40U);
    const auto name = [&](int code) {
        const auto found = std::find_if(std::begin(table), std::end(table),
                                        [code](const auto& record) { return record.code == code; });
        return found != std::end(table) ? found->name : std::string("<absent>");
    };
    EXPECT_EQ(name(402), "<absent>");
    EXPECT_EQ(name(306), "Unused");
}

}  // namespace
