#pragma once
// The module's result codes: every portal envelope and process reply carries one of them.

#include <string>
#include <system_error>

namespace corvid {

enum class SdpPromoteErrc : int {
    successful = 0,
    verifySignatureError = 1,
    decompressionError = 2,
    reqJsonError = 3,
    copyFileError = 4,
    delFileError = 5,
    updateFileError = 6,
    sourceFileNotExist = 7,
    getAppPathError = 8,
    createDirError = 9,
    invalidPid = 10,
    pidNotExist = 11,
    notSupportImpl = 12,
};

class sdp_promote_error_category : public std::error_category {
public:
    const char* name() const noexcept override;
    /// The code's text; "Unknown error" outside 0 to 12.
    std::string message(int code) const override;
};

/// The one category object, so error codes compare equal across the module.
const std::error_category& sdpPromoteCategory() noexcept;

std::error_code makeSdpPromoteError(SdpPromoteErrc code) noexcept;

/// The category's text for code.
std::string sdpPromoteMessage(SdpPromoteErrc code);

}  // namespace corvid
