// Request texts of any shape bound into the three portal request models. The first byte picks the
// model, the rest is the JSON text. Besides surviving, the binding must agree with an independent
// parse: true exactly when the text is JSON, string members taken as they stand, an array for
// portalDirs giving a list of its length.
#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "io/JsonBinding.h"
#include "model/CopyPortalDirReq.h"
#include "model/DelPortalDirReq.h"
#include "model/UpdatePortalReq.h"

namespace {

using namespace corvid::sdp_promote;

// What the binder is expected to have made of text, parsed without recursion so that the check
// itself survives any nesting depth.
struct Expected {
    explicit Expected(const std::string& text) {
        document.Parse<rapidjson::kParseIterativeFlag>(text.c_str());
        valid = !document.HasParseError();
    }

    // A string member's text up to its first NUL, as the binder reads it.
    bool stringMember(const char* key, std::string& out) {
        if (!valid || !document.IsObject()) {
            return false;
        }
        const auto member = document.FindMember(key);
        if (member == document.MemberEnd() || !member->value.IsString()) {
            return false;
        }
        out = member->value.GetString();
        return true;
    }

    const rapidjson::Value* arrayMember(const char* key) {
        if (!valid || !document.IsObject()) {
            return nullptr;
        }
        const auto member = document.FindMember(key);
        return member != document.MemberEnd() && member->value.IsArray() ? &member->value : nullptr;
    }

    rapidjson::Document document;
    bool valid = false;
};

void checkString(Expected& expected, const char* key, const std::string& field) {
    std::string text;
    if (expected.stringMember(key, text) && field != text) {
        __builtin_trap();
    }
}

void checkBound(bool bound, Expected& expected, bool untouched) {
    if (bound != expected.valid) {
        __builtin_trap();
    }
    // A text that is not JSON leaves the request as it was built.
    if (!bound && !untouched) {
        __builtin_trap();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    Expected expected(text);
    switch (data[0] % 3) {
        case 0: {
            updatePortalReq::UpdatePortalReq req;
            const bool bound = io::from_json(text, req);
            checkBound(bound, expected,
                       req.srcZip.empty() && req.portalDir.empty() && req.signFile.empty());
            checkString(expected, "srcZip", req.srcZip);
            checkString(expected, "portalDir", req.portalDir);
            checkString(expected, "signFile", req.signFile);
            break;
        }
        case 1: {
            copyPortalDirReq::CopyPortalDirReq req;
            const bool bound = io::from_json(text, req);
            checkBound(bound, expected, req.srcDir.empty() && req.portalDir.empty());
            checkString(expected, "srcDir", req.srcDir);
            checkString(expected, "portalDir", req.portalDir);
            break;
        }
        default: {
            delPortalDirReq::DelPortalDirReq req;
            const bool bound = io::from_json(text, req);
            checkBound(bound, expected, req.portalDirs.empty());
            if (const rapidjson::Value* array = expected.arrayMember("portalDirs")) {
                if (req.portalDirs.size() != array->Size()) {
                    __builtin_trap();
                }
                for (rapidjson::SizeType i = 0; i < array->Size(); ++i) {
                    if ((*array)[i].IsString() && req.portalDirs[i] != (*array)[i].GetString()) {
                        __builtin_trap();
                    }
                }
            }
            break;
        }
    }
    return 0;
}
