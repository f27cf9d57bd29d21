// Request bodies checked against the schema stored for their route key.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <string>
#include <system_error>

#include "http/HttpJsonChecker.h"

namespace {

using corvid::_rapidjson_category;
using corvid::HttpJsonChecker;

// Runs the check and returns what it threw as a string, or "" when it passed.
std::string schemaFailure(const HttpJsonChecker& checker, const std::string& key,
                          const char* body) {
    try {
        checker.apply(key, body);
    } catch (const std::string& text) {
        return text;
    }
    return std::string();
}

std::error_code parseFailure(const HttpJsonChecker& checker, const std::string& key,
                             const char* body) {
    try {
        checker.apply(key, body);
    } catch (const std::error_code& code) {
        return code;
    }
    ADD_FAILURE() << "no error code thrown for " << body;
    return std::error_code();
}

TEST(JsonCheckerCategory, NamesItselfAndUsesTheParserTexts) {
    const auto& category = _rapidjson_category::instance();
    EXPECT_EQ(&category, &_rapidjson_category::instance());
    EXPECT_STREQ(category.name(), "jsonchecker_category");
    EXPECT_EQ(category.message(0), "No error.");
    EXPECT_EQ(category.message(17), "Unspecific syntax error.");
    for (int code : {18, 19, 1000, -1}) {
        EXPECT_EQ(category.message(code), "Unknown error.") << code;
    }
}

TEST(JsonChecker, ABodyThatIsNotJsonIsAnErrorCodeOfTheCategory) {
    HttpJsonChecker checker;
    const std::error_code code = parseFailure(checker, "/no/schema", "plain text");
    EXPECT_EQ(&code.category(), &_rapidjson_category::instance());
    EXPECT_STREQ(code.category().name(), "jsonchecker_category");
    EXPECT_EQ(code.value(), rapidjson::kParseErrorValueInvalid);
    EXPECT_EQ(code.message(), "Invalid value.");

    EXPECT_EQ(parseFailure(checker, "/k", "{} {}").value(),
              rapidjson::kParseErrorDocumentRootNotSingular);
}

TEST(JsonChecker, AKeyWithoutSchemaOrWithAnEmptyOneLetsAnyJsonThrough) {
    HttpJsonChecker checker;
    checker.addSchema("/other", R"({"type":"object","required":["name"]})");
    checker.addSchema("/empty", "");
    for (const char* body : {"{}", "[1,2]", "42", "\"text\"", "null", ""}) {
        EXPECT_NO_THROW(checker.apply("/unlisted", body)) << body;
        EXPECT_NO_THROW(checker.apply("/empty", body)) << body;
    }
}

TEST(JsonChecker, KeysAreComparedNormalised) {
    HttpJsonChecker checker;
    checker.addSchema("\\API\\Update", R"({"type":"object","required":["name"]})");
    EXPECT_NE(schemaFailure(checker, "/api/UPDATE", "{}"), "");
    EXPECT_EQ(schemaFailure(checker, "/Api/Update", R"({"name":1})"), "");
}

TEST(JsonChecker, ASchemaFailureIsThreeLinesNamingSchemaKeywordAndDocument) {
    HttpJsonChecker checker;
    checker.addSchema("/r", R"({"type":"object","required":["name"]})");
    checker.addSchema("/t", R"({"type":"object","properties":{"age":{"type":"integer"}}})");

    EXPECT_EQ(schemaFailure(checker, "/r", ""),
              "Invalid schema: \nInvalid keyword: required\nInvalid document: \n");
    EXPECT_EQ(schemaFailure(checker, "/t", R"({"age":"old"})"),
              "Invalid schema: /properties/age\nInvalid keyword: type\nInvalid document: /age\n");
    EXPECT_EQ(schemaFailure(checker, "/t", R"({"age":3})"), "");
}

TEST(JsonChecker, DeeplyNestedBodiesAreAnsweredNotOverflowed) {
    HttpJsonChecker checker;
    checker.addSchema("/s", R"({"type":"array"})");
    const std::string deep = std::string(200000, '[') + std::string(200000, ']');
    EXPECT_NO_THROW(checker.apply("/unlisted", deep.c_str()));
    EXPECT_EQ(schemaFailure(checker, "/s", deep.c_str()),
              "Invalid document: nested deeper than 512 levels\n");
    const std::string shallowEnough = std::string(512, '[') + std::string(512, ']');
    EXPECT_EQ(schemaFailure(checker, "/s", shallowEnough.c_str()), "");

    const std::string unterminated(200000, '[');
    EXPECT_EQ(parseFailure(checker, "/s", unterminated.c_str()).value(),
              rapidjson::kParseErrorValueInvalid);
}

TEST(JsonChecker, ABrokenStoredSchemaIsReportedAsCodeZero) {
    HttpJsonChecker checker;
    checker.addSchema("/broken", "{not a schema");
    const std::error_code code = parseFailure(checker, "/broken", "{}");
    EXPECT_EQ(code.value(), 0);
    EXPECT_EQ(&code.category(), &_rapidjson_category::instance());
}

TEST(JsonChecker, AParsedDocumentWithAnErrorFailsOnlyWhereASchemaIsStored) {
    HttpJsonChecker checker;
    checker.addSchema("/s", R"({"type":"object"})");
    rapidjson::Document broken;
    broken.Parse("[1,");
    ASSERT_TRUE(broken.HasParseError());

    EXPECT_NO_THROW(checker.apply("/unlisted", broken));
    try {
        checker.apply("/s", broken);
        ADD_FAILURE() << "no error code thrown";
    } catch (const std::error_code& code) {
        EXPECT_EQ(code.value(), broken.GetParseError());
    }
}

}  // namespace
