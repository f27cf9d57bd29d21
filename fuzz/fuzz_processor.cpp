// Arbitrary bytes as one binary-protocol message to the service's processor, the way a host's RPC
// thread hands it over. The portal operations are real and work below the sandbox's scratch
// tmpfs (a signed package, its signature and a source directory are laid out there before each
// input); the diagnosis tool is never started. Whatever the bytes, the processor answers with a
// reply or an exception reply for the caller's name and sequence id, or fails with a Thrift
// exception, which the host's server takes as a broken connection. Messages are read with the
// host's string and container limits; without them the protocol allocates whatever length a
// message announces and multiplies element counts near 2^31.
#include <thrift/TApplicationException.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "FuzzSupport.h"
#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "rpc/RpcLimits.h"

namespace {

using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::protocol::TMessageType;
using apache::thrift::transport::TMemoryBuffer;

class NoToolService : public corvid::SdpPromoteServiceImpl {
public:
    bool StartDiagnosisTool() override { return false; }
    bool reLaunchTool() override { return false; }
};

void layOutFixtures() {
    namespace fs = boost::filesystem;
    const std::string scratch = helion::fuzz::kScratch;
    helion::fuzz::resetScratch();
    static const std::string package = helion::fuzz::dataFile("package.zip");
    static const std::string signature = helion::fuzz::dataFile("package.sig");
    boost::system::error_code ec;
    fs::create_directories(scratch + "/src/sub", ec);
    const bool laidOut =
        !ec && helion::fuzz::writeBytes(scratch + "/pkg.zip", package.data(), package.size()) &&
        helion::fuzz::writeBytes(scratch + "/pkg.sig", signature.data(), signature.size()) &&
        helion::fuzz::writeBytes(scratch + "/src/a.css", "a{}", 3) &&
        helion::fuzz::writeBytes(scratch + "/src/b.js", "b()", 3) &&
        helion::fuzz::writeBytes(scratch + "/src/sub/c.png", "png", 3) &&
        helion::fuzz::writeBytes(scratch + "/file.txt", "plain", 5);
    if (!laidOut) {
        std::abort();
    }
}

// The name and sequence id of a message, if its header can be read at all.
bool readHeader(const uint8_t* data, size_t size, std::string& name, TMessageType& type,
                int32_t& seqid) {
    try {
        auto buffer = std::make_shared<TMemoryBuffer>(const_cast<uint8_t*>(data),
                                                      static_cast<uint32_t>(size));
        TBinaryProtocol protocol(buffer);
        protocol.readMessageBegin(name, type, seqid);
        return true;
    } catch (const apache::thrift::TException&) {
        return false;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    helion::fuzz::requireSandbox("fuzz_processor");
    helion::fuzz::installNullLogger();
    static auto processor = std::make_shared<corvid::rpc::thrift::SdpPromoteServiceProcessor>(
        std::make_shared<NoToolService>());
    layOutFixtures();

    auto inBuffer =
        std::make_shared<TMemoryBuffer>(const_cast<uint8_t*>(data), static_cast<uint32_t>(size));
    auto outBuffer = std::make_shared<TMemoryBuffer>();
    // Read with the reference host's limits, as a real connection is.
    auto in = std::make_shared<TBinaryProtocol>(inBuffer, helion::rpc::kMaxRpcStringBytes,
                                                helion::rpc::kMaxRpcContainerItems, false, true);
    auto out = std::make_shared<TBinaryProtocol>(outBuffer);
    try {
        processor->process(in, out, nullptr);
    } catch (const apache::thrift::TException&) {
        // A malformed message: the server drops the connection.
        return 0;
    }

    uint8_t* written = nullptr;
    uint32_t writtenSize = 0;
    outBuffer->getBuffer(&written, &writtenSize);
    if (writtenSize == 0) {
        return 0;  // a one-way call or a message type the processor does not answer
    }
    std::string requestName, replyName;
    TMessageType requestType, replyType;
    int32_t requestId = 0, replyId = 0;
    if (!readHeader(data, size, requestName, requestType, requestId) ||
        !readHeader(written, writtenSize, replyName, replyType, replyId)) {
        __builtin_trap();
    }
    const bool answered = replyType == apache::thrift::protocol::T_REPLY ||
                          replyType == apache::thrift::protocol::T_EXCEPTION;
    if (!answered || replyName != requestName || replyId != requestId) {
        __builtin_trap();
    }
    return 0;
}
