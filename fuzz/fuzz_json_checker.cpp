// Request bodies of any shape against a fixed schema: the checker either passes or throws one of
// its two documented kinds, nothing else.
#include <cstddef>
#include <cstdint>
#include <string>
#include <system_error>

#include "http/HttpJsonChecker.h"

namespace {
const char* const kSchema = R"({
  "type": "object",
  "properties": {
    "srcZip": {"type": "string", "minLength": 1},
    "portalDir": {"type": "string"},
    "portalDirs": {"type": "array", "items": {"type": "string"}, "maxItems": 8}
  },
  "required": ["portalDir"],
  "additionalProperties": false
})";

corvid::HttpJsonChecker& checker() {
    static corvid::HttpJsonChecker instance = [] {
        corvid::HttpJsonChecker built;
        built.addSchema("/api/portal", kSchema);
        return built;
    }();
    return instance;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string body(reinterpret_cast<const char*>(data), size);
    for (const char* key : {"/api/portal", "\\API\\Portal", "/unknown"}) {
        try {
            checker().apply(key, body.c_str());
        } catch (const std::error_code&) {
        } catch (const std::string&) {
        }
    }
    return 0;
}
