// The host library's own rules: endpoints, listening sockets, the event bus, RPC registration
// and serving, and what a stop leaves behind.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <boost/asio/ip/tcp.hpp>
#include <chrono>
#include <future>
#include <stdexcept>

#include "host/EventBus.h"
#include "host/Host.h"
#include "host/HttpListener.h"
#include "host/ListeningSocket.h"
#include "host/RpcServer.h"
#include "host/StartupError.h"
#include "host/endpoint/Endpoint.h"
#include "rpc/SdpPromoteService.h"
#include "support/TestSupport.h"

namespace {

using namespace helion::host;
namespace net = boost::asio;

bool connects(const Endpoint& where) {
    net::io_context io;
    boost::system::error_code error;
    net::ip::tcp::socket(io).connect({net::ip::make_address(where.address), where.port}, error);
    return !error;
}

TEST(HostLibrary, EndpointsParsePrintAndRefuse) {
    for (const auto& [text, printed] : std::vector<std::pair<std::string, std::string>>{
             {"unix:/run/x/promote.sock", "unix:/run/x/promote.sock"},
             {"tcp:127.0.0.1:9090", "tcp:127.0.0.1:9090"},
             {"tcp:[::1]:0", "tcp:[::1]:0"},
             {"tcp:localhost:1", "tcp:127.0.0.1:1"},
             // sun_path is 108 bytes including the terminator.
             {"unix:/" + std::string(106, 'a'), "unix:/" + std::string(106, 'a')}}) {
        EXPECT_EQ(parseEndpoint(text).str(), printed);
    }
    for (const std::string& text : std::vector<std::string>{
             "", "unix:", "udp:1.2.3.4:5", "tcp:127.0.0.1", "tcp:127.0.0.1:", "tcp:127.0.0.1:65536",
             "tcp:127.0.0.1:-1", "tcp:127.0.0.1:80x", "tcp:example.org:80", "tcp:[::1:80",
             "tcp:[::1]80", "unix:/" + std::string(107, 'a')}) {
        EXPECT_THROW(parseEndpoint(text), std::invalid_argument) << text;
    }
    for (const char* text : {"tcp:127.8.9.10:1", "tcp:[::1]:1", "unix:/tmp/x"}) {
        EXPECT_NO_THROW(requireLoopback(parseEndpoint(text))) << text;
    }
    for (const char* text :
         {"tcp:0.0.0.0:1", "tcp:192.168.1.2:1", "tcp:[::]:1", "tcp:[::ffff:10.0.0.1]:1"}) {
        EXPECT_THROW(requireLoopback(parseEndpoint(text)), std::invalid_argument) << text;
    }
}

TEST(HostLibrary, EventBusDeliversByTopicPastFailingSubscribers) {
    helion::test::LogCapture log;
    EventBus bus;
    std::vector<std::string> seen;
    bus.subscribe("a",
                  [](const std::string&, const std::string&) { throw std::runtime_error("boom"); });
    bus.subscribe("a", [&](const std::string& t, const std::string& c) {
        seen.push_back("a:" + t + "=" + c);
        bus.publish("n", "nested");  // handlers run without the bus's lock
    });
    const auto all = bus.subscribe(
        "", [&](const std::string& t, const std::string&) { seen.push_back("*:" + t); });

    EXPECT_TRUE(bus.publish("a", "1"));
    EXPECT_TRUE(bus.publish("b", "2"));
    EXPECT_EQ(seen, (std::vector<std::string>{"a:a=1", "*:n", "*:a", "*:b"}));
    EXPECT_TRUE(log.contains("subscriber of [a] failed; Reason: boom"));
    EXPECT_TRUE(log.contains("module published event topic: [b], content: [2]"));

    bus.unsubscribe(all);
    EXPECT_FALSE(bus.publish("b", "3"));
}

TEST(HostLibrary, RpcServerRegistersOnceAndReportsServingThatEndsByItself) {
    helion::test::TempDir dir;
    helion::test::LogCapture log;
    std::promise<void> ended;
    RpcServerOptions options;
    const int listening = options.listenFd = listenUnix(dir.str() + "/s.sock", {}).release();
    options.workers = 1;
    options.onServingEnded = [&] { ended.set_value(); };
    RpcServer server(options);

    std::shared_ptr<apache::thrift::TProcessor> none,
        stub = std::make_shared<corvid::rpc::thrift::SdpPromoteServiceProcessor>(
            std::make_shared<corvid::rpc::thrift::SdpPromoteServiceNull>());
    EXPECT_THROW(server.registerProcessor("X", none), std::invalid_argument);
    EXPECT_THROW(server.registerProcessor(nullptr, stub), std::invalid_argument);
    server.registerProcessor("SdpPromoteService", stub);
    EXPECT_THROW(server.registerProcessor("SdpPromoteService", stub), std::invalid_argument);
    server.bind();
    server.start();
    EXPECT_THROW(server.registerProcessor("Other", stub), std::logic_error);
    EXPECT_EQ(server.services(), std::vector<std::string>{"SdpPromoteService"});

    ::shutdown(listening, SHUT_RDWR);  // the listener breaks under the server
    EXPECT_EQ(ended.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(server.endpoint().str(), "unix:" + dir.str() + "/s.sock");
}

TEST(HostLibrary, PrivateSocketDirectoriesLetInOnlyTheUserAndTheSocketsGroup) {
    helion::test::TempDir dir;
    const std::string nested = dir.str() + "/a/b";
    createSocketDirectory(nested);
    EXPECT_TRUE(isPrivateDirectory(nested, std::nullopt));
    ::symlink(nested.c_str(), (dir.str() + "/link").c_str());
    EXPECT_FALSE(isPrivateDirectory(dir.str() + "/link", std::nullopt));
    ::chmod(nested.c_str(), 0750);
    EXPECT_FALSE(isPrivateDirectory(nested, std::nullopt));
    EXPECT_TRUE(isPrivateDirectory(nested, ::getegid()));
    EXPECT_FALSE(isPrivateDirectory(nested, ::getegid() + 1));
    EXPECT_THROW(isPrivateDirectory(dir.write("file", ""), std::nullopt), StartupError);
}

TEST(HostLibrary, AStoppedHostClosesItsSocketsAtOnceAndHandsItsModuleBackOnce) {
    auto endpoint = parseEndpoint("tcp:127.0.0.1:0");
    HostOptions options;
    options.listenFd = listenOn(endpoint, {}).release();
    options.http = parseEndpoint("tcp:127.0.0.1:0");
    options.modulePath = HELION_COUNTED_MODULE;
    int freed = 0;
    {
        Host host(options);
        host.eventBus().subscribe("freed", [&](auto&, auto&) { ++freed; });
        host.start();
        EXPECT_EQ(host.rpcEndpoint().str(), endpoint.str());
        const Endpoint http = *host.httpEndpoint();
        net::io_context io;
        net::ip::tcp::socket client(io);
        client.connect({net::ip::make_address(http.address), http.port});
        client.send(net::buffer(std::string("GET / HTTP/1.1\r\nHost: h\r\n\r\n")));
        char reply[64];
        client.read_some(net::buffer(reply));  // answered: the connection is kept alive
        const auto stopping = std::chrono::steady_clock::now();
        host.shutdown();  // the kept-alive HTTP connection is dropped, not waited out (30 s)
        EXPECT_LT(std::chrono::steady_clock::now() - stopping, std::chrono::seconds(5));
        EXPECT_FALSE(connects(endpoint) || connects(http));
    }
    EXPECT_EQ(freed, 1);
    EXPECT_EQ(::dlopen(HELION_COUNTED_MODULE, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

}  // namespace
