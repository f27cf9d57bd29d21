// helion-host: the reference host process for the HelionPromote module.
#include <signal.h>
#include <spdlog/spdlog.h>
#include <systemd/sd-daemon.h>
#include <thrift/TOutput.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <iostream>
#include <optional>
#include <thread>

#include "host/Host.h"
#include "host/HostCommandLine.h"
#include "host/HostLog.h"
#include "host/ListeningSocket.h"
#include "host/Logging.h"
#include "host/Watchdog.h"
#include "tools/cli/CommandLine.h"

namespace {

using namespace helion::host;
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

/// Blocks the signals the host stops and reopens its log on. Every thread started from here on
/// inherits the mask; only sigwait in waitForStop takes them.
sigset_t blockSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    // A client that hangs up mid-reply must not end the host.
    signal(SIGPIPE, SIG_IGN);
    return signals;
}

/// Waits for SIGINT or SIGTERM, reopening the log file on each SIGHUP; returns the signal.
int waitForStop(const sigset_t& signals) {
    int received = 0;
    for (;;) {
        sigwait(&signals, &received);
        if (received != SIGHUP) {
            return received;
        }
        // Log rotation: the old file has been moved away; write to a new one under the name.
        if (const auto failure = reopenLogFile()) {
            HOST_LOG(spdlog::level::err, "cannot reopen the log file; Reason: {}", *failure);
        } else {
            HOST_LOG(spdlog::level::info, "received {}, log file reopened", strsignal(received));
        }
    }
}

/// Stops the host, unless calls stuck in the module (a file system that never answers) hold the
/// stop past timeout: those are logged and the process ends without unloading the module.
void stopWithin(Host& host, std::chrono::seconds timeout) {
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

/// Serves until a stop signal or the end of serving, then stops; returns the exit status.
int serve(Host& host, const sigset_t& signals, std::optional<std::chrono::microseconds> watchdog,
          std::chrono::seconds stopTimeout) {
    sd_notifyf(0, "READY=1\nSTATUS=Serving RPC on %s", host.rpcEndpoint().str().c_str());
    std::optional<Watchdog> pinger;
    if (watchdog) {
        pinger.emplace(*watchdog,
                       [&host](std::chrono::milliseconds wait) { return host.rpcAnswers(wait); });
    }
    const int received = waitForStop(signals);
    sd_notify(0, "STOPPING=1");
    if (servingEnded) {
        HOST_LOG(spdlog::level::critical, "RPC serving ended; exiting for a restart");
    } else {
        HOST_LOG(spdlog::level::info, "received {}, shutting down", strsignal(received));
    }
    pinger.reset();
    stopWithin(host, stopTimeout);
    HOST_LOG(spdlog::level::info, "host stopped");
    return servingEnded ? kExitServingEnded : 0;
}

/// Logs, takes the socket the service manager passed, starts the host and serves.
int run(HostOptions options, std::chrono::seconds stopTimeout) {
    apache::thrift::GlobalOutput.setOutputFunction(logThriftDiagnostic);
    try {
        options.listenFd = takeActivatedSocket().release();
    } catch (const std::exception& error) {
        return fail(error.what());
    }
    // Taken while this is the only thread: it changes the environment.
    const auto watchdogInterval = Watchdog::requested();
    const sigset_t signals = blockSignals();
    options.onServingEnded = [] {
        servingEnded = true;
        ::kill(::getpid(), SIGTERM);
    };
    Host host(options);
    try {
        host.start();
    } catch (const std::exception& error) {
        host.shutdown();
        return fail(error.what());
    }
    return serve(host, signals, watchdogInterval, stopTimeout);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Loads the HelionPromote module and serves its RPC service."};
    CommandLine line;
    declareOptions(app, line);
    app.set_version_flag("--version", HELION_HOST_VERSION);
    if (const auto status = helion::cli::parseCommandLine(app, argc, argv)) {
        return *status;
    }
    HostOptions options;
    try {
        options = hostOptions(line);
    } catch (const std::invalid_argument& error) {
        return fail(error.what(), kExitUsage);
    }
    try {
        initLogging(line.logging);
    } catch (const std::exception& error) {
        return fail("cannot open log file '" + line.logging.file + "': " + error.what());
    }
    return run(std::move(options), std::chrono::seconds(line.stopTimeout));
}
