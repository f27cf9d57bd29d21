#pragma once
// Process information behind getProcessData/getAllProcessData. This platform has no
// enumeration: both queries answer "not support impl" so callers still get a well-formed reply.

#include <cstdint>
#include <system_error>
#include <vector>

#include "rpc/SdpPromote_types.h"

namespace corvid {

class SdpProcessService {
public:
    /// An empty record; ec is set to not-support-impl whatever the pid.
    rpc::thrift::ProcessInfoEx getProcessInfo(int64_t pid, std::error_code& ec);
    /// An empty list; ec is set to not-support-impl.
    std::vector<rpc::thrift::ProcessInfoEx> getProcessDataList(std::error_code& ec);
};

}  // namespace corvid
