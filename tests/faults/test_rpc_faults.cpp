// Errors that leave an operation as exceptions reach the client as exception replies, and the
// server, the connection and the service go on working. Requests too deep for a recursive parser
// are answered like any other malformed request.
#include <gtest/gtest.h>
#include <thrift/TApplicationException.h>

#include <boost/filesystem.hpp>

#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "faults/FaultSupport.h"
#include "portal/PortalFixture.h"
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

TEST_F(RpcFaults, CopyingFromAPlainFileIsAnExceptionReplyAndTheSourceStays) {
    const std::string file = scratch_.write("plain.css", "plain");
    std::string result;
    const std::string what = expectExceptionReply(
        [&] { client_->service.copyPortalDir(result, helion::test::copyRequest(file, "web")); });
    EXPECT_NE(what.find("Not a directory"), std::string::npos) << what;
    EXPECT_TRUE(fs::is_regular_file(file));
    // The target was created before the walk failed.
    EXPECT_TRUE(fs::is_directory(root_ / "web"));

    const std::string dir = scratch_.str() + "/src";
    scratch_.write("src/a.css", "a");
    client_->service.copyPortalDir(result, helion::test::copyRequest(dir, "web"));
    EXPECT_EQ(parseEnvelope(result).code, 0);
    EXPECT_EQ(helion::test::readFile((root_ / "web/a.css").string()), "a");
}

TEST_F(RpcFaults, DeleteStatusQueryThrowsOnlyForErrorsOtherThanAbsence) {
    plant("file.txt", "f");
    plant("gone/x.css");
    std::string result;
    // A path through a plain file reads as absent: skipped, nothing thrown.
    client_->service.delPortalDir(result, helion::test::deleteRequest({"file.txt/sub"}));
    EXPECT_EQ(parseEnvelope(result).code, 0);
    EXPECT_TRUE(fs::exists(root_ / "file.txt"));

    // A name too long for the file system makes the status query throw, after the entries
    // before it were removed.
    const std::string tooLong(300, 'n');
    const std::string what = expectExceptionReply([&] {
        client_->service.delPortalDir(result, helion::test::deleteRequest({"gone", tooLong}));
    });
    EXPECT_NE(what.find("File name too long"), std::string::npos) << what;
    EXPECT_FALSE(fs::exists(root_ / "gone"));

    client_->service.delPortalDir(result, helion::test::deleteRequest({"file.txt"}));
    EXPECT_EQ(parseEnvelope(result).code, 0);
    EXPECT_FALSE(fs::exists(root_ / "file.txt"));
}

TEST_F(RpcFaults, DeeplyNestedRequestsAreOrdinaryJsonErrors) {
    plant("web/old.css", "old");
    const std::string deep(1 << 20, '[');
    const std::string closed = deep + std::string(deep.size(), ']');
    std::string result;
    for (const auto* request : {&deep, &closed}) {
        client_->service.updatePortal(result, *request);
        const auto envelope = parseEnvelope(result);
        // Unclosed it is no JSON; closed it is an array, which binds nothing, so the empty
        // package path fails verification.
        EXPECT_EQ(envelope.code, request == &deep ? 3 : 1) << result;
        client_->service.copyPortalDir(result, *request);
        EXPECT_EQ(parseEnvelope(result).code, request == &deep ? 3 : 7);
        client_->service.delPortalDir(result, *request);
        EXPECT_EQ(parseEnvelope(result).code, request == &deep ? 3 : 0);
    }
    EXPECT_EQ(helion::test::readFile((root_ / "web/old.css").string()), "old");
    EXPECT_TRUE(client_->service.IsRpcStatusNormal());
}

}  // namespace
