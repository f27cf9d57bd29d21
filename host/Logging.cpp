#include "host/Logging.h"

#include <fcntl.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/systemd_sink.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "corvid/Logger.h"

namespace helion::host {

namespace {

using RotatingFile = spdlog::sinks::rotating_file_sink_st;

/// The rotating file, replaceable as a whole while the logger writes through it.
class ReopenableFileSink : public spdlog::sinks::base_sink<std::mutex> {
public:
    explicit ReopenableFileSink(const LoggingOptions& options) : options_(options), file_(open()) {}

    /// Opens the file anew; the old one stays when that fails.
    void reopen() {
        auto fresh = open();
        std::lock_guard<std::mutex> lock(mutex_);
        fresh->set_formatter(formatter_->clone());
        file_ = std::move(fresh);
    }

protected:
    void sink_it_(const spdlog::details::log_msg& message) override { file_->log(message); }
    void flush_() override { file_->flush(); }
    void set_formatter_(std::unique_ptr<spdlog::formatter> formatter) override {
        file_->set_formatter(formatter->clone());
        formatter_ = std::move(formatter);
    }

private:
    std::unique_ptr<RotatingFile> open() const {
        spdlog::file_event_handlers handlers;
        // Created before the sink's fopen so that the file is private from its first moment.
        handlers.before_open = [](const spdlog::filename_t& name) {
            boost::system::error_code ignored;
            boost::filesystem::create_directories(boost::filesystem::path(name).parent_path(),
                                                  ignored);
            const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
            if (fd >= 0) {
                ::close(fd);
            }
        };
        // Programs the module starts must not inherit the log.
        handlers.after_open = [](const spdlog::filename_t&, std::FILE* file) {
            ::fcntl(::fileno(file), F_SETFD, FD_CLOEXEC);
        };
        return std::make_unique<RotatingFile>(options_.file, options_.fileMaxBytes,
                                              options_.fileCount, false, handlers);
    }

    LoggingOptions options_;
    std::unique_ptr<RotatingFile> file_;
};

/// Whether stderr is the journal's stream: JOURNAL_STREAM names its device and inode.
bool stderrIsJournal() {
    const char* stream = std::getenv("JOURNAL_STREAM");
    struct stat status {};
    if (stream == nullptr || ::fstat(STDERR_FILENO, &status) != 0) {
        return false;
    }
    return std::string(stream) ==
           std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

std::shared_ptr<ReopenableFileSink>& fileSink() {
    static std::shared_ptr<ReopenableFileSink> sink;
    return sink;
}

}  // namespace

const std::vector<std::pair<std::string, spdlog::level::level_enum>>& levelNames() {
    static const std::vector<std::pair<std::string, spdlog::level::level_enum>> names{
        {"trace", spdlog::level::trace}, {"debug", spdlog::level::debug},
        {"info", spdlog::level::info},   {"warn", spdlog::level::warn},
        {"err", spdlog::level::err},     {"critical", spdlog::level::critical},
        {"off", spdlog::level::off},
    };
    return names;
}

void initLogging(const LoggingOptions& options) {
    static const char* const kPattern = "%Y-%m-%d %H:%M:%S.%e %^%l%$ [%t] %v";
    std::vector<spdlog::sink_ptr> sinks;
    if (stderrIsJournal()) {
        // Each line at its level's priority; time and PID are the journal's own fields.
        auto journal = std::make_shared<spdlog::sinks::systemd_sink_mt>("helion-host", true);
        journal->set_pattern("%l [%t] %v");
        sinks.push_back(std::move(journal));
    } else {
        sinks.push_back(std::make_shared<spdlog::sinks::stderr_sink_mt>());
        sinks.back()->set_pattern(kPattern);
    }
    fileSink().reset();
    if (!options.file.empty()) {
        fileSink() = std::make_shared<ReopenableFileSink>(options);
        fileSink()->set_pattern(kPattern);
        sinks.push_back(fileSink());
    }
    auto logger = std::make_shared<spdlog::logger>("helion-host", sinks.begin(), sinks.end());
    // The shared Logger filters; the spdlog logger passes on whatever reaches it.
    logger->set_level(spdlog::level::trace);
    logger->flush_on(spdlog::level::trace);
    corvid::Logger::GetInstance().init(std::move(logger), options.level);
}

std::optional<std::string> reopenLogFile() {
    if (!fileSink()) {
        return std::nullopt;
    }
    try {
        fileSink()->reopen();
    } catch (const std::exception& error) {
        return std::string(error.what());
    }
    return std::nullopt;
}

}  // namespace helion::host
