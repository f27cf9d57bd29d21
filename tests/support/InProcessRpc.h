#pragma once
// A host-side Thrift server on a Unix socket, multiplexing what a module registers through
// IRpcServer, and a generated client connected to it.

#include <thrift/processor/TMultiplexedProcessor.h>
#include <thrift/protocol/TProtocol.h>
#include <thrift/server/TThreadedServer.h>
#include <thrift/transport/TSocket.h>

#include <memory>
#include <string>
#include <thread>

#include "corvid/IRpcServer.h"
#include "rpc/SdpPromoteService.h"

namespace helion::test {

class MultiplexingHost : public corvid::IRpcServer {
public:
    explicit MultiplexingHost(std::string socketPath);
    ~MultiplexingHost() override { stop(); }
    void registerProcessor(const char* name,
                           std::shared_ptr<apache::thrift::TProcessor>& processor) override {
        multiplexer_->registerProcessor(name, processor);
    }
    /// Serves on a background thread; returns once the socket accepts connections.
    void start();
    void stop();

private:
    std::string socketPath_;
    std::shared_ptr<apache::thrift::TMultiplexedProcessor> multiplexer_;
    std::unique_ptr<apache::thrift::server::TThreadedServer> server_;
    std::thread thread_;
};

/// A buffered, binary, multiplexed client of one service on a Unix socket.
struct RpcClient {
    explicit RpcClient(const std::string& socketPath,
                       const std::string& service = "SdpPromoteService");
    ~RpcClient() { transport->close(); }

    std::shared_ptr<apache::thrift::transport::TSocket> socket;
    std::shared_ptr<apache::thrift::transport::TTransport> transport;
    std::shared_ptr<apache::thrift::protocol::TProtocol> protocol;
    corvid::rpc::thrift::SdpPromoteServiceClient service;
};

}  // namespace helion::test
