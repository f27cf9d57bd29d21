// The module's processor, registered through the host interface, serves real Thrift clients.
#include <gtest/gtest.h>
#include <thrift/TApplicationException.h>
#include <thrift/processor/TMultiplexedProcessor.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TMultiplexedProtocol.h>
#include <thrift/server/TThreadedServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TServerSocket.h>
#include <thrift/transport/TSocket.h>

#include <thread>

#include "SdpPromote/ModuleInstance.h"
#include "rpc/SdpPromoteService.h"
#include "support/TestSupport.h"

namespace {

using namespace apache::thrift;
using corvid::rpc::thrift::SdpPromoteServiceClient;

/// A host RPC server on a Unix socket, multiplexing what the module registers.
class MultiplexingHost : public corvid::IRpcServer {
public:
    explicit MultiplexingHost(std::string socketPath) : socketPath_(std::move(socketPath)) {}
    ~MultiplexingHost() override { stop(); }

    void registerProcessor(const char* name, std::shared_ptr<TProcessor>& processor) override {
        multiplexer_->registerProcessor(name, processor);
    }

    void start() {
        auto socket = std::make_shared<transport::TServerSocket>(socketPath_);
        server_ = std::make_unique<server::TThreadedServer>(
            multiplexer_, socket, std::make_shared<transport::TBufferedTransportFactory>(),
            std::make_shared<protocol::TBinaryProtocolFactory>());
        thread_ = std::thread([this] { server_->serve(); });
        while (!boost::filesystem::exists(socketPath_)) {
            std::this_thread::yield();
        }
    }

    void stop() {
        if (server_) {
            server_->stop();
            thread_.join();
            server_.reset();
        }
    }

private:
    std::string socketPath_;
    std::shared_ptr<TMultiplexedProcessor> multiplexer_ = std::make_shared<TMultiplexedProcessor>();
    std::unique_ptr<server::TThreadedServer> server_;
    std::thread thread_;
};

struct Client {
    explicit Client(const std::string& socketPath, const std::string& service = "SdpPromoteService")
        : socket(std::make_shared<transport::TSocket>(socketPath)),
          transport(std::make_shared<transport::TBufferedTransport>(socket)),
          protocol(std::make_shared<protocol::TMultiplexedProtocol>(
              std::make_shared<protocol::TBinaryProtocol>(transport), service)),
          service(protocol) {
        transport->open();
    }
    ~Client() { transport->close(); }

    std::shared_ptr<transport::TSocket> socket;
    std::shared_ptr<transport::TTransport> transport;
    std::shared_ptr<protocol::TProtocol> protocol;
    SdpPromoteServiceClient service;
};

class RpcRoundTrip : public ::testing::Test {
protected:
    void SetUp() override {
        context_.services["RpcServer"] = static_cast<corvid::IRpcServer*>(&host_);
        ModuleInstance::shared().moduleWillLoadFinished(&context_);
        host_.start();
    }

    helion::test::TempDir dir_;
    std::string socketPath_ = (dir_.path() / "rpc.sock").string();
    MultiplexingHost host_{socketPath_};
    helion::test::FakeRuntimeContext context_;
};

TEST_F(RpcRoundTrip, LivenessProbeAnswersTrue) {
    Client client(socketPath_);
    EXPECT_TRUE(client.service.IsRpcStatusNormal());
}

TEST_F(RpcRoundTrip, UnknownMethodGetsAnExceptionReply) {
    Client client(socketPath_);
    // Hand-written call of a method the service does not have.
    client.protocol->writeMessageBegin("foo", protocol::T_CALL, 0);
    client.protocol->writeStructBegin("foo_args");
    client.protocol->writeFieldStop();
    client.protocol->writeStructEnd();
    client.protocol->writeMessageEnd();
    client.transport->flush();

    std::string name;
    protocol::TMessageType type;
    int32_t seqid = -1;
    auto in = std::make_shared<protocol::TBinaryProtocol>(client.transport);
    in->readMessageBegin(name, type, seqid);
    ASSERT_EQ(type, protocol::T_EXCEPTION);
    TApplicationException error;
    error.read(in.get());
    in->readMessageEnd();
    EXPECT_EQ(error.getType(), TApplicationException::UNKNOWN_METHOD);
    EXPECT_STREQ(error.what(), "Invalid method name: 'foo'");
}

}  // namespace
