#include "SdpPromote/SdpPromoteErrorCategory.h"

#include <array>

namespace corvid {

namespace {
constexpr std::array<const char*, 13> kMessages = {
    "successful",         "verify signature error", "decompression error", "req json error",
    "copy file error",    "del file error",         "update file error",   "source file not exist",
    "get app path error", "create dir error",       "invalid pid",         "pid not exist",
    "not support impl",
};
}  // namespace

const char* sdp_promote_error_category::name() const noexcept {
    return "sdp promote category";
}

std::string sdp_promote_error_category::message(int code) const {
    if (code < 0 || static_cast<std::size_t>(code) >= kMessages.size()) {
        return "Unknown error";
    }
    return kMessages[static_cast<std::size_t>(code)];
}

const std::error_category& sdpPromoteCategory() noexcept {
    static const sdp_promote_error_category category;
    return category;
}

std::error_code makeSdpPromoteError(SdpPromoteErrc code) noexcept {
    return std::error_code(static_cast<int>(code), sdpPromoteCategory());
}

std::string sdpPromoteMessage(SdpPromoteErrc code) {
    return sdpPromoteCategory().message(static_cast<int>(code));
}

}  // namespace corvid
