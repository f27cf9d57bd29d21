#pragma once
// The host writes through the same shared Logger as the modules it loads, under its own tag.

#include "common/Log.h"

namespace helion::host {
inline constexpr const char* kHostTag = "HelionHost";
}

/// HOST_LOG(level, fmt, args...): logs under the enclosing function's name and the current line.
#define HOST_LOG(level, ...) \
    ::corvid::logging::guardedLog(level, ::helion::host::kHostTag, __func__, __LINE__, __VA_ARGS__)
