// Both built modules load the way a host loads them: a plain dlopen, two symbols, nothing else.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "corvid/IModule.h"

namespace {

class ModuleLibrary : public ::testing::TestWithParam<const char*> {};

TEST_P(ModuleLibrary, LoadsWithDlopenAndHandsOutTheModule) {
    void* handle = ::dlopen(GetParam(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << ::dlerror();

    auto create = reinterpret_cast<corvid::CreateInstanceFn>(::dlsym(handle, "CreateInstance"));
    auto release = reinterpret_cast<corvid::FreeInstanceFn>(::dlsym(handle, "FreeInstance"));
    ASSERT_NE(create, nullptr);
    ASSERT_NE(release, nullptr);

    corvid::IModule* module = create();
    ASSERT_NE(module, nullptr);
    EXPECT_STREQ(module->moduleGuid(), "7c9e6679-7425-40de-944b-e07fc1f90ae7");
    EXPECT_EQ(create(), module);
    release(module);
    EXPECT_EQ(module->modulePriority(), 0);

    // The module's own code stays hidden from the host.
    EXPECT_EQ(::dlsym(handle, "_ZN14ModuleInstance6sharedEv"), nullptr);
    // Stays loaded: its singletons are destroyed at process exit, as in a host.
}

INSTANTIATE_TEST_SUITE_P(Built, ModuleLibrary,
                         ::testing::Values(HELION_TEST_MODULE_PATH, HELION_DEPLOYED_MODULE_PATH),
                         [](const auto& info) {
                             return info.index == 0 ? std::string("TestBundle")
                                                    : std::string("Deployed");
                         });

}  // namespace
