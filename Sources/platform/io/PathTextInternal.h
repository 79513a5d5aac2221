#pragma once

// Small operations on path text shared by the units that look for bundles and applications.

#include <string>
#include <string_view>
#include <vector>

namespace zon {

// folder and name joined by exactly one "/" (none added when folder already ends in one).
inline std::string joinedPath(std::string folder, std::string_view name)
{
    if (folder.empty() || folder.back() != '/')
        folder.push_back('/');
    return folder.append(name);
}

// What follows the last "/" (the whole text when there is none).
inline std::string_view lastPathComponent(std::string_view path) { return path.substr(path.find_last_of('/') + 1); }

// The absolute entries of a colon-separated list ($PATH, $XDG_DATA_DIRS), in order; relative
// and empty entries are dropped.
inline std::vector<std::string> absolutePathEntries(std::string_view list)
{
    std::vector<std::string> entries;
    while (!list.empty()) {
        const size_t colon = list.find(':');
        const std::string_view entry = list.substr(0, colon);
        if (entry.starts_with('/'))
            entries.emplace_back(entry);
        list.remove_prefix(colon == std::string_view::npos ? list.size() : colon + 1);
    }
    return entries;
}

} // namespace zon
