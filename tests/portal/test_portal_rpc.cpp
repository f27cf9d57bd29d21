// End to end: the module registers with a host's RPC server and installs a signed package sent by
// a real Thrift client.
#include <gtest/gtest.h>

#include "SdpPromote/ModuleInstance.h"
#include "portal/PackageKit.h"
#include "portal/PortalFixture.h"
#include "support/InProcessRpc.h"

namespace {

using helion::test::readFile;

class PortalOverRpc : public helion::test::PortalRootTest {
protected:
    void SetUp() override {
        PortalRootTest::SetUp();
        context_.services["RpcServer"] = static_cast<corvid::IRpcServer*>(&host_);
        ModuleInstance::shared().moduleWillLoadFinished(&context_);
        host_.start();
    }

    std::string socketPath_ = (scratch_.path() / "rpc.sock").string();
    helion::test::MultiplexingHost host_{socketPath_};
    helion::test::FakeRuntimeContext context_;
};

TEST_F(PortalOverRpc, InstallsASignedPackageAndRefusesATamperedOne) {
    const std::string zip = (scratch_.path() / "portal.zip").string();
    helion::test::writeZip(zip, {{"index.html", "<html/>"}, {"img/logo.png", "png"}});
    const std::string bytes = readFile(zip);
    const std::string sig = scratch_.write(
        "portal.sig", helion::test::sign(bytes, helion::test::devPrivateKey().get()));
    const std::string request =
        R"({"srcZip":")" + zip + R"(","portalDir":"web","signFile":")" + sig + R"("})";

    helion::test::RpcClient client(socketPath_);
    std::string result;
    client.service.updatePortal(result, request);
    EXPECT_EQ(result, R"({"code":0,"message":"successful","data":""})");
    EXPECT_EQ(readFile((root_ / "web/index.html").string()), "<html/>");
    EXPECT_EQ(readFile((root_ / "web/img/logo.png").string()), "png");

    std::string tampered = bytes;
    tampered[10] ^= 0x01;
    scratch_.write("portal.zip", tampered);
    client.service.updatePortal(result, request);
    EXPECT_EQ(result, R"({"code":1,"message":"verify signature error","data":""})");
    EXPECT_EQ(readFile((root_ / "web/index.html").string()), "<html/>");
    EXPECT_EQ(readFile((root_ / "web/img/logo.png").string()), "png");
}

}  // namespace
