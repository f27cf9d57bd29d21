// The host library's own rules: endpoint syntax, the event bus, RPC registration.
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

using helion::host::Endpoint;
using helion::host::parseEndpoint;

TEST(Endpoint, ParsesPrintsAndRefuses) {
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

TEST(EventBus, DeliversByTopicAndToCatchAllSubscribers) {
    helion::test::LogCapture log;
    helion::host::EventBus bus;
    std::vector<std::string> seen;
    bus.subscribe("a", [&](const std::string& t, const std::string& c) {
        seen.push_back("a:" + t + "=" + c);
    });
    const auto all = bus.subscribe(
        "", [&](const std::string& t, const std::string&) { seen.push_back("*:" + t); });

    EXPECT_TRUE(bus.publish("a", "1"));
    EXPECT_TRUE(bus.publish("b", "2"));
    EXPECT_EQ(seen, (std::vector<std::string>{"a:a=1", "*:a", "*:b"}));
    EXPECT_TRUE(log.contains("module published event topic: [b], content: [2]"));

    bus.unsubscribe(all);
    EXPECT_FALSE(bus.publish("b", "3"));
    EXPECT_FALSE(bus.publish(nullptr, "x"));
    EXPECT_FALSE(bus.publish("x", nullptr));
}

TEST(EventBus, AThrowingSubscriberDoesNotStopTheOthers) {
    helion::test::LogCapture log;
    helion::host::EventBus bus;
    int calls = 0;
    bus.subscribe("t",
                  [](const std::string&, const std::string&) { throw std::runtime_error("boom"); });
    bus.subscribe("t", [&](const std::string&, const std::string&) { ++calls; });
    // A subscriber may publish in turn: handlers run without the bus's lock.
    bus.subscribe("t", [&](const std::string&, const std::string&) { bus.publish("u", "nested"); });
    EXPECT_TRUE(bus.publish("t", "x"));
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(log.contains("subscriber of [t] failed; Reason: boom"));
    EXPECT_TRUE(log.contains("content: [nested]"));
}

class StubService : public corvid::rpc::thrift::SdpPromoteServiceNull {};

class RpcRegistration : public ::testing::Test {
protected:
    std::shared_ptr<apache::thrift::TProcessor> processor() {
        return std::make_shared<corvid::rpc::thrift::SdpPromoteServiceProcessor>(
            std::make_shared<StubService>());
    }
    helion::test::TempDir dir;
    helion::test::LogCapture log;
};

TEST_F(RpcRegistration, RefusesIncompleteDuplicateAndLateRegistrations) {
    helion::host::RpcServerOptions options;
    options.endpoint = parseEndpoint("unix:" + dir.str() + "/s.sock");
    options.workers = 1;
    helion::host::RpcServer server(options);

    std::shared_ptr<apache::thrift::TProcessor> none;
    auto first = processor();
    EXPECT_THROW(server.registerProcessor("X", none), std::invalid_argument);
    EXPECT_THROW(server.registerProcessor(nullptr, first), std::invalid_argument);
    server.registerProcessor("SdpPromoteService", first);
    auto second = processor();
    EXPECT_THROW(server.registerProcessor("SdpPromoteService", second), std::invalid_argument);

    server.bind();
    server.start();
    EXPECT_THROW(server.registerProcessor("Other", second), std::logic_error);
    EXPECT_EQ(server.services(), std::vector<std::string>{"SdpPromoteService"});
    server.stop();
    EXPECT_FALSE(boost::filesystem::exists(dir.str() + "/s.sock"));
}

TEST_F(RpcRegistration, ServingThatEndsByItselfIsReported) {
    std::promise<void> ended;
    helion::host::RpcServerOptions options;
    options.endpoint = parseEndpoint("unix:" + dir.str() + "/s.sock");
    options.onServingEnded = [&] { ended.set_value(); };
    helion::host::RpcServer server(options);
    server.bind();
    server.start();
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
}

}  // namespace
