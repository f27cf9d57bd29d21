#include "tools/lib/RequestJson.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <initializer_list>
#include <utility>

namespace helion::tools {

namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

void member(Writer& writer, const char* key, const std::string& value) {
    writer.Key(key);
    // Lengths are passed, so any byte (quotes, backslashes, NULs) is escaped, never cut.
    writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
}

std::string object(std::initializer_list<std::pair<const char*, const std::string*>> members) {
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    writer.StartObject();
    for (const auto& [key, value] : members) {
        member(writer, key, *value);
    }
    writer.EndObject();
    return buffer.GetString();
}

}  // namespace

std::string updatePortalParam(const std::string& srcZip, const std::string& portalDir,
                              const std::string& signFile) {
    return object({{"srcZip", &srcZip}, {"portalDir", &portalDir}, {"signFile", &signFile}});
}

std::string copyPortalDirParam(const std::string& srcDir, const std::string& portalDir) {
    return object({{"srcDir", &srcDir}, {"portalDir", &portalDir}});
}

std::string delPortalDirParam(const std::vector<std::string>& portalDirs) {
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    writer.StartObject();
    writer.Key("portalDirs");
    writer.StartArray();
    for (const auto& dir : portalDirs) {
        writer.String(dir.data(), static_cast<rapidjson::SizeType>(dir.size()));
    }
    writer.EndArray();
    writer.EndObject();
    return buffer.GetString();
}

}  // namespace helion::tools
