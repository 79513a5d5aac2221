#include "platform/system/FileCallsInternal.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace zon {

SystemResult<FileDescriptor> openFile(const std::string& path, int flags, mode_t mode, int dirfd)
{
    for (;;) {
        const int fd = ::openat(dirfd, path.c_str(), flags | O_CLOEXEC, mode);
        if (fd >= 0)
            return FileDescriptor(fd);
        if (errno != EINTR)
            return SystemError::last("open");
    }
}

SystemResult<> makeDirectory(const std::string& path, mode_t mode)
{
    if (::mkdir(path.c_str(), mode) != 0 && errno != EEXIST)
        return SystemError::last("mkdir");
    return {};
}

SystemResult<struct stat> fileStatus(int fd)
{
    struct stat status {};
    if (::fstat(fd, &status) != 0)
        return SystemError::last("fstat");
    return status;
}

SystemResult<struct stat> pathStatus(const std::string& path)
{
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        return SystemError::last("stat");
    return status;
}

SystemResult<struct stat> directoryStatus(const std::string& path)
{
    auto folder = openFile(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    if (!folder)
        return folder.error();
    return fileStatus(folder.value().get());
}

SystemResult<> removeFile(const std::string& path)
{
    if (::unlink(path.c_str()) != 0 && errno != ENOENT)
        return SystemError::last("unlink");
    return {};
}

SystemResult<FileDescriptor> lockFileExclusively(const std::string& path, mode_t mode)
{
    // Each round loses only to a holder that removed the file meanwhile; a few rounds settle it.
    for (int attempt = 0; attempt < 8; ++attempt) {
        auto file = openFile(path, O_RDWR | O_CREAT | O_NOFOLLOW, mode);
        if (!file)
            return file;
        if (::flock(file.value().get(), LOCK_EX | LOCK_NB) != 0)
            return SystemError::last("flock");
        auto held = fileStatus(file.value().get());
        auto current = pathStatus(path);
        if (held && current && held.value().st_ino == current.value().st_ino
            && held.value().st_dev == current.value().st_dev)
            return file;
    }
    return SystemError {EAGAIN, "flock", "the lock file kept being replaced"};
}

SystemResult<size_t> readSome(int fd, std::span<uint8_t> buffer)
{
    for (;;) {
        const ssize_t n = ::read(fd, buffer.data(), buffer.size());
        if (n >= 0)
            return static_cast<size_t>(n);
        if (errno != EINTR)
            return SystemError::last("read");
    }
}

SystemResult<std::string> readToEnd(int fd, size_t maxBytes)
{
    std::string bytes;
    size_t filled = 0;
    for (;;) {
        if (filled == bytes.size()) {
            if (bytes.size() > maxBytes)
                return SystemError {EFBIG, "read", {}};
            // One byte past the cap tells a file of exactly maxBytes from a longer one.
            bytes.resize(std::min(std::max<size_t>(4096, bytes.size() * 2), maxBytes + 1));
        }
        auto n = readSome(fd, {reinterpret_cast<uint8_t*>(bytes.data()) + filled, bytes.size() - filled});
        if (!n)
            return n.error();
        if (n.value() == 0)
            break;
        filled += n.value();
    }
    if (filled > maxBytes)
        return SystemError {EFBIG, "read", {}};
    bytes.resize(filled);
    return bytes;
}

SystemResult<> writeAll(int fd, std::span<const uint8_t> bytes)
{
    while (!bytes.empty()) {
        const ssize_t n = ::write(fd, bytes.data(), bytes.size());
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return SystemError::last("write");
        }
        bytes = bytes.subspan(static_cast<size_t>(n));
    }
    return {};
}

} // namespace zon
