#include "host/HostCommandLine.h"

#include <grp.h>

#include <optional>
#include <stdexcept>

#include "host/endpoint/Endpoint.h"

namespace helion::host {

namespace {

std::optional<gid_t> groupId(const std::string& name) {
    std::vector<char> buffer(16384);
    group entry{};
    group* found = nullptr;
    if (::getgrnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) != 0 ||
        found == nullptr) {
        return std::nullopt;
    }
    return found->gr_gid;
}

void declareServingOptions(CLI::App& app, CommandLine& line) {
    app.add_option(
        "-m,--module", line.modulePath,
        "Module library to load (default: the installed module under ../" HELION_INSTALL_LIBDIR
        " beside this program; a program in its build tree also tries that tree's module)");
    app.add_option("-l,--listen", line.listen,
                   "RPC endpoint: unix:PATH or tcp:127.0.0.1:PORT (default: unix:" +
                       defaultSocketPath() + ")");
    app.add_option("--socket-group", line.socketGroup,
                   "Let this group use the Unix socket too (mode 0660 instead of 0600)");
    app.add_option("-w,--workers", line.workers,
                   "RPC connections served at once; as many more may wait, others are closed")
        ->check(CLI::Range(1, 256))
        ->capture_default_str();
    app.add_option("--request-timeout", line.requestTimeout,
                   "Seconds a request may take to arrive from its first byte")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    app.add_option("--stop-timeout", line.stopTimeout,
                   "Seconds a stop waits for running calls; then they are abandoned (exit 4)")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    app.add_option("--http", line.http, "Also serve HTTP on ADDRESS:PORT (loopback only)");
    app.add_option("-e,--event", line.events,
                   "Deliver TOPIC=CONTENT to the module once it is loaded")
        ->type_name("TOPIC=CONTENT");
}

void declareLoggingOptions(CLI::App& app, CommandLine& line) {
    // Membership first, so that only names pass (a checked transformer takes level numbers too).
    app.add_option("--log-level", line.logging.level, "How much to log")
        ->transform(CLI::Transformer(levelNames()).description(""))
        ->transform(CLI::IsMember(levelNames()))
        ->type_name("LEVEL")
        ->default_str("info");
    app.add_option("--log-file", line.logging.file,
                   "Also log to this file (created 0600; SIGHUP reopens it)");
    app.add_option("--log-max-size", line.logging.fileMaxBytes, "Rotate the log file at this size")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(std::size_t{1024}, std::size_t{1} << 40))
        ->default_str("10MiB");
    app.add_option("--log-max-files", line.logging.fileCount, "Rotated log files kept")
        ->check(CLI::Range(std::size_t{1}, std::size_t{100}))
        ->capture_default_str();
}

}  // namespace

void declareOptions(CLI::App& app, CommandLine& line) {
    declareServingOptions(app, line);
    declareLoggingOptions(app, line);
}

HostOptions hostOptions(const CommandLine& line) {
    HostOptions options;
    options.modulePath = line.modulePath;
    options.workers = line.workers;
    options.requestTimeoutMs = line.requestTimeout * 1000;
    if (!line.socketGroup.empty()) {
        options.socketGroup = groupId(line.socketGroup);
        if (!options.socketGroup) {
            throw std::invalid_argument("unknown group '" + line.socketGroup + "'");
        }
    }
    if (!line.listen.empty()) {
        options.listen = parseEndpoint(line.listen);
    }
    if (!line.http.empty()) {
        options.http = parseEndpoint("tcp:" + line.http);
    }
    for (const auto& event : line.events) {
        const auto equals = event.find('=');
        if (equals == std::string::npos || equals == 0) {
            throw std::invalid_argument("--event expects TOPIC=CONTENT, got '" + event + "'");
        }
        options.events.emplace_back(event.substr(0, equals), event.substr(equals + 1));
    }
    return options;
}

}  // namespace helion::host
