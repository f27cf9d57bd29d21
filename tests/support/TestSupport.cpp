#include "support/TestSupport.h"

#include <spdlog/logger.h>

#include <fstream>
#include <sstream>

namespace helion::test {

class LogCapture::Sink : public spdlog::sinks::base_sink<std::mutex> {
public:
    std::vector<LogLine> snapshot() {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }
    void reset() {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.clear();
    }

protected:
    void sink_it_(const spdlog::details::log_msg& msg) override {
        lines_.push_back({msg.level, std::string(msg.payload.data(), msg.payload.size())});
    }
    void flush_() override {}

private:
    std::vector<LogLine> lines_;
};

LogCapture::LogCapture(spdlog::level::level_enum level) : sink_(std::make_shared<Sink>()) {
    auto logger = std::make_shared<spdlog::logger>("capture", sink_);
    logger->set_level(spdlog::level::trace);
    corvid::Logger::GetInstance().init(std::move(logger), level);
}

std::vector<LogLine> LogCapture::lines() const {
    return sink_->snapshot();
}

std::vector<LogLine> LogCapture::matching(const std::string& needle) const {
    std::vector<LogLine> found;
    for (auto& line : lines()) {
        if (line.text.find(needle) != std::string::npos) {
            found.push_back(std::move(line));
        }
    }
    return found;
}

void LogCapture::clear() {
    sink_->reset();
}

TempDir::TempDir()
    : path_(boost::filesystem::temp_directory_path() /
            boost::filesystem::unique_path("helion-test-%%%%-%%%%-%%%%")) {
    boost::filesystem::create_directories(path_);
}

std::string TempDir::write(const std::string& relative, const std::string& content) const {
    const auto target = path_ / relative;
    boost::filesystem::create_directories(target.parent_path());
    std::ofstream(target.string(), std::ios::binary) << content;
    return target.string();
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

}  // namespace helion::test
