#pragma once
// Root of every interface the host and its modules exchange.

namespace corvid {

/// Root interface: a virtual destructor (vtable slots 1-2) and nothing else.
class IObject {
public:
    virtual ~IObject() = default;
};

}  // namespace corvid
