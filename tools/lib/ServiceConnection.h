#pragma once
// A client connection to the host's multiplexed "SdpPromoteService".

#include <memory>
#include <stdexcept>
#include <string>

#include "host/endpoint/Endpoint.h"
#include "rpc/SdpPromoteService.h"

namespace apache::thrift::transport {
class TTransport;
}

namespace helion::tools {

/// The host is not there, or went away mid-call.
class UnreachableError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class ServiceConnection {
public:
    /// Connects, through a socket directory only another user could not have planted (see
    /// TrustedSocket.h); throws UnreachableError with the endpoint and the reason.
    ServiceConnection(const host::Endpoint& endpoint, int timeoutMs);
    ~ServiceConnection();

    ServiceConnection(const ServiceConnection&) = delete;
    ServiceConnection& operator=(const ServiceConnection&) = delete;

    corvid::rpc::thrift::SdpPromoteServiceClient& service() { return *client_; }

private:
    std::shared_ptr<apache::thrift::transport::TTransport> transport_;
    std::unique_ptr<corvid::rpc::thrift::SdpPromoteServiceClient> client_;
};

}  // namespace helion::tools
