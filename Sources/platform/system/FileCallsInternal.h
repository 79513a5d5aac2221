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
// The status of path itself when it is a symbolic link.
ZON_EXPORT SystemResult<struct stat> linkStatus(const std::string& path);
// When the file at path (a link followed) was last modified, to the nanosecond.
ZON_EXPORT SystemResult<timespec> modificationTime(const std::string& path);
// The names in a folder, "." and ".." left out, in the order the file system gives them.
ZON_EXPORT SystemResult<std::vector<std::string>> directoryEntries(const std::string& path);
// Where the symbolic link at path points, as stored in the link.
ZON_EXPORT SystemResult<std::string> symbolicLinkTarget(const std::string& path);
// Removes a file; one that is already gone is no failure.
ZON_EXPORT SystemResult<> removeFile(const std::string& path);
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
// The working folder, as an absolute path.
ZON_EXPORT SystemResult<std::string> currentDirectory();
// Moves a file to another path in the same file system, replacing what is there.
ZON_EXPORT SystemResult<> renameFile(const std::string& from, const std::string& to);
// The absolute path with every symbolic link, "." and ".." resolved (realpath(3)).
ZON_EXPORT SystemResult<std::string> realPath(const std::string& path);
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
