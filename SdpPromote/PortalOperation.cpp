#include "SdpPromote/PortalOperation.h"

#include "common/Log.h"
#include "http/ResponseStr.h"

namespace corvid::portal {

void answerFailure(std::string& result, const char* function, uint64_t line, SdpPromoteErrc code) {
    const std::string message = sdpPromoteMessage(code);
    HP_LOG_AT(spdlog::level::warn, function, line, "{}{}", message, "");
    result = responseStr(static_cast<int>(code), message, "");
}

void answerCreateDirFailure(std::string& result, const char* function, uint64_t line,
                            const boost::system::error_code& error) {
    logFailure(function, line, SdpPromoteErrc::createDirError, error);
    result = responseStr(static_cast<int>(SdpPromoteErrc::createDirError), error.message(), "");
}

void logFailure(const char* function, uint64_t line, SdpPromoteErrc code,
                const boost::system::error_code& error) {
    HP_LOG_AT(spdlog::level::warn, function, line, "{}; Reason: {}", sdpPromoteMessage(code),
              error.message());
}

void answerSuccess(std::string& result) {
    result = responseStr(static_cast<int>(SdpPromoteErrc::successful),
                         sdpPromoteMessage(SdpPromoteErrc::successful), "");
}

}  // namespace corvid::portal
