#pragma once
// A clean test portal root for each test, removed afterwards, and envelope reading.

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <boost/filesystem.hpp>
#include <fstream>
#include <string>

#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "support/TestSupport.h"

namespace helion::test {

struct Envelope {
    int code = -1;
    std::string message;
    std::string data;
};

inline Envelope parseEnvelope(const std::string& text) {
    rapidjson::Document document;
    document.Parse(text.c_str());
    EXPECT_TRUE(document.IsObject()) << text;
    if (!document.IsObject()) {
        return {};
    }
    return {document["code"].GetInt(), document["message"].GetString(),
            document["data"].GetString()};
}

class PortalRootTest : public ::testing::Test {
protected:
    void SetUp() override {
        boost::filesystem::remove_all(root_);
        boost::filesystem::create_directories(root_);
    }
    void TearDown() override {
        boost::system::error_code ignored;
        boost::filesystem::remove_all(root_, ignored);
    }

    /// Writes a file below the portal root, creating parents.
    void plant(const std::string& relative, const std::string& content = "old") const {
        const auto target = root_ / relative;
        boost::filesystem::create_directories(target.parent_path());
        std::ofstream(target.string(), std::ios::binary) << content;
    }

    /// Runs one operation of the fixture's service and reads its answer.
    Envelope call(void (corvid::SdpPromoteServiceImpl::*operation)(std::string&,
                                                                   const std::string&),
                  const std::string& request) {
        (service_.*operation)(result_, request);
        return parseEnvelope(result_);
    }

    std::string portalFile(const std::string& relative) const {
        return readFile((root_ / relative).string());
    }

    const boost::filesystem::path root_{HELION_TEST_RESOURCES_DIR "/app/"};
    LogCapture log_;
    TempDir scratch_;
    corvid::SdpPromoteServiceImpl service_;
    std::string result_;
};

}  // namespace helion::test
