// The generic JSON binder on types registered here: kinds, containers, nesting, failures.
#include <gtest/gtest.h>

#include <map>
#include <rttr/registration>
#include <set>
#include <stdexcept>

#include "io/JsonBinding.h"

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
    int hidden = 9;
    RTTR_ENABLE()
};

struct Throwing {
    int get() const { throw std::runtime_error("boom"); }
    void set(int) { throw std::runtime_error("boom"); }
};

template <typename T>
Kind kindOf(const char* name) {
    rttr::type::register_converter_func([name](T, bool& ok) {
        ok = true;
        return Kind{name};
    });
    return Kind{name};
}

}  // namespace

RTTR_REGISTRATION {
    using rttr::registration;
    registration::class_<Kind>("test::Kind");
    registration::class_<Inner>("test::Inner")
        .constructor<>()
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

std::string kindFor(const std::string& value) {
    Sample sample;
    sample.kind.name = "untouched";
    EXPECT_TRUE(io::from_json(R"({"kind":)" + value + "}", sample)) << value;
    return sample.kind.name;
}

TEST(JsonBindingRead, NumberKindsFollowTheTieBreakOrder) {
    EXPECT_EQ(kindFor("7"), "int");
    EXPECT_EQ(kindFor("-2147483648"), "int");
    EXPECT_EQ(kindFor("3.0"), "double");
    EXPECT_EQ(kindFor("1e2"), "double");
    EXPECT_EQ(kindFor("3000000000"), "unsigned int");
    EXPECT_EQ(kindFor("-3000000000"), "int64_t");
    EXPECT_EQ(kindFor("10000000000000000000"), "uint64_t");
    EXPECT_EQ(kindFor("true"), "bool");
    EXPECT_EQ(kindFor(R"("7")"), "string");
    EXPECT_EQ(kindFor("null"), "untouched");
}

TEST(JsonBindingRead, ScalarsConvertOrLeaveThePropertyAlone) {
    Sample sample;
    sample.number = 4;
    EXPECT_TRUE(io::from_json(R"({"text":"a\u0000b","number":"x","extra":1})", sample));
    EXPECT_EQ(sample.text, "a");  // cut at the NUL
    EXPECT_EQ(sample.number, 4);  // "x" is no number
    EXPECT_TRUE(io::from_json(R"({"number":"12"})", sample));
    EXPECT_EQ(sample.number, 12);
}

TEST(JsonBindingRead, ContainersAndNestedObjects) {
    Sample sample;
    sample.list = {"old"};
    ASSERT_TRUE(io::from_json(R"({"list":["a",true,null],"grid":[[1,2],[3]],
        "inners":[{"id":1,"label":"x"},{"id":2}],"dict":[{"key":"k","value":5},{"key":"z"},7],
        "keys":[3,1,"q",3],"inner":{"id":8,"label":"in"}})",
                              sample));
    ASSERT_EQ(sample.list.size(), 3u);  // resized to the array; failures keep the default
    EXPECT_EQ(sample.list[0], "a");
    EXPECT_EQ(sample.list[1], "true");
    EXPECT_EQ(sample.list[2], "");
    EXPECT_EQ(sample.grid, (std::vector<std::vector<int>>{{1, 2}, {3}}));
    ASSERT_EQ(sample.inners.size(), 2u);
    EXPECT_EQ(sample.inners[0].label, "x");
    EXPECT_EQ(sample.inners[1].id, 2);
    EXPECT_EQ(sample.dict, (std::map<std::string, int>{{"k", 5}}));
    EXPECT_EQ(sample.keys, (std::set<int>{1, 3}));
    EXPECT_EQ(sample.inner.id, 8);
    EXPECT_EQ(sample.inner.label, "in");

    // An array for a scalar and null for a list change nothing.
    EXPECT_TRUE(io::from_json(R"({"number":[1],"list":null})", sample));
    EXPECT_EQ(sample.number, 0);
    EXPECT_EQ(sample.list.size(), 3u);
}

TEST(JsonBindingRead, DocumentsThatBindNothing) {
    Sample sample;
    sample.text = "keep";
    testing::internal::CaptureStderr();
    EXPECT_TRUE(io::from_json("{}", sample));
    EXPECT_TRUE(io::from_json("[1,2]", sample));
    EXPECT_TRUE(io::from_json("5", sample));
    EXPECT_FALSE(io::from_json("", sample));
    EXPECT_FALSE(io::from_json("{", sample));
    EXPECT_FALSE(io::from_json(R"({"text":"a",})", sample));
    EXPECT_FALSE(io::from_json("{/*c*/}", sample));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(sample.text, "keep");
}

TEST(JsonBindingRead, AnExceptionIsReportedAndFails) {
    Throwing throwing;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(io::from_json(R"({"value":1})", throwing));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: Unknow Exception in from_json\n");
}

TEST(JsonBindingWrite, ObjectsMirrorTheReadingSide) {
    Sample sample;
    sample.text = "t\"q";
    sample.number = -3;
    sample.list = {"a"};
    sample.grid = {{1}, {}};
    sample.inners = {Inner{1, "x"}};
    sample.dict = {{"k", 5}};
    sample.keys = {2};
    sample.inner = Inner{8, "in"};
    testing::internal::CaptureStderr();
    const std::string json = io::to_json(sample);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "cannot serialize property: pointer\n");
    EXPECT_EQ(json, R"({"text":"t\"q","number":-3,"kind":{},"list":["a"],"grid":[[1],[]],)"
                    R"("inners":[{"id":1,"label":"x"}],"dict":[{"key":"k","value":5}],"keys":[2],)"
                    R"("inner":{"id":8,"label":"in"},"pointer":null})");

    Sample back;
    EXPECT_TRUE(io::from_json(json, back));
    EXPECT_EQ(back.text, sample.text);
    EXPECT_EQ(back.dict, sample.dict);
    EXPECT_EQ(back.inners[0].label, "x");
}

TEST(JsonBindingWrite, VectorsOfInstances) {
    Inner a{1, "a"};
    Inner b{2, "b"};
    std::vector<rttr::instance> objects{a, b};
    EXPECT_EQ(io::to_json(objects), R"([{"id":1,"label":"a"},{"id":2,"label":"b"}])");
    std::vector<rttr::instance> none;
    EXPECT_EQ(io::to_json(none), "[]");
    objects.emplace_back();
    EXPECT_EQ(io::to_json(objects), "");
}

TEST(JsonBindingWrite, AnExceptionIsReportedAndYieldsNothing) {
    Throwing throwing;
    std::vector<rttr::instance> objects{throwing};
    testing::internal::CaptureStderr();
    EXPECT_EQ(io::to_json(throwing), "");
    EXPECT_EQ(io::to_json(objects), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Error: Unknown Exception in to_json\nError: Unknown Exception in to_json_vec\n");
}

}  // namespace
