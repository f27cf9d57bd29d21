// What the host reads of the module before loading it: the singleton, GUID, priority, the
// capacities text and the route-key array.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "SdpPromote/ModuleInstance.h"
#include "SdpPromote/RouterHelper.h"

namespace {

TEST(ModuleSingleton, EveryCreateInstanceReturnsTheSameObject) {
    corvid::IModule* first = CreateInstance();
    corvid::IModule* second = CreateInstance();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    EXPECT_EQ(first, static_cast<corvid::IModule*>(&ModuleInstance::shared()));

    FreeInstance(first);
    EXPECT_EQ(CreateInstance(), first);
    EXPECT_STREQ(first->moduleGuid(), "7c9e6679-7425-40de-944b-e07fc1f90ae7");
    EXPECT_EQ(first->modulePriority(), 0);
}

TEST(ModuleCapacities, IsTheTemplateWithNameAndVersionFilledIn) {
    const std::string expected =
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
        "    ";
    corvid::IModule* module = CreateInstance();
    const char* first = module->moduleCapacities();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(std::string(first), expected);
    EXPECT_EQ(module->moduleCapacities(), first);
}

TEST(ModuleRouters, WithoutRoutesIsAnArrayHoldingOnlyTheTerminator) {
    corvid::IModule* module = CreateInstance();
    const char** routes = module->moduleRouters();
    ASSERT_NE(routes, nullptr);
    EXPECT_EQ(routes[0], nullptr);
    EXPECT_EQ(module->moduleRouters(), routes);
}

TEST(RouterHelper, KeepsKeysInOrderAndOutlivesTheVectorItWasGiven) {
    std::vector<std::string> keys{"/api/update", "/api/portal/\\Del", ""};
    auto helper = std::make_unique<corvid::RouterHelper>(keys);
    keys.assign(3, std::string(64, 'x'));  // the helper must have its own copies

    const char** array = helper->array();
    EXPECT_STREQ(array[0], "/api/update");
    EXPECT_STREQ(array[1], "/api/portal/\\Del");
    EXPECT_STREQ(array[2], "");
    EXPECT_EQ(array[3], nullptr);
}

}  // namespace
