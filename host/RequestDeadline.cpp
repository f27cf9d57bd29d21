#include "host/RequestDeadline.h"

#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TSocket.h>
#include <thrift/transport/TTransportException.h>
#include <thrift/transport/TVirtualTransport.h>

#include <algorithm>

#include "host/HostLog.h"

namespace helion::host {

using apache::thrift::transport::TSocket;
using apache::thrift::transport::TTransport;
using apache::thrift::transport::TTransportException;
using Clock = std::chrono::steady_clock;

namespace {

/// Sits above the buffer so that it sees where a request ends: the processor calls readEnd()
/// once it has read all of one.
class RequestDeadlineTransport
    : public apache::thrift::transport::TVirtualTransport<RequestDeadlineTransport> {
public:
    RequestDeadlineTransport(std::shared_ptr<TSocket> socket, std::chrono::milliseconds idle,
                             std::chrono::milliseconds deadline)
        : socket_(std::move(socket)),
          buffered_(std::make_shared<apache::thrift::transport::TBufferedTransport>(socket_)),
          idle_(idle),
          deadline_(deadline),
          applied_(idle) {}

    bool isOpen() const override { return buffered_->isOpen(); }
    bool peek() override { return buffered_->peek(); }
    void open() override { buffered_->open(); }
    void close() override { buffered_->close(); }
    const std::string getOrigin() const override { return buffered_->getOrigin(); }

    uint32_t read(uint8_t* buf, uint32_t len) {
        if (started_) {
            // Rounded up: a timeout that fires short of the deadline would not count as it.
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(endsAt_ - Clock::now());
            if (left.count() <= 0) {
                expired();
            }
            applyTimeout(std::min(left, idle_));
        }
        uint32_t got = 0;
        try {
            got = buffered_->read(buf, len);
        } catch (const TTransportException& error) {
            if (started_ && error.getType() == TTransportException::TIMED_OUT &&
                Clock::now() >= endsAt_) {
                expired();
            }
            throw;
        }
        if (!started_ && got > 0) {
            started_ = true;
            endsAt_ = Clock::now() + deadline_;
        }
        return got;
    }

    uint32_t readEnd() override {
        if (started_) {
            started_ = false;
            applyTimeout(idle_);
        }
        return buffered_->readEnd();
    }

    void write(const uint8_t* buf, uint32_t len) { buffered_->write(buf, len); }
    uint32_t writeEnd() override { return buffered_->writeEnd(); }
    void flush() override { buffered_->flush(); }

private:
    // Most reads are served from the buffer within a millisecond of the last: the socket's
    // timeout is changed only when it would end more than 50 ms past the deadline, or grows.
    void applyTimeout(std::chrono::milliseconds timeout) {
        if (timeout > applied_ || timeout + std::chrono::milliseconds(50) < applied_) {
            socket_->setRecvTimeout(static_cast<int>(timeout.count()));
            applied_ = timeout;
        }
    }

    [[noreturn]] void expired() {
        HOST_LOG(spdlog::level::warn,
                 "dropping a connection: its request took longer than {} ms to arrive",
                 deadline_.count());
        throw TTransportException(TTransportException::TIMED_OUT, "request deadline passed");
    }

    std::shared_ptr<TSocket> socket_;
    std::shared_ptr<TTransport> buffered_;
    std::chrono::milliseconds idle_;
    std::chrono::milliseconds deadline_;
    bool started_ = false;
    Clock::time_point endsAt_{};
    // What the socket's receive timeout is set to now.
    std::chrono::milliseconds applied_;
};

}  // namespace

std::shared_ptr<TTransport> RequestDeadlineTransportFactory::getTransport(
    std::shared_ptr<TTransport> trans) {
    auto socket = std::dynamic_pointer_cast<TSocket>(trans);
    if (!socket) {
        return std::make_shared<apache::thrift::transport::TBufferedTransport>(trans);
    }
    return std::make_shared<RequestDeadlineTransport>(std::move(socket), idle_, deadline_);
}

}  // namespace helion::host
