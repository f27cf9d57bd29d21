#pragma once
// The JSON envelope every portal operation answers with: {"code":N,"message":"...","data":"..."}.

#include <string>

namespace corvid {

/// The compact envelope; message and data are taken up to their first NUL, data as a string.
std::string responseStr(int code, const std::string& message, const std::string& data);

}  // namespace corvid
