#include "platform/system/FileCallsInternal.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstdint>
#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
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

SystemResult<std::string> makeTemporaryDirectory(std::string pathTemplate)
{
    if (!::mkdtemp(pathTemplate.data()))
        return SystemError::last("mkdtemp");
    return pathTemplate;
}

SystemResult<TemporaryFile> createTemporaryFile(std::string pathTemplate)
{
    const int fd = ::mkostemp(pathTemplate.data(), O_CLOEXEC);
    if (fd < 0)
        return SystemError::last("mkostemp");
    return TemporaryFile {FileDescriptor(fd), std::move(pathTemplate)};
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

SystemResult<struct statfs> fileSystemStatus(const std::string& path)
{
    auto fd = openFile(path, O_PATH);
    if (!fd)
        return fd.error();
    struct statfs status {};
    if (::fstatfs(fd.value().get(), &status) != 0)
        return SystemError::last("fstatfs");
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

bool isFolder(const std::string& path)
{
    auto status = pathStatus(path);
    return status && fileKind(status.value()) == FileKind::folder;
}

bool isExecutableFile(const std::string& path)
{
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)
        && ::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
}

SystemResult<std::string> resolvedPath(const std::string& path)
{
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (!resolved)
        return SystemError::last("realpath");
    std::string result(resolved);
    std::free(resolved);
    return result;
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

std::optional<std::string> absolutePath(const std::string& path)
{
    if (path.starts_with('/'))
        return path;
    auto folder = currentDirectory();
    if (!folder)
        return std::nullopt;
    return folder.value() + (folder.value().ends_with('/') ? "" : "/") + path;
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

SystemResult<> removeEmptyDirectory(const std::string& path)
{
    if (::rmdir(path.c_str()) != 0 && errno != ENOENT)
        return SystemError::last("rmdir");
    return {};
}

SystemResult<> makeDirectoryWithParents(const std::string& path, mode_t mode)
{
    for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        if (auto made = makeDirectory(path.substr(0, slash), mode); !made)
            return made;
    }
    return makeDirectory(path, mode);
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

SystemResult<size_t> writeSome(int fd, std::span<const uint8_t> bytes)
{
    for (;;) {
        const ssize_t n = ::write(fd, bytes.data(), bytes.size());
        if (n >= 0)
            return static_cast<size_t>(n);
        if (errno != EINTR)
            return SystemError::last("write");
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
        auto n = writeSome(fd, bytes);
        if (!n)
            return n.error();
        bytes = bytes.subspan(n.value());
    }
    return {};
}

SystemResult<PipeEnds> createPipe(bool nonBlocking)
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | (nonBlocking ? O_NONBLOCK : 0)) < 0)
        return SystemError::last("pipe2");
    return PipeEnds{FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

SystemResult<size_t> setPipeCapacity(int fd, size_t bytes)
{
    const int held = ::fcntl(fd, F_SETPIPE_SZ, static_cast<int>(std::min<size_t>(bytes, INT32_MAX)));
    if (held < 0)
        return SystemError::last("fcntl(F_SETPIPE_SZ)");
    return static_cast<size_t>(held);
}

SystemResult<> renameFile(const std::string& from, const std::string& to)
{
    if (::rename(from.c_str(), to.c_str()) != 0)
        return SystemError::last("rename");
    return {};
}

SystemResult<std::optional<timespec>> birthTime(const std::string& path)
{
    auto status = extendedStatus(path);
    if (!status)
        return status.error();
    if (!(status.value().stx_mask & STATX_BTIME))
        return std::optional<timespec>();
    return std::optional<timespec>(timespec {status.value().stx_btime.tv_sec, status.value().stx_btime.tv_nsec});
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

SystemResult<> cloneFile(int destination, int source)
{
    if (::ioctl(destination, FICLONE, source) != 0)
        return SystemError::last("ioctl(FICLONE)");
    return {};
}

SystemResult<size_t> copyFileRange(int source, int destination, size_t length)
{
    for (;;) {
        const ssize_t n = ::copy_file_range(source, nullptr, destination, nullptr, length, 0);
        if (n >= 0)
            return static_cast<size_t>(n);
        if (errno != EINTR)
            return SystemError::last("copy_file_range");
    }
}


SystemResult<struct statx> extendedStatus(const std::string& path, int flags)
{
    struct statx status {};
    if (::statx(AT_FDCWD, path.c_str(), flags, STATX_BASIC_STATS | STATX_BTIME, &status) != 0)
        return SystemError::last("statx");
    return status;
}

SystemResult<> setFileTimes(const std::string& path, const timespec (&times)[2])
{
    if (::utimensat(AT_FDCWD, path.c_str(), times, 0) != 0)
        return SystemError::last("utimensat");
    return {};
}

SystemResult<> removeDirectory(const std::string& path)
{
    if (::rmdir(path.c_str()) != 0)
        return SystemError::last("rmdir");
    return {};
}

size_t memoryPageSize() noexcept { return static_cast<size_t>(::sysconf(_SC_PAGESIZE)); }

} // namespace zon
