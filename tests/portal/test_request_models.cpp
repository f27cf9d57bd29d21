// The request models are registered in the module's code under their qualified names and keys;
// binding them is what the portal operation tests do.
#include <gtest/gtest.h>

#include <rttr/type>

namespace {

TEST(RequestModels, RegisteredUnderQualifiedNamesWithTheirKeys) {
    const std::vector<std::pair<const char*, std::vector<std::string>>> models = {
        {"corvid::sdp_promote::updatePortalReq::UpdatePortalReq",
         {"srcZip", "portalDir", "signFile"}},
        {"corvid::sdp_promote::copyPortalDirReq::CopyPortalDirReq", {"srcDir", "portalDir"}},
        {"corvid::sdp_promote::delPortalDirReq::DelPortalDirReq", {"portalDirs"}},
    };
    for (const auto& [name, keys] : models) {
        const rttr::type type = rttr::type::get_by_name(name);
        ASSERT_TRUE(type.is_valid()) << name;
        EXPECT_TRUE(type.get_constructor().is_valid()) << name;
        std::vector<std::string> names;
        for (const auto& prop : type.get_properties()) {
            names.emplace_back(prop.get_name().to_string());
        }
        EXPECT_EQ(names, keys);
    }
}

}  // namespace
