#pragma once
// What updatePortal, copyPortalDir and delPortalDir share: how they answer and how they log
// failures, and the test for "nothing there".

#include <boost/filesystem.hpp>
#include <cstdint>
#include <string>

#include "SdpPromote/SdpPromoteErrorCategory.h"
#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "io/JsonBinding.h"

namespace corvid::portal {

/// The two file types that mean nothing exists at a path.
inline bool isMissing(boost::filesystem::file_type type) {
    return type == boost::filesystem::status_error || type == boost::filesystem::file_not_found;
}

/// Logs code's message at warn and answers the envelope of code with that message.
void answerFailure(std::string& result, const char* function, uint64_t line, SdpPromoteErrc code);

/// A target directory that could not be created: the envelope carries the system's own text.
void answerCreateDirFailure(std::string& result, const char* function, uint64_t line,
                            const boost::system::error_code& error);

/// A failure that is only logged: code's message, then the system's text as the reason.
void logFailure(const char* function, uint64_t line, SdpPromoteErrc code,
                const boost::system::error_code& error);

/// The success envelope.
void answerSuccess(std::string& result);

}  // namespace corvid::portal

namespace corvid {

template <typename Request>
bool SdpPromoteServiceImpl::openPortalRequest(const char* function, std::string& result,
                                              const std::string& param, std::string& root,
                                              Request& request) {
    getTrayAppPath(root);
    if (root.empty()) {
        portal::answerFailure(result, function, __LINE__, SdpPromoteErrc::getAppPathError);
        return false;
    }
    if (!io::from_json(param, request)) {
        portal::answerFailure(result, function, __LINE__, SdpPromoteErrc::reqJsonError);
        return false;
    }
    return true;
}

}  // namespace corvid
