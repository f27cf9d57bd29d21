// helion_rpc_load: N connections calling IsRpcStatusNormal back to back for a fixed time, through
// the same generated client, transport and multiplexed protocol as helion-promote. Prints one
// JSON line with the calls made and the rate.
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TMultiplexedProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TSocket.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <thread>
#include <vector>

#include "UnixPathOption.h"
#include "rpc/SdpPromoteService.h"

namespace {

using namespace apache::thrift;
using Clock = std::chrono::steady_clock;

struct Worker {
    std::uint64_t calls = 0;
    std::string error;
};

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Calls IsRpcStatusNormal over N connections for a fixed time."};
    std::string path;
    unsigned clients = 1;
    double seconds = 3;
    std::uint64_t maxCalls = 50'000'000;
    helion::bench::addUnixPathOption(app, "-c,--connect", path, "The server");
    app.add_option("-n,--clients", clients, "Concurrent connections")
        ->check(CLI::Range(1, 64))
        ->capture_default_str();
    app.add_option("-t,--seconds", seconds, "How long to call")
        ->check(CLI::Range(0.1, 60.0))
        ->capture_default_str();
    app.add_option("--max-calls", maxCalls, "Stop a connection after this many calls")
        ->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    std::vector<Worker> workers(clients);
    std::vector<std::thread> threads;
    std::atomic<unsigned> connected{0};
    std::atomic<bool> go{false};
    std::atomic<Clock::rep> deadline{0};
    for (unsigned i = 0; i < clients; ++i) {
        threads.emplace_back([&, i] {
            Worker& self = workers[i];
            try {
                auto socket = std::make_shared<transport::TSocket>(path);
                socket->setConnTimeout(10000);
                socket->setRecvTimeout(10000);
                socket->setSendTimeout(10000);
                auto buffered = std::make_shared<transport::TBufferedTransport>(socket);
                corvid::rpc::thrift::SdpPromoteServiceClient client(
                    std::make_shared<protocol::TMultiplexedProtocol>(
                        std::make_shared<protocol::TBinaryProtocol>(buffered),
                        "SdpPromoteService"));
                buffered->open();
                // One call before the clock starts: the server has handed us a worker.
                client.IsRpcStatusNormal();
                connected.fetch_add(1);
                while (!go.load()) {
                    std::this_thread::yield();
                }
                const Clock::time_point end{Clock::duration{deadline.load()}};
                while (self.calls < maxCalls && Clock::now() < end) {
                    if (!client.IsRpcStatusNormal()) {
                        self.error = "IsRpcStatusNormal answered false";
                        break;
                    }
                    ++self.calls;
                }
                buffered->close();
            } catch (const std::exception& error) {
                self.error = error.what();
                connected.fetch_add(1);
            }
        });
    }
    // Every connection must be served at once, else the figure would mix in queueing.
    const auto connectBy = Clock::now() + std::chrono::seconds(20);
    while (connected.load() < clients && Clock::now() < connectBy) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const auto start = Clock::now();
    deadline.store((start + std::chrono::duration_cast<Clock::duration>(
                                std::chrono::duration<double>(seconds)))
                       .time_since_epoch()
                       .count());
    go.store(true);
    for (auto& thread : threads) {
        thread.join();
    }
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();

    std::uint64_t calls = 0;
    std::string error;
    for (const auto& worker : workers) {
        calls += worker.calls;
        if (error.empty() && !worker.error.empty()) {
            error = worker.error;
        }
    }
    if (connected.load() < clients && error.empty()) {
        error = "not every connection was served within 20 s";
    }
    std::cout << "{\"clients\":" << clients << ",\"calls\":" << calls << ",\"seconds\":" << elapsed
              << ",\"calls_per_second\":" << static_cast<std::uint64_t>(calls / elapsed) << "}"
              << std::endl;
    if (!error.empty()) {
        std::cerr << "helion_rpc_load: error: " << error << std::endl;
        return 1;
    }
    return 0;
}
