// Errors that leave an operation as exceptions reach the client as exception replies, and the
// server, the connection and the service go on working. Requests too deep for a recursive parser
// are answered like any other malformed request.
#include <gtest/gtest.h>
#include <thrift/TApplicationException.h>

#include <boost/filesystem.hpp>

#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "portal/PortalFixture.h"
#include "support/FaultSupport.h"
#include "support/InProcessRpc.h"

namespace {

using apache::thrift::TApplicationException;
using helion::test::parseEnvelope;
namespace fs = boost::filesystem;

class RpcFaults : public helion::test::PortalRootTest {
protected:
    void SetUp() override {
        PortalRootTest::SetUp();
        auto processor = corvid::SdpPromoteServiceImpl::getProcessor();
        host_.registerProcessor(corvid::SdpPromoteServiceImpl::getServiceName(), processor);
        host_.start();
        client_ = std::make_unique<helion::test::RpcClient>(socketPath_);
    }

    // The call fails with an exception reply; the same connection then still answers.
    template <typename Call>
    std::string expectExceptionReply(Call call) {
        std::string what;
        try {
            call();
            ADD_FAILURE() << "no exception reply";
        } catch (const TApplicationException& error) {
            what = error.what();
        }
        EXPECT_TRUE(client_->service.IsRpcStatusNormal());
        return what;
    }

    std::string socketPath_ = (scratch_.path() / "rpc.sock").string();
    helion::test::MultiplexingHost host_{socketPath_};
    std::unique_ptr<helion::test::RpcClient> client_;
};

// Copying from a plain file fails walking it; a name too long for the file system makes the
// delete's status query throw, after the entries before it were removed.
TEST_F(RpcFaults, ErrorsLeavingAnOperationAreExceptionRepliesAndServingGoesOn) {
    const std::string file = scratch_.write("plain.css", "plain");
    plant("gone/x.css");
    plant("file.txt");
    std::string result;
    EXPECT_NE(expectExceptionReply([&] {
                  client_->service.copyPortalDir(result, helion::test::copyRequest(file, "web"));
              }).find("Not a directory"),
              std::string::npos);
    EXPECT_TRUE(fs::is_regular_file(file));
    EXPECT_TRUE(fs::is_directory(root_ / "web"));  // created before the walk failed
    EXPECT_NE(expectExceptionReply([&] {
                  client_->service.delPortalDir(
                      result, helion::test::deleteRequest({"gone", std::string(300, 'n')}));
              }).find("File name too long"),
              std::string::npos);
    EXPECT_FALSE(fs::exists(root_ / "gone"));

    // A path through a plain file reads as absent: skipped, nothing thrown.
    client_->service.delPortalDir(result, helion::test::deleteRequest({"file.txt/sub", "web"}));
    EXPECT_EQ(parseEnvelope(result).code, 0);
    EXPECT_TRUE(fs::exists(root_ / "file.txt"));
    EXPECT_FALSE(fs::exists(root_ / "web"));
    scratch_.write("src/a.css", "a");
    client_->service.copyPortalDir(result,
                                   helion::test::copyRequest(scratch_.str() + "/src", "web"));
    EXPECT_EQ(parseEnvelope(result).code, 0);
    EXPECT_EQ(portalFile("web/a.css"), "a");
}

TEST_F(RpcFaults, DeeplyNestedRequestsAreOrdinaryJsonErrors) {
    plant("web/old.css", "old");
    const std::string deep(1 << 20, '[');
    const std::string closed = deep + std::string(deep.size(), ']');
    std::string result;
    for (const auto* request : {&deep, &closed}) {
        client_->service.updatePortal(result, *request);
        // Unclosed it is no JSON; closed it is an array, which binds nothing, so the empty
        // package path fails verification.
        EXPECT_EQ(parseEnvelope(result).code, request == &deep ? 3 : 1) << result;
        client_->service.copyPortalDir(result, *request);
        EXPECT_EQ(parseEnvelope(result).code, request == &deep ? 3 : 7);
        client_->service.delPortalDir(result, *request);
        EXPECT_EQ(parseEnvelope(result).code, request == &deep ? 3 : 0);
    }
    EXPECT_EQ(portalFile("web/old.css"), "old");
    EXPECT_TRUE(client_->service.IsRpcStatusNormal());
}

}  // namespace
