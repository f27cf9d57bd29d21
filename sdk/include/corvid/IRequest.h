#pragma once
// An HTTP request the host forwards to a module.

#include <cstdint>

#include "corvid/IObject.h"

namespace corvid {

/// Read-only view of one HTTP request; valid for the duration of the call.
class IRequest : public IObject {
public:
    /// Slot 3: value of the named header, or null when absent.
    virtual const char* header(const char* name) = 0;
    /// Slot 4: length of the body in bytes.
    virtual int64_t bodyLength() = 0;
    /// Slot 5: the body, NUL-terminated (empty, not null, when there is none).
    virtual const char* body() = 0;
    /// Slot 6: the query string without the '?', empty when there is none.
    virtual const char* query() = 0;
    /// Slot 7: the method text as it came, e.g. "GET".
    virtual const char* method() = 0;
    /// Slot 8: the request path.
    virtual const char* url() = 0;
};

}  // namespace corvid
