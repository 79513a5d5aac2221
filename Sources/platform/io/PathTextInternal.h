#pragma once

// Small operations on path text shared by the units that look for bundles and applications.

#include <string>
#include <string_view>

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

} // namespace zon
