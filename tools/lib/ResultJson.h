#pragma once
// Call results as the JSON the client prints, and what they say about success.

#include <optional>
#include <string>

#include "rpc/SdpPromote_types.h"

namespace helion::tools {

/// {"code":..,"message":..,"processInfo":[{"pid":..,"procName":..,"procPath":..},...]}
std::string processDataJson(const corvid::rpc::thrift::ProcessData& data);
/// {"result":true} or {"result":false}
std::string boolJson(bool value);
/// The "code" member of a response envelope; nullopt when the text is not such an envelope.
std::optional<long long> envelopeCode(const std::string& envelope);

}  // namespace helion::tools
