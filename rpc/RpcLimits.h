#pragma once
// Bounds a reader of this service's messages applies before the bytes arrive.

#include <cstdint>

namespace helion::rpc {

/// Longest string a request may carry. The binary protocol sizes a string's buffer from the length
/// the message announces, before any of it arrives: unbounded, four bytes from a client would make
/// the reader allocate up to 2 GB.
inline constexpr int32_t kMaxRpcStringBytes = 16 * 1024 * 1024;
/// Most elements a list, set or map in a request may announce. No request of the service carries
/// a container, so any one is skipped; the bound keeps the runtime's size arithmetic from
/// overflowing on an announced count near 2^31.
inline constexpr int32_t kMaxRpcContainerItems = 64 * 1024;

}  // namespace helion::rpc
