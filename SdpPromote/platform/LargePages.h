#pragma once
// A hint for buffers of tens of megabytes (a portal package read whole): on systems that can
// back them with large pages, faulting them in costs a few hundred page faults, not tens of
// thousands.

#include <cstddef>

namespace corvid::portal {

/// Asks for large pages under the whole large-page-aligned part of [data, data + size). Call it
/// before the memory is first touched; a hint only, ignored where unsupported.
void preferLargePages(void* data, std::size_t size);

}  // namespace corvid::portal
