#include "http/HttpJsonChecker.h"

#include <rapidjson/error/en.h>
#include <rapidjson/schema.h>
#include <rapidjson/stringbuffer.h>

#include <cctype>
#include <memory>

namespace corvid {

namespace {
// rapidjson's parse-error codes run from kParseErrorNone (0) to this one (17).
constexpr int kLastParseError = rapidjson::kParseErrorUnspecificSyntaxError;

std::string pointerText(const rapidjson::Pointer& pointer) {
    rapidjson::StringBuffer buffer;
    // Plain JSON Pointer form: the URI-fragment writer of this RapidJSON reads past member names
    // that hold invalid UTF-8.
    pointer.Stringify(buffer);
    return std::string(buffer.GetString(), buffer.GetSize());
}
}  // namespace

const _rapidjson_category& _rapidjson_category::instance() {
    static const _rapidjson_category category;
    return category;
}

const char* _rapidjson_category::name() const noexcept { return "jsonchecker_category"; }

std::string _rapidjson_category::message(int code) const {
    if (code < 0 || code > kLastParseError) {
        return "Unknown error.";
    }
    return rapidjson::GetParseError_En(static_cast<rapidjson::ParseErrorCode>(code));
}

std::string HttpJsonChecker::transform(const std::string& key) {
    std::string out(key);
    for (char& c : out) {
        c = c == '\\' ? '/' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return out;
}

void HttpJsonChecker::addSchema(const std::string& key, std::string schema) {
    schemas_[transform(key)] = std::move(schema);
}

void HttpJsonChecker::apply(const std::string& key, const char* body) const {
    rapidjson::Document document;
    const char* text = body == nullptr || body[0] == '\0' ? "{}" : body;
    document.Parse(text);
    if (document.HasParseError()) {
        throw std::error_code(document.GetParseError(), _rapidjson_category::instance());
    }
    apply(key, document);
}

void HttpJsonChecker::apply(const std::string& key, const rapidjson::Document& document) const {
    const auto found = schemas_.find(transform(key));
    if (found == schemas_.end()) {
        // No schema stored for the route: any JSON body passes.
        return;
    }
    if (document.HasParseError()) {
        throw std::error_code(document.GetParseError(), _rapidjson_category::instance());
    }
    if (found->second.empty()) {
        return;
    }
    rapidjson::Document schemaDocument;
    schemaDocument.Parse(found->second.c_str());
    if (schemaDocument.HasParseError()) {
        // Reported with the body's code (0 here), as callers have always seen it.
        throw std::error_code(document.GetParseError(), _rapidjson_category::instance());
    }
    auto schema = std::make_shared<rapidjson::SchemaDocument>(schemaDocument);
    rapidjson::SchemaValidator validator(*schema);
    if (document.Accept(validator)) {
        return;
    }
    throw std::string("Invalid schema: ") + pointerText(validator.GetInvalidSchemaPointer()) +
        "\n" + "Invalid keyword: " + validator.GetInvalidSchemaKeyword() + "\n" +
        "Invalid document: " + pointerText(validator.GetInvalidDocumentPointer()) + "\n";
}

}  // namespace corvid
