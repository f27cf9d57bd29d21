#include "tools/lib/ResultJson.h"
#include "tools/promote/Request.h"

namespace helion::promote {

Outcome envelope(const std::string& text) {
    const auto code = tools::envelopeCode(text);
    return {text, code && *code == 0 ? kExitOk : kExitFailed};
}

Outcome boolean(bool value) {
    return {tools::boolJson(value), value ? kExitOk : kExitFailed};
}

Outcome processData(const corvid::rpc::thrift::ProcessData& data) {
    return {tools::processDataJson(data), data.code == 0 ? kExitOk : kExitFailed};
}

}  // namespace helion::promote
