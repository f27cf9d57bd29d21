// helion-host: the reference host process for the HelionPromote module.
#include <grp.h>
#include <signal.h>
#include <spdlog/spdlog.h>
#include <sys/socket.h>
#include <systemd/sd-daemon.h>
#include <thrift/TOutput.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "host/Endpoint.h"
#include "host/Host.h"
#include "host/HostLog.h"
#include "host/Logging.h"
#include "host/StartupError.h"
#include "host/Watchdog.h"
#include "tools/cli/CommandLine.h"

namespace {

using helion::cli::kExitUsage;
constexpr int kExitStartup = 1;
/// Serving ended by itself; a supervisor should start the host again.
constexpr int kExitServingEnded = 3;
/// Calls still running when the stop timeout passed were abandoned, the module not unloaded.
constexpr int kExitAbandoned = 4;

std::atomic<bool> servingEnded{false};

int fail(const std::string& message, int code = kExitStartup) {
    std::cerr << "helion-host: error: " << message << std::endl;
    return code;
}

void logThriftDiagnostic(const char* text) {
    HOST_LOG(spdlog::level::warn, "thrift: {}", text != nullptr ? text : "");
}

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

/// The listening socket the service manager passed (socket activation): -1 when none, throws
/// when what was passed cannot be served.
int activatedSocket() {
    // 1: the variables go, so programs the module starts do not think they were passed sockets.
    const int count = sd_listen_fds(1);
    if (count < 0) {
        throw std::runtime_error(std::string("cannot take the passed sockets: ") +
                                 std::strerror(-count));
    }
    if (count == 0) {
        return -1;
    }
    if (count > 1 || sd_is_socket(SD_LISTEN_FDS_START, AF_UNSPEC, SOCK_STREAM, 1) <= 0) {
        throw std::runtime_error("expected one listening stream socket from the service manager");
    }
    return SD_LISTEN_FDS_START;
}

/// Stops the host, unless calls stuck in the module (a file system that never answers) hold the
/// stop past timeout: those are logged and the process ends without unloading the module.
void stopWithin(helion::host::Host& host, std::chrono::seconds timeout) {
    std::promise<void> stopped;
    auto done = stopped.get_future();
    std::thread stopper([&] {
        host.shutdown();
        stopped.set_value();
    });
    if (done.wait_for(timeout) == std::future_status::ready) {
        stopper.join();
        return;
    }
    const auto calls = host.runningCalls();
    for (const auto& call : calls) {
        HOST_LOG(spdlog::level::err, "abandoning RPC call '{}', running for {} s", call.name,
                 std::chrono::duration_cast<std::chrono::seconds>(call.elapsed).count());
    }
    HOST_LOG(spdlog::level::critical,
             "the host did not stop within {} s; exiting with {} RPC call(s) abandoned",
             timeout.count(), calls.size());
    spdlog::shutdown();
    std::_Exit(kExitAbandoned);
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
    std::string logFile;
    std::string socketGroup;
    int requestTimeout = 30;
    int stopTimeout = 10;
    LoggingOptions logging;
    app.add_option(
        "-m,--module", modulePath,
        "Module library to load (default: the installed module under ../" HELION_INSTALL_LIBDIR
        " beside this program; a program in its build tree also tries that tree's module)");
    app.add_option("-l,--listen", listen,
                   "RPC endpoint: unix:PATH or tcp:127.0.0.1:PORT (default: unix:" +
                       defaultSocketPath() + ")");
    app.add_option("--socket-group", socketGroup,
                   "Let this group use the Unix socket too (mode 0660 instead of 0600)");
    app.add_option("-w,--workers", workers,
                   "RPC connections served at once; as many more may wait, others are closed")
        ->check(CLI::Range(1, 256))
        ->capture_default_str();
    app.add_option("--request-timeout", requestTimeout,
                   "Seconds a request may take to arrive from its first byte")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    app.add_option("--stop-timeout", stopTimeout,
                   "Seconds a stop waits for running calls; then they are abandoned (exit 4)")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    app.add_option("--http", http, "Also serve HTTP on ADDRESS:PORT (loopback only)");
    app.add_option("-e,--event", events, "Deliver TOPIC=CONTENT to the module once it is loaded")
        ->type_name("TOPIC=CONTENT");
    // Membership first, so that only names pass (a checked transformer takes level numbers too).
    app.add_option("--log-level", logging.level, "How much to log")
        ->transform(CLI::Transformer(levelNames()).description(""))
        ->transform(CLI::IsMember(levelNames()))
        ->type_name("LEVEL")
        ->default_str("info");
    app.add_option("--log-file", logFile,
                   "Also log to this file (created 0600; SIGHUP reopens it)");
    app.add_option("--log-max-size", logging.fileMaxBytes, "Rotate the log file at this size")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(std::size_t{1024}, std::size_t{1} << 40))
        ->default_str("10MiB");
    app.add_option("--log-max-files", logging.fileCount, "Rotated log files kept")
        ->check(CLI::Range(std::size_t{1}, std::size_t{100}))
        ->capture_default_str();
    app.set_version_flag("--version", HELION_HOST_VERSION);

    if (const auto status = helion::cli::parseCommandLine(app, argc, argv)) {
        return *status;
    }

    HostOptions options;
    options.modulePath = modulePath;
    options.workers = workers;
    options.requestTimeoutMs = requestTimeout * 1000;
    if (!socketGroup.empty()) {
        options.socketGroup = groupId(socketGroup);
        if (!options.socketGroup) {
            return fail("unknown group '" + socketGroup + "'", kExitUsage);
        }
    }
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

    logging.file = logFile;
    try {
        initLogging(logging);
    } catch (const std::exception& error) {
        return fail("cannot open log file '" + logFile + "': " + error.what());
    }

    apache::thrift::GlobalOutput.setOutputFunction(logThriftDiagnostic);

    try {
        options.listenFd = activatedSocket();
    } catch (const std::exception& error) {
        return fail(error.what());
    }

    // Taken while this is the only thread: it changes the environment.
    const auto watchdogInterval = Watchdog::requested();

    // Every thread started from here on inherits the mask; only sigwait below takes the signals.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    // A client that hangs up mid-reply must not end the host.
    signal(SIGPIPE, SIG_IGN);

    options.onServingEnded = [] {
        servingEnded = true;
        ::kill(::getpid(), SIGTERM);
    };
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

    sd_notifyf(0, "READY=1\nSTATUS=Serving RPC on %s", host.rpcEndpoint().str().c_str());
    std::optional<Watchdog> watchdog;
    if (watchdogInterval) {
        watchdog.emplace(*watchdogInterval,
                         [&host](std::chrono::milliseconds wait) { return host.rpcAnswers(wait); });
    }

    int received = 0;
    for (;;) {
        sigwait(&signals, &received);
        if (received != SIGHUP) {
            break;
        }
        // Log rotation: the old file has been moved away; write to a new one under the name.
        if (const auto failure = reopenLogFile()) {
            HOST_LOG(spdlog::level::err, "cannot reopen the log file; Reason: {}", *failure);
        } else {
            HOST_LOG(spdlog::level::info, "received {}, log file reopened", strsignal(received));
        }
    }
    sd_notify(0, "STOPPING=1");
    if (servingEnded) {
        HOST_LOG(spdlog::level::critical, "RPC serving ended; exiting for a restart");
    } else {
        HOST_LOG(spdlog::level::info, "received {}, shutting down", strsignal(received));
    }
    watchdog.reset();
    stopWithin(host, std::chrono::seconds(stopTimeout));
    HOST_LOG(spdlog::level::info, "host stopped");
    return servingEnded ? kExitServingEnded : 0;
}
