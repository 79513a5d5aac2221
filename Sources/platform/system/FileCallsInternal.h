#pragma once

// Files and folders, as the platform layer uses them. Descriptors made here are closed on exec;
// reads and writes go on through interruptions by signals.

#include "platform/system/FileDescriptor.h"
#include "platform/system/SystemResult.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <optional>
#include <span>
#include <string>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <vector>

namespace zon {

// open(2) relative to dirfd (AT_FDCWD for the working folder); O_CLOEXEC is always added.
ZON_EXPORT SystemResult<FileDescriptor> openFile(const std::string& path, int flags, mode_t mode = 0, int dirfd = AT_FDCWD);
// Makes a folder; one that already exists is no failure.
ZON_EXPORT SystemResult<> makeDirectory(const std::string& path, mode_t mode);
// The status of the folder at path, without following a symbolic link there (ELOOP or ENOTDIR
// when path is a link or not a folder).
ZON_EXPORT SystemResult<struct stat> directoryStatus(const std::string& path);
ZON_EXPORT SystemResult<struct stat> fileStatus(int fd);
ZON_EXPORT SystemResult<struct stat> pathStatus(const std::string& path);
// fstatfs(2) of the file system that holds path (opened with O_PATH, so no read permission is needed).
ZON_EXPORT SystemResult<struct statfs> fileSystemStatus(const std::string& path);
// The status of path itself when it is a symbolic link.
ZON_EXPORT SystemResult<struct stat> linkStatus(const std::string& path);
// When the file at path (a link followed) was last modified, to the nanosecond.
ZON_EXPORT SystemResult<timespec> modificationTime(const std::string& path);
// The names in a folder, "." and ".." left out, in the order the file system gives them.
ZON_EXPORT SystemResult<std::vector<std::string>> directoryEntries(const std::string& path);
// Where the symbolic link at path points, as stored in the link.
ZON_EXPORT SystemResult<std::string> symbolicLinkTarget(const std::string& path);
// Whether path (a link followed) is a regular file the effective user may execute.
ZON_EXPORT bool isExecutableFile(const std::string& path);
// Whether path (a link followed) is a folder.
ZON_EXPORT bool isFolder(const std::string& path);
// path made absolute with every symbolic link, "." and ".." resolved (realpath(3)).
ZON_EXPORT SystemResult<std::string> resolvedPath(const std::string& path);
// Removes a file; one that is already gone is no failure.
ZON_EXPORT SystemResult<> removeFile(const std::string& path);
// Removes a folder when it is empty; one that is already gone is no failure.
ZON_EXPORT SystemResult<> removeEmptyDirectory(const std::string& path);
// Makes a folder and the folders above it that are missing.
ZON_EXPORT SystemResult<> makeDirectoryWithParents(const std::string& path, mode_t mode);
// Opens (creating) the file at path and takes an exclusive lock on it without waiting. The lock
// is then checked to be on the file that is at path now, since a previous holder may remove the
// file between our open and our lock. EWOULDBLOCK when a live process holds it.
ZON_EXPORT SystemResult<FileDescriptor> lockFileExclusively(const std::string& path, mode_t mode);
// Reads what fits in buffer; 0 at the end. EAGAIN from a non-blocking descriptor with nothing to read.
ZON_EXPORT SystemResult<size_t> readSome(int fd, std::span<uint8_t> buffer);
// Moves the file offset (lseek(2)); answers the new offset. ESPIPE for a pipe or a socket.
ZON_EXPORT SystemResult<off_t> seekFile(int fd, off_t offset, int whence);
// Reads to the end; EFBIG when there is more than maxBytes.
ZON_EXPORT SystemResult<std::string> readToEnd(int fd, size_t maxBytes);

// Appends what fd holds from its offset to its end to out (a std::string or a ByteVector); EFBIG
// when that is more than maxBytes, out then holding what was read (at most maxBytes + 1 bytes).
// out keeps its capacity, so a caller that reuses one buffer for many files allocates once.
template <class Bytes>
SystemResult<> appendToEnd(int fd, Bytes& out, size_t maxBytes)
{
    const size_t start = out.size();
    for (;;) {
        const size_t taken = out.size() - start;
        if (taken > maxBytes)
            return SystemError {EFBIG, "read", {}};
        // Room doubles with what was read; one byte past the cap tells a file of exactly
        // maxBytes from a longer one.
        const size_t room = std::min(std::max({out.capacity() - out.size(), taken, size_t(4096)}), maxBytes + 1 - taken);
        const size_t filled = out.size();
        out.resize(filled + room);
        auto n = readSome(fd, {reinterpret_cast<uint8_t*>(out.data()) + filled, room});
        out.resize(filled + (n ? n.value() : 0));
        if (!n)
            return n.error();
        if (n.value() == 0)
            return {};
    }
}
// How many descriptors this process may have open (the soft limit).
ZON_EXPORT SystemResult<size_t> openFileLimit();
// The size of a memory page, in bytes (the unit of /proc's memory figures).
ZON_EXPORT size_t memoryPageSize() noexcept;
// Writes all of bytes to a blocking descriptor.
ZON_EXPORT SystemResult<> writeAll(int fd, std::span<const uint8_t> bytes);
// Writes what the descriptor takes now; EAGAIN from a full non-blocking one.
ZON_EXPORT SystemResult<size_t> writeSome(int fd, std::span<const uint8_t> bytes);

// A pipe: its read end, then its write end, both closed on exec; neither blocks when asked.
struct PipeEnds {
    FileDescriptor reading;
    FileDescriptor writing;
};
ZON_EXPORT SystemResult<PipeEnds> createPipe(bool nonBlocking = false);
// Asks the kernel to hold at least bytes in the pipe (F_SETPIPE_SZ; it rounds up to whole pages)
// and answers what it now holds. Unprivileged processes are capped by /proc/sys/fs/pipe-max-size
// (1 MiB by default) and by their share of pipe pages (EPERM past it).
ZON_EXPORT SystemResult<size_t> setPipeCapacity(int fd, size_t bytes);
// The working folder, as an absolute path.
ZON_EXPORT SystemResult<std::string> currentDirectory();
// path itself when absolute, else joined to the working folder (nothing resolved); nullopt when
// the working folder cannot be read.
ZON_EXPORT std::optional<std::string> absolutePath(const std::string& path);
// Moves a file to another path in the same file system, replacing what is there.
ZON_EXPORT SystemResult<> renameFile(const std::string& from, const std::string& to);
// When the file at path (a link followed) was made (statx); nullopt where the file system does
// not record it.
ZON_EXPORT SystemResult<std::optional<timespec>> birthTime(const std::string& path);

// One name of a folder with what readdir(3) says of it: the inode and, where the file system
// fills it in, the kind (DT_DIR, DT_REG, ...; DT_UNKNOWN otherwise).
struct DirectoryEntry {
    std::string name;
    ino_t inode = 0;
    unsigned char type = 0;
};
// Like directoryEntries, with each entry's inode and kind. At most maxEntries entries are read.
ZON_EXPORT SystemResult<std::vector<DirectoryEntry>> directoryListing(const std::string& path, size_t maxEntries);

// Copying and file times, for the file manager and its copy engine.
//
// Makes destination share source's blocks (ioctl FICLONE): EOPNOTSUPP, EXDEV or EINVAL where the
// file system or the pair of files cannot.
ZON_EXPORT SystemResult<> cloneFile(int destination, int source);
// copy_file_range(2) from and at both files' offsets, which it moves on: answers how many bytes
// it copied, 0 at the source's end.
ZON_EXPORT SystemResult<size_t> copyFileRange(int source, int destination, size_t length);
// statx(2) of path asking for the basic fields and the birth time; flags as statx takes them
// (AT_SYMLINK_NOFOLLOW for a link itself).
ZON_EXPORT SystemResult<struct statx> extendedStatus(const std::string& path, int flags = 0);
// utimensat(2) on path, a link followed: times[0] the access time, times[1] the modification
// time; UTIME_OMIT leaves one as it is.
ZON_EXPORT SystemResult<> setFileTimes(const std::string& path, const timespec (&times)[2]);
// A new folder (mode 0700) named template with its trailing "XXXXXX" made unique (mkdtemp(3)).
ZON_EXPORT SystemResult<std::string> makeTemporaryDirectory(std::string pathTemplate);
// A new file (mode 0600, close-on-exec) named template with its trailing "XXXXXX" made unique
// (mkostemp(3)), open for reading and writing.
struct TemporaryFile {
    FileDescriptor descriptor;
    std::string path;
};
ZON_EXPORT SystemResult<TemporaryFile> createTemporaryFile(std::string pathTemplate);
// rmdir(2).
ZON_EXPORT SystemResult<> removeDirectory(const std::string& path);

// What a file's status says it is.
enum class FileKind { regular, folder, fifo, characterDevice, blockDevice, socket, symbolicLink, other };
ZON_EXPORT FileKind fileKind(const struct stat& status);
// "a regular file", "a folder", "a FIFO", ... for messages.
ZON_EXPORT const char* fileKindName(FileKind kind);

// The kinds of file a reader takes: whole files only, or pipes too for a reader that streams.
enum class ReadableKinds { regularFiles, regularFilesAndFifos };
// Opens path for reading when it is a kind the reader takes. The kind is checked before anything
// waits, so a refused FIFO does not block for a writer; an accepted one is opened again in
// blocking mode and waits for its writer as readers of pipes do. A refusal fails with EISDIR (a
// folder) or EINVAL, its reason naming the kind: "open: a character device, not a regular file".
ZON_EXPORT SystemResult<FileDescriptor> openForReading(const std::string& path, ReadableKinds accepted);

} // namespace zon
