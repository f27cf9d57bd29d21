#pragma once
// The host's RPC server, offered in the runtime context as "RpcServer".

#include <memory>

#include "corvid/IObject.h"

namespace apache::thrift {
class TProcessor;
}

namespace corvid {

/// Name under which the host offers its IRpcServer.
inline constexpr const char* kRpcServerService = "RpcServer";

/// A Thrift server serving every registered processor, multiplexed by service name.
class IRpcServer : public IObject {
public:
    /// Slot 3: serve processor under name; the server keeps its own reference. May throw.
    virtual void registerProcessor(const char* name,
                                   std::shared_ptr<apache::thrift::TProcessor>& processor) = 0;
};

}  // namespace corvid
