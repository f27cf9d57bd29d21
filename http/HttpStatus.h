#pragma once
// HTTP status names of the HTTP layer. The table has internal linkage: every unit that includes
// this header gets its own copy.

#include <cstdint>
#include <string>

namespace corvid::http {

struct StatusName {
    int32_t code;
    std::string name;
};

// 402 is absent on purpose.
static const StatusName StatusCode2Str[] = {
    {100, "Continue"},
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
    {505, "HTTPVersionnotsupported"},
};

}  // namespace corvid::http
