// The host calls through vtable slots, not names. These tests build host objects by hand, with
// functions placed at fixed positions, and call the module by position, so that reordering,
// inserting or removing a virtual operation anywhere in the SDK fails here.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "SdpPromote/ModuleInstance.h"
#include "common/EventCenter.h"
#include "corvid/IEventBus.h"
#include "corvid/IModule.h"
#include "corvid/IRequest.h"
#include "corvid/IResponse.h"
#include "corvid/IRpcServer.h"
#include "corvid/IRunTimeContext.h"
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

static_assert(!CanDowncast<corvid::IObject, corvid::IPluginBase>::value, "IObject must be virtual");
static_assert(!CanDowncast<corvid::IPluginBase, corvid::IModule>::value,
              "IPluginBase must be virtual");
static_assert(CanDowncast<corvid::IModule, ModuleInstance>::value,
              "ModuleInstance derives from IModule non-virtually");
static_assert(!std::is_base_of_v<corvid::HttpRouter, ModuleInstance>, "the router is held");
static_assert(std::has_virtual_destructor_v<corvid::HttpRouter>);
static_assert(std::has_virtual_destructor_v<corvid::IObject>);
static_assert(!std::has_virtual_destructor_v<corvid::IRunTimeContext>);
static_assert(sizeof(corvid::IRunTimeContext) == sizeof(void*));
static_assert(std::is_base_of_v<corvid::IObject, corvid::IRpcServer> &&
              std::is_base_of_v<corvid::IObject, corvid::IEventBus> &&
              std::is_base_of_v<corvid::IObject, corvid::IRequest> &&
              std::is_base_of_v<corvid::IObject, corvid::IResponse>);

template <typename Fn>
void* slotOf(Fn fn) {
    void* raw = nullptr;
    static_assert(sizeof(fn) == sizeof(raw));
    std::memcpy(&raw, &fn, sizeof(raw));
    return raw;
}

template <typename Fn>
Fn fromSlot(void* raw) {
    Fn fn = nullptr;
    std::memcpy(&fn, &raw, sizeof(raw));
    return fn;
}

std::vector<std::string> calls;

void wrongSlot(void*) {
    calls.emplace_back("wrong slot");
}

// An object whose vptr points at slot 1 of a table laid out as the compiler lays one out:
// offset to top, type info, then the slots counted from one.
class HandMade {
public:
    HandMade(const std::type_info& type, std::vector<void*> slots) : table_(std::move(slots)) {
        table_.insert(table_.begin(), {nullptr, const_cast<std::type_info*>(&type)});
        vptr_ = table_.data() + 2;
    }
    HandMade(const HandMade&) = delete;
    HandMade& operator=(const HandMade&) = delete;

    template <typename T>
    T* as() {
        return reinterpret_cast<T*>(&vptr_);
    }

private:
    std::vector<void*> table_;
    void** vptr_;
};

// Slots 1-2 of every interface with a virtual destructor: the module never deletes host objects.
std::vector<void*> withDestructors(std::vector<void*> slots) {
    slots.insert(slots.begin(), {slotOf(&wrongSlot), slotOf(&wrongSlot)});
    return slots;
}

HandMade* rpcServerObject = nullptr;
HandMade* eventBusObject = nullptr;
std::string registeredName;
std::shared_ptr<apache::thrift::TProcessor> registeredProcessor;

void* queryService(void*, const char* name) {
    calls.push_back(std::string("queryService ") + name);
    if (std::strcmp(name, "RpcServer") == 0) {
        return rpcServerObject->as<corvid::IRpcServer>();
    }
    if (std::strcmp(name, "EventBus") == 0) {
        return eventBusObject->as<corvid::IEventBus>();
    }
    return nullptr;
}

void registerProcessor(void*, const char* name,
                       std::shared_ptr<apache::thrift::TProcessor>& processor) {
    calls.emplace_back("registerProcessor");
    registeredName = name;
    registeredProcessor = processor;
}

bool publish(void*, const char* topic, const char* content) {
    calls.push_back(std::string("publish ") + topic + " " + content);
    return true;
}

const char* requestBody(void*) {
    calls.emplace_back("body");
    return R"({"name":"x"})";
}
const char* requestMethod(void*) {
    calls.emplace_back("method");
    return "POST";
}
const char* requestUrl(void*) {
    calls.emplace_back("url");
    return "/api/update";
}

int32_t status = 0;
std::string content;
int32_t contentFlag = 0;

void setStatus(void*, int32_t code) {
    status = code;
}
void setContent(void*, const char* text, int32_t flag) {
    content = text;
    contentFlag = flag;
}

class SdkAbi : public ::testing::Test {
protected:
    void SetUp() override {
        calls.clear();
        rpcServerObject = &rpcServer_;
        eventBusObject = &eventBus_;
    }

    HandMade context_{typeid(corvid::IRunTimeContext), {slotOf(&queryService)}};
    HandMade rpcServer_{typeid(corvid::IRpcServer), withDestructors({slotOf(&registerProcessor)})};
    HandMade eventBus_{typeid(corvid::IEventBus), withDestructors({slotOf(&publish)})};
    HandMade request_{
        typeid(corvid::IRequest),
        withDestructors({slotOf(&wrongSlot), slotOf(&wrongSlot), slotOf(&requestBody),
                         slotOf(&wrongSlot), slotOf(&requestMethod), slotOf(&requestUrl)})};
    HandMade response_{
        typeid(corvid::IResponse),
        withDestructors({slotOf(&setStatus), slotOf(&wrongSlot), slotOf(&setContent)})};
    helion::test::LogCapture log_;
};

// The module's slots, counted from one as the host counts them.
void* moduleSlot(corvid::IModule* module, int slot) {
    void** table = *reinterpret_cast<void***>(module);
    return table[slot - 1];
}

TEST_F(SdkAbi, ModuleIdentityIsReachedByPosition) {
    corvid::IModule* module = CreateInstance();
    EXPECT_EQ(fromSlot<int32_t (*)(void*)>(moduleSlot(module, 7))(module), 0);
    EXPECT_STREQ(fromSlot<const char* (*)(void*)>(moduleSlot(module, 8))(module),
                 "7c9e6679-7425-40de-944b-e07fc1f90ae7");
    EXPECT_EQ(fromSlot<const char* (*)(void*)>(moduleSlot(module, 9))(module),
              module->moduleCapacities());
    const char** routes = fromSlot<const char** (*)(void*)>(moduleSlot(module, 10))(module);
    ASSERT_NE(routes, nullptr);
    EXPECT_EQ(routes[0], nullptr);
}

TEST_F(SdkAbi, LoadingTakesTheRpcServerFromSlotOneAndRegistersThroughSlotThree) {
    corvid::IModule* module = CreateInstance();
    fromSlot<void (*)(void*, void*)>(moduleSlot(module, 3))(module,
                                                            context_.as<corvid::IRunTimeContext>());
    EXPECT_EQ(calls, (std::vector<std::string>{"queryService RpcServer", "registerProcessor"}));
    EXPECT_EQ(registeredName, "SdpPromoteService");
    EXPECT_NE(registeredProcessor, nullptr);

    calls.clear();
    EXPECT_TRUE(corvid::details::EventCenter::broadcast("topic", "content"));
    EXPECT_EQ(calls, (std::vector<std::string>{"queryService EventBus", "publish topic content"}));
}

TEST_F(SdkAbi, LifecycleSlotsFourToSixLogTheirNames) {
    corvid::IModule* module = CreateInstance();
    const char* names[] = {"moduleDidLoadFinished", "moduleWillUnloadFinished",
                           "moduleDidUnloadFinished"};
    for (int slot = 4; slot <= 6; ++slot) {
        log_.clear();
        fromSlot<void (*)(void*)>(moduleSlot(module, slot))(module);
        const auto lines = log_.lines();
        ASSERT_EQ(lines.size(), 1U) << "slot " << slot;
        EXPECT_NE(lines[0].text.find(std::string("]: ") + names[slot - 4]), std::string::npos)
            << "slot " << slot << ": " << lines[0].text;
    }
}

TEST_F(SdkAbi, EventAndHttpIntakeAreSlotsElevenAndTwelve) {
    corvid::IModule* module = CreateInstance();
    EXPECT_FALSE(fromSlot<bool (*)(void*, const char*, const char*)>(moduleSlot(module, 11))(
        module, "topic", "content"));
    EXPECT_TRUE(log_.contains("receviced event: [topic]"));

    EXPECT_FALSE(fromSlot<bool (*)(void*, void*, void*)>(moduleSlot(module, 12))(
        module, request_.as<corvid::IRequest>(), response_.as<corvid::IResponse>()));
    EXPECT_EQ(status, 503);
    EXPECT_EQ(content, "Service Unavailable");
    EXPECT_EQ(contentFlag, 1);
    for (const auto& call : calls) {
        EXPECT_NE(call, "wrong slot");
    }
}

TEST_F(SdkAbi, RouterReadsBodyMethodAndUrlFromTheirSlots) {
    corvid::HttpRouter router;
    bool handled = false;
    router.addRoute(
        corvid::HttpRouter::Post, "/api/update", "/api/update",
        [&](corvid::IRequest*, corvid::IResponse* resp) {
            handled = true;
            resp->setStatus(200);
            resp->setContent("done", 1);
        },
        R"({"type":"object","required":["name"]})");
    router.apply(request_.as<corvid::IRequest>(), response_.as<corvid::IResponse>());
    EXPECT_TRUE(handled);
    EXPECT_EQ(status, 200);
    EXPECT_EQ(content, "done");
    for (const std::string slot : {"url", "method", "body"}) {
        EXPECT_NE(std::find(calls.begin(), calls.end(), slot), calls.end()) << slot;
    }
    EXPECT_EQ(std::find(calls.begin(), calls.end(), "wrong slot"), calls.end());
}

}  // namespace
