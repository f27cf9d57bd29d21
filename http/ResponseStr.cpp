#include "http/ResponseStr.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstring>

namespace corvid {

namespace {
rapidjson::Value textUpToNul(const std::string& text, rapidjson::Document::AllocatorType& alloc) {
    const auto length = static_cast<rapidjson::SizeType>(std::strlen(text.c_str()));
    return rapidjson::Value(text.c_str(), length, alloc);
}
}  // namespace

std::string responseStr(int code, const std::string& message, const std::string& data) {
    rapidjson::Document document(rapidjson::kObjectType);
    auto& alloc = document.GetAllocator();
    document.AddMember("code", rapidjson::Value(code), alloc);
    document.AddMember("message", textUpToNul(message, alloc), alloc);
    document.AddMember("data", textUpToNul(data, alloc), alloc);
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    document.Accept(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace corvid
