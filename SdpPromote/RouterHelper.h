#pragma once
// Owns the null-terminated route-key array handed to the host by moduleRouters.

#include <memory>
#include <string>
#include <vector>

namespace corvid {

class RouterHelper {
public:
    /// Copies keys and builds the array: one pointer per key, then a null.
    explicit RouterHelper(std::vector<std::string> keys);

    /// The array; valid as long as this object lives.
    const char** array() const { return array_.get(); }

private:
    std::vector<std::string> keys_;
    std::unique_ptr<const char*[]> array_;
};

}  // namespace corvid
