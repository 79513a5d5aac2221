#pragma once

#include <cerrno>
#include <string_view>
#include <unistd.h>

namespace zon::logger {

// Writes all of bytes to fd, retrying after interruptions and short writes; false when the
// descriptor refuses them.
inline bool writeFully(int fd, std::string_view bytes) noexcept
{
    while (!bytes.empty()) {
        ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        bytes.remove_prefix(size_t(written));
    }
    return true;
}

} // namespace zon::logger
