// The module's processor, registered through the host interface, serves real Thrift clients.
#include <gtest/gtest.h>
#include <thrift/TApplicationException.h>
#include <thrift/protocol/TBinaryProtocol.h>

#include "SdpPromote/ModuleInstance.h"
#include "rpc/SdpPromoteService.h"
#include "support/InProcessRpc.h"
#include "support/TestSupport.h"

namespace {

using namespace apache::thrift;
using helion::test::MultiplexingHost;
using helion::test::RpcClient;

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
    RpcClient client(socketPath_);
    EXPECT_TRUE(client.service.IsRpcStatusNormal());
}

TEST_F(RpcRoundTrip, UnknownMethodGetsAnExceptionReply) {
    RpcClient client(socketPath_);
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
