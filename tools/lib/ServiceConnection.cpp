#include "tools/lib/ServiceConnection.h"

#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TMultiplexedProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TSocket.h>
#include <thrift/transport/TTransportException.h>

#include "tools/lib/FileIo.h"
#include "tools/lib/TrustedSocket.h"

namespace helion::tools {

using namespace apache::thrift;

ServiceConnection::ServiceConnection(const host::Endpoint& endpoint, int timeoutMs) {
    if (endpoint.kind == host::Endpoint::Kind::Unix) {
        try {
            requireTrustedSocketDirectory(endpoint.path);
        } catch (const ToolError& error) {
            throw UnreachableError("not connecting to " + endpoint.str() + ": " + error.what());
        }
    }
    auto socket = endpoint.kind == host::Endpoint::Kind::Unix
                      ? std::make_shared<transport::TSocket>(endpoint.path)
                      : std::make_shared<transport::TSocket>(endpoint.address, endpoint.port);
    socket->setConnTimeout(timeoutMs);
    socket->setRecvTimeout(timeoutMs);
    socket->setSendTimeout(timeoutMs);
    transport_ = std::make_shared<transport::TBufferedTransport>(socket);
    auto protocol = std::make_shared<protocol::TMultiplexedProtocol>(
        std::make_shared<protocol::TBinaryProtocol>(transport_), "SdpPromoteService");
    client_ = std::make_unique<corvid::rpc::thrift::SdpPromoteServiceClient>(protocol);
    try {
        transport_->open();
    } catch (const transport::TTransportException& error) {
        throw UnreachableError("cannot reach the host at " + endpoint.str() + ": " + error.what());
    }
}

ServiceConnection::~ServiceConnection() {
    try {
        transport_->close();
    } catch (...) {
        // Closing a connection the host already dropped has nothing left to report.
    }
}

}  // namespace helion::tools
