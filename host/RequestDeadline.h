#pragma once
// A whole request must arrive within a deadline from its first byte: a receive timeout alone lets
// a client that sends a byte now and then hold a worker for as long as it likes.

#include <thrift/transport/TTransport.h>

#include <chrono>
#include <memory>

namespace helion::host {

class RequestDeadlineTransportFactory : public apache::thrift::transport::TTransportFactory {
public:
    /// idle: how long a connection may wait for the first byte of a request;
    /// deadline: how long the rest of that request may take.
    RequestDeadlineTransportFactory(std::chrono::milliseconds idle,
                                    std::chrono::milliseconds deadline)
        : idle_(idle), deadline_(deadline) {}

    /// Buffers trans (a TSocket from the server socket) and watches the deadline above it.
    std::shared_ptr<apache::thrift::transport::TTransport> getTransport(
        std::shared_ptr<apache::thrift::transport::TTransport> trans) override;

private:
    std::chrono::milliseconds idle_;
    std::chrono::milliseconds deadline_;
};

}  // namespace helion::host
