// The module's error category and the process queries that answer with it.
#include <gtest/gtest.h>

#include "SdpPromote/SdpPromoteErrorCategory.h"
#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "support/TestSupport.h"

namespace {

TEST(SdpPromoteErrorCategory, TextsAndCodes) {
    const char* texts[] = {"successful",          "verify signature error",
                           "decompression error", "req json error",
                           "copy file error",     "del file error",
                           "update file error",   "source file not exist",
                           "get app path error",  "create dir error",
                           "invalid pid",         "pid not exist",
                           "not support impl",    "Unknown error"};
    const auto& category = corvid::sdpPromoteCategory();
    EXPECT_STREQ(category.name(), "sdp promote category");
    for (int code = 0; code <= 13; ++code) {
        EXPECT_EQ(category.message(code), texts[code]);
    }
    EXPECT_EQ(category.message(-1), "Unknown error");
    const auto code = corvid::makeSdpPromoteError(corvid::SdpPromoteErrc::pidNotExist);
    EXPECT_EQ(code.message(), "pid not exist");
    EXPECT_NE(code, std::error_code(11, std::system_category()));
}

TEST(ProcessQueries, AnswersCarryCodeMessageAndLogLines) {
    // {pid (-2: all processes), code, message, records, failure line, its level}
    const struct {
        int64_t pid;
        int code;
        const char* message;
        std::size_t records;
        const char* failure;
        spdlog::level::level_enum level;
    } cases[] = {
        {-1, 10, "invalid pid", 0, "get single process info data failed!", spdlog::level::err},
        {0, 12, "not support impl", 1, "get single process info data failed!", spdlog::level::warn},
        {-2, 12, "not support impl", 0, "get all process info data failed!", spdlog::level::warn},
    };
    corvid::SdpPromoteServiceImpl service;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pid);
        helion::test::LogCapture log;
        corvid::rpc::thrift::ProcessData data;
        data.processInfo.resize(c.pid == -2 ? 2 : 0);
        c.pid == -2 ? service.getAllProcessData(data) : service.getProcessData(data, c.pid);
        EXPECT_EQ(data.code, c.code);
        EXPECT_EQ(data.message, c.message);
        EXPECT_EQ(data.processInfo.size(), c.records);  // the empty record is kept on failure
        const auto lines =
            log.matching(std::string(c.failure) + "; Reason: code=" + std::to_string(c.code) +
                         ", msg=" + c.message);
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].level, c.level);
        const char* function = c.pid == -2 ? "getAllProcessData" : "getProcessData";
        EXPECT_NE(lines[0].text.find(std::string("[HelionPromote:") + function + ":"),
                  std::string::npos);
        EXPECT_EQ(
            log.contains("single process info data rpc start... pid = " + std::to_string(c.pid)),
            c.pid != -2);
        EXPECT_FALSE(log.contains("single process info data rpc end"));  // success only
        EXPECT_EQ(log.contains("get all process info data rpc start..."), c.pid == -2);
        EXPECT_EQ(log.contains("get all process info data rpc end..."), c.pid == -2);
    }
}

}  // namespace
