#pragma once
// Fakes of the host's objects, log capture and scratch directories shared by the tests.

#include <spdlog/sinks/base_sink.h>

#include <boost/filesystem.hpp>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "corvid/IEventBus.h"
#include "corvid/IRpcServer.h"
#include "corvid/IRunTimeContext.h"
#include "corvid/Logger.h"
#include "support/FakeHttp.h"

namespace helion::test {

/// One line as the shared Logger handed it to spdlog.
struct LogLine {
    spdlog::level::level_enum level;
    std::string text;
};

/// Installs a capturing spdlog logger into the shared Logger for the object's lifetime.
class LogCapture {
public:
    explicit LogCapture(spdlog::level::level_enum level = spdlog::level::trace);
    ~LogCapture() { corvid::Logger::GetInstance().markUninitialised(); }

    std::vector<LogLine> lines() const;
    std::vector<LogLine> matching(const std::string& needle) const;
    bool contains(const std::string& needle) const { return !matching(needle).empty(); }
    void clear();

private:
    class Sink;
    std::shared_ptr<Sink> sink_;
};

/// A fresh directory below the system's temp directory, removed with everything in it.
class TempDir {
public:
    TempDir();
    ~TempDir() { boost::filesystem::remove_all(path_, ignored_); }
    const boost::filesystem::path& path() const { return path_; }
    std::string str() const { return path_.string(); }
    /// Writes a file below the directory, creating parents; returns its path.
    std::string write(const std::string& relative, const std::string& content) const;

private:
    boost::filesystem::path path_;
    boost::system::error_code ignored_;
};

/// Reads a whole file; empty when it cannot be read.
std::string readFile(const std::string& path);

/// The host's service directory.
class FakeRuntimeContext : public corvid::IRunTimeContext {
public:
    void* queryService(const char* name) override {
        queries.emplace_back(name);
        const auto found = services.find(name);
        return found != services.end() ? found->second : nullptr;
    }

    std::map<std::string, void*> services;
    std::vector<std::string> queries;
};

}  // namespace helion::test
