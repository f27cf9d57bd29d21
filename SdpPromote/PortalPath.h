#pragma once
// The textual join every portal operation uses to place a name below the portal root.

#include <string>

namespace corvid {

/// left + name with one separator between them: none is added when left already ends in "/" or
/// name begins with one, so a leading "/" in name stays below left instead of replacing it.
/// Nothing is normalised; ".." is joined as it stands.
inline std::string joinPortalPath(const std::string& left, const std::string& name) {
    if (left.empty() || name.empty() || left.back() == '/' || name.front() == '/') {
        return left + name;
    }
    return left + '/' + name;
}

}  // namespace corvid
