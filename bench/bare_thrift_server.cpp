// helion_bare_thrift_server: SdpPromoteService with an empty handler, served exactly the way
// helion-host serves the module (multiplexed, buffered transport, binary protocol, a thread pool
// server with a simple thread manager), so RPC figures of the host have a floor to compare with.
#include <signal.h>
#include <thrift/concurrency/ThreadFactory.h>
#include <thrift/concurrency/ThreadManager.h>
#include <thrift/processor/TMultiplexedProcessor.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/server/TThreadPoolServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TServerSocket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <future>
#include <iostream>
#include <thread>

#include "UnixPathOption.h"
#include "rpc/SdpPromoteService.h"

namespace {

using namespace apache::thrift;
using corvid::rpc::thrift::ProcessData;

class EmptyHandler : public corvid::rpc::thrift::SdpPromoteServiceIf {
public:
    void updatePortal(std::string&, const std::string&) override {}
    void copyPortalDir(std::string&, const std::string&) override {}
    void delPortalDir(std::string&, const std::string&) override {}
    void getProcessData(ProcessData&, int64_t) override {}
    void getAllProcessData(ProcessData&) override {}
    bool StartDiagnosisTool() override { return true; }
    bool reLaunchTool() override { return true; }
    bool IsRpcStatusNormal() override { return true; }
};

class ReadySignal : public server::TServerEventHandler {
public:
    explicit ReadySignal(std::promise<void>& ready) : ready_(ready) {}
    void preServe() override { ready_.set_value(); }

private:
    std::promise<void>& ready_;
};

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Serves SdpPromoteService with an empty handler, configured like helion-host."};
    std::string path;
    std::size_t workers = 8;
    int idleTimeoutMs = 60000;
    helion::bench::addUnixPathOption(app, "-l,--listen", path, "Where to serve");
    app.add_option("-w,--workers", workers, "Connections served at once")
        ->check(CLI::Range(1, 256))
        ->capture_default_str();
    app.add_option("--idle-timeout-ms", idleTimeoutMs, "Drop a connection idle this long")
        ->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    GlobalOutput.setOutputFunction([](const char*) {});
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    signal(SIGPIPE, SIG_IGN);

    auto multiplexer = std::make_shared<TMultiplexedProcessor>();
    multiplexer->registerProcessor(
        "SdpPromoteService", std::make_shared<corvid::rpc::thrift::SdpPromoteServiceProcessor>(
                                 std::make_shared<EmptyHandler>()));
    ::unlink(path.c_str());
    auto socket = std::make_shared<transport::TServerSocket>(path);
    socket->setRecvTimeout(idleTimeoutMs);
    socket->setSendTimeout(idleTimeoutMs);

    auto threads = concurrency::ThreadManager::newSimpleThreadManager(workers);
    threads->threadFactory(std::make_shared<concurrency::ThreadFactory>());
    threads->start();
    auto server = std::make_shared<server::TThreadPoolServer>(
        multiplexer, socket, std::make_shared<transport::TBufferedTransportFactory>(),
        std::make_shared<protocol::TBinaryProtocolFactory>(), threads);
    std::promise<void> ready;
    server->setServerEventHandler(std::make_shared<ReadySignal>(ready));
    std::thread serving([&] {
        try {
            server->serve();
        } catch (const std::exception& error) {
            std::cerr << "helion_bare_thrift_server: error: " << error.what() << std::endl;
            ::kill(::getpid(), SIGTERM);
        }
    });
    if (ready.get_future().wait_for(std::chrono::seconds(30)) == std::future_status::ready) {
        std::cout << "serving on unix:" << path << " with " << workers << " workers" << std::endl;
    }

    int received = 0;
    sigwait(&stopSignals, &received);
    server->stop();
    serving.join();
    ::unlink(path.c_str());
    return 0;
}
