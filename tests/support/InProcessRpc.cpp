#include "support/InProcessRpc.h"

#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TMultiplexedProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TServerSocket.h>
#include <thrift/transport/TTransportException.h>

#include <chrono>
#include <stdexcept>

namespace helion::test {

using namespace apache::thrift;

MultiplexingHost::MultiplexingHost(std::string socketPath)
    : socketPath_(std::move(socketPath)), multiplexer_(std::make_shared<TMultiplexedProcessor>()) {}

void MultiplexingHost::start() {
    auto socket = std::make_shared<transport::TServerSocket>(socketPath_);
    server_ = std::make_unique<server::TThreadedServer>(
        multiplexer_, socket, std::make_shared<transport::TBufferedTransportFactory>(),
        std::make_shared<protocol::TBinaryProtocolFactory>());
    thread_ = std::thread([this] { server_->serve(); });
    // The socket file exists once bound, a moment before it listens: wait until a connection
    // gets through. A server that never listens must fail the test, not hang it.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (;;) {
        transport::TSocket probe(socketPath_);
        try {
            probe.open();
            return;
        } catch (const transport::TTransportException&) {
            if (std::chrono::steady_clock::now() > deadline) {
                throw std::runtime_error("nothing listens at " + socketPath_);
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void MultiplexingHost::stop() {
    if (server_) {
        server_->stop();
        thread_.join();
        server_.reset();
    }
}

RpcClient::RpcClient(const std::string& socketPath, const std::string& serviceName)
    : socket(std::make_shared<transport::TSocket>(socketPath)),
      transport(std::make_shared<transport::TBufferedTransport>(socket)),
      protocol(std::make_shared<protocol::TMultiplexedProtocol>(
          std::make_shared<protocol::TBinaryProtocol>(transport), serviceName)),
      service(protocol) {
    transport->open();
}

}  // namespace helion::test
