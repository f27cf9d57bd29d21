// helion-host: the reference host process for the HelionPromote module.
#include <signal.h>
#include <spdlog/spdlog.h>
#include <thrift/TOutput.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "host/Endpoint.h"
#include "host/Host.h"
#include "host/HostLog.h"
#include "host/Logging.h"
#include "host/ModuleLibrary.h"

namespace {

constexpr int kExitStartup = 1;
constexpr int kExitUsage = 2;

int fail(const std::string& message, int code = kExitStartup) {
    std::cerr << "helion-host: error: " << message << std::endl;
    return code;
}

void logThriftDiagnostic(const char* text) {
    HOST_LOG(spdlog::level::warn, "thrift: {}", text != nullptr ? text : "");
}

}  // namespace

int main(int argc, char** argv) {
    using namespace helion::host;

    CLI::App app{"Loads the HelionPromote module and serves its RPC service."};
    std::string modulePath;
    std::string listen;
    std::size_t workers = 8;
    std::string http;
    std::vector<std::string> events;
    std::string levelName = "info";
    std::string logFile;
    app.add_option(
        "-m,--module", modulePath,
        "Module library to load (default: ../lib beside this program, then the build tree)");
    app.add_option("-l,--listen", listen,
                   "RPC endpoint: unix:PATH or tcp:127.0.0.1:PORT (default: unix:" +
                       defaultSocketPath() + ")");
    app.add_option("-w,--workers", workers, "RPC connections served at once")
        ->check(CLI::Range(1, 256))
        ->capture_default_str();
    app.add_option("--http", http, "Also serve HTTP on ADDRESS:PORT (loopback only)");
    app.add_option("-e,--event", events, "Deliver TOPIC=CONTENT to the module once it is loaded")
        ->type_name("TOPIC=CONTENT");
    app.add_option("--log-level", levelName, "trace|debug|info|warn|err|critical|off")
        ->check(CLI::IsMember({"trace", "debug", "info", "warn", "err", "critical", "off"}))
        ->capture_default_str();
    app.add_option("--log-file", logFile, "Also log to this file, rotated at 10 MiB, 3 kept");
    app.set_version_flag("--version", HELION_HOST_VERSION);

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        app.exit(error);
        return kExitUsage;
    }

    HostOptions options;
    options.modulePath = modulePath;
    options.workers = workers;
    try {
        if (!listen.empty()) {
            options.listen = parseEndpoint(listen);
        }
        if (!http.empty()) {
            options.http = parseEndpoint("tcp:" + http);
        }
    } catch (const std::invalid_argument& error) {
        return fail(error.what(), kExitUsage);
    }
    for (const auto& event : events) {
        const auto equals = event.find('=');
        if (equals == std::string::npos || equals == 0) {
            return fail("--event expects TOPIC=CONTENT, got '" + event + "'", kExitUsage);
        }
        options.events.emplace_back(event.substr(0, equals), event.substr(equals + 1));
    }

    LoggingOptions logging;
    logging.level = *parseLevel(levelName);
    logging.file = logFile;
    try {
        initLogging(logging);
    } catch (const std::exception& error) {
        return fail("cannot open log file '" + logFile + "': " + error.what());
    }

    apache::thrift::GlobalOutput.setOutputFunction(logThriftDiagnostic);

    // Every thread started from here on inherits the mask; only sigwait below takes the signals.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    // A client that hangs up mid-reply must not end the host.
    signal(SIGPIPE, SIG_IGN);

    Host host(options);
    try {
        host.start();
    } catch (const StartupError& error) {
        host.shutdown();
        return fail(error.what());
    } catch (const std::exception& error) {
        host.shutdown();
        return fail(error.what());
    }

    int received = 0;
    sigwait(&stopSignals, &received);
    HOST_LOG(spdlog::level::info, "received {}, shutting down", strsignal(received));
    host.shutdown();
    HOST_LOG(spdlog::level::info, "host stopped");
    return 0;
}
