#include "SdpPromote/RouterHelper.h"

namespace corvid {

RouterHelper::RouterHelper(std::vector<std::string> keys)
    : keys_(std::move(keys)), array_(new const char*[keys_.size() + 1]()) {
    for (std::size_t i = 0; i < keys_.size(); ++i) {
        array_[i] = keys_[i].c_str();
    }
}

}  // namespace corvid
