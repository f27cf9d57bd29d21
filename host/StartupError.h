#pragma once

#include <stdexcept>

namespace helion::host {

/// A start-up problem the operator has to fix; its text is the one line the host prints.
class StartupError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace helion::host
