#include "platform/system/FileCallsInternal.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstdint>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
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

SystemResult<timespec> modificationTime(const std::string& path)
{
    auto status = pathStatus(path);
    if (!status)
        return status.error();
    return status.value().st_mtim;
}

SystemResult<std::vector<DirectoryEntry>> directoryListing(const std::string& path, size_t maxEntries)
{
    auto folder = openFile(path, O_RDONLY | O_DIRECTORY);
    if (!folder)
        return folder.error();
    DIR* stream = ::fdopendir(folder.value().get());
    if (!stream)
        return SystemError::last("fdopendir");
    (void)folder.value().release(); // the stream owns the descriptor now
    std::vector<DirectoryEntry> entries;
    errno = 0;
    while (entries.size() < maxEntries) {
        const dirent* entry = ::readdir(stream);
        if (!entry)
            break;
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            entries.push_back({std::string(name), entry->d_ino, entry->d_type});
    }
    const int readError = errno;
    ::closedir(stream);
    if (readError != 0)
        return SystemError{readError, "readdir", {}};
    return entries;
}

SystemResult<std::vector<std::string>> directoryEntries(const std::string& path)
{
    auto listing = directoryListing(path, SIZE_MAX);
    if (!listing)
        return listing.error();
    std::vector<std::string> names;
    names.reserve(listing.value().size());
    for (DirectoryEntry& entry : listing.value())
        names.push_back(std::move(entry.name));
    return names;
}

SystemResult<std::string> symbolicLinkTarget(const std::string& path)
{
    std::string target(256, '\0');
    for (;;) {
        const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
        if (length < 0)
            return SystemError::last("readlink");
        if (static_cast<size_t>(length) < target.size()) {
            target.resize(static_cast<size_t>(length));
            return target;
        }
        target.resize(target.size() * 2); // may have been cut: try again with more room
    }
}

SystemResult<std::string> currentDirectory()
{
    std::string path(256, '\0');
    while (::getcwd(path.data(), path.size()) == nullptr) {
        if (errno != ERANGE)
            return SystemError::last("getcwd");
        path.resize(path.size() * 2);
    }
    path.resize(std::char_traits<char>::length(path.c_str()));
    return path;
}

SystemResult<struct stat> linkStatus(const std::string& path)
{
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0)
        return SystemError::last("lstat");
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

SystemResult<off_t> seekFile(int fd, off_t offset, int whence)
{
    const off_t position = ::lseek(fd, offset, whence);
    if (position < 0)
        return SystemError::last("lseek");
    return position;
}

SystemResult<std::string> readToEnd(int fd, size_t maxBytes)
{
    std::string bytes;
    if (auto read = appendToEnd(fd, bytes, maxBytes); !read)
        return read.error();
    return bytes;
}

SystemResult<size_t> openFileLimit()
{
    rlimit limit {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return SystemError::last("getrlimit");
    return static_cast<size_t>(limit.rlim_cur);
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

SystemResult<> renameFile(const std::string& from, const std::string& to)
{
    if (::rename(from.c_str(), to.c_str()) != 0)
        return SystemError::last("rename");
    return {};
}

SystemResult<std::string> realPath(const std::string& path)
{
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (!resolved)
        return SystemError::last("realpath");
    std::string result(resolved);
    std::free(resolved);
    return result;
}

SystemResult<std::optional<timespec>> birthTime(const std::string& path)
{
    struct statx status {};
    if (::statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME, &status) != 0)
        return SystemError::last("statx");
    if (!(status.stx_mask & STATX_BTIME))
        return std::optional<timespec>();
    return std::optional<timespec>(timespec {status.stx_btime.tv_sec, status.stx_btime.tv_nsec});
}

FileKind fileKind(const struct stat& status)
{
    switch (status.st_mode & S_IFMT) {
    case S_IFREG: return FileKind::regular;
    case S_IFDIR: return FileKind::folder;
    case S_IFIFO: return FileKind::fifo;
    case S_IFCHR: return FileKind::characterDevice;
    case S_IFBLK: return FileKind::blockDevice;
    case S_IFSOCK: return FileKind::socket;
    case S_IFLNK: return FileKind::symbolicLink;
    default: return FileKind::other;
    }
}

const char* fileKindName(FileKind kind)
{
    switch (kind) {
    case FileKind::regular: return "a regular file";
    case FileKind::folder: return "a folder";
    case FileKind::fifo: return "a FIFO";
    case FileKind::characterDevice: return "a character device";
    case FileKind::blockDevice: return "a block device";
    case FileKind::socket: return "a socket";
    case FileKind::symbolicLink: return "a symbolic link";
    case FileKind::other: break;
    }
    return "a special file";
}

SystemResult<FileDescriptor> openForReading(const std::string& path, ReadableKinds accepted)
{
    auto file = openFile(path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (!file)
        return file;
    auto status = fileStatus(file.value().get());
    if (!status)
        return status.error();
    const FileKind kind = fileKind(status.value());
    if (kind == FileKind::regular)
        return file; // reads of regular files never wait, so the non-blocking flag changes nothing
    if (kind == FileKind::fifo && accepted == ReadableKinds::regularFilesAndFifos) {
        // A FIFO opened without blocking reads as ended while no writer has come; the blocking
        // open of the same FIFO waits for one.
        return openFile("/proc/self/fd/" + std::to_string(file.value().get()), O_RDONLY);
    }
    const char* wanted = accepted == ReadableKinds::regularFiles ? "a regular file" : "a regular file or a FIFO";
    return SystemError {kind == FileKind::folder ? EISDIR : EINVAL, "open",
        std::string(fileKindName(kind)) + ", not " + wanted};
}

size_t memoryPageSize() noexcept { return static_cast<size_t>(::sysconf(_SC_PAGESIZE)); }

} // namespace zon
