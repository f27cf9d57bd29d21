#pragma once
// Generic binding between JSON text and RTTR-reflected objects: properties are matched by name
// and values converted through RTTR variants, so no request type needs code of its own here.

#include <rapidjson/fwd.h>

#include <rttr/type>
#include <string>
#include <vector>

namespace io {

/// Metadata key that keeps a property out of to_json. A string object, not a character pointer:
/// RTTR compares metadata keys as values, and two copies of one literal need not share an address.
inline const std::string kNoSerialize = "NO_SERIALIZE";

/// Binds json into obj. False on a parse error (silently) or an exception (reported on stderr);
/// values that do not fit their property are skipped and still count as success.
bool from_json(const std::string& json, rttr::instance obj);

/// Binds one JSON object into one reflected object; anything but an object binds nothing.
void fromjson_recursively(rttr::instance obj, rapidjson::Value& json_object);

/// One object as a compact JSON object text; empty on failure.
std::string to_json(rttr::instance obj);

/// Several objects as a compact JSON array text; empty if any instance is invalid.
std::string to_json(std::vector<rttr::instance>& objs);

}  // namespace io
