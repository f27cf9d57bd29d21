// The module driven by a fake host: loading and RPC registration, its failures, the lifecycle
// lines, and HTTP intake with no routes.
#include <gtest/gtest.h>

#include <mutex>
#include <stdexcept>
#include <string>
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

TEST_F(ModuleLoad, AStandardExceptionFromRegistrationIsLoggedOnce) {
    server_.throwOnRegister = [] { throw std::runtime_error("T"); };
    EXPECT_NO_THROW(module_.moduleWillLoadFinished(&context_));

    const auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, spdlog::level::err);
    EXPECT_EQ(lines[0].text,
              "[HelionPromote:moduleWillLoadFinished:127]: An exception occurred while the module "
              "was loading; Reason: T");
    EXPECT_FALSE(log_.contains("module will load finished"));
    EXPECT_TRUE(server_.processors.empty());
}

TEST_F(ModuleLoad, AnythingElseThrownIsLoggedAsUnknown) {
    server_.throwOnRegister = [] { throw 42; };
    EXPECT_NO_THROW(module_.moduleWillLoadFinished(&context_));

    const auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, spdlog::level::err);
    EXPECT_EQ(lines[0].text,
              "[HelionPromote:moduleWillLoadFinished:130]: An exception occurred while the module "
              "was loading; Reason: Unknown exception");
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

TEST_F(ModuleLoad, LifecycleCallsSurviveALoggerThatThrows) {
    auto logger = std::make_shared<spdlog::logger>("throwing");
    struct ThrowingSink : spdlog::sinks::base_sink<std::mutex> {
        void sink_it_(const spdlog::details::log_msg&) override { throw spdlog::spdlog_ex("T"); }
        void flush_() override {}
    };
    logger->sinks().push_back(std::make_shared<ThrowingSink>());
    corvid::Logger::GetInstance().init(logger, spdlog::level::info);

    testing::internal::CaptureStderr();
    EXPECT_NO_THROW(module_.moduleDidLoadFinished());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "sdplog exception[HelionPromote:moduleDidLoadFinished:139]: T\n");
}

TEST_F(ModuleLoad, HttpRequestsWithoutRoutesGetServiceUnavailable) {
    const std::vector<std::pair<std::string, std::string>> requests{
        {"GET", "/"}, {"post", "/api/update"}, {"DELETE", "\\API\\Update"}, {"", ""}};
    for (const auto& [method, url] : requests) {
        FakeRequest request(method, url, "not json at all");
        FakeResponse response;
        EXPECT_FALSE(module_.moduleDidRecivedHttpMessage(&request, &response));
        EXPECT_EQ(response.status, 503) << method << " " << url;
        EXPECT_EQ(response.content, "Service Unavailable");
        EXPECT_EQ(response.contentFlag, 1);
    }
    EXPECT_TRUE(log_.lines().empty());
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
