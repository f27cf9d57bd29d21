// The host library's own rules: endpoints, the event bus, RPC registration and serving.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <future>
#include <stdexcept>

#include "host/Endpoint.h"
#include "host/EventBus.h"
#include "host/RpcServer.h"
#include "rpc/SdpPromoteService.h"
#include "support/TestSupport.h"

namespace {

using helion::host::parseEndpoint;

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
        EXPECT_NO_THROW(helion::host::requireLoopback(parseEndpoint(text))) << text;
    }
    for (const char* text :
         {"tcp:0.0.0.0:1", "tcp:192.168.1.2:1", "tcp:[::]:1", "tcp:[::ffff:10.0.0.1]:1"}) {
        EXPECT_THROW(helion::host::requireLoopback(parseEndpoint(text)), std::invalid_argument)
            << text;
    }
}

TEST(HostLibrary, EventBusDeliversByTopicPastFailingSubscribers) {
    helion::test::LogCapture log;
    helion::host::EventBus bus;
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
    helion::host::RpcServerOptions options;
    options.endpoint = parseEndpoint("unix:" + dir.str() + "/s.sock");
    options.workers = 1;
    options.onServingEnded = [&] { ended.set_value(); };
    helion::host::RpcServer server(options);

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

    // Break the listener under the server: the only listening socket of this process.
    for (int fd = 3; fd < 1024; ++fd) {
        int listening = 0;
        socklen_t size = sizeof(listening);
        if (::getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) == 0 && listening) {
            ::shutdown(fd, SHUT_RDWR);
        }
    }
    EXPECT_EQ(ended.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    server.stop();
    EXPECT_FALSE(boost::filesystem::exists(dir.str() + "/s.sock"));
}

}  // namespace
