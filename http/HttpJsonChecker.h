#pragma once
// Checks HTTP request bodies against the JSON Schema stored for their route key.

#include <rapidjson/document.h>

#include <map>
#include <string>
#include <system_error>

namespace corvid {

/// Parse errors of request bodies: rapidjson's own codes and English texts.
class _rapidjson_category : public std::error_category {
public:
    static const _rapidjson_category& instance();
    const char* name() const noexcept override;
    std::string message(int code) const override;
};

class HttpJsonChecker {
public:
    /// Backslashes become "/", every other character is lower-cased.
    static std::string transform(const std::string& key);

    /// Stores the schema text for key (normalised); an empty text accepts any JSON body.
    void addSchema(const std::string& key, std::string schema);

    /// Parses body ("{}" when empty) and checks it. Throws std::error_code when the body is not
    /// JSON, std::string (three lines) when it breaks the schema.
    void apply(const std::string& key, const char* body) const;
    /// Checks an already parsed body; a key with no stored schema accepts anything.
    void apply(const std::string& key, const rapidjson::Document& document) const;

private:
    std::map<std::string, std::string> schemas_;
};

}  // namespace corvid
