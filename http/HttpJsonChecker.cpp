#include "http/HttpJsonChecker.h"

#include <rapidjson/error/en.h>
#include <rapidjson/schema.h>
#include <rapidjson/stringbuffer.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <utility>
#include <vector>

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

// The iterative parser gives the same results and error codes as the recursive default, but a
// body of a million "[" cannot exhaust the stack.
constexpr unsigned kParseFlags = rapidjson::kParseDefaultFlags | rapidjson::kParseIterativeFlag;

// Validation recurses once per level of the body; deeper bodies are refused before it starts.
constexpr std::size_t kMaxValidatedDepth = 512;

std::size_t nestingDepth(const rapidjson::Value& root) {
    std::size_t deepest = 0;
    std::vector<std::pair<const rapidjson::Value*, std::size_t>> pending{{&root, 1}};
    while (!pending.empty()) {
        const auto [value, depth] = pending.back();
        pending.pop_back();
        deepest = std::max(deepest, depth);
        if (value->IsArray()) {
            for (const auto& element : value->GetArray()) {
                pending.emplace_back(&element, depth + 1);
            }
        } else if (value->IsObject()) {
            for (const auto& member : value->GetObject()) {
                pending.emplace_back(&member.value, depth + 1);
            }
        }
    }
    return deepest;
}
}  // namespace

const _rapidjson_category& _rapidjson_category::instance() {
    static const _rapidjson_category category;
    return category;
}

const char* _rapidjson_category::name() const noexcept {
    return "jsonchecker_category";
}

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
    document.Parse<kParseFlags>(text);
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
    schemaDocument.Parse<kParseFlags>(found->second.c_str());
    if (schemaDocument.HasParseError()) {
        // Reported with the body's code (0 here), as callers have always seen it.
        throw std::error_code(document.GetParseError(), _rapidjson_category::instance());
    }
    if (nestingDepth(document) > kMaxValidatedDepth) {
        throw "Invalid document: nested deeper than " + std::to_string(kMaxValidatedDepth) +
            " levels\n";
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
