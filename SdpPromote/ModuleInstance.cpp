#include "SdpPromote/ModuleInstance.h"

#include <boost/exception/diagnostic_information.hpp>
#include <boost/format.hpp>
#include <exception>
#include <string>

#include "SdpPromote/ModuleIdentity.h"
#include "SdpPromote/RouterHelper.h"
#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "common/EventCenter.h"
#include "common/Log.h"
#include "common/SmartAssert.h"
#include "corvid/IRpcServer.h"

namespace {

// Assertion places and log lines keep the source positions operators know them by.
constexpr const char* kSourceFile = "SdpPromote/ModuleInstance";
constexpr const char* kWillLoadFunction =
    "virtual void ModuleInstance::moduleWillLoadFinished(corvid::IRunTimeContext *)";
constexpr const char* kEventFunction =
    "virtual bool ModuleInstance::moduleDidRecivedEventMessage(const char *, const char *)";
constexpr const char* kHttpFunction =
    "virtual bool ModuleInstance::moduleDidRecivedHttpMessage(corvid::IRequest *, "
    "corvid::IResponse *)";

enum Line : int {
    kAssertContext = 116,
    kAssertRpcServer = 123,
    kLoadStdException = 127,
    kLoadUnknownException = 130,
    kWillLoad = 133,
    kDidLoad = 139,
    kAssertTopic = 145,
    kAssertContent = 146,
    kEventReceived = 148,
    kEventFailed = 154,
    kAssertRequest = 160,
    kAssertResponse = 161,
    kHttpFailed = 173,
    kWillUnload = 181,
    kDidUnload = 186,
};

constexpr const char* kLoadFailure = "An exception occurred while the module was loading";

constexpr const char* kCapacitiesTemplate =
    "\n"
    "      {\n"
    "            \"name\": \"%1%\",\n"
    "            \"version\": \"%2%\",\n"
    "            \"custom\": {\n"
    "                \"code\": \"%3%\",\n"
    "                \"version\": \"%4%\"\n"
    "            },\n"
    "            \"description\": \"First release\"\n"
    "      }\n"
    "    ";

}  // namespace

ModuleInstance& ModuleInstance::shared() {
    static ModuleInstance instance;
    return instance;
}

void ModuleInstance::moduleWillLoadFinished(corvid::IRunTimeContext* context) {
    SMART_ASSERT_AT(context != nullptr, kSourceFile, kAssertContext, kWillLoadFunction)
        .print_current_val(context, "context")
        .fatal("The context cann't be nullable");
    context_ = context;
    corvid::details::EventCenter::shared().connectHost(context);
    try {
        auto* rpcServer =
            static_cast<corvid::IRpcServer*>(context->queryService(corvid::kRpcServerService));
        SMART_ASSERT_AT(rpcServer != nullptr, kSourceFile, kAssertRpcServer, kWillLoadFunction)
            .print_current_val(rpcServer, "rpcServer")
            .fatal("Cann't get rpc service from RuntimeContext");
        auto processor = corvid::SdpPromoteServiceImpl::getProcessor();
        rpcServer->registerProcessor(corvid::SdpPromoteServiceImpl::getServiceName(), processor);
    } catch (const std::exception& error) {
        HP_LOG_AT(spdlog::level::err, "moduleWillLoadFinished", kLoadStdException, "{}; Reason: {}",
                  kLoadFailure, error.what());
        return;
    } catch (...) {
        HP_LOG_AT(spdlog::level::err, "moduleWillLoadFinished", kLoadUnknownException,
                  "{}; Reason: {}", kLoadFailure, "Unknown exception");
        return;
    }
    HP_LOG_AT(spdlog::level::info, "moduleWillLoadFinished", kWillLoad,
              "{} module will load finished", corvid::identity::kGuid);
}

void ModuleInstance::moduleDidLoadFinished() {
    HP_LOG_AT(spdlog::level::info, "moduleDidLoadFinished", kDidLoad, "{}",
              "moduleDidLoadFinished");
}

void ModuleInstance::moduleWillUnloadFinished() {
    HP_LOG_AT(spdlog::level::info, "moduleWillUnloadFinished", kWillUnload, "{}",
              "moduleWillUnloadFinished");
}

void ModuleInstance::moduleDidUnloadFinished() {
    HP_LOG_AT(spdlog::level::info, "moduleDidUnloadFinished", kDidUnload, "{}",
              "moduleDidUnloadFinished");
}

int32_t ModuleInstance::modulePriority() {
    return corvid::identity::kPriority;
}

const char* ModuleInstance::moduleGuid() {
    return corvid::identity::kGuid;
}

const char* ModuleInstance::moduleCapacities() {
    static boost::format capacitiesFormat(kCapacitiesTemplate);
    static const std::string capacities =
        (capacitiesFormat % corvid::identity::kName % corvid::identity::kVersion % "" % "").str();
    return capacities.c_str();
}

const char** ModuleInstance::moduleRouters() {
    static const corvid::RouterHelper helper(router_.getKeys());
    return helper.array();
}

bool ModuleInstance::moduleDidRecivedEventMessage(const char* topic, const char* content) {
    SMART_ASSERT_AT(topic != nullptr, kSourceFile, kAssertTopic, kEventFunction)
        .print_current_val(topic, "topic")
        .fatal("The topic of event cann't be nullable");
    SMART_ASSERT_AT(content != nullptr, kSourceFile, kAssertContent, kEventFunction)
        .print_current_val(content, "content")
        .fatal("The content of event cann't be nullable");
    HP_LOG_AT(spdlog::level::debug, "moduleDidRecivedEventMessage", kEventReceived,
              "receviced event: [{}]", topic);
    try {
        corvid::details::EventCenter::shared().dispatch(topic, content);
    } catch (...) {
        HP_LOG_AT(spdlog::level::warn, "moduleDidRecivedEventMessage", kEventFailed,
                  "occur exception when handle topic: {}, content: {}; Reason: {}", topic, content,
                  boost::current_exception_diagnostic_information(true));
    }
    return false;
}

bool ModuleInstance::moduleDidRecivedHttpMessage(corvid::IRequest* req, corvid::IResponse* resp) {
    SMART_ASSERT_AT(req != nullptr, kSourceFile, kAssertRequest, kHttpFunction)
        .print_current_val(req, "req")
        .fatal("Http Request cann't be empty");
    if (resp == nullptr) {
        // The request's expression text is reused here on purpose.
        smart_assert::Assert("req != nullptr")
            .context(kSourceFile, kAssertResponse, kHttpFunction)
            .print_current_val(resp, "res")
            .fatal("Http Response cann't be empty");
    }
    std::string url;
    try {
        const char* rawUrl = req->url();
        url = rawUrl != nullptr ? rawUrl : "";
        router_.apply(req, resp);
    } catch (...) {
        HP_LOG_AT(spdlog::level::err, "moduleDidRecivedHttpMessage", kHttpFailed,
                  "Handle http request '{}' failure; Reason: {}", url,
                  boost::current_exception_diagnostic_information());
    }
    return false;
}
