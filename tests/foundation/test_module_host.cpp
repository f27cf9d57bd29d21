// The module as a host drives it. The host calls through vtable slots, not names: these tests build
// the host's objects by hand, with functions at fixed positions, and call the module by position,
// so that reordering, inserting or removing a virtual operation anywhere in the SDK fails here.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "SdpPromote/ModuleInstance.h"
#include "common/EventCenter.h"
#include "corvid/IEventBus.h"
#include "corvid/IModule.h"
#include "corvid/IRpcServer.h"
#include "http/HttpRouter.h"
#include "support/TestSupport.h"

namespace {

// A static_cast from base to derived is ill-formed exactly when the base is virtual.
template <typename Base, typename Derived, typename = void>
struct CanDowncast : std::false_type {};
template <typename Base, typename Derived>
struct CanDowncast<Base, Derived,
                   std::void_t<decltype(static_cast<Derived*>(std::declval<Base*>()))>>
    : std::true_type {};

static_assert(!CanDowncast<corvid::IObject, corvid::IPluginBase>::value, "IObject is virtual");
static_assert(!CanDowncast<corvid::IPluginBase, corvid::IModule>::value, "so is IPluginBase");
static_assert(CanDowncast<corvid::IModule, ModuleInstance>::value, "IModule is not");
static_assert(!std::is_base_of_v<corvid::HttpRouter, ModuleInstance>, "the router is held");
static_assert(std::has_virtual_destructor_v<corvid::HttpRouter> &&
              std::has_virtual_destructor_v<corvid::IObject>);
static_assert(sizeof(corvid::IRunTimeContext) == sizeof(void*) &&
              !std::has_virtual_destructor_v<corvid::IRunTimeContext>);

template <typename Fn>
void* slotOf(Fn fn) {
    void* raw = nullptr;
    static_assert(sizeof(fn) == sizeof(raw));
    std::memcpy(&raw, &fn, sizeof(raw));
    return raw;
}

// Calls slot (counted from one, as the host counts) of object's vtable as a Fn.
template <typename Fn, typename... Args>
auto callSlot(void* object, int slot, Args... args) {
    Fn fn = nullptr;
    std::memcpy(&fn, &(*static_cast<void***>(object))[slot - 1], sizeof(fn));
    return fn(object, args...);
}

// What the host objects were asked, in order; slots the module must not use note "wrong slot".
std::vector<std::string> calls;
std::string note(const std::string& call) {
    calls.push_back(call);
    return call;
}
bool hideServices = false, busAnswer = true;
std::function<void()> registerFault;
std::string registeredName, answer;
std::shared_ptr<apache::thrift::TProcessor> registeredProcessor;
void* const wrong = slotOf(+[](void*) { note("wrong slot"); });

// An object whose vptr points at slot 1 of a table laid out as the compiler lays one out:
// offset to top, type info, then the slots; interfaces with a virtual destructor get two
// destructor slots first, which the module must never call.
struct HandMade {
    HandMade(const std::type_info& type, std::vector<void*> slots, bool destructors = true)
        : table{nullptr, const_cast<std::type_info*>(&type)} {
        table.insert(table.end(), destructors ? 2 : 0, wrong);
        table.insert(table.end(), slots.begin(), slots.end());
        vptr = table.data() + 2;
    }
    template <typename T = void>
    T* as() {
        return reinterpret_cast<T*>(&vptr);
    }
    std::vector<void*> table;
    void** vptr;
};

HandMade rpcServer{
    typeid(corvid::IRpcServer),
    {slotOf(+[](void*, const char* name, std::shared_ptr<apache::thrift::TProcessor>& processor) {
        note("registerProcessor");
        if (registerFault) {
            registerFault();
        }
        registeredName = name;
        registeredProcessor = processor;
    })}};
HandMade eventBus{typeid(corvid::IEventBus),
                  {slotOf(+[](void*, const char* topic, const char* text) {
                      return note(std::string("publish ") + topic + " " + text), busAnswer;
                  })}};
HandMade context{typeid(corvid::IRunTimeContext),
                 {slotOf(+[](void*, const char* name) {
                     note(std::string("queryService ") + name);
                     const std::string service = hideServices ? "" : name;
                     return service == "RpcServer"  ? rpcServer.as()
                            : service == "EventBus" ? eventBus.as()
                                                    : nullptr;
                 })},
                 false};
HandMade request{typeid(corvid::IRequest),
                 {wrong, wrong, slotOf(+[](void*) { return note("body"), R"({"name":"x"})"; }),
                  wrong, slotOf(+[](void*) { return note("method"), "POST"; }),
                  slotOf(+[](void*) { return note("url"), "/api/update"; })}};
HandMade response{typeid(corvid::IResponse),
                  {slotOf(+[](void*, int32_t code) { answer = std::to_string(code); }), wrong,
                   slotOf(+[](void*, const char* text, int32_t flag) {
                       answer += std::string(" ") + text + " " + std::to_string(flag);
                   })}};

constexpr const char* kGuid = "7c9e6679-7425-40de-944b-e07fc1f90ae7";
using Lines = std::vector<std::string>;

class ModuleHost : public ::testing::Test {
protected:
    void SetUp() override {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        calls.clear();
        registerFault = nullptr;
        registeredProcessor.reset();
    }
    // Each captured line as "level text".
    Lines lines() const {
        Lines out;
        for (const auto& line : log_.lines()) {
            out.push_back(std::to_string(line.level) + " " + line.text);
        }
        return out;
    }

    corvid::IModule* module_ = CreateInstance();
    helion::test::LogCapture log_;
};

TEST_F(ModuleHost, EveryEntryIsReachedByPosition) {
    EXPECT_EQ(CreateInstance(), module_);
    EXPECT_EQ(module_, static_cast<corvid::IModule*>(&ModuleInstance::shared()));
    FreeInstance(module_);
    EXPECT_EQ(callSlot<int32_t (*)(void*)>(module_, 7), 0);
    EXPECT_STREQ(callSlot<const char* (*)(void*)>(module_, 8), kGuid);

    const char* capacities = callSlot<const char* (*)(void*)>(module_, 9);
    EXPECT_STREQ(capacities,
                 "\n"
                 "      {\n"
                 "            \"name\": \"HelionPromote\",\n"
                 "            \"version\": \"2.2.16.1\",\n"
                 "            \"custom\": {\n"
                 "                \"code\": \"\",\n"
                 "                \"version\": \"\"\n"
                 "            },\n"
                 "            \"description\": \"First release\"\n"
                 "      }\n"
                 "    ");
    EXPECT_EQ(module_->moduleCapacities(), capacities);

    const char** routes = callSlot<const char** (*)(void*)>(module_, 10);
    ASSERT_NE(routes, nullptr);
    EXPECT_EQ(routes[0], nullptr);
    EXPECT_EQ(module_->moduleRouters(), routes);

    EXPECT_FALSE((callSlot<bool (*)(void*, const char*, const char*)>(module_, 11, "topic", "c")));
    EXPECT_EQ(lines(), Lines{"1 [HelionPromote:moduleDidRecivedEventMessage:"
                             "148]: receviced event: [topic]"});

    calls.clear();
    EXPECT_FALSE(
        (callSlot<bool (*)(void*, void*, void*)>(module_, 12, request.as(), response.as())));
    EXPECT_EQ(answer, "503 Service Unavailable 1");
    std::sort(calls.begin(), calls.end());
    EXPECT_EQ(calls, (Lines{"body", "method", "url", "url"}));
}

TEST_F(ModuleHost, LoadingRegistersAFreshProcessorThenTheLifecycleOnlyLogs) {
    EXPECT_FALSE(corvid::details::EventCenter::broadcast("early", "c")) << "not loaded yet";
    auto* host = context.as<corvid::IRunTimeContext>();
    callSlot<void (*)(void*, void*)>(module_, 3, host);
    EXPECT_EQ(calls, (Lines{"queryService RpcServer", "registerProcessor"}));
    EXPECT_EQ(registeredName, "SdpPromoteService");
    ASSERT_NE(registeredProcessor, nullptr);
    EXPECT_EQ(registeredProcessor.use_count(), 1) << "the module keeps no reference";
    EXPECT_EQ(ModuleInstance::shared().getRuntimeContext(), host);
    EXPECT_EQ(lines(), Lines{"2 [HelionPromote:moduleWillLoadFinished:133]: " + std::string(kGuid) +
                             " module will load finished"});

    const auto first = registeredProcessor;
    module_->moduleWillLoadFinished(host);
    EXPECT_NE(registeredProcessor, first);

    // Unloading keeps the context and leaves the registration to the server.
    log_.clear();
    for (int slot = 4; slot <= 6; ++slot) {
        callSlot<void (*)(void*)>(module_, slot);
    }
    EXPECT_EQ(lines(),
              (Lines{"2 [HelionPromote:moduleDidLoadFinished:139]: moduleDidLoadFinished",
                     "2 [HelionPromote:moduleWillUnloadFinished:181]: moduleWillUnloadFinished",
                     "2 [HelionPromote:moduleDidUnloadFinished:186]: moduleDidUnloadFinished"}));
    calls.clear();
    EXPECT_TRUE(corvid::details::EventCenter::broadcast("topic", "content"));
    busAnswer = false;
    EXPECT_FALSE(corvid::details::EventCenter::broadcast("t2", ""));
    hideServices = true;
    EXPECT_FALSE(corvid::details::EventCenter::broadcast("no bus", "c"));
    hideServices = false;
    EXPECT_EQ(calls, (Lines{"queryService EventBus", "publish topic content",
                            "queryService EventBus", "publish t2 ", "queryService EventBus"}));

    // A failing registration is logged once and the load returns.
    const std::pair<std::function<void()>, std::string> cases[] = {
        {[] { throw std::runtime_error("T"); },
         "127]: An exception occurred while the module was loading; Reason: T"},
        {[] { throw 42; },
         "130]: An exception occurred while the module was loading; Reason: Unknown exception"},
    };
    for (const auto& [fault, text] : cases) {
        log_.clear();
        registerFault = fault;
        registeredProcessor.reset();
        EXPECT_NO_THROW(module_->moduleWillLoadFinished(host));
        EXPECT_EQ(lines(), Lines{"4 [HelionPromote:moduleWillLoadFinished:" + text});
        EXPECT_EQ(registeredProcessor, nullptr);
    }
}

TEST_F(ModuleHost, NullArgumentsAreFatalAssertions) {
    auto* host = context.as<corvid::IRunTimeContext>();
    auto* req = request.as<corvid::IRequest>();
    const std::string load =
        "void ModuleInstance::moduleWillLoadFinished\\(corvid::IRunTimeContext \\*\\)";
    const std::string http =
        "bool ModuleInstance::moduleDidRecivedHttpMessage\\(corvid::IRequest "
        "\\*, corvid::IResponse \\*\\)";
    const std::string event =
        "bool ModuleInstance::moduleDidRecivedEventMessage\\(const char \\*, "
        "const char \\*\\)";
    const struct {
        std::function<void()> call;
        std::string message, line, function, expression, value;
    } cases[] = {
        {[&] { module_->moduleWillLoadFinished(nullptr); }, "The context cann't be nullable", "116",
         load, "context", "context"},
        {[&] { hideServices = true, module_->moduleWillLoadFinished(host); },
         "Cann't get rpc service from RuntimeContext", "123", load, "rpcServer", "rpcServer"},
        {[&] { module_->moduleDidRecivedHttpMessage(nullptr, nullptr); },
         "Http Request cann't be empty", "160", http, "req", "req"},
        {[&] { module_->moduleDidRecivedHttpMessage(req, nullptr); },
         "Http Response cann't be empty", "161", http, "req", "res"},
        {[&] { module_->moduleDidRecivedEventMessage(nullptr, "c"); },
         "The topic of event cann't be nullable", "145", event, "topic", "topic"},
        {[&] { module_->moduleDidRecivedEventMessage("t", nullptr); },
         "The content of event cann't be nullable", "146", event, "content", "content"},
    };
    for (const auto& c : cases) {
        EXPECT_DEATH(c.call(),
                     "msg.*: '" + c.message +
                         "'(.|\n)*Fatal.* in .*File.*: SdpPromote/ModuleInstance, .*Line.*: " +
                         c.line + ", .*Function.*: virtual " + c.function + "\n.*Expression.*: '" +
                         c.expression + " != nullptr' failed\nValues:" + c.value + "='nullptr'\n\n")
            << c.message;
    }
}

}  // namespace
