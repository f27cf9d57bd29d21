// The module's error category and the process queries it answers with.
#include <gtest/gtest.h>

#include "SdpPromote/SdpPromoteErrorCategory.h"
#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "support/TestSupport.h"

namespace {

using corvid::SdpPromoteErrc;

TEST(SdpPromoteErrorCategory, NamesAndTexts) {
    const auto& category = corvid::sdpPromoteCategory();
    EXPECT_STREQ(category.name(), "sdp promote category");
    EXPECT_EQ(category.message(0), "successful");
    EXPECT_EQ(category.message(1), "verify signature error");
    EXPECT_EQ(category.message(7), "source file not exist");
    EXPECT_EQ(category.message(9), "create dir error");
    EXPECT_EQ(category.message(12), "not support impl");
    EXPECT_EQ(category.message(13), "Unknown error");
    EXPECT_EQ(category.message(-1), "Unknown error");

    const std::error_code code = corvid::makeSdpPromoteError(SdpPromoteErrc::pidNotExist);
    EXPECT_EQ(code.value(), 11);
    EXPECT_EQ(code.message(), "pid not exist");
    EXPECT_EQ(&code.category(), &category);
    EXPECT_NE(code, std::error_code(11, std::system_category()));
}

class ProcessQueries : public ::testing::Test {
protected:
    helion::test::LogCapture log_;
    corvid::SdpPromoteServiceImpl service_;
    corvid::rpc::thrift::ProcessData data_;
};

TEST_F(ProcessQueries, NegativePidIsInvalid) {
    service_.getProcessData(data_, -1);
    EXPECT_EQ(data_.code, 10);
    EXPECT_EQ(data_.message, "invalid pid");
    EXPECT_TRUE(data_.processInfo.empty());
    const auto lines =
        log_.matching("get single process info data failed!; Reason: code=10, msg=invalid pid");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, spdlog::level::err);
}

TEST_F(ProcessQueries, AnyOtherPidReachesTheUnsupportedService) {
    service_.getProcessData(data_, 0);
    EXPECT_EQ(data_.code, 12);
    EXPECT_EQ(data_.message, "not support impl");
    ASSERT_EQ(data_.processInfo.size(), 1u);
    EXPECT_EQ(data_.processInfo[0].pid, 0);
    EXPECT_TRUE(log_.contains("[HelionPromote:getProcessData:"));
    EXPECT_TRUE(log_.contains("get single process info data rpc start... pid = 0"));
    const auto lines = log_.matching("Reason: code=12, msg=not support impl");
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
