#pragma once
// The response a module writes for a forwarded HTTP request.

#include <cstdint>

#include "corvid/IObject.h"

namespace corvid {

/// Write side of one HTTP exchange; the host sends it after the module returns.
class IResponse : public IObject {
public:
    /// Slot 3: the HTTP status code.
    virtual void setStatus(int32_t code) = 0;
    /// Slot 4: add a response header.
    virtual void setHeader(const char* name, const char* value) = 0;
    /// Slot 5: the body text; flag is the host's content flag (1: plain text copied by the host).
    virtual void setContent(const char* text, int32_t flag) = 0;
};

}  // namespace corvid
