#include "tools/lib/ResultJson.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace helion::tools {

namespace {
using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

void string(Writer& writer, const std::string& value) {
    writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
}
}  // namespace

std::string processDataJson(const corvid::rpc::thrift::ProcessData& data) {
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    writer.StartObject();
    writer.Key("code");
    writer.Int64(data.code);
    writer.Key("message");
    string(writer, data.message);
    writer.Key("processInfo");
    writer.StartArray();
    for (const auto& info : data.processInfo) {
        writer.StartObject();
        writer.Key("pid");
        writer.Int64(info.pid);
        writer.Key("procName");
        string(writer, info.procName);
        writer.Key("procPath");
        string(writer, info.procPath);
        writer.EndObject();
    }
    writer.EndArray();
    writer.EndObject();
    return buffer.GetString();
}

std::string boolJson(bool value) {
    return value ? R"({"result":true})" : R"({"result":false})";
}

std::optional<long long> envelopeCode(const std::string& envelope) {
    rapidjson::Document document;
    document.Parse(envelope.data(), envelope.size());
    if (document.HasParseError() || !document.IsObject()) {
        return std::nullopt;
    }
    const auto code = document.FindMember("code");
    if (code == document.MemberEnd() || !code->value.IsInt64()) {
        return std::nullopt;
    }
    return code->value.GetInt64();
}

}  // namespace helion::tools
