#pragma once

// How many inotify instances this process holds open, counted from /proc/self/fd.

#include <cstddef>
#include <filesystem>
#include <system_error>

namespace zon::test {

inline size_t openInotifyInstances()
{
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (std::filesystem::read_symlink(entry.path(), error).string() == "anon_inode:inotify")
            ++count;
    }
    return count;
}

} // namespace zon::test
