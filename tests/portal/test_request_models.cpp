// The request models are registered in the module's code and bind the portal requests' JSON.
#include <gtest/gtest.h>

#include "io/JsonBinding.h"
#include "model/CopyPortalDirReq.h"
#include "model/DelPortalDirReq.h"
#include "model/UpdatePortalReq.h"

namespace {

using corvid::sdp_promote::copyPortalDirReq::CopyPortalDirReq;
using corvid::sdp_promote::delPortalDirReq::DelPortalDirReq;
using corvid::sdp_promote::updatePortalReq::UpdatePortalReq;

std::vector<std::string> propertyNames(const char* typeName) {
    const rttr::type type = rttr::type::get_by_name(typeName);
    EXPECT_TRUE(type.is_valid()) << typeName;
    EXPECT_TRUE(type.get_constructor().is_valid()) << typeName;
    std::vector<std::string> names;
    for (const auto& prop : type.get_properties()) {
        names.emplace_back(prop.get_name().to_string());
    }
    return names;
}

TEST(RequestModels, RegisteredUnderQualifiedNamesWithTheirKeys) {
    using Names = std::vector<std::string>;
    EXPECT_EQ(propertyNames("corvid::sdp_promote::updatePortalReq::UpdatePortalReq"),
              (Names{"srcZip", "portalDir", "signFile"}));
    EXPECT_EQ(propertyNames("corvid::sdp_promote::copyPortalDirReq::CopyPortalDirReq"),
              (Names{"srcDir", "portalDir"}));
    EXPECT_EQ(propertyNames("corvid::sdp_promote::delPortalDirReq::DelPortalDirReq"),
              (Names{"portalDirs"}));
    const auto list = rttr::type::get<DelPortalDirReq>().get_property("portalDirs").get_type();
    EXPECT_TRUE(list.is_sequential_container());
}

TEST(RequestModels, BindPortalRequests) {
    UpdatePortalReq update;
    ASSERT_TRUE(io::from_json(
        R"({"srcZip":"/tmp/p.zip","portalDir":"web","signFile":"/tmp/p.sig","other":1})", update));
    EXPECT_EQ(update.srcZip, "/tmp/p.zip");
    EXPECT_EQ(update.portalDir, "web");
    EXPECT_EQ(update.signFile, "/tmp/p.sig");

    CopyPortalDirReq copy;
    ASSERT_TRUE(io::from_json(R"({"portalDir":"ü/dir"})", copy));
    EXPECT_EQ(copy.srcDir, "");
    EXPECT_EQ(copy.portalDir, "ü/dir");

    DelPortalDirReq del;
    ASSERT_TRUE(io::from_json(R"({"portalDirs":["a",false,"b"]})", del));
    ASSERT_EQ(del.portalDirs.size(), 3u);
    EXPECT_EQ(del.portalDirs[0], "a");
    EXPECT_EQ(del.portalDirs[2], "b");
    EXPECT_TRUE(io::from_json(R"({"portalDirs":[]})", del));
    EXPECT_TRUE(del.portalDirs.empty());
}

}  // namespace
