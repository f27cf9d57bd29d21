// The module's error category and the process queries that answer with it.
#include <gtest/gtest.h>

#include "SdpPromote/SdpPromoteErrorCategory.h"
#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "support/TestSupport.h"

namespace {

TEST(SdpPromoteErrorCategory, TextsAndCodes) {
    const auto& category = corvid::sdpPromoteCategory();
    EXPECT_STREQ(category.name(), "sdp promote category");
    EXPECT_EQ(category.message(0), "successful");
    EXPECT_EQ(category.message(12), "not support impl");
    EXPECT_EQ(category.message(13), "Unknown error");
    EXPECT_EQ(category.message(-1), "Unknown error");
    const auto code = corvid::makeSdpPromoteError(corvid::SdpPromoteErrc::pidNotExist);
    EXPECT_EQ(code.message(), "pid not exist");
    EXPECT_NE(code, std::error_code(11, std::system_category()));
}

class ProcessQueries : public ::testing::Test {
protected:
    helion::test::LogCapture log_;
    corvid::SdpPromoteServiceImpl service_;
    corvid::rpc::thrift::ProcessData data_;
};

TEST_F(ProcessQueries, SinglePidIsCheckedThenUnsupported) {
    service_.getProcessData(data_, -1);
    EXPECT_EQ(data_.code, 10);
    EXPECT_EQ(data_.message, "invalid pid");
    EXPECT_TRUE(data_.processInfo.empty());
    auto lines =
        log_.matching("get single process info data failed!; Reason: code=10, msg=invalid pid");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, spdlog::level::err);

    service_.getProcessData(data_, 0);
    EXPECT_EQ(data_.code, 12);
    EXPECT_EQ(data_.message, "not support impl");
    ASSERT_EQ(data_.processInfo.size(), 1u);  // the empty record is kept on failure
    EXPECT_TRUE(log_.contains("[HelionPromote:getProcessData:"));
    lines = log_.matching("Reason: code=12, msg=not support impl");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, spdlog::level::warn);
    EXPECT_FALSE(log_.contains("rpc end"));
}

TEST_F(ProcessQueries, AllProcessesAnswerUnsupportedWithAnEmptyList) {
    data_.processInfo.resize(2);
    service_.getAllProcessData(data_);
    EXPECT_EQ(data_.code, 12);
    EXPECT_EQ(data_.message, "not support impl");
    EXPECT_TRUE(data_.processInfo.empty());
    EXPECT_TRUE(
        log_.contains("get all process info data failed!; Reason: code=12, msg=not support impl"));
    EXPECT_TRUE(log_.contains("get all process info data rpc end..."));
}

}  // namespace
