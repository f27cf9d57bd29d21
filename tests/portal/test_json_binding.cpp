// The generic JSON binder on types registered here: kinds, containers, nesting, failures.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <rttr/registration>
#include <set>
#include <stdexcept>

#include "io/JsonBinding.h"
#include "model/DelPortalDirReq.h"

namespace {

// Records which variant kind a JSON value arrived as, through registered converters.
struct Kind {
    std::string name;
};
struct Inner {
    int id = 0;
    std::string label;
};
struct Sample {
    std::string text;
    int number = 0;
    Kind kind;
    std::vector<std::string> list;
    std::vector<std::vector<int>> grid;
    std::vector<Inner> inners;
    std::map<std::string, int> dict;
    std::set<int> keys;
    Inner inner;
    int* pointer = nullptr;
    double ratio = std::nan("");  // JSON has no NaN
    int hidden = 9;
    RTTR_ENABLE()
};
struct Throwing {
    int get() const { throw std::runtime_error("boom"); }
    void set(int) { throw std::runtime_error("boom"); }
};

template <typename T>
void kindOf(const char* name) {
    rttr::type::register_converter_func([name](T, bool& ok) {
        ok = true;
        return Kind{name};
    });
}

}  // namespace

RTTR_REGISTRATION {
    using rttr::registration;
    registration::class_<Kind>("test::Kind");
    registration::class_<Inner>("test::Inner")
        .property("id", &Inner::id)
        .property("label", &Inner::label);
    registration::class_<Sample>("test::Sample")
        .property("text", &Sample::text)
        .property("number", &Sample::number)
        .property("kind", &Sample::kind)
        .property("list", &Sample::list)
        .property("grid", &Sample::grid)
        .property("inners", &Sample::inners)
        .property("dict", &Sample::dict)
        .property("keys", &Sample::keys)
        .property("inner", &Sample::inner)
        .property("pointer", &Sample::pointer)
        .property("ratio", &Sample::ratio)
        .property("hidden", &Sample::hidden)(rttr::metadata(io::kNoSerialize, true));
    registration::class_<Throwing>("test::Throwing")
        .property("value", &Throwing::get, &Throwing::set);
    kindOf<bool>("bool");
    kindOf<std::string>("string");
    kindOf<int>("int");
    kindOf<double>("double");
    kindOf<unsigned int>("unsigned int");
    kindOf<int64_t>("int64_t");
    kindOf<uint64_t>("uint64_t");
}

namespace {

TEST(JsonBindingRead, NumberKindsFollowTheTieBreakOrder) {
    const std::pair<const char*, const char*> cases[] = {
        {"7", "int"},
        {"3.0", "double"},
        {"1e2", "double"},
        {"true", "bool"},
        {R"("7")", "string"},
        {"null", "untouched"},
        {"3000000000", "unsigned int"},
        {"-3000000000", "int64_t"},
        {"10000000000000000000", "uint64_t"},
    };
    for (const auto& [json, kind] : cases) {
        Sample sample;
        sample.kind.name = "untouched";
        EXPECT_TRUE(io::from_json(R"({"kind":)" + std::string(json) + "}", sample)) << json;
        EXPECT_EQ(sample.kind.name, kind) << json;
    }
}

TEST(JsonBindingRead, ValuesConvertOrLeaveThePropertyAlone) {
    Sample sample;
    sample.number = 4;
    sample.list = {"old"};
    ASSERT_TRUE(io::from_json(R"({"text":"a\u0000b","number":"x","extra":1,"list":["a",true,null],
        "grid":[[1,2],[3]],"inners":[{"id":1,"label":"x"},{"id":2}],
        "dict":[{"key":"k","value":5},{"key":"z"},7],"keys":[3,1,"q",3],"inner":{"id":8}})",
                              sample));
    EXPECT_EQ(sample.text, "a");  // cut at the NUL
    EXPECT_EQ(sample.number, 4);  // "x" is no number
    // Resized to the array; an element that fails keeps what the resize gave it.
    EXPECT_EQ(sample.list, (std::vector<std::string>{"a", "true", ""}));
    EXPECT_EQ(sample.grid, (std::vector<std::vector<int>>{{1, 2}, {3}}));
    ASSERT_EQ(sample.inners.size(), 2u);
    EXPECT_EQ(sample.inners[0].label, "x");
    EXPECT_EQ(sample.inners[1].id, 2);
    EXPECT_EQ(sample.dict, (std::map<std::string, int>{{"k", 5}}));
    EXPECT_EQ(sample.keys, (std::set<int>{1, 3}));
    EXPECT_EQ(sample.inner.id, 8);

    // An array for a scalar and null for a list change nothing.
    EXPECT_TRUE(io::from_json(R"({"number":[1],"list":null})", sample));
    EXPECT_EQ(sample.number, 4);
    EXPECT_EQ(sample.list.size(), 3u);
}

// The delete request's list is registered as a pointer, so that it is filled where it is.
TEST(JsonBindingRead, TheDeleteRequestsListIsFilledInPlace) {
    corvid::sdp_promote::delPortalDirReq::DelPortalDirReq request;
    ASSERT_TRUE(io::from_json(R"({"portalDirs":["a",{},[1],null,2]})", request));
    EXPECT_EQ(request.portalDirs, (std::vector<std::string>{"a", "", "", "", "2"}));
}

TEST(JsonBindingRead, DocumentsThatBindNothingOrFail) {
    Sample sample;
    sample.text = "keep";
    testing::internal::CaptureStderr();
    EXPECT_TRUE(io::from_json("{}", sample));
    EXPECT_TRUE(io::from_json("[1,2]", sample));
    EXPECT_FALSE(io::from_json("", sample));
    EXPECT_FALSE(io::from_json("{", sample));
    EXPECT_FALSE(io::from_json(R"({"text":"a",})", sample));
    const std::size_t depth = 200000;  // deeper than any thread stack could recurse
    EXPECT_TRUE(io::from_json(
        R"({"list":)" + std::string(depth, '[') + std::string(depth, ']') + "}", sample));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(sample.text, "keep");

    Throwing throwing;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(io::from_json(R"({"value":1})", throwing));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: Unknow Exception in from_json\n");
}

TEST(JsonBindingWrite, ObjectsMirrorTheReadingSide) {
    Sample sample;
    sample.text = "t\"q";
    sample.list = {"a"};
    sample.grid = {{1}, {}};
    sample.inners = {Inner{1, "x"}};
    sample.dict = {{"k", 5}};
    sample.keys = {2};
    testing::internal::CaptureStderr();
    EXPECT_EQ(io::to_json(sample),
              R"({"text":"t\"q","number":0,"kind":{},"list":["a"],"grid":[[1],[]],)"
              R"("inners":[{"id":1,"label":"x"}],"dict":[{"key":"k","value":5}],"keys":[2],)"
              R"("inner":{"id":0,"label":""},"pointer":null,"ratio":null})");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "cannot serialize property: pointer\ncannot serialize property: ratio\n");

    std::vector<rttr::instance> objects{sample.inners[0], sample.inner};
    EXPECT_EQ(io::to_json(objects), R"([{"id":1,"label":"x"},{"id":0,"label":""}])");
    objects.emplace_back();
    EXPECT_EQ(io::to_json(objects), "");
    objects.clear();
    EXPECT_EQ(io::to_json(objects), "[]");

    Throwing throwing;
    objects.emplace_back(throwing);
    testing::internal::CaptureStderr();
    EXPECT_EQ(io::to_json(throwing), "");
    EXPECT_EQ(io::to_json(objects), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Error: Unknown Exception in to_json\nError: Unknown Exception in to_json_vec\n");
}

}  // namespace
