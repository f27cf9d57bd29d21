#pragma once
// The client's checks for a person's slips, made before anything is sent: the module does what a
// request says, so a request that cannot be meant has to be caught here.

#include <cstddef>
#include <string>

namespace helion::tools {

/// Why a portal directory name is most likely a slip (it names the whole portal root, or has a
/// ".." component that may leave it); empty when it is an ordinary name.
std::string portalNameSlip(const std::string& name);

/// Throws ToolError naming the file (described as `what`) and the reason when the module could
/// not use it: missing, not a regular file, unreadable, or shorter than minBytes.
void checkInputFile(const std::string& path, const std::string& what, std::size_t minBytes = 0);

}  // namespace helion::tools
