// The module driven by a fake host: loading and RPC registration, its failures, the lifecycle
// lines and null HTTP arguments.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "SdpPromote/ModuleInstance.h"
#include "support/TestSupport.h"

namespace {

using helion::test::FakeRequest;
using helion::test::FakeResponse;
using helion::test::FakeRpcServer;
using helion::test::FakeRuntimeContext;
using helion::test::LogCapture;

constexpr const char* kGuidLine =
    "[HelionPromote:moduleWillLoadFinished:133]: 7c9e6679-7425-40de-944b-e07fc1f90ae7 module "
    "will load finished";

class ModuleLoad : public ::testing::Test {
protected:
    void SetUp() override {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        context_.services["RpcServer"] = static_cast<corvid::IRpcServer*>(&server_);
    }

    ModuleInstance& module_ = ModuleInstance::shared();
    FakeRpcServer server_;
    FakeRuntimeContext context_;
    LogCapture log_;
};

TEST_F(ModuleLoad, RegistersTheServiceProcessorAndLogsTheGuid) {
    module_.moduleWillLoadFinished(&context_);

    EXPECT_EQ(module_.getRuntimeContext(), &context_);
    EXPECT_EQ(context_.queries, std::vector<std::string>{"RpcServer"});
    ASSERT_EQ(server_.processors.size(), 1U);
    ASSERT_EQ(server_.processors.count("SdpPromoteService"), 1U);
    EXPECT_NE(server_.processors["SdpPromoteService"], nullptr);
    // The server holds the only reference: the module keeps none.
    EXPECT_EQ(server_.processors["SdpPromoteService"].use_count(), 1);

    const auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, spdlog::level::info);
    EXPECT_EQ(lines[0].text, kGuidLine);
}

TEST_F(ModuleLoad, EachLoadRegistersAFreshProcessor) {
    module_.moduleWillLoadFinished(&context_);
    const auto first = server_.processors["SdpPromoteService"];
    module_.moduleWillLoadFinished(&context_);
    EXPECT_NE(server_.processors["SdpPromoteService"], first);
}

TEST_F(ModuleLoad, AThrowingRegistrationIsLoggedOnceWithoutTheGuidLine) {
    const std::pair<std::function<void()>, std::string> cases[] = {
        {[] { throw std::runtime_error("T"); },
         "127]: An exception occurred while the module "
         "was loading; Reason: T"},
        {[] { throw 42; },
         "130]: An exception occurred while the module was loading; Reason: "
         "Unknown exception"},
    };
    for (const auto& [thrower, text] : cases) {
        log_.clear();
        server_.throwOnRegister = thrower;
        EXPECT_NO_THROW(module_.moduleWillLoadFinished(&context_));
        const auto lines = log_.lines();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].level, spdlog::level::err);
        EXPECT_EQ(lines[0].text, "[HelionPromote:moduleWillLoadFinished:" + text);
        EXPECT_TRUE(server_.processors.empty());
    }
}

TEST_F(ModuleLoad, ANullContextIsAFatalAssertion) {
    EXPECT_DEATH(module_.moduleWillLoadFinished(nullptr),
                 "msg.*: 'The context cann't be nullable'(.|\n)*"
                 "Fatal.* in .*File.*: SdpPromote/ModuleInstance, .*Line.*: 116, .*Function.*: "
                 "virtual void ModuleInstance::moduleWillLoadFinished\\(corvid::IRunTimeContext "
                 "\\*\\)\n.*Expression.*: 'context != nullptr' failed\nValues:context='nullptr'");
}

TEST_F(ModuleLoad, AContextWithoutRpcServerIsAFatalAssertionBeforeAnyRegistration) {
    FakeRuntimeContext empty;
    EXPECT_DEATH(module_.moduleWillLoadFinished(&empty),
                 "msg.*: 'Cann't get rpc service from RuntimeContext'(.|\n)*"
                 "Fatal.* in .*File.*: SdpPromote/ModuleInstance, .*Line.*: 123,(.|\n)*"
                 "Expression.*: 'rpcServer != nullptr' failed");
}

TEST_F(ModuleLoad, LifecycleCallsLogTheirNamesAndChangeNothing) {
    module_.moduleWillLoadFinished(&context_);
    log_.clear();
    module_.moduleDidLoadFinished();
    module_.moduleWillUnloadFinished();
    module_.moduleDidUnloadFinished();

    const auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].text, "[HelionPromote:moduleDidLoadFinished:139]: moduleDidLoadFinished");
    EXPECT_EQ(lines[1].text,
              "[HelionPromote:moduleWillUnloadFinished:181]: moduleWillUnloadFinished");
    EXPECT_EQ(lines[2].text,
              "[HelionPromote:moduleDidUnloadFinished:186]: moduleDidUnloadFinished");
    for (const auto& line : lines) {
        EXPECT_EQ(line.level, spdlog::level::info);
    }
    // Unloading keeps the context and leaves the registration to the server.
    EXPECT_EQ(module_.getRuntimeContext(), &context_);
    EXPECT_EQ(server_.processors.size(), 1U);
}

TEST_F(ModuleLoad, NullHttpArgumentsAreFatalAssertions) {
    FakeRequest request("GET", "/");
    FakeResponse response;
    EXPECT_DEATH(module_.moduleDidRecivedHttpMessage(nullptr, &response),
                 "msg.*: 'Http Request cann't be empty'(.|\n)*Line.*: 160, .*Function.*: virtual "
                 "bool ModuleInstance::moduleDidRecivedHttpMessage\\(corvid::IRequest \\*, "
                 "corvid::IResponse \\*\\)\n.*Expression.*: 'req != nullptr' failed\n"
                 "Values:req='nullptr'");
    // The response check reuses the request's expression text.
    EXPECT_DEATH(module_.moduleDidRecivedHttpMessage(&request, nullptr),
                 "msg.*: 'Http Response cann't be empty'(.|\n)*Line.*: 161,(.|\n)*"
                 "Expression.*: 'req != nullptr' failed\nValues:res='nullptr'");
}

}  // namespace
